#include "QuillmarkKit/Checks/Regions.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "QuillmarkKit/Mail/MIMEStructure.h"
#include "QuillmarkKit/Mail/TransferEncodings.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::size_t mostParts = 200, mostPartDepth = 3;
constexpr std::size_t topLines = 24, bottomLines = 60;
constexpr std::size_t htmlReach = 8'000;  // bytes around the ends of a page that are looked at
constexpr std::size_t mostGroups = 4;
constexpr std::size_t mostEdits = 400;               // of one group
constexpr std::size_t mostEncodedBytes = 4'000'000;  // that edits in base64 write, together

/// Where something was put in: what begins at `from` and ends at `to`.
struct Cut {
    std::size_t from = 0, to = 0;
};

/// The last place where the tag begins, however it is capitalized.
std::size_t lastTag(std::string_view text, std::string_view tag) {
    for (std::size_t at = text.rfind('<'); at != text.npos;
         at = at == 0 ? text.npos : text.rfind('<', at - 1))
        if (startsWithIgnoringCase(text.substr(at), tag)) return at;
    return text.npos;
}

/// Behind the first tag that begins so.
std::size_t behindTag(std::string_view text, std::string_view tag) {
    for (std::size_t at = text.find('<'); at != text.npos; at = text.find('<', at + 1)) {
        if (!startsWithIgnoringCase(text.substr(at), tag)) continue;
        const auto end = text.find('>', at);
        return end == text.npos ? 0 : end + 1;
    }
    return 0;
}

/// The nearest to the end first.
std::vector<Cut> bottomsOf(std::string_view text, bool isHTML) {
    std::vector<Cut> cuts;
    if (isHTML) {
        std::size_t end = lastTag(text, "</body");
        if (end == text.npos) end = lastTag(text, "</html");
        if (end == text.npos) end = text.size();
        const std::size_t first = end - std::min(end, htmlReach);
        for (std::size_t at = end; at > first && cuts.size() < mostEdits;) {
            --at;
            if (text[at] == '<' || (at > 0 && text[at - 1] == '\n')) cuts.push_back({at, end});
            if (text[at] == '\r' && text.substr(at).starts_with(lineEnd)) cuts.push_back({at, end});
        }
        return cuts;
    }
    std::size_t lines = 0;
    for (std::size_t at = text.size(); at > 0 && lines < bottomLines; ++lines) {
        const auto found = at == 1 ? text.npos : text.rfind('\n', at - 2);
        if (found == text.npos) break;
        at = found + 1;
        const std::size_t lineBegin = found > 0 && text[found - 1] == '\r' ? found - 1 : found;
        // The line end may be one that was put in, or belong to the text.
        if (at < text.size()) cuts.push_back({at, text.size()});
        cuts.push_back({lineBegin, text.size()});
    }
    return cuts;
}

/// The nearest to the beginning first.
std::vector<Cut> topsOf(std::string_view text, bool isHTML) {
    std::vector<Cut> cuts;
    const std::size_t begin = isHTML ? behindTag(text, "<body") : 0;
    std::size_t lines = 0;
    const std::size_t reach = isHTML ? std::min(text.size(), begin + htmlReach) : text.size();
    for (std::size_t at = begin; at < reach && cuts.size() < mostEdits && lines <= topLines; ++at) {
        if (text[at] == '\n') {
            cuts.push_back({begin, at + 1});
            if (!isHTML) ++lines;
        } else if (isHTML && text[at] == '>') {
            cuts.push_back({begin, at + 1});
        }
    }
    return cuts;
}

/// How long the lines of a base64 content are; 0 when they differ.
std::size_t widthOf(std::string_view raw) {
    const auto end = raw.find(lineEnd);
    if (end == raw.npos) return raw.size() <= 76 ? 76 : 0;
    return end % 4 == 0 && end > 0 ? end : 0;
}

class Writer {
public:
    Writer(const MIMEPart& part, std::string_view raw) : m_part(part), m_raw(raw) {
        if (part.encoding != TransferEncoding::base64) return;
        m_content = decodedBase64Lines(raw);
        m_width = widthOf(raw);
    }

