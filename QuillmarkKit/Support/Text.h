#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Bytes and text. Both are `std::string` or `std::string_view`; a name says which is meant: `raw`, `body`
/// and `…Bytes` are bytes, everything else is valid UTF-8. No function here depends on a locale.
namespace quillmark {

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isASCIILetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
/// A blank (SP) or a tab (HTAB): WSP of RFC 5234.
constexpr bool isBlank(char c) { return c == ' ' || c == '\t'; }
constexpr char asciiLowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
/// The value of a hexadecimal digit, or -1.
constexpr int hexValue(char c) {
    if (isDigit(c)) return c - '0';
    const char l = asciiLowered(c);
    return l >= 'a' && l <= 'f' ? l - 'a' + 10 : -1;
}

/// `text` with A–Z turned into a–z; every other byte stays.
std::string asciiLowered(std::string_view text);

/// Below zero, zero or above zero, as `a` sorts before, with or after `b` when A–Z count as a–z.
int compareIgnoringCase(std::string_view a, std::string_view b);
inline bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && compareIgnoringCase(a, b) == 0;
}
inline bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && compareIgnoringCase(text.substr(0, prefix.size()), prefix) == 0;
}

/// `text` without the characters of `set` (ASCII) at both ends.
std::string_view trimmed(std::string_view text, std::string_view set);
/// `text` without blanks and tabs at both ends.
inline std::string_view trimmedBlanks(std::string_view text) { return trimmed(text, " \t"); }
/// `text` without Unicode white space and line ends at both ends. Bytes that are not UTF-8 stay.
std::string_view trimmed(std::string_view text);
/// `text` without any Unicode white space or line end.
std::string withoutWhitespace(std::string_view text);

/// Takes the piece up to the next `separator` off the front of `rest` and drops the separator. The piece is
/// empty where two separators meet; with no separator left it is all of `rest`, which is then empty.
std::string_view takePiece(std::string_view& rest, char separator);
/// Takes the next word off the front of `rest`: words are separated by runs of characters of `separators`.
/// Empty when only separators were left.
std::string_view takeWord(std::string_view& rest, std::string_view separators);

/// A non-negative decimal number made of ASCII digits alone; nothing when it is empty, holds anything else
/// or does not fit.
std::optional<std::int64_t> decimal(std::string_view text);

/// Strict UTF-8 (RFC 3629): no overlong form, no surrogate, nothing above U+10FFFF.
bool isUTF8(std::string_view bytes);
/// `bytes` as UTF-8 text, every ill-formed sequence replaced by U+FFFD.
std::string repairedUTF8(std::string_view bytes);
/// `bytes` as text: UTF-8 when the whole is valid, else every byte as the character of that code point
/// (ISO 8859-1).
std::string decodedText(std::string_view bytes);
/// Appends one Unicode scalar value as UTF-8.
void appendUTF8(std::string& text, char32_t scalar);
/// Takes one scalar off the front of `text`, which is not empty; a byte that begins no well-formed sequence
/// is taken alone and gives U+FFFD.
char32_t takeScalar(std::string_view& text);

/// `text` with the comments in parentheses removed (RFC 5322, section 3.2.2, without quoted pairs): a double
/// quote toggles quoting wherever it stands, comments nest outside quotes and vanish, line ends become
/// blanks. What is left ends up in one pass, however deep the nesting.
std::string withoutComments(std::string_view text);

/// Whether a character is not seen, or moves what is.
bool isInvisible(char32_t scalar);

/// The one filter between text that somebody else wrote and a person's eyes: every terminal, problem line,
/// text report and label goes through it. Control characters, U+2028/2029, U+FFFC and noncharacters become
/// U+FFFD (CR LF, CR, LF and tab one blank); bidirectional controls and invisible characters are spelled out
/// as ‹U+202E›. The result is one line that nothing in it can rearrange. With a `limit`, at most that many
/// bytes of `text` are shown (cut between characters) and "…" says that there was more.
std::string forDisplay(std::string_view text, std::size_t limit = std::string_view::npos);

}  // namespace quillmark
