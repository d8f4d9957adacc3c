#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/ByteBuffer.h"

namespace quillmark {

/// The messages that are attached inside a message, which somebody passed on whole (message/rfc822, RFC 2046,
/// section 5.2.1): in its multiparts at any depth up to 32, and inside each other. One after the other, each
/// before those inside it; linear in the message for each level.
class AttachedMessages {
public:
    static constexpr std::size_t deepest = 8;   ///< levels of messages inside messages
    static constexpr std::size_t mostOf = 100;  ///< of one message, those inside each other included

    /// The messages inside this one.
    explicit AttachedMessages(MailMessage message);
    ~AttachedMessages();
    AttachedMessages(const AttachedMessages&) = delete;
    AttachedMessages& operator=(const AttachedMessages&) = delete;

    struct Attached {
        ByteBuffer bytes = {};  ///< its own, its transfer encoding undone
        /// Where it was: {2, 1} is the first message inside the second one attached.
        std::vector<std::size_t> position = {};
    };
    /// The next; nothing when there are no more. Parts that hold no From, Received or DKIM-Signature field
    /// are passed over.
    std::optional<Attached> next();

    /// Whether some were not given because they lie too deep or are too many. Told once there are no more.
    bool isAnyLeftOut() const { return m_isAnyLeftOut; }

private:
    struct Level;
    void goInside(const MailMessage& message);

    std::optional<MailMessage> m_outermost;  // until it is gone into
    std::optional<std::string> m_last = {};  // the content of the last given, until that is gone into
    // What is left in the messages that the last lies in, the outermost first: disjoint pieces of that, so
    // that messages inside each other take no more than one.
    std::vector<Level> m_levels;
    std::size_t m_count = 0;
    bool m_isAnyLeftOut = false;
};

}  // namespace quillmark
