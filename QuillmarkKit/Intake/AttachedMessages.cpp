#include "QuillmarkKit/Intake/AttachedMessages.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::size_t mostOpen = 32;          // multiparts inside each other
constexpr std::size_t longestBoundary = 200;  // RFC 2046 allows 70
constexpr std::size_t longestType = 10'000;   // of a Content-Type field that is read

enum class TransferEncoding { none, base64, quotedPrintable };

/// What the header of a message or a part says of its content (RFC 2045).
struct PartType {
    enum class Kind { other, message, multipart };
    Kind kind = Kind::other;
    std::string boundary = {};
    bool isDigest = false;  // its parts are messages unless they say otherwise (RFC 2046, section 5.1.5)
    TransferEncoding encoding = TransferEncoding::none;
};

std::string quotedValue(std::string_view text) {
    std::string value;
    for (std::size_t i = 0; i < text.size() && text[i] != '"'; ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) ++i;
        value += text[i];
    }
    return value;
}

/// The value of the `boundary` parameter; empty without one.
std::string boundaryOf(std::string_view parameters) {
    constexpr std::string_view white = " \t\r\n";
    while (!parameters.empty()) {
        std::size_t end = 0;  // of this parameter
        bool isQuoted = false;
        for (; end < parameters.size() && (isQuoted || parameters[end] != ';'); ++end) {
            if (parameters[end] == '"') isQuoted = !isQuoted;
            if (parameters[end] == '\\' && isQuoted) ++end;
        }
        std::string_view parameter = parameters.substr(0, std::min(end, parameters.size()));
        parameters.remove_prefix(std::min(end + 1, parameters.size()));
        const std::string_view name = trimmed(takePiece(parameter, '='), white);
        if (!equalsIgnoringCase(name, "boundary")) continue;
        parameter = trimmed(parameter, white);
        return parameter.starts_with('"') ? quotedValue(parameter.substr(1)) : std::string(parameter);
    }
    return {};
}

PartType partType(std::string_view contentType, std::string_view encoding, bool isInDigest) {
    PartType part;
    encoding = trimmed(encoding);
    if (equalsIgnoringCase(encoding, "base64")) part.encoding = TransferEncoding::base64;
    if (equalsIgnoringCase(encoding, "quoted-printable")) part.encoding = TransferEncoding::quotedPrintable;
    if (contentType.size() > longestType) return part;
    std::string_view rest = contentType;
    const std::string name = withoutWhitespace(withoutComments(takePiece(rest, ';')));
    if (equalsIgnoringCase(name, "message/rfc822") || equalsIgnoringCase(name, "message/global") ||
        (name.empty() && isInDigest)) {
        part.kind = PartType::Kind::message;
    } else if (startsWithIgnoringCase(name, "multipart/")) {
        part.boundary = boundaryOf(rest);
        part.isDigest = equalsIgnoringCase(name, "multipart/digest");
        const bool isUsable = !part.boundary.empty() && part.boundary.size() <= longestBoundary;
        if (isUsable) part.kind = PartType::Kind::multipart;
    }
    return part;
}

/// What stands behind the colon when the line begins a field of this name.
std::optional<std::string_view> fieldValue(std::string_view line, std::string_view name) {
    if (!startsWithIgnoringCase(line, name)) return std::nullopt;
    const std::string_view rest = trimmedBlanks(line.substr(name.size()));
    if (!rest.starts_with(':')) return std::nullopt;
    return rest.substr(1);
}

/// Base64 as mail has it: whatever is no digit of it, such as line ends, is passed over (RFC 2045, section
/// 6.8), and so is an incomplete end.
std::string base64Content(std::string_view text) {
    std::string digits;
    digits.reserve(text.size());
    for (const char c : text) {
        if (c == '=') break;
        if (isASCIILetter(c) || isDigit(c) || c == '+' || c == '/') digits += c;
    }
    if (digits.size() % 4 == 1) digits.pop_back();
    digits.append((4 - digits.size() % 4) % 4, '=');
    return decodedBase64(digits).value_or("");
}

/// RFC 2045, section 6.7; what is no valid escape stays as it is. Blanks at the end of a line came on the
/// way.
std::string quotedPrintableContent(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isBlank(text[i])) {
            const auto end = std::min(text.find_first_not_of(" \t", i), text.size());
            if (end < text.size() && text[end] != '\r') bytes.append(text.substr(i, end - i));
            i = end - 1;
            continue;
        }
        if (text[i] != '=') {
            bytes += text[i];
            continue;
        }
        const std::string_view escape = text.substr(i + 1, 2);
        const auto behind = std::min(text.find_first_not_of(" \t", i + 1), text.size());
        if (text.substr(behind).starts_with(lineEnd)) {
            i = behind + 1;
        } else if (escape.size() == 2 && hexValue(escape[0]) >= 0 && hexValue(escape[1]) >= 0) {
            bytes += static_cast<char>(hexValue(escape[0]) * 16 + hexValue(escape[1]));
            i += 2;
        } else {
            bytes += '=';
        }
    }
    return bytes;
}

/// Walks the lines of a message's body once, however its parts are nested, and stops at each attached
/// message.
class PartWalker {
public:
    explicit PartWalker(const MailMessage& message) : m_rest(message.body().value_or("")) {
        const auto value = [&](const char* name) {
            const HeaderField* field = message.first(name);
            return field ? field->valueBytes() : std::string_view();
        };
        beginContent(partType(value("Content-Type"), value("Content-Transfer-Encoding"), false));
    }

