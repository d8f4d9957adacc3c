#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "QuillmarkKit/Intake/Containers.h"
#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Intake/OutlookMessage.h"
#include "QuillmarkKit/Intake/PastedText.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/ByteBuffer.h"

namespace quillmark {

/// A file in an archive.
struct ArchivedFile {
    std::string name = {};   ///< with the folders it lies in: "Mail/Inbox.mbox"
    std::size_t number = 0;  ///< its place in the archive, from 1: names may be the same
    bool operator==(const ArchivedFile&) const = default;
};

/// Where a message lies.
struct MessagePlace {
    std::string path = {};                   ///< its file; bytes for the system; empty for an open descriptor
    std::optional<std::string> file = {};    ///< what the file is called; nothing for standard input
    std::vector<ArchivedFile> inside = {};   ///< of an archive: the file in it, and in one that lies there
    std::size_t number = 0;                  ///< in its file, from 1; 0 when it is the only one there
    std::vector<std::size_t> attached = {};  ///< {2, 1}: the first inside the second message attached to it

    /// For the report: "Inbox", "Inbox, message 12", "Inbox, message 12, attached message 2.1", "all.zip ›
    /// Mail › Inbox"; nothing for a message without a file, a number and anybody to whom it is attached.
    std::optional<std::string> name() const;
    /// The same with the whole path in place of the file's name: "Mail/Inbox, message 12". Nothing without
    /// a path.
    std::optional<std::string> pathName() const;
    bool operator==(const MessagePlace&) const = default;
};

/// How a message was made out of what it was found in, which its own bytes don't tell.
struct IntakeFacts {
    std::optional<FromLines> fromLines = {};   ///< of an mbox: nothing when no line looks as if it was quoted
    std::optional<DroppedLines> dropped = {};  ///< of pasted text
    /// Of a file of Outlook's: whether more than the header is the message's own.
    std::optional<bool> outlooksBody = {};
    bool operator==(const IntakeFacts&) const = default;
};

/// A message as it was found.
struct FoundMessage {
    ByteBuffer bytes = {};  ///< its own, as it was saved: what a check is made of (`messageIn`)
    MessagePlace place = {};
    ParseMode mode = ParseMode::strict;  ///< in which it is to be parsed
    IntakeFacts facts = {};
    /// What is attached to it that its own bytes don't hold; nothing but for files of Outlook's.
    std::shared_ptr<const OutlookMessage> apart = {};
};

/// What cannot be taken in, or could not all be.
struct FoundProblem {
    Refusal refusal = {};
    MessagePlace place = {};
};

using Found = std::variant<FoundMessage, FoundProblem>;
/// Valid as long as what was found.
const MessagePlace& placeOf(const Found& found);

/// Opens the files that messages are read from. What they hold is the reader's.
class MailFiles {
public:
    MailFiles() = default;
    MailFiles(const MailFiles&) = delete;
    MailFiles& operator=(const MailFiles&) = delete;
    virtual ~MailFiles() = default;

    struct File {
        std::string path = {}, name = {};       ///< `name` is what it is called in reports
        std::variant<int, Refusal> opened{-1};  ///< for reading, and whoever takes it closes it
        bool isOnly = false;                    ///< it is what was to be read itself, and no folder
    };
    /// The next; nothing at the end.
    virtual std::optional<File> next() = 0;
    /// How many files that mail programs keep beside their mailboxes weren't given so far.
    virtual std::int64_t passedOver() const { return 0; }
};

/// Those of a path: the file itself, or those in the folder and the folders in it, as `MailboxReader` tells.
/// `name`: what the file or folder is called in reports; without one, the last component of its path.
std::unique_ptr<MailFiles> mailFiles(std::string path, std::optional<std::string> name = {});

/// Reads the messages of a file of any form, of a folder and the folders in it, or of a pipe, one at a time.
/// What a file holds is told by its bytes, never by its name: one message, an mbox or an MMDF mailbox, a
/// message with a count in front of it or of a server's store, any of them as UTF-16, a
/// file of Outlook's, and any of these compressed or in an archive. Of a mailbox, whatever its size, about
/// two messages are in memory.
///
/// In an archive what is no message is passed over and counted; an archive in it is read, too, and one in
/// that. What comes out of a file has bounds (`UnpackedSize`).
///
/// In folders files come in the order of their names' bytes; hidden ones are passed over, and so is what a
/// Maildir holds beside its messages. So are, and counted, empty files and those that mail programs keep
/// beside mailboxes (`popstate.dat`, `Info.plist`, and `x.msf` beside `x` when it begins as such an index
/// does); and the first message of a mailbox that only holds data about it. A folder is read once, wherever
/// links lead.
///
/// Messages that are attached inside a message are not among these: see `AttachedMessages`. Not safe from
/// several threads at once.
class MailboxReader {
public:
    /// Whether what an mbox did to lines that begin with "From " is undone as the signatures have it.
    enum class Quoting { undone, asStored };

    /// `name`: what the file or folder is called in reports; without one, the last component of its path.
    explicit MailboxReader(std::string path, std::optional<std::string> name = {},
                           Quoting quoting = Quoting::undone);
    /// Reads these files.
    explicit MailboxReader(std::unique_ptr<MailFiles> files, Quoting quoting = Quoting::undone);
    /// Reads an open file or pipe, which stays open and has no name.
    explicit MailboxReader(int descriptor, Quoting quoting = Quoting::undone);
    ~MailboxReader();
    MailboxReader(const MailboxReader&) = delete;
    MailboxReader& operator=(const MailboxReader&) = delete;

    /// The next message, or a file or message that is none; nothing at the end. Blocks while a pipe gives
    /// nothing; soon after `stop` is requested there is nothing more. What is no pipe can be read on then: no
    /// message is lost. Throws for want of memory only.
    std::optional<Found> next(const std::stop_token& stop = {});

    /// How many files of folders and archives and messages of mailboxes were passed over and counted so far.
    std::int64_t passedOver() const;
    /// Bytes read so far, of all files.
    std::uint64_t bytesRead() const;
    /// The bytes that reading this path will take; nothing when that can't be known beforehand (a pipe).
    static std::optional<std::uint64_t> expectedBytes(const std::string& path);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// Whether a reader would give the message in this file with these bytes, but for a line that parts messages
/// in front of it: it is one, and nothing has to be unpacked or undone. False for some of which that is so,
/// too.
bool isMessageAlone(std::string_view file);

/// The same of what was attached to a message in a file of Outlook's.
FoundMessage attachedApart(const OutlookMessage::Attached& attached, MessagePlace place);

/// The message at `position` (see `MessagePlace::attached`) inside the one that was found; `Moved` when there
/// is none.
std::variant<FoundMessage, Refusal> attachedAt(std::vector<std::size_t> position, FoundMessage outer);

/// The message at a place where it was found, read again. What lies there may have changed.
std::variant<FoundMessage, Refusal> readAgain(const MessagePlace& place, const std::stop_token& stop = {});
/// The same from a reader of the place's file.
std::variant<FoundMessage, Refusal> readAgain(const MessagePlace& place, MailboxReader& reader,
                                              const std::stop_token& stop = {});

}  // namespace quillmark
