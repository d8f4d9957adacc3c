#include "QuillmarkKit/Verifier.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "QuillmarkKit/Checks/ARC.h"
#include "QuillmarkKit/Checks/DMARC.h"
#include "QuillmarkKit/Checks/DMARCTreeWalk.h"
#include "QuillmarkKit/Checks/GoneKeys.h"
#include "QuillmarkKit/Checks/SPF.h"
#include "QuillmarkKit/Checks/Undo.h"
#include "QuillmarkKit/Checks/Verdict.h"
#include "QuillmarkKit/Checks/WarningSigns.h"
#include "QuillmarkKit/Lookups/DoHResolver.h"
#include "QuillmarkKit/Mail/IPAddress.h"
#include "QuillmarkKit/Mail/TagList.h"
#include "QuillmarkKit/Notes.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::chrono::seconds usualLookupTime{60};

/// More who gave answers than a person chooses: only a recording that was made up names them.
constexpr std::size_t mostSources = 4;

bool isUsual(const std::string& source) {
    static const std::vector<DoHEndpoint> usual = DoHEndpoint::usual();
    return std::ranges::count(usual, source, &DoHEndpoint::host) > 0;
}

/// The questions of one check: they have a time together, counted from the first. Remembers the names of
/// which DNS said that its answer was validated, and who gave answers in place of the usual services. Tells
/// of the keys that were given.
class CheckResolver : public DNSResolver {
public:
    CheckResolver(DNSResolver& resolver, Patience::Clock::duration time, KeyMemory* keys)
        : m_resolver(resolver), m_time(time), m_keys(keys) {}
    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) override {
        DNSAnswer answer =
            m_resolver.lookup(name, type, {patience.stop, std::min(patience.deadline, begin()), &m_asker});
        if (answer.isValidated && type == DNSRecordType::txt) m_names.insert(asciiLowered(name));
        std::string source = m_resolver.source(name, type);
        if (!source.empty() && !isUsual(source) && m_otherSources.size() < mostSources)
            m_otherSources.insert(std::move(source));
        if (m_keys && type == DNSRecordType::txt) tell(name, answer);
        return answer;
    }
    bool mayKnow(std::string_view name, DNSRecordType type) override {
        return m_resolver.mayKnow(name, type);
    }
    /// The time begins to count, if it doesn't yet. When it ends.
    Patience::Clock::time_point begin() {
        if (!m_deadline) m_deadline = Patience::Clock::now() + m_time;
        return *m_deadline;
    }
    std::set<std::string, std::less<>> takeNames() { return std::move(m_names); }
    std::set<std::string> takeOtherSources() { return std::move(m_otherSources); }

private:
    void tell(std::string_view name, const DNSAnswer& answer) const {
        if (asciiLowered(name).find("._domainkey.") == std::string::npos) return;
        std::vector<std::string> records;
        for (const std::string& text : answer.data().first(std::min(answer.data().size(), mostKeysTold))) {
            if (std::holds_alternative<DKIMKeyRecord>(DKIMKeyRecord::parse(text))) records.push_back(text);
        }
        if (!records.empty())
            m_keys->saw(name, records, m_resolver.source(name, DNSRecordType::txt), answer.isValidated);
    }

    static constexpr std::size_t mostKeysTold = 8;  // of one name
    DNSResolver& m_resolver;
    const Patience::Clock::duration m_time;
    KeyMemory* const m_keys;
    std::optional<Patience::Clock::time_point> m_deadline = {};
    DNSAsker m_asker = {};
    std::set<std::string, std::less<>> m_names = {};
    std::set<std::string> m_otherSources = {};
};

/// Further signatures are left out of the report.
constexpr std::size_t mostSignatures = 10;

/// A message that names several senders cannot be attributed to one domain: empty unless there is exactly
/// one.
std::string fromDomain(const MessageSummary& summary) {
    return summary.from.size() == 1 ? MailAddress::domainPart(summary.from.front().address) : std::string();
}

