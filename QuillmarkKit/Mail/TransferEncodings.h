#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace quillmark {

/// How the bytes of a content are written in a message (RFC 2045, section 6); `none` stands for every other
/// word, as for 7bit, 8bit and binary.
enum class TransferEncoding { none, base64, quotedPrintable };

/// What the value of a Content-Transfer-Encoding field says.
TransferEncoding transferEncoding(std::string_view value);

/// Base64 as mail has it: whatever is no digit of it, such as line ends, is passed over (RFC 2045, section
/// 6.8), and so are an incomplete end and what follows the padding.
std::string decodedBase64Lines(std::string_view text);

/// Base64 in lines of `width` digits (a multiple of four, above zero), each with `lineEnd` behind it, the
/// last one too.
std::string encodedBase64Lines(std::string_view bytes, std::size_t width, std::string_view lineEnd = "\r\n");

/// RFC 2045, section 6.7; what is no valid escape stays as it is. Blanks at the end of a line came on the
/// way. Lines end in CR LF.
std::string decodedQuotedPrintable(std::string_view text);

/// What a content says that is written in this encoding.
std::string decodedBytes(TransferEncoding encoding, std::string_view text);

/// Each `mark` with two hexadecimal digits behind it as the byte that they name, as "%20" in a link (RFC
/// 3986, section 2.1); what is no escape stays.
std::string decodedEscapes(std::string_view text, char mark = '%');

/// What programs that write quoted-printable do differently; all of it reads alike.
struct QuotedPrintableStyle {
    std::size_t longest = 76;  ///< of a line, the "=" of a broken one included; above 8
    /// Where a line that is too long is broken.
    enum class Break {
        before,  ///< the character that would no longer fit
        behind,  ///< the one that passes `longest` less four, even the line's last one
        blank,   ///< the last blank that fits; without one as `before`
        window,  ///< a blank or a mark in the last third of `longest` characters, line ends counted in
    };
    Break breaks = Break::before;
    /// What may take the last column of a line that ends with it, where a broken one has its "=".
    enum class LastColumn { nothing, characters, escapes };
    LastColumn lastColumn = LastColumn::characters;
    /// The blanks at the end of a line that are written as escapes. Where there are none a soft break keeps
    /// them; with `lastThatFits`, so it does where only the escape would be too long.
    enum class EndBlanks { none, last, lastThatFits, all };
    EndBlanks endBlanks = EndBlanks::last;
    bool escapesTabs = false;       ///< all of them, not only those at the end of a line
    bool leavesRoom = false;        ///< behind a byte beyond ASCII, for more such bytes
    bool escapesStop = false;       ///< a full stop that is alone on its line
    bool escapesFirstStop = false;  ///< a full stop at the beginning of a line
    bool escapesFrom = false;       ///< the F of "From " at the beginning of a line
    bool operator==(const QuotedPrintableStyle&) const = default;
};

/// The styles of usual programs.
extern const std::array<QuotedPrintableStyle, 12> quotedPrintableStyles;

/// `text`, whose lines end in CR LF, as quoted-printable in this style, with CR LF line ends.
std::string encodedQuotedPrintable(std::string_view text, const QuotedPrintableStyle& style);

}  // namespace quillmark
