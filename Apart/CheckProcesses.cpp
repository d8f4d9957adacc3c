#include "Apart/CheckProcesses.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <thread>
#include <utility>

namespace quillmark {

namespace {

constexpr std::size_t mostIdle = 16;

/// That come and are of no use, one behind the other, before there are none to be had.
constexpr int mostLost = 32;

/// Before what was ended is made again, lest that be all that the computer does.
constexpr std::chrono::milliseconds restBetween{100};

/// What comes of an order: a channel and then a handle, each with its descriptor; or nothing.
constexpr char channelComes = 'c', handleComes = 'h', noneComes = 'n';

/// Does that in a process beside this one, and in the next when somebody has ended that.
void inProcesses(const std::function<void()>& serve) {
    while (true) {
        const pid_t process = ::fork();
        if (process <= 0) {
            serve();
            if (process == 0) ::_exit(0);
            return;
        }
        int status = 0;
        while (::waitpid(process, &status, 0) < 0 && errno == EINTR) continue;
        if (!WIFSIGNALED(status)) return;
        std::this_thread::sleep_for(restBetween);
    }
}

/// Leaves nothing open of the process that made this one but the standard streams, which lead nowhere, and
/// the channel, which is moved.
int keptAlone(int channel) {
    constexpr int place = STDERR_FILENO + 1;
    ::dup2(channel, place);
    ::closefrom(place + 1);
    return place;
}

}  // namespace

CheckProcesses::Process::~Process() {
    if (m_handle < 0) return;
    ::syscall(SYS_pidfd_send_signal, m_handle, SIGKILL, nullptr, 0U);
    ::close(m_handle);
}

CheckProcesses::CheckProcesses(std::function<void(const Channel&)> work, Sandbox sandbox,
                               std::chrono::milliseconds most)
    : m_patience(most),
      m_helper([work = std::move(work), sandbox = std::move(sandbox)](const Channel& channel) {
          inProcesses([&] { serve(channel, work, sandbox); });
      }) {
    m_helper.channel().setPatience(watch);
}

void CheckProcesses::order() const {
    const char wanted = 0;
    m_helper.channel().send(&wanted, sizeof wanted);
}

void CheckProcesses::serve(const Channel& channel, const std::function<void(const Channel&)>& work,
                           const Sandbox& sandbox) {
    ::signal(SIGCHLD, SIG_IGN);  // nobody waits for them
    const pid_t self = ::getpid();
    char wanted = 0;
    do {
        int ends[2] = {-1, -1};
        const bool hasEnds = ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0;
        const pid_t process = hasEnds ? ::fork() : -1;
        if (process == 0) {
            const Channel own(keptAlone(ends[1]));
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (::getppid() != self) ::_exit(0);
            const rlimit none = {0, 0};
            ::setrlimit(RLIMIT_CORE, &none);  // somebody's mail would be in it
            restrictProcess(sandbox);
            work(own);
            ::_exit(0);
        }
        const int handle = process > 0 ? static_cast<int>(::syscall(SYS_pidfd_open, process, 0U)) : -1;
        const bool isTold = process > 0 ? channel.sendWith(ends[0], &channelComes, sizeof channelComes) &&
                                              channel.sendWith(handle, &handleComes, sizeof handleComes)
                                        : channel.send(&noneComes, sizeof noneComes);
        for (const int each : {ends[0], ends[1], handle}) {
            if (each >= 0) ::close(each);
        }
        if (!isTold) return;
    } while (channel.receive(&wanted, sizeof wanted));
}

std::shared_ptr<CheckProcesses::Process> CheckProcesses::takeIdle() {
    const std::lock_guard lock(m_mutex);
    while (!m_idle.empty()) {
        auto process = std::move(m_idle.back());
        m_idle.pop_back();
        if (process->channel().isQuiet()) return process;  // else somebody has ended it meanwhile
    }
    return nullptr;
}

std::shared_ptr<CheckProcesses::Process> CheckProcesses::take(Kind kind, const Channel::GoesOn& goesOn) {
    if (kind == Kind::anyOfNow) {
        if (auto process = takeIdle()) return process;
    }
    const std::lock_guard turn(m_making);
    using Clock = std::chrono::steady_clock;
    const bool wasSilent = std::exchange(m_isSilent, true);
    const auto end = Clock::now() + (wasSilent ? Clock::duration(watch) : m_patience);
    const auto isWaitedFor = [&] {
        if (!goesOn || goesOn()) return Clock::now() < end;
        m_isSilent = wasSilent;  // it might have answered yet
        return false;
    };
    int channel = -1, file = -1;
    char what = noneComes;
    int lost = 0;
    while (lost < mostLost && m_helper.channel().receiveWith(file, &what, sizeof what, isWaitedFor)) {
        m_isSilent = false;
        if (what == handleComes && channel >= 0) {
            order();
            std::unique_lock lock(m_mutex);
            auto process = std::make_shared<Process>(std::exchange(channel, -1), file, m_generation);
            lock.unlock();
            if (!process->channel().hasEnded()) {
                process->channel().setPatience(watch);
                return process;
            }
            ++lost;  // with what made it
            continue;
        }
        if (channel >= 0) ::close(channel);  // of which no more comes: what made it was ended in the middle
        channel = what == channelComes ? std::exchange(file, -1) : -1;
        if (what == channelComes) continue;
        if (file >= 0) ::close(file);  // of one that wasn't waited for to its end
        order();
        if (what == noneComes) break;
        ++lost;
    }
    if (channel >= 0) ::close(channel);
    return nullptr;
}

void CheckProcesses::giveBack(std::shared_ptr<Process> process) {
    const std::lock_guard lock(m_mutex);
    if (process && process->m_generation == m_generation && m_idle.size() < mostIdle)
        m_idle.push_back(std::move(process));
}

void CheckProcesses::renew() {
    const std::lock_guard lock(m_mutex);
    ++m_generation;
    m_idle.clear();
}

}  // namespace quillmark
