#include "QuillmarkKit/Notes.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "QuillmarkKit/Checks/ARC.h"
#include "QuillmarkKit/Checks/ContentFaults.h"
#include "QuillmarkKit/Mail/Addresses.h"
#include "QuillmarkKit/Mail/IPAddress.h"
#include "QuillmarkKit/Mail/Received.h"
#include "QuillmarkKit/Mail/SenderReadings.h"
#include "QuillmarkKit/Mail/TagList.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

using Notes = std::vector<ReportNote>;

constexpr std::size_t longestExcerpt = 200;
constexpr std::size_t mostChainKeys = 10;                    // of which a note is made
constexpr std::size_t mostFieldNames = 12;                   // of signed lines that are told
constexpr std::size_t longestReading = 100'000;              // bytes of a field or name read anew
constexpr std::size_t mostReread = 2'000'000;                // of all fields of a name
constexpr std::size_t mostKnown = 10;                        // addresses that readings are compared with
constexpr std::size_t longestHost = 253, longestLabel = 63;  // RFC 1035, section 2.3.4, as text
constexpr auto clockError = std::chrono::minutes(10);
/// A server may try for five days to deliver a message (RFC 5321, section 4.5.4.1), and a list may hold it.
constexpr auto longDelay = std::chrono::days(7);
constexpr auto wrongDay = std::chrono::days(1);  // no clock and no time zone is wrong by more

std::string cutExcerpt(std::string text) {
    if (text.size() <= longestExcerpt) return text;
    std::size_t end = longestExcerpt;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return text.substr(0, end) + "…";
}

/// What a person needs to recognise a text: decoded, and not the megabytes that a message can hold.
std::string excerpt(std::string_view text) { return cutExcerpt(EncodedWords::decode(text)); }

/// A domain that DNS can hold is never cut: its end says whose it is.
std::string domainExcerpt(const std::string& domain) {
    return domain.size() <= longestHost ? domain : excerpt(domain);
}

std::optional<std::string> excerptOfFirst(const MailMessage& message, std::string_view name) {
    const HeaderField* field = message.first(name);
    std::string text = field ? excerpt(field->value()) : std::string();
    if (text.empty()) return std::nullopt;
    return text;
}

void addHeaderEnd(Notes& notes, const MailMessage& message) {
    const auto end = message.earlyEnd();
    if (!end) return;
    notes.push_back({ReportNote::HeaderEndsEarly{static_cast<std::int64_t>(end->line),
                                                 static_cast<std::int64_t>(end->bytes)}});
}

// Who the message says sent it

/// What the From fields hold besides the address; of each kind the first.
void addFromExtras(Notes& notes, const MailMessage& message, const std::string& address) {
    using Kind = ReportNote::FromHoldsMore::Kind;
    std::string text, part, route;
    for (const auto position : message.positions("From")) {
        const std::string value = message.headers()[position].value();
        const AddressExtras extras = MailAddress::extras(value);
        if (text.empty()) text = excerpt(extras.text);
        if (part.empty()) part = excerpt(extras.part);
        if (route.empty()) route = excerpt(extras.route);
    }
    for (auto& [kind, more] : {std::pair{Kind::text, &text}, {Kind::part, &part}, {Kind::route, &route}}) {
        if (more->empty()) continue;
        notes.push_back({ReportNote::FromHoldsMore{kind, excerpt(address), std::move(*more)}});
    }
}

void addSender(Notes& notes, const MailMessage& message, const PackedList<MailAddress>& from) {
    if (from.size() == 1) addFromExtras(notes, message, from.front().address);
    if (std::ranges::any_of(from, [](const MailAddress& entry) { return !entry.address.empty(); })) return;
    ReportNote::FromEmpty others{excerptOfFirst(message, "Sender"), excerptOfFirst(message, "Resent-From")};
    if (others.sender || others.resentFrom) notes.push_back({std::move(others)});
    if (auto line = excerptOfFirst(message, "From"))
        notes.push_back({ReportNote::FromUnread{std::move(*line)}});
}

void addDate(Notes& notes, const MailMessage& message, const ProofReport& report) {
    const HeaderField* field = message.first("Date");
    if (!field || report.summary.date) return;
    const std::string value = field->value();
    if (value.empty()) return;
    notes.push_back({ReportNote::DateUnread{excerpt(value), parsedObsoleteMailDate(value)}});
}

/// Whether a name is a host of another organization than each of these addresses.
bool isStranger(std::string_view domain, const PackedList<MailAddress>& known,
                const PublicSuffixList& suffixes) {
    if (domain.find('.') == std::string_view::npos) return false;
    return std::ranges::none_of(known, [&](const MailAddress& address) {
        return suffixes.sameOrganization(domain, MailAddress::domainPart(address.address));
    });
}

/// The domains that warning signs tell of already.
std::vector<std::string> domainsWarnedOf(const ProofReport& report, const PublicSuffixList& suffixes) {
    std::vector<std::string> domains;
    for (const LookAlikeFlag& flag : report.flags) {
        const auto* name = std::get_if<LookAlikeFlag::DisplayNameMismatch>(&flag.value);
        const auto* reply = std::get_if<LookAlikeFlag::ReplyToDiffers>(&flag.value);
        if (name && name->shown.size() <= longestReading)
            std::ranges::move(domainsIn(name->shown, suffixes), std::back_inserter(domains));
        if (reply && reply->replyTo.size() <= longestReading)
            domains.push_back(MailAddress::domainPart(reply->replyTo));
    }
    return domains;
}

