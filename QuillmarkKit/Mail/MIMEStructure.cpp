#include "QuillmarkKit/Mail/MIMEStructure.h"

#include <algorithm>
#include <utility>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::size_t longestType = 10'000;  // of a Content-Type field that is read

std::string quotedValue(std::string_view text) {
    std::string value;
    for (std::size_t i = 0; i < text.size() && text[i] != '"'; ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) ++i;
        value += text[i];
    }
    return value;
}

/// What the header says of the part's content.
void readType(MIMEPart& part, bool isInDigest) {
    if (part.contentType.size() > longestType) return;
    const std::string name = contentTypeName(part.contentType);
    if (name == "message/rfc822" || name == "message/global" || (name.empty() && isInDigest)) {
        part.kind = MIMEPart::Kind::message;
    } else if (name.starts_with("multipart/")) {
        part.boundary = fieldParameter(part.contentType, "boundary");
        part.isDigest = name == "multipart/digest";
        const bool isUsable = !part.boundary.empty() && part.boundary.size() <= longestBoundary;
        if (isUsable) part.kind = MIMEPart::Kind::multipart;
    }
}

/// What stands behind the colon when the line begins a field of this name.
std::optional<std::string_view> fieldValue(std::string_view line, std::string_view name) {
    if (!startsWithIgnoringCase(line, name)) return std::nullopt;
    const std::string_view rest = trimmedBlanks(line.substr(name.size()));
    if (!rest.starts_with(':')) return std::nullopt;
    return rest.substr(1);
}

}  // namespace

std::string contentTypeName(std::string_view value) {
    return asciiLowered(withoutWhitespace(withoutComments(takePiece(value, ';'))));
}

std::vector<std::string> fieldParameters(std::string_view value, std::string_view name) {
    constexpr std::string_view white = " \t\r\n";
    std::vector<std::string> values;
    takePiece(value, ';');
    while (!value.empty()) {
        std::size_t end = 0;  // of this parameter
        bool isQuoted = false;
        for (; end < value.size() && (isQuoted || value[end] != ';'); ++end) {
            if (value[end] == '"') isQuoted = !isQuoted;
            if (value[end] == '\\' && isQuoted) ++end;
        }
        std::string_view parameter = value.substr(0, std::min(end, value.size()));
        value.remove_prefix(std::min(end + 1, value.size()));
        if (!equalsIgnoringCase(trimmed(takePiece(parameter, '='), white), name)) continue;
        parameter = trimmed(parameter, white);
        values.push_back(parameter.starts_with('"') ? quotedValue(parameter.substr(1))
                                                    : std::string(parameter));
    }
    return values;
}

std::string fieldParameter(std::string_view value, std::string_view name) {
    auto values = fieldParameters(value, name);
    return values.empty() ? std::string() : std::move(values.front());
}

MIMEWalker::MIMEWalker(MailMessage message, std::size_t mostDepth)
    : m_message(std::move(message)),
      m_mostDepth(mostDepth),
      m_body(m_message.body().value_or("")),
      m_rest(m_body) {
    const auto value = [&](const char* name) {
        const HeaderField* field = m_message.first(name);
        return field ? field->valueBytes() : std::string_view();
    };
    m_contentType = value("Content-Type");
    m_encoding = value("Content-Transfer-Encoding");
    m_part = MIMEPart{.number = m_count++};
    beginContent();
}

std::optional<MIMEPart> MIMEWalker::next() {
    while (m_ended.empty() && !m_rest.empty()) {
        if (!m_isInHeader && !m_rest.starts_with("--")) {
            // Of content only lines count that may be a boundary.
            const auto lineEndBefore = m_open.empty() ? std::string_view::npos : m_rest.find("\n--");
            m_rest.remove_prefix(std::min(lineEndBefore, m_rest.size() - 1) + 1);
            continue;
        }
        const std::size_t begin = m_body.size() - m_rest.size();
        const std::string_view line = takeLine();
        if (const auto boundary = boundaryAt(line)) {
            takeBoundary(*boundary, begin);
        } else if (m_isInHeader) {
            takeHeaderLine(line);
        }
    }
    if (m_ended.empty() && !std::exchange(m_isAtEnd, true)) {
        for (MIMEPart& part : m_open) end(std::move(part), m_body.size());
        if (m_part) end(std::move(*m_part), m_body.size());
    }
    if (m_ended.empty()) return std::nullopt;
    MIMEPart part = std::move(m_ended.back());
    m_ended.pop_back();
    return part;
}

