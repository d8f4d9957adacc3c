#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// What only a Unicode database knows. The one file that includes ICU is `Unicode.cpp`.
namespace quillmark {

/// `text` in lower case by the rules of Unicode, of no particular language.
std::string unicodeLowered(std::string_view text);
/// The same in upper case; "ß" becomes "SS".
std::string unicodeUppered(std::string_view text);

/// The Unicode property Alphabetic.
bool isAlphabetic(char32_t scalar);

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
