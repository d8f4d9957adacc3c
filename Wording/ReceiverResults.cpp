#include "Wording/ReceiverResults.h"

#include <algorithm>
#include <optional>
#include <ranges>
#include <variant>

#include "QuillmarkKit/Support/Text.h"
#include "Wording/Findings.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

constexpr std::size_t mostShown = 50;        // statements of one field
constexpr std::size_t longestBrief = 1'000;  // bytes

using Method = AuthResults::Method;

std::string_view property(const Method& method, std::string_view name) {
    for (const NamedText& each : method.properties) {
        if (each.name == name) return each.text;
    }
    return {};
}

/// "dkim=pass (header.d=example.org)", with the properties that tell whom it is about.
std::string statement(const Method& method) {
    std::string about;
    for (const char* name : {"header.d", "header.i", "header.from", "smtp.mailfrom", "smtp.helo"}) {
        const std::string_view value = property(method, name);
        if (value.empty()) continue;
        about += std::string(about.empty() ? "" : ", ") + name + "=" + quotedWord(value);
    }
    const std::string text = quotedWord(method.method) + "=" + quotedWord(method.result);
    return about.empty() ? text : text + " (" + about + ")";
}

/// What was found here on the same question.
struct Counterpart {
    std::string label = {};
    bool agrees = false;
    bool contradicts = false;
};

/// The signature that a statement is about: the one of the domain it names, else the only one there is.
const DKIMResult* signatureMeant(const Method& method, const std::vector<DKIMResult>& signatures) {
    std::string_view domain = property(method, "header.d");
    if (domain.empty()) domain = property(method, "header.i");
    if (const auto at = domain.rfind('@'); at != std::string_view::npos) domain.remove_prefix(at + 1);
    if (domain.empty()) return signatures.size() == 1 ? &signatures.front() : nullptr;
    const auto meant = std::ranges::find_if(signatures, [&](const DKIMResult& signature) {
        return equalsIgnoringCase(signature.domain, domain) &&
               (property(method, "header.s").empty() ||
                equalsIgnoringCase(property(method, "header.s"), signature.selector));
    });
    return meant == signatures.end() ? nullptr : &*meant;
}

std::optional<Counterpart> dkimCounterpart(const Method& method, const ProofReport& report,
                                           const Reader& reader) {
    using Status = DKIMResult::Status;
    const DKIMResult* ours = signatureMeant(method, report.dkim);
    if (!ours) return std::nullopt;
    const bool holds = ours->status == Status::pass;
    const bool isBroken = ours->status == Status::bodyChanged || ours->status == Status::headersChanged;
    const bool saysPass = method.result == "pass", saysFail = method.result == "fail";
    return Counterpart{label(ours->status, reader), (holds && saysPass) || (isBroken && saysFail),
                       (holds && saysFail) || (isBroken && saysPass)};
}

std::optional<Counterpart> spfCounterpart(const Method& method, const ProofReport& report,
                                          const Reader& reader) {
    const auto* judged = std::get_if<SPFFinding::Status::Judged>(&report.spf.status.value);
    if (!judged) return std::nullopt;
    const SPFResult ours = judged->result;
    const std::string_view theirs = method.result == "hardfail" ? "fail" : std::string_view(method.result);
    const bool contradicts = (ours == SPFResult::pass && (theirs == "fail" || theirs == "softfail")) ||
                             ((ours == SPFResult::fail || ours == SPFResult::softfail) && theirs == "pass");
    return Counterpart{label(report.spf, reader), theirs == nameOf(ours), contradicts};
}

std::optional<Counterpart> dmarcCounterpart(const Method& method, const ProofReport& report,
                                            const Reader& reader) {
    using Status = DMARCFinding::Status;
    const Status ours = report.dmarc.status;
    const bool saysPass = method.result == "pass", saysFail = method.result == "fail";
    const bool agrees = (ours == Status::pass && saysPass) || (ours == Status::fail && saysFail) ||
                        (ours == Status::noPolicy && method.result == "none");
    return Counterpart{label(report.dmarc, reader), agrees,
                       (ours == Status::pass && saysFail) || (ours == Status::fail && saysPass)};
}

std::optional<Counterpart> arcCounterpart(const Method& method, const ProofReport& report,
                                          const Reader& reader) {
    const std::string_view ours = casesOf(&report.arc.status)[report.arc.status.value.index()];
    const bool contradicts =
        (ours == "pass" && method.result == "fail") || (ours == "fail" && method.result == "pass");
    return Counterpart{label(report.arc, reader), ours == method.result, contradicts};
}

std::optional<Counterpart> counterpart(const Method& method, const ProofReport& report,
                                       const Reader& reader) {
    if (method.method == "dkim") return dkimCounterpart(method, report, reader);
    if (method.method == "spf") return spfCounterpart(method, report, reader);
    if (method.method == "dmarc") return dmarcCounterpart(method, report, reader);
    if (method.method == "arc") return arcCounterpart(method, report, reader);
    return std::nullopt;
}

Remark methodRemark(const Method& method, const ProofReport& report, const Reader& reader) {
    const auto ours = counterpart(method, report, reader);
    if (!ours) return {{}, statement(method)};
    if (ours->agrees) return {{}, reader.translate("%1: the same was found here.", {statement(method)})};
    const std::optional<Tone> tone = ours->contradicts ? std::optional(Tone::caution) : std::nullopt;
    return {tone, reader.translate("%1: found here is “%2”.", {statement(method), ours->label})};
}

}  // namespace

std::string resultsInBrief(const AuthResults& results) {
    std::string text;
    for (const Method& method : results.methods) {
        if (text.size() > longestBrief) return text + ", …";
        text += (text.empty() ? "" : ", ") + quotedWord(method.method) + "=" + quotedWord(method.result);
    }
    return text;
}

std::vector<Remark> receiverRemarks(const ProofReport& report, const Reader& reader) {
    if (report.receiverResults.empty()) {
        return {{{}, reader.translate("No Authentication-Results header.")}};
    }
    const AuthResults& results = report.receiverResults.front();
    // One large provider begins with a result, where the others have their name.
    const bool isNamed = results.server.find('=') == std::string::npos;
    const std::string server = isNamed ? quotedWord(results.server) : std::string();
    std::vector<Remark> remarks;
    if (results.methods.empty() && !server.empty()) {
        remarks.push_back({{}, reader.translate("%1 wrote that it made no checks.", {server})});
    } else if (server.empty()) {
        remarks.push_back(
            {{}, reader.translate("A server that gives no name wrote this about its own checks:")});
    } else {
        remarks.push_back({{}, reader.translate("%1 wrote this about its own checks:", {server})});
    }
    if (!isNamed) remarks.push_back({{}, quotedWord(results.server)});
    for (const Method& method : std::views::take(results.methods, mostShown))
        remarks.push_back(methodRemark(method, report, reader));
    if (results.methods.size() > mostShown) remarks.push_back({{}, "…"});
    remarks.push_back(
        {{},
         reader.translate(
             "Anyone can write such a line. Only the one that your own mail provider added counts.")});
    return remarks;
}

}  // namespace quillmark
