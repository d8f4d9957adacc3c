#include "Wording/FailedLookups.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

#include "QuillmarkKit/Support/Text.h"
#include "Wording/Findings.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

/// The more telling before the less.
enum class Cause {
    proxyNotFound,
    proxyRefused,
    certificate,
    notRecorded,
    domainSilent,
    serviceSilent,
    offline,
    serviceNotReached,
    tooLong,
    stopped,
    unknown,
};

/// By what the kit says of one question to one service.
Cause causeOf(std::string_view reason) {
    constexpr std::array<std::pair<std::string_view, Cause>, 16> causes{{
        {"proxy not found", Cause::proxyNotFound},
        {"proxy refused", Cause::proxyRefused},
        {"certificate not trusted", Cause::certificate},
        {"not in the recorded answers", Cause::notRecorded},
        {"SERVFAIL", Cause::domainSilent},
        {"timed out", Cause::serviceSilent},
        {"connection lost", Cause::serviceSilent},
        {"answer too large", Cause::serviceSilent},
        {"unreadable answer", Cause::serviceSilent},
        {"transfer failed", Cause::serviceSilent},
        {"no resolver answered", Cause::serviceSilent},
        {"no connection", Cause::offline},
        {"name not found", Cause::offline},
        {"the check took too long", Cause::tooLong},
        {"stopped", Cause::stopped},
        {"the process that asks for this ended", Cause::stopped},
    }};
    if (reason.starts_with("DNS status ")) return Cause::domainSilent;
    if (reason.starts_with("HTTP ")) return Cause::serviceSilent;
    const auto found = std::ranges::find(causes, reason, &std::pair<std::string_view, Cause>::first);
    return found != causes.end() ? found->second : Cause::unknown;
}

/// Of "dns.example: timed out; other.example: no connection". A single service may be the one that is wrong.
Cause causeOfDetail(std::string_view detail) {
    std::vector<Cause> causes;
    while (!detail.empty()) {
        const std::string_view piece = detail.substr(0, detail.find("; "));
        detail.remove_prefix(std::min(detail.size(), piece.size() + 2));
        const std::size_t colon = piece.find(": ");
        causes.push_back(causeOf(colon == std::string_view::npos ? piece : piece.substr(colon + 2)));
    }
    if (causes.empty()) return Cause::unknown;
    const Cause cause = std::ranges::min(causes);
    return cause == Cause::offline && causes.size() == 1 ? Cause::serviceNotReached : cause;
}

Cause causeOf(const ProofReport& report) {
    Cause cause = Cause::unknown;
    const auto add = [&](std::string_view detail) { cause = std::min(cause, causeOfDetail(detail)); };
    const auto addFailed = [&](const DKIMResult& result) {
        if (result.status == DKIMResult::Status::lookupFailed) add(result.detail);
    };
    for (const DKIMResult& signature : report.dkim) addFailed(signature);
    for (const ARCFinding::Hop& hop : report.arc.hops) addFailed(hop.messageSignature);
    const auto* spf = std::get_if<SPFFinding::Status::Judged>(&report.spf.status.value);
    if (spf && spf->result == SPFResult::temperror) add(report.spf.detail.value_or(""));
    return cause;
}

}  // namespace

std::string likelyCause(const ProofReport& report, const Reader& reader) {
    switch (causeOf(report)) {
        case Cause::proxyNotFound:
            return reader.translate(
                "The proxy of your network wasn’t found. Look at the network’s settings, then check again.");
        case Cause::proxyRefused:
            return reader.translate(
                "The proxy of your network refused the question. Ask whoever looks after the network.");
        case Cause::certificate:
            return reader.translate(
                "The DNS service’s certificate isn’t trusted: something stands between you and it, or the "
                "clock of this computer is wrong. Check again in another network.");
        case Cause::notRecorded:
            return reader.translate("The recorded answers don’t hold what this message asks for.");
        case Cause::domainSilent:
            return reader.translate(
                "The DNS servers of a domain that was asked about don’t answer as they should. Check again "
                "later.");
        case Cause::serviceSilent:
            return reader.translate("The DNS services don’t answer as they should. Check again later.");
        case Cause::offline:
            return reader.translate("There seems to be no network. Check again when you are online.");
        case Cause::serviceNotReached:
            return reader.translate(
                "The DNS service can’t be reached. Look at its address and at your network, then check "
                "again.");
        case Cause::tooLong:
            return reader.translate("The answers took too long. Check again later.");
        case Cause::stopped:
            return reader.translate("The check was stopped. Check again to learn more.");
        case Cause::unknown:
            break;
    }
    return reader.translate("Check again later.");
}

std::optional<Remark> failedLookups(const ProofReport& report, const Reader& reader) {
    const VerdictKind kind = report.verdict.kind;
    if (kind == VerdictKind::couldNotCheck) return std::nullopt;
    std::vector<std::string> failed;
    bool isProofMissing = false;
    const auto key = std::ranges::find(report.dkim, DKIMResult::Status::lookupFailed, &DKIMResult::status);
    const bool isGood = kind == VerdictKind::verified || kind == VerdictKind::verifiedHeadersOnly;
    if (key != report.dkim.end()) {
        isProofMissing = !isGood;
        failed.push_back(reader.translate("The key of a signature by %1 couldn’t be asked for.",
                                          {quotedDomain(key->domain)}));
    }
    const auto* spf = std::get_if<SPFFinding::Status::Judged>(&report.spf.status.value);
    if (spf && spf->result == SPFResult::temperror) {
        isProofMissing = isProofMissing || !isGood;
        failed.push_back(sentence(report.spf, reader));
    }
    if (report.dmarc.status == DMARCFinding::Status::lookupFailed) {
        isProofMissing = true;
        failed.push_back(sentence(report.dmarc, reader));
    }
    if (std::holds_alternative<ARCFinding::Status::Unknown>(report.arc.status.value))
        failed.push_back(sentence(report.arc, reader));
    if (failed.empty()) return std::nullopt;
    const std::string what =
        failed.size() == 1 ? failed.front()
                           : reader.translate("Several things couldn’t be asked for; they are named below.");
    return Remark{isProofMissing ? std::optional(Tone::unknown) : std::nullopt,
                  sentences({what, likelyCause(report, reader)})};
}

}  // namespace quillmark