/// What signatures say of how much of the body they cover (`l=`). Few of them may walk over the body once
/// each; a hostile message has sixty, each with a length of its own.
std::vector<std::uint64_t> bodyLimits(const MailMessage& message) {
    constexpr std::size_t fewSignatures = 4;
    const auto dkim = message.positions("DKIM-Signature"), arc = message.positions("ARC-Message-Signature");
    if (dkim.size() + arc.size() <= fewSignatures) return {};
    std::vector<std::uint64_t> limits;
    const auto add = [&](const HeaderField& signature) {
        const std::string value = signature.value();
        const auto length = decimal(TagList::parse(value).value("l").value_or(""));
        if (length) limits.push_back(static_cast<std::uint64_t>(*length));
    };
    for (const auto position : dkim.first(std::min(dkim.size(), mostSignatures)))
        add(message.headers()[position]);
    const auto sets = arcSets(message, StrayARCFields::refuse).value_or(std::vector<ARCSet>());
    for (const ARCSet& set : sets) {
        if (set.messageSignature) add(*set.messageSignature);
    }
    return limits;
}

std::vector<DKIMResult> dkim(const MailMessage& message, const SignatureChecker& checker, CheckFacts& facts) {
    std::vector<DKIMResult> results;
    const auto positions = message.positions("DKIM-Signature");
    for (const auto position : positions.first(std::min(positions.size(), mostSignatures))) {
        SignatureCheck check = checker.examine(message.headers()[position]);
        if (check.signedLinesHold) facts.heldSignatures.push_back(results.size());
        if (check.broken) {
            check.broken->place = static_cast<std::int64_t>(results.size());
            facts.broken.push_back(std::move(*check.broken));
        }
        if (check.otherRecordFits) facts.otherRecords.emplace(results.size(), *check.otherRecordFits);
        if (check.versionInstead)
            facts.versionsInstead.emplace(results.size(), std::move(*check.versionInstead));
        results.push_back(std::move(check.result));
    }
    return results;
}

/// Whether another signature of the same domain holds, so that nobody needs to know more of this one.
bool isCovered(const BrokenSignature& broken, const std::vector<DKIMResult>& results) {
    return std::ranges::any_of(results, [&](const DKIMResult& result) {
        return result.status == DKIMResult::Status::pass && equalsIgnoringCase(result.domain, broken.domain);
    });
}

/// The message signature of the newest forwarder, where it is what is broken. Its key was asked for before.
std::optional<BrokenSignature> newestForwarder(const MailMessage& message, const ARCFinding& chain,
                                               const SignatureChecker& checker) {
    using Status = DKIMResult::Status;
    if (chain.hops.empty()) return std::nullopt;
    const ARCFinding::Hop& hop = chain.hops.back();
    const Status status = hop.messageSignature.status;
    if (status != Status::bodyChanged && status != Status::headersChanged) return std::nullopt;
    const auto sets = arcSets(message, StrayARCFields::refuse);
    if (!sets || sets->empty() || !sets->back().messageSignature) return std::nullopt;
    auto check = checker.examine(*sets->back().messageSignature, SignatureKind::arc);
    if (check.broken) check.broken->place = hop.instance;
    return std::move(check.broken);
}

std::vector<AuthResults> receiverResults(const MailMessage& message) {
    std::vector<AuthResults> results;
    for (const auto position : message.positions("Authentication-Results")) {
        results.push_back(AuthResults::parse(message.headers()[position].value()));
    }
    return results;
}

/// Who the envelope says sent the message, and the domain whose SPF record is asked: the Return-Path, or else
/// the name that the sending server announced (RFC 7208, section 2.4).
struct EnvelopeSender {
    std::string address = {}, domain = {};
};
std::optional<EnvelopeSender> envelopeSender(const MessageSummary& summary, const SenderIP& server) {
    if (summary.returnPath && summary.returnPath->find('@') != std::string::npos) {
        return EnvelopeSender{*summary.returnPath, MailAddress::domainPart(*summary.returnPath)};
    }
    if (server.helo && server.helo->find('.') != std::string::npos) {
        const std::string name = unicodeLowered(*server.helo);
        return EnvelopeSender{"postmaster@" + name, name};
    }
    return std::nullopt;
}

