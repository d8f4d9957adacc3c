#pragma once

#include <string>
#include <string_view>

#include "Wording/Reader.h"

namespace quillmark {

/// A finding's short English detail in the reader's language, inert. What a resolver or a registry says of
/// its trouble has no translation and stays as it is.
std::string detailText(std::string_view detail, const Reader& reader);

}  // namespace quillmark
