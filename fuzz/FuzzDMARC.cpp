// A policy record from the input: what is read from it keeps within its ranges, and the record stays as
// published.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "QuillmarkKit/Checks/DMARC.h"
#include "QuillmarkKit/Support/Text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quillmark;
    using Status = DMARCFinding::Status;
    const std::string record = repairedUTF8({reinterpret_cast<const char*>(data), size});
    StaticResolver resolver({{"_dmarc.a.org.example|TXT", DNSAnswer::records({"v=spf1"})},
                             {"_dmarc.org.example|TXT", DNSAnswer::records({record})}});
    const auto finding = dmarc("a.org.example", {}, {}, resolver, PublicSuffixList::shared());
    if (finding.status != (finding.record ? Status::fail : Status::noPolicy)) std::abort();
    if (finding.record && (finding.record != record || finding.recordDomain != "org.example")) std::abort();
    if (finding.percent < 0 || finding.percent > 100) std::abort();
    if (finding.appliedPolicy != (finding.subdomainPolicy ? finding.subdomainPolicy : finding.policy))
        std::abort();
    const bool isShort =
        finding.policy.value_or("").size() + finding.subdomainPolicy.value_or("").size() <= record.size();
    if (!isShort || (!finding.record && finding.policy)) std::abort();
    return 0;
}
