#include "Wording/NoteSentences.h"

#include <variant>

#include "Wording/Quoted.h"
#include "Wording/Signatures.h"

namespace quillmark {

namespace {

/// One overload for each note.
struct NoteSentence {
    const Reader& reader;

    std::string operator()(const ReportNote::HeaderEndsEarly& note) const {
        return reader.translateCount(
            "The header lines end at line %1, which isn’t one. The %n byte from there on was read neither as "
            "header lines nor as the body, and so it wasn’t checked; other programs may show it.",
            "The header lines end at line %1, which isn’t one. The %n bytes from there on were read neither "
            "as header lines nor as the body, and so they weren’t checked; other programs may show them.",
            note.bytes, {reader.number(note.line)});
    }
    std::string operator()(const ReportNote::FromHoldsMore& note) const {
        const std::string address = quotedWord(note.address), more = quoted(note.more);
        switch (note.kind) {
            case ReportNote::FromHoldsMore::Kind::text:
                return reader.translate("From holds more than the address that was judged, %1: “%2”.",
                                        {address, more});
            case ReportNote::FromHoldsMore::Kind::part:
                return reader.translate(
                    "From also holds something that is no address: “%2”. Only %1 was judged.",
                    {address, more});
            case ReportNote::FromHoldsMore::Kind::route:
                break;
        }
        return reader.translate("The address in From has a route in it: “%2”. Only %1 was judged.",
                                {address, more});
    }
    std::string operator()(const ReportNote::FromEmpty& note) const {
        const std::string sender = quoted(note.sender.value_or("")),
                          resent = quoted(note.resentFrom.value_or(""));
        if (!note.resentFrom) {
            return reader.translate("From names no address. The Sender line reads “%1”.", {sender});
        }
        if (!note.sender) {
            return reader.translate("From names no address. The Resent-From line reads “%1”.", {resent});
        }
        return reader.translate(
            "From names no address. The Sender line reads “%1”, the Resent-From line “%2”.",
            {sender, resent});
    }
    std::string operator()(const ReportNote::ShownNotSigned& note) const {
        return reader.translateCount(
            "The %1 line that is shown isn’t the one that was signed. Shown: “%2”. Signed: “%3”. Of the %4 "
            "such lines in the message, only the lowest is signed.",
            "The %1 line that is shown isn’t the one that was signed. Shown: “%2”. Signed: “%3”. Of the %4 "
            "such lines in the message, only the lowest %n are signed.",
            note.covered,
            {fieldNames({note.field}, reader), quoted(note.shown), quoted(note.signedValue),
             reader.number(note.count)});
    }
    std::string operator()(const ReportNote::LineOfSender& note) const {
        const bool isBelow = note.why == ReportNote::LineOfSender::Why::belowReceived;
        const std::string field = quotedWord(note.field), server = quoted(note.server);
        if (isBelow || server.empty()) {
            return reader.translate(
                "The sender could have written the %1 line: it stands below a line that another server than "
                "the receiver’s added.",
                {field});
        }
        return reader.translate(
            "The sender could have written the %1 line: it speaks of “%2”, but the receiver’s own line above "
            "it doesn’t.",
            {field, server});
    }
    std::string operator()(const ReportNote::SigningDomainNoHost& note) const {
        return reader.translate(
            "The signing domain, “%1”, isn’t a valid host name, so the signature doesn’t tell who signed.",
            {quoted(note.domain)});
    }
    std::string operator()(const ReportNote::SigningDomainPublicSuffix& note) const {
        return reader.translate(
            "The signing domain, %1, is an ending under which anyone can register a name, so the signature "
            "doesn’t tell who signed.",
            {quotedDomain(note.domain)});
    }
    std::string operator()(const ReportNote::SignedAfterCheck& note) const {
        return reader.translate(
            "The signature by %1 says it was made on %2, which is later than this check. Either a clock is "
            "wrong or the date is invented.",
            {quotedDomain(note.domain), reader.time(note.signedAt)});
    }
    std::string operator()(const ReportNote::SignedLongBefore& note) const {
        return reader.translate(
            "The signature by %1 says it was made on %2, long before the message arrived on %3. Somebody may "
            "have sent an old message once more.",
            {quotedDomain(note.domain), reader.time(note.signedAt), reader.time(note.received)});
    }
    std::string operator()(const ReportNote::QuotedFromLines& note) const {
        // Only the text's hash was compared: whether the signature is genuine, its own finding says.
        switch (note.reading) {
            case FromQuoting::none:
                return reader.translateCount(
                    "The mailbox has %n line of this message that begins with “>From ”. According to a "
                    "signature, the text was signed as it stands there.",
                    "The mailbox has %n lines of this message that begin with “>From ”. According to a "
                    "signature, the text was signed as it stands there.",
                    note.lines, {});
            case FromQuoting::plain:
                return reader.translateCount(
                    "The mailbox put “>” before %n line of this message that begins with “From ”. According "
                    "to a signature, the text was signed without that. Lines that begin with more than one "
                    "“>” were left as they were.",
                    "The mailbox put “>” before %n lines of this message that begin with “From ”. According "
                    "to a signature, the text was signed without that. Lines that begin with more than one "
                    "“>” were left as they were.",
                    note.lines, {});
            case FromQuoting::full:
                break;
        }
        return reader.translateCount(
            "The mailbox put “>” before %n line of this message that begins with “From ”. According to a "
            "signature, the text was signed without that.",
            "The mailbox put “>” before %n lines of this message that begin with “From ”. According to a "
            "signature, the text was signed without that.",
            note.lines, {});
    }
    std::string operator()(const ReportNote::AnswerValidated& note) const {
        const std::string name = quotedDomain(note.name);
        using Kind = ReportNote::AnswerValidated::Kind;
        switch (note.kind) {
            case Kind::key:
                return reader.translate(
                    "The DNS service says that the key at %1 comes from the domain itself (DNSSEC).", {name});
            case Kind::policy:
                return reader.translate(
                    "The DNS service says that the policy at %1 comes from the domain itself (DNSSEC).",
                    {name});
            case Kind::senderPolicy:
                return reader.translate(
                    "The DNS service says that the SPF record at %1 comes from the domain itself (DNSSEC).",
                    {name});
            case Kind::forwarderKey:
                break;
        }
        return reader.translate(
            "The DNS service says that a forwarder’s key, at %1, comes from the forwarder’s domain itself "
            "(DNSSEC).",
            {name});
    }
    std::string operator()(const ReportNote::NewerSignatures& note) const {
        return reader.translateCount(
            "The message also carries %n signature of a newer kind (DKIM2), which this version doesn’t "
            "check.",
            "The message also carries %n signatures of a newer kind (DKIM2), which this version doesn’t "
            "check.",
            note.count, {});
    }
    std::string operator()(const ReportNote::SignedLinesHold& note) const {
        return reader.translate(
            "%1 did sign these lines, and they haven’t changed: %2. The text under them isn’t the one %1 "
            "signed; anyone could have written it.",
            {quotedDomain(note.domain), fieldNames(note.fields, reader)});
    }
    std::string operator()(const ReportNote::Damage& note) const {
        switch (note.kind) {
            case ReportNote::Damage::Kind::mboxLossy:
                break;
        }
        return reader.translate(
            "The mailbox put “>” before lines of this message that begin with “From ”, and others began with "
            "“>From ” already; it doesn’t tell which. According to a signature, the text was signed with "
            "some of them unchanged, and so it was checked.");
    }
    std::string operator()(const ReportNote::LinesBeforeDropped& note) const {
        return reader.translateCount(
            "%n line before the message was taken for a summary of it and left out. It reads “%1”.",
            "%n lines before the message were taken for a summary of it and left out. The first reads “%1”.",
            note.lines, {quoted(note.first)});
    }
    std::string operator()(const UnknownCase& note) const {
        return reader.translate("A note of a newer version of Quillmark, which this one doesn’t know: “%1”",
                                {quoted(note.name)});
    }
};

}  // namespace

std::string sentence(const ReportNote& note, const Reader& reader) {
    return std::visit(NoteSentence{reader}, note.value);
}

NoteSection sectionOf(const ReportNote& note) {
    if (const auto* line = std::get_if<ReportNote::LineOfSender>(&note.value)) {
        return line->field == "Received-SPF" ? NoteSection::sendingServer : NoteSection::receiverResults;
    }
    if (const auto* validated = std::get_if<ReportNote::AnswerValidated>(&note.value)) {
        using Kind = ReportNote::AnswerValidated::Kind;
        switch (validated->kind) {
            case Kind::key:
                return NoteSection::signatures;
            case Kind::policy:
                return NoteSection::policy;
            case Kind::senderPolicy:
                return NoteSection::sendingServer;
            case Kind::forwarderKey:
                return NoteSection::chain;
        }
    }
    const bool isOfMessage = std::holds_alternative<ReportNote::HeaderEndsEarly>(note.value) ||
                             std::holds_alternative<ReportNote::FromHoldsMore>(note.value) ||
                             std::holds_alternative<ReportNote::QuotedFromLines>(note.value) ||
                             std::holds_alternative<ReportNote::Damage>(note.value) ||
                             std::holds_alternative<ReportNote::LinesBeforeDropped>(note.value) ||
                             std::holds_alternative<ReportNote::FromEmpty>(note.value) ||
                             std::holds_alternative<UnknownCase>(note.value);
    return isOfMessage ? NoteSection::message : NoteSection::signatures;
}

std::optional<Tone> tone(const ReportNote& note) {
    const bool isInformation = std::holds_alternative<ReportNote::QuotedFromLines>(note.value) ||
                               std::holds_alternative<ReportNote::AnswerValidated>(note.value) ||
                               std::holds_alternative<ReportNote::Damage>(note.value) ||
                               std::holds_alternative<ReportNote::NewerSignatures>(note.value);
    return isInformation ? std::nullopt : std::optional(Tone::caution);
}

bool standsBesideHeadline(const ReportNote& note, Tone verdict) {
    // What a mailbox did to a message explains why nothing was proven.
    if (std::holds_alternative<ReportNote::Damage>(note.value)) return verdict != Tone::good;
    if (const auto* lines = std::get_if<ReportNote::SignedLinesHold>(&note.value))
        return lines->speaksForFrom;
    // Where a note of a newer version would stand nobody knows, so nobody may miss it.
    return std::holds_alternative<ReportNote::LinesBeforeDropped>(note.value) ||
           std::holds_alternative<ReportNote::HeaderEndsEarly>(note.value) ||
           std::holds_alternative<ReportNote::ShownNotSigned>(note.value) ||
           std::holds_alternative<ReportNote::SigningDomainNoHost>(note.value) ||
           std::holds_alternative<ReportNote::SigningDomainPublicSuffix>(note.value) ||
           std::holds_alternative<UnknownCase>(note.value);
}

}  // namespace quillmark
