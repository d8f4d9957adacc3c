#include "QuillmarkKit/Intake/AttachedMessages.h"

#include <string_view>
#include <utility>
#include <variant>

#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Mail/MIMEStructure.h"

namespace quillmark {

namespace {

constexpr std::size_t mostOpen = 32;  // multiparts inside each other

/// The content of the next part that is a message, decoded.
std::optional<std::string> nextContent(MIMEWalker& walker, const MailMessage& message) {
    while (const auto part = walker.next()) {
        if (part->kind != MIMEPart::Kind::message) continue;
        const std::string_view content =
            message.body().value_or("").substr(part->bodyBegin, part->bodyEnd - part->bodyBegin);
        return decodedBytes(part->encoding, content);
    }
    return std::nullopt;
}

}  // namespace

struct AttachedMessages::Level {
    MailMessage message;
    MIMEWalker walker = MIMEWalker(message, mostOpen);
    std::size_t count = 0;  // of the messages found in it so far
};

AttachedMessages::AttachedMessages(MailMessage message) { m_levels.push_back({std::move(message)}); }

AttachedMessages::~AttachedMessages() = default;

std::optional<AttachedMessages::Attached> AttachedMessages::next() {
    while (!m_levels.empty()) {
        const auto content = nextContent(m_levels.back().walker, m_levels.back().message);
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