    bool isUsable() const { return m_part.encoding != TransferEncoding::base64 || m_width > 0; }
    std::string_view text() const { return m_part.encoding == TransferEncoding::base64 ? m_content : m_raw; }

    /// The cut, in the body; `left` is how many bytes may yet be encoded.
    std::optional<Edit> edit(const Cut& cut, std::size_t& left) const {
        if (m_part.encoding != TransferEncoding::base64)
            return Edit{m_part.bodyBegin + cut.from, m_part.bodyBegin + cut.to, {}};
        // The lines in front of it stay as they are.
        const std::size_t bytes = m_width / 4 * 3, lines = cut.from / bytes;
        std::string rest = m_content.substr(lines * bytes, cut.from - lines * bytes);
        rest += std::string_view(m_content).substr(cut.to);
        if (rest.size() > left) return std::nullopt;
        left -= rest.size();
        std::string written = encodedBase64Lines(rest, m_width);
        const bool endsLine = m_raw.ends_with(lineEnd);
        if (!endsLine && written.ends_with(lineEnd)) written.resize(written.size() - lineEnd.size());
        return Edit{m_part.bodyBegin + std::min(lines * (m_width + lineEnd.size()), m_raw.size()),
                    m_part.bodyEnd, std::move(written)};
    }

private:
    const MIMEPart& m_part;
    std::string_view m_raw;
    std::string m_content = {};
    std::size_t m_width = 0;
};

}  // namespace

std::vector<EditGroup> regionsOfParts(const MailMessage& message, RegionEnds ends, std::size_t mostTests) {
    const std::string_view body = message.body().value_or("");
    const auto parts = mimeParts(message, mostPartDepth, mostParts);
    std::vector<std::pair<const MIMEPart*, bool>> chosen;  // and whether it is HTML
    for (const MIMEPart& part : parts) {
        const std::string type = contentTypeName(part.contentType);
        const bool isText = part.kind == MIMEPart::Kind::other && (type.empty() || type.starts_with("text/"));
        const std::size_t size = part.bodyEnd - part.bodyBegin;
        // Hardly an edit of a longer one could be written.
        const bool isTooLong = part.encoding == TransferEncoding::base64 && size > mostEncodedBytes;
        if (isText && size > 0 && !isTooLong) chosen.emplace_back(&part, type == "text/html");
    }
    const std::size_t perPart = ends == RegionEnds::both ? 2 : 1;
    if (chosen.size() * perPart > mostGroups) chosen.resize(mostGroups / perPart);
    if (chosen.empty()) return {};
    // With none of a group, too.
    std::size_t most = mostEdits;
    const std::size_t groups = chosen.size() * perPart;
    const auto combinations = [&](std::size_t count) {
        std::size_t product = 1;
        for (std::size_t i = 0; i < groups; ++i) product *= count + 1;
        return product;
    };
    while (most > 1 && combinations(most) > mostTests) --most;

    std::vector<EditGroup> made;
    std::size_t left = mostEncodedBytes;
    for (const auto& [part, isHTML] : chosen) {
        const Writer writer(*part, body.substr(part->bodyBegin, part->bodyEnd - part->bodyBegin));
        if (!writer.isUsable()) continue;
        const auto add = [&](const std::vector<Cut>& cuts) {
            EditGroup group;
            for (const Cut& cut : cuts) {
                if (group.size() == most) break;
                if (auto edit = writer.edit(cut, left)) group.push_back(std::move(*edit));
            }
            std::ranges::stable_sort(group, {}, &Edit::from);
            made.push_back(std::move(group));
        };
        const bool isBase64 = part->encoding == TransferEncoding::base64;
        // Both ends of a base64 content can't be edited apart.
        if (ends == RegionEnds::tops || (ends == RegionEnds::both && !isBase64))
            add(topsOf(writer.text(), isHTML));
        if (ends == RegionEnds::bottoms || ends == RegionEnds::both) add(bottomsOf(writer.text(), isHTML));
    }
    return made;
}

}  // namespace quillmark
