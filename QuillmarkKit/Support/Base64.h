#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillmark {

/// Strict standard base64 (RFC 4648, section 4): the alphabet and its padding only, no white space, a length
/// that is a multiple of four. Trailing bits that are not zero are accepted. Nothing when it is anything
/// else.
std::optional<std::string> decodedBase64(std::string_view text);

/// Standard base64 with padding.
std::string encodedBase64(std::string_view bytes);

}  // namespace quillmark
