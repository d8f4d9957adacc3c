#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Support/ByteBuffer.h"

namespace quillmark {

/// Operations on bytes.
namespace Bytes {

/// Every line end (CR LF, a lone CR, a lone LF) becomes CR LF. Bytes in which every line already ends so
/// are given back in the buffer they came in.
ByteBuffer normalizedLineEnds(ByteBuffer bytes);

}  // namespace Bytes

/// One header field (RFC 5322, section 2.2): a view, valid while any copy of its message lives.
struct HeaderField {
    std::string_view raw;   ///< name, colon and value with its folding; no final CR LF
    std::string_view name;  ///< as written, without blanks before the colon; bytes 33 to 126 only
    bool operator==(const HeaderField&) const = default;

    /// What stands behind the first colon of `raw`, folding kept.
    std::string_view valueBytes() const;
    /// The value for reading: CR and LF removed, decoded as UTF-8 (or as ISO 8859-1 when it is not valid
    /// UTF-8 as a whole), then trimmed of white space.
    std::string value() const;
};

/// How leniently a message is parsed: files as they are; pasted text may begin with blanks, and a body of
/// white space alone is no body.
enum class ParseMode { strict, lenient };

/// One e-mail (RFC 5322) as fields and a body, never decoded: the exact bytes that were signed, but for line
/// ends, which are CR LF everywhere. Copies are cheap and share one buffer.
class MailMessage {
public:
    /// No fields and no body.
    MailMessage() = default;

    /// Never fails: what holds no header field gives a message without any. A UTF-8 byte order mark, leading
    /// empty lines, one mbox separator line and lines before the first field are passed over; a line that is
    /// no field ends the header block, and then there is no body.
    static MailMessage parse(ByteBuffer bytes, ParseMode mode = ParseMode::strict);
    static MailMessage parse(std::string_view bytes, ParseMode mode = ParseMode::strict) {
        return parse(ByteBuffer(bytes), mode);
    }

    /// The line that was passed over as a mailbox's separator, with those behind it that begin with a blank,
    /// as a field's would that it was taken from; empty when there was none.
    std::string_view separatorLine() const;

    /// A line that is no header field and yet no empty line, with which the header block ended.
    struct EarlyEnd {
        std::size_t line = 0;   ///< its number, from 1; whatever stands before the first field counts
        std::size_t bytes = 0;  ///< from this line to the end of the message: what was not read
        bool operator==(const EarlyEnd&) const = default;
    };
    std::optional<EarlyEnd> earlyEnd() const;

    /// All of it, with what stands before the first field and what was not read. A view, as fields are.
    std::string_view text() const;
    /// Whether every line came with two carriage returns before its line feed, as programs write that convert
    /// the line ends of a message which has them already. An empty line follows each line of it here.
    bool hasDoubledLineEnds() const;

    /// In message order, topmost first, duplicates kept.
    const std::vector<HeaderField>& headers() const;

    /// What follows the empty line that ends the header block; nothing when there is no such line.
    std::optional<std::string_view> body() const;

    /// The positions in `headers()` of the fields with this name (matched without regard to case), topmost
    /// first. Two binary searches, however many fields there are.
    std::span<const std::uint32_t> positions(std::string_view name) const;

    /// The topmost field of this name, or null; valid while any copy of the message lives.
    const HeaderField* first(std::string_view name) const;

    /// The message written out again: each field and CR LF, then CR LF and the body if there is one.
    std::string bytes() const;

private:
    struct Content;
    std::shared_ptr<const Content> m_content = {};
};

}  // namespace quillmark
