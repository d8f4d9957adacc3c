#include "CommandLine/OrderedRun.h"

#include <algorithm>

namespace quillmark {

namespace {

std::size_t sizeOf(const OrderedRun::Outcome& outcome) {
    std::size_t bytes = 0;
    for (const auto& message : outcome.messages) {
        bytes += message.report.size() + message.problem.size() + message.kept.size() + message.row.size();
        if (message.entry) bytes += message.entry->size();
    }
    return bytes;
}

bool hasLongReport(const OrderedRun::Outcome& outcome) {
    return std::ranges::any_of(outcome.messages, [](const OrderedRun::Message& message) {
        return message.longReport || message.longKept;
    });
}

}  // namespace

std::size_t OrderedRun::take() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return m_taken < m_given + m_ahead; });
    return m_taken++;
}

void OrderedRun::reserve(std::size_t number, std::size_t bytes) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return number == m_given || m_held + bytes <= m_memory; });
    m_reserved[number] += bytes;
    m_held += bytes;
}

void OrderedRun::finish(std::size_t number, Outcome outcome) {
    const std::size_t bytes = sizeOf(outcome);
    std::unique_lock lock(m_mutex);
    if (hasLongReport(outcome)) m_changed.wait(lock, [&] { return number == m_given; });
    std::size_t& reserved = m_reserved[number];
    m_held = m_held - reserved + bytes;
    reserved = bytes;
    m_finished.emplace(number, std::move(outcome));
    if (m_isGivingOn) return;  // whoever is will come to this one
    m_isGivingOn = true;
    while (const auto next = m_finished.extract(m_given)) {
        lock.unlock();
        m_receiver(next.mapped());
        lock.lock();
        m_held -= m_reserved.extract(m_given).mapped();
        ++m_given;
        m_changed.notify_all();
    }
    m_isGivingOn = false;
}

}  // namespace quillmark
