#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/PublicSuffixList.h"
#include "QuillmarkKit/Report.h"

/// Tricks that a valid signature does not rule out.
namespace quillmark {

/// The signs that the message itself shows, in the order of `LookAlikeFlag`'s rules: several senders, a reply
/// that goes to another organization, a name that shows another organization's domain, then for each
/// international domain, sorted, its Unicode form and whether a label mixes alphabets. None without a sender.
std::vector<LookAlikeFlag> warningSigns(const MessageSummary& summary, const PublicSuffixList& suffixes);

/// The domains whose registration dates are worth knowing, without repetition: the organizational domain of
/// the sender, then those of the Reply-To addresses, of which at most five are asked for. Empty unless From
/// holds exactly one address with a domain.
std::vector<std::string> registrationDomains(const MessageSummary& summary, const PublicSuffixList& suffixes);

/// The sign that a domain was registered fewer than 90 days before `now`, the time of the check.
std::optional<LookAlikeFlag> youngDomain(std::string_view domain, Date registered, Date now);

}  // namespace quillmark
