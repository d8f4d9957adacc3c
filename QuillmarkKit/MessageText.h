#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Mail/PageText.h"
#include "QuillmarkKit/SignedText.h"

namespace quillmark {

/// What a message says, as plain text, for whoever wants to look at it without a mail program: decoded, pages
/// as their text, nothing of it rendered, loaded or opened. Every text is inert, one line.
struct MessageText {
    /// A part that is shown as text.
    struct Text {
        std::string type = {};  ///< "text/plain" or "text/html"
        std::vector<PageText::Line> lines = {};
        bool isCut = false;  ///< there is more than is shown
        bool operator==(const Text&) const = default;
    };
    std::vector<SignedText::Field> fields = {};  ///< that a person reads; of the kind `same`
    /// In their order. Of alternatives that say the same only the last one, which mail programs show.
    std::vector<Text> texts = {};
    std::vector<SignedText::Part> attachments = {};  ///< everything else, each with its content
    std::int64_t moreParts = 0;                      ///< that are not told of
    bool operator==(const MessageText&) const = default;
};

/// Linear in the message; what it gives is bounded.
MessageText messageText(const MailMessage& message);

}  // namespace quillmark