/// The values of a field, for From with the one that a first line "From : …" holds, which programs other than
/// for mailboxes read.
std::vector<std::string> valuesToRead(const MailMessage& message, std::string_view field) {
    std::vector<std::string> values;
    for (const auto position : message.positions(field))
        values.push_back(message.headers()[position].value());
    const std::string_view line = message.separatorLine();
    const auto colon = line.find(':');
    if (colon != std::string_view::npos && equalsIgnoringCase(trimmedBlanks(line.substr(0, colon)), field))
        values.push_back(HeaderField{line, field}.value());
    return values;
}

/// The first address by other programs' readings of a field that is a stranger's.
void addOtherReading(Notes& notes, const MailMessage& message, const ProofReport& report,
                     std::string_view field, const PackedList<MailAddress>& known,
                     const PublicSuffixList& suffixes) {
    if (known.size() > mostKnown) return;  // they are shown as several
    const auto warned = domainsWarnedOf(report, suffixes);
    const auto isWarnedOf = [&](std::string_view domain) {
        return std::ranges::any_of(
            warned, [&](const std::string& other) { return suffixes.sameOrganization(domain, other); });
    };
    std::set<std::string> domains, organizations;  // that were looked at
    const auto isNews = [&](const std::string& address) {
        const std::string domain = MailAddress::domainPart(address);
        return domain.find('.') != std::string::npos && domains.insert(domain).second &&
               organizations.insert(suffixes.organizationalDomain(comparableDomain(domain))).second &&
               isStranger(domain, known, suffixes) && !isWarnedOf(domain);
    };
    std::size_t left = mostReread;
    for (const std::string& value : valuesToRead(message, field)) {
        if (value.size() > std::min(longestReading, left)) continue;  // no program shows the like
        left -= value.size();
        std::vector<std::string> readings = readableAddresses(value);
        if (auto bracketed = firstBracketed(value)) readings.push_back(std::move(*bracketed));
        for (const MailAddress& address : known) readings.push_back(upToEndOfDomain(address.address));
        const auto found = std::ranges::find_if(readings, isNews);
        if (found == readings.end()) continue;
        notes.push_back({ReportNote::ReadOtherwise{std::string(field), excerpt(*found)}});
        return;
    }
}

void addShownName(Notes& notes, const ProofReport& report, const PublicSuffixList& suffixes) {
    const auto& from = report.summary.from;
    if (from.size() != 1) return;
    const MailAddress sender = from.front();
    if (!sender.displayName || sender.displayName->size() > longestReading) return;
    const bool isWarned = std::ranges::any_of(report.flags, [](const LookAlikeFlag& flag) {
        return std::holds_alternative<LookAlikeFlag::DisplayNameMismatch>(flag.value);
    });
    if (isWarned) return;
    for (const std::string& domain : domainsIn(shownName(*sender.displayName), suffixes)) {
        if (!isStranger(domain, from, suffixes)) continue;
        notes.push_back({ReportNote::NameShowsAddress{excerpt(domain), excerpt(sender.address)}});
        return;
    }
}

/// A folded line without anything but blanks ends the header for some programs: what stands below it they
/// take for text.
void addHiddenEnd(Notes& notes, const MailMessage& message) {
    bool isHidden = false;
    for (const HeaderField& field : message.headers()) {
        for (const std::string_view name : {"From", "Sender", "Subject", "Date", "Content-Type"}) {
            if (!isHidden || !equalsIgnoringCase(field.name, name)) continue;
            notes.push_back({ReportNote::HiddenHeaderEnd{std::string(name)}});
            return;
        }
        std::string_view rest = field.raw;
        while (!isHidden && !rest.empty()) isHidden = trimmed(takePiece(rest, '\n'), " \t\r").empty();
    }
}

// What the signature covers

/// The signature that the verdict rests on; null when it rests on none that holds.
const DKIMResult* decisiveSignature(const ProofReport& report) {
    const VerdictKind kind = report.verdict.kind;
    if (kind != VerdictKind::verified && kind != VerdictKind::verifiedHeadersOnly &&
        kind != VerdictKind::signedByOther) {
        return nullptr;
    }
    const auto found = std::ranges::find_if(report.dkim, [&](const DKIMResult& result) {
        return result.status == DKIMResult::Status::pass && result.domain == report.verdict.domain &&
               (kind != VerdictKind::verified || result.bodyChecked);
    });
    return found == report.dkim.end() ? nullptr : &*found;
}

/// A signature covers as many fields of a name as `h=` names, from below (RFC 6376, section 5.4.2). Of
/// Subject and Date the topmost is shown; of addresses all are, so that the first that differs is the one
/// that counts.
void addUnsignedField(Notes& notes, const MailMessage& message, const DKIMResult& signature,
                      std::string_view name, bool isList) {
    const auto positions = message.positions(name);
    const auto covered = static_cast<std::size_t>(std::ranges::count_if(
        signature.signedHeaders, [&](std::string_view field) { return equalsIgnoringCase(field, name); }));
    if (covered == 0 || covered >= positions.size()) return;
    const auto& fields = message.headers();
    const auto added = positions.first(positions.size() - covered);
    const std::string signedValue = fields[positions[added.size()]].value();
    for (const auto position : isList ? added : added.first(1)) {
        const std::string shown = fields[position].value();
        if (shown == signedValue) continue;
        notes.push_back({ReportNote::ShownNotSigned{std::string(name), excerpt(shown), excerpt(signedValue),
                                                    static_cast<std::int64_t>(positions.size()),
                                                    static_cast<std::int64_t>(covered)}});
        return;
    }
}