    /// The content of the next part that is a message, decoded.
    std::optional<std::string> next() {
        while (!m_rest.empty()) {
            const char* const begin = m_rest.data();
            const std::string_view line = takeLine();
            if (const auto boundary = boundaryAt(line)) {
                m_open.resize(boundary->open);
                m_isInHeader = !boundary->isClosing;
                m_contentType = m_encoding = {};
                m_last = nullptr;
                if (m_content) return content(begin, true);
            } else if (m_isInHeader) {
                takeHeaderLine(line);
            }
        }
        if (!m_content) return std::nullopt;
        return content(m_rest.data(), false);  // NOLINT(bugprone-suspicious-stringview-data-usage): a place
    }

private:
    struct Multipart {
        std::string boundary;
        bool isDigest;
    };

    std::string_view takeLine() {
        const auto end = std::min(m_rest.find('\n'), m_rest.size() - 1) + 1;
        std::string_view line = m_rest.substr(0, end);
        m_rest.remove_prefix(end);
        if (line.ends_with(lineEnd)) line.remove_suffix(2);
        return line;
    }

    struct Boundary {
        std::size_t open;  // how many multiparts are open behind it
        bool isClosing;
    };
    std::optional<Boundary> boundaryAt(std::string_view line) const {
        if (!line.starts_with("--")) return std::nullopt;
        line.remove_prefix(2);
        for (std::size_t open = m_open.size(); open > 0; --open) {
            const std::string& boundary = m_open[open - 1].boundary;
            if (!line.starts_with(boundary)) continue;
            const std::string_view tail = trimmedBlanks(line.substr(boundary.size()));
            if (tail.empty()) return Boundary{open, false};
            if (tail == "--") return Boundary{open - 1, true};
        }
        return std::nullopt;
    }

    void takeHeaderLine(std::string_view line) {
        if (line.empty()) {
            m_isInHeader = false;
            beginContent(partType(m_contentType, m_encoding, !m_open.empty() && m_open.back().isDigest));
        } else if (isBlank(line.front())) {
            // The value goes on: its lines lie together.
            if (!m_last) return;
            std::string_view& value = this->*m_last;
            // NOLINTNEXTLINE(bugprone-suspicious-stringview-data-usage): the length follows
            value = {value.data(), static_cast<std::size_t>(line.data() + line.size() - value.data())};
        } else {
            m_last = nullptr;
            begin(&PartWalker::m_contentType, fieldValue(line, "Content-Type"));
            begin(&PartWalker::m_encoding, fieldValue(line, "Content-Transfer-Encoding"));
        }
    }
    /// The first field of a name counts.
    void begin(std::string_view PartWalker::* field, std::optional<std::string_view> value) {
        if (!value || (this->*field).data()) return;
        this->*field = *value;
        m_last = field;
    }

    void beginContent(const PartType& part) {
        if (part.kind == PartType::Kind::multipart && m_open.size() < mostOpen)
            m_open.push_back({part.boundary, part.isDigest});
        if (part.kind == PartType::Kind::message) {
            m_content = m_rest.data();
            m_contentEncoding = part.encoding;
        }
    }
    /// The message that is passed, up to here. The line end in front of a boundary belongs to the boundary.
    std::string content(const char* end, bool isAtBoundary) {
        const char* const begin = std::exchange(m_content, nullptr);
        std::string_view text(begin, static_cast<std::size_t>(end - begin));
        if (isAtBoundary && text.ends_with(lineEnd)) text.remove_suffix(2);
        if (m_contentEncoding == TransferEncoding::base64) return base64Content(text);
        if (m_contentEncoding == TransferEncoding::quotedPrintable) return quotedPrintableContent(text);
        return std::string(text);
    }

    std::string_view m_rest;
    std::vector<Multipart> m_open = {};
    bool m_isInHeader = false;
    std::string_view m_contentType = {}, m_encoding = {};  // of the part whose header is read
    std::string_view PartWalker::* m_last = nullptr;       // the one that a folded line goes on with
    const char* m_content = nullptr;                       // where the message began that is passed
    TransferEncoding m_contentEncoding = TransferEncoding::none;
};

}  // namespace

struct AttachedMessages::Level {
    MailMessage message;
    PartWalker walker = PartWalker(message);
    std::size_t count = 0;  // of the messages found in it so far
};

AttachedMessages::AttachedMessages(MailMessage message) { m_levels.push_back({std::move(message)}); }

AttachedMessages::~AttachedMessages() = default;

std::optional<AttachedMessages::Attached> AttachedMessages::next() {
    while (!m_levels.empty()) {
        const auto content = m_levels.back().walker.next();
        if (!content) {
            m_levels.pop_back();
            continue;
        }
        ++m_levels.back().count;
        auto taken = messageIn(ByteBuffer(*content), ParseMode::strict);
        auto* message = std::get_if<MailMessage>(&taken);
        if (!message) continue;
        if (m_levels.size() > deepest || m_count == mostOf) {
            m_isAnyLeftOut = true;
            if (m_count == mostOf) m_levels.clear();
            continue;
        }
        ++m_count;
        Attached attached{.bytes = ByteBuffer(*content)};
        for (const Level& level : m_levels) attached.position.push_back(level.count);
        m_levels.push_back({std::move(*message)});
        return attached;
    }
    return std::nullopt;
}

}  // namespace quillmark
