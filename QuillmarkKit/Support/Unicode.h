#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What only a Unicode database knows. The one file that includes ICU is `Unicode.cpp`.
namespace quillmark {

inline bool isASCII(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// `text` in lower case by the rules of Unicode, of no particular language; ill-formed UTF-8 is repaired.
std::string unicodeLowered(std::string_view text);
/// The same in upper case, by the rules of a language (BCP 47): "ß" becomes "SS", and in Turkish "i" has its
/// dot.
std::string unicodeUppered(std::string_view text, const char* language = "");

/// `text` in Normalization Form KC: wide, bold and circled letters become those that they look like.
std::string compatibleForm(std::string_view text);

/// The Unicode property Alphabetic.
bool isAlphabetic(char32_t scalar);
/// The Unicode property White_Space.
bool isWhiteSpace(char32_t scalar);
/// Where the letters of a character's script run to; a mark goes with what it stands on. Digits, signs and
/// blanks run nowhere by themselves (UAX 9).
enum class Direction { none, rightwards, leftwards, mark };
Direction directionOf(char32_t scalar);

/// How many columns a character takes on a terminal: two when it is wide, none when it stands on another or
/// is not seen, else one.
int columnsOf(char32_t scalar);
/// The same of UTF-8 text.
std::size_t columnsOf(std::string_view text);

/// A word, as blanks divide them, in the pieces that a line may be broken between: most are one piece, but
/// Chinese and Japanese have no blanks and are broken between their letters (by the classes of UAX 14). Never
/// beside other letters, nor where a domain or an address could be meant, which would begin elsewhere then.
std::vector<std::string_view> piecesOf(std::string_view word);

/// How a language (BCP 47) writes and counts numbers, by CLDR. Takes milliseconds to make; safe from several
/// threads afterwards.
class NumberRules {
public:
    explicit NumberRules(const char* language);
    ~NumberRules();
    NumberRules(const NumberRules&) = delete;
    NumberRules& operator=(const NumberRules&) = delete;

    /// With the language's separators, and the digits 0 to 9 in every language.
    std::string written(std::int64_t number) const;
    /// The plural category of a count: "one", "few", … "other".
    std::string category(std::int64_t count) const;

private:
    struct Rules;
    std::unique_ptr<const Rules> m_rules;
};

/// A domain as DNS and registries are asked for it: each label that is not ASCII in its A-label form (UTS 46,
/// non-transitional), the others as they stand. Nothing when there is none for a label, when it would take
/// changes other than those of case and normalization (so that no other name is meant than the one that
/// stands there), or when the domain is longer than DNS can hold.
std::optional<std::string> asciiDomain(std::string_view domain);

/// What two domains have in common when they are one to DNS: `asciiDomain` or, without one, the domain as it
/// stands, in lower case; where it is longer than DNS can hold, of ASCII only.
std::string comparableDomain(std::string_view domain);

/// The lower-case ASCII letter, digit or hyphen that another character is easily taken for, by Unicode's list
/// of confusable characters (UTS 39, section 4): 'a' for a Cyrillic "а". Nothing when it looks like none, and
/// for ASCII itself. Throws `std::runtime_error` when ICU's larger library can't be loaded; so does the next.
std::optional<char> asciiLookAlike(char32_t scalar);

/// Whether one text is easily taken for the other, whatever the case of its letters: their skeletons by the
/// same list (UTS 39, section 4) are the same, as those of "modern" and "rnodern". So are those of equal
/// texts.
bool areConfusable(std::string_view a, std::string_view b);

/// Decodes bytes by the name of their character set. It keeps one open converter for each character set it
/// met, whatever the spelling, so a text with a million encoded words opens few; not safe from several
/// threads at once.
class CharsetDecoder {
public:
    CharsetDecoder();
    ~CharsetDecoder();
    CharsetDecoder(const CharsetDecoder&) = delete;
    CharsetDecoder& operator=(const CharsetDecoder&) = delete;

    /// `bytes` as UTF-8. `charset` is an IANA or MIME name; an unknown one is read as UTF-8. GB2312 and GBK
    /// are read as GB18030. Nothing when the bytes are not valid in it, an incomplete tail included.
    std::optional<std::string> decode(std::string_view charset, std::string_view bytes);

private:
    struct Converters;
    std::unique_ptr<Converters> m_converters;
};

}  // namespace quillmark