void addUnsignedFields(Notes& notes, const MailMessage& message, const DKIMResult& signature) {
    for (const std::string_view name : {"Subject", "Date"})
        addUnsignedField(notes, message, signature, name, false);
    for (const std::string_view name : {"To", "Cc", "Reply-To"})
        addUnsignedField(notes, message, signature, name, true);
}

/// The names in `h=` of which every field of the message is signed; those that a reader goes by come first.
std::vector<std::string> signedFields(const MailMessage& message, const DKIMResult& signature) {
    std::map<std::string, std::size_t> covered;
    for (const std::string_view name : signature.signedHeaders) {
        if (message.first(name)) ++covered[asciiLowered(name)];
    }
    std::vector<std::string> fields;
    const auto add = [&](std::string_view name) {
        const auto found = covered.find(asciiLowered(name));
        const std::size_t count = message.positions(name).size();
        if (fields.size() == mostFieldNames || found == covered.end()) return;
        if (count > 0 && found->second >= count) fields.push_back(excerpt(name));
        covered.erase(found);  // of `h=`, which may be long, each name is looked at once
    };
    for (const std::string_view name : {"From", "Subject", "Date", "To", "Cc", "Reply-To"}) add(name);
    for (const std::string_view name : signature.signedHeaders) add(name);
    return fields;
}

/// Two values of a content field, for programs: blanks and comments say nothing, and of letters only those of
/// a boundary have a case.
bool sayTheSame(const std::string& a, const std::string& b) {
    const std::string left = withoutWhitespace(withoutComments(a)),
                      right = withoutWhitespace(withoutComments(b));
    if (left == right) return true;
    return equalsIgnoringCase(left, right) && asciiLowered(left).find("boundary") == std::string::npos;
}

/// How the topmost of these fields, or all of them together, mislead about the text.
std::optional<ReportNote::ContentNotSigned::Why> contentFault(const MailMessage& message,
                                                              std::span<const std::uint32_t> positions) {
    using Why = ReportNote::ContentNotSigned::Why;
    const HeaderField& field = message.headers()[positions.front()];
    const std::string value = field.value();
    for (const auto position : positions.subspan(1)) {
        if (!sayTheSame(value, message.headers()[position].value())) return Why::repeated;
    }
    const auto plainValue = [&](std::string_view name) {
        const HeaderField* first = message.first(name);
        return first ? withoutComments(first->value()) : std::string();
    };
    const std::string type = plainValue("Content-Type"), encoding = plainValue("Content-Transfer-Encoding");
    const std::string_view body = message.body().value_or("");
    std::optional<ContentFault> fault;
    if (equalsIgnoringCase(field.name, "Content-Type")) fault = typeFault(value, encoding, body);
    if (equalsIgnoringCase(field.name, "Content-Transfer-Encoding"))
        fault = encodingFault(type, encoding, body);
    if (!fault || body.empty()) return std::nullopt;
    switch (*fault) {
        case ContentFault::noParts:
            return Why::noParts;
        case ContentFault::textAboveParts:
            return Why::textAboveParts;
        case ContentFault::textBelowParts:
            return Why::textBelowParts;
        case ContentFault::otherType:
            return Why::otherType;
        case ContentFault::otherEncoding:
            break;
    }
    return Why::otherEncoding;
}

/// Many large providers leave these fields unsigned, and nobody is the worse for it; unless they make another
/// text of the one that was signed.
void addContentFields(Notes& notes, const MailMessage& message, const ProofReport& report,
                      const CheckFacts& facts, const PublicSuffixList& suffixes) {
    const auto deciding = decidingSignatures(report.verdict, report.dkim, suffixes);
    for (const std::string_view name :
         {"Content-Type", "Content-Transfer-Encoding", "Content-Disposition", "MIME-Version"}) {
        const auto positions = message.positions(name);
        if (positions.empty()) continue;
        const auto covers = [&](const TextList& names) {
            const auto isName = [&](std::string_view field) { return equalsIgnoringCase(field, name); };
            return static_cast<std::size_t>(std::ranges::count_if(names, isName)) >= positions.size();
        };
        const bool isSigned = std::ranges::any_of(
            deciding, [&](const DKIMResult* signature) { return covers(signature->signedHeaders); });
        // One that holds again says itself what became of the fields that it covers.
        const bool isTold = std::ranges::any_of(facts.undone, [&](const UndoneSignature& undone) {
            return covers(facts.broken[undone.signature].signedHeaders);
        });
        if (isSigned || isTold) continue;
        const auto why = contentFault(message, positions);
        if (!why) continue;
        const std::string value = excerpt(message.headers()[positions.front()].value());
        notes.push_back({ReportNote::ContentNotSigned{std::string(name), value, *why}});
    }
}

ChangedField excerptOf(const ChangedField& field) {
    const auto values = [](const std::vector<std::string>& texts) {
        std::vector<std::string> cut;
        for (const std::string& text : texts) cut.push_back(excerpt(text));
        return cut;
    };
    return {excerpt(field.name), values(field.shown), values(field.signedValues)};
}

