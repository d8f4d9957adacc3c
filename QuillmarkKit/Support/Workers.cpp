#include "QuillmarkKit/Support/Workers.h"

#include <iterator>
#include <system_error>
#include <utility>

namespace quillmark {

Workers::Workers(std::size_t threads) {
    m_threads.reserve(threads);
    try {
        while (m_threads.size() < threads) m_threads.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
        if (m_threads.empty()) throw;
    }
}

Workers::~Workers() { stop(); }

void Workers::add(Job job) {
    std::vector<Job> one;
    one.push_back(std::move(job));
    add(std::move(one));
}

void Workers::add(std::vector<Job> jobs) {
    {
        const std::lock_guard lock(m_mutex);
        if (m_isEnding) return;
        m_jobs.insert(m_jobs.end(), std::make_move_iterator(jobs.begin()),
                      std::make_move_iterator(jobs.end()));
    }
    m_changed.notify_all();
}

void Workers::drop() {
    std::deque<Job> dropped;  // destroyed without the lock
    const std::lock_guard lock(m_mutex);
    dropped.swap(m_jobs);
}

void Workers::stop() {
    drop();
    end();
}

void Workers::finish() { end(); }

void Workers::end() {
    {
        const std::lock_guard lock(m_mutex);
        m_isEnding = true;
    }
    m_changed.notify_all();
    m_threads.clear();
}

void Workers::work() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [&] { return m_isEnding || !m_jobs.empty(); });
        if (m_jobs.empty()) return;
        Job job = std::move(m_jobs.front());
        m_jobs.pop_front();
        lock.unlock();
        job();
        job = nullptr;  // what it holds goes before the next one waits
        lock.lock();
    }
}

}  // namespace quillmark
