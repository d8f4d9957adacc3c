#pragma once

#include <string>
#include <vector>

#include "QuillmarkKit/Report.h"
#include "Wording/Remark.h"

/// The words for what receiving servers wrote of their own checks.
namespace quillmark {

/// "dkim=pass, spf=fail": the methods and their results.
std::string resultsInBrief(const AuthResults& results);

/// The topmost Authentication-Results, a line for each of its statements, with what was found here beside it:
/// a caution where the two contradict each other. One line when the message has no such field.
std::vector<Remark> receiverRemarks(const ProofReport& report, const Reader& reader);

}  // namespace quillmark
