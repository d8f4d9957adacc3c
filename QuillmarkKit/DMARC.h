#pragma once

#include <span>
#include <stop_token>
#include <string_view>

#include "QuillmarkKit/DNS.h"
#include "QuillmarkKit/PublicSuffixList.h"
#include "QuillmarkKit/Report.h"

namespace quillmark {

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
