#pragma once

#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <tuple>

#include "QuillmarkKit/Checks/DMARC.h"

namespace quillmark {

/// Which rules judge by a domain's DMARC record: those of 2015, with the public suffix list, or those of
/// 2026, which find policies and organizations by walking up the tree of names (RFC 9989).
enum class DMARCRules { rfc7489, rfc9989 };

/// What the newer rules make of a message, where the older ones say something else.
struct NewerDMARC {
    /// Why, the weightiest alone.
    enum class Cause {
        severalRecords,  ///< the domain in From publishes several: none counts, nor one from above
        otherRecord,     ///< what counted as a record is none
        noPolicyTag,     ///< a record without a usable `p=`
        treeWalk,        ///< the policy that counts stands at another name
        organization,    ///< another domain speaks for the one in From
        missingDomain,   ///< `np=`, since the domain in From does not exist
        testing,         ///< `t=y`: what is asked for drops one level
        percent,         ///< `pct=` no longer counts
    };
    Cause cause = Cause::treeWalk;
    DMARCFinding::Status status = DMARCFinding::Status::noPolicy;  ///< `pass`, `fail` or `noPolicy`
    std::optional<std::string> policy = {};                        ///< that applies where it fails
    std::optional<std::string> recordDomain = {};                  ///< where it stands
    bool operator==(const NewerDMARC&) const = default;
};
constexpr auto namesOf(NewerDMARC::Cause) {
    return EnumTable<NewerDMARC::Cause, 8>{EnumStyle::word,
                                           {"severalRecords", "otherRecord", "noPolicyTag", "treeWalk",
                                            "organization", "missingDomain", "testing", "percent"}};
}
constexpr auto fieldsOf(const NewerDMARC*) {
    using T = NewerDMARC;
    return std::tuple{Field{"cause", &T::cause}, Field{"status", &T::status}, Field{"policy", &T::policy},
                      Field{"recordDomain", &T::recordDomain}};
}

/// A message judged by RFC 9989.
struct TreeWalkJudgement {
    DMARCFinding finding = {};                  ///< with all percent; the organization is `older`'s
    std::optional<NewerDMARC> difference = {};  ///< what comes of it that `older` doesn't come to
};

/// Judges by RFC 9989 what `older` judged by RFC 7489. Asks at most eight names beside those that `older`
/// asked. Nothing when that can't be known: a lookup failed, or fixed answers don't hold it; nor when `older`
/// has the status `noFromDomain` or `lookupFailed`.
std::optional<TreeWalkJudgement> dmarcByTreeWalk(const DMARCFinding& older, std::span<const DKIMResult> dkim,
                                                 const SPFFinding& spf, DNSResolver& resolver,
                                                 const std::stop_token& stop = {});

/// Whether the two can differ at all: a message of the very domain in From that passes doesn't ask whose
/// organization it is, or where a policy stands, unless that domain publishes several. Asks for what `older`
/// asked for, at most.
bool mayDiffer(const DMARCFinding& older, const SPFFinding& spf, DNSResolver& resolver,
               const std::stop_token& stop = {});

}  // namespace quillmark
