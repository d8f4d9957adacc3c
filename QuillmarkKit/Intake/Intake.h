#pragma once

#include <cstddef>
#include <exception>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <variant>

#include "QuillmarkKit/Checks/Damage.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/ByteBuffer.h"
#include "QuillmarkKit/Support/Fields.h"

/// From the bytes of a file or a paste to the message in them, or the reason why there is none, as a value.
namespace quillmark {

/// A form that holds messages, or one, packed. Those that can't be unpacked here must be by another program.
enum class PackedForm {
    gzip,
    bzip2,
    xz,
    zstandard,
    lz4,
    zip,
    sevenZip,
    rar,
    tar,
    dbox,  ///< a mail server's store, with several messages in a file
    dbx,   ///< a mail program's store
    pst,   ///< a mail program's store (.pst, .ost)
    olm,   ///< a mail program's archive: a zip file with each message taken to pieces
};

/// Why not all that is in an archive or a compressed file could be had.
enum class ArchiveFault {
    damaged,
    encrypted,
    tooLarge,  ///< far more comes out of it than was read: see `UnpackedSize`
    tooDeep,   ///< it lies in too many others
};

/// Why something was not taken in.
struct Refusal {
    struct Unreadable {
        std::string reason = {};  ///< the system's words
        bool operator==(const Unreadable&) const = default;
    };
    struct TooLarge : Unit {};
    struct NotAnEmail {
        /// What may have become of an email, if one can be seen in it all the same.
        std::optional<DamageKind> damage = {};
        bool operator==(const NotAnEmail&) const = default;
    };
    /// A mail program's own format that keeps a message taken to pieces: what was signed is not in it.
    struct Converted : Unit {};
    struct Packed {
        PackedForm form = PackedForm::zip;
        bool operator==(const Packed&) const = default;
    };
    struct Archive {
        ArchiveFault fault = ArchiveFault::damaged;
        bool operator==(const Archive&) const = default;
    };
    /// A folder in which there is no file that could hold a message, or a mailbox without messages.
    struct EmptyFolder : Unit {};
    /// Not all of the messages attached inside a message were taken in: see `AttachedMessages`.
    struct AttachedLeftOut : Unit {};
    /// Where a message was found there is another now, or none.
    struct Moved : Unit {};
    /// The process that read it has ended.
    struct Ended : Unit {};
    std::variant<Unreadable, TooLarge, NotAnEmail, Converted, Packed, EmptyFolder, AttachedLeftOut, Moved,
                 Archive, Ended>
        value = NotAnEmail{};
    bool operator==(const Refusal&) const = default;
};

/// The refusal for an error of the system's.
Refusal unreadable(int error);
/// The same for what was thrown.
Refusal unreadable(const std::exception& error);

/// The largest message that is taken in, in bytes.
constexpr std::size_t largestMessage = 50'000'000;

/// The bytes of a file, a FIFO or a device, of which at most one byte more than `largestMessage` is ever
/// read. Blocks; soon after `stop` is requested, a FIFO or a device that gives nothing counts as unreadable.
/// A file that changes meanwhile gives what was there when it was read.
std::variant<ByteBuffer, Refusal> readFile(const std::string& path, const std::stop_token& stop = {});
/// The same from an open file, which stays open.
std::variant<ByteBuffer, Refusal> readDescriptor(int descriptor, const std::stop_token& stop = {});

/// Appends what comes next from an open file, up to its end or until there are `limit` bytes, whichever is
/// first; the buffer grows as it must. `mayWait`: whether there can be nothing yet, as in a pipe. Blocks, and
/// heeds `stop`, as above. Why it failed, or nothing.
std::optional<Refusal> readOn(int descriptor, bool mayWait, ByteBuffer& bytes, std::size_t limit,
                              const std::stop_token& stop = {});

/// Opens a file for the two above, without waiting for a FIFO's writer. The descriptor or the reason.
std::variant<int, Refusal> openForReading(const std::string& path);

/// The message in the bytes, if they are not too many and hold a From, Received or DKIM-Signature field.
std::variant<MailMessage, Refusal> messageIn(ByteBuffer bytes, ParseMode mode);

}  // namespace quillmark
