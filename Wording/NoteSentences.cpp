#include "Wording/NoteSentences.h"

#include <algorithm>
#include <variant>

#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "QuillmarkKit/Support/Text.h"
#include "Wording/Findings.h"
#include "Wording/Quoted.h"
#include "Wording/Signatures.h"

namespace quillmark {

namespace {

std::string formInWords(RewrittenForm form, const Reader& reader) {
    switch (form) {
        case RewrittenForm::transferEncoding:
            return reader.translate("the encoding");
        case RewrittenForm::charset:
            return reader.translate("the character set");
        case RewrittenForm::fromQuoting:
            return reader.translate("the quoting of “From ” lines");
        case RewrittenForm::dots:
            return reader.translate("full stops at the beginning of lines");
        case RewrittenForm::blanks:
            return reader.translate("blanks");
        case RewrittenForm::blankLines:
            return reader.translate("empty lines");
        case RewrittenForm::lineBreaks:
            return reader.translate("line breaks");
        case RewrittenForm::indentation:
            return reader.translate("the indentation of the lines");
        case RewrittenForm::typography:
            return reader.translate("quotation marks and dashes");
        case RewrittenForm::lineEnds:
            return reader.translate("line ends");
        case RewrittenForm::wrapped:
            return reader.translate("the wrapping in another message");
        case RewrittenForm::folding:
            return reader.translate("the line breaks of header lines");
        case RewrittenForm::fieldNames:
            return reader.translate("capital letters in the names of header lines");
        case RewrittenForm::partHeaders:
            break;
    }
    return reader.translate("lines in front of parts");
}

/// A part, or `lines` lines of all texts that differ alike.
std::string changeInWords(const ChangedText& change, std::int64_t lines, const Reader& reader) {
    using Place = ChangedText::Place;
    using Kind = ChangedText::Kind;
    const bool isFirst = change.place == Place::start || change.place == Place::htmlStart;
    if (change.type) {
        const std::string type = inert(*change.type);
        if (change.kind == Kind::missing) {
            return reader.translateCount("a part of %n byte (%1) missing", "a part of %n bytes (%1) missing",
                                         change.bytes, {type});
        }
        if (isFirst) {
            return reader.translateCount("an added part of %n byte (%1) at the beginning",
                                         "an added part of %n bytes (%1) at the beginning", change.bytes,
                                         {type});
        }
        return reader.translateCount("an added part of %n byte (%1)", "an added part of %n bytes (%1)",
                                     change.bytes, {type});
    }
    if (change.kind == Kind::missing)
        return reader.translateCount("%n line missing", "%n lines missing", lines);
    if (change.kind == Kind::changed) {
        return lines == 0 ? reader.translate("a part that is another")
                          : reader.translateCount("%n line changed", "%n lines changed", lines);
    }
    switch (change.place) {
        case Place::start:
        case Place::htmlStart:
            return reader.translateCount("%n line added at the beginning", "%n lines added at the beginning",
                                         lines);
        case Place::end:
        case Place::htmlEnd:
            return reader.translateCount("%n line added at the end", "%n lines added at the end", lines);
        case Place::part:
        case Place::inside:
            break;
    }
    return reader.translateCount("%n line added inside the text", "%n lines added inside the text", lines);
}

/// Whether both are lines that the same words tell.
bool isToldAlike(const ChangedText& a, const ChangedText& b) {
    const auto place = [](const ChangedText& text) {
        using Place = ChangedText::Place;
        if (text.kind != ChangedText::Kind::added) return Place::inside;
        return text.place == Place::htmlStart ? Place::start
               : text.place == Place::htmlEnd ? Place::end
                                              : text.place;
    };
    return !a.type && !b.type && a.kind == b.kind && place(a) == place(b) && (a.lines == 0) == (b.lines == 0);
}

std::string changeInWords(const ChangedField& field, const Reader& reader) {
    const std::string name = fieldNames({field.name}, reader);
    const std::string before =
        field.signedValues.empty() ? std::string() : quoted(field.signedValues.front());
    if (field.shown.size() > field.signedValues.size())
        return reader.translate("a %1 line that was added", {name});
    if (field.shown.size() < field.signedValues.size())
        return reader.translate("a %1 line that was taken out, “%2”", {name, before});
    if (field.name == "subject")
        return reader.translate("the Subject, which was “%1” when it was signed", {before});
    return reader.translate("the %1 line, which was “%2” when it was signed", {name, before});
}

/// What a person may see alone, or most of: text that was put in front or in place of the other, or more than
/// there was.
std::string frontOfUndone(const ReportNote::Undone& note, const Reader& reader) {
    using Kind = ChangedText::Kind;
    const std::string domain = quotedDomain(note.domain);
    const auto found = std::ranges::find_if(note.texts, [](const ChangedText& change) {
        const bool isFirst =
            change.place == ChangedText::Place::start || change.place == ChangedText::Place::htmlStart;
        return change.alone.value_or(false) ||
               (isFirst && (change.kind == Kind::added ||
                            (change.kind == Kind::changed && change.lines > change.signedLines.value_or(0))));
    });
    if (found == note.texts.end()) {
        if (note.addedBytes <= note.signedBytes) return {};
        return reader.translate("More was added than %1 signed.", {domain});
    }
    if (found->type && found->alone) {
        return reader.translate(
            "An added part can stand in place of what %1 signed. A mail program may show only this.",
            {domain});
    }
    if (found->type) return reader.translate("The first part was added. A mail program may show only this.");
    if (found->place == ChangedText::Place::start || found->place == ChangedText::Place::htmlStart) {
        if (found->kind == Kind::changed) {
            return reader.translateCount(
                "The first line was changed. A mail program may show only this.",
                "The first %n lines were changed. A mail program may show only these.", found->lines);
        }
        return reader.translateCount("The first line was added. A mail program may show only this.",
                                     "The first %n lines were added. A mail program may show only these.",
                                     found->lines);
    }
    return reader.translate("What was added to a page (HTML) can hide what %1 signed.", {domain});
}

}  // namespace

std::string changesInWords(const ReportNote::Undone& note, const Reader& reader) {
    std::string changes;
    const auto join = [&](const std::string& item) { reader.addClauseTo(changes, item); };
    for (auto text = note.texts.begin(); text != note.texts.end(); ++text) {
        const auto isAlike = [&](const ChangedText& other) { return isToldAlike(*text, other); };
        if (std::any_of(note.texts.begin(), text, isAlike)) continue;
        std::int64_t lines = text->lines;
        for (auto other = std::next(text); other != note.texts.end(); ++other)
            if (isAlike(*other)) lines += other->lines;
        join(changeInWords(*text, lines, reader));
    }
    for (const ChangedField& field : note.fields) join(changeInWords(field, reader));
    if (note.links > 0) {
        join(reader.translateCount("%n link that now leads elsewhere than when it was signed",
                                   "%n links that now lead elsewhere than when they were signed",
                                   note.links));
    }
    return changes;
}

namespace {

/// Whether a signature that holds with a former key holds for all of the text.
bool coversText(const ReportNote::KeyKnown& note) {
    return note.bodyChecked && note.unsignedBytes.value_or(0) == 0;
}

/// Never that the key is the domain's: only who says so.
std::string keyKnownSentence(const ReportNote::KeyKnown& note, const Reader& reader) {
    const std::string name = quotedWord(note.name);
    const std::string first = reader.date(note.firstSeen), last = reader.date(note.lastSeen);
    if (note.fit == ReportNote::KeyKnown::Fit::changed) {
        return reader.translate(
            "The key that %1 had on %2, as this computer saw it, made the signature, but over another "
            "message: this one was changed since, on the way or by somebody.",
            {name, last});
    }
    std::string text;
    if (note.file) {
        text = reader.translate(
            "The file “%1”, added on %2, says that %3 had a key with which the signature holds. A file can "
            "say anything: this proves only that whoever signed had that key, not whose it was.",
            {quoted(*note.file), reader.date(note.addedAt.value_or(note.lastSeen)), name});
    } else if (first == last) {
        text = reader.translate(
            "With the key that %1 had on %2, as this computer saw it, the signature holds.", {name, last});
    } else {
        text = reader.translate(
            "With the key that %1 had on %2 and on %3, as this computer saw it, the signature holds.",
            {name, first, last});
    }
    std::string unsignedRest;
    if (!note.bodyChecked) {
        unsignedRest = reader.translate("The body wasn’t there to check.");
    } else if (!coversText(note)) {
        unsignedRest = reader.translateCount("%n byte of the text isn’t signed.",
                                             "%n bytes of the text aren’t signed.", *note.unsignedBytes);
    }
    return sentences(
        {text, unsignedRest,
         reader.translate("Nothing says when it was signed: whoever has the key can sign to this day.")});
}

/// What must be taken back, and that the rest was signed.
std::string leadOfUndone(const ReportNote::Undone& note, const Reader& reader) {
    const std::string changes = changesInWords(note, reader);
    std::string forms;
    for (const RewrittenForm form : note.forms) reader.addTo(forms, formInWords(form, reader));
    const std::string domain = quotedDomain(note.domain), front = frontOfUndone(note, reader);
    const bool isForwarder = note.of == SignatureKind::arc;
    if (changes.empty()) {
        return sentences(
            {front,
             isForwarder
                 ? reader.translate(
                       "The mark of the forwarder %1 holds again once the message is written as it was "
                       "then; the words are the same: the forwarder %1 received it like this. Changed "
                       "since: %2.",
                       {domain, forms})
                 : reader.translate(
                       "%1’s signature holds again once the message is written as it was sent; the "
                       "signed words are the same. Changed since it was signed: %2.",
                       {domain, forms})});
    }
    return sentences(
        {front,
         isForwarder ? reader.translate(
                           "The mark of the forwarder %1 holds again once these changes are taken back: %2. "
                           "Without them, the forwarder %1 received it like this.",
                           {domain, changes})
                     : reader.translate(
                           "%1’s signature holds again once these changes are taken back: %2. Everything "
                           "else that %1 signed is as it was.",
                           {domain, changes}),
         forms.empty() ? "" : reader.translate("Also written otherwise: %1.", {forms}),
         reader.translate("Anyone could have made these changes. Treat them as unsigned.")});
}

}  // namespace

std::string damageInWords(const Damage& note, const Reader& reader) {
    const std::string field = quotedWord(note.field.value_or(""));
    switch (note.kind) {
        case DamageKind::mboxLossy:
            break;
        case DamageKind::unfinishedMultipart:
            return reader.translate(
                "The message ends before its last part does: the line that would close it is missing.");
        case DamageKind::doubledLineEnds:
            return reader.translate(
                "Every line ends twice (CR CR LF), so that an empty line follows it. Programs do that when "
                "they convert line ends once too often.");
        case DamageKind::doubledDots:
            return reader.translate(
                "Lines of the text begin with two dots, as lines with one do on their way between servers.");
        case DamageKind::doubleSpaced:
            return reader.translate(
                "An empty line follows each line, as in text that was copied from a window.");
        case DamageKind::protocolAnswer:
            return reader.translate(
                "The text ends with what a mail server says when it hands a message over, such as a single "
                "dot or “OK”.");
        case DamageKind::wrappedLines:
            return reader.translate(
                "Long lines seem to have been broken, as in text that was copied from a window or passed "
                "through an editor.");
        case DamageKind::tailAdded:
            return reader.translate("More text stands behind the end of the message.");
        case DamageKind::clipped:
            return reader.translate("The text breaks off before its end.");
        case DamageKind::charsetConverted:
            return reader.translate(
                "The letters of the text aren’t in the character set that the message names. Programs that "
                "convert a text leave it so.");
        case DamageKind::pasted8Bit:
            return reader.translate(
                "The message says that its text is encoded or plain ASCII, and letters stand in it decoded, "
                "as in text that was copied from a window.");
        case DamageKind::typographicQuotes:
            return reader.translate(
                "Typographic quotation marks or dashes stand where a message can have only plain ones, as in "
                "text that passed through a word processor.");
        case DamageKind::noBreakBlanks:
            return reader.translate(
                "No-break spaces stand where a message can have only plain ones, as in text that was copied "
                "from a web page.");
        case DamageKind::tabsExpanded:
            return reader.translate(
                "Tabs seem to have become spaces, as in text that was copied from a terminal.");
        case DamageKind::blanksCut:
            return reader.translate(
                "Spaces at the beginning or the end of lines are missing, as in text that passed through an "
                "editor or a web page.");
        case DamageKind::quotedMarks:
            return reader.translate("Every line begins with “>”, as in text that was quoted in a reply.");
        case DamageKind::lineNumbers:
            return reader.translate("The lines are numbered, as in text that was copied from an editor.");
        case DamageKind::attachmentRemoved:
            return reader.translate(
                "A line in the message, %1, says that an attachment isn’t in this copy. Anyone can write "
                "such a line.",
                {field});
        case DamageKind::convertedByRelay:
            return reader.translate(
                "A line in the message, %1, says that a server converted the text on the way. Anyone can "
                "write such a line.",
                {field});
        case DamageKind::exportedAnew:
            if (note.field) {
                return reader.translate(
                    "A line in the message, %1, says that a program exported it, which can mean that it was "
                    "written anew. Anyone can write such a line.",
                    {field});
            }
            return reader.translate(
                "The lines between the message’s parts are those of a program that converts mail from "
                "another form and writes it anew.");
    }
    return reader.translate(
        "The mailbox put “>” before lines of this message that begin with “From ”, and others began with "
        "“>From ” already; it doesn’t tell which. According to a signature, the text was signed with some of "
        "them unchanged, and so it was checked.");
}

namespace {

std::string newerOutcome(const NewerDMARC& note, const Reader& reader) {
    using Status = DMARCFinding::Status;
    if (note.status == Status::pass)
        return reader.translate("By DMARC’s rules of 2026 (RFC 9989) this message passes.");
    if (note.status != Status::fail)
        return reader.translate("By DMARC’s rules of 2026 (RFC 9989) no policy applies to this message.");
    if (note.policy == "reject") {
        return reader.translate(
            "By DMARC’s rules of 2026 (RFC 9989) this message fails, and receivers are asked to reject it.");
    }
    if (note.policy == "quarantine") {
        return reader.translate(
            "By DMARC’s rules of 2026 (RFC 9989) this message fails, and receivers are asked to treat it as "
            "suspicious.");
    }
    return reader.translate(
        "By DMARC’s rules of 2026 (RFC 9989) this message fails, and nothing is asked of receivers.");
}

std::string newerCause(const NewerDMARC& note, const Reader& reader) {
    using Cause = NewerDMARC::Cause;
    const std::string domain = quotedDomain(note.recordDomain.value_or(""));
    switch (note.cause) {
        case Cause::severalRecords:
            return reader.translate("The domain in From publishes several records, so none counts.");
        case Cause::otherRecord:
            return reader.translate("What counted as a record isn’t one by those rules.");
        case Cause::noPolicyTag:
            return reader.translate("The record names no policy that can be used.");
        case Cause::treeWalk:
            return note.recordDomain
                       ? reader.translate("The record that counts stands at %1.", {domain})
                       : reader.translate("No record is found on the way up from the domain in From.");
        case Cause::organization:
            return reader.translate("Those rules count other domains as one organization.");
        case Cause::missingDomain:
            return reader.translate(
                "The domain in From doesn’t exist, and %1 has a policy of its own for such names.", {domain});
        case Cause::testing:
            return reader.translate("The policy is marked as a test, which lowers it by one level.");
        case Cause::percent:
            break;
    }
    return reader.translate("The share of messages that the policy asks it for no longer counts.");
}

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
        std::string counted, recipes;
        if (note.count > 0) {
            counted = reader.translateCount(
                "The message also carries %n signature of a newer kind (DKIM2), which this version doesn’t "
                "check.",
                "The message also carries %n signatures of a newer kind (DKIM2), which this version doesn’t "
                "check.",
                note.count, {});
        }
        if (note.instances) {
            recipes = reader.translate(
                "The message has lines called Message-Instance, by which changes on the way could be taken "
                "back (DKIM2). This version doesn’t read them.");
        }
        return sentences({counted, recipes});
    }
    std::string operator()(const ReportNote::SignedLinesHold& note) const {
        const std::string domain = quotedDomain(note.domain);
        std::string text = reader.translate(
            "%1 did sign these lines, and they haven’t changed: %2. The text under them isn’t the one %1 "
            "signed; anyone could have written it.",
            {domain, fieldNames(note.fields, reader)});
        if (note.changed.empty()) return text;
        std::string changes;
        for (const ChangedField& field : note.changed)
            reader.addClauseTo(changes, changeInWords(field, reader));
        return sentences({text, reader.translate("Other lines have changed since %1 signed them: %2.",
                                                 {domain, changes})});
    }
    std::string operator()(const Damage& note) const {
        if (note.kind == DamageKind::mboxLossy || note.field) return damageInWords(note, reader);
        return sentences(
            {damageInWords(note, reader), reader.translate("A forgery can look the same. Where you have the "
                                                           "message itself, save it as a file (.eml or mbox) "
                                                           "and check that.")});
    }
    std::string operator()(const ReportNote::LinesBeforeDropped& note) const {
        return reader.translateCount("%n line before the message was left out. It reads “%1”.",
                                     "%n lines before the message were left out. The first reads “%1”.",
                                     note.lines, {quoted(note.first)});
    }
    std::string operator()(const ReportNote::AnsweredBy& note) const {
        if (note.resolver == "system") {
            return reader.translate(
                "DNS was asked at the servers that the computer asks for everything else, in place of the "
                "usual services. Nothing protects their answers on the way.");
        }
        return reader.translate(
            "DNS was asked at %1, in place of the usual services. The report is as good as its answers.",
            {quotedDomain(note.resolver)});
    }
    std::string operator()(const ReportNote::OutlookFile& note) const {
        if (note.hasBody) {
            return reader.translate(
                "This is a file of Outlook’s. What was checked is the message as it was received, which "
                "the file keeps beside what Outlook makes of it: the text that Outlook shows is not "
                "proven. Where a signature is broken, that can be Outlook’s doing.");
        }
        return reader.translate(
            "This is a file of Outlook’s. It keeps the header lines as they were received, but not the text "
            "that was signed: the text and the attachments that Outlook shows are not proven. Where a "
            "signature is broken, that can be Outlook’s doing.");
    }
    std::string operator()(const ReportNote::ReadOtherwise& note) const {
        if (equalsIgnoringCase(note.field, "Reply-To")) {
            return reader.translate(
                "The Reply-To line can be read in several ways: some programs reply to %1.",
                {quotedWord(note.address)});
        }
        return reader.translate(
            "The From line can be read in several ways: some programs show %1 as the sender.",
            {quotedWord(note.address)});
    }
    std::string operator()(const ReportNote::NameShowsAddress& note) const {
        return reader.translate("The sender’s name shows %1 in mail programs, but the real address is %2.",
                                {quotedDomain(note.shown), quotedWord(note.actual)});
    }
    std::string operator()(const ReportNote::HeadlineNamesOther& note) const {
        const std::string domain = quotedDomain(note.domain), from = quotedDomain(note.fromDomain);
        if (note.strict) {
            return reader.translate(
                "The signature is by %1, and %2, the domain in From, asks receivers to accept only its own: "
                "by that rule, this one doesn’t count.",
                {domain, from});
        }
        return reader.translate(
            "The signature is by %1, the address in From is of %2; both are of one organization.",
            {domain, from});
    }
    std::string operator()(const ReportNote::KeyProvesNothing& note) const {
        const std::string domain = quotedDomain(note.domain), from = quotedDomain(note.fromDomain);
        if (note.fromDomain.empty()) {
            return reader.translate(
                "Even with its key, the signature by %1 would prove nothing about the sender in From.",
                {domain});
        }
        if (!note.policy) {
            return reader.translate(
                "Even with its key, the signature by %1 would prove nothing about %2, the domain in From.",
                {domain, from});
        }
        return reader.translate(
            "Even with its key, the signature by %1 would prove nothing about %2, the domain in From. What "
            "%2 asks receivers to do: %3.",
            {domain, from, policyInWords(note.policy.value(), reader)});
    }
    std::string operator()(const ReportNote::ActsUnsigned& note) const {
        return reader.translate(
            "Mail programs act on these lines, and no valid signature covers them: %1. Anyone could have "
            "added them.",
            {fieldNames(note.fields, reader)});
    }
    std::string operator()(const ReportNote::SignaturesLeftOut& note) const {
        return reader.translateCount(
            "The message has %n more signature, which wasn’t looked at: ten are checked.",
            "The message has %n more signatures, which weren’t looked at: ten are checked.", note.count, {});
    }
    std::string operator()(const ReportNote::SignedAfterArrival& note) const {
        return reader.translate(
            "The signature by %1 says it was made on %2, after the message arrived on %3. One of these "
            "dates is wrong or invented.",
            {quotedDomain(note.domain), reader.time(note.signedAt), reader.time(note.received)});
    }
    std::string operator()(const ReportNote::HiddenHeaderEnd& note) const {
        return reader.translate(
            "A line of blanks stands inside the header lines, above the %1 line. Some programs end the "
            "header there and show other lines than this report.",
            {fieldNames({note.field}, reader)});
    }
    std::string operator()(const ReportNote::Undone& note) const {
        const std::string domain = quotedDomain(note.domain);
        std::string of, only;
        // A forwarder is no sender's domain.
        if (note.of == SignatureKind::dkim && (note.signedFrom || !note.fromIsOfDomain)) {
            of = note.fromIsOfDomain
                     ? reader.translate("The From address that was signed belongs to %1.", {domain})
                     : reader.translate("%1 isn’t the domain of the From address that was signed.", {domain});
        }
        if (note.signedOnly) {
            only = reader.translateCount("%1 signed only the first %n byte of the text.",
                                         "%1 signed only the first %n bytes of the text.", *note.signedOnly,
                                         {domain});
        }
        return sentences({leadOfUndone(note, reader), of, only});
    }
    std::string operator()(const ReportNote::OtherKey& note) const {
        return reader.translate(
            "The key that %1 publishes now isn’t the one that made this signature, or the signature was "
            "damaged.",
            {quotedDomain(note.domain)});
    }
    std::string operator()(const ReportNote::AddressClaimed& note) const {
        return reader.translate(
            "SPF was judged for %1, but that is only the address by which the sending server introduced "
            "itself. The server that took the message saw it at %2.",
            {quotedWord(note.claimed), quotedWord(note.seen)});
    }
    std::string operator()(const ReportNote::AnyServerAllowed& note) const {
        return reader.translate(
            "%1 allows almost any server in the world to send its mail (“%2”). That this server is allowed "
            "proves nothing.",
            {quotedDomain(note.domain), quoted(note.term)});
    }
    std::string operator()(const ReportNote::ContentNotSigned& note) const {
        using Why = ReportNote::ContentNotSigned::Why;
        const std::string field = fieldNames({note.field}, reader), value = quoted(note.value);
        switch (note.why) {
            case Why::repeated:
                return reader.translate(
                    "The message has several %1 lines that differ, and not all of them are signed. So "
                    "programs may show another text than the one that was sent.",
                    {field});
            case Why::noParts:
                return reader.translate(
                    "The %1 line isn’t signed, and says that the text has parts, which it hasn’t: “%2”. So "
                    "programs may show another text than the one that was sent.",
                    {field, value});
            case Why::textAboveParts:
                return reader.translate(
                    "The %1 line isn’t signed, and says that the text has parts, before which other text "
                    "stands that programs don’t show: “%2”. So they may show another text than the one that "
                    "was sent.",
                    {field, value});
            case Why::textBelowParts:
                return reader.translate(
                    "The %1 line isn’t signed, and says that the text has parts, behind which other text "
                    "stands that programs don’t show: “%2”. So they may show another text than the one that "
                    "was sent.",
                    {field, value});
            case Why::otherType:
                return reader.translate(
                    "The %1 line isn’t signed, and the text isn’t of the kind that it names: “%2”. So "
                    "programs may show another text than the one that was sent.",
                    {field, value});
            case Why::otherEncoding:
                break;
        }
        return reader.translate(
            "The %1 line isn’t signed, and the text isn’t encoded in the way that it names: “%2”. So "
            "programs may show another text than the one that was sent.",
            {field, value});
    }
    std::string operator()(const ReportNote::ResultsWithoutCause& note) const {
        return reader.translate(
            "Here %1 is said to have signed the message, but no signature by %1 is in it. Either somebody "
            "took it out later, or this line isn’t the receiver’s.",
            {quotedDomain(note.domain)});
    }
    std::string operator()(const ReportNote::OtherKeyRecord& note) const {
        const std::string domain = quotedDomain(note.domain);
        if (note.fits) {
            return reader.translate(
                "%1 publishes several keys under one name, and the signature fits another one than the "
                "first, which counts. DNS gives them in any order: check the message again.",
                {domain});
        }
        return reader.translate(
            "%1 publishes several keys under one name; the signature fits none of them that was tried.",
            {domain});
    }
    std::string operator()(const ReportNote::OtherRecordAtKey& note) const {
        return otherRecordSentence(note.domain, note.version, reader);
    }
    std::string operator()(const ReportNote::KeyKnown& note) const { return keyKnownSentence(note, reader); }
    std::string operator()(const ReportNote::NotToYou& note) const {
        return reader.translate("It was written to “%1”; here it was delivered to %2.",
                                {quoted(note.to), quotedWord(note.deliveredTo)});
    }
    std::string operator()(const ReportNote::DateUnread& note) const {
        if (!note.older) {
            return reader.translate("The Date line can’t be read: “%1”.", {quoted(note.line)});
        }
        return reader.translate(
            "The Date line can’t be read by the rules of today: “%1”. By older ones it says %2.",
            {quoted(note.line), reader.time(*note.older)});
    }
    std::string operator()(const ReportNote::FromUnread& note) const {
        return reader.translate("From holds no address that Quillmark can read: “%1”", {quoted(note.line)});
    }
    std::string operator()(const NewerDMARC& note) const {
        return sentences({newerOutcome(note, reader), newerCause(note, reader)});
    }
    std::string operator()(const ReportNote::JudgedByNewerDMARC&) const {
        return reader.translate("Judged by DMARC’s rules of 2026 (RFC 9989), as you chose.");
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

namespace {

struct ShortSentence {
    const Reader& reader;
    using Note = ReportNote;

    std::string operator()(const Note::HeaderEndsEarly&) const {
        return reader.translate("A part of the message is neither its header lines nor its text");
    }
    std::string operator()(const Note::ShownNotSigned& note) const {
        return reader.translate("The %1 line that is shown isn’t the one that was signed",
                                {fieldNames({note.field}, reader)});
    }
    std::string operator()(const Note::SigningDomainNoHost& note) const {
        return reader.translate("The signing domain, “%1”, isn’t a valid host name", {quoted(note.domain)});
    }
    std::string operator()(const Note::SigningDomainPublicSuffix& note) const {
        return reader.translate("Anyone can register a name under %1, the signing domain",
                                {quotedDomain(note.domain)});
    }
    std::string operator()(const Note::SignedLinesHold& note) const {
        return reader.translate("Only these lines are as %1 signed them: %2",
                                {quotedDomain(note.domain), fieldNames(note.fields, reader)});
    }
    std::string operator()(const Note::LinesBeforeDropped& note) const {
        return reader.translateCount("%n line before the message was left out",
                                     "%n lines before the message were left out", note.lines);
    }
    std::string operator()(const Note::ReadOtherwise& note) const {
        const std::string address = quotedWord(note.address);
        return equalsIgnoringCase(note.field, "Reply-To")
                   ? reader.translate("Some programs reply to %1", {address})
                   : reader.translate("Some programs show %1 as the sender", {address});
    }
    std::string operator()(const Note::NameShowsAddress& note) const {
        return reader.translate("The sender’s name shows %1; the real address is %2",
                                {quotedDomain(note.shown), quotedWord(note.actual)});
    }
    std::string operator()(const Note::HeadlineNamesOther& note) const {
        return reader.translate("%1 asks receivers to accept only its own signature",
                                {quotedDomain(note.fromDomain)});
    }
    std::string operator()(const Note::KeyProvesNothing& note) const {
        return reader.translate("Even with its key, the signature by %1 would prove nothing about the sender",
                                {quotedDomain(note.domain)});
    }
    std::string operator()(const Note::Undone& note) const {
        return sentences({frontOfUndone(note, reader),
                          reader.translate("Treat as unsigned: %1", {changesInWords(note, reader)})});
    }
    std::string operator()(const Note::AddressClaimed&) const {
        return reader.translate("SPF was judged for an address that the server only claimed");
    }
    std::string operator()(const Note::AnyServerAllowed& note) const {
        return reader.translate("%1 allows almost any server in the world to send its mail",
                                {quotedDomain(note.domain)});
    }
    std::string operator()(const Note::ContentNotSigned&) const {
        return reader.translate("Programs may show another text than the one that was sent");
    }
    std::string operator()(const Note::KeyKnown& note) const {
        if (note.file)
            return reader.translate("Only the file “%1” says whose key the signature fits",
                                    {quoted(*note.file)});
        return reader.translate("With its former key the signature holds, but not for all of the text");
    }
    template <typename Other>
    std::string operator()(const Other& note) const {
        return NoteSentence{reader}(note);
    }
};

}  // namespace

std::string shortSentence(const ReportNote& note, const Reader& reader) {
    return std::visit(ShortSentence{reader}, note.value);
}

std::vector<std::string> details(const ReportNote& note, const Reader& reader) {
    constexpr std::size_t mostLines = 12, longestLine = 120;
    std::vector<std::string> lines;
    const auto* undone = std::get_if<ReportNote::Undone>(&note.value);
    if (!undone) return lines;
    for (const ChangedField& field : undone->fields) {
        const std::string name = fieldNames({field.name}, reader);
        for (const std::string& value : field.shown)
            lines.push_back(reader.translate("%1 now: %2", {name, inert(value)}));
        for (const std::string& value : field.signedValues)
            lines.push_back(reader.translate("%1 signed: %2", {name, inert(value)}));
    }
    const auto addLines = [&](const std::string& excerpt, std::int64_t count,
                              const std::optional<std::string>& last) {
        std::string_view rest = excerpt;
        std::int64_t shown = 0;
        for (; !rest.empty() && shown < std::int64_t{mostLines}; ++shown)
            lines.push_back("  | " + forDisplay(takePiece(rest, '\n'), longestLine));
        const std::int64_t left = count - shown;
        // What the excerpt still holds of them may be all.
        std::string_view end = rest.substr(rest.rfind('\n') + 1);
        const bool isWhole = !end.empty() && std::ranges::count(rest, '\n') + 1 == left;
        if (!isWhole) end = last ? std::string_view(*last) : std::string_view();
        if (const std::int64_t between = left - (end.empty() ? 0 : 1); between > 0)
            lines.push_back("  " + reader.translateCount("and %n more line", "and %n more lines", between));
        if (!end.empty() && left > 0) lines.push_back("  | " + forDisplay(end, longestLine));
    };
    for (const ChangedText& text : undone->texts) {
        using Kind = ChangedText::Kind;
        if (text.excerpt.empty() && !text.type) continue;
        if (text.type) {
            const std::string type = inert(*text.type);
            lines.push_back(
                text.kind == Kind::missing
                    ? reader.translateCount("missing part, signed: %n byte, %1",
                                            "missing part, signed: %n bytes, %1", text.bytes, {type})
                    : reader.translateCount("added part, not signed: %n byte, %1",
                                            "added part, not signed: %n bytes, %1", text.bytes, {type}));
        } else {
            lines.push_back(text.kind == Kind::missing ? reader.translate("missing, but signed")
                            : text.kind == Kind::added ? reader.translate("added, not signed")
                                                       : reader.translate("changed, not signed"));
        }
        addLines(text.excerpt, text.lines, text.last);
        if (!text.signedExcerpt || text.signedExcerpt->empty()) continue;
        lines.push_back(reader.translate("before, as it was signed"));
        addLines(*text.signedExcerpt, text.signedLines.value_or(0), std::nullopt);
    }
    return lines;
}

namespace {

/// Where a note stands, and how loud it is.
struct Place {
    NoteSection section;
    bool isBesideHeadline = false;
    std::optional<Tone> tone = Tone::caution;
};

/// One overload for each note.
struct PlaceOf {
    Tone verdict = Tone::bad;
    using Note = ReportNote;

    Place operator()(const Note::HeaderEndsEarly&) const { return {NoteSection::message, true}; }
    Place operator()(const Note::FromHoldsMore&) const { return {NoteSection::message}; }
    Place operator()(const Note::FromEmpty&) const { return {NoteSection::message}; }
    Place operator()(const Note::ShownNotSigned&) const { return {NoteSection::signatures, true}; }
    Place operator()(const Note::LineOfSender& note) const {
        const bool isResults = equalsIgnoringCase(note.field, "Authentication-Results");
        return {isResults ? NoteSection::receiverResults : NoteSection::sendingServer};
    }
    Place operator()(const Note::SigningDomainNoHost&) const { return {NoteSection::signatures, true}; }
    Place operator()(const Note::SigningDomainPublicSuffix&) const { return {NoteSection::signatures, true}; }
    Place operator()(const Note::SignedAfterCheck&) const { return {NoteSection::signatures}; }
    Place operator()(const Note::SignedLongBefore&) const { return {NoteSection::signatures}; }
    Place operator()(const Note::QuotedFromLines&) const { return {NoteSection::message, false, {}}; }
    Place operator()(const Note::AnswerValidated& note) const {
        using Kind = Note::AnswerValidated::Kind;
        switch (note.kind) {
            case Kind::key:
                break;
            case Kind::policy:
                return {NoteSection::policy, false, {}};
            case Kind::senderPolicy:
                return {NoteSection::sendingServer, false, {}};
            case Kind::forwarderKey:
                return {NoteSection::chain, false, {}};
        }
        return {NoteSection::signatures, false, {}};
    }
    Place operator()(const Note::NewerSignatures&) const { return {NoteSection::signatures, false, {}}; }
    Place operator()(const Note::SignedLinesHold& note) const {
        return {NoteSection::signatures, note.speaksForFrom};
    }
    /// What became of a message explains why nothing was proven; what a field says of it, anyone can say.
    Place operator()(const Damage& note) const {
        return {NoteSection::message, verdict != Tone::good && !note.field, {}};
    }
    Place operator()(const Note::LinesBeforeDropped&) const { return {NoteSection::message, true}; }
    Place operator()(const Note::OutlookFile&) const { return {NoteSection::message, true}; }
    Place operator()(const Note::AnsweredBy&) const { return {NoteSection::message, false, {}}; }
    Place operator()(const Note::ReadOtherwise&) const { return {NoteSection::message, true}; }
    Place operator()(const Note::NameShowsAddress&) const { return {NoteSection::message, true}; }
    Place operator()(const Note::HeadlineNamesOther& note) const {
        return {NoteSection::signatures, note.strict,
                note.strict ? std::optional(Tone::caution) : std::nullopt};
    }
    Place operator()(const Note::KeyProvesNothing&) const { return {NoteSection::signatures, true}; }
    Place operator()(const Note::ActsUnsigned&) const { return {NoteSection::signatures, false, {}}; }
    Place operator()(const Note::SignaturesLeftOut&) const { return {NoteSection::signatures, false, {}}; }
    Place operator()(const Note::SignedAfterArrival&) const { return {NoteSection::signatures}; }
    Place operator()(const Note::HiddenHeaderEnd&) const { return {NoteSection::message}; }
    Place operator()(const Note::Undone& note) const {
        const bool isText = !note.texts.empty() || !note.fields.empty() || note.links > 0;
        return {note.of == SignatureKind::dkim ? NoteSection::signatures : NoteSection::chain,
                note.of == SignatureKind::dkim && note.fromIsOfDomain && verdict != Tone::good,
                isText ? std::optional(Tone::caution) : std::nullopt};
    }
    Place operator()(const Note::OtherKey& note) const {
        return {note.of == SignatureKind::dkim ? NoteSection::signatures : NoteSection::chain, false, {}};
    }
    Place operator()(const Note::AddressClaimed&) const { return {NoteSection::sendingServer, true}; }
    Place operator()(const Note::AnyServerAllowed&) const { return {NoteSection::sendingServer, true}; }
    Place operator()(const Note::ContentNotSigned&) const { return {NoteSection::signatures, true}; }
    Place operator()(const Note::ResultsWithoutCause&) const {
        return {NoteSection::receiverResults, false, {}};
    }
    /// That another key fits explains why the one that counts doesn't.
    Place operator()(const Note::OtherKeyRecord& note) const {
        return {NoteSection::signatures, note.fits, {}};
    }
    Place operator()(const Note::OtherRecordAtKey&) const { return {NoteSection::signatures, false, {}}; }
    /// What this computer saw itself informs, unless there is more to a message than it says.
    Place operator()(const Note::KeyKnown& note) const {
        const bool isCaution = note.file || (note.fit == Note::KeyKnown::Fit::holds && !coversText(note));
        return {NoteSection::signatures, note.speaksForFrom && verdict != Tone::good,
                isCaution ? std::optional(Tone::caution) : std::nullopt};
    }
    Place operator()(const Note::NotToYou&) const { return {NoteSection::signatures}; }
    Place operator()(const Note::DateUnread&) const { return {NoteSection::message, false, {}}; }
    Place operator()(const NewerDMARC&) const { return {NoteSection::policy, false, {}}; }
    Place operator()(const Note::JudgedByNewerDMARC&) const { return {NoteSection::policy, false, {}}; }
    Place operator()(const Note::FromUnread&) const { return {NoteSection::sender, false, {}}; }
    /// Where a note of a newer version would stand nobody knows, so nobody may miss it.
    Place operator()(const UnknownCase&) const { return {NoteSection::message, true}; }
};

}  // namespace

NoteSection sectionOf(const ReportNote& note) { return std::visit(PlaceOf{}, note.value).section; }

std::optional<Tone> tone(const ReportNote& note) { return std::visit(PlaceOf{}, note.value).tone; }

bool standsBesideHeadline(const ReportNote& note, Tone verdict) {
    return std::visit(PlaceOf{verdict}, note.value).isBesideHeadline;
}

std::optional<std::string> insteadOfSender(const ProofReport& report, const Reader& reader) {
    for (const ReportNote& note : report.notes) {
        if (std::holds_alternative<ReportNote::FromUnread>(note.value)) return sentence(note, reader);
    }
    if (!report.summary.from.empty()) return std::nullopt;
    return reader.translate("(no From line)");
}

std::string signatureSentence(const ProofReport& report, const DKIMResult& signature, const Reader& reader) {
    const auto index = &signature - report.dkim.data();
    const bool fitsOther = std::ranges::any_of(report.notes, [&](const ReportNote& note) {
        const auto* other = std::get_if<ReportNote::OtherKeyRecord>(&note.value);
        return other && other->fits && other->signature == index;
    });
    if (!fitsOther) return sentence(signature, reader);
    return reader.translate(
        "By the first of several keys that %1 publishes under one name, the signature doesn’t fit; by "
        "another it does.",
        {quotedDomain(signature.domain)});
}

const ReportNote::Undone* undoneOf(const ProofReport& report) {
    for (const ReportNote& note : report.notes) {
        const auto* undone = std::get_if<ReportNote::Undone>(&note.value);
        if (undone && undone->of == SignatureKind::dkim &&
            equalsIgnoringCase(undone->domain, report.verdict.domain))
            return undone;
    }
    return nullptr;
}

std::string policySentence(const ProofReport& report, const Reader& reader) {
    const DMARCFinding& finding = report.dmarc;
    const bool isAnyProven = std::ranges::any_of(report.notes, [&](const ReportNote& note) {
        const auto* lines = std::get_if<ReportNote::SignedLinesHold>(&note.value);
        const auto* undone = std::get_if<ReportNote::Undone>(&note.value);
        return (lines && lines->speaksForFrom) ||
               (undone && undone->of == SignatureKind::dkim &&
                PublicSuffixList::shared().sameOrganization(undone->domain, finding.fromDomain));
    });
    if (finding.status != DMARCFinding::Status::fail || !isAnyProven) return sentence(finding, reader);
    return reader.translate(
        "By the policy of %1, the domain in From, nothing counts here: a signature counts only when the "
        "whole message fits it.",
        {quotedDomain(finding.fromDomain)});
}

bool formerKeyHolds(const ProofReport& report) {
    return std::ranges::any_of(report.notes, [&](const ReportNote& note) {
        const auto* known = std::get_if<ReportNote::KeyKnown>(&note.value);
        return known && known->speaksForFrom && !tone(note) && known->fit == ReportNote::KeyKnown::Fit::holds;
    });
}

bool otherKeyFits(const ProofReport& report, std::string_view domain) {
    return std::ranges::any_of(report.notes, [&](const ReportNote& note) {
        const auto* other = std::get_if<ReportNote::OtherKeyRecord>(&note.value);
        return other && other->fits && equalsIgnoringCase(other->domain, domain);
    });
}

}  // namespace quillmark
