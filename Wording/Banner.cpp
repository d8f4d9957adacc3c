#include "Wording/Banner.h"

#include <algorithm>
#include <set>
#include <tuple>
#include <variant>

#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "QuillmarkKit/Mail/Punycode.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "Wording/FailedLookups.h"
#include "Wording/Findings.h"
#include "Wording/Quoted.h"
#include "Wording/Signatures.h"
#include "Wording/Signs.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr std::size_t mostCautions = 50;
/// Signs of letters that are looked at in domains to reply to: a message can have millions.
constexpr std::size_t mostLetters = 1'000;
/// Their rank, behind everything else, which no number of them is to crowd out.
constexpr int rankOfMany = 100;
constexpr std::size_t mostDamages = 3;  // of which it is told; the others stand with the findings

/// Whom or what a caution is about.
enum class Subject { sender, letters, content, server };

/// A caution before it is put into words.
struct Caution {
    struct UnsignedBody {};  // of the best signature
    struct BodyMissing {};
    struct FieldsUnsigned {  // none of them, or of one that stands repeatedly only the lower ones are signed
        std::vector<std::string> names;
    };
    struct OddLetters {
        std::string domain;
    };
    Subject subject;
    int rank;  // among those of one subject: the lowest weighs most
    std::variant<const LookAlikeFlag*, const ReportNote*, UnsignedBody, BodyMissing, FieldsUnsigned,
                 OddLetters>
        what;
    const DKIMResult* signature = nullptr;  // that says it
};

/// What changes the headline's meaning, what weighs most first.
struct Cautions {
    std::vector<Caution> first = {};
    std::size_t more = 0;  ///< that were not looked at, and are taken for such about the sender

    bool isSenderOdd() const {
        return more > 0 || std::ranges::count(first, Subject::sender, &Caution::subject) > 0;
    }
    /// Whether there are none but of letters that are what they seem.
    bool areOfLetters() const {
        return more == 0 && std::ranges::all_of(
                                first, [](const Caution& each) { return each.subject == Subject::letters; });
    }
};

/// One overload for each sign. The plainest trick comes first.
struct RankOfSign {
    int operator()(const LookAlikeFlag::DisplayNameMismatch&) const { return 0; }
    int operator()(const LookAlikeFlag::ReplyToDiffers&) const { return 1; }
    int operator()(const LookAlikeFlag::Punycode&) const { return 2; }
    int operator()(const LookAlikeFlag::YoungDomain&) const { return 3; }
    int operator()(const LookAlikeFlag::MultipleFrom&) const { return 4; }
    int operator()(const LookAlikeFlag::MixedScripts&) const { return 5; }
};

/// Of a note that stands beside the headline. One that isn't named here is about the content.
struct RankOfNote {
    using Note = ReportNote;
    using Rank = std::pair<Subject, int>;
    Rank operator()(const Note::ReadOtherwise&) const { return {Subject::sender, 0}; }
    Rank operator()(const Note::NameShowsAddress&) const { return {Subject::sender, 0}; }
    Rank operator()(const Note::SigningDomainNoHost&) const { return {Subject::sender, 3}; }
    Rank operator()(const Note::SigningDomainPublicSuffix&) const { return {Subject::sender, 3}; }
    Rank operator()(const Note::KeyProvesNothing&) const { return {Subject::sender, 6}; }
    Rank operator()(const Note::HeadlineNamesOther&) const { return {Subject::sender, 6}; }
    Rank operator()(const Note::Undone&) const { return {Subject::content, 0}; }
    Rank operator()(const Note::SignedLinesHold&) const { return {Subject::content, 0}; }
    Rank operator()(const Note::ShownNotSigned&) const { return {Subject::content, 1}; }
    Rank operator()(const Note::ContentNotSigned&) const { return {Subject::content, 1}; }
    Rank operator()(const Note::KeyKnown&) const { return {Subject::content, 3}; }
    Rank operator()(const Note::AddressClaimed&) const { return {Subject::server, 0}; }
    Rank operator()(const Note::AnyServerAllowed&) const { return {Subject::server, 0}; }
    template <typename Other>
    Rank operator()(const Other&) const {
        return {Subject::content, 2};
    }
};