void addSignedLines(Notes& notes, const MailMessage& message, const ProofReport& report,
                    const CheckFacts& facts, const PublicSuffixList& suffixes) {
    const auto add = [&](std::size_t index, const std::vector<ChangedField>& changed) {
        const DKIMResult& signature = report.dkim[index];
        auto fields = signedFields(message, signature);
        std::erase_if(fields, [&](const std::string& name) {
            return std::ranges::any_of(
                changed, [&](const ChangedField& field) { return equalsIgnoringCase(field.name, name); });
        });
        if (fields.empty()) return;
        const std::string& from = report.verdict.fromDomain;
        const bool speaks = report.verdict.kind != VerdictKind::verified && !from.empty() &&
                            suffixes.sameOrganization(signature.domain, from);
        ReportNote::SignedLinesHold note{static_cast<std::int64_t>(index), domainExcerpt(signature.domain),
                                         speaks, std::move(fields)};
        for (const ChangedField& field : changed) note.changed.push_back(excerptOf(field));
        notes.push_back({std::move(note)});
    };
    for (const std::size_t index : facts.heldSignatures) {
        const bool isUndone = std::ranges::any_of(facts.undone, [&](const UndoneSignature& undone) {
            const BrokenSignature& broken = facts.broken[undone.signature];
            return broken.kind == SignatureKind::dkim && broken.place == static_cast<std::int64_t>(index);
        });
        if (!isUndone) add(index, {});  // which says more
    }
    for (const UndoneHeader& header : facts.undoneHeaders)
        add(static_cast<std::size_t>(facts.broken[header.signature].place), header.fields);
}

void addKeyRecords(Notes& notes, const ProofReport& report, const CheckFacts& facts) {
    for (const auto& [index, fits] : facts.otherRecords) {
        notes.push_back({ReportNote::OtherKeyRecord{static_cast<std::int64_t>(index),
                                                    domainExcerpt(report.dkim[index].domain), fits}});
    }
    for (const auto& [index, version] : facts.versionsInstead) {
        notes.push_back(
            {ReportNote::OtherRecordAtKey{domainExcerpt(report.dkim[index].domain), excerpt(version)}});
    }
}

/// Fields that programs act on without asking, next to a verdict that invites to trust them.
void addActsUnsigned(Notes& notes, const MailMessage& message, const ProofReport& report) {
    if (report.verdict.tone != Tone::good) return;
    ReportNote::ActsUnsigned note;
    for (const std::string_view name :
         {"List-Unsubscribe", "List-Unsubscribe-Post", "Mail-Reply-To", "Mail-Followup-To",
          "Disposition-Notification-To", "Return-Receipt-To", "X-Confirm-Reading-To", "Resent-From"}) {
        const std::size_t count = message.positions(name).size();
        const bool isCovered = std::ranges::any_of(report.dkim, [&](const DKIMResult& signature) {
            const auto isName = [&](std::string_view field) { return equalsIgnoringCase(field, name); };
            return signature.status == DKIMResult::Status::pass &&
                   static_cast<std::size_t>(std::ranges::count_if(signature.signedHeaders, isName)) >= count;
        });
        if (count > 0 && !isCovered) note.fields.emplace_back(name);
    }
    if (!note.fields.empty()) notes.push_back({std::move(note)});
}

void addLeftOut(Notes& notes, const MailMessage& message, const ProofReport& report) {
    const std::size_t all = message.positions("DKIM-Signature").size();
    if (all <= report.dkim.size()) return;
    notes.push_back({ReportNote::SignaturesLeftOut{static_cast<std::int64_t>(all - report.dkim.size())}});
}

/// Without a key that could speak for From, no answer of DNS would have proven anything of it.
void addWorthlessKey(Notes& notes, const ProofReport& report, const PublicSuffixList& suffixes) {
    using Status = DKIMResult::Status;
    const Verdict& verdict = report.verdict;
    if (verdict.kind != VerdictKind::keyGone && verdict.kind != VerdictKind::couldNotCheck) return;
    const bool couldProve = std::ranges::any_of(report.dkim, [&](const DKIMResult& signature) {
        return (signature.status == Status::keyNotPublished || signature.status == Status::keyRevoked ||
                signature.status == Status::lookupFailed) &&
               suffixes.sameOrganization(signature.domain, verdict.fromDomain);
    });
    if (couldProve) return;
    ReportNote::KeyProvesNothing note{excerpt(verdict.domain), excerpt(verdict.fromDomain), {}};
    if (report.dmarc.appliedPolicy) note.policy = excerpt(*report.dmarc.appliedPolicy);
    notes.push_back({std::move(note)});
}

/// By keys that DNS doesn't have any more.
void addGoneKeys(Notes& notes, const ProofReport& report, const std::vector<GoneKey>& keys,
                 const PublicSuffixList& suffixes) {
    for (const GoneKey& gone : keys) {
        const KnownKey& key = gone.key;
        ReportNote::KeyKnown note{
            .signature = static_cast<std::int64_t>(gone.signature),
            .name = domainExcerpt(key.name),
            .speaksForFrom = suffixes.sameOrganization(gone.result.domain, report.verdict.fromDomain),
            .fit = gone.fit,
            .firstSeen = key.firstSeen,
            .lastSeen = key.lastSeen,
            .service = excerpt(key.service),
            .validated = key.isValidated,
            .bodyChecked = gone.result.bodyChecked,
            .unsignedBytes = gone.result.unsignedBodyBytes};
        if (key.file) {
            note.file = excerpt(key.file->name);
            note.addedAt = key.file->addedAt;
        }
        notes.push_back({std::move(note)});
    }
}

// Where the lines of servers stand

