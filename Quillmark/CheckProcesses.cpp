#include "Quillmark/CheckProcesses.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <utility>

namespace quillmark {

namespace {

constexpr std::size_t mostIdle = 16;

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

CheckProcesses::CheckProcesses(std::function<void(const Channel&)> work, Sandbox sandbox)
    : m_helper([work = std::move(work), sandbox = std::move(sandbox)](const Channel& channel) {
          serve(channel, work, sandbox);
      }) {
    order();
}

void CheckProcesses::order() {
    const char wanted = 0;
    m_isOrdered = m_helper.channel().send(&wanted, sizeof wanted);
}

void CheckProcesses::serve(const Channel& channel, const std::function<void(const Channel&)>& work,
                           const Sandbox& sandbox) {
    ::signal(SIGCHLD, SIG_IGN);  // nobody waits for them
    const pid_t self = ::getpid();
    char wanted = 0;
    while (channel.receive(&wanted, sizeof wanted)) {
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
        const char outcome[] = {static_cast<char>(process > 0), static_cast<char>(handle >= 0)};
        const bool isTold = channel.sendWith(process > 0 ? ends[0] : -1, &outcome[0], 1) &&
                            channel.sendWith(handle, &outcome[1], 1);
        for (const int each : {ends[0], ends[1], handle}) {
            if (each >= 0) ::close(each);
        }
        if (!isTold) return;
    }
}

std::shared_ptr<CheckProcesses::Process> CheckProcesses::take(Kind kind) {
    const std::lock_guard lock(m_mutex);
    while (kind == Kind::anyOfNow && !m_idle.empty()) {
        auto process = std::move(m_idle.back());
        m_idle.pop_back();
        if (process->channel().isQuiet()) return process;  // else somebody has ended it meanwhile
    }
    const Channel& helper = m_helper.channel();
    char byte = 0;
    int channel = -1, handle = -1;
    if (!m_isOrdered) order();
    if (!std::exchange(m_isOrdered, false) || !helper.receiveWith(channel, &byte, sizeof byte))
        return nullptr;
    const bool hasBoth = helper.receiveWith(handle, &byte, sizeof byte);
    if (hasBoth) order();
    if (channel < 0) {
        if (handle >= 0) ::close(handle);
        return nullptr;
    }
    auto process = std::make_shared<Process>(channel, handle, m_generation);
    process->channel().setPatience(watch);
    return process;
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