/// The domains that the headline names.
std::vector<std::string> namedDomains(const Verdict& verdict) {
    switch (verdict.kind) {
        case VerdictKind::verified:
        case VerdictKind::verifiedHeadersOnly:
        case VerdictKind::keyGone:
            return {verdict.domain};
        case VerdictKind::signedByOther:
            return {verdict.domain, verdict.fromDomain};
        case VerdictKind::allowedServerOnly:
            return {verdict.fromDomain};
        default:
            return {};
    }
}

/// How much of the body the signatures cover.
void addBody(std::vector<Caution>& cautions, const DKIMResult& signature, const Verdict& verdict) {
    if (signature.unsignedBodyBytes.value_or(0) > 0) {
        cautions.push_back({Subject::content, 1, Caution::UnsignedBody{}, &signature});
    } else if (!signature.bodyChecked && verdict.kind == VerdictKind::signedByOther) {
        // Whose headline doesn't say so.
        cautions.push_back({Subject::content, 3, Caution::BodyMissing{}, &signature});
    }
}

bool hasNoteOn(const ProofReport& report, std::string_view field) {
    return std::ranges::any_of(report.notes, [&](const ReportNote& note) {
        const auto* shown = std::get_if<ReportNote::ShownNotSigned>(&note.value);
        return shown && equalsIgnoringCase(shown->field, field);
    });
}

/// The lines that a reader goes by and that no deciding signature covers as they are shown.
void addLines(std::vector<Caution>& cautions, const std::vector<const DKIMResult*>& deciding,
              const ProofReport& report) {
    std::vector<std::string> uncovered;
    for (const char* field : {"From", "Subject", "Date", "Reply-To", "Content-Type"}) {
        const bool isUncovered = std::ranges::all_of(deciding, [&](const DKIMResult* signature) {
            return std::ranges::count(signature->unsignedImportant, field) > 0;
        });
        if (!isUncovered || hasNoteOn(report, field)) continue;
        if (coverage(*deciding.front(), field) == Coverage::none) {
            uncovered.emplace_back(field);
        } else {
            cautions.push_back({Subject::content, 1, Caution::FieldsUnsigned{{field}}, deciding.front()});
        }
    }
    if (!uncovered.empty())
        cautions.push_back({Subject::content, 3, Caution::FieldsUnsigned{uncovered}, deciding.front()});
}

/// Most international names are what they seem: they are to be read, not to be feared.
Subject ofLetters(std::string_view domain) {
    return lookAlikeOf(domain) ? Subject::sender : Subject::letters;
}

/// International domains in the headline of which no warning sign speaks.
void addDomains(std::vector<Caution>& cautions, const ProofReport& report) {
    for (const std::string& domain : namedDomains(report.verdict)) {
        const bool isSaid = std::ranges::any_of(report.flags, [&](const LookAlikeFlag& flag) {
            const auto* sign = std::get_if<LookAlikeFlag::Punycode>(&flag.value);
            return sign && equalsIgnoringCase(sign->domain, domain);
        });
        if (isSaid || (isASCII(domain) && Punycode::unicodeDomain(domain) == domain)) continue;
        cautions.push_back({ofLetters(domain), 2, Caution::OddLetters{domain}});
    }
}