/// The Received fields of the reader's own provider, as far as the message tells: from the topmost down to
/// the border, which took the message from a public address. A sender's own lines stand below that one. Large
/// providers have public addresses of IPv6 inside, too: a field isn't the border when such a client gives
/// itself a name of the organization that wrote the field, unless no field below is.
struct Border {
    std::span<const std::uint32_t> received = {};  ///< all positions
    std::vector<std::string> hosts = {};           ///< who wrote the fields down to the border
    std::optional<IPAddress> client = {};          ///< where the border took the message from
    std::size_t index = 0;                         ///< of the border in `received`

    Border(const MailMessage& message, const PublicSuffixList& suffixes)
        : received(message.positions("Received")) {
        std::size_t hostsOfTop = 0;  // or down to the last that is known to be the provider's
        for (std::size_t i = 0; i < received.size(); ++i) {
            const std::string value = message.headers()[received[i]].value();
            const ReceivedHop hop = ReceivedHop::parse(value);
            const auto address = seenClient(value);  // not the one that a sender gives itself
            const bool isPublic = address && address->isPublic();
            if (hop.by && hop.by->size() <= longestHost) hosts.push_back(*hop.by);
            if (i == 0 || isPublic) {
                client = address;
                index = i;
                hostsOfTop = hosts.size();
            }
            if (!isPublic) continue;
            const bool isInside = !address->isIPv4() && hop.by && hop.fromName &&
                                  hop.by->size() <= longestHost && hop.fromName->size() <= longestHost &&
                                  suffixes.sameOrganization(*hop.fromName, *hop.by);
            if (!isInside) return;
        }
        // Without a public address nothing but the topmost field is known to be the provider's.
        hosts.resize(hostsOfTop);
    }

    bool isAbove(std::uint32_t position) const { return !received.empty() && position < received[index]; }
    bool isBelowNext(std::uint32_t position) const {
        return index + 1 < received.size() && position > received[index + 1];
    }
    bool hasHost(std::string_view server, const PublicSuffixList& suffixes) const {
        if (server.size() > longestHost) return false;
        return std::ranges::any_of(
            hosts, [&](const std::string& host) { return suffixes.sameOrganization(host, server); });
    }
};

/// The receiver's lines stand above its border's Received field or, with some servers, right below it. There
/// a sender's could stand as well: those that claim to be the receiver's are removed by it (RFC 8601, section
/// 5), and a wrong client address gives a Received-SPF field away.
void addLinesOfSender(Notes& notes, const MailMessage& message, const ProofReport& report,
                      const Border& border, const PublicSuffixList& suffixes) {
    using Why = ReportNote::LineOfSender::Why;
    const bool usesReceivedSPF =
        report.spf.ip && std::holds_alternative<SenderIP::Source::ReceivedSPF>(report.spf.ip->source.value);
    const auto add = [&](std::string_view field, const std::string& server, bool isKnown) {
        const auto positions = message.positions(field);
        if (positions.empty() || border.isAbove(positions.front())) return;
        const bool isBelow = border.isBelowNext(positions.front());
        if (isKnown && !isBelow) return;
        const Why why = isBelow ? Why::belowReceived : Why::unknownServer;
        notes.push_back({ReportNote::LineOfSender{std::string(field), excerpt(server), why}});
    };
    if (usesReceivedSPF) {
        const auto client = IPAddress::parse(report.spf.ip->ip);
        add("Received-SPF", report.spf.ip->ip, client && client == border.client);
    }
    if (!report.receiverResults.empty()) {
        const std::string& server = report.receiverResults.front().server;
        add("Authentication-Results", server, border.hasHost(server, suffixes));
    }
}

/// SPF's address stands in the topmost Received field that has a public one. That the client can announce:
/// a public one, which is then judged, or a private one, so that a field of its own below is taken.
void addClaimedAddress(Notes& notes, const MailMessage& message, const ProofReport& report,
                       const Border& border) {
    if (!report.spf.ip || !border.client || !border.client->isPublic()) return;
    if (!std::holds_alternative<SenderIP::Source::Received>(report.spf.ip->source.value)) return;
    const auto judged = IPAddress::parse(report.spf.ip->ip);
    if (!judged || *judged == *border.client) return;
    const std::string value = message.headers()[border.received[border.index]].value();
    const auto announced = ReceivedHop::parse(value).fromIP;
    if (announced && IPAddress::parse(*announced) == judged) {
        notes.push_back({ReportNote::AddressClaimed{report.spf.ip->ip, border.client->description()}});
    } else {
        notes.push_back({ReportNote::LineOfSender{"Received", report.spf.ip->ip,
                                                  ReportNote::LineOfSender::Why::belowReceived}});
    }
}

void addAnyServer(Notes& notes, const ProofReport& report, const std::optional<std::string>& term) {
    if (!term) return;
    notes.push_back(
        {ReportNote::AnyServerAllowed{domainExcerpt(report.spf.domain.value_or("")), excerpt(*term)}});
}

/// Whether the domain, or one that it lies within, is among these.
bool isWithinAny(std::string_view domain, const std::set<std::string, std::less<>>& domains) {
    if (domain.size() > longestHost) return false;
    for (; !domain.empty(); takePiece(domain, '.')) {
        if (domains.contains(domain)) return true;
    }
    return false;
}

