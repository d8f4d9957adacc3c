#include "QuillmarkKit/Intake/Intake.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>

namespace quillmark {

namespace {

constexpr std::size_t readAtMost = largestMessage + 1;
constexpr std::size_t firstRead = std::size_t{64} * 1024;

constexpr int stopWatch = 50;  // milliseconds between looks at a stop

/// Waits until there is something to read, or the end. False when it was stopped.
bool waited(int descriptor, const std::stop_token& stop) {
    pollfd watched = {descriptor, POLLIN, 0};
    while (!stop.stop_requested()) {
        const int ready = poll(&watched, 1, stop.stop_possible() ? stopWatch : -1);
        if (ready > 0 || (ready < 0 && errno != EINTR)) return true;
    }
    return false;
}

}  // namespace

Refusal unreadable(int error) { return {Refusal::Unreadable{std::generic_category().message(error)}}; }

Refusal unreadable(const std::exception& error) {
    if (dynamic_cast<const std::bad_alloc*>(&error)) return unreadable(ENOMEM);
    return {Refusal::Unreadable{error.what()}};
}

std::optional<Refusal> readOn(int descriptor, bool mayWait, ByteBuffer& bytes, std::size_t limit,
                              const std::stop_token& stop) {
    while (bytes.size() < limit) {
        if (mayWait && !waited(descriptor, stop)) return unreadable(ECANCELED);
        if (bytes.size() == bytes.capacity()) bytes.grow(std::min(2 * bytes.capacity(), limit));
        const std::size_t room = std::min(bytes.capacity(), limit) - bytes.size();
        const ssize_t count = read(descriptor, bytes.data() + bytes.size(), room);
        if (count < 0 && (errno == EINTR || (errno == EAGAIN && mayWait))) continue;
        if (count < 0) return unreadable(errno);
        if (count == 0) break;
        bytes.setSize(bytes.size() + static_cast<std::size_t>(count));
    }
    return std::nullopt;
}

std::variant<ByteBuffer, Refusal> readDescriptor(int descriptor, const std::stop_token& stop) {
    struct stat status = {};
    if (fstat(descriptor, &status) != 0) return unreadable(errno);
    std::size_t expected = firstRead;
    if (S_ISREG(status.st_mode) && status.st_size > 0) {
        if (static_cast<std::size_t>(status.st_size) > largestMessage) return Refusal{Refusal::TooLarge{}};
        expected =
            static_cast<std::size_t>(status.st_size) + 1;  // one more, so that its end is met without growing
    }
    ByteBuffer bytes(expected);
    const bool mayWait = !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
    if (auto refusal = readOn(descriptor, mayWait, bytes, readAtMost, stop)) return std::move(*refusal);
    if (bytes.size() > largestMessage) return Refusal{Refusal::TooLarge{}};
    return bytes;
}

std::variant<int, Refusal> openForReading(const std::string& path) {
    // Opening a FIFO would wait for its writer, and a terminal must not become ours.
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0) return unreadable(errno);
    return descriptor;
}

std::variant<ByteBuffer, Refusal> readFile(const std::string& path, const std::stop_token& stop) {
    const auto opened = openForReading(path);
    if (const auto* refusal = std::get_if<Refusal>(&opened)) return *refusal;
    const int descriptor = std::get<int>(opened);
    auto bytes = readDescriptor(descriptor, stop);
    close(descriptor);
    return bytes;
}

std::variant<MailMessage, Refusal> messageIn(ByteBuffer bytes, ParseMode mode) {
    if (bytes.size() > largestMessage) return Refusal{Refusal::TooLarge{}};
    MailMessage message = MailMessage::parse(std::move(bytes), mode);
    for (const auto* name : {"From", "DKIM-Signature", "Received"}) {
        if (message.first(name)) return message;
    }
    return Refusal{Refusal::NotAnEmail{damageOfUnread(message)}};
}

}  // namespace quillmark
