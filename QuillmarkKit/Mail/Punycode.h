#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace quillmark {

/// International domain names as they are written for DNS, and what alphabets a name is written in.
namespace Punycode {

/// The decoded form of a label's encoded part, without its "xn--" (RFC 3492, section 6.2):
/// decode("mnchen-3ya") is "münchen". The result may hold any character, dots and controls included.
/// Nothing when it is not valid, or longer than 255 bytes.
std::optional<std::string> decode(std::string_view encoded);

/// A whole domain with every label that begins with "xn--" lower-cased and decoded; the others, and those
/// that cannot be decoded, stay as written. Never fails.
std::string unicodeDomain(std::string_view domain);

/// The scripts of the letters in a text: "Latin", "Greek", "Cyrillic", "Armenian", and "Other" for all
/// the rest. What is no letter belongs to none. The names live for ever.
std::set<std::string_view> scripts(std::string_view text);

}  // namespace Punycode

}  // namespace quillmark
