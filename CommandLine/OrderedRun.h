#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace quillmark {

/// Hands out the numbers 0 … count-1 to several workers and gives their outcomes on in that order. Workers
/// run at most a window ahead of what was given on, and what they hold in memory is bounded. Safe from many
/// threads at once.
///
/// There is no thread that only gives on: whoever brings the outcome that is next in order does it, so that a
/// single worker runs from end to end without waiting for anybody.
class OrderedRun {
public:
    struct Outcome {
        std::string report = {};   ///< empty when there is none
        std::string problem = {};  ///< one line; empty when there is none
        std::string kept = {};     ///< the report for the history, as JSON; empty when there is none
    };

    /// Takes one outcome after the other, never two at a time, on the workers' threads. Must not throw.
    using Receiver = std::function<void(const Outcome&)>;

    /// `ahead`: how far workers may run ahead. `memory`: how many bytes they may hold together.
    OrderedRun(std::size_t count, std::size_t ahead, std::size_t memory, Receiver receiver)
        : m_count(count), m_ahead(ahead), m_memory(memory), m_receiver(std::move(receiver)) {}

    /// A worker takes the next number; nothing when there are no more. Waits while the window is full.
    std::optional<std::size_t> take();
    /// Waits until `bytes` more fit into memory. The number that is given on next never waits, so that
    /// something larger than the whole bound goes through alone.
    void reserve(std::size_t number, std::size_t bytes);
    /// Brings a number's outcome, which takes the place of the bytes reserved for it, and gives on what is
    /// next in order by now.
    void finish(std::size_t number, Outcome outcome);

private:
    const std::size_t m_count, m_ahead, m_memory;
    const Receiver m_receiver;
    std::mutex m_mutex = {};
    std::condition_variable m_changed = {};
    std::size_t m_taken = 0, m_given = 0, m_held = 0;
    bool m_isGivingOn = false;
    std::map<std::size_t, std::size_t> m_reserved = {};  // bytes by number
    std::map<std::size_t, Outcome> m_finished = {};
};

}  // namespace quillmark
