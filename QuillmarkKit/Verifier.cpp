#include "QuillmarkKit/Verifier.h"

#include <algorithm>
#include <utility>

#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Verdict.h"

namespace quillmark {

namespace {

/// Further signatures are left out of the report.
constexpr std::size_t mostSignatures = 10;

/// The addresses of every field of one name, in field order.
std::vector<MailAddress> addresses(const MailMessage& message, std::string_view name) {
    std::vector<MailAddress> list;
    for (const auto position : message.positions(name)) {
        auto more = MailAddress::parseList(message.headers()[position].value());
        std::ranges::move(more, std::back_inserter(list));
    }
    return list;
}

/// A message that names several senders cannot be attributed to one domain: empty unless there is exactly
/// one.
std::string fromDomain(const MessageSummary& summary) {
    return summary.from.size() == 1 ? MailAddress::domainPart(summary.from.front().address) : std::string();
}

std::vector<DKIMResult> dkim(const MailMessage& message, const SignatureChecker& checker) {
    std::vector<DKIMResult> results;
    const auto positions = message.positions("DKIM-Signature");
    for (const auto position : positions.first(std::min(positions.size(), mostSignatures))) {
        results.push_back(checker.check(message.headers()[position]));
    }
    return results;
}

std::vector<AuthResults> receiverResults(const MailMessage& message) {
    std::vector<AuthResults> results;
    for (const auto position : message.positions("Authentication-Results")) {
        results.push_back(AuthResults::parse(message.headers()[position].value()));
    }
    return results;
}

DomainAge::Status domainAge(const std::string& domain, RegistrationLookup& registry, std::stop_token stop) {
    try {
        if (const auto registered = registry.registrationDate(domain, std::move(stop))) {
            return {DomainAge::Status::Known{*registered}};
        }
        return {DomainAge::Status::NotPublished{}};
    } catch (const RDAPError& error) {
        return {DomainAge::Status::Unavailable{error.what()}};
    }
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

Verifier::Verifier(std::shared_ptr<DNSResolver> resolver, std::shared_ptr<RegistrationLookup> registry,
                   const PublicSuffixList& suffixes)
    : m_resolver(std::move(resolver)), m_registry(std::move(registry)), m_suffixes(suffixes) {}

ProofReport Verifier::verify(const MailMessage& message, std::optional<std::string> fileName, Date now,
                             std::stop_token stop) const {
    return verify(message, std::move(fileName), now, UUID::random(), std::move(stop));
}

ProofReport Verifier::verify(const MailMessage& message, std::optional<std::string> fileName, Date now,
                             UUID id, std::stop_token stop) const {
    ProofReport report;
    report.id = id;
    report.checkedAt = now;
    report.fileName = std::move(fileName);
    report.summary = summary(message);
    const std::string from = fromDomain(report.summary);

    std::optional<BodyHashes> bodyHashes;
    if (message.body()) bodyHashes.emplace(*message.body());
    const SignatureChecker checker{message, bodyHashes ? &*bodyHashes : nullptr, *m_resolver, now, stop};
    report.dkim = dkim(message, checker);

    report.dmarc.fromDomain = from;
    report.dmarc.organizationalDomain = m_suffixes.organizationalDomain(from);
    if (from.empty()) report.dmarc.status = DMARCFinding::Status::noFromDomain;

    report.receiverResults = receiverResults(message);

    report.domainAge.domain = report.dmarc.organizationalDomain;
    if (m_registry && !report.domainAge.domain.empty()) {
        report.domainAge.status = domainAge(report.domainAge.domain, *m_registry, stop);
    }

    report.verdict = verdict(from, report.dkim, report.dmarc, report.arc, m_suffixes);
    report.limits = limits(report.dkim, report.arc.status, report.spf.status, message.body().has_value());
    report.headersOnly = !message.body().has_value();
    return report;
}

}  // namespace quillmark
