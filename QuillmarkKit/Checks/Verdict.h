#pragma once

#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "QuillmarkKit/Checks/ARC.h"
#include "QuillmarkKit/Checks/DKIM.h"
#include "QuillmarkKit/Checks/DMARC.h"
#include "QuillmarkKit/Checks/SPF.h"
#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "QuillmarkKit/Support/Fields.h"

/// The conclusions of a report: pure functions of its findings.
namespace quillmark {

enum class VerdictKind {
    verified,             ///< a signature of the From domain's organization holds, of header lines and body
    verifiedHeadersOnly,  ///< the same of the header lines alone: there is no body
    signedByOther,        ///< one of another organization holds
    signatureBroken,      ///< one was made over another message
    keyGone,              ///< the key of one is no longer in DNS
    couldNotCheck,        ///< a lookup for one failed
    allowedServerOnly,    ///< none says anything; SPF allows the server for the domain in From
    cannotProve,          ///< none of these, of which the first that applies is given
};
constexpr auto namesOf(VerdictKind) {
    return enumTable<VerdictKind>(
        EnumStyle::word, {"verified", "verifiedHeadersOnly", "signedByOther", "signatureBroken", "keyGone",
                          "couldNotCheck", "allowedServerOnly", "cannotProve"});
}

enum class Tone { good, caution, bad, unknown };
constexpr auto namesOf(Tone) {
    return enumTable<Tone>(EnumStyle::word, {"good", "caution", "bad", "unknown"});
}

/// What can be said about who sent the message.
struct Verdict {
    VerdictKind kind = VerdictKind::cannotProve;
    Tone tone = Tone::bad;
    std::string domain = {};      ///< the domain the verdict speaks of, such as the signing domain
    std::string fromDomain = {};  ///< empty unless From holds exactly one address
    std::vector<std::string> arcVouchers =
        {};  ///< who vouches, by an intact ARC chain, for what they passed on
    bool operator==(const Verdict&) const = default;
};
constexpr auto fieldsOf(const Verdict*) {
    using T = Verdict;
    return std::tuple{Field{"kind", &T::kind}, Field{"tone", &T::tone}, Field{"domain", &T::domain},
                      Field{"fromDomain", &T::fromDomain}, Field{"arcVouchers", &T::arcVouchers}};
}

/// What the checks cannot prove.
enum class Limit { domainNotCompany, compromisedMailbox, oldKeys, forwarding, spfFromReceived, headersOnly };
constexpr auto namesOf(Limit) {
    return enumTable<Limit>(EnumStyle::word, {"domainNotCompany", "compromisedMailbox", "oldKeys",
                                              "forwarding", "spfFromReceived", "headersOnly"});
}

/// What can be said about who sent the message. The first rule that applies wins, from a checked signature of
/// the From domain's organization down to nothing at all. `fromDomain` may be empty; then nothing is aligned.
Verdict verdict(std::string_view fromDomain, std::span<const DKIMResult> dkim, const DMARCFinding& dmarc,
                const ARCFinding& arc, const PublicSuffixList& suffixes);

/// The signatures that speak for the verdict: those that hold, of the organization it names. Two of them can
/// be of different messages, and laid on one: those that leave more of the body open than another are left
/// out.
std::vector<const DKIMResult*> decidingSignatures(const Verdict& verdict, std::span<const DKIMResult> dkim,
                                                  const PublicSuffixList& suffixes);

/// What the report cannot prove, in the order in which it is said.
std::vector<Limit> limits(std::span<const DKIMResult> dkim, const ARCFinding::Status& arc,
                          const SPFFinding::Status& spf, bool hasBody);

}  // namespace quillmark
