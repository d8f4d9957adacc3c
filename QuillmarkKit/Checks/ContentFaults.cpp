#include "QuillmarkKit/Checks/ContentFaults.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "QuillmarkKit/Mail/MIMEStructure.h"
#include "QuillmarkKit/Mail/TransferEncodings.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::string_view lineEnd = "\r\n";
// In bytes; programs write a line, such as "This is a multi-part message in MIME format."
constexpr std::size_t longestPreamble = 200;
constexpr std::size_t mostLookedAt = 65'536;  // bytes of a body
constexpr std::size_t mostOfCharset = 4'096;  // bytes that are read in a character set

/// The first `most` bytes of a text, without a line that is cut.
std::string_view firstLines(std::string_view text, std::size_t most) {
    if (text.size() <= most) return text;
    const auto end = text.rfind('\n', most);
    return text.substr(0, end == std::string_view::npos ? most : end + 1);
}

/// What stands above the line that begins the first part; nothing without such a line.
std::optional<std::size_t> preambleBytes(std::string_view body, const std::string& boundary) {
    if (boundary.empty() || boundary.size() > longestBoundary) return std::nullopt;
    const std::string mark = "--" + boundary;
    for (std::string_view rest = body; !rest.empty();) {
        const std::size_t above = body.size() - rest.size();
        const std::string_view line = takePiece(rest, '\n');
        if (line.starts_with(mark) && trimmed(line.substr(mark.size()), " \t\r").empty()) return above;
    }
    return std::nullopt;
}

std::optional<ContentFault> partsFault(const std::vector<std::string>& boundaries, std::string_view body) {
    if (boundaries.empty()) return ContentFault::noParts;
    for (const std::string& boundary : {boundaries.front(), boundaries.back()}) {
        const auto above = preambleBytes(body, boundary);
        if (!above) return ContentFault::noParts;
        if (*above > longestPreamble) return ContentFault::textAboveParts;
    }
    return std::nullopt;
}

std::string decoded(std::string_view encoding, std::string_view text) {
    switch (transferEncoding(encoding)) {
        case TransferEncoding::base64:
            return decodedBase64Lines(text);
        case TransferEncoding::quotedPrintable:
            return decodedQuotedPrintable(text);
        case TransferEncoding::none:
            break;
    }
    return std::string(text);
}

bool beginsAsHTML(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    text = trimmed(text);
    return startsWithIgnoringCase(text, "<html") || startsWithIgnoringCase(text, "<!doctype");
}

/// Whether a text has a tag or a comment of HTML, which an address in angle brackets is not.
bool holdsTag(std::string_view text) {
    for (auto at = text.find('<'); at != std::string_view::npos; at = text.find('<', at + 1)) {
        std::string_view rest = text.substr(at + 1);
        if (rest.starts_with('!') || rest.starts_with('?')) return true;
        if (rest.starts_with('/')) rest.remove_prefix(1);
        const auto end = std::ranges::find_if(rest, [](char c) { return !isASCIILetter(c) && !isDigit(c); });
        if (end == rest.begin() || end == rest.end()) continue;
        if (std::string_view(" \t\r\n/>").find(*end) != std::string_view::npos) return true;
    }
    return false;
}

/// Whether letters, digits and the commonest marks of a text become others in a character set.
bool changesLetters(const std::string& charset, std::string_view text) {
    // Those that take several bytes for a letter, or switch between sets, need these.
    constexpr std::string_view ofOtherSets("\0\x0E\x0F\x1B", 4);
    text = text.substr(0, mostOfCharset);
    if (charset.empty() || text.find_first_of(ofOtherSets) != std::string_view::npos) return false;
    std::string letters;
    for (const char c : text) {
        const bool isMark = std::string_view(" .,:;'()+-/=?%&<>*").find(c) != std::string_view::npos;
        if (isASCIILetter(c) || isDigit(c) || isMark) letters += c;
    }
    letters.resize(letters.size() / 4 * 4);
    return CharsetDecoder().decode(charset, letters) != letters;
}

/// Whether a text is not what base64 makes of anything: words, for one thing.
bool isNotBase64(std::string_view text) {
    while (!text.empty()) {
        const std::string_view line = trimmed(takePiece(text, '\n'), " \t\r");
        const bool isForeign = std::ranges::any_of(line, [](char c) {
            return !isASCIILetter(c) && !isDigit(c) && c != '+' && c != '/' && c != '=';
        });
        if (isForeign) return true;
    }
    return false;
}

/// Whether an equals sign stands where quoted-printable has none.
bool isNotQuotedPrintable(std::string_view text) {
    for (auto at = text.find('='); at != std::string_view::npos; at = text.find('=', at + 1)) {
        const std::string_view escape = text.substr(at + 1, 2);
        if (escape.size() < 2) break;
        if (hexValue(escape[0]) >= 0 && hexValue(escape[1]) >= 0) continue;
        const auto behind = text.find_first_not_of(" \t", at + 1);
        if (behind == std::string_view::npos || text.substr(behind).starts_with(lineEnd)) continue;
        return true;
    }
    return false;
}

}  // namespace

std::optional<ContentFault> typeFault(std::string_view type, std::string_view encoding,
                                      std::string_view body) {
    const std::string name = contentTypeName(type);
    if (name.starts_with("multipart/")) return partsFault(fieldParameters(type, "boundary"), body);
    if (!name.starts_with("text/")) return std::nullopt;
    const std::string text = decoded(encoding, firstLines(body, mostLookedAt));
    if (name == "text/plain" && beginsAsHTML(text)) return ContentFault::otherType;
    if (name == "text/html" && !trimmed(text).empty() && !holdsTag(text)) return ContentFault::otherType;
    const auto charsets = fieldParameters(type, "charset");
    if (!charsets.empty() &&
        (changesLetters(charsets.front(), text) || changesLetters(charsets.back(), text))) {
        return ContentFault::otherEncoding;
    }
    return std::nullopt;
}

std::optional<ContentFault> encodingFault(std::string_view type, std::string_view encoding,
                                          std::string_view body) {
    const std::string kind = contentTypeName(type);
    if (!kind.empty() && !kind.starts_with("text/")) return std::nullopt;
    const std::string_view start = firstLines(body, mostLookedAt);
    bool isOther = false;
    switch (transferEncoding(encoding)) {
        case TransferEncoding::base64:
            isOther = isNotBase64(start);
            break;
        case TransferEncoding::quotedPrintable:
            isOther = isNotQuotedPrintable(start);
            break;
        case TransferEncoding::none:
            // Of before MIME: what stands above its "begin" line, programs leave out.
            constexpr std::array old = {"uuencode", "x-uuencode", "x-uue", "uue", "x-yencode", "x-yenc"};
            isOther = std::ranges::any_of(
                old, [&](const char* name) { return equalsIgnoringCase(trimmed(encoding), name); });
            break;
    }
    return isOther ? std::optional(ContentFault::otherEncoding) : std::nullopt;
}

}  // namespace quillmark
