#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"
#include "Wording/Totals.h"

namespace quillmark {

/// The tone that is called this, as in the report's JSON.
std::optional<Tone> toneNamed(std::string_view name);

/// Two tables: how often each verdict, and the domains that signed most, with the tones of their verdicts.
/// Domains are `wrapped` in so many columns of a terminal; 0: each stands in one line.
std::string summaryText(const Totals& totals, const Reader& reader, std::size_t width = 0);

/// Whether any verdict has this tone or a worse one; from good on, caution, unknown and bad prove less. One
/// with cautions is at least as bad as caution.
bool isAnyAsBadAs(const Totals& totals, Tone tone);

}  // namespace quillmark
