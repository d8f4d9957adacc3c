#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillmark {

/// A tag=value list (RFC 6376, section 3.2): the value of a signature, a seal, a key record or a policy.
/// A view: valid while the text it was parsed from lives.
///
///     tag-list = tag-spec *( ";" tag-spec ) [ ";" ]
///     tag-spec = [FWS] tag-name [FWS] "=" [FWS] tag-value [FWS]
struct TagList {
    struct Tag {
        std::string_view name, value;  ///< the name as written, the value trimmed, its inner folding kept
    };
    std::vector<Tag> tags = {};  ///< one per name, sorted by name without regard to case: millions stay cheap
    std::optional<std::string> duplicateTag = {};  ///< the lower-case name of the first tag that came again

    /// Never fails: a piece without "=" or without a name is passed over, and the first of two values stays.
    /// It is the signature checker that calls a duplicate malformed.
    static TagList parse(std::string_view text);

    /// The value of a tag; `name` in lower case.
    std::optional<std::string_view> value(std::string_view name) const;
    /// The value without any white space: for base64.
    std::optional<std::string> compactValue(std::string_view name) const;
};

}  // namespace quillmark
