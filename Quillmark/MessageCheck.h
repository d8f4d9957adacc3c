#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <variant>

#include "Quillmark/SwitchedRegistry.h"
#include "QuillmarkKit/History.h"
#include "QuillmarkKit/Intake/AttachedMessages.h"
#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Intake/MailboxReader.h"
#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Lookups/Recording.h"
#include "QuillmarkKit/Report.h"

namespace quillmark {

using SharedReport = std::shared_ptr<const ProofReport>;

/// What one check of this run was made from, and what it was told. Shared: copies are cheap.
struct CheckedMessage {
    std::shared_ptr<const ByteBuffer> bytes = {};  ///< as they were read or pasted
    ParseMode mode = ParseMode::strict;            ///< how they were parsed, and are to be again
    MessagePlace place = {};                       ///< without a path it can't be read again
    IntakeFacts facts = {};
    std::string digest = {};  ///< of its bytes, where its file holds more than it
    std::shared_ptr<const RecordedAnswers> answers = {};
    std::shared_ptr<const RecordedFailures> failures = {};
    Date begun = {}, ended = {};
};

/// Where a message comes from.
struct MessageSource {
    MessagePlace place = {};
    std::shared_ptr<const ByteBuffer> bytes = {};  ///< in place of the file there
    ParseMode mode = ParseMode::strict;
    IntakeFacts facts = {};
    std::string digest = {};  ///< what its bytes must have, unless empty
    bool isAgain = false;     ///< this message alone, whatever its file holds and it has attached
};

/// Messages that are handed out one after the other: those of a file or a folder, or those attached inside a
/// message.
class MessageSupply {
public:
    explicit MessageSupply(const MessagePlace& file)
        : m_place(file), m_reader(std::in_place, file.path, file.file) {}
    MessageSupply(MailMessage message, MessagePlace place)
        : m_place(std::move(place)), m_attached(std::in_place, std::move(message)) {}

private:
    friend class MessageChecker;
    std::optional<Found> next(const std::stop_token& stop);
    std::optional<Found> nextAttached();

    const MessagePlace m_place;
    std::optional<MailboxReader> m_reader = {};
    std::optional<AttachedMessages> m_attached = {};
    std::optional<Found> m_first = {};  // taken already, to see whether there is one
    std::size_t m_given = 0;
};

/// One of them.
struct SuppliedMessage {
    Found found;
    std::size_t number = 0;       ///< its place among all of them, from 1
    std::uint64_t bytesRead = 0;  ///< of all files, so far
};

/// What came of a check.
struct CheckOutcome {
    struct Checked {
        SharedReport report = {};
        CheckedMessage message = {};
        /// Puts the report into a history; none when it is too large to be kept.
        std::optional<HistoryChange> saved = {};
        std::shared_ptr<MessageSupply> attached = {};  ///< what is attached to it, if anything
    };
    struct Stopped {};
    /// There may be several messages; none of them has been checked.
    struct Several {
        std::shared_ptr<MessageSupply> supply = {};
        std::optional<std::uint64_t> expectedBytes = {};  ///< of their files
    };
    std::variant<Stopped, Refusal, Checked, Several> value = Stopped{};
};

/// Takes messages in and checks them, from any thread. It waits for files and for the network, and reads one
/// file at a time, so that of many only those are in memory that are being checked.
class MessageChecker {
public:
    MessageChecker(std::shared_ptr<DNSResolver> resolver, std::shared_ptr<RegistrationLookup> registry,
                   std::shared_ptr<const RegistrySwitch> mayAskRegistry, std::function<Date()> now);

    /// The report bears the identity `id`. Never throws.
    CheckOutcome check(const MessageSource& source, const UUID& id, const std::stop_token& stop) const;

    /// What every check begins with: the message in the bytes, or why they are not taken in.
    static std::variant<MailMessage, Refusal> messageOf(std::string_view bytes, ParseMode mode);

    /// The next one; nothing at the end. Never throws.
    std::optional<SuppliedMessage> next(MessageSupply& supply, const std::stop_token& stop) const;
    /// How many have been handed out.
    std::size_t given(const MessageSupply& supply) const;
    CheckOutcome check(SuppliedMessage message, const UUID& id, const std::stop_token& stop) const;

private:
    CheckOutcome opened(const MessageSource& source, const UUID& id, const std::stop_token& stop) const;
    CheckOutcome openedAgain(const MessageSource& source, const UUID& id, const std::stop_token& stop) const;
    CheckOutcome checked(Found found, const UUID& id, const std::stop_token& stop) const;
    /// A message whose bytes are there.
    CheckOutcome checked(const MessageSource& source, const UUID& id, const std::stop_token& stop) const;
    ProofReport verified(const MailMessage& message, CheckedMessage& made, const UUID& id,
                         const std::stop_token& stop) const;

    const std::shared_ptr<DNSResolver> m_resolver;
    const std::shared_ptr<RegistrationLookup> m_registry;
    const std::shared_ptr<const RegistrySwitch> m_mayAskRegistry;
    const std::function<Date()> m_now;
    mutable std::mutex m_reading = {};
};

}  // namespace quillmark
