#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "QuillmarkKit/Message.h"
#include "QuillmarkKit/PublicSuffixList.h"
#include "QuillmarkKit/Report.h"

namespace quillmark {

/// What a person must know that the verdict does not say, in the order of `ReportNote`'s cases. `report`
/// holds the findings of this message, its verdict included; `validatedNames` are those, in lower case, of
/// which DNS said that its answer was validated. At most about three dozen notes come of it, each small.
std::vector<ReportNote> notes(const MailMessage& message, const ProofReport& report,
                              const PublicSuffixList& suffixes,
                              const std::set<std::string, std::less<>>& validatedNames = {});

}  // namespace quillmark
