#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <variant>
#include <vector>

#include "Apart/CheckProcesses.h"
#include "Apart/SwitchedRegistry.h"
#include "QuillmarkKit/History.h"
#include "QuillmarkKit/Intake/MailboxReader.h"
#include "QuillmarkKit/Intake/PastedText.h"
#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Lookups/KeyMemory.h"
#include "QuillmarkKit/Lookups/Recording.h"
#include "QuillmarkKit/Mail/Received.h"
#include "QuillmarkKit/MessageText.h"
#include "QuillmarkKit/Report.h"
#include "QuillmarkKit/SignedText.h"
#include "QuillmarkKit/Verifier.h"

namespace quillmark {

using SharedReport = std::shared_ptr<const ProofReport>;

/// Where a message comes from. Copies are cheap.
struct MessageSource {
    MessagePlace place = {};  ///< without a path it can't be read again
    std::shared_ptr<const ByteBuffer> bytes =
        {};  ///< as they were read or pasted, in place of the file there
    ParseMode mode = ParseMode::strict;
    IntakeFacts facts = {};
    std::string digest = {};  ///< what its bytes must have when they are read again, unless empty
};

/// What one check of this run was made from, and what it was told. Shared: copies are cheap.
struct CheckedMessage {
    MessageSource source = {};
    std::shared_ptr<const RecordedAnswers> answers = {};
    std::shared_ptr<const RecordedFailures> failures = {};
    Date begun = {}, ended = {};
    std::shared_ptr<CheckProcesses> processes = {};  ///< that read it; none: this one does
};

/// The way that its Received fields tell, of which a message at hand is read again.
std::vector<PathStep> receivedPath(const CheckedMessage& checked);

/// A message at hand as plain text. From any thread.
MessageText messageText(const CheckedMessage& checked);

/// What was signed of a message at hand, for each note of its report that a signature holds again, in their
/// order: found anew, from what the check was told. Takes as long as the check without its waiting, and asks
/// nobody. From any thread; not all of them once `stop` is requested.
std::vector<SignedText> signedTexts(const CheckedMessage& checked, const ProofReport& report,
                                    const std::stop_token& stop = {});
/// The same, by a verifier that knows what the check was told.
std::vector<SignedText> signedTexts(const FoundMessage& found, const Verifier& verifier,
                                    const std::optional<std::string>& fileName, Date checkedAt,
                                    const UUID& id, const std::stop_token& stop);

/// What came of a message.
struct CheckOutcome {
    struct Checked {
        SharedReport report = {};
        CheckedMessage message = {};
        /// Puts the report into a history; none when it is too large to be kept.
        std::optional<HistoryChange> saved = {};
    };
    MessagePlace place = {};
    std::variant<Refusal, Checked> value = {};
    bool isOutermost = false;  ///< not of what is attached inside the message
    bool isLast = false;       ///< of what is
};

class ApartReader;
class CheckQuestions;
struct TalkPiece;
enum class TalkKind : std::uint32_t;

/// A file or a folder of several messages, of which some have been read.
struct OpenMailbox {
    /// Read by this process.
    explicit OpenMailbox(const MessagePlace& file);
    /// Read by another.
    OpenMailbox(const MessagePlace& file, std::unique_ptr<ApartReader> reader);
    ~OpenMailbox();
    const MessagePlace place;
    std::unique_ptr<MailboxReader> reader;  ///< one of these two
    std::unique_ptr<ApartReader> apart;
    std::mutex reading = {};
    std::optional<Found> first = {};  ///< that was read to see whether there are several
    std::size_t given = 0;
    bool hasFailed = false;                           ///< there was no memory for the next one
    std::optional<std::uint64_t> expectedBytes = {};  ///< of its files
};

/// Takes messages in and checks them, from any thread. It waits for files and for the network, and reads one
/// file at a time, so that of many only those are in memory that are being checked. With `CheckProcesses`
/// they do both, each a file or a message at a time, and nothing of a message is read here.
class MessageChecker {
public:
    /// Is told of a message, and then of those attached inside it, as soon as each is checked; of none that
    /// was being checked at a stop. On the caller's thread.
    using Receiver = std::function<void(CheckOutcome)>;