SPFFinding spf(const MailMessage& message, const MessageSummary& summary, DNSResolver& resolver,
               const std::stop_token& stop, CheckFacts& facts) {
    SPFFinding finding;
    const auto server = senderIP(message);
    const auto address = server ? IPAddress::parse(server->ip) : std::nullopt;
    if (!address) return finding;
    finding.ip = server;
    const auto sender = envelopeSender(summary, *server);
    if (!sender) {
        finding.status.value = SPFFinding::Status::NoEnvelopeSender{};
        return finding;
    }
    auto outcome =
        SPFEvaluator{resolver}.evaluate(*address, sender->domain, sender->address, server->helo, stop);
    finding.status.value = SPFFinding::Status::Judged{outcome.result};
    finding.domain = sender->domain;
    if (outcome.result == SPFResult::pass && outcome.decider && outcome.decider->fitsAlmostAny)
        facts.anyServerTerm = std::move(outcome.decider->term);
    finding.matched = std::move(outcome.matched);
    finding.detail = std::move(outcome.detail);
    return finding;
}

/// What the rules of RFC 9989 make of the message: beside the finding, or in its place.
void judgeByNewerRules(ProofReport& report, CheckFacts& facts, DNSResolver& resolver, DMARCRules rules,
                       const std::stop_token& stop) {
    if (rules == DMARCRules::rfc7489 && !mayDiffer(report.dmarc, report.spf, resolver, stop)) return;
    auto newer = dmarcByTreeWalk(report.dmarc, report.dkim, report.spf, resolver, stop);
    if (rules == DMARCRules::rfc7489) {
        if (newer) facts.newerDMARC = std::move(newer->difference);
        return;
    }
    using Status = DMARCFinding::Status;
    facts.isJudgedByRFC9989 = true;
    if (newer) {
        report.dmarc = std::move(newer->finding);
    } else if (report.dmarc.status != Status::noFromDomain) {
        report.dmarc = {.status = Status::lookupFailed,
                        .fromDomain = report.dmarc.fromDomain,
                        .organizationalDomain = report.dmarc.organizationalDomain};
    }
}

/// Asks for the registration dates of the sender's domain, which the finding tells, and of the Reply-To
/// domains; each young one is a warning sign.
void addDomainAge(ProofReport& report, RegistrationLookup& registry, const PublicSuffixList& suffixes,
                  const Patience& patience) {
    for (const std::string& domain : registrationDomains(report.summary, suffixes)) {
        DomainAge::Status status;
        try {
            const auto registered = registry.registrationDate(asciiDomain(domain).value_or(domain), patience);
            if (registered) {
                status.value = DomainAge::Status::Known{*registered};
                if (auto sign = youngDomain(domain, *registered, report.checkedAt)) {
                    report.flags.push_back(std::move(*sign));
                }
            } else {
                status.value = DomainAge::Status::NotPublished{};
            }
        } catch (const RDAPError& error) {
            status.value = DomainAge::Status::Unavailable{error.what()};
        }
        if (domain == report.domainAge.domain) report.domainAge.status = std::move(status);
    }
}

}  // namespace

Verifier::Verifier(std::shared_ptr<DNSResolver> resolver, std::shared_ptr<RegistrationLookup> registry,
                   const PublicSuffixList& suffixes, std::optional<std::chrono::seconds> lookupTime,
                   CheckRules rules, std::shared_ptr<KeyMemory> keys)
    : m_resolver(std::move(resolver)),
      m_registry(std::move(registry)),
      m_suffixes(suffixes),
      m_lookupTime(lookupTime),
      m_rules(rules),
      m_keys(std::move(keys)),
      m_parsedKeys(std::make_shared<ParsedKeys>()) {}

