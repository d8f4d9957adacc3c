#include "CommandLine/Progress.h"

#include <algorithm>
#include <cmath>

#include "CommandLine/Output.h"

namespace quillmark {

namespace {

constexpr auto untilFirst = std::chrono::milliseconds(500), betweenUpdates = std::chrono::milliseconds(200);
constexpr double leastPart = 0.01;  // from which on the time left can be told

/// 0:05, 12:34, 1:02:03.
std::string clockTime(std::int64_t seconds) {
    const auto two = [](std::int64_t number) { return (number < 10 ? "0" : "") + std::to_string(number); };
    const std::int64_t hours = seconds / 3600, minutes = seconds / 60 % 60;
    return (hours > 0 ? std::to_string(hours) + ":" + two(minutes) : std::to_string(minutes)) + ":" +
           two(seconds % 60);
}

}  // namespace

std::string Progress::line(const Reader& reader, std::int64_t messages, std::chrono::duration<double> elapsed,
                           double part) {
    if (messages == 0) return reader.translate("Checking …");
    const std::string rate =
        reader.number(std::llround(static_cast<double>(messages) / std::max(elapsed.count(), 0.001)));
    if (part < leastPart) {
        return reader.translateCount("%n message checked, %1 a second", "%n messages checked, %1 a second",
                                     messages, {rate});
    }
    const auto left = std::llround(elapsed.count() * (1 - std::min(part, 1.0)) / part);
    return reader.translateCount("%n message checked, %1 a second, %2 left",
                                 "%n messages checked, %1 a second, %2 left", messages,
                                 {rate, clockTime(left)});
}

Progress::Progress(Reader reader, std::optional<std::uint64_t> expectedBytes)
    : m_reader(reader),
      m_expectedBytes(expectedBytes),
      m_thread([this](const std::stop_token& stop) { show(stop); }) {}

void Progress::update(std::int64_t messages, std::uint64_t bytesRead) {
    const std::lock_guard lock(m_mutex);
    m_messages = messages;
    m_bytesRead = bytesRead;
}

void Progress::show(const std::stop_token& stop) {
    std::unique_lock lock(m_mutex);
    for (auto next = m_begun + untilFirst;; next = Clock::now() + betweenUpdates) {
        m_ended.wait_until(lock, stop, next, [] { return false; });
        if (stop.stop_requested()) return;
        const double part = m_expectedBytes && *m_expectedBytes > 0
                                ? static_cast<double>(m_bytesRead) / static_cast<double>(*m_expectedBytes)
                                : 0;
        showProgress(line(m_reader, m_messages, Clock::now() - m_begun, part));
    }
}

}  // namespace quillmark
