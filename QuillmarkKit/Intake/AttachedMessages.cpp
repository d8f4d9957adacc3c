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

std::optional<MailMessage> messageOf(std::string_view content) {
    auto taken = messageIn(ByteBuffer(content), ParseMode::strict);
    auto* message = std::get_if<MailMessage>(&taken);
    return message ? std::optional(std::move(*message)) : std::nullopt;
}

}  // namespace

struct AttachedMessages::Level {
    struct Inside {
        std::size_t number;  // from 1, of the parts that say they are messages
        std::string content;
    };
    std::vector<Inside> inside = {};
    std::size_t given = 0;  // of them, whose content is gone
};

AttachedMessages::AttachedMessages(MailMessage message) : m_outermost(std::move(message)) {}

AttachedMessages::~AttachedMessages() = default;

void AttachedMessages::goInside(const MailMessage& message) {
    Level level;
    MIMEWalker walker(message, mostOpen);
    for (std::size_t number = 1; level.inside.size() <= mostOf; ++number) {
        auto content = nextContent(walker, message);
        if (!content) break;
        if (messageOf(*content)) level.inside.push_back({number, std::move(*content)});
    }
    m_levels.push_back(std::move(level));
}

std::optional<AttachedMessages::Attached> AttachedMessages::next() {
    if (const auto message = std::exchange(m_outermost, std::nullopt)) goInside(*message);
    // Only now, when whoever was given the last is done with it: the fields of a hostile message take ten
    // times its bytes.
    if (const auto last = std::exchange(m_last, std::nullopt)) goInside(*messageOf(*last));
    while (!m_levels.empty()) {
        Level& level = m_levels.back();
        if (level.given == level.inside.size()) {
            m_levels.pop_back();
            continue;
        }
        std::string content = std::move(level.inside[level.given++].content);
        if (m_levels.size() > deepest || m_count == mostOf) {
            m_isAnyLeftOut = true;
            if (m_count == mostOf) m_levels.clear();
            continue;
        }
        ++m_count;
        Attached attached{.bytes = ByteBuffer(content)};
        for (const Level& each : m_levels) attached.position.push_back(each.inside[each.given - 1].number);
        m_last = std::move(content);
        return attached;
    }
    return std::nullopt;
}

}  // namespace quillmark