Cautions cautionsOf(const ProofReport& report) {
    Cautions all;
    std::vector<Caution>& cautions = all.first;
    addDomains(cautions, report);
    const auto& from = report.summary.from;
    const std::string sender = from.empty() ? "" : MailAddress::domainPart(from.front().address);
    const auto isToReplyTo = [&](const std::string& domain) {
        return domain != sender && !equalsIgnoringCase(domain, report.verdict.domain);
    };
    std::size_t letters = 0;
    for (const LookAlikeFlag& flag : report.flags) {
        const auto* punycode = std::get_if<LookAlikeFlag::Punycode>(&flag.value);
        const auto* mixed = std::get_if<LookAlikeFlag::MixedScripts>(&flag.value);
        const bool isOfMany =
            (punycode && isToReplyTo(punycode->domain)) || (mixed && isToReplyTo(mixed->domain));
        if (isOfMany && ++letters > mostLetters) {
            ++all.more;
            continue;
        }
        const Subject subject = punycode ? ofLetters(punycode->domain) : Subject::sender;
        cautions.push_back({subject, isOfMany ? rankOfMany : std::visit(RankOfSign{}, flag.value), &flag});
    }
    for (const ReportNote& note : report.notes) {
        if (tone(note) != Tone::caution || !standsBesideHeadline(note, report.verdict.tone)) continue;
        const auto [subject, rank] = std::visit(RankOfNote{}, note.value);
        cautions.push_back({subject, rank, &note});
    }
    const auto deciding = decidingSignatures(report.verdict, report.dkim, PublicSuffixList::shared());
    if (!deciding.empty()) {
        addBody(cautions, *deciding.front(), report.verdict);
        addLines(cautions, deciding, report);
    }
    // A message that was changed is first of all a question of what it said.
    const bool isBroken = report.verdict.kind == VerdictKind::signatureBroken;
    const Subject first = isBroken ? Subject::content : Subject::sender;
    std::ranges::stable_sort(cautions, {}, [&](const Caution& each) {
        return std::tuple(each.rank == rankOfMany,
                          each.subject == first ? -1 : static_cast<int>(each.subject), each.rank);
    });
    return all;
}

std::string flagLine(const LookAlikeFlag& flag, const Reader& reader) {
    return reader.translate("%1: %2", {title(flag, reader), sentence(flag, reader)});
}

/// Puts a caution into words.
struct InWords {
    const ProofReport& report;
    const Caution& caution;
    const Reader& reader;

    BannerLine operator()(const LookAlikeFlag* flag) const {
        return line(shortSentence(*flag, reader), flagLine(*flag, reader), NoteSection::warningSigns, {},
                    flag - report.flags.data());
    }
    BannerLine operator()(const ReportNote* note) const {
        return line(shortSentence(*note, reader), sentence(*note, reader), sectionOf(*note),
                    note - report.notes.data());
    }
    BannerLine operator()(const Caution::UnsignedBody&) const {
        const DKIMResult& signature = *caution.signature;
        const auto covered = static_cast<double>(signature.bodyLength.value_or(0)),
                   rest = static_cast<double>(signature.unsignedBodyBytes.value_or(0));
        return ofSignature(covered <= 0 ? reader.translate("The signature covers nothing of the text")
                                        : reader.translate("The signature covers only %1% of the text",
                                                           {reader.number(static_cast<std::int64_t>(
                                                               100.0 * covered / (covered + rest)))}),
                           unsignedBodyRemark(signature, reader).value_or(Remark{}).text);
    }
    BannerLine operator()(const Caution::BodyMissing&) const {
        return ofSignature(reader.translate("The text wasn’t there to check"),
                           reader.translate("The body wasn’t there to check."));
    }
    BannerLine operator()(const Caution::FieldsUnsigned& fields) const {
        std::vector<Remark> remarks;
        addCoverageRemarks(remarks, *caution.signature, fields.names, reader);
        const std::string names = fieldNames(fields.names, reader);
        return ofSignature(coverage(*caution.signature, fields.names.front()) == Coverage::none
                               ? reader.translate("Not signed: %1", {names})
                               : reader.translate("The %1 line that is shown may have been added", {names}),
                           remarks.front().text);
    }
    BannerLine operator()(const Caution::OddLetters& odd) const {
        const std::string letters = Punycode::unicodeDomain(odd.domain), name = quotedWord(odd.domain);
        const std::string text = lettersInWords(odd.domain, reader);
        if (letters != odd.domain) {
            return line(text,
                        reader.translate("Some apps show %1 as “%2”.", {name, quoted(cutInside(letters))}));
        }
        return line(text, reader.translate("In %1 stand letters beyond a to z, which may only look like the "
                                           "ones you know. In DNS that domain is called %2.",
                                           {name, quotedWord(comparableDomain(odd.domain))}));
    }

private:
    static BannerLine line(std::string text, std::string sentence, std::optional<NoteSection> section = {},
                           std::optional<std::size_t> note = {}, std::optional<std::size_t> row = {}) {
        return {Tone::caution, std::move(text), std::move(sentence), section, note, row};
    }
    BannerLine ofSignature(std::string text, std::string sentence) const {
        return line(std::move(text), std::move(sentence), NoteSection::signatures, {},
                    caution.signature - report.dkim.data());
    }
};

