#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillmark {

/// Takes one DER element (X.690, section 8.1) off the front of `der` and gives its content, a view into it.
/// Nothing when it has another tag, does not lie wholly inside, or has a length of more than 4 bytes or of
/// the indefinite form.
std::optional<std::string_view> takeDER(std::string_view& der, unsigned char tag);

/// An element of at most 65,535 bytes.
std::string encodedDER(char tag, std::string_view content);

/// The SubjectPublicKeyInfo (RFC 5280, section 4.1.2.7) around a PKCS#1 key.
std::string rsaPublicKeyInfo(std::string_view pkcs1);

}  // namespace quillmark
