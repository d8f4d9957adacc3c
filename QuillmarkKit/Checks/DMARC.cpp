#include "QuillmarkKit/Checks/DMARC.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "QuillmarkKit/Mail/TagList.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

/// Whether `text` begins with "v=DMARC1", blanks not counted.
bool isRecord(std::string_view text) {
    for (const char expected : std::string_view("v=dmarc1")) {
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
        if (text.empty() || asciiLowered(text.front()) != expected) return false;
        text.remove_prefix(1);
    }
    return true;
}

/// The one record at a domain; several count as none. Throws DNSLookupError.
std::optional<std::string> publishedRecord(const std::string& domain, DNSResolver& resolver,
                                           const std::stop_token& stop) {
    const DNSAnswer answer = resolver.lookup("_dmarc." + domain, DNSRecordType::txt, {stop});
    const auto texts = answer.data();
    if (std::ranges::count_if(texts, isRecord) != 1) return std::nullopt;
    return *std::ranges::find_if(texts, isRecord);
}

/// A whole number from 0 to 100, the nearest to what is written; 100 when it is none.
int parsedPercent(std::string_view text) {
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+')) text.remove_prefix(1);
    const auto number = decimal(text);
    if (!number) return 100;
    return isNegative ? 0 : static_cast<int>(std::min<std::int64_t>(*number, 100));
}

void readRecord(DMARCFinding& finding) {
    const TagList tags = TagList::parse(*finding.record);
    const auto lowered = [&](std::string_view name) {
        const auto value = tags.value(name);
        return value ? std::optional(asciiLowered(*value)) : std::nullopt;
    };
    const auto mode = [&](std::string_view name) {
        return lowered(name) == "s" ? AlignmentMode::strict : AlignmentMode::relaxed;
    };
    finding.policy = lowered("p");
    finding.subdomainPolicy = lowered("sp");
    finding.percent = parsedPercent(tags.value("pct").value_or(""));
    finding.dkimMode = mode("adkim");
    finding.spfMode = mode("aspf");
    const bool isOwn = finding.recordDomain == finding.fromDomain;
    finding.appliedPolicy = !isOwn && finding.subdomainPolicy ? finding.subdomainPolicy : finding.policy;
}

void findAlignment(DMARCFinding& finding, std::span<const DKIMResult> dkim, const SPFFinding& spf,
                   const PublicSuffixList& suffixes) {
    const auto signature = std::ranges::find_if(dkim, [&](const DKIMResult& result) {
        return result.status == DKIMResult::Status::pass &&
               aligned(result.domain, finding.fromDomain, finding.dkimMode, suffixes);
    });
    if (signature != dkim.end()) finding.alignedDKIMDomain = signature->domain;
    const auto* judged = std::get_if<SPFFinding::Status::Judged>(&spf.status.value);
    finding.spfAligned = judged && judged->result == SPFResult::pass &&
                         aligned(spf.domain.value_or(""), finding.fromDomain, finding.spfMode, suffixes);
}

}  // namespace

bool aligned(std::string_view a, std::string_view b, AlignmentMode mode, const PublicSuffixList& suffixes) {
    if (mode == AlignmentMode::relaxed) return suffixes.sameOrganization(a, b);
    return !a.empty() && comparableDomain(a) == comparableDomain(b);
}

DMARCFinding dmarc(std::string_view fromDomain, std::span<const DKIMResult> dkim, const SPFFinding& spf,
                   DNSResolver& resolver, const PublicSuffixList& suffixes, const std::stop_token& stop) {
    DMARCFinding finding;
    finding.fromDomain = fromDomain;
    if (fromDomain.empty()) {
        finding.status = DMARCFinding::Status::noFromDomain;
        return finding;
    }
    finding.organizationalDomain = suffixes.organizationalDomain(fromDomain);

    std::vector candidates{finding.fromDomain};
    if (finding.organizationalDomain != finding.fromDomain)
        candidates.push_back(finding.organizationalDomain);
    try {
        for (const std::string& candidate : candidates) {
            finding.record = publishedRecord(candidate, resolver, stop);
            if (!finding.record) continue;
            finding.recordDomain = candidate;
            break;
        }
    } catch (const DNSLookupError&) {
        finding.status = DMARCFinding::Status::lookupFailed;
        return finding;
    }
    if (finding.record) readRecord(finding);
    findAlignment(finding, dkim, spf, suffixes);
    if (finding.record) {
        const bool isProven = finding.alignedDKIMDomain || finding.spfAligned;
        finding.status = isProven ? DMARCFinding::Status::pass : DMARCFinding::Status::fail;
    }
    return finding;
}

}  // namespace quillmark
