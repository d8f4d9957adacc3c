#include "QuillmarkKit/Checks/Damage.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "QuillmarkKit/Checks/Canonicalization.h"
#include "QuillmarkKit/Mail/MIMEStructure.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::size_t mostDepth = 32, mostParts = 1'000;  // of multiparts inside each other; that are read
constexpr std::size_t longestType = 10'000;               // bytes of a Content-Type field that is read
constexpr std::size_t longestTextLine = 998;              // RFC 5322, section 2.1.1

/// Takes the line at the front of `rest`, without its CR LF.
std::string_view takeLine(std::string_view& rest) {
    std::string_view line = takePiece(rest, '\n');
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

bool isEmptyLine(std::string_view line) { return trimmedBlanks(line).empty(); }

/// The name of the field that a line begins; empty when it begins none.
std::string_view fieldName(std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return {};
    const std::string_view name = trimmedBlanks(line.substr(0, colon));
    return std::ranges::all_of(name, [](char c) { return c >= 33 && c <= 126; }) ? name : std::string_view();
}

// The lines of a text

/// Whether an empty line follows each line. Where the text has empty lines of its own, they are doubled, too.
bool isDoubleSpaced(std::string_view text, std::size_t fewestLines) {
    std::size_t lines = 0, empty = 0;
    while (!text.empty()) {
        if (isEmptyLine(takeLine(text))) {
            ++empty;
            continue;
        }
        if (lines > 0 && empty % 2 == 0) return false;
        ++lines;
        empty = 0;
    }
    return lines >= fewestLines;
}

/// Whether there are so many lines that hold anything, and each of them begins with a mark of quoted text.
bool isQuoted(std::string_view text, std::size_t fewestLines) {
    std::size_t lines = 0;
    while (!text.empty()) {
        const std::string_view line = takeLine(text);
        if (isEmptyLine(line)) continue;
        if (!line.starts_with('>')) return false;
        ++lines;
    }
    return lines >= fewestLines;
}

/// Whether the lines are numbered one after the other; those without a text may be left out of that, or, when
/// `emptyToo`, are not. A list that somebody wrote has no number without a text.
bool isNumbered(std::string_view text, std::size_t fewestLines, bool emptyToo) {
    std::optional<std::int64_t> last;
    std::size_t lines = 0, bare = 0;
    while (!text.empty()) {
        const std::string_view line = trimmedBlanks(takeLine(text));
        if (line.empty()) continue;
        const auto digits = std::min(line.find_first_not_of("0123456789"), line.size());
        const auto number = decimal(line.substr(0, digits));
        if (!number || (last && *number - *last != 1)) return false;
        last = number;
        ++lines;
        if (trimmed(line.substr(digits), ":.)| \t").empty()) ++bare;
    }
    return lines >= fewestLines && (bare > 0 || !emptyToo);
}

/// Whether a line that ends so may have been broken there: no sentence ends, and no line of quoted-printable
/// that goes on in any case.
bool isOpenEnd(char last) { return std::string_view("=.!?:;").find(last) == std::string_view::npos; }

/// Looks for lines that were broken at a smaller width than they were written for: remainders of a few
/// letters stand between them, again and again.
class BrokenLines {
public:
    void add(std::string_view line) {
        const bool isText =
            !line.empty() && line.front() != '>' && line.front() != '<' && !isBlank(line.front());
        if (m_isStub && isText) ++m_stubsBehind[m_long];
        const bool isBroken = m_isLong && isText && line.size() <= longestStub;
        m_isStub = isBroken;
        m_isLong = !line.empty() && line.size() >= shortestLong && line.size() <= mostWidth &&
                   isOpenEnd(line.back());
        if (m_isLong) m_long = line.size();
        m_width = std::max(m_width, line.size());
        if (!line.empty()) ++m_lines;
    }
    bool areFound() const {
        if (m_width > mostWidth) return false;
        std::size_t stubs = 0;
        for (std::size_t length = m_width - m_width / 6; length <= m_width; ++length)
            stubs += m_stubsBehind[length];
        return stubs >= fewestStubs && stubs * 10 >= m_lines * 3;
    }

private:
    static constexpr std::size_t shortestLong = 50, longestStub = 20, mostWidth = 140, fewestStubs = 3;
    std::array<std::size_t, mostWidth + 1> m_stubsBehind = {};  // by the length of the line before
    std::size_t m_long = 0, m_width = 0, m_lines = 0;
    bool m_isLong = false, m_isStub = false;
};

// The letters of a text

/// What stands in a text beyond ASCII, counted in characters.
struct Letters {
    std::size_t quotes = 0, blanks = 0, others = 0;  // typographic marks and no-break blanks, valid or not
    std::size_t valid = 0, three = 0;                // as UTF-8; of them those of three bytes
    std::size_t invalid = 0;                         // bytes that are none
    std::size_t twice = 0;                           // encoded as UTF-8, and then once more
    std::size_t lost = 0;                            // U+FFFD

    bool any() const { return quotes + blanks + others > 0; }
    void add(std::string_view text);
};

void Letters::add(std::string_view text) {
    constexpr std::string_view twiceFirst = "\xC3\x83\xC2", twiceQuote = "\xC3\xA2\xE2\x82\xAC";
    while (!text.empty()) {
        const auto isBeyond = [](char c) { return static_cast<unsigned char>(c) >= 0x80; };
        const auto ascii = std::ranges::find_if(text, isBeyond) - text.begin();
        text.remove_prefix(static_cast<std::size_t>(ascii));
        if (text.empty()) return;
        const std::string_view before = text;
        if (before.starts_with(twiceFirst) || before.starts_with(twiceQuote)) ++twice;
        char32_t scalar = takeScalar(text);
        const std::size_t length = before.size() - text.size();
        const bool isValid = length > 1;
        if (isValid) {
            ++valid;
            if (length == 3) ++three;
            if (scalar == 0xFFFD) ++lost;
        } else {
            // The marks of the character sets that Windows has for Western languages.
            ++invalid;
            const auto byte = static_cast<unsigned char>(before.front());
            const bool isMark = (byte >= 0x91 && byte <= 0x97) || byte == 0x85;
            scalar = isMark ? U'\u2018' : byte == 0xA0 ? U'\u00A0' : U'\uFFFD';
        }
        const bool isQuote = (scalar >= 0x2013 && scalar <= 0x201F) || scalar == 0x2026;
        const bool isNoBreak = scalar == 0xA0 || scalar == 0x202F;
        ++(isQuote ? quotes : isNoBreak ? blanks : others);
    }
}

bool isUTF8Name(std::string_view charset) {
    return equalsIgnoringCase(charset, "utf-8") || equalsIgnoringCase(charset, "utf8");
}
bool isASCIIName(std::string_view charset) {
    return charset.empty() || equalsIgnoringCase(charset, "us-ascii") || equalsIgnoringCase(charset, "ascii");
}
bool isSingleByteName(std::string_view charset) {
    constexpr std::array names = {"iso-8859-", "iso8859-", "windows-125", "cp125", "koi8-", "latin1"};
    return std::ranges::any_of(names,
                               [&](const char* name) { return startsWithIgnoringCase(charset, name); });
}
bool isManyByteName(std::string_view charset) {
    constexpr std::array names = {"gb", "big5", "shift_jis", "euc-", "iso-2022-", "ks_c_5601", "windows-31j"};
    return std::ranges::any_of(names,
                               [&](const char* name) { return startsWithIgnoringCase(charset, name); });
}

/// Whether letters can't be of the charset that is named for them.
bool isOfOtherCharset(const Letters& letters, std::string_view charset) {
    constexpr std::size_t few = 3, many = 8;
    if (isUTF8Name(charset)) {
        const bool isTwice = letters.twice >= 2 && letters.twice * 4 >= letters.valid;
        return (letters.invalid >= few && letters.valid == 0) || letters.lost >= few || isTwice;
    }
    if (letters.invalid > 0) return false;
    if (isSingleByteName(charset)) return letters.valid >= few;
    // In some of these sets two letters can look like one of UTF-8, but nearly never like one of three bytes.
    return isManyByteName(charset) && letters.valid >= many && letters.three * 2 >= letters.valid;
}

// The parts of a message

constexpr std::string_view converterMark = "boundary-LibPST-iamunique";

/// Of base64 and of nothing else that people write.
bool isBase64Line(std::string_view line) {
    return std::ranges::all_of(
        line, [](char c) { return isASCIILetter(c) || isDigit(c) || c == '+' || c == '/' || c == '='; });
}

bool isPrompt(std::string_view line) {
    const auto at = line.find('@'), colon = line.find(':');
    const bool isWord = line.substr(0, line.size() - 1).find_first_of(" \t") == std::string_view::npos;
    return at != std::string_view::npos && at > 0 && colon != std::string_view::npos && at < colon &&
           isWord && line.size() <= 100 && (line.ends_with('$') || line.ends_with('#'));
}

/// What a mailbox has between messages (RFC 4155): "From ", a word, and a time with the year at its end.
bool isSeparator(std::string_view line) {
    constexpr std::size_t longest = 200, shortest = 30, year = 4;
    line = trimmedBlanks(line);
    return line.starts_with("From ") && line.size() >= shortest && line.size() <= longest &&
           std::ranges::count(line, ':') >= 2 && decimal(line.substr(line.size() - year));
}

/// Whether the text goes on behind a line of quoted-printable: in an escape that isn't complete, or because
/// the line is full. Some programs break a short last line, too, where their text had no line end.
bool isUnfinished(std::string_view line) {
    constexpr std::size_t fullLine = 73;  // of 76, and an escape has three
    if (line.ends_with('=')) return line.size() >= fullLine;
    return line.size() >= 2 && line[line.size() - 2] == '=' && hexValue(line.back()) >= 0;
}

/// Collects each kind once.
class Found {
public:
    void add(DamageKind kind) {
        // A server's answer is what stands behind the end.
        const bool isKnown = has(kind) || (kind == DamageKind::tailAdded && has(DamageKind::protocolAnswer));
        if (!isKnown) m_found.push_back({kind, {}});
    }
    void add(DamageKind kind, std::string field) { m_found.push_back({kind, std::move(field)}); }
    bool has(DamageKind kind) const { return std::ranges::find(m_found, Damage{kind, {}}) != m_found.end(); }
    std::vector<Damage> take() { return std::move(m_found); }

private:
    std::vector<Damage> m_found = {};
};

bool hasTypographicQuotes(std::string_view type) {
    return type.size() <= longestType &&
           (type.find("\u201C") != std::string_view::npos || type.find("\u201D") != std::string_view::npos);
}

/// The text of a part, or of a message without parts, line by line.
class PartText {
public:
    PartText(std::string_view contentType, std::string_view encoding, bool isSimple)
        : m_encoding(asciiLowered(trimmed(encoding))), m_isSimple(isSimple) {
        if (contentType.size() > longestType) return;
        m_charset = fieldParameter(contentType, "charset");
        m_isFlowed = equalsIgnoringCase(fieldParameter(contentType, "format"), "flowed");  // RFC 3676
        m_name = asciiLowered(withoutWhitespace(withoutComments(takePiece(contentType, ';'))));
    }

    void add(std::string_view line) {
        m_broken.add(line);
        if (line.empty()) return;
        m_lastLine = line;
        addDots(line);
        if (m_encoding == "base64") return addBase64(line);
        m_letters.add(line);
        addGaps(line);
        addHTML(line);
        if (m_encoding == "quoted-printable") m_isCut = isUnfinished(line);
        if (line.ends_with(' ')) ++m_blanksAtEnd;
        if (line == "--") ++m_bareSigns;
        if (line.size() >= 60 && line.size() <= 80) ++m_full;
        if (line.starts_with("<!DOCTYPE plist")) m_isPropertyList = true;
        m_isMessageBehind |= m_isBehindSeparator && !fieldName(line).empty();
        m_isBehindSeparator = isSeparator(line);
    }

    /// `isWhole`: the message has no other part, so that this one's end is its own.
    void tell(Found& found, bool isWhole) const {
        if (m_broken.areFound()) found.add(DamageKind::wrappedLines);
        if (m_doubledDots > 0 && m_dots == 0) found.add(DamageKind::doubledDots);
        bool isCut = m_isCut;
        if (m_encoding == "base64") {
            if (m_digits > 0 && m_linesBehind > 0) found.add(DamageKind::tailAdded);
            if (m_digits == 0 && m_letters.any()) found.add(DamageKind::pasted8Bit);
            // Few contents end where a line is full.
            isCut = (m_digits % 4 != 0 || m_isFullLine) && !m_isPadded && m_linesBehind == 0;
        } else if (m_name.empty() || m_name.starts_with("text/")) {
            tellLetters(found);
            tellTail(found);
            tellBlanks(found);
            isCut |= m_isHTML && !m_isHTMLClosed && !trimmedBlanks(m_lastLine).ends_with('>');
        }
        if (isCut && isWhole) found.add(DamageKind::clipped);
    }

private:
    void addDots(std::string_view line) {
        if (!line.starts_with('.')) return;
        // People write three dots, and more; and "../" is a path.
        if (line.starts_with("....")) return;
        const bool isDoubled =
            line.starts_with(".../") ||
            (line.starts_with("..") && (line.size() == 2 || (line[2] != '.' && line[2] != '/')));
        ++(isDoubled ? m_doubledDots : m_dots);
    }

    void addBase64(std::string_view line) {
        line = trimmedBlanks(line);
        if (isBase64Line(line)) {
            if (m_digits == 0) m_firstDigits = line.size();
            m_digits += line.size();
            m_isPadded = line.ends_with('=');
            m_isFullLine = line.size() == m_firstDigits && m_digits > line.size();
            return;
        }
        // What stands there instead was decoded; what stands below was added.
        if (m_digits > 0 && !line.starts_with("--")) ++m_linesBehind;
        m_letters.add(line);
    }

    void addHTML(std::string_view line) {
        if (m_name != "text/html") return;
        const bool isText =
            !trimmed(line, " \t=").empty() && !line.starts_with('<') && !line.starts_with("--");
        if (m_isHTMLClosed && isText) m_isTextBehind = true;
        for (const std::string_view mark : {"=\u201C", "=\u201D"})
            m_hasTypographicTags |= line.find(mark) != std::string_view::npos;
        for (auto at = line.find('<'); at != std::string_view::npos; at = line.find('<', at + 1)) {
            const std::string_view tag = line.substr(at);
            m_isHTML |= startsWithIgnoringCase(tag, "<html");
            m_isHTMLClosed |= startsWithIgnoringCase(tag, "</html");
        }
    }

    /// Blanks in the middle of lines end where a tab would, or elsewhere.
    void addGaps(std::string_view line) {
        if (!m_isSimple || line.size() > longestTextLine) return;
        constexpr std::size_t tabWidth = 8;
        m_hasTabs |= line.find('\t') != std::string_view::npos;
        for (auto i = line.find(' '); i != std::string_view::npos; i = line.find(' ', i)) {
            const auto end = std::min(line.find_first_not_of(' ', i), line.size());
            const std::size_t gap = end - i;
            if (i > 0 && end < line.size() && gap > 1) {
                ++(end % tabWidth == 0 && gap <= tabWidth ? m_tabStops : m_otherGaps);
                if (m_firstGap == 0) m_firstGap = gap;
                m_doGapsDiffer |= gap != m_firstGap;
            }
            i = end;
        }
    }

    void tellLetters(Found& found) const {
        const bool isEncoded = m_encoding == "quoted-printable" || m_encoding == "7bit";
        const bool isSaidToBeASCII = isEncoded || (m_encoding.empty() && isASCIIName(m_charset));
        if (!m_letters.any()) return;
        if (m_hasTypographicTags) found.add(DamageKind::typographicQuotes);
        if (!isSaidToBeASCII) {
            if (isOfOtherCharset(m_letters, m_charset)) found.add(DamageKind::charsetConverted);
        } else if (m_letters.others == 0) {
            if (m_letters.quotes > 0) found.add(DamageKind::typographicQuotes);
            if (m_letters.blanks > 0) found.add(DamageKind::noBreakBlanks);
        } else if (isEncoded || !m_charset.empty()) {
            // Careless programs send letters beyond ASCII without any word of them.
            found.add(DamageKind::pasted8Bit);
        }
    }

    void tellTail(Found& found) const {
        const bool isListBehind = m_isPropertyList && m_lastLine.starts_with("</plist>");
        if (m_isTextBehind || m_isMessageBehind || isListBehind || isPrompt(trimmedBlanks(m_lastLine)))
            found.add(DamageKind::tailAdded);
    }

    /// Signatures that take any blanks for one don't mind these.
    void tellBlanks(Found& found) const {
        constexpr std::size_t fewestTabs = 3, fewestFull = 3;
        if (!m_isSimple) return;
        if (!m_hasTabs && m_tabStops >= fewestTabs && m_otherGaps == 0 && m_doGapsDiffer)
            found.add(DamageKind::tabsExpanded);
        if (m_isFlowed && m_blanksAtEnd == 0 && (m_full >= fewestFull || m_bareSigns > 0))
            found.add(DamageKind::blanksCut);
    }

    std::string m_name = {}, m_charset = {}, m_encoding;
    bool m_isFlowed = false;
    const bool m_isSimple;
    BrokenLines m_broken = {};
    Letters m_letters = {};
    std::string_view m_lastLine = {};  // that isn't empty
    std::size_t m_dots = 0, m_doubledDots = 0;
    std::size_t m_digits = 0, m_firstDigits = 0, m_linesBehind = 0;  // of base64
    bool m_isPadded = false, m_isFullLine = false, m_isCut = false;
    bool m_isHTML = false, m_isHTMLClosed = false, m_isTextBehind = false, m_isPropertyList = false;
    bool m_hasTypographicTags = false, m_isBehindSeparator = false, m_isMessageBehind = false;
    std::size_t m_tabStops = 0, m_otherGaps = 0, m_firstGap = 0;
    bool m_hasTabs = false, m_doGapsDiffer = false;
    std::size_t m_full = 0, m_blanksAtEnd = 0, m_bareSigns = 0;
};

/// What the parts of a message show. The field that says of one that its content was removed, if any does.
std::optional<std::string> addParts(Found& found, const MailMessage& message, bool isSimple) {
    std::optional<std::string> removed;
    const std::string_view body = *message.body();
    const auto parts = mimeParts(message, mostDepth, mostParts);
    for (const MIMEPart& part : parts) {
        const bool isWhole = part.number == 0;
        const MailMessage header =
            isWhole ? message
                    : MailMessage::parse(body.substr(part.headerBegin, part.bodyBegin - part.headerBegin));
        if (hasTypographicQuotes(part.contentType)) found.add(DamageKind::typographicQuotes);
        for (const char* const field :
             {"X-Mozilla-Altered", "X-Mozilla-External-Attachment-URL", "X-Apple-Content-Length"}) {
            if (!removed && header.first(field)) removed = field;
        }
        if (part.kind == MIMEPart::Kind::multipart) {
            const bool hasParts = std::ranges::any_of(
                parts, [&](const MIMEPart& other) { return other.parent == part.number; });
            if (hasParts && !part.closing) found.add(DamageKind::unfinishedMultipart);
            if (part.boundary.find(converterMark) != std::string::npos) found.add(DamageKind::exportedAnew);
            const auto behind = part.closing ? body.substr(part.closing->end) : std::string_view();
            if (isWhole && !trimmed(behind, " \t\r\n").empty()) found.add(DamageKind::tailAdded);
            continue;
        }
        const HeaderField* encoding = header.first("Content-Transfer-Encoding");
        PartText text(part.contentType, encoding ? encoding->valueBytes() : std::string_view(), isSimple);
        for (std::string_view rest = body.substr(part.bodyBegin, part.bodyEnd - part.bodyBegin);
             !rest.empty();)
            text.add(takeLine(rest));
        text.tell(found, isWhole);
    }
    return removed;
}

// The lines above the body

/// The lines that a message ends its header with too early; empty when it doesn't.
std::string_view unreadLines(const MailMessage& message) {
    const auto end = message.earlyEnd();
    return end ? message.text().substr(message.text().size() - end->bytes) : std::string_view();
}

/// Whether an empty line follows each line from the first on, which ends the header behind its first field.
bool isHeaderDoubleSpaced(const MailMessage& message) {
    constexpr std::size_t fewestLines = 6;
    if (message.headers().size() != 1 || !message.body()) return false;
    std::string_view rest = *message.body();
    const std::string_view next = takeLine(rest);
    const bool isHeader = !fieldName(next).empty() || next.starts_with(' ') || next.starts_with('\t');
    return isHeader && isDoubleSpaced(message.text(), fewestLines);
}

/// Whether the lines behind the first are numbered, with blanks before the numbers, as if they went on with
/// it.
bool isHeaderNumbered(const MailMessage& message) {
    constexpr std::size_t fewestLines = 5;
    if (message.headers().size() != 1) return false;
    std::string_view rest = message.headers().front().raw;
    takeLine(rest);
    return isNumbered(rest, fewestLines, false);
}

/// Why a header can have ended at a line that is no field of it, though fields follow below.
std::optional<DamageKind> headerBreak(const MailMessage& message) {
    constexpr std::size_t fewestQuoted = 3, fewestNumbered = 5, shortestBroken = 60;
    std::string_view rest = unreadLines(message);
    if (isQuoted(rest, fewestQuoted)) return DamageKind::quotedMarks;
    if (isNumbered(rest, fewestNumbered, false)) return DamageKind::lineNumbers;
    if (rest.starts_with("\u00A0") || rest.starts_with('\xA0')) return DamageKind::noBreakBlanks;
    if (rest.starts_with('>')) return std::nullopt;
    const auto& fields = message.headers();
    bool goesOn = false;
    bool isAnyFolded = std::ranges::any_of(
        fields, [](const HeaderField& field) { return field.raw.find('\n') != std::string_view::npos; });
    for (std::string_view line = takeLine(rest); !line.empty(); line = takeLine(rest)) {
        goesOn |= !fieldName(line).empty();
        isAnyFolded |= isBlank(line.front());
    }
    if (!goesOn) return std::nullopt;
    const std::string_view last = fields.back().raw;
    const std::size_t length = last.size() - (last.rfind('\n') + 1);  // without one, nothing is taken off
    constexpr std::array oftenFolded = {"Received", "DKIM-Signature", "Authentication-Results"};
    const bool mayGoOn =
        last.ends_with(';') || last.ends_with(',') || std::ranges::any_of(oftenFolded, [&](const char* name) {
            return equalsIgnoringCase(fields.back().name, name);
        });
    if (isAnyFolded && (mayGoOn || length >= shortestBroken)) return DamageKind::wrappedLines;
    return mayGoOn && !isAnyFolded ? std::optional(DamageKind::blanksCut) : std::nullopt;
}

bool areTabsExpanded(const MailMessage& message) {
    if (message.text().find('\t') != std::string_view::npos) return false;
    // What some servers begin the further lines of their field with.
    constexpr std::string_view tab = "\r\n        ";
    constexpr std::array servers = {"(Postfix", "(Exim", "(8.1"};
    return std::ranges::any_of(message.positions("Received"), [&](auto position) {
        const std::string_view raw = message.headers()[position].raw;
        const bool isKnown = std::ranges::any_of(
            servers, [&](const char* server) { return raw.find(server) != std::string_view::npos; });
        const auto fold = raw.find(tab);
        return isKnown && fold != std::string_view::npos && raw.substr(fold + tab.size(), 1) != " ";
    });
}

/// Whether a no-break blank stands in a field that only programs write.
bool hasNoBreakBlanks(const MailMessage& message) {
    constexpr std::array names = {"Received",     "DKIM-Signature", "Message-ID",
                                  "Content-Type", "MIME-Version",   "Date"};
    return std::ranges::any_of(names, [&](const char* name) {
        return std::ranges::any_of(message.positions(name), [&](auto position) {
            return message.headers()[position].raw.find("\u00A0") != std::string_view::npos;
        });
    });
}

/// Whether a text ends with what a mail server says behind a message: the dot or the parenthesis that ends it
/// (RFC 1939, section 3; RFC 9051, section 7.5.2), and the replies behind that.
bool endsWithAnswer(std::string_view text) {
    constexpr std::size_t mostReplies = 6, longestTag = 20;
    for (std::size_t replies = 0; replies <= mostReplies; ++replies) {
        text = trimmed(text, " \t\r\n");
        const std::string_view last = text.substr(text.rfind('\n') + 1), line = trimmedBlanks(last);
        text.remove_suffix(last.size());
        if (line == ".") return true;
        std::string_view rest = line;
        const std::string_view tag = takePiece(rest, ' ');
        const bool isTagged =
            !tag.empty() && tag.size() <= longestTag && (rest == "OK" || rest.starts_with("OK "));
        const bool isNumbered =
            line.size() > 3 && decimal(line.substr(0, 3)) && (line[3] == ' ' || line[3] == '-');
        if (isTagged || isNumbered || line.starts_with("+OK") || line.starts_with("* BYE") || line == "QUIT")
            continue;
        return replies > 0 && line.ends_with(')') &&
               (line == ")" || line.starts_with("FLAGS (") || line.starts_with("UID "));
    }
    return false;
}

// What there is to be explained

/// How the signatures that don't hold fail.
struct Failures {
    bool body = false, header = false;  // what the signatures cover isn't what stands there
    bool simpleBody = false, simpleHeader = false;
    bool tooShort = false;  // there is less of the body than one of them covers
    bool isAnyGood = false, isBodySound = false;

    void add(const DKIMResult& result) {
        using Status = DKIMResult::Status;
        const bool isWhole = result.bodyChecked && !result.bodyLength;
        isAnyGood |= result.status == Status::pass;
        isBodySound |= isWhole && result.status != Status::bodyChanged;
        const auto forms = CanonicalizationPair::parse(result.canonicalization);
        const bool isHeader = result.status == Status::headersChanged || result.status == Status::malformed;
        header |= isHeader;
        simpleHeader |= isHeader && forms && forms->header == Canonicalization::simple;
        if (result.status != Status::bodyChanged) return;
        body = true;
        simpleBody |= forms && forms->body == Canonicalization::simple;
        tooShort |= result.bodyLength && !result.unsignedBodyBytes;
    }
};

/// The field that says of a part that its content was removed, if any does.
std::optional<std::string> addBody(Found& found, const MailMessage& message, const Failures& failures) {
    constexpr std::size_t fewestQuoted = 5, fewestNumbered = 8, fewestSpaced = 8;
    const std::string_view body = *message.body();
    if (endsWithAnswer(body)) found.add(DamageKind::protocolAnswer);
    if (isQuoted(body, fewestQuoted)) found.add(DamageKind::quotedMarks);
    if (isNumbered(body, fewestNumbered, true)) found.add(DamageKind::lineNumbers);
    // Paragraphs of a line each look alike, but for empty lines of their own.
    const bool hasDoubledGap = body.find("\r\n\r\n\r\n\r\n") < body.find_last_not_of("\r\n");
    if (hasDoubledGap && isDoubleSpaced(body, fewestSpaced)) found.add(DamageKind::doubleSpaced);
    auto removed = addParts(found, message, failures.simpleBody);
    if (failures.tooShort && !found.has(DamageKind::unfinishedMultipart)) found.add(DamageKind::clipped);
    return removed;
}

void addFields(Found& found, const MailMessage& message, const std::optional<std::string>& removed) {
    constexpr std::array exporters = {"X-Pm-", "X-Evolution-Source"};
    if (removed) found.add(DamageKind::attachmentRemoved, *removed);
    if (message.first("X-MIME-Autoconverted"))
        found.add(DamageKind::convertedByRelay, "X-MIME-Autoconverted");
    const auto field = std::ranges::find_if(message.headers(), [&](const HeaderField& each) {
        return std::ranges::any_of(
            exporters, [&](const char* begin) { return startsWithIgnoringCase(each.name, begin); });
    });
    if (field != message.headers().end()) found.add(DamageKind::exportedAnew, std::string(field->name));
}

/// Whether a line begins, behind whatever was put in front of it, a field that every email has one of.
bool holdsField(std::string_view line) {
    line = line.substr(std::min(line.find_first_not_of("0123456789 \t:.)|>#"), line.size()));
    constexpr std::array names = {"From", "Received", "DKIM-Signature"};
    const std::string_view name = fieldName(line);
    return std::ranges::any_of(names, [&](const char* each) { return equalsIgnoringCase(name, each); });
}

}  // namespace