/// A list takes signatures away that it breaks, after its server has checked them.
void addResultsWithoutCause(Notes& notes, const MailMessage& message, const ProofReport& report) {
    if (report.receiverResults.empty() || message.first("List-Id")) return;
    // Of all signatures, but only when those that were checked don't do.
    std::set<std::string, std::less<>> signers;
    bool areAllKnown = false;
    for (const DKIMResult& result : report.dkim) signers.insert(comparableDomain(result.domain));
    const auto addOthers = [&] {
        for (const auto position : message.positions("DKIM-Signature")) {
            const std::string value = message.headers()[position].value();
            signers.insert(comparableDomain(TagList::parse(value).value("d").value_or("")));
        }
    };
    const AuthResults& results = report.receiverResults.front();
    for (const AuthResults::Method& method : results.methods) {
        if (method.method != "dkim" || method.result != "pass") continue;
        std::optional<std::string> domain, identity;
        for (const auto& [name, property] : method.properties) {
            if (name == "header.d") domain = comparableDomain(property);
            if (name == "header.i")
                identity = comparableDomain(MailAddress::domainPart("@" + std::string(property)));
        }
        if (!domain && !identity) continue;
        const std::string& claimed = domain ? *domain : *identity;
        const auto isSigned = [&] {
            return domain ? signers.contains(*domain) : isWithinAny(*identity, signers);
        };
        if (claimed.empty() || isSigned()) continue;
        if (!std::exchange(areAllKnown, true)) addOthers();
        if (isSigned()) continue;
        notes.push_back({ReportNote::ResultsWithoutCause{excerpt(results.server), domainExcerpt(claimed)}});
        return;
    }
}

// Who signed, and when

/// Two labels or more of letters, digits and hyphens (RFC 1123, section 2.1).
bool isHostName(std::string_view name) {
    if (name.size() > longestHost || name.find('.') == std::string_view::npos) return false;
    const auto isAllowed = [](char c) { return isASCIILetter(c) || isDigit(c) || c == '-'; };
    const auto isLabel = [&](std::string_view label) {
        return !label.empty() && label.size() <= longestLabel && label.front() != '-' &&
               label.back() != '-' && std::ranges::all_of(label, isAllowed);
    };
    while (!name.empty()) {
        const bool isLast = name.find('.') == std::string_view::npos;
        if (!isLabel(takePiece(name, '.')) || (!isLast && name.empty())) return false;
    }
    return true;
}

/// With one more label in front such a name is the organization itself.
bool isPublicSuffix(std::string_view host, const PublicSuffixList& suffixes) {
    const std::string below = "a." + asciiLowered(host);
    return suffixes.organizationalDomain(below) == below;
}

std::optional<Date> newestArrival(const MailMessage& message) {
    for (const auto position : message.positions("Received")) {
        if (const auto date = arrivalDate(message.headers()[position].value())) return date;
    }
    return std::nullopt;
}

void addSigner(Notes& notes, const MailMessage& message, const DKIMResult& signature, Date now,
               const PublicSuffixList& suffixes) {
    const std::string domain = domainExcerpt(signature.domain);
    if (!isHostName(asciiDomain(signature.domain).value_or(signature.domain))) {
        notes.push_back({ReportNote::SigningDomainNoHost{domain}});
    } else if (isPublicSuffix(signature.domain, suffixes)) {
        notes.push_back({ReportNote::SigningDomainPublicSuffix{domain}});
    }
    if (!signature.signedAt) return;
    if (*signature.signedAt > now + clockError) {
        notes.push_back({ReportNote::SignedAfterCheck{domain, *signature.signedAt}});
    }
    const auto arrival = newestArrival(message);
    if (arrival && *arrival - longDelay > *signature.signedAt) {
        notes.push_back({ReportNote::SignedLongBefore{domain, *signature.signedAt, *arrival}});
    }
    if (arrival && *signature.signedAt > *arrival + wrongDay) {
        notes.push_back({ReportNote::SignedAfterArrival{domain, *signature.signedAt, *arrival}});
    }
}

/// An address without what a person may put behind "+" (RFC 5233), in the form that others are compared with.
std::string mailboxOf(std::string_view address) {
    const std::string_view local = address.substr(0, address.rfind('@'));
    return asciiLowered(local.substr(0, local.find('+'))) + '@' +
           comparableDomain(MailAddress::domainPart(address));
}

/// The addresses that the lines of the receiver itself name as the one that the message came to.
std::vector<std::string> deliveredTo(const MailMessage& message, const Border& border) {
    std::vector<std::string> addresses;
    const auto add = [&](std::string_view text) {
        auto address = MailAddress::parse(text);
        if (address && address->address.find('@') != std::string::npos && addresses.size() < mostKnown)
            addresses.push_back(std::move(address->address));
    };
    for (const std::string_view name : {"Delivered-To", "Envelope-To", "X-Original-To"}) {
        for (const auto position : message.positions(name)) {
            if (border.isAbove(position)) add(message.headers()[position].value());
        }
    }
    if (border.received.empty()) return addresses;
    for (const auto position : border.received.first(border.index + 1)) {
        const std::string value = asciiLowered(message.headers()[position].value());
        std::string_view rest = value;
        if (const auto begin = rest.find(" for <"); begin != std::string_view::npos) {
            rest.remove_prefix(begin + 6);
            add(takePiece(rest, '>'));
        }
    }
    return addresses;
}