std::string_view MIMEWalker::takeLine() {
    const auto end = std::min(m_rest.find('\n'), m_rest.size() - 1) + 1;
    std::string_view line = m_rest.substr(0, end);
    m_rest.remove_prefix(end);
    if (line.ends_with(lineEnd)) line.remove_suffix(lineEnd.size());
    return line;
}

std::optional<MIMEWalker::Boundary> MIMEWalker::boundaryAt(std::string_view line) const {
    if (line.size() < 2 || line[0] != '-' || line[1] != '-') return std::nullopt;
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

/// Ends what the boundary line at `begin`, which has been taken, ends, and begins what it begins.
void MIMEWalker::takeBoundary(const Boundary& boundary, std::size_t begin) {
    const std::size_t kept = boundary.open + (boundary.isClosing ? 1 : 0);
    for (std::size_t i = kept; i < m_open.size(); ++i) end(std::move(m_open[i]), begin);
    m_open.resize(kept);
    if (m_part) end(*std::exchange(m_part, std::nullopt), begin);
    const std::size_t behind = m_body.size() - m_rest.size();
    m_isInHeader = !boundary.isClosing;
    if (boundary.isClosing) {
        // What follows is no part; it belongs to the multipart.
        m_part = std::move(m_open.back());
        m_open.pop_back();
        m_part->closing = MIMEPart::Line{begin, behind};
        return;
    }
    m_part = MIMEPart{.number = m_count++,
                      .parent = m_open.back().number,
                      .depth = m_open.size(),
                      .begin = begin,
                      .headerBegin = behind};
    m_contentType = m_encoding = {};
    m_last = nullptr;
}

void MIMEWalker::takeHeaderLine(std::string_view line) {
    if (line.empty()) {
        beginContent();
    } else if (isBlank(line.front())) {
        // The value goes on: its lines lie together.
        if (!m_last) return;
        std::string_view& value = this->*m_last;
        // NOLINTNEXTLINE(bugprone-suspicious-stringview-data-usage): the length follows
        value = {value.data(), static_cast<std::size_t>(line.data() + line.size() - value.data())};
    } else {
        m_last = nullptr;
        takeValue(&MIMEWalker::m_contentType, fieldValue(line, "Content-Type"));
        takeValue(&MIMEWalker::m_encoding, fieldValue(line, "Content-Transfer-Encoding"));
    }
}

/// The first field of a name counts.
void MIMEWalker::takeValue(std::string_view MIMEWalker::* field, std::optional<std::string_view> value) {
    if (!value || (this->*field).data()) return;
    this->*field = *value;
    m_last = field;
}

void MIMEWalker::beginContent() {
    m_isInHeader = false;
    m_part->bodyBegin = m_body.size() - m_rest.size();
    m_part->contentType = m_contentType;
    m_part->encoding = transferEncoding(m_encoding);
    readType(*m_part, !m_open.empty() && m_open.back().isDigest);
    if (m_part->kind != MIMEPart::Kind::multipart) return;
    if (m_open.size() < m_mostDepth) {
        m_open.push_back(std::move(*m_part));
        m_part.reset();
    } else {
        m_part->kind = MIMEPart::Kind::other;
    }
}

void MIMEWalker::end(MIMEPart part, std::size_t at) {
    if (m_isInHeader && part.kind != MIMEPart::Kind::multipart) part.bodyBegin = at;
    part.end = part.bodyEnd = at;
    if (!m_isAtEnd && m_body.substr(part.bodyBegin, at - part.bodyBegin).ends_with(lineEnd))
        part.bodyEnd -= 2;
    m_ended.push_back(std::move(part));
}

std::vector<MIMEPart> mimeParts(const MailMessage& message, std::size_t mostDepth, std::size_t mostParts) {
    std::vector<MIMEPart> parts;
    MIMEWalker walker(message, mostDepth);
    while (auto part = walker.next())
        if (part->number < mostParts) parts.push_back(std::move(*part));
    std::ranges::sort(parts, {}, &MIMEPart::number);
    return parts;
}

}  // namespace quillmark