void addCautions(Banner& banner, const ProofReport& report, const Cautions& cautions, const Reader& reader) {
    std::set<std::string> said;  // two signatures of one domain have the same to say
    banner.more = cautions.more;
    for (const Caution& each : cautions.first) {
        if (banner.cautions.size() == mostCautions) {
            ++banner.more;
            continue;
        }
        BannerLine line = std::visit(InWords{report, each, reader}, each.what);
        if (said.insert(line.text).second) banner.cautions.push_back(std::move(line));
    }
    const auto count = static_cast<std::int64_t>(banner.cautions.size() + banner.more);
    if (count == 0) return;
    banner.lead = report.verdict.tone == Tone::good
                      ? reader.translateCount("Signed, but look at this first",
                                              "Signed, but look at %n things first", count)
                      : reader.translateCount("Look at this first", "Look at %n things first", count);
}

/// What is good to know with the headline.
std::vector<Remark> remarksOf(const ProofReport& report, const Reader& reader) {
    std::vector<Remark> remarks;
    for (const std::string& domain : namedDomains(report.verdict)) {
        const std::string organization = PublicSuffixList::shared().organizationalDomain(domain);
        if (!domain.empty() && !equalsIgnoringCase(organization, domain)) {
            remarks.push_back(
                {{},
                 reader.translate("%1 is a part of %2.", {quotedWord(domain), quotedDomain(organization)})});
        }
    }
    std::size_t damages = 0;
    const auto* undone = undoneOf(report);
    for (const ReportNote& note : report.notes) {
        if (tone(note) == Tone::caution || !standsBesideHeadline(note, report.verdict.tone)) continue;
        const auto* damage = std::get_if<Damage>(&note.value);
        if (damage && ++damages > mostDamages) continue;
        // Where it is known what was signed, damage is a cause, and nobody needs another copy to learn more.
        const bool isCause = damage && undone && undone->fromIsOfDomain;
        Remark remark{tone(note), isCause ? damageInWords(*damage, reader) : sentence(note, reader)};
        if (std::ranges::find(remarks, remark) == remarks.end()) remarks.push_back(std::move(remark));
    }
    if (auto failed = failedLookups(report, reader)) remarks.push_back(std::move(*failed));
    return remarks;
}

/// What is known of what the domain in From signed.
const ReportNote::Undone* undoneOfSender(const ProofReport& report) {
    const auto* undone = report.verdict.kind == VerdictKind::signatureBroken ? undoneOf(report) : nullptr;
    return undone && undone->fromIsOfDomain ? undone : nullptr;
}

std::optional<DomainIdentity> provenIdentity(const ProofReport& report) {
    switch (report.verdict.kind) {
        case VerdictKind::verified:
        case VerdictKind::verifiedHeadersOnly:
        case VerdictKind::signedByOther:
            return identityOf(report.verdict.domain);
        default:
            return undoneOfSender(report) ? std::optional(identityOf(report.verdict.domain)) : std::nullopt;
    }
}

/// Whether the domain in From is known to have signed the message all the same: before it was changed, or
/// with a key that isn't the one that counts.
bool isSignedBySender(const ProofReport& report) {
    const auto isOfSender = [&](std::string_view domain) {
        return PublicSuffixList::shared().sameOrganization(domain, report.verdict.fromDomain);
    };
    return formerKeyHolds(report) || std::ranges::any_of(report.notes, [&](const ReportNote& note) {
               const auto* undone = std::get_if<ReportNote::Undone>(&note.value);
               const auto* other = std::get_if<ReportNote::OtherKeyRecord>(&note.value);
               return (undone && undone->of == SignatureKind::dkim && undone->fromIsOfDomain &&
                       isOfSender(undone->domain)) ||
                      (other && other->fits && isOfSender(other->domain));
           });
}

/// Lists break signatures, and their servers are not the author's: where that is what happened, neither the
/// server nor the policy says more.
bool mayBeDecided(const ProofReport& report) {
    if (isSignedBySender(report)) return false;
    switch (report.verdict.kind) {
        case VerdictKind::cannotProve:
        case VerdictKind::signedByOther:
            return true;
        case VerdictKind::signatureBroken:
            return report.verdict.tone == Tone::bad && !undoneOfSender(report) &&
                   !otherKeyFits(report, report.verdict.domain);
        default:
            return false;
    }
}