/// An old message that is sent once more goes to somebody whom its author didn't write to.
void addOtherRecipient(Notes& notes, const MailMessage& message, const DKIMResult& signature,
                       const Border& border) {
    const bool isOld = std::ranges::any_of(notes, [](const ReportNote& note) {
        return std::holds_alternative<ReportNote::SignedLongBefore>(note.value);
    });
    const auto delivered = isOld ? deliveredTo(message, border) : std::vector<std::string>();
    if (delivered.empty()) return;
    std::set<std::string> mailboxes;
    for (const std::string& address : delivered) mailboxes.insert(mailboxOf(address));
    std::string written;
    for (const std::string_view name : {"To", "Cc"}) {
        const auto positions = message.positions(name);
        const auto covered = static_cast<std::size_t>(
            std::ranges::count_if(signature.signedHeaders,
                                  [&](std::string_view field) { return equalsIgnoringCase(field, name); }));
        for (const auto position : positions.last(std::min(covered, positions.size()))) {
            const std::string value = message.headers()[position].value();
            for (const MailAddress& entry : MailAddress::parseList(value)) {
                if (mailboxes.contains(mailboxOf(entry.address))) return;
            }
            if (written.empty()) written = excerpt(value);
        }
    }
    if (!written.empty()) notes.push_back({ReportNote::NotToYou{written, excerpt(delivered.front())}});
}

/// The policy can ask for more than the verdict does (RFC 7489, section 3.1.1).
void addOtherDomain(Notes& notes, const ProofReport& report) {
    const Verdict& verdict = report.verdict;
    if (verdict.tone != Tone::good || !isHostName(verdict.domain) ||
        comparableDomain(verdict.domain) == comparableDomain(verdict.fromDomain)) {
        return;
    }
    const bool isStrict = report.dmarc.record && report.dmarc.dkimMode == AlignmentMode::strict &&
                          !report.dmarc.alignedDKIMDomain;
    notes.push_back(
        {ReportNote::HeadlineNamesOther{excerpt(verdict.domain), excerpt(verdict.fromDomain), isStrict}});
}

// What DNS said of its answers, and what was not checked

std::string keyName(std::string_view selector, std::string_view domain) {
    return std::string(selector) + "._domainkey." + std::string(domain);
}

/// The names of the keys that a chain which holds rests on: every seal's, and the newest message signature's.
std::set<std::string> chainKeys(const MailMessage& message, const ARCFinding& chain) {
    std::set<std::string> names;
    if (!std::holds_alternative<ARCFinding::Status::Pass>(chain.status.value)) return names;
    const auto sets = arcSets(message, StrayARCFields::refuse).value_or(std::vector<ARCSet>());
    for (const ARCSet& set : sets) {
        const std::string value = set.seal->value();
        const TagList tags = TagList::parse(value);
        names.insert(asciiLowered(keyName(tags.value("s").value_or(""), tags.value("d").value_or(""))));
    }
    const DKIMResult& newest = chain.hops.back().messageSignature;
    names.insert(asciiLowered(keyName(newest.selector, newest.domain)));
    return names;
}

/// Of each record that the findings rest on, once; of a long chain the first few keys.
void addValidatedAnswers(Notes& notes, const MailMessage& message, const ProofReport& report,
                         const std::set<std::string, std::less<>>& names) {
    if (names.empty()) return;
    using Kind = ReportNote::AnswerValidated::Kind;
    const auto add = [&](Kind kind, const std::string& asked) {
        const std::string name = asciiLowered(asked);
        ReportNote note{ReportNote::AnswerValidated{kind, domainExcerpt(name)}};
        if (names.contains(name) && std::ranges::find(notes, note) == notes.end())
            notes.push_back(std::move(note));
    };
    for (const DKIMResult& result : report.dkim) {
        if (result.status == DKIMResult::Status::pass)
            add(Kind::key, keyName(result.selector, result.domain));
    }
    if (report.dmarc.recordDomain) add(Kind::policy, "_dmarc." + *report.dmarc.recordDomain);
    const auto* spf = std::get_if<SPFFinding::Status::Judged>(&report.spf.status.value);
    if (spf && spf->result != SPFResult::none && report.spf.domain)
        add(Kind::senderPolicy, *report.spf.domain);
    std::size_t added = 0;
    for (const std::string& name : chainKeys(message, report.arc)) {
        if (added == mostChainKeys) break;
        if (names.contains(name)) ++added;
        add(Kind::forwarderKey, name);
    }
}

void addNewerSignatures(Notes& notes, const MailMessage& message) {
    const auto count = [&](std::string_view name) {
        return static_cast<std::int64_t>(message.positions(name).size());
    };
    ReportNote::NewerSignatures note{.count = count("DKIM2-Signature")};
    if (const auto instances = count("Message-Instance"); instances > 0) note.instances = instances;
    if (note.count > 0 || note.instances) notes.push_back({note});
}

void addUndone(Notes& notes, const MailMessage& message, const BrokenSignature& signature,
               const UndoneSignature& undone, const PublicSuffixList& suffixes) {
    ReportNote::Undone note{.of = signature.kind,
                            .index = signature.place,
                            .domain = domainExcerpt(signature.domain),
                            .forms = undone.forms,
                            .links = undone.links,
                            .signedBytes = undone.signedBytes,
                            .addedBytes = undone.addedBytes};
    if (signature.bodyLength) note.signedOnly = static_cast<std::int64_t>(*signature.bodyLength);
    for (const ChangedField& field : undone.fields) {
        note.fields.push_back(excerptOf(field));
        if (field.name == "from") note.signedFrom = excerptOfFirst(undone.message, "From");
    }
    for (ChangedText text : undone.texts) {
        const std::int64_t reached = text.excerpt.empty() ? 0 : std::ranges::count(text.excerpt, '\n') + 1;
        const std::size_t whole = text.excerpt.size();
        text.excerpt = cutExcerpt(decodedText(text.excerpt));
        const bool isCut = whole > longestExcerpt || reached < text.lines;
        text.last = isCut && text.lines > 1 && text.last && !text.last->empty()
                        ? std::optional(cutExcerpt(decodedText(*text.last)))
                        : std::nullopt;
        if (text.signedExcerpt) text.signedExcerpt = cutExcerpt(decodedText(*text.signedExcerpt));
        if (text.type) text.type = cutExcerpt(decodedText(*text.type));
        note.texts.push_back(std::move(text));
    }
    const auto from = summary(undone.message).from;
    note.fromIsOfDomain =
        from.size() == 1 &&
        suffixes.sameOrganization(signature.domain, MailAddress::domainPart(from.front().address));
    notes.push_back({std::move(note)});
    // As old a signature as that is told of when it holds.
    const std::string tags = signature.field.value();
    const auto seconds = decimal(TagList::parse(tags).value("t").value_or("").substr(0, 12));
    const auto arrival = newestArrival(message);
    if (!seconds || !arrival) return;
    const Date signedAt{std::chrono::seconds(*seconds)};
    if (*arrival - longDelay > signedAt)
        notes.push_back({ReportNote::SignedLongBefore{domainExcerpt(signature.domain), signedAt, *arrival}});
}

