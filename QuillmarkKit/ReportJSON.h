#pragma once

#include <cstddef>
#include <functional>
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

/// The same, handed on in pieces of about 64 KB: of a hostile message it may have a gigabyte.
void writeCompactJSON(const std::function<void(std::string_view piece)>& sink, const ProofReport& report,
                      const std::optional<std::string>& path = {},
                      const std::optional<std::string>& sha256 = {});

/// The same, or nothing where it has more than `most` bytes, at no more than their cost.
std::optional<std::string> compactJSONWithin(std::size_t most, const ProofReport& report,
                                             const std::optional<std::string>& path = {},
                                             const std::optional<std::string>& sha256 = {});

/// Reads a report back. Throws `DecodingError` with the place of the fault.
ProofReport reportFromJSON(std::string_view text);

}  // namespace quillmark
