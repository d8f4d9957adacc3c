#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <variant>

#include "Quillmark/SwitchedRegistry.h"
#include "QuillmarkKit/DNS.h"
#include "QuillmarkKit/History.h"
#include "QuillmarkKit/Intake.h"
#include "QuillmarkKit/MailboxReader.h"
#include "QuillmarkKit/Recording.h"
#include "QuillmarkKit/Report.h"

namespace quillmark {

using SharedReport = std::shared_ptr<const ProofReport>;

/// What one check of this run was made from, and what it was told. Shared: copies are cheap.
struct CheckedMessage {
    std::shared_ptr<const ByteBuffer> bytes = {};  ///< as they were read or pasted
    ParseMode mode = ParseMode::strict;            ///< how they were parsed, and are to be again
    std::shared_ptr<const RecordedAnswers> answers = {};
    std::shared_ptr<const RecordedFailures> failures = {};
    Date begun = {}, ended = {};
};

/// Where a message comes from.
struct MessageSource {
    std::string path = {};                         ///< a file to be read; bytes for the system
    std::shared_ptr<const ByteBuffer> bytes = {};  ///< in place of the file
    std::optional<std::string> name = {};          ///< for the report and for problems
    ParseMode mode = ParseMode::strict;
};

/// The messages of a mailbox or a folder, as they are handed out one after the other.
class MessageSupply {
public:
    explicit MessageSupply(const MessageSource& source) : m_reader(source.path, source.name) {}

private:
    friend class MessageChecker;
    MailboxReader m_reader;
    std::optional<Found> m_first = {};  // read already, to see what the file is
    std::size_t m_given = 0;
};

/// One of them.
struct SuppliedMessage {
    Found found;
    std::size_t number = 0;  ///< its place among all of them, from 1
};

/// What came of a check.
struct CheckOutcome {
    struct Checked {
        SharedReport report = {};
        CheckedMessage message = {};
        /// Puts the report into a history; none when it is too large to be kept.
        std::optional<HistoryChange> saved = {};
    };
    struct Stopped {};
    /// There may be several messages; none of them has been checked.
    struct Several {
        std::shared_ptr<MessageSupply> supply = {};
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

    /// The next one; nothing at the end. Never throws.
    std::optional<SuppliedMessage> next(MessageSupply& supply, const std::stop_token& stop) const;
    CheckOutcome check(SuppliedMessage message, const UUID& id, const std::stop_token& stop) const;

private:
    /// A message whose bytes are there.
    struct Whole {
        std::shared_ptr<const ByteBuffer> bytes = {};
        std::optional<std::string> name = {};
        ParseMode mode = ParseMode::strict;
        std::optional<ReportNote> note = {};
    };
    CheckOutcome opened(const MessageSource& source, const UUID& id, const std::stop_token& stop) const;
    CheckOutcome checked(Found found, const UUID& id, const std::stop_token& stop) const;
    CheckOutcome checked(const Whole& message, const UUID& id, const std::stop_token& stop) const;

    const std::shared_ptr<DNSResolver> m_resolver;
    const std::shared_ptr<RegistrationLookup> m_registry;
    const std::shared_ptr<const RegistrySwitch> m_mayAskRegistry;
    const std::function<Date()> m_now;
    mutable std::mutex m_reading = {};
};

}  // namespace quillmark