/// Whether an answer that is missing could have shown that the domain in From sent it: then nobody is asked
/// to reject it (RFC 7489, section 6.6.2).
bool isAnswerMissing(const ProofReport& report) {
    const auto speaksForFrom = [&](std::string_view domain, AlignmentMode mode) {
        return aligned(domain, report.dmarc.fromDomain, mode, PublicSuffixList::shared());
    };
    const auto* spf = std::get_if<SPFFinding::Status::Judged>(&report.spf.status.value);
    if (spf && spf->result == SPFResult::temperror &&
        speaksForFrom(report.spf.domain.value_or(""), report.dmarc.spfMode))
        return true;
    return std::ranges::any_of(report.dkim, [&](const DKIMResult& signature) {
        return signature.status == DKIMResult::Status::lookupFailed &&
               speaksForFrom(signature.domain, report.dmarc.dkimMode);
    });
}

std::optional<BannerLine> deciderOf(const ProofReport& report, const Reader& reader) {
    if (!mayBeDecided(report)) return std::nullopt;
    const DMARCFinding& dmarc = report.dmarc;
    const auto* spf = std::get_if<SPFFinding::Status::Judged>(&report.spf.status.value);
    const std::string server = report.spf.domain.value_or(""), sender = quotedDomain(dmarc.fromDomain);
    const bool isOfSender = spf && report.verdict.kind != VerdictKind::signedByOther &&
                            PublicSuffixList::shared().sameOrganization(server, report.verdict.fromDomain);
    const bool hasFailed =
        dmarc.status == DMARCFinding::Status::fail && dmarc.percent == 100 && !isAnswerMissing(report);
    const bool isRejected = hasFailed && dmarc.appliedPolicy == "reject";
    const bool isSpam = hasFailed && dmarc.appliedPolicy == "quarantine";
    const std::string domain = quotedDomain(server);
    const BannerLine onServer{tone(report.spf), {}, sentence(report.spf, reader), NoteSection::sendingServer};
    const auto said = [](BannerLine line, std::string text) {
        line.text = std::move(text);
        return line;
    };
    if (isOfSender && spf->result == SPFResult::fail) {
        if (isRejected) {
            return said(onServer, reader.translate("%1 says that this server may not send its mail, and "
                                                   "asks receivers to reject such mail",
                                                   {domain}));
        }
        if (isSpam) {
            return said(onServer, reader.translate("%1 says that this server may not send its mail, and "
                                                   "asks receivers to send such mail to spam",
                                                   {domain}));
        }
        return said(onServer, reader.translate("%1 says that this server may not send its mail", {domain}));
    }
    const BannerLine onPolicy{tone(dmarc), {}, sentence(dmarc, reader), NoteSection::policy};
    if (isRejected) {
        return said(onPolicy, reader.translate("%1 asks receivers to reject mail like this, of which nothing "
                                               "proves that it is from there",
                                               {sender}));
    }
    if (isSpam) {
        return said(onPolicy, reader.translate("%1 asks receivers to send mail like this to spam: nothing "
                                               "proves that it is from there",
                                               {sender}));
    }
    if (isOfSender && spf->result == SPFResult::softfail) {
        return said(onServer,
                    reader.translate("%1 says that this server probably may not send its mail", {domain}));
    }
    return std::nullopt;
}

/// Whether the copy was damaged, by its bytes: the message itself may say more.
bool isDamaged(const ProofReport& report) {
    return std::ranges::any_of(report.notes, [&](const ReportNote& note) {
        return std::holds_alternative<Damage>(note.value) && standsBesideHeadline(note, report.verdict.tone);
    });
}

std::string checkTheFile(const Reader& reader) {
    return reader.translate(
        "Save the message itself as a file (.eml or mbox) and check that. Don’t rely on this copy.");
}

