#pragma once

#include <array>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <tuple>

#include "QuillmarkKit/Checks/DKIM.h"
#include "QuillmarkKit/Checks/SPF.h"
#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "QuillmarkKit/Support/Fields.h"

namespace quillmark {

enum class AlignmentMode { relaxed, strict };
constexpr auto namesOf(AlignmentMode) {
    return enumTable<AlignmentMode>(EnumStyle::word, {"relaxed", "strict"});
}

/// Whether what was proven belongs to the domain in From, and what its owner asks of receivers (RFC 7489).
struct DMARCFinding {
    enum class Status { pass, fail, noPolicy, lookupFailed, noFromDomain };
    Status status = Status::noPolicy;
    std::string fromDomain = {};
    std::string organizationalDomain = {};
    std::optional<std::string> policy = {};           ///< `p=`
    std::optional<std::string> subdomainPolicy = {};  ///< `sp=`
    std::optional<std::string> appliedPolicy = {};    ///< the one that applies to this From domain
    int percent = 100;                                ///< `pct=`, 0 to 100
    AlignmentMode dkimMode = AlignmentMode::relaxed;
    AlignmentMode spfMode = AlignmentMode::relaxed;
    std::optional<std::string> record = {};             ///< as published
    std::optional<std::string> recordDomain = {};       ///< where it was found
    std::optional<std::string> alignedDKIMDomain = {};  ///< of the passing, aligned signature
    bool spfAligned = false;
    bool operator==(const DMARCFinding&) const = default;
};
constexpr auto namesOf(DMARCFinding::Status) {
    return enumTable<DMARCFinding::Status>(EnumStyle::object,
                                           {"pass", "fail", "noPolicy", "lookupFailed", "noFromDomain"});
}
constexpr auto fieldsOf(const DMARCFinding*) {
    using T = DMARCFinding;
    return std::tuple{Field{"status", &T::status},
                      Field{"fromDomain", &T::fromDomain},
                      Field{"organizationalDomain", &T::organizationalDomain},
                      Field{"policy", &T::policy},
                      Field{"subdomainPolicy", &T::subdomainPolicy},
                      Field{"appliedPolicy", &T::appliedPolicy},
                      Field{"percent", &T::percent},
                      Field{"dkimMode", &T::dkimMode},
                      Field{"spfMode", &T::spfMode},
                      Field{"record", &T::record},
                      Field{"recordDomain", &T::recordDomain},
                      Field{"alignedDKIMDomain", &T::alignedDKIMDomain},
                      Field{"spfAligned", &T::spfAligned}};
}

/// Whether two domains may speak for each other (RFC 7489, section 3.1): equal without regard to case, or, in
/// relaxed mode, of one organization. An international domain and its form in DNS are one (RFC 8616, section
/// 3). False when either is empty.
bool aligned(std::string_view a, std::string_view b, AlignmentMode mode, const PublicSuffixList& suffixes);

/// Looks for the policy of the domain in From and says whether what was proven belongs to it (RFC 7489,
/// section 6.6). `fromDomain` is empty unless From holds exactly one address. At most two blocking lookups:
/// the domain's own name, then its organization's. Never throws but for want of memory: an error of the
/// resolver, and a stop, is the status `lookupFailed`, and then nothing is aligned.
DMARCFinding dmarc(std::string_view fromDomain, std::span<const DKIMResult> dkim, const SPFFinding& spf,
                   DNSResolver& resolver, const PublicSuffixList& suffixes, const std::stop_token& stop = {});

}  // namespace quillmark
