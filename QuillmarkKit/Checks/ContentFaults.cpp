#include "QuillmarkKit/Checks/ContentFaults.h"

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "QuillmarkKit/Mail/MIMEStructure.h"
#include "QuillmarkKit/Mail/Message.h"
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
constexpr std::size_t mostAlternatives = 20, longestPartHeader = 4'096;

/// The first `most` bytes of a text, without a line that is cut.
std::string_view firstLines(std::string_view text, std::size_t most) {
    if (text.size() <= most) return text;
    const auto end = text.rfind('\n', most);
    return text.substr(0, end == std::string_view::npos ? most : end + 1);
}

/// Whether a line, without the hyphens in front, is the mark of this boundary, with `tail` behind it.
bool isMark(std::string_view line, std::string_view boundary, std::string_view tail) {
    return line.starts_with(boundary) && trimmed(line.substr(boundary.size()), " \t\r") == tail;
}

/// Takes everything up to the line that begins the next part off the front, and that line, too; gives where
/// it stood. Nothing without such a line.
std::optional<std::size_t> takeToPart(std::string_view& rest, std::string_view boundary) {
    const std::string_view whole = rest;
    const std::string mark = "\n--" + std::string(boundary);
    for (;;) {
        const std::size_t begin = whole.size() - rest.size();
        if (rest.starts_with(std::string_view(mark).substr(1)) &&
            isMark(takePiece(rest, '\n').substr(2), boundary, "")) {
            return begin;
        }
        const auto next = whole.find(mark, begin);
        if (next == std::string_view::npos) return std::nullopt;
        rest = whole.substr(next + 1);
    }
}

/// What stands behind the first line that closes the parts; nothing without such a line.
std::string_view textBelow(std::string_view body, const std::string& boundary) {
    const std::string mark = "\n--" + boundary + "--";
    for (auto at = body.find(mark); at != std::string_view::npos; at = body.find(mark, at + 1)) {
        std::string_view rest = body.substr(at + 3);
        if (isMark(takePiece(rest, '\n'), boundary, "--")) return trimmed(rest);
    }
    return {};
}

/// Whether what stands above the first part is what programs write there, if they write anything: a line on
/// what MIME is. Another mark in it begins parts that aren't shown.
bool isUsualAbove(std::string_view above) {
    if (above.size() > longestPreamble) return false;
    const std::string text = asciiLowered(above);
    if (text.starts_with("--") || text.find("\n--") != std::string::npos) return false;
    const auto names = [&](const char* word) { return text.find(word) != std::string::npos; };
    return trimmed(text).empty() || names("mime") || names("multipart") || names("multi-part");
}

/// Whether programs show less than all of the parts, as they do of alternatives and of what belongs to one
/// part, though their own headers are those of several texts.
bool areOthersHidden(std::string_view type, const std::string& boundary, std::string_view body) {
    const std::string kind = contentTypeName(type);
    if (kind == "multipart/appledouble" || kind == "multipart/x-mixed-replace") return true;
    const std::string root = fieldParameter(type, "start");  // RFC 2387, section 3.2
    const bool isRelated = kind == "multipart/related" && !root.empty();
    if (!isRelated && kind != "multipart/alternative") return false;
    std::set<std::string> kinds;
    for (std::size_t part = 0; part < mostAlternatives && takeToPart(body, boundary); ++part) {
        std::string_view header = body.substr(0, longestPartHeader);
        header = header.starts_with(lineEnd) ? "" : header.substr(0, header.find("\r\n\r\n"));
        const MailMessage fields = MailMessage::parse(header);
        const auto value = [&](const char* name) {
            const HeaderField* field = fields.first(name);
            return field ? field->value() : std::string();
        };
        if (isRelated)
            return !fields.headers().empty() && value("Content-ID").find(root) == std::string::npos;
        const bool isAttached = contentTypeName(value("Content-Disposition")) == "attachment";
        if (isAttached || !kinds.insert(contentTypeName(value("Content-Type"))).second) return true;
    }
    return false;
}

