#pragma once

#include <optional>
#include <string>

#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"
#include "Wording/Remark.h"

namespace quillmark {

/// Why questions of a check probably got no answer, and what to do about it, in whole sentences. Of several
/// causes the one that tells most.
std::string likelyCause(const ProofReport& report, const Reader& reader);

/// For beside the headline: what could not be asked for, and the likely cause. Nothing when all could be, or
/// when the explanation of the verdict says the same.
std::optional<Remark> failedLookups(const ProofReport& report, const Reader& reader);

}  // namespace quillmark
