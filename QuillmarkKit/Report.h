#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "QuillmarkKit/Checks/ARC.h"
#include "QuillmarkKit/Checks/DKIM.h"
#include "QuillmarkKit/Checks/DMARC.h"
#include "QuillmarkKit/Checks/DMARCTreeWalk.h"
#include "QuillmarkKit/Checks/Damage.h"
#include "QuillmarkKit/Checks/GoneKeys.h"
#include "QuillmarkKit/Checks/SPF.h"
#include "QuillmarkKit/Checks/Undo.h"
#include "QuillmarkKit/Checks/Verdict.h"
#include "QuillmarkKit/Checks/WarningSigns.h"
#include "QuillmarkKit/Intake/Containers.h"
#include "QuillmarkKit/Lookups/DomainAge.h"
#include "QuillmarkKit/Mail/AuthResults.h"
#include "QuillmarkKit/Mail/MessageSummary.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Fields.h"
#include "QuillmarkKit/Support/UUID.h"

/// The result of one check: data only; each finding is declared with its check. The names in the tables are a
/// file format (docs/formats.md) and must not change.
namespace quillmark {

/// What a person must know that the verdict does not say. Texts from the message are decoded and cut to about
/// 200 bytes; "…" says that there was more. A note never changes the verdict.
struct ReportNote {
    /// The header block ends at a line that is no header field: what follows was read neither as header
    /// fields nor as the body.
    struct HeaderEndsEarly {
        std::int64_t line = 0;   ///< the line's number in the message, from 1
        std::int64_t bytes = 0;  ///< from that line on, each line end counted as two
        bool operator==(const HeaderEndsEarly&) const = default;
    };
    /// From holds more than the one address that was judged.
    struct FromHoldsMore {
        enum class Kind {
            text,   ///< beside the address
            part,   ///< of the list, or a group's name: no address
            route,  ///< in front of the address, as in <@route:address> and route@domain
        };
        Kind kind = Kind::text;
        std::string address = {};  ///< that was judged
        std::string more = {};
        bool operator==(const FromHoldsMore&) const = default;
    };
    /// From holds no address; other fields name somebody.
    struct FromEmpty {
        std::optional<std::string> sender = {},
                                   resentFrom = {};  ///< the fields' values; at least one is there
        bool operator==(const FromEmpty&) const = default;
    };
    /// The signature that the verdict rests on covers a field of this name, but not the one that is shown.
    struct ShownNotSigned {
        std::string field = {};        ///< "Subject", "Date", "To", "Cc" or "Reply-To"
        std::string shown = {};        ///< the value that is shown
        std::string signedValue = {};  ///< the value that was signed
        std::int64_t count = 0;        ///< how many fields of this name there are
        std::int64_t covered = 0;      ///< how many of them, from below, are signed; at least 1
        bool operator==(const ShownNotSigned&) const = default;
    };
    /// A line that a finding was taken from stands where the sender could have written it.
    struct LineOfSender {
        enum class Why {
            belowReceived,  ///< it stands below a line that the server before the receiver's wrote
            unknownServer,  ///< it stands below the receiver's line and names another server than that does
        };
        std::string field = {};   ///< "Received-SPF", "Received" (give the address), "Authentication-Results"
        std::string server = {};  ///< the address or the server that the line names; may be empty
        Why why = Why::belowReceived;
        bool operator==(const LineOfSender&) const = default;
    };
    /// What `d=` of the signature that the verdict rests on names is no host.
    struct SigningDomainNoHost {
        std::string domain = {};
        bool operator==(const SigningDomainNoHost&) const = default;
    };
    /// It is an ending under which anybody can register a name.
    struct SigningDomainPublicSuffix {
        std::string domain = {};
        bool operator==(const SigningDomainPublicSuffix&) const = default;
    };
    /// By `t=` the signature that the verdict rests on was made after the check.
    struct SignedAfterCheck {
        std::string domain = {};
        Date signedAt = {};
        bool operator==(const SignedAfterCheck&) const = default;
    };
    /// By `t=` it was made long before the message arrived.
    struct SignedLongBefore {
        std::string domain = {};
        Date signedAt = {};
        Date received = {};  ///< the newest date of a Received field
        bool operator==(const SignedLongBefore&) const = default;
    };
    /// The message comes from an mbox, which doesn't tell how "From " lines were quoted in it, and its
    /// signatures fit one reading but not each of the others.
    struct QuotedFromLines {
        FromQuoting reading = FromQuoting::none;  ///< the one that fits, of which the report is
        std::int64_t lines = 0;                   ///< that may have been quoted
        bool operator==(const QuotedFromLines&) const = default;
    };
    /// DNS said that an answer a finding rests on was validated (DNSSEC, RFC 4035, section 3.2.3).
    struct AnswerValidated {
        enum class Kind {
            key,           ///< of a DKIM signature that holds
            policy,        ///< the sender's DMARC record
            senderPolicy,  ///< the envelope sender's SPF record
            forwarderKey,  ///< of a seal or message signature in an ARC chain that holds
        };
        Kind kind = Kind::key;
        std::string name = {};  ///< the name that was asked for
        bool operator==(const AnswerValidated&) const = default;
    };
    /// The message carries fields of DKIM2 (draft-ietf-dkim-dkim2-spec), which were not checked.
    struct NewerSignatures {
        std::int64_t count = 0;                      ///< `DKIM2-Signature`
        std::optional<std::int64_t> instances = {};  ///< `Message-Instance`; nothing when there is none
        bool operator==(const NewerSignatures&) const = default;
    };
    /// The body isn't the one that this signature covers, and the header lines are: `b=` verifies over them.
    struct SignedLinesHold {
        std::int64_t signature = 0;            ///< its place in the report's `dkim`, from 0
        std::string domain = {};               ///< `d=`
        bool speaksForFrom = false;            ///< it is of From’s organization, of which none holds whole
        std::vector<std::string> fields = {};  ///< of which every one in the message is signed; never empty
        /// Signed lines that had to be taken back to what they were for `b=` to verify.
        std::vector<ChangedField> changed = {};
        bool operator==(const SignedLinesHold&) const = default;
    };
    /// How the message was kept or copied changed its bytes.
    using Damage = quillmark::Damage;
    /// Lines before the message were dropped: no header lines, or, of a text that was pasted, a summary of
    /// it.
    struct LinesBeforeDropped {
        std::int64_t lines = 0;  ///< those that are not empty; at least 1
        std::string first = {};  ///< of them
        bool operator==(const LinesBeforeDropped&) const = default;
    };
    /// The message comes from a file of Outlook's, which shows a text that it made of what was signed.
    struct OutlookFile {
        bool hasBody = false;  ///< the message's own body is in it, too, and was checked
        bool operator==(const OutlookFile&) const = default;
    };
    /// The finding is judged by RFC 9989, as the person chose.
    struct JudgedByNewerDMARC : Unit {};
    /// Programs that read a field by other rules show an address of another organization.
    struct ReadOtherwise {
        std::string field = {};    ///< "From" or "Reply-To"
        std::string address = {};  ///< that they show
        bool operator==(const ReadOtherwise&) const = default;
    };
    /// The sender's name, as mail programs show it, holds a domain of another organization, and no warning
    /// sign says so.
    struct NameShowsAddress {
        std::string shown = {};   ///< the domain
        std::string actual = {};  ///< the address that was judged
        bool operator==(const NameShowsAddress&) const = default;
    };
    /// The signing domain is another one than that in From, though of one organization with it.
    struct HeadlineNamesOther {
        std::string domain = {}, fromDomain = {};
        bool strict = false;  ///< the policy of the From domain asks for signatures by that very domain
        bool operator==(const HeadlineNamesOther&) const = default;
    };
    /// No signature of which the key is missing is of the organization in From: no key could prove anything
    /// of it.
    struct KeyProvesNothing {
        std::string domain = {}, fromDomain = {};  ///< who signed; in From, may be empty
        std::optional<std::string> policy = {};    ///< what the From domain asks for (`p=` or `sp=`)
        bool operator==(const KeyProvesNothing&) const = default;
    };
    /// Fields that programs act on, of which no signature that holds covers each in the message.
    struct ActsUnsigned {
        std::vector<std::string> fields = {};
        bool operator==(const ActsUnsigned&) const = default;
    };
    /// There are more signatures than are checked.
    struct SignaturesLeftOut {
        std::int64_t count = 0;  ///< of those that nobody looked at
        bool operator==(const SignaturesLeftOut&) const = default;
    };
    /// By `t=` the signature that the verdict rests on was made after the message arrived.
    struct SignedAfterArrival {
        std::string domain = {};
        Date signedAt = {};
        Date received = {};  ///< the newest date of a Received field
        bool operator==(const SignedAfterArrival&) const = default;
    };
    /// A line of blanks stands inside the header block: programs that end it there don't see this field.
    struct HiddenHeaderEnd {
        std::string field = {};  ///< the first of those that matter
        bool operator==(const HiddenHeaderEnd&) const = default;
    };
    /// A broken signature holds again once what was changed on the way is taken back.
    struct Undone {
        SignatureKind of = SignatureKind::dkim;
        std::int64_t index = 0;                      ///< its place in `dkim`, from 0, or the ARC instance
        std::string domain = {};                     ///< `d=`
        std::optional<std::string> signedFrom = {};  ///< the From line as it was signed, when it differs
        bool fromIsOfDomain = false;                 ///< that line's address is of the domain's organization
        std::vector<ChangedField> fields = {};
        std::vector<ChangedText> texts = {};  ///< in message order
        std::vector<RewrittenForm> forms = {};
        std::int64_t links = 0;  ///< that a protection service had rewritten
        std::int64_t signedBytes = 0, addedBytes = 0;
        std::optional<std::int64_t> signedOnly = {};  ///< `l=`
        bool operator==(const Undone&) const = default;
    };
    /// The key that is published now isn't the one that made an RSA signature, or that is damaged.
    struct OtherKey {
        SignatureKind of = SignatureKind::dkim;
        std::int64_t index = 0;  ///< as above
        std::string domain = {};
        bool operator==(const OtherKey&) const = default;
    };
    /// SPF was judged for an address that the sending server announced itself, and the Received line holds
    /// the one at which it was seen.
    struct AddressClaimed {
        std::string claimed = {}, seen = {};
        bool operator==(const AddressClaimed&) const = default;
    };
    /// The SPF record that the server passes allows almost any server.
    struct AnyServerAllowed {
        std::string domain = {};  ///< of the envelope
        std::string term = {};    ///< that decided, in the record that it led to
        bool operator==(const AnyServerAllowed&) const = default;
    };
    /// A field that tells programs how to show the text isn't signed, and the text isn't as it says.
    struct ContentNotSigned {
        enum class Why { repeated, noParts, textAboveParts, textBelowParts, otherType, otherEncoding };
        std::string field = {};  ///< "Content-Type", "Content-Transfer-Encoding", …
        std::string value = {};  ///< of the topmost
        Why why = Why::repeated;
        bool operator==(const ContentNotSigned&) const = default;
    };
    /// The receiving server says that a signature holds which isn't in the message.
    struct ResultsWithoutCause {
        std::string server = {}, domain = {};  ///< who says so; who is said to have signed
        bool operator==(const ResultsWithoutCause&) const = default;
    };
    /// Several keys are published under one name, and the one that counts doesn't fit this signature.
    struct OtherKeyRecord {
        std::int64_t signature = 0;  ///< its place in the report's `dkim`, from 0
        std::string domain = {};     ///< `d=`
        bool fits = false;           ///< another of them does
        bool operator==(const OtherKeyRecord&) const = default;
    };
    /// At the name of a signature's key stands a record of another kind.
    struct OtherRecordAtKey {
        std::string domain = {};   ///< `d=`
        std::string version = {};  ///< `v=` of the record: "spf1"
        bool operator==(const OtherRecordAtKey&) const = default;
    };
    /// A message that was signed long before it arrived was written to others than it was delivered to.
    struct NotToYou {
        std::string to = {};           ///< the signed field, as it stands
        std::string deliveredTo = {};  ///< by the receiver's own lines
        bool operator==(const NotToYou&) const = default;
    };
    /// The Date field can't be read by the rules of today.
    struct DateUnread {
        std::string line = {};           ///< as it stands
        std::optional<Date> older = {};  ///< what older rules make of it
        bool operator==(const DateUnread&) const = default;
    };
    /// There is a From field, and no address in it.
    struct FromUnread {
        std::string line = {};  ///< the field's value
        bool operator==(const FromUnread&) const = default;
    };
    /// DNS answers came from somebody else than the usual services.
    struct AnsweredBy {
        std::string resolver = {};  ///< as `DNSResolver::source` calls it: a host, or "system"
        bool operator==(const AnsweredBy&) const = default;
    };
    /// What a signature whose key is gone comes to with a key that its name is known to have had.
    struct KeyKnown {
        using Fit = GoneKey::Fit;
        std::int64_t signature = 0;  ///< its place in the report's `dkim`, from 0
        std::string name = {};       ///< of the key in DNS
        bool speaksForFrom = false;  ///< the domain is of From’s organization
        Fit fit = Fit::holds;
        Date firstSeen = {}, lastSeen = {};              ///< when the key stood there
        std::string service = {};                        ///< that answered, by its host; may be empty
        bool validated = false;                          ///< the service said so of its answer
        std::optional<std::string> file = {};            ///< that says so; nothing: this computer saw it
        std::optional<Date> addedAt = {};                ///< when that was added to the key book
        bool bodyChecked = false;                        ///< not only the header lines
        std::optional<std::int64_t> unsignedBytes = {};  ///< of the text, beyond `l=`
        bool operator==(const KeyKnown&) const = default;
    };
    std::variant<HeaderEndsEarly, FromHoldsMore, FromEmpty, ShownNotSigned, LineOfSender, SigningDomainNoHost,
                 SigningDomainPublicSuffix, SignedAfterCheck, SignedLongBefore, QuotedFromLines,
                 AnswerValidated, NewerSignatures, SignedLinesHold, Damage, LinesBeforeDropped, ReadOtherwise,
                 NameShowsAddress, HeadlineNamesOther, KeyProvesNothing, ActsUnsigned, SignaturesLeftOut,
                 SignedAfterArrival, HiddenHeaderEnd, Undone, OtherKey, AddressClaimed, AnyServerAllowed,
                 ContentNotSigned, ResultsWithoutCause, OtherKeyRecord, OtherRecordAtKey, NotToYou,
                 DateUnread, FromUnread, OutlookFile, NewerDMARC, JudgedByNewerDMARC, AnsweredBy, KeyKnown,
                 UnknownCase>
        value = HeaderEndsEarly{};
    bool operator==(const ReportNote&) const = default;
};
constexpr auto namesOf(ReportNote::FromHoldsMore::Kind) {
    return EnumTable<ReportNote::FromHoldsMore::Kind, 3>{EnumStyle::word, {"text", "part", "route"}};
}
constexpr auto namesOf(ReportNote::LineOfSender::Why) {
    return EnumTable<ReportNote::LineOfSender::Why, 2>{EnumStyle::word, {"belowReceived", "unknownServer"}};
}
constexpr auto namesOf(ReportNote::AnswerValidated::Kind) {
    return EnumTable<ReportNote::AnswerValidated::Kind, 4>{EnumStyle::word,
                                                           {"key", "policy", "senderPolicy", "forwarderKey"}};
}
constexpr auto namesOf(ReportNote::ContentNotSigned::Why) {
    return EnumTable<ReportNote::ContentNotSigned::Why, 6>{
        EnumStyle::word,
        {"repeated", "noParts", "textAboveParts", "textBelowParts", "otherType", "otherEncoding"}};
}
constexpr auto casesOf(const ReportNote*) {
    return std::array{"headerEndsEarly",
                      "fromHoldsMore",
                      "fromEmpty",
                      "shownNotSigned",
                      "lineOfSender",
                      "signingDomainNoHost",
                      "signingDomainPublicSuffix",
                      "signedAfterCheck",
                      "signedLongBefore",
                      "quotedFromLines",
                      "answerValidated",
                      "newerSignatures",
                      "signedLinesHold",
                      "damage",
                      "linesBeforeDropped",
                      "readOtherwise",
                      "nameShowsAddress",
                      "headlineNamesOther",
                      "keyProvesNothing",
                      "actsUnsigned",
                      "signaturesLeftOut",
                      "signedAfterArrival",
                      "hiddenHeaderEnd",
                      "undone",
                      "otherKey",
                      "addressClaimed",
                      "anyServerAllowed",
                      "contentNotSigned",
                      "resultsWithoutCause",
                      "otherKeyRecord",
                      "otherRecordAtKey",
                      "notToYou",
                      "dateUnread",
                      "fromUnread",
                      "outlookFile",
                      "newerDMARC",
                      "judgedByNewerDMARC",
                      "answeredBy",
                      "keyKnown"};
}
constexpr auto fieldsOf(const ReportNote::HeaderEndsEarly*) {
    using T = ReportNote::HeaderEndsEarly;
    return std::tuple{Field{"line", &T::line}, Field{"bytes", &T::bytes}};
}
constexpr auto fieldsOf(const ReportNote::FromHoldsMore*) {
    using T = ReportNote::FromHoldsMore;
    return std::tuple{Field{"kind", &T::kind}, Field{"address", &T::address}, Field{"more", &T::more}};
}
constexpr auto fieldsOf(const ReportNote::FromEmpty*) {
    using T = ReportNote::FromEmpty;
    return std::tuple{Field{"sender", &T::sender}, Field{"resentFrom", &T::resentFrom}};
}
constexpr auto fieldsOf(const ReportNote::ShownNotSigned*) {
    using T = ReportNote::ShownNotSigned;
    return std::tuple{Field{"field", &T::field}, Field{"shown", &T::shown}, Field{"signed", &T::signedValue},
                      Field{"count", &T::count}, Field{"covered", &T::covered}};
}
constexpr auto fieldsOf(const ReportNote::LineOfSender*) {
    using T = ReportNote::LineOfSender;
    return std::tuple{Field{"field", &T::field}, Field{"server", &T::server}, Field{"why", &T::why}};
}
constexpr auto fieldsOf(const ReportNote::SigningDomainNoHost*) {
    return std::tuple{Field{"domain", &ReportNote::SigningDomainNoHost::domain}};
}
constexpr auto fieldsOf(const ReportNote::SigningDomainPublicSuffix*) {
    return std::tuple{Field{"domain", &ReportNote::SigningDomainPublicSuffix::domain}};
}
constexpr auto fieldsOf(const ReportNote::SignedAfterCheck*) {
    using T = ReportNote::SignedAfterCheck;
    return std::tuple{Field{"domain", &T::domain}, Field{"signedAt", &T::signedAt}};
}
constexpr auto fieldsOf(const ReportNote::SignedLongBefore*) {
    using T = ReportNote::SignedLongBefore;
    return std::tuple{Field{"domain", &T::domain}, Field{"signedAt", &T::signedAt},
                      Field{"received", &T::received}};
}
constexpr auto fieldsOf(const ReportNote::QuotedFromLines*) {
    using T = ReportNote::QuotedFromLines;
    return std::tuple{Field{"reading", &T::reading}, Field{"lines", &T::lines}};
}
constexpr auto fieldsOf(const ReportNote::AnswerValidated*) {
    using T = ReportNote::AnswerValidated;
    return std::tuple{Field{"kind", &T::kind}, Field{"name", &T::name}};
}
constexpr auto fieldsOf(const ReportNote::NewerSignatures*) {
    using T = ReportNote::NewerSignatures;
    return std::tuple{Field{"count", &T::count}, Field{"instances", &T::instances}};
}
constexpr auto fieldsOf(const ReportNote::SignedLinesHold*) {
    using T = ReportNote::SignedLinesHold;
    return std::tuple{Field{"signature", &T::signature}, Field{"domain", &T::domain},
                      Field{"speaksForFrom", &T::speaksForFrom}, Field{"fields", &T::fields},
                      Field{"changed", &T::changed, WhenEmpty::leftOut}};
}
constexpr auto fieldsOf(const ReportNote::LinesBeforeDropped*) {
    using T = ReportNote::LinesBeforeDropped;
    return std::tuple{Field{"lines", &T::lines}, Field{"first", &T::first}};
}
constexpr auto fieldsOf(const ReportNote::OutlookFile*) {
    return std::tuple{Field{"hasBody", &ReportNote::OutlookFile::hasBody}};
}
constexpr auto fieldsOf(const ReportNote::AnsweredBy*) {
    return std::tuple{Field{"resolver", &ReportNote::AnsweredBy::resolver}};
}
constexpr auto fieldsOf(const ReportNote::ReadOtherwise*) {
    using T = ReportNote::ReadOtherwise;
    return std::tuple{Field{"field", &T::field}, Field{"address", &T::address}};
}
constexpr auto fieldsOf(const ReportNote::NameShowsAddress*) {
    using T = ReportNote::NameShowsAddress;
    return std::tuple{Field{"shown", &T::shown}, Field{"actual", &T::actual}};
}
constexpr auto fieldsOf(const ReportNote::HeadlineNamesOther*) {
    using T = ReportNote::HeadlineNamesOther;
    return std::tuple{Field{"domain", &T::domain}, Field{"fromDomain", &T::fromDomain},
                      Field{"strict", &T::strict}};
}
constexpr auto fieldsOf(const ReportNote::KeyProvesNothing*) {
    using T = ReportNote::KeyProvesNothing;
    return std::tuple{Field{"domain", &T::domain}, Field{"fromDomain", &T::fromDomain},
                      Field{"policy", &T::policy}};
}
constexpr auto fieldsOf(const ReportNote::ActsUnsigned*) {
    using T = ReportNote::ActsUnsigned;
    return std::tuple{Field{"fields", &T::fields}};
}
constexpr auto fieldsOf(const ReportNote::SignaturesLeftOut*) {
    using T = ReportNote::SignaturesLeftOut;
    return std::tuple{Field{"count", &T::count}};
}
constexpr auto fieldsOf(const ReportNote::SignedAfterArrival*) {
    using T = ReportNote::SignedAfterArrival;
    return std::tuple{Field{"domain", &T::domain}, Field{"signedAt", &T::signedAt},
                      Field{"received", &T::received}};
}
constexpr auto fieldsOf(const ReportNote::HiddenHeaderEnd*) {
    using T = ReportNote::HiddenHeaderEnd;
    return std::tuple{Field{"field", &T::field}};
}
constexpr auto fieldsOf(const ReportNote::Undone*) {
    using T = ReportNote::Undone;
    return std::tuple{Field{"of", &T::of},
                      Field{"index", &T::index},
                      Field{"domain", &T::domain},
                      Field{"signedFrom", &T::signedFrom},
                      Field{"fromIsOfDomain", &T::fromIsOfDomain},
                      Field{"fields", &T::fields},
                      Field{"texts", &T::texts},
                      Field{"forms", &T::forms},
                      Field{"links", &T::links},
                      Field{"signedBytes", &T::signedBytes},
                      Field{"addedBytes", &T::addedBytes},
                      Field{"signedOnly", &T::signedOnly}};
}
constexpr auto fieldsOf(const ReportNote::OtherKey*) {
    using T = ReportNote::OtherKey;
    return std::tuple{Field{"of", &T::of}, Field{"index", &T::index}, Field{"domain", &T::domain}};
}
constexpr auto fieldsOf(const ReportNote::AddressClaimed*) {
    using T = ReportNote::AddressClaimed;
    return std::tuple{Field{"claimed", &T::claimed}, Field{"seen", &T::seen}};
}
constexpr auto fieldsOf(const ReportNote::AnyServerAllowed*) {
    using T = ReportNote::AnyServerAllowed;
    return std::tuple{Field{"domain", &T::domain}, Field{"term", &T::term}};
}
constexpr auto fieldsOf(const ReportNote::ContentNotSigned*) {
    using T = ReportNote::ContentNotSigned;
    return std::tuple{Field{"field", &T::field}, Field{"value", &T::value}, Field{"why", &T::why}};
}
constexpr auto fieldsOf(const ReportNote::ResultsWithoutCause*) {
    using T = ReportNote::ResultsWithoutCause;
    return std::tuple{Field{"server", &T::server}, Field{"domain", &T::domain}};
}
constexpr auto fieldsOf(const ReportNote::OtherKeyRecord*) {
    using T = ReportNote::OtherKeyRecord;
    return std::tuple{Field{"signature", &T::signature}, Field{"domain", &T::domain},
                      Field{"fits", &T::fits}};
}
constexpr auto fieldsOf(const ReportNote::OtherRecordAtKey*) {
    using T = ReportNote::OtherRecordAtKey;
    return std::tuple{Field{"domain", &T::domain}, Field{"version", &T::version}};
}
constexpr auto fieldsOf(const ReportNote::NotToYou*) {
    using T = ReportNote::NotToYou;
    return std::tuple{Field{"to", &T::to}, Field{"deliveredTo", &T::deliveredTo}};
}
constexpr auto fieldsOf(const ReportNote::DateUnread*) {
    using T = ReportNote::DateUnread;
    return std::tuple{Field{"line", &T::line}, Field{"older", &T::older}};
}
constexpr auto fieldsOf(const ReportNote::FromUnread*) {
    using T = ReportNote::FromUnread;
    return std::tuple{Field{"line", &T::line}};
}
constexpr auto fieldsOf(const ReportNote::KeyKnown*) {
    using T = ReportNote::KeyKnown;
    return std::tuple{Field{"signature", &T::signature},
                      Field{"name", &T::name},
                      Field{"speaksForFrom", &T::speaksForFrom},
                      Field{"fit", &T::fit},
                      Field{"firstSeen", &T::firstSeen},
                      Field{"lastSeen", &T::lastSeen},
                      Field{"service", &T::service},
                      Field{"validated", &T::validated},
                      Field{"file", &T::file},
                      Field{"addedAt", &T::addedAt},
                      Field{"bodyChecked", &T::bodyChecked},
                      Field{"unsignedBytes", &T::unsignedBytes}};
}

/// The complete, self-contained result of checking one message.
struct ProofReport {
    UUID id = {};
    Date checkedAt = {};
    std::optional<std::string> fileName = {};
    MessageSummary summary = {};
    bool headersOnly = false;  ///< the message has no body
    std::vector<DKIMResult> dkim = {};
    SPFFinding spf = {};
    DMARCFinding dmarc = {};
    ARCFinding arc = {};
    std::vector<AuthResults> receiverResults = {};  ///< topmost first
    std::vector<LookAlikeFlag> flags = {};          ///< in the order they were raised
    DomainAge domainAge = {};
    Verdict verdict = {};
    std::vector<Limit> limits = {};
    std::vector<ReportNote> notes = {};  ///< left out of the JSON when there are none
    UnknownMembers unknown = {};         ///< of a report that a newer program wrote
    bool operator==(const ProofReport&) const = default;
};
constexpr auto fieldsOf(const ProofReport*) {
    using T = ProofReport;
    return std::tuple{Field{"id", &T::id},
                      Field{"checkedAt", &T::checkedAt},
                      Field{"fileName", &T::fileName},
                      Field{"summary", &T::summary},
                      Field{"headersOnly", &T::headersOnly},
                      Field{"dkim", &T::dkim},
                      Field{"spf", &T::spf},
                      Field{"dmarc", &T::dmarc},
                      Field{"arc", &T::arc},
                      Field{"receiverResults", &T::receiverResults},
                      Field{"flags", &T::flags},
                      Field{"domainAge", &T::domainAge},
                      Field{"verdict", &T::verdict},
                      Field{"limits", &T::limits},
                      Field{"notes", &T::notes, WhenEmpty::leftOut}};
}

}  // namespace quillmark
