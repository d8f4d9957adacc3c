#pragma once

#include <span>
#include <string>
#include <string_view>

namespace quillmark {

/// Somebody else's text as it may stand by itself, behind a label: one line, inert, at most 500 bytes of it.
std::string inert(std::string_view text);

/// The same for one of our sentences, between its quotation marks, which no mark in the text can close.
std::string quoted(std::string_view text);

/// The same where a sentence has no quotation marks, as around a name of a host: they are added when the text
/// is more than one word, so that it cannot go on in our place.
std::string quotedWord(std::string_view text);

/// A domain as it may stand in a sentence. An international one is never shown by its letters alone:
/// "xn--mnchen-3ya.example (münchen.example)".
std::string quotedDomain(std::string_view domain);

/// "a, b, c", each a word; "…" stands for what would make it much longer than a thousand bytes.
std::string quotedList(std::span<const std::string> texts);

}  // namespace quillmark
