#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

#include "Wording/Reader.h"

namespace quillmark {

/// How far a long run has come, as a line on the terminal that is written over a few times a second, by a
/// thread of its own: a run that waits for an answer shows that it isn't dead.
class Progress {
public:
    using Clock = std::chrono::steady_clock;

    Progress(Reader reader, std::optional<std::uint64_t> expectedBytes);

    /// Says what was done by now.
    void update(std::int64_t messages, std::uint64_t bytesRead);

    /// The line: how many messages, how many a second, and how long the rest takes, as far as that is known.
    static std::string line(const Reader& reader, std::int64_t messages,
                            std::chrono::duration<double> elapsed, double part);

private:
    void show(const std::stop_token& stop);

    const Reader m_reader;
    const std::optional<std::uint64_t> m_expectedBytes;
    const Clock::time_point m_begun = Clock::now();
    std::mutex m_mutex = {};
    std::condition_variable_any m_ended = {};
    std::int64_t m_messages = 0;
    std::uint64_t m_bytesRead = 0;
    std::jthread m_thread;  // ends before what it looks at
};

}  // namespace quillmark
