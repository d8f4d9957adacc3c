#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Wording/MailboxReport.h"
#include "Wording/Totals.h"

namespace quillmark {

/// Hands out numbers from 0 on to several workers and gives their outcomes on in that order. Workers
/// run at most a window ahead of what was given on, and what they hold in memory is bounded. Safe from many
/// threads at once.
///
/// There is no thread that only gives on: whoever brings the outcome that is next in order does it, so that a
/// single worker runs from end to end without waiting for anybody.
class OrderedRun {
public:
    /// Takes a text piece by piece.
    using Sink = std::function<void(std::string_view piece)>;
    using Report = std::shared_ptr<const ProofReport>;

    /// What came of one message.
    struct Message {
        std::string problem = {};  ///< one line, when it could not be checked; else empty
        bool isOfFolder = false;   ///< that is because it is no email, and nobody named it
        std::string hint = {};     ///< one line beside the report; empty when there is none
        Counted counted = {};      ///< of its report
        std::string report = {};   ///< as it is printed; empty when it is not to be
        /// In its place, where it is too long to wait as a text: writes it, a line of its own. Gives one line
        /// when there was no memory for all of it; else nothing.
        std::function<std::string(const Sink&)> longReport = {};
        std::string kept = {};  ///< the report for the history, as JSON; empty when it is not to be kept
        Report longKept = {};   ///< in its place, where that is too long to wait as a text
        std::string row = {};   ///< of the CSV file; empty without one
        std::optional<MailboxEntry> entry = {};  ///< of the page; none without one
    };
    struct Outcome {
        std::vector<Message> messages = {};  ///< a message and those attached inside it
        std::uint64_t bytesRead = 0;         ///< of all input up to here
    };

    /// Takes one outcome after the other, never two at a time, on the workers' threads. Must not throw.
    using Receiver = std::function<void(const Outcome&)>;

    /// `ahead`: how far workers may run ahead. `memory`: how many bytes they may hold together.
    OrderedRun(std::size_t ahead, std::size_t memory, Receiver receiver)
        : m_ahead(ahead), m_memory(memory), m_receiver(std::move(receiver)) {}

    /// A worker takes the next number. Waits while the window is full. Every number must be finished, but for
    /// the last ones, when there turns out to be nothing for them.
    std::size_t take();
    /// Waits until `bytes` more fit into memory. The number that is given on next never waits, so that
    /// something larger than the whole bound goes through alone.
    void reserve(std::size_t number, std::size_t bytes);
    /// Brings a number's outcome, which takes the place of the bytes reserved for it, and gives on what is
    /// next in order by now. Waits for its turn with a long report, so that there is never more than one for
    /// each worker.
    void finish(std::size_t number, Outcome outcome);

private:
    const std::size_t m_ahead, m_memory;
    const Receiver m_receiver;
    std::mutex m_mutex = {};
    std::condition_variable m_changed = {};
    std::size_t m_taken = 0, m_given = 0, m_held = 0;
    bool m_isGivingOn = false;
    std::map<std::size_t, std::size_t> m_reserved = {};  // bytes by number
    std::map<std::size_t, Outcome> m_finished = {};
};

}  // namespace quillmark
