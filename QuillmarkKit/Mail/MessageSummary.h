#pragma once

#include <optional>
#include <string>
#include <tuple>

#include "QuillmarkKit/Mail/Addresses.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Fields.h"
#include "QuillmarkKit/Support/PackedList.h"

namespace quillmark {

/// What the message says of itself.
struct MessageSummary {
    PackedList<MailAddress> from = {}, replyTo = {}, to = {};  ///< of all fields of the name, in order
    std::string subject = {};                                  ///< decoded; empty when absent
    std::optional<Date> date = {};
    std::optional<std::string> messageID = {};
    std::optional<std::string> returnPath = {};  ///< the envelope sender, without < and >; never empty
    bool operator==(const MessageSummary&) const = default;
};
constexpr auto fieldsOf(const MessageSummary*) {
    using T = MessageSummary;
    return std::tuple{Field{"from", &T::from},
                      Field{"replyTo", &T::replyTo},
                      Field{"to", &T::to},
                      Field{"subject", &T::subject},
                      Field{"date", &T::date},
                      Field{"messageID", &T::messageID},
                      Field{"returnPath", &T::returnPath}};
}

MessageSummary summary(const MailMessage& message);

}  // namespace quillmark
