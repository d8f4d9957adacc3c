#include "Wording/Quoted.h"

#include <algorithm>

#include "QuillmarkKit/Mail/Punycode.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::size_t longestQuote = 500;   // bytes
constexpr std::size_t longestList = 1'000;  // bytes

}  // namespace

std::string inert(std::string_view text) { return forDisplay(text, longestQuote); }

std::string quoted(std::string_view text) {
    const std::string shown = inert(text);
    std::string result;
    for (std::string_view rest = shown; !rest.empty();) {
        const char32_t c = takeScalar(rest);
        if (c >= U'\u201C' && c <= U'\u201F') {
            result += '"';
        } else {
            appendUTF8(result, c);
        }
    }
    return result;
}

std::string cutInside(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) return std::string(text);
    const auto isInsideCharacter = [&](std::size_t at) {
        return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
    };
    std::size_t head = limit / 4, tail = text.size() - (limit - head);
    while (head > 0 && isInsideCharacter(head)) --head;
    while (isInsideCharacter(tail)) ++tail;
    return std::string(text.substr(0, head)).append("…").append(text.substr(tail));
}

std::string quotedWord(std::string_view text) {
    std::string word = quoted(cutInside(text));
    const bool isOne =
        withoutWhitespace(word).size() == word.size() && word.find_first_of(",;<>\"") == std::string::npos;
    if (isOne) return word;
    std::ranges::replace(word, '"', '\'');
    return '"' + word + '"';
}

std::string quotedDomain(std::string_view domain) {
    const std::string letters = Punycode::unicodeDomain(domain.substr(0, longestQuote));
    if (letters != domain.substr(0, longestQuote))
        return quotedWord(domain) + " (" + quotedWord(letters) + ")";
    const auto ascii = isASCII(domain) ? std::nullopt : asciiDomain(domain);
    return ascii ? quotedWord(domain) + " (" + quotedWord(*ascii) + ")" : quotedWord(domain);
}

std::string quotedList(std::span<const std::string> texts, const Reader& reader) {
    std::string list;
    for (const std::string& text : texts) {
        if (list.size() > longestList) {
            reader.addTo(list, "…");
            break;
        }
        reader.addTo(list, quotedWord(text));
    }
    return list;
}

}  // namespace quillmark
