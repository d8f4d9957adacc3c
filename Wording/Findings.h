#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Report.h"
#include "Wording/Wording.h"

/// The words for each finding: a label of a few words, the tone of its marker, one sentence, and what else
/// is to be known of it, each remark a line of its own.
namespace quillmark {

std::string label(DKIMResult::Status status, const Reader& reader);
/// A signature that passed without a body to check is a caution.
Tone tone(const DKIMResult& result);

}  // namespace quillmark
