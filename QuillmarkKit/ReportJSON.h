#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "QuillmarkKit/Report.h"

namespace quillmark {

/// A report as one line of JSON, keys sorted (docs/formats.md); harmless on a terminal. With a member `path`
/// when the message lies at one, and `sha256` of its bytes when that is given: they are no part of the
/// report, and not kept with it.
std::string compactJSON(const ProofReport& report, const std::optional<std::string>& path = {},
                        const std::optional<std::string>& sha256 = {});

/// Reads a report back. Throws `DecodingError` with the place of the fault.
ProofReport reportFromJSON(std::string_view text);

}  // namespace quillmark
