#pragma once

#include <string>
#include <string_view>

#include "QuillmarkKit/Report.h"

namespace quillmark {

/// A report as one line of JSON, keys sorted (docs/formats.md); harmless on a terminal.
std::string compactJSON(const ProofReport& report);

/// Reads a report back. Throws `DecodingError` with the place of the fault.
ProofReport reportFromJSON(std::string_view text);

}  // namespace quillmark
