#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "Wording/Reader.h"

namespace quillmark {

/// How far a long run has come, as a line on the terminal that is written over a few times a second.
class Progress {
public:
    using Clock = std::chrono::steady_clock;

    Progress(Reader reader, std::optional<std::uint64_t> expectedBytes)
        : m_reader(reader), m_expectedBytes(expectedBytes) {}

    /// Says what was done by now, and shows it if it is time to.
    void update(std::int64_t messages, std::uint64_t bytesRead);

    /// The line: how many messages, how many a second, and how long the rest takes, as far as that is known.
    static std::string line(const Reader& reader, std::int64_t messages,
                            std::chrono::duration<double> elapsed, double part);

private:
    const Reader m_reader;
    const std::optional<std::uint64_t> m_expectedBytes;
    const Clock::time_point m_begun = Clock::now();
    Clock::time_point m_next = m_begun + std::chrono::milliseconds(500);
};

}  // namespace quillmark
