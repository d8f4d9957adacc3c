#include "Wording/Direction.h"

#include <algorithm>
#include <optional>

#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::string_view toRight = "\u2066", toLeft = "\u2067", end = "\u2069";

/// What is found in a text outside of its islands.
struct Letters {
    bool isNumber = true;  // digits and what stands between them
    bool areLeftwards = false, areRightwards = false, hasBlank = false, hasDot = false, hasOther = false;
    bool hasIsland = false, isOneIsland = false;
};

Letters lettersOf(std::string_view text) {
    Letters found;
    int depth = 0, islands = 0;
    bool isOutside = false;
    while (!text.empty()) {
        const char32_t c = takeScalar(text);
        if (isBeginOfIsland(c)) {
            if (depth++ == 0) ++islands;
            continue;
        }
        if (c == endOfIsland) {
            --depth;
            continue;
        }
        if (depth > 0) continue;
        isOutside = true;
        const Direction direction = directionOf(c);
        found.areLeftwards = found.areLeftwards || direction == Direction::leftwards;
        found.areRightwards = found.areRightwards || direction == Direction::rightwards;
        found.hasOther = found.hasOther || direction == Direction::none;
        found.hasBlank = found.hasBlank || c == U' ';
        found.hasDot = found.hasDot || c == U'.' || c == U'@';
        found.isNumber = found.isNumber && ((c >= U'0' && c <= U'9') || c == U'.' || c == U',' || c == U':' ||
                                            c == 0xA0 || c == 0x202F);
    }
    found.hasIsland = islands > 0;
    found.isOneIsland = islands == 1 && !isOutside;
    return found;
}

/// The islands of a text are closed in their order.
bool isBalanced(std::string_view text) {
    int depth = 0;
    while (!text.empty()) {
        const char32_t c = takeScalar(text);
        if (isBeginOfIsland(c)) ++depth;
        if (c == endOfIsland && --depth < 0) return false;
    }
    return depth == 0;
}

std::string island(std::string_view begin, std::string_view text) {
    return std::string(begin).append(text).append(end);
}

/// A name from left to right, in which each run of letters written from right to left is an island of its
/// own, so that no label of a domain changes places with another.
std::string nameIsland(std::string_view name) {
    std::string text;
    bool inRun = false;
    while (!name.empty()) {
        const char32_t c = takeScalar(name);
        const Direction direction = directionOf(c);
        const bool isOfRun = direction == Direction::leftwards || (inRun && direction == Direction::mark);
        if (isOfRun != inRun) text += isOfRun ? toLeft : end;
        inRun = isOfRun;
        appendUTF8(text, c);
    }
    if (inRun) text += end;
    return island(toRight, text);
}

bool isName(const Letters& letters) {
    return letters.areLeftwards && letters.areRightwards && letters.hasDot && !letters.hasBlank &&
           !letters.hasIsland;
}

/// The same for each word of a text that is a name of letters of both directions.
std::string withNameIslands(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t length = std::min(text.find(' '), text.size());
        const std::string_view word = text.substr(0, length);
        result += isName(lettersOf(word)) ? nameIsland(word) : std::string(word);
        text.remove_prefix(length);
        if (text.empty()) break;
        result += ' ';
        text.remove_prefix(1);
    }
    return result;
}

}  // namespace

std::string isolated(std::string_view text, Language language) {
    if (!factsOf(language).isRightToLeft) return std::string(text);
    // Islands that don't end would take in what follows: these are nobody's but a stranger's.
    if (!isBalanced(text)) return isolated(forDisplay(text), language);
    const Letters letters = lettersOf(text);
    if (letters.isOneIsland || letters.isNumber) return std::string(text);
    if (isName(letters)) return nameIsland(text);
    if (!letters.areLeftwards) return island(letters.hasIsland ? toLeft : toRight, text);
    if (!letters.areRightwards && !letters.hasOther && !letters.hasIsland)
        return std::string(text);  // a word
    return island(toLeft, letters.hasIsland ? std::string(text) : withNameIslands(text));
}

std::string inertLine(std::string_view line, Language language, std::size_t limit) {
    if (!factsOf(language).isRightToLeft || line.size() > limit || !isBalanced(line))
        return forDisplay(line, limit);
    std::string shown;
    std::size_t begin = 0;  // of what is no end of an island
    for (std::size_t at = 0; at < line.size();) {
        std::string_view rest = line.substr(at);
        const char32_t c = takeScalar(rest);
        const std::size_t next = line.size() - rest.size();
        if (isBeginOfIsland(c) || c == endOfIsland) {
            shown += forDisplay(line.substr(begin, at - begin));
            shown += line.substr(at, next - at);
            begin = next;
        }
        at = next;
    }
    return shown + forDisplay(line.substr(begin));
}

}  // namespace quillmark
