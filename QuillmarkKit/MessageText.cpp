#include "QuillmarkKit/MessageText.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include "QuillmarkKit/Lookups/Evidence.h"
#include "QuillmarkKit/Mail/PartContent.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

using Line = PageText::Line;

constexpr std::size_t mostParts = 200, mostPartDepth = 10;
constexpr std::size_t mostTexts = 10, mostAttachments = 50;
constexpr std::size_t mostLines = 1'000, mostBytes = 100'000;       // of all texts
constexpr std::size_t longestLine = 1'000, longestPlain = 200'000;  // bytes
constexpr std::size_t comparedBytes = 20'000;

std::vector<Line> plainLines(std::string_view text, bool& isCut) {
    std::vector<Line> lines;
    isCut = text.size() > longestPlain;
    text = text.substr(0, longestPlain);
    while (!text.empty()) {
        std::string_view line = takePiece(text, '\n');
        line = line.substr(0, line.find_last_not_of(" \t\r") + 1);
        lines.push_back({Line::Kind::text, std::string(line), {}});
    }
    while (!lines.empty() && lines.back().text.empty()) lines.pop_back();
    return lines;
}

/// The letters and digits that a person reads, by which two texts are compared.
std::string wordsOf(const std::vector<Line>& lines) {
    std::string words;
    for (const Line& line : lines) {
        if (line.kind != Line::Kind::text) continue;
        for (std::string_view rest = line.text; !rest.empty() && words.size() < comparedBytes;) {
            const char32_t scalar = takeScalar(rest);
            if (isAlphabetic(scalar) || (scalar < 0x80 && isDigit(static_cast<char>(scalar))))
                appendUTF8(words, scalar);
        }
    }
    return words;
}

class Composer {
public:
    explicit Composer(const MailMessage& message) : m_message(message) {}

    MessageText text() {
        m_result.fields = fieldsToRead(m_message);
        const auto parts = mimeParts(m_message, mostPartDepth, mostParts);
        for (const MIMEPart& part : parts) {
            if (part.kind != MIMEPart::Kind::multipart) add(part, parts);
        }
        for (MessageText::Text& text : m_result.texts) shorten(text);
        return std::move(m_result);
    }

private:
    void add(const MIMEPart& part, const std::vector<MIMEPart>& parts) {
        const std::string type = mediaType(part), name = fileNameOf(m_message, part);
        const bool isPage = type == "text/html";
        if ((!isPage && type != "text/plain") || !name.empty()) return attach(part, type, name);
        if (m_result.texts.size() == mostTexts) {
            ++m_result.moreParts;
            return;
        }
        MessageText::Text text{.type = type};
        const std::string content = textOf(m_message, part, m_decoder);
        if (isPage) {
            PageText page = pageText(content);
            text.lines = std::move(page.lines);
            text.isCut = page.isCut;
        } else {
            text.lines = plainLines(content, text.isCut);
        }
        const std::optional<std::size_t> group = alternativeOf(part, parts);
        if (group && m_group == group && !m_result.texts.empty() &&
            wordsOf(m_result.texts.back().lines) == wordsOf(text.lines))
            m_result.texts.pop_back();
        m_group = group;
        m_result.texts.push_back(std::move(text));
    }

    /// The multipart/alternative that a part is in.
    static std::optional<std::size_t> alternativeOf(const MIMEPart& part,
                                                    const std::vector<MIMEPart>& parts) {
        for (auto at = part.parent; at; at = parts[*at].parent) {
            if (*at >= parts.size()) break;
            if (mediaType(parts[*at]) == "multipart/alternative") return at;
        }
        return std::nullopt;
    }

    void attach(const MIMEPart& part, const std::string& type, const std::string& name) {
        if (m_result.attachments.size() == mostAttachments) {
            ++m_result.moreParts;
            return;
        }
        const std::string content = decodedContent(m_message, part);
        m_result.attachments.push_back(
            {forDisplay(type, longestLine), forDisplay(name, longestLine),
             SignedText::Part::Content{static_cast<std::int64_t>(content.size()), sha256(content)}});
    }

    /// Makes the lines inert, and leaves out those for which there is no room.
    void shorten(MessageText::Text& text) {
        std::size_t kept = 0;
        for (Line& line : text.lines) {
            if (m_lines == mostLines || m_bytes >= mostBytes) break;
            line.text = forDisplay(line.text, longestLine);
            line.label = forDisplay(line.label, longestLine);
            m_bytes += line.text.size() + line.label.size();
            ++m_lines;
            ++kept;
        }
        text.isCut |= kept < text.lines.size();
        text.lines.resize(kept);
    }

    const MailMessage& m_message;
    MessageText m_result = {};
    CharsetDecoder m_decoder{};
    std::optional<std::size_t> m_group = {};  // of the text before
    std::size_t m_lines = 0, m_bytes = 0;
};

}  // namespace

MessageText messageText(const MailMessage& message) { return Composer(message).text(); }

}  // namespace quillmark
