#include "QuillmarkKit/Mail/MessageSummary.h"

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

/// The addresses of every field of one name, in field order.
PackedList<MailAddress> addresses(const MailMessage& message, std::string_view name) {
    PackedList<MailAddress> list;
    for (const auto position : message.positions(name))
        list.append(MailAddress::parseList(message.headers()[position].value()));
    return list;
}

}  // namespace

MessageSummary summary(const MailMessage& message) {
    MessageSummary summary;
    summary.from = addresses(message, "From");
    summary.replyTo = addresses(message, "Reply-To");
    summary.to = addresses(message, "To");
    if (const auto* subject = message.first("Subject"))
        summary.subject = EncodedWords::decode(subject->value());
    if (const auto* date = message.first("Date")) summary.date = parsedMailDate(date->value());
    if (const auto* id = message.first("Message-ID")) summary.messageID = id->value();
    if (const auto* path = message.first("Return-Path")) {
        const std::string value = path->value();
        const std::string_view sender = trimmed(value, "<> ");
        if (!sender.empty()) summary.returnPath = sender;
    }
    return summary;
}

}  // namespace quillmark
