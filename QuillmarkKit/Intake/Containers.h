#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Support/ByteBuffer.h"
#include "QuillmarkKit/Support/Fields.h"

/// The forms in which mail programs keep messages, told by their bytes alone, and the messages' own bytes in
/// them. Functions of bytes: `MailboxReader` is what reads files.
namespace quillmark {

/// The form of a file that begins so and must be unpacked to be read. A store of which one message to a file
/// can be read is none of these: see `storedMessage`.
std::optional<PackedForm> packedForm(std::string_view head);

/// The byte order of a file that is UTF-16 text: it begins with a byte order mark, or all of its first
/// characters are ASCII.
enum class ByteOrder { little, big };
std::optional<ByteOrder> utf16Order(std::string_view head);

/// UTF-16 as UTF-8, piece by piece, wherever it is cut. A surrogate without its other half becomes U+FFFD. A
/// byte order mark at the beginning is dropped.
class UTF16Decoder {
public:
    explicit UTF16Decoder(ByteOrder order) : m_order(order) {}
    /// The text of the next bytes, as far as it is complete.
    std::string decode(std::string_view bytes);
    /// What is left at the end: U+FFFD when half a character is, else nothing.
    std::string end();

private:
    void add(char16_t unit, std::string& text);

    const ByteOrder m_order;
    bool m_hasBegun = false;
    std::optional<unsigned char> m_half = {};  // the first byte of a unit
    char16_t m_high = 0;                       // a surrogate that waits for its other half
};

/// A message saved with its length in a line of its own in front of it and a property list behind it: its own
/// bytes. Where the length leads nowhere, since line ends were converted, they end where the last property
/// list begins. Nothing when `file` does not hold all three parts.
std::optional<std::string_view> countedMessage(std::string_view file);
/// Whether a file that begins so may be one.
bool beginsWithCount(std::string_view head);

/// Whether a file that begins so is of a server's store (dbox): a line for the file, a header with a
/// message's size, the message, and what the server noted of it.
bool beginsStore(std::string_view head);
/// The one message of such a file; nothing when it holds several, or they are compressed.
std::optional<std::string_view> storedMessage(std::string_view file);

/// How a mailbox parts its messages.
enum class MailboxForm {
    mbox,  ///< each stands behind a line "From " (RFC 4155)
    mmdf,  ///< each stands between two lines of four bytes 1
};
struct MailboxBegin {
    MailboxForm form = MailboxForm::mbox;
    std::size_t offset = 0;  ///< of the first message, behind the line that parts it
};
/// Nothing when `head`, the beginning of a file, begins no mailbox.
std::optional<MailboxBegin> mailboxBegin(std::string_view head);
/// How much of a file must be there, if it is so long, for the questions above.
constexpr std::size_t longestHead = 65'536;

/// Cuts a mailbox into its messages while its bytes come in. It holds about one message at a time, and of one
/// that is larger than is taken in next to nothing; linear in its input, however the "From " lines lie.
///
/// A line of an mbox is taken for a separator when two of these hold: it has a date, an empty line stands
/// before it, a header field follows it; without a date it must name an address. Thus a line of a message
/// that begins with "From " and was not quoted when it was saved splits no message, unless it looks just like
/// a separator. Then the message's Content-Length is heeded when it leads to another separator or to the end,
/// and when more of its signatures fit the body that long: whoever wrote that field can't hide the messages
/// of others.
class MailboxSplitter {
public:
    explicit MailboxSplitter(MailboxForm form) : m_form(form) {}

    struct Message {
        std::string_view bytes = {};  ///< its own, valid until the next call; without what parts it
        std::size_t number = 0;       ///< its place in the file, from 1
        bool isTooLarge = false;      ///< over `largestMessage`; then there are no bytes
        bool isOnly = false;          ///< no other separator was met in the file
    };

    /// Takes what comes next in the file. The first bytes begin where `mailboxBegin` says.
    void add(std::string_view bytes);
    /// Says that this was all.
    void end() { m_hasEnded = true; }
    /// The next message that is complete; nothing when more bytes must come first, or at the end. What lies
    /// between two separators and holds nothing is counted, and passed over.
    std::optional<Message> next();

private:
    struct Separator {
        std::size_t begin, end;
    };
    std::optional<Separator> nextSeparator();
    std::optional<Separator> separatorAt(std::size_t position) const;
    std::size_t endByLength(std::size_t separator) const;
    bool isSignedUpTo(std::size_t end, std::size_t separator) const;
    std::string_view held() const { return m_buffer.view().substr(m_begin); }
    void discardLarge();

    const MailboxForm m_form;
    ByteBuffer m_buffer = ByteBuffer(4 * longestHead);
    std::size_t m_begin = 0;   // of the message, in the buffer
    std::size_t m_search = 0;  // where no separator begins before
    std::size_t m_tried = 0;   // the end of what was hashed for the sake of a Content-Length
    std::size_t m_number = 0;
    bool m_isTooLarge = false, m_hasEnded = false, m_isDone = false;
};

/// How lines that begin with "From " are quoted in an mbox, of which its bytes don't tell.
enum class FromQuoting {
    none,   ///< such lines as ">From " were in the message
    plain,  ///< ">" was put before "From " lines alone
    full,   ///< and before such lines that had been quoted already
};
constexpr auto namesOf(FromQuoting) {
    return enumTable<FromQuoting>(EnumStyle::word, {"none", "plain", "full"});
}

/// Which readings of a message in an mbox its signatures fit.
struct FromLines {
    FromQuoting reading = FromQuoting::none;  ///< the one to be checked
    std::int64_t lines = 0;                   ///< how many it changes, or would change
    bool isDecided = false;                   ///< signatures fit this reading and not each of the others
    bool isLossy = false;  ///< none fits, but one that changes some lines alone, which is then taken
    bool operator==(const FromLines&) const = default;
};
struct UnquotedMessage {
    FromLines fromLines = {};
    std::optional<ByteBuffer> bytes = {};  ///< the message in that reading, when it changes it
};
/// Reads the message in each way and compares the hashes of its body with those that its signatures name (of
/// ten DKIM and ten ARC signatures at most). The message as it stands is what is checked unless another
/// reading fits more of them. Nothing when no body line begins with ">From ".
///
/// A mailbox that puts ">" before "From " lines alone doesn't tell them from those that were written with one
/// ">": where no reading fits, those are tried in which some of these lines were, at most 256 of them.
std::optional<UnquotedMessage> withoutFromQuoting(std::string_view message);

/// Whether this message, the first of an mbox, is none but what mail programs note there about the mailbox.
bool isInternalData(std::string_view message);

}  // namespace quillmark
