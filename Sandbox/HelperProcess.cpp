#include "Sandbox/HelperProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace quillmark {

namespace {

/// Whoever sends more with one piece is no process of ours; the system closes what there is no room for.
constexpr std::size_t mostFilesSent = 4;

}  // namespace

Channel::~Channel() {
    if (m_descriptor >= 0) ::close(m_descriptor);
}

bool Channel::send(const void* bytes, std::size_t size, const GoesOn& goesOn) const {
    for (auto* rest = static_cast<const char*>(bytes); size > 0;) {
        const ssize_t count = ::write(m_descriptor, rest, size);
        if (count < 0 && (errno == EINTR || (errno == EAGAIN && goesOn && goesOn()))) continue;
        if (count < 0) return false;
        rest += count;
        size -= static_cast<std::size_t>(count);
        if (size > 0 && goesOn && !goesOn()) return false;  // however little moves at a time
    }
    return true;
}

bool Channel::receive(void* bytes, std::size_t size, const GoesOn& goesOn) const {
    for (auto* rest = static_cast<char*>(bytes); size > 0;) {
        const std::size_t count = receiveSome(rest, size, goesOn);
        if (count == 0) return false;
        rest += count;
        size -= count;
        if (size > 0 && goesOn && !goesOn()) return false;
    }
    return true;
}

std::size_t Channel::receiveSome(void* bytes, std::size_t most, const GoesOn& goesOn) const {
    ssize_t count = 0;
    do count = ::read(m_descriptor, bytes, most);
    while (count < 0 && (errno == EINTR || (errno == EAGAIN && goesOn && goesOn())));
    // It has gone, having read all that it was sent or not.
    if (count == 0 || (count < 0 && errno == ECONNRESET)) errno = EPIPE;
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

bool Channel::sendAtOnce(const void* bytes, std::size_t size) const {
    return ::send(m_descriptor, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

void Channel::shutDown() const { ::shutdown(m_descriptor, SHUT_RDWR); }

bool Channel::sendWith(int file, const void* bytes, std::size_t size) const {
    if (size == 0 || file < 0) return send(bytes, size);
    iovec first = {const_cast<void*>(bytes), 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof file)> control = {};
    msghdr message = {};
    message.msg_iov = &first, message.msg_iovlen = 1;
    message.msg_control = control.data(), message.msg_controllen = control.size();
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET, header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof file);
    std::memcpy(CMSG_DATA(header), &file, sizeof file);
    ssize_t count = 0;
    do count = ::sendmsg(m_descriptor, &message, MSG_NOSIGNAL);
    while (count < 0 && errno == EINTR);
    return count == 1 && send(static_cast<const char*>(bytes) + 1, size - 1);
}

bool Channel::receiveWith(int& file, void* bytes, std::size_t size, const GoesOn& goesOn) const {
    file = -1;
    if (size == 0) return true;
    iovec first = {bytes, size};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(mostFilesSent * sizeof file)> control = {};
    msghdr message = {};
    message.msg_iov = &first, message.msg_iovlen = 1;
    message.msg_control = control.data(), message.msg_controllen = control.size();
    ssize_t count = 0;
    do count = ::recvmsg(m_descriptor, &message, MSG_CMSG_CLOEXEC);
    while (count < 0 && (errno == EINTR || (errno == EAGAIN && goesOn && goesOn())));
    if (count == 0) errno = EPIPE;
    if (count <= 0) return false;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header; header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const std::size_t files = (header->cmsg_len - CMSG_LEN(0)) / sizeof file;
        for (std::size_t i = 0; i < files; ++i) {
            int each = -1;
            std::memcpy(&each, CMSG_DATA(header) + i * sizeof each, sizeof each);
            if (std::exchange(file, file < 0 ? each : file) >= 0) ::close(each);
        }
    }
    const auto read = static_cast<std::size_t>(count);
    if (receive(static_cast<char*>(bytes) + read, size - read, goesOn)) return true;
    if (file >= 0) ::close(std::exchange(file, -1));
    return false;
}

bool Channel::isQuiet() const {
    char byte = 0;
    return ::recv(m_descriptor, &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

bool Channel::hasEnded() const {
    char byte = 0;
    return ::recv(m_descriptor, &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT) == 0;
}

void Channel::setPatience(std::chrono::milliseconds time) const {
    timeval value = {};
    value.tv_sec = static_cast<time_t>(time.count() / 1000);
    value.tv_usec = static_cast<suseconds_t>(time.count() % 1000 * 1000);
    for (const int direction : {SO_RCVTIMEO, SO_SNDTIMEO})
        ::setsockopt(m_descriptor, SOL_SOCKET, direction, &value, sizeof value);
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
