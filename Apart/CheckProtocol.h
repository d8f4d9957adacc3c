#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "Apart/NetworkProtocol.h"
#include "Apart/Wire.h"
#include "QuillmarkKit/Intake/MailboxReader.h"
#include "QuillmarkKit/Lookups/KeyMemory.h"
#include "QuillmarkKit/Mail/Received.h"
#include "QuillmarkKit/MessageText.h"
#include "QuillmarkKit/SignedText.h"
#include "QuillmarkKit/Verifier.h"
#include "Sandbox/HelperProcess.h"

/// What the window and the processes that check for it (`CheckProcesses`) tell each other. The window asks
/// for one thing at a time; the process asks back for what it needs, and ends with the outcome. Whoever took
/// a process over may send anything: the window reads it with `unpacked`, and lets the process go when it is
/// none of this.
namespace quillmark {

enum class TalkKind : std::uint32_t {
    // What the window asks for.
    check,        ///< a message: `SentMessage`, whether to go inside, `BegunCheck` of the outermost, with
                  ///< which it has begun → `report` or `refused` …, `done`
    open,         ///< a file → the same, or `several`, when it may hold several messages
    resume,       ///< to go on with a mailbox behind so many of its messages → `several`
    next,         ///< the next of a mailbox, so many at most → `found` or `problem` …, and `several` or, at
                  ///< its end, `done`
    readAgain,    ///< the message at a place → `found` or `problem`
    path,         ///< the way of a message: `SentMessage` → `done` with it; so with the others
    text,         ///< as plain text
    signedTexts,  ///< what was signed
    pasted,       ///< text that was pasted: bytes
    isAlone,      ///< whether a file of these bytes is a message alone
    // What the process asks back.
    file,     ///< the next files → for each whether it is there, the only one and the last that comes now,
              ///< or why it can't be read, and the file itself
    begin,    ///< that it begins with a message, by where that is attached → `BegunCheck`
    lookup,   ///< DNS: a name, a type, until when (nanoseconds of `Patience::Clock`) → `SentAnswer`, and
              ///< whether it is to be kept
    mayKnow,  ///< the same without the time → whether
    registration,  ///< a domain, until when → a date or nothing, or why not
    keysOf,        ///< a name → keys
    // What the process tells.
    opened,   ///< that it goes on to the next of the files that it was given
    needed,   ///< the number of an answer that it has kept, from 0
    saw,      ///< a name, and records of it that are keys
    report,   ///< where it is attached, whether it is the last, the report, `SentMessage`
    refused,  ///< the same with a `Refusal`
    several,
    found,    ///< a message of a mailbox: `SentMessage`, bytes that were read so far
    problem,  ///< where it lies, a `Refusal`, bytes that were read so far
    done,
    answer,  ///< the window, to what was asked back
};

/// A message as it was found. Of its place only what lies in the file.
struct SentMessage {
    std::string_view bytes = {};
    ParseMode mode = ParseMode::strict;
    IntakeFacts facts = {};
    std::vector<ArchivedFile> inside = {};
    std::size_t number = 0;
    std::vector<std::size_t> attached = {};
    /// As `OutlookMessage::Attached`.
    struct Apart {
        std::string_view bytes = {};
        bool isOutlooks = false, hasBody = false;
        std::vector<std::size_t> position = {};
    };
    std::vector<Apart> apart = {};
    bool isAnyApartLeftOut = false;
};

/// By what a message is checked.
struct BegunCheck {
    UUID id = {};
    Date at = {};
    CheckRules rules = {};
    bool asksRegistry = false, asksKeys = false;
    bool mayKnowAll = false;  ///< whether `mayKnow` need not be asked
    bool forgets = false;     ///< whether no answer is kept any more that came before
};

// How all of it is packed.

template <>
inline constexpr std::size_t enumeratorsOf<ParseMode> = 2;
template <>
inline constexpr std::size_t enumeratorsOf<PackedForm> = 13;
template <>
inline constexpr std::size_t enumeratorsOf<ArchiveFault> = 4;
template <>
inline constexpr std::size_t enumeratorsOf<Undoing> = 2;
template <>
inline constexpr std::size_t enumeratorsOf<DMARCRules> = 2;
template <>
inline constexpr std::size_t enumeratorsOf<PageText::Line::Kind> = 4;
template <>
inline constexpr std::size_t enumeratorsOf<SignedText::Field::Kind> = 3;
template <>
inline constexpr std::size_t enumeratorsOf<SignedText::Block::Kind> = 6;

constexpr auto casesOf(const Refusal*) {
    return std::array{"unreadable",  "tooLarge",        "notAnEmail", "converted", "packed",
                      "emptyFolder", "attachedLeftOut", "moved",      "archive",   "ended"};
}
constexpr auto fieldsOf(const Refusal::Unreadable*) { return packedFields(&Refusal::Unreadable::reason); }
constexpr auto fieldsOf(const Refusal::NotAnEmail*) { return packedFields(&Refusal::NotAnEmail::damage); }
constexpr auto fieldsOf(const Refusal::Packed*) { return packedFields(&Refusal::Packed::form); }
constexpr auto fieldsOf(const Refusal::Archive*) { return packedFields(&Refusal::Archive::fault); }
constexpr auto fieldsOf(const FromLines*) {
    using T = FromLines;
    return packedFields(&T::reading, &T::lines, &T::isDecided, &T::isLossy);
}
constexpr auto fieldsOf(const DroppedLines*) {
    return packedFields(&DroppedLines::count, &DroppedLines::first);
}
constexpr auto fieldsOf(const IntakeFacts*) {
    using T = IntakeFacts;
    return packedFields(&T::fromLines, &T::dropped, &T::outlooksBody);
}
constexpr auto fieldsOf(const ArchivedFile*) {
    return packedFields(&ArchivedFile::name, &ArchivedFile::number);
}
constexpr auto fieldsOf(const SentMessage::Apart*) {
    using T = SentMessage::Apart;
    return packedFields(&T::bytes, &T::isOutlooks, &T::hasBody, &T::position);
}
constexpr auto fieldsOf(const SentMessage*) {
    using T = SentMessage;
    return packedFields(&T::bytes, &T::mode, &T::facts, &T::inside, &T::number, &T::attached, &T::apart,
                        &T::isAnyApartLeftOut);
}
constexpr auto fieldsOf(const CheckRules*) { return packedFields(&CheckRules::undoing, &CheckRules::dmarc); }
constexpr auto fieldsOf(const BegunCheck*) {
    using T = BegunCheck;
    return packedFields(&T::id, &T::at, &T::rules, &T::asksRegistry, &T::asksKeys, &T::mayKnowAll,
                        &T::forgets);
}
constexpr auto fieldsOf(const KnownKey::File*) {
    return packedFields(&KnownKey::File::name, &KnownKey::File::addedAt);
}
constexpr auto fieldsOf(const KnownKey*) {
    using T = KnownKey;
    return packedFields(&T::name, &T::record, &T::firstSeen, &T::lastSeen, &T::service, &T::isValidated,
                        &T::file);
}
constexpr auto fieldsOf(const PathStep*) {
    return packedFields(&PathStep::hop, &PathStep::date, &PathStep::delay);
}
constexpr auto fieldsOf(const PageText::Line*) {
    using T = PageText::Line;
    return packedFields(&T::kind, &T::text, &T::label);
}
constexpr auto fieldsOf(const SignedText::Field*) {
    using T = SignedText::Field;
    return packedFields(&T::kind, &T::name, &T::shown, &T::signedValues);
}
constexpr auto fieldsOf(const SignedText::Part::Content*) {
    return packedFields(&SignedText::Part::Content::bytes, &SignedText::Part::Content::sha256);
}
constexpr auto fieldsOf(const SignedText::Part*) {
    using T = SignedText::Part;
    return packedFields(&T::type, &T::name, &T::content);
}
constexpr auto fieldsOf(const SignedText::Line*) {
    return packedFields(&SignedText::Line::text, &SignedText::Line::part);
}
constexpr auto fieldsOf(const SignedText::Block*) {
    using T = SignedText::Block;
    return packedFields(&T::kind, &T::lines, &T::count);
}
constexpr auto fieldsOf(const SignedText*) {
    using T = SignedText;
    return packedFields(&T::fields, &T::blocks, &T::moreLines, &T::hasMoreChanges);
}
constexpr auto fieldsOf(const MessageText::Text*) {
    using T = MessageText::Text;
    return packedFields(&T::type, &T::lines, &T::isCut);
}
constexpr auto fieldsOf(const MessageText*) {
    using T = MessageText;
    return packedFields(&T::fields, &T::texts, &T::attachments, &T::moreParts);
}

/// The message as it goes over, whose bytes must live as long.
SentMessage sent(const FoundMessage& found);
/// And back, at a place that lies in `file`.
FoundMessage foundMessage(const SentMessage& sent, const MessagePlace& file);

/// One piece of a talk.
struct TalkPiece {
    TalkKind kind = TalkKind::done;
    std::string bytes = {};
    int file = -1;  ///< that came with it, which is the receiver's
};

/// What is sent at a time, at most, in bytes: a message, and what Outlook keeps apart of it or its report. No
/// report of a message that somebody sent comes near.
constexpr std::size_t largestPiece = 4 * largestMessage;

/// How much of a mailbox is read before the window has any of it, in bytes: no message follows behind that.
constexpr std::size_t bytesAhead = 65'536;

/// One end of a talk.
class Talk {
public:
    /// `goesOn`: whether the other end is waited for; without it always.
    explicit Talk(const Channel& channel, Channel::GoesOn goesOn = {})
        : m_channel(channel), m_goesOn(std::move(goesOn)) {}
    /// False when the other end has gone, or is not waited for.
    bool tell(TalkKind kind, std::string_view bytes = {}, int file = -1) const;
    /// Tells it, if it is small with what is told next, so that the other end wakes up once.
    void tellWithNext(TalkKind kind, std::string_view bytes) const;
    /// Nothing for the same reasons, or when what comes is too large. Takes no more memory than twice what
    /// has come. `takesFiles`: whether a file may come with it, which only a process needs.
    enum class Files { refused, taken };
    std::optional<TalkPiece> hear(Files files) const;
    /// Whether nothing has come behind what was heard, as far as that was looked at.
    bool isQuiet() const { return m_taken == m_came.size(); }

private:
    bool receive(void* bytes, std::size_t size, Files files) const;

    const Channel& m_channel;
    const Channel::GoesOn m_goesOn;
    mutable std::string m_held = {};
    mutable ByteBuffer m_came = {};  // at once, of which so much was taken
    mutable std::size_t m_taken = 0;
};

}  // namespace quillmark
