#include "Wording/Findings.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <variant>

#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Support/Text.h"
#include "Wording/Details.h"
#include "Wording/Quoted.h"
#include "Wording/ReceiverResults.h"
#include "Wording/Signatures.h"

namespace quillmark {

namespace {

std::optional<SPFResult> judged(const SPFFinding& finding) {
    const auto* status = std::get_if<SPFFinding::Status::Judged>(&finding.status.value);
    return status ? std::optional(status->result) : std::nullopt;
}

}  // namespace

std::string label(const SPFFinding& finding, const Reader& reader) {
    const auto result = judged(finding);
    if (!result) return reader.translate("Not judged");
    switch (*result) {
        case SPFResult::pass:
            return reader.translate("Allowed server");
        case SPFResult::fail:
            return reader.translate("Server not allowed");
        case SPFResult::softfail:
            return reader.translate("Server probably not allowed");
        case SPFResult::neutral:
            return reader.translate("No opinion");
        case SPFResult::none:
            return reader.translate("No SPF record");
        case SPFResult::permerror:
            return reader.translate("Broken SPF record");
        case SPFResult::temperror:
            break;
    }
    return reader.translate("Lookup failed");
}

Tone tone(const SPFFinding& finding) {
    switch (judged(finding).value_or(SPFResult::none)) {
        case SPFResult::pass:
            return Tone::good;
        case SPFResult::fail:
            return Tone::bad;
        case SPFResult::softfail:
            return Tone::caution;
        default:
            return Tone::unknown;
    }
}

std::string sentence(const SPFFinding& finding, const Reader& reader) {
    if (std::holds_alternative<SPFFinding::Status::NoEnvelopeSender>(finding.status.value)) {
        return reader.translate("Can’t be judged: the message doesn’t say which address it was sent from.");
    }
    const auto result = judged(finding);
    if (!result) {
        return reader.translate(
            "Can’t be judged: no line of the message names the sending server’s address.");
    }
    const std::string domain = quotedDomain(finding.domain.value_or(""));
    const std::string address = finding.ip ? quotedWord(finding.ip->ip) : std::string();
    const std::string detail = detailText(finding.detail.value_or(""), reader);
    switch (*result) {
        case SPFResult::pass:
            return reader.translate("%1 lets the server %2 send its mail.", {domain, address});
        case SPFResult::fail:
            return reader.translate("%1 says that the server %2 may not send its mail.", {domain, address});
        case SPFResult::softfail:
            return reader.translate("%1 says that the server %2 probably shouldn’t send its mail.",
                                    {domain, address});
        case SPFResult::neutral:
            if (finding.matched) {
                return reader.translate(
                    "%1 says neither that the server %2 may send its mail nor that it may not.",
                    {domain, address});
            }
            return reader.translate("%1’s record says nothing about the server %2.", {domain, address});
        case SPFResult::none:
            if (const auto fault = nameFault(finding.domain.value_or(""))) {
                if (*fault == NameFault::unfit) {
                    return reader.translate(
                        "%1 is no name that DNS can hold, so nobody could be asked which servers may send "
                        "its mail.",
                        {domain});
                }
                return reader.translate(
                    "%1 is no public name, so nobody was asked which servers may send its mail.", {domain});
            }
            return reader.translate("%1 doesn’t say which servers may send its mail.", {domain});
        case SPFResult::permerror:
            return reader.translate("%1’s SPF record has a mistake, so it can’t be used: %2.",
                                    {domain, detail});
        case SPFResult::temperror:
            break;
    }
    return reader.translate("%1’s SPF record couldn’t be asked for.", {domain});
}

std::string decidingTerm(const SPFFinding& finding, const Reader& reader) {
    constexpr std::size_t longest = 240;  // bytes of each
    const std::string_view matched = finding.matched ? *finding.matched : std::string_view();
    const auto parts = captures(matched, "%1 in %2");
    if (!parts) return quoted(cutInside(matched));
    return reader.translate(
        "%1 in %2", {quoted(cutInside((*parts)[0], longest)), quoted(cutInside((*parts)[1], longest))});
}

std::vector<Remark> remarks(const SPFFinding& finding, const Reader& reader) {
    std::vector<Remark> remarks;
    if (finding.matched) {
        remarks.push_back(
            {{},
             reader.translate("The part of the record that decided: %1.", {decidingTerm(finding, reader)})});
    }
    if (finding.ip) {
        const auto* received = std::get_if<SenderIP::Source::Received>(&finding.ip->source.value);
        if (!received) {
            remarks.push_back(
                {{},
                 reader.translate("The address comes from the Received-SPF line your mail server added.")});
        } else if (received->by) {
            remarks.push_back({{},
                               reader.translate("The address comes from the Received line written by %1, "
                                                "which should be your own mail provider.",
                                                {quotedWord(*received->by)})});
        } else {
            remarks.push_back(
                {{},
                 reader.translate(
                     "The address comes from the topmost Received line with a public address.")});
        }
    }
    if (judged(finding)) {
        remarks.push_back({{}, reader.translate("SPF says which server sent the mail, not who wrote it.")});
    }
    return remarks;
}

std::string label(const DMARCFinding& finding, const Reader& reader) {
    switch (finding.status) {
        case DMARCFinding::Status::pass:
            return reader.translate("Aligned with From");
        case DMARCFinding::Status::fail:
            return reader.translate("Not aligned with From");
        case DMARCFinding::Status::noPolicy:
            return reader.translate("No DMARC policy");
        case DMARCFinding::Status::lookupFailed:
            return reader.translate("Lookup failed");
        case DMARCFinding::Status::noFromDomain:
            break;
    }
    return reader.translate("No single From address");
}

Tone tone(const DMARCFinding& finding) {
    switch (finding.status) {
        case DMARCFinding::Status::pass:
            return Tone::good;
        case DMARCFinding::Status::fail:
            return Tone::bad;
        default:
            return Tone::unknown;
    }
}

std::string policyInWords(std::string_view policy, const Reader& reader) {
    if (policy == "reject") return reader.translate("reject failing mail");
    if (policy == "quarantine") return reader.translate("send failing mail to spam");
    if (policy == "none") return reader.translate("monitor only");
    return quoted(policy);
}

std::string sentence(const DMARCFinding& finding, const Reader& reader) {
    const std::string domain = quotedDomain(finding.fromDomain);
    switch (finding.status) {
        case DMARCFinding::Status::pass:
            if (finding.alignedDKIMDomain) {
                return reader.translate("The signature by %1 belongs to %2, the domain in From.",
                                        {quotedDomain(*finding.alignedDKIMDomain), domain});
            }
            return reader.translate(
                "The server that sent this is one that %1, the domain in From, allows, as far as the "
                "message’s own lines can be trusted.",
                {domain});
        case DMARCFinding::Status::fail:
            return reader.translate("Nothing that was proven belongs to %1, the domain in From.", {domain});
        case DMARCFinding::Status::noPolicy:
            if (const auto fault = nameFault("_dmarc." + finding.fromDomain)) {
                if (*fault == NameFault::unfit) {
                    return reader.translate(
                        "%1 is no name that DNS can hold, so nobody could be asked for its policy.",
                        {domain});
                }
                return reader.translate("%1 is no public name, so nobody was asked for its policy.",
                                        {domain});
            }
            return reader.translate("%1 publishes no policy for mail that fails these checks.", {domain});
        case DMARCFinding::Status::lookupFailed:
            return reader.translate("%1’s policy couldn’t be asked for.", {domain});
        case DMARCFinding::Status::noFromDomain:
            break;
    }
    return reader.translate("The message doesn’t have exactly one From address, so no policy applies.");
}

std::vector<Remark> remarks(const DMARCFinding& finding, const Reader& reader) {
    std::vector<Remark> remarks;
    if (!finding.record) return remarks;
    const std::string domain = quotedDomain(finding.recordDomain.value_or(finding.fromDomain));
    if (finding.appliedPolicy) {
        remarks.push_back({{},
                           reader.translate("What %1 asks receivers to do: %2.",
                                            {domain, policyInWords(*finding.appliedPolicy, reader)})});
    } else {
        remarks.push_back(
            {{}, reader.translate("%1 doesn’t say what receivers should do with failing mail.", {domain})});
    }
    if (finding.percent < 100) {
        remarks.push_back({{},
                           reader.translate("It asks that for only %1% of failing mail.",
                                            {reader.number(finding.percent)})});
    }
    return remarks;
}

std::string label(const ARCFinding& finding, const Reader& reader) {
    switch (finding.status.value.index()) {
        case 0:
            return reader.translate("Not forwarded");
        case 1:
            return reader.translate("Chain intact");
        case 2:
            return reader.translate("Chain broken");
        default:
            return reader.translate("Lookup failed");
    }
}

namespace {

/// The signature for want of which the chain is taken for broken, when nobody can say that it doesn't fit:
/// forwarders, too, withdraw their keys.
const DKIMResult* uncheckedMark(const ARCFinding& finding) {
    const auto* fail = std::get_if<ARCFinding::Status::Fail>(&finding.status.value);
    if (!fail || finding.hops.empty()) return nullptr;
    auto hop = finding.hops.end() - 1;
    if (fail->reason == ARCFinding::Reason::sealFailed) {
        // It is by the same key, unless another domain made it.
        hop = std::ranges::find(finding.hops, false, &ARCFinding::Hop::sealValid);
        if (hop == finding.hops.end() || !equalsIgnoringCase(hop->sealer, hop->messageSignature.domain))
            return nullptr;
    }
    switch (hop->messageSignature.status) {
        case DKIMResult::Status::keyNotPublished:
        case DKIMResult::Status::keyRevoked:
        case DKIMResult::Status::keyUnusable:
        case DKIMResult::Status::keyTooWeak:
            return &hop->messageSignature;
        default:
            return nullptr;
    }
}

}  // namespace

std::optional<Tone> tone(const ARCFinding& finding) {
    if (const DKIMResult* mark = uncheckedMark(finding)) return tone(*mark);
    constexpr std::optional<Tone> tones[] = {std::nullopt, Tone::good, Tone::bad, Tone::unknown};
    return tones[finding.status.value.index()];
}

namespace {

std::string failSentence(ARCFinding::Reason reason, const std::string& detail, const Reader& reader) {
    switch (reason) {
        case ARCFinding::Reason::sealSaysFailed:
            return reader.translate("A forwarder found the marks before its own broken already: %1.",
                                    {detail});
        case ARCFinding::Reason::messageSignatureFailed:
            return reader.translate("The message isn’t the one that the last forwarder signed: %1.",
                                    {detail});
        case ARCFinding::Reason::sealFailed:
            return reader.translate("A forwarder’s seal over the marks before it doesn’t hold: %1.",
                                    {detail});
        case ARCFinding::Reason::brokenStructure:
            break;
    }
    return reader.translate("The forwarders’ marks don’t fit together: %1.", {detail});
}

}  // namespace

std::string sentence(const ARCFinding& finding, const Reader& reader) {
    if (std::holds_alternative<ARCFinding::Status::None>(finding.status.value)) {
        return reader.translate("No forwarder left its mark on this message.");
    }
    if (std::holds_alternative<ARCFinding::Status::Pass>(finding.status.value)) {
        const std::string last = finding.hops.empty() ? "" : quotedDomain(finding.hops.back().sealer);
        return reader.translateCount(
            "One forwarder, %1, signed what it passed on. That is worth as much as you trust it.",
            "Each of the %n forwarders signed what it passed on, the last of them %1. That is worth as much "
            "as you trust them.",
            static_cast<std::int64_t>(finding.hops.size()), {last});
    }
    if (const auto* fail = std::get_if<ARCFinding::Status::Fail>(&finding.status.value)) {
        if (const DKIMResult* mark = uncheckedMark(finding)) return sentence(*mark, reader);
        return failSentence(fail->reason, detailText(finding.detail, reader), reader);
    }
    return reader.translate("A forwarder’s key couldn’t be asked for, so the chain can’t be judged.");
}

namespace {

Remark hopRemark(const ARCFinding::Hop& hop, const Reader& reader) {
    const std::string number = reader.number(hop.instance), sealer = quotedDomain(hop.sealer);
    const DKIMResult& mark = hop.messageSignature;
    switch (mark.status) {
        case DKIMResult::Status::pass:
            if (!mark.bodyChecked || mark.unsignedBodyBytes.value_or(0) > 0)
                return {{}, sentence(mark, reader)};  // it isn't known of the whole message
            return {{},
                    reader.translate("Forwarder %1, %2: the message is still as it was passed on there.",
                                     {number, sealer})};
        case DKIMResult::Status::bodyChanged:
        case DKIMResult::Status::headersChanged:
            return {
                {},
                reader.translate("Forwarder %1, %2: the message was changed after that.", {number, sealer})};
        default:
            return {{},
                    reader.translate("Forwarder %1, %2: its signature can’t be checked.", {number, sealer})};
    }
}

}  // namespace

std::vector<Remark> remarks(const ARCFinding::Hop& hop, const Reader& reader) {
    std::vector<Remark> remarks{hopRemark(hop, reader)};
    if (hop.messageSignature.status == DKIMResult::Status::pass) {
        if (auto remark = unsignedBodyRemark(hop.messageSignature, reader))
            remarks.push_back(std::move(*remark));
    }
    if (!hop.sawResults.methods.empty()) {
        remarks.push_back({{},
                           reader.translate("What forwarder %1 says it found itself: %2.",
                                            {reader.number(hop.instance), resultsInBrief(hop.sawResults)})});
    }
    return remarks;
}

std::string futureOfARC(const Reader& reader) {
    return reader.translate(
        "ARC is on its way out as a standard. That other messages have no such chain says nothing against "
        "them.");
}

std::vector<Remark> remarks(const ARCFinding& finding, const Reader& reader) {
    std::vector<Remark> all;
    for (const ARCFinding::Hop& hop : finding.hops)
        std::ranges::move(remarks(hop, reader), std::back_inserter(all));
    return all;
}

namespace {

/// A registration so many days ago, in the largest unit of which there are two.
std::string registered(const std::string& date, std::int64_t days, const Reader& reader) {
    constexpr double daysInMonth = 30.436875, daysInYear = 365.2425;
    const auto months = static_cast<std::int64_t>(static_cast<double>(days) / daysInMonth);
    const auto years = static_cast<std::int64_t>(static_cast<double>(days) / daysInYear);
    if (years >= 2) {
        return reader.translateCount("registered on %1, %n year ago", "registered on %1, %n years ago", years,
                                     {date});
    }
    if (months >= 2) {
        return reader.translateCount("registered on %1, %n month ago", "registered on %1, %n months ago",
                                     months, {date});
    }
    if (days == 0) return reader.translate("registered on %1, less than a day before the check", {date});
    return reader.translateCount("registered on %1, only %n day ago", "registered on %1, only %n days ago",
                                 days, {date});
}

}  // namespace

std::string ageInWords(const DomainAge& age, Date checkedAt, const Reader& reader) {
    if (const auto* known = std::get_if<DomainAge::Status::Known>(&age.status.value)) {
        const std::string date = reader.date(known->registered);
        if (known->registered > checkedAt) {
            return reader.translate("registered on %1, after the message was checked", {date});
        }
        const auto days = std::chrono::duration_cast<std::chrono::days>(checkedAt - known->registered);
        return registered(date, days.count(), reader);
    }
    if (std::holds_alternative<DomainAge::Status::NotPublished>(age.status.value)) {
        return reader.translate("its registry doesn’t say since when it has been registered");
    }
    if (const auto* unavailable = std::get_if<DomainAge::Status::Unavailable>(&age.status.value)) {
        if (nameFault(age.domain) == NameFault::unfit)
            return reader.translate("its age couldn’t be found out: it is no name that DNS can hold");
        return reader.translate("its age couldn’t be found out: %1",
                                {detailText(unavailable->reason, reader)});
    }
    return reader.translate("its age wasn’t asked for");
}

}  // namespace quillmark
