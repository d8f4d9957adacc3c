#pragma once

#include <optional>
#include <string_view>

namespace quillmark {

/// How a text differs from what a content field (RFC 2045) says of it, so that programs which believe the
/// field show another text than its author wrote.
enum class ContentFault {
    noParts,         ///< it is said to have parts, and the mark between them doesn't stand in it
    textAboveParts,  ///< more stands above its first part than programs write there; none of them shows that
    otherType,       ///< plain text that is HTML, or the reverse
    otherEncoding,   ///< in that encoding, or that character set, its letters mean others
};

/// By the Content-Type value `type`; `encoding` is that of the Content-Transfer-Encoding, both without
/// comments. Looks at the first 64 KB of a body without parts, and at the lines of another until the first
/// part.
std::optional<ContentFault> typeFault(std::string_view type, std::string_view encoding,
                                      std::string_view body);
/// By the Content-Transfer-Encoding.
std::optional<ContentFault> encodingFault(std::string_view type, std::string_view encoding,
                                          std::string_view body);

}  // namespace quillmark