std::optional<ContentFault> partsFault(std::string_view type, std::string_view body) {
    const auto boundaries = fieldParameters(type, "boundary");
    if (boundaries.empty()) return ContentFault::noParts;
    for (const std::string& boundary : {boundaries.front(), boundaries.back()}) {
        std::string_view rest = body;
        const bool isUsable = !boundary.empty() && boundary.size() <= longestBoundary;
        const auto above = isUsable ? takeToPart(rest, boundary) : std::nullopt;
        if (!above) return ContentFault::noParts;
        if (!isUsualAbove(body.substr(0, *above))) return ContentFault::textAboveParts;
        if (textBelow(body, boundary).size() > longestPreamble) return ContentFault::textBelowParts;
        if (areOthersHidden(type, boundary, body)) return ContentFault::otherType;
    }
    return std::nullopt;
}

bool beginsAsHTML(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    text = trimmed(text);
    return startsWithIgnoringCase(text, "<html") || startsWithIgnoringCase(text, "<!doctype");
}

/// Whether a tag or a comment of HTML stands here, which an address in angle brackets is not.
bool beginsTag(std::string_view text) {
    if (!text.starts_with('<')) return false;
    text.remove_prefix(1);
    if (text.starts_with('!') || text.starts_with('?')) return true;
    if (text.starts_with('/')) text.remove_prefix(1);
    const auto end = std::ranges::find_if(text, [](char c) { return !isASCIILetter(c) && !isDigit(c); });
    return end != text.begin() && end != text.end() &&
           std::string_view(" \t\r\n/>").find(*end) != std::string_view::npos;
}

/// Whether a text is no page: it has no tags, or has paragraphs that only empty lines part, more than one for
/// four tags. A page loses them, and with a tag or two that somebody wrote into a text the rest of it.
bool isNoPage(std::string_view text) {
    constexpr std::size_t tagsOfParagraph = 4;
    const std::string lowered = asciiLowered(text);
    // What is in a style or a script has empty lines that say nothing; one that nothing ends is none.
    constexpr std::array styles = {"<style", "<script"};
    constexpr std::array ends = {"</style", "</script"};
    const std::array lastEnds = {lowered.rfind(ends[0]), lowered.rfind(ends[1])};
    std::size_t tags = 0, paragraphs = 0, lineEnds = 0;
    char last = '>';
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (!isBlank(c) && c != '\r' && c != '\n') {
            if (lineEnds > 1 && last != '>' && c != '<') ++paragraphs;
            lineEnds = 0;
            last = c;
        }
        if (c == '\n') ++lineEnds;
        if (!beginsTag(text.substr(at))) continue;
        ++tags;
        for (std::size_t i = 0; i < styles.size(); ++i) {
            const bool isStyle = std::string_view(lowered).substr(at).starts_with(styles[i]);
            if (isStyle && lastEnds[i] != std::string::npos && lastEnds[i] > at)
                at = lowered.find(ends[i], at);
        }
    }
    return tags == 0 || paragraphs * tagsOfParagraph >= tags;
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

/// Whether an equals sign stands where quoted-printable has none, or for what no program writes with one: a
/// letter, a digit or a bracket of a tag, but for the F of "From " at the beginning of a line.
bool isNotQuotedPrintable(std::string_view text) {
    for (auto at = text.find('='); at != std::string_view::npos; at = text.find('=', at + 1)) {
        const std::string_view escape = text.substr(at + 1, 2);
        if (escape.size() < 2) break;
        if (hexValue(escape[0]) >= 0 && hexValue(escape[1]) >= 0) {
            const char c = static_cast<char>(hexValue(escape[0]) * 16 + hexValue(escape[1]));
            const bool isFrom = text.substr(at).starts_with("=46rom ");
            if ((isASCIILetter(c) || isDigit(c) || c == '<' || c == '>') && !isFrom) return true;
            continue;
        }
        const auto behind = text.find_first_not_of(" \t", at + 1);
        if (behind == std::string_view::npos || text.substr(behind).starts_with(lineEnd)) continue;
        return true;
    }
    return false;
}

/// Whether "delsp=yes" (RFC 3676, section 4.2) joins words of a text that nobody wrote for it: its lines end
/// with one blank, which programs take away, though they aren't full.
bool joinsWords(std::string_view text) {
    constexpr std::size_t fullLine = 50;
    const auto isLetter = [](char c) { return isASCIILetter(c) || isDigit(c); };
    while (!text.empty()) {
        std::string_view line = takePiece(text, '\n');
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (line.size() < 2 || line.size() >= fullLine || !line.ends_with(' ') || text.empty()) continue;
        if (isLetter(line[line.size() - 2]) && isLetter(text.front())) return true;
    }
    return false;
}