Verifier Verifier::asking(std::shared_ptr<DNSResolver> resolver,
                          std::shared_ptr<RegistrationLookup> registry) const {
    Verifier other = *this;
    other.m_resolver = std::move(resolver);
    other.m_registry = std::move(registry);
    return other;
}

ProofReport Verifier::verify(const MailMessage& message, std::optional<std::string> fileName, Date now,
                             const std::stop_token& stop) const {
    return verify(message, std::move(fileName), now, UUID::random(), stop);
}

ProofReport Verifier::verify(const MailMessage& message, std::optional<std::string> fileName, Date now,
                             // cppcheck-suppress passedByValue; an identity is sixteen plain bytes
                             UUID id, const std::stop_token& stop, IntakeFacts intake) const {
    return examine(message, std::move(fileName), now, id, stop, std::move(intake)).report;
}

Verification Verifier::examine(const MailMessage& message, std::optional<std::string> fileName, Date now,
                               // cppcheck-suppress passedByValue; an identity is sixteen plain bytes
                               UUID id, const std::stop_token& stop, IntakeFacts intake) const {
    Verification verification;
    ProofReport& report = verification.report;
    report.id = id;
    report.checkedAt = now;
    report.fileName = std::move(fileName);
    report.summary = summary(message);

    // The names change behind the check's own resolver, so that it knows them as the findings do.
    InternationalResolver asking(*m_resolver);
    CheckResolver resolver(asking, m_lookupTime.value_or(usualLookupTime), m_keys.get());
    std::optional<BodyHashes> bodyHashes;
    if (message.body()) bodyHashes.emplace(*message.body(), bodyLimits(message));
    const SignatureChecker checker{
        message, bodyHashes ? &*bodyHashes : nullptr, resolver, now, stop, m_parsedKeys.get()};
    CheckFacts facts{.intake = std::move(intake)};
    report.dkim = dkim(message, checker, facts);

    report.spf = spf(message, report.summary, resolver, stop, facts);
    report.arc = ARCValidator{checker}.validate();
    report.dmarc = dmarc(fromDomain(report.summary), report.dkim, report.spf, resolver, m_suffixes, stop);
    judgeByNewerRules(report, facts, resolver, m_rules.dmarc, stop);
    const std::string& from = report.dmarc.fromDomain;
    report.receiverResults = receiverResults(message);
    report.flags = warningSigns(report.summary, m_suffixes);
    report.domainAge.domain = m_suffixes.get().organizationalDomain(from);
    if (m_registry) {
        Patience patience{stop};
        if (m_lookupTime) patience.deadline = resolver.begin();
        addDomainAge(report, *m_registry, m_suffixes, patience);
    }
    report.verdict = verdict(from, report.dkim, report.dmarc, report.arc, m_suffixes);
    report.limits = limits(report.dkim, report.arc.status, report.spf.status, message.body().has_value());
    report.headersOnly = !message.body().has_value();
    facts.validatedNames = resolver.takeNames();
    facts.otherSources = resolver.takeOtherSources();
    if (m_rules.undoing == Undoing::on) {
        if (auto newest = newestForwarder(message, report.arc, checker))
            facts.broken.push_back(std::move(*newest));
        std::erase_if(facts.broken,
                      [&](const BrokenSignature& broken) { return isCovered(broken, report.dkim); });
        UndoFindings found = undo(message, facts.broken, now, stop);
        facts.undone = std::move(found.undone);
        facts.undoneHeaders = std::move(found.headers);
    } else {
        facts.broken.clear();
    }
    if (m_keys && report.verdict.tone != Tone::good) facts.goneKeys = goneKeys(checker, report.dkim, *m_keys);
    report.notes = notes(message, report, m_suffixes, facts);
    for (UndoneSignature& undone : facts.undone) verification.asSigned.push_back(std::move(undone.message));
    return verification;
}

}  // namespace quillmark
