#include "QuillmarkKit/Checks/Verdict.h"

#include <algorithm>
#include <utility>
#include <variant>

namespace quillmark {

namespace {

using Status = DKIMResult::Status;

const DKIMResult* firstWith(std::span<const DKIMResult> results, std::initializer_list<Status> statuses) {
    const auto found = std::ranges::find_if(
        results, [&](const DKIMResult& result) { return std::ranges::count(statuses, result.status) > 0; });
    return found == results.end() ? nullptr : &*found;
}

std::vector<std::string> vouchers(const ARCFinding& arc) {
    std::vector<std::string> sealers;
    if (!std::holds_alternative<ARCFinding::Status::Pass>(arc.status.value)) return sealers;
    for (const ARCFinding::Hop& hop : arc.hops) {
        if (!hop.sealer.empty()) sealers.push_back(hop.sealer);
    }
    return sealers;
}

}  // namespace

Verdict verdict(std::string_view fromDomain, std::span<const DKIMResult> dkim, const DMARCFinding& dmarc,
                const ARCFinding& arc, const PublicSuffixList& suffixes) {
    Verdict verdict;
    verdict.fromDomain = fromDomain;
    verdict.arcVouchers = vouchers(arc);
    const auto concluded = [&](VerdictKind kind, Tone tone, std::string_view domain) {
        verdict.kind = kind;
        verdict.tone = tone;
        verdict.domain = domain;
        return std::move(verdict);
    };

    const DKIMResult* passing = nullptr;  // the first that passes; below, the first that is aligned as well
    const DKIMResult* aligned = nullptr;
    for (const DKIMResult& result : dkim) {
        if (result.status != Status::pass) continue;
        if (!passing) passing = &result;
        if (!suffixes.sameOrganization(result.domain, fromDomain)) continue;
        if (result.bodyChecked) return concluded(VerdictKind::verified, Tone::good, result.domain);
        if (!aligned) aligned = &result;
    }
    if (aligned) return concluded(VerdictKind::verifiedHeadersOnly, Tone::good, aligned->domain);
    if (passing) return concluded(VerdictKind::signedByOther, Tone::caution, passing->domain);
    if (const auto* broken = firstWith(dkim, {Status::bodyChanged, Status::headersChanged})) {
        const Tone tone = verdict.arcVouchers.empty() ? Tone::bad : Tone::caution;
        return concluded(VerdictKind::signatureBroken, tone, broken->domain);
    }
    if (const auto* gone = firstWith(dkim, {Status::keyNotPublished, Status::keyRevoked})) {
        return concluded(VerdictKind::keyGone, Tone::unknown, gone->domain);
    }
    if (const auto* failed = firstWith(dkim, {Status::lookupFailed})) {
        return concluded(VerdictKind::couldNotCheck, Tone::unknown, failed->domain);
    }
    if (dmarc.spfAligned) return concluded(VerdictKind::allowedServerOnly, Tone::caution, fromDomain);
    return concluded(VerdictKind::cannotProve, Tone::bad, fromDomain);
}

std::vector<const DKIMResult*> decidingSignatures(const Verdict& verdict, std::span<const DKIMResult> dkim,
                                                  const PublicSuffixList& suffixes) {
    std::vector<const DKIMResult*> deciding;
    for (const DKIMResult& result : dkim) {
        if (result.status == Status::pass && suffixes.sameOrganization(result.domain, verdict.domain))
            deciding.push_back(&result);
    }
    const auto open = [](const DKIMResult* result) { return result->unsignedBodyBytes.value_or(0); };
    if (deciding.empty()) return deciding;
    const auto least = open(*std::ranges::min_element(deciding, {}, open));
    std::erase_if(deciding, [&](const DKIMResult* result) { return open(result) > least; });
    return deciding;
}

std::vector<Limit> limits(std::span<const DKIMResult> dkim, const ARCFinding::Status& arc,
                          const SPFFinding::Status& spf, bool hasBody) {
    std::vector<Limit> limits = {Limit::domainNotCompany, Limit::compromisedMailbox};
    if (firstWith(dkim, {Status::keyNotPublished, Status::keyRevoked})) limits.push_back(Limit::oldKeys);
    const bool forwarded = !std::holds_alternative<ARCFinding::Status::None>(arc.value);
    if (forwarded || firstWith(dkim, {Status::bodyChanged, Status::headersChanged})) {
        limits.push_back(Limit::forwarding);
    }
    if (std::holds_alternative<SPFFinding::Status::Judged>(spf.value))
        limits.push_back(Limit::spfFromReceived);
    if (!hasBody) limits.push_back(Limit::headersOnly);
    return limits;
}

}  // namespace quillmark
