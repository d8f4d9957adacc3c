#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "Sandbox/HelperProcess.h"
#include "Sandbox/Sandbox.h"

namespace quillmark {

class ToldAnswers;

/// The processes that read and check messages for the window. Each has given up everything but its channel:
/// it opens no file, asks nobody and starts nothing (`restrictProcess`); those that `NetworkProcess` asks may
/// do a little more. Safe from many threads at once.
class CheckProcesses {
public:
    /// Starts the process that makes them, which ends with this one, and is replaced when somebody else ends
    /// it. While there is one thread. `work` is what they do once they are restricted to `sandbox`.
    /// `most`: how long what makes them is waited for.
    explicit CheckProcesses(std::function<void(const Channel&)> work, Sandbox sandbox = {.takesFiles = true},
                            std::chrono::milliseconds most = std::chrono::seconds(5));
    CheckProcesses(const CheckProcesses&) = delete;
    CheckProcesses& operator=(const CheckProcesses&) = delete;

    class Process {
    public:
        /// Owns both; without `handle` (a pidfd) it can't be ended, and ends by itself.
        Process(int channel, int handle, std::size_t generation)
            : m_channel(channel), m_handle(handle), m_generation(generation) {}
        /// Ends it.
        ~Process();
        Process(const Process&) = delete;
        Process& operator=(const Process&) = delete;

        const Channel& channel() const { return m_channel; }
        /// What it was told and keeps; the business of who asks it.
        std::shared_ptr<ToldAnswers> told = {};

    private:
        friend class CheckProcesses;
        const Channel m_channel;
        const int m_handle;
        const std::size_t m_generation;
    };

    /// One that nobody else has; null when there is none: the system allows none, or what makes them doesn't
    /// answer, which is waited for once, until it answers again, or has gone for good. One that has read
    /// nothing yet is for what a person looks at, of which no message opened with it must tell. `goesOn`:
    /// whether it is waited for.
    enum class Kind { anyOfNow, unused };
    std::shared_ptr<Process> take(Kind kind = Kind::anyOfNow, const Channel::GoesOn& goesOn = {});
    /// For others, when it has done what was asked and waits. One that isn't given back ends.
    void giveBack(std::shared_ptr<Process> process);
    /// Lets all go that were made before, as soon as they are given back: whatever one of them read must not
    /// come to bear on what is taken in from now on.
    void renew();

    /// How long a look at `GoesOn` may take: between two of them something came or this time went by.
    static constexpr std::chrono::milliseconds watch{50};

private:
    static void serve(const Channel& channel, const std::function<void(const Channel&)>& work,
                      const Sandbox& sandbox);

    /// Has the next one made, so that it is there when it is wanted. The first, and the first of each process
    /// that makes them, is made unasked.
    void order() const;
    std::shared_ptr<Process> takeIdle();

    const std::chrono::milliseconds m_patience;
    std::mutex m_making = {};
    bool m_isSilent = false;  // what makes them, since it was last waited for
    std::mutex m_mutex = {};  // never while anybody is waited for
    std::size_t m_generation = 0;
    std::vector<std::shared_ptr<Process>> m_idle = {};
    const HelperProcess m_helper;
};

}  // namespace quillmark
