#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quillmark {

/// A link that leads through a service which looks at the page first, and which has the link that was sent in
/// it, in one of five ways known from how such links look: told by their shape, as text. Nothing is asked
/// for.
struct ProtectedLink {
    std::size_t begin = 0, end = 0;  ///< where it stands, with what such a service wrote behind it (bytes)
    std::string target = {};         ///< the link as it was sent, "&" not escaped
    bool operator==(const ProtectedLink&) const = default;
};

/// Those in a text (plain or HTML, its transfer encoding undone), in order. Linear in the text.
std::vector<ProtectedLink> protectedLinks(std::string_view text);

/// `text` with what was sent in place of these links, which are its own; their "&" as HTML has it ("&amp;")
/// if it is to be escaped.
std::string withoutProtectedLinks(std::string_view text, const std::vector<ProtectedLink>& links,
                                  bool isEscaped);

}  // namespace quillmark
