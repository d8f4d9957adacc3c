#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

namespace re2 {
class RE2;
}

namespace quillmark {

/// A regular expression. A search takes time linear in its text, whatever that is. From any thread.
class Pattern {
public:
    enum class Units {
        utf8,   ///< a character is what UTF-8 makes of the text; what is not UTF-8 matches nothing
        bytes,  ///< each byte is one
    };
    /// In the syntax of RE2. The expression is the program's own: one that is wrong never matches.
    explicit Pattern(std::string_view expression, Units units = Units::utf8);
    ~Pattern();
    Pattern(const Pattern&) = delete;
    Pattern& operator=(const Pattern&) = delete;

    /// Looks for the leftmost match that begins at `position` or later. `groups` becomes the whole match and
    /// what its first captures hold, views into `text`; fewer cost less. False when there is none.
    bool find(std::string_view text, std::size_t position, std::span<std::string_view> groups) const;

private:
    std::unique_ptr<const re2::RE2> m_expression;
};

}  // namespace quillmark
