#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "Wording/Catalogue.h"

/// Words of different directions beside each other. In a language written from right to left, what is put
/// into a sentence is an island: set apart by U+2066 or U+2067 and U+2069, which nobody sees, so that a
/// domain stands as a whole and its letters and those around it move each other nowhere. In the other
/// languages nothing is set apart here; the window does that for its own screen.
namespace quillmark {

constexpr char32_t endOfIsland = 0x2069;
constexpr bool isBeginOfIsland(char32_t c) { return c >= 0x2066 && c <= 0x2068; }

/// `text` as it may stand in a line of ours: as it is, or as an island. A number stays as it is. What is one
/// name (a domain, an address) runs from left to right, label by label, whatever its letters.
std::string isolated(std::string_view text, Language language);

/// A line of ours that is to be inert as a whole (`forDisplay`), but for its islands.
std::string inertLine(std::string_view line, Language language, std::size_t limit = std::string_view::npos);

}  // namespace quillmark
