#pragma once

#include <span>
#include <string>
#include <string_view>

namespace quillmark {

/// Somebody else's text as it may stand in one of our sentences: one line, inert, at most 500 bytes of it.
std::string quoted(std::string_view text);

/// A domain as it may stand in a sentence. An international one is never shown by its letters alone:
/// "xn--mnchen-3ya.example (münchen.example)".
std::string quotedDomain(std::string_view domain);

/// "a, b, c", each quoted; behind the first hundred "…" stands for the rest.
std::string quotedList(std::span<const std::string> texts);

}  // namespace quillmark
