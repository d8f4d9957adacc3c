#pragma once

#include <optional>
#include <string_view>

namespace quillmark {

/// How a text differs from what a content field (RFC 2045) says of it, so that programs which believe the
/// field show another text than its author wrote.
enum class ContentFault {
    noParts,         ///< it is said to have parts, and the mark between them doesn't stand in it
    textAboveParts,  ///< above its first part stands what programs don't write there; none of them shows that
    textBelowParts,  ///< the same below its last part
    otherType,       ///< plain text that is HTML, or the reverse, or parts that are no alternatives
    otherEncoding,   ///< in that encoding, or that character set, its letters mean others
};

/// By the Content-Type value `type`; `encoding` is that of the Content-Transfer-Encoding without comments.
/// Looks at the first 64 KB of a body without parts, and at the lines of another that part it. Programs
/// differ in how they read some values: what one of them takes for a fault is one.
std::optional<ContentFault> typeFault(std::string_view type, std::string_view encoding,
                                      std::string_view body);
/// By the Content-Transfer-Encoding; here both are without comments.
std::optional<ContentFault> encodingFault(std::string_view type, std::string_view encoding,
                                          std::string_view body);

}  // namespace quillmark