std::string afterBreaking(const ProofReport& report, const Reader& reader) {
    if (otherKeyFits(report, report.verdict.domain))
        return reader.translate("Check the message again: DNS gives the keys in any order.");
    if (const auto* undone = undoneOfSender(report)) {
        if (tone(ReportNote{*undone}))
            return reader.translate(
                "Read what was signed, and rely on nothing else. If it matters, ask the sender in another "
                "way.");
        return reader.translate("Read the domain letter by letter: is it the one you expect?");
    }
    if (isDamaged(report)) return checkTheFile(reader);
    if (!report.verdict.arcVouchers.empty()) {
        return reader.translate(
            "Unless you know and trust the forwarders, don’t rely on what it says. If it matters, ask the "
            "sender in another way.");
    }
    return reader.translate("Don’t rely on what it says. If it matters, ask the sender in another way.");
}

/// Never that one may rely on a message of which anything is open.
std::string whatToDo(const ProofReport& report, const Cautions& cautions, const Reader& reader) {
    const Verdict& verdict = report.verdict;
    const bool isSenderOdd = cautions.isSenderOdd();
    std::string beforeAnything = reader.translate(
        "Don’t use its links, open its attachments or answer before that is explained. If in doubt, ask in a "
        "way that you know from before.");
    std::string ask = reader.translate("Don’t rely on it. If it matters, ask the sender in another way.");
    switch (verdict.kind) {
        case VerdictKind::verified:
            if (isSenderOdd) return beforeAnything;
            if (!cautions.areOfLetters()) {
                return reader.translate(
                    "Rely on nothing that isn’t signed. If it matters, ask the sender in another way.");
            }
            return reader.translate("Read the domain letter by letter: is it the one you expect?");
        case VerdictKind::verifiedHeadersOnly:
            if (isSenderOdd) return beforeAnything;
            return reader.translate(
                "Give Quillmark the whole message (.eml), so that the text is checked, too. Don’t rely on "
                "the text before.");
        case VerdictKind::signedByOther:
            if (isSenderOdd) return beforeAnything;
            if (!cautions.areOfLetters() || verdict.fromDomain.empty() || deciderOf(report, reader))
                return ask;
            return reader.translate(
                "Ask yourself what %1 has to do with %2. If you don’t know, ask the sender in another way.",
                {quotedDomain(verdict.domain), quotedDomain(verdict.fromDomain)});
        case VerdictKind::signatureBroken:
            return afterBreaking(report, reader);
        case VerdictKind::keyGone:
            if (isSenderOdd) return ask;
            if (formerKeyHolds(report)) {
                return reader.translate(
                    "Ask the sender in another way if it matters: nobody can check this with DNS any more.");
            }
            return reader.translate(
                "Ask the sender in another way if it matters: nothing here proves who sent it.");
        case VerdictKind::couldNotCheck:
            return reader.translate("Check the message again. Don’t rely on it before.");
        case VerdictKind::allowedServerOnly:
            if (!cautions.areOfLetters()) return ask;
            return reader.translate(
                "Ask the sender in another way if money, passwords or haste are involved.");
        case VerdictKind::cannotProve:
            break;
    }
    if (isDamaged(report)) return checkTheFile(reader);
    return reader.translate(
        "Don’t pay, open its attachments or use its links before you have asked the sender in another way.");
}

}  // namespace

Banner bannerOf(const ProofReport& report, const Reader& reader) {
    const Cautions cautions = cautionsOf(report);
    Banner banner{.tone = report.verdict.tone,
                  .headline = headline(report.verdict, reader),
                  .explanation = explanation(report, reader),
                  .identity = provenIdentity(report),
                  .decider = deciderOf(report, reader)};
    addCautions(banner, report, cautions, reader);
    banner.remarks = remarksOf(report, reader);
    banner.whatToDo = whatToDo(report, cautions, reader);
    return banner;
}

bool hasCautions(const ProofReport& report) {
    return !report.flags.empty() || !cautionsOf(report).first.empty();
}

std::string toneWord(Tone tone, const Reader& reader) {
    switch (tone) {
        case Tone::good:
            return reader.translate("Good");
        case Tone::caution:
            return reader.translate("Caution");
        case Tone::bad:
            return reader.translate("Bad");
        case Tone::unknown:
            break;
    }
    return reader.translate("Unknown");
}

}  // namespace quillmark