/// How a content begins that can be told from another.
struct Beginning {
    std::string_view name, text;
};
constexpr std::array beginnings = {
    Beginning{"text/calendar", "BEGIN:VCALENDAR"}, Beginning{"application/ics", "BEGIN:VCALENDAR"},
    Beginning{"text/vcard", "BEGIN:VCARD"},        Beginning{"text/x-vcard", "BEGIN:VCARD"},
    Beginning{"text/directory", "BEGIN:"},         Beginning{"application/pdf", "%PDF"},
};

/// Whether what is called something other than a text is one all the same: nothing but letters and marks, and
/// not such as data of that name are written with.
bool isWords(std::string_view content, std::string_view name) {
    constexpr std::array data = {std::pair{"json", "{["}, std::pair{"ml", "<"}, std::pair{"svg", "<"}};
    if (content.starts_with("-----BEGIN ")) return false;
    for (const auto& [kind, begin] : data) {
        const bool isKind = name.find(kind) != std::string_view::npos;
        if (isKind && std::string_view(begin).find(content.front()) != std::string_view::npos) return false;
    }
    return std::ranges::none_of(content, [](char c) {
        return (c >= '\0' && c < ' ' && std::string_view("\t\r\n\f\x1B").find(c) == std::string_view::npos) ||
               c == '\x7F';
    });
}

/// By one reading of a Content-Type value.
std::optional<ContentFault> faultOf(std::string_view type, std::string_view encoding, std::string_view body) {
    const std::string name = contentTypeName(type);
    if (name.starts_with("multipart/")) return partsFault(type, body);
    if (name.starts_with("message/")) return ContentFault::otherType;
    const std::string text = decodedBytes(transferEncoding(encoding), firstLines(body, mostLookedAt));
    const std::string_view content = trimmed(text);
    if (content.empty()) return std::nullopt;
    for (const auto& [kind, begin] : beginnings) {
        if (name != kind) continue;
        return startsWithIgnoringCase(content, begin) ? std::nullopt : std::optional(ContentFault::otherType);
    }
    constexpr std::array pages = {"text/html", "text/enriched", "text/richtext", "text/xml"};
    const bool isPage = std::ranges::find(pages, name) != pages.end();
    if ((name == "text/plain" && beginsAsHTML(text)) || (isPage && isNoPage(text)))
        return ContentFault::otherType;
    if (!name.starts_with("text/")) {
        const bool isTyped = name.find('/') != std::string::npos;
        return isTyped && isWords(content, name) ? std::optional(ContentFault::otherType) : std::nullopt;
    }
    if (equalsIgnoringCase(fieldParameter(type, "delsp"), "yes") && joinsWords(text))
        return ContentFault::otherEncoding;
    const auto charsets = fieldParameters(type, "charset");
    if (!charsets.empty() &&
        (changesLetters(charsets.front(), text) || changesLetters(charsets.back(), text))) {
        return ContentFault::otherEncoding;
    }
    return std::nullopt;
}

}  // namespace

std::optional<ContentFault> typeFault(std::string_view type, std::string_view encoding,
                                      std::string_view body) {
    // Programs differ in what they take for the name when a comment or blanks stand in it.
    std::string_view rest = type;
    const std::string_view name = trimmed(takePiece(rest, ';'), " \t\r\n");
    for (const char* const oddity : {"(", " /", "/ "}) {
        if (name.find(oddity) != std::string_view::npos) return ContentFault::otherType;
    }
    // And in whether they know of values in pieces (RFC 2231, section 3), which nobody needs here.
    const std::string parameters = asciiLowered(rest);
    if (parameters.find("boundary*") != std::string::npos) return ContentFault::noParts;
    if (parameters.find("charset*") != std::string::npos) return ContentFault::otherEncoding;
    const std::string bare = withoutComments(type);
    auto fault = faultOf(bare, encoding, body);
    if (!fault && bare.size() != type.size()) fault = faultOf(type, encoding, body);
    return fault;
}

std::optional<ContentFault> encodingFault(std::string_view type, std::string_view encoding,
                                          std::string_view body) {
    const std::string kind = contentTypeName(type);
    const std::string_view start = firstLines(body, mostLookedAt);
    bool isOther = false;
    switch (transferEncoding(encoding)) {
        case TransferEncoding::base64:
            isOther = isNotBase64(start);
            break;
        case TransferEncoding::quotedPrintable:
            isOther = (kind.empty() || kind.starts_with("text/")) && isNotQuotedPrintable(start);
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