std::optional<DamageKind> damageOfUnread(const MailMessage& message) {
    constexpr std::size_t mostLines = 1'000, fewestLines = 5;
    const std::string_view text = message.text();
    std::string_view rest = text;
    bool isAny = false;
    for (std::size_t i = 0; i < mostLines && !isAny && !rest.empty(); ++i) isAny = holdsField(takeLine(rest));
    if (!isAny) return std::nullopt;
    if (message.hasDoubledLineEnds()) return DamageKind::doubledLineEnds;
    if (isDoubleSpaced(text, fewestLines)) return DamageKind::doubleSpaced;
    if (isNumbered(text, fewestLines, false)) return DamageKind::lineNumbers;
    if (isQuoted(text, fewestLines)) return DamageKind::quotedMarks;
    return std::nullopt;
}

std::vector<Damage> damage(const MailMessage& message, const std::vector<DKIMResult>& signatures,
                           const ARCFinding& chain) {
    Failures failures;
    for (const DKIMResult& signature : signatures) failures.add(signature);
    if (failures.isAnyGood) return {};
    if (message.hasDoubledLineEnds()) return {{DamageKind::doubledLineEnds, {}}};
    if (isHeaderDoubleSpaced(message)) return {{DamageKind::doubleSpaced, {}}};
    if (isHeaderNumbered(message)) return {{DamageKind::lineNumbers, {}}};
    if (!message.earlyEnd() && !failures.body && !failures.header) return {};

    Found found;
    if (message.earlyEnd()) {
        if (const auto kind = headerBreak(message)) found.add(*kind);
    }
    // Who forwarded it saw the body as it stands: since then nothing has become of it.
    if (!chain.hops.empty()) failures.add(chain.hops.back().messageSignature);
    std::optional<std::string> removed;
    if (failures.body && !failures.isBodySound && message.body()) {
        removed = addBody(found, message, failures);
    }
    if (failures.header || failures.body) {
        if ((failures.simpleHeader || (failures.simpleBody && !failures.isBodySound)) &&
            areTabsExpanded(message))
            found.add(DamageKind::tabsExpanded);
        if (hasNoBreakBlanks(message)) found.add(DamageKind::noBreakBlanks);
        const HeaderField* type = message.first("Content-Type");
        if (type && hasTypographicQuotes(type->valueBytes())) found.add(DamageKind::typographicQuotes);
        addFields(found, message, removed);
    }
    return found.take();
}

}  // namespace quillmark
