#pragma once

#include <optional>
#include <string_view>

namespace quillmark {

/// Takes one DER element (X.690, section 8.1) off the front of `der` and gives its content, a view into it.
/// Nothing when it has another tag, does not lie wholly inside, or has a length of more than 4 bytes or of
/// the indefinite form.
std::optional<std::string_view> takeDER(std::string_view& der, unsigned char tag);

}  // namespace quillmark
