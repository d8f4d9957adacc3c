#include "Sandbox/HelperProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace quillmark {

Channel::~Channel() {
    if (m_descriptor >= 0) ::close(m_descriptor);
}

bool Channel::send(const void* bytes, std::size_t size) const {
    for (auto* rest = static_cast<const char*>(bytes); size > 0;) {
        const ssize_t count = ::write(m_descriptor, rest, size);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        rest += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

bool Channel::receive(void* bytes, std::size_t size) const {
    for (auto* rest = static_cast<char*>(bytes); size > 0;) {
        const ssize_t count = ::read(m_descriptor, rest, size);
        if (count < 0 && errno == EINTR) continue;
        if (count == 0) errno = EPIPE;
        if (count <= 0) return false;
        rest += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

HelperProcess::HelperProcess(const std::function<void(const Channel&)>& serve)
    : m_channel(started(serve, m_isThere)) {}

int HelperProcess::started(const std::function<void(const Channel&)>& serve, bool& isThere) {
    int ends[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return -1;
    const pid_t process = ::fork();
    if (process == 0) {
        ::close(ends[0]);
        // What ends a group of processes leaves it alone, until the one that it works for has gone.
        ::setsid();
        for (const int number : {SIGPIPE, SIGINT, SIGTERM, SIGHUP}) ::signal(number, SIG_IGN);
        for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            ::close(standard);
            ::open("/dev/null", O_RDWR);
        }
        {
            const Channel channel(ends[1]);
            serve(channel);
        }
        ::_exit(0);
    }
    ::close(ends[1]);
    isThere = process > 0;
    return ends[0];
}

}  // namespace quillmark
