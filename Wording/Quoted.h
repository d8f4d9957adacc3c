#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "Wording/Reader.h"

namespace quillmark {

/// Somebody else's text as it may stand by itself, behind a label: one line, inert, at most 500 bytes of it.
std::string inert(std::string_view text);

/// The same for one of our sentences, between its quotation marks, which no mark in the text can close.
std::string quoted(std::string_view text);

/// The same where a sentence has no quotation marks, as around a name of a host: they are added when the text
/// is more than one word, so that it cannot go on in our place. A long one is `cutInside`.
std::string quotedWord(std::string_view text);

/// A domain or an address of at most `limit` bytes as it is, else with "…" for what is left out inside it:
/// more of its end is kept than of its beginning, for the end says whose it is.
std::string cutInside(std::string_view text, std::size_t limit = 490);

/// A domain as it may stand in a sentence. An international one is never shown by its letters alone:
/// "xn--mnchen-3ya.example (münchen.example)", or the other way round when the letters are what stands there.
std::string quotedDomain(std::string_view domain);

/// "a, b, c", each a word; "…" stands for what would make it much longer than a thousand bytes.
std::string quotedList(std::span<const std::string> texts, const Reader& reader);

}  // namespace quillmark