    MessageChecker(std::shared_ptr<DNSResolver> resolver, std::shared_ptr<RegistrationLookup> registry,
                   std::shared_ptr<const RegistrySwitch> mayAskRegistry, std::shared_ptr<KeyMemory> keys,
                   std::function<Date()> now, std::shared_ptr<CheckProcesses> processes = nullptr);

    /// Who is asked by checks that begin from now on.
    void setResolver(std::shared_ptr<DNSResolver> resolver);
    /// What they judge by.
    void setRules(const CheckRules& rules);

    /// Checks the message there, whose report bears the identity `id`. If there may be several, none is
    /// checked, and they come back. Never throws, nor do the others.
    std::shared_ptr<OpenMailbox> check(const MessageSource& source, const UUID& id,
                                       const std::stop_token& stop, const Receiver& receiver) const;
    /// Checks this message alone, whatever its file holds and it has attached.
    void checkAgain(const MessageSource& source, const UUID& id, const std::stop_token& stop,
                    const Receiver& receiver) const;

    /// One of several messages.
    struct Next {
        Found found;
        std::size_t number = 0;       ///< its place among all of them, from 1
        std::uint64_t bytesRead = 0;  ///< of all files, so far
    };
    /// The next one; nothing at the end.
    std::optional<Next> next(OpenMailbox& mailbox, const std::stop_token& stop) const;
    /// How many have been handed out.
    std::size_t given(OpenMailbox& mailbox) const;
    void check(Found found, const std::stop_token& stop, const Receiver& receiver) const;

    /// Text that was pasted, and why it would not be taken in.
    struct Pasted {
        ByteBuffer source = {};
        std::optional<DroppedLines> dropped = {};
        std::optional<Refusal> refusal = {};
    };
    Pasted pasted(std::string_view text) const;
    /// As `quillmark::isMessageAlone`; false also when it can't be told now.
    bool isMessageAlone(std::string_view file) const;

    /// What is taken in from now on is read by processes that have read nothing yet.
    void renew() const {
        if (m_processes) m_processes->renew();
    }

private:
    /// What is asked of a process to have messages checked.
    struct Asked {
        TalkKind kind;
        std::string bytes = {};
        MessageSource source = {};     // with its bytes, or they come back
        ApartReader* files = nullptr;  // of which it may ask
    };
    /// How that ended; nothing when the process is gone.
    std::optional<TalkKind> checkApart(Asked asked, const UUID& id, const std::stop_token& stop,
                                       const Receiver& receiver) const;
    std::shared_ptr<OpenMailbox> openApart(const MessageSource& source, const UUID& id,
                                           const std::stop_token& stop, const Receiver& receiver) const;
    Found readAgainApart(const MessageSource& source, const std::stop_token& stop) const;
    void walk(Found found, const UUID& id, bool goesInside, const std::stop_token& stop,
              const Receiver& receiver) const;
    Found readAgain(const MessageSource& source, const std::stop_token& stop) const;
    ProofReport verified(const MailMessage& message, CheckedMessage& made, const UUID& id,
                         const std::stop_token& stop) const;

    mutable std::mutex m_choosing = {};
    std::shared_ptr<DNSResolver> m_resolver;
    CheckRules m_rules = {};
    const std::shared_ptr<RegistrationLookup> m_registry;
    const std::shared_ptr<const RegistrySwitch> m_mayAskRegistry;
    const std::shared_ptr<KeyMemory> m_keys;
    const std::function<Date()> m_now;
    const std::shared_ptr<CheckProcesses> m_processes;
    mutable std::mutex m_reading = {};
};

}  // namespace quillmark