/// A domain may publish several keys under one name: none of them made the signature.
void addOtherKeys(Notes& notes, const std::vector<BrokenSignature>& signatures) {
    constexpr std::size_t mostKeys = 4;
    for (const BrokenSignature& signature : signatures) {
        if (signature.algorithm == SignatureAlgorithm::ed25519SHA256 || signature.signedDigest) continue;
        const auto records = signature.keyAnswer.data();
        const bool isOfOther = std::ranges::none_of(
            records.first(std::min(records.size(), mostKeys)), [&](const std::string& text) {
                const auto record = DKIMKeyRecord::parse(text);
                const auto* key = std::get_if<DKIMKeyRecord>(&record);
                return key && signedDigest(signature.signature, signature.algorithm, *key);
            });
        if (isOfOther)
            notes.push_back(
                {ReportNote::OtherKey{signature.kind, signature.place, domainExcerpt(signature.domain)}});
    }
}

/// A message that was damaged is as little proven as a forged one, and its reader is to learn why.
void addDamage(Notes& notes, const MailMessage& message, const ProofReport& report) {
    if (report.verdict.tone == Tone::good) return;
    for (Damage& each : damage(message, report.dkim, report.arc)) {
        if (each.field) each.field = excerpt(*each.field);
        notes.push_back({std::move(each)});
    }
}

void addIntake(Notes& notes, const MailMessage& message, const IntakeFacts& facts) {
    const auto& lines = facts.fromLines;
    if (lines && lines->isLossy) {
        notes.push_back({Damage{DamageKind::mboxLossy, {}}});
    } else if (lines && lines->isDecided) {
        notes.push_back({ReportNote::QuotedFromLines{lines->reading, lines->lines}});
    }
    // Some programs end the header there, and show as the message's text what follows.
    if (const auto dropped = facts.dropped ? facts.dropped : linesBeforeFields(message))
        notes.push_back({ReportNote::LinesBeforeDropped{dropped->count, excerpt(dropped->first)}});
    if (facts.outlooksBody) notes.push_back({ReportNote::OutlookFile{*facts.outlooksBody}});
}

}  // namespace

std::vector<ReportNote> notes(const MailMessage& message, const ProofReport& report,
                              const PublicSuffixList& suffixes, const CheckFacts& facts) {
    Notes notes;
    addHeaderEnd(notes, message);
    addSender(notes, message, report.summary.from);
    const DKIMResult* signature = decisiveSignature(report);
    if (signature) addUnsignedFields(notes, message, *signature);
    const Border border(message, suffixes);
    addLinesOfSender(notes, message, report, border, suffixes);
    if (signature) {
        addSigner(notes, message, *signature, report.checkedAt, suffixes);
        addOtherRecipient(notes, message, *signature, border);
    }
    addValidatedAnswers(notes, message, report, facts.validatedNames);
    addNewerSignatures(notes, message);
    addSignedLines(notes, message, report, facts, suffixes);
    addOtherReading(notes, message, report, "From", report.summary.from, suffixes);
    addOtherReading(notes, message, report, "Reply-To", report.summary.replyTo, suffixes);
    addShownName(notes, report, suffixes);
    addOtherDomain(notes, report);
    addWorthlessKey(notes, report, suffixes);
    addActsUnsigned(notes, message, report);
    addLeftOut(notes, message, report);
    addHiddenEnd(notes, message);
    addDamage(notes, message, report);
    addIntake(notes, message, facts.intake);
    if (facts.isJudgedByRFC9989) notes.push_back({ReportNote::JudgedByNewerDMARC{}});
    if (facts.newerDMARC) notes.push_back({*facts.newerDMARC});
    for (const UndoneSignature& undone : facts.undone)
        addUndone(notes, message, facts.broken[undone.signature], undone, suffixes);
    addOtherKeys(notes, facts.broken);
    addClaimedAddress(notes, message, report, border);
    addAnyServer(notes, report, facts.anyServerTerm);
    if (signature || !facts.undone.empty()) addContentFields(notes, message, report, facts, suffixes);
    addResultsWithoutCause(notes, message, report);
    addKeyRecords(notes, report, facts);
    addGoneKeys(notes, report, facts.goneKeys, suffixes);
    addDate(notes, message, report);
    for (const std::string& source : facts.otherSources)
        notes.push_back({ReportNote::AnsweredBy{domainExcerpt(source)}});
    return notes;
}

}  // namespace quillmark
