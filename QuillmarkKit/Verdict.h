#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "QuillmarkKit/PublicSuffixList.h"
#include "QuillmarkKit/Report.h"

/// The conclusions of a report: pure functions of its findings.
namespace quillmark {

/// What can be said about who sent the message. The first rule that applies wins, from a checked signature of
/// the From domain's organization down to nothing at all. `fromDomain` may be empty; then nothing is aligned.
Verdict verdict(std::string_view fromDomain, std::span<const DKIMResult> dkim, const DMARCFinding& dmarc,
                const ARCFinding& arc, const PublicSuffixList& suffixes);

/// What the report cannot prove, in the order in which it is said.
std::vector<Limit> limits(std::span<const DKIMResult> dkim, const ARCFinding::Status& arc,
                          const SPFFinding::Status& spf, bool hasBody);

}  // namespace quillmark
