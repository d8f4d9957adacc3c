#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <variant>

#include "QuillmarkKit/Intake/AttachedMessages.h"
#include "QuillmarkKit/Intake/MailboxReader.h"
#include "QuillmarkKit/Report.h"

namespace quillmark {

/// The way from what was found to its reports: checks a message, and then, one after the other, those that
/// are attached inside it.
class CheckWalk {
public:
    /// Makes the report on a message. `found` is where and how it was found, and its bytes if they are kept.
    using Verify = std::function<ProofReport(const MailMessage& message, FoundMessage found)>;

    struct Options {
        bool keepsBytes = false;  ///< for `verify`; else a message is parsed where it lies
        bool goesInside = true;   ///< to those that are attached
    };

    /// What came of a message, or why there is none.
    struct Outcome {
        MessagePlace place = {};
        std::variant<Refusal, ProofReport> value = {};
    };

    CheckWalk(Found found, Verify verify, Options options);

    /// The next: of what was found, and then of each that is attached. Nothing at the end. Never throws: what
    /// `verify` throws, and what there is no memory for, is refused.
    std::optional<Outcome> next();
    /// Whether there will be another.
    bool hasNext() const { return m_next.has_value(); }

private:
    std::variant<Refusal, ProofReport> checked(FoundMessage found);
    std::optional<Found> nextAttached();

    const Verify m_verify;
    const Options m_options;
    std::optional<Found> m_next;
    MessagePlace m_outermost = {};
    std::optional<AttachedMessages> m_attached = {};
    std::shared_ptr<const OutlookMessage> m_apart = {};  // of the outermost message
    std::size_t m_nextApart = 0;
};

}  // namespace quillmark
