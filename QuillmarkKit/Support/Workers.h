#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace quillmark {

/// A few threads that do what is handed to them, in the order it came. Used by one thread: the jobs
/// themselves must not call it.
class Workers {
public:
    /// Must not throw.
    using Job = std::function<void()>;

    /// Fewer threads will do where the system allows no more; throws `std::system_error` when it allows none.
    explicit Workers(std::size_t threads);
    /// As `stop`.
    ~Workers();
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    /// Does not wait. After `stop` or `finish` the job is dropped.
    void add(Job job);
    /// Many at once, of which none begins before all are there.
    void add(std::vector<Job> jobs);
    /// Drops every job that has not begun.
    void drop();
    /// The same, and waits for the others. Whoever wants them to end early tells them so before.
    void stop();
    /// Waits until all jobs are done.
    void finish();

private:
    void work();
    void end();

    std::mutex m_mutex = {};
    std::condition_variable m_changed = {};
    std::deque<Job> m_jobs = {};
    bool m_isEnding = false;
    std::vector<std::jthread> m_threads = {};
};

}  // namespace quillmark
