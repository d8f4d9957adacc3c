#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "Wording/Reader.h"

namespace quillmark {

/// A finding's short English detail in the reader's language, inert. What a resolver or a registry says of
/// its trouble has no translation and stays as it is.
std::string detailText(std::string_view detail, const Reader& reader);

/// An error of the system (`errno`), or its English words, in the reader's language where it is one that
/// people meet; else the words as they are.
std::string systemErrorText(int error, const Reader& reader);
std::string systemErrorText(std::string_view words, const Reader& reader);

/// What stands in a text where its pattern has "%1", "%2" …, which stand in this order; nothing when the text
/// has not that pattern. Views of the text.
using Captures = std::array<std::string_view, 4>;
std::optional<Captures> captures(std::string_view text, std::string_view pattern);

}  // namespace quillmark
