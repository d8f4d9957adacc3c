#include "Thunderbird/WindowOpener.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <variant>

#include "QuillmarkKit/Intake/Intake.h"
#include "Settings/HandedMessage.h"

namespace quillmark {

namespace {

using Kind = HandedOver::Kind;

/// How long the window may take to take a message, and how often is looked.
constexpr std::chrono::seconds patienceWithWindow{30};
constexpr std::chrono::milliseconds betweenLooks{20};

/// False, with `errno`, when the other end has gone.
bool sendAll(int descriptor, const void* bytes, std::size_t size) {
    for (auto* rest = static_cast<const char*>(bytes); size > 0;) {
        const ssize_t count = ::write(descriptor, rest, size);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        rest += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}
bool receiveAll(int descriptor, void* bytes, std::size_t size) {
    for (auto* rest = static_cast<char*>(bytes); size > 0;) {
        const ssize_t count = ::read(descriptor, rest, size);
        if (count < 0 && errno == EINTR) continue;
        if (count == 0) errno = EPIPE;
        if (count <= 0) return false;
        rest += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

/// Starts the program with one argument, apart from this process: in a session of its own, with none
/// of its files. Its number, or the error.
std::variant<pid_t, std::error_code> started(const std::filesystem::path& program, std::string argument) {
    std::string name = program.string();
    char* arguments[] = {name.data(), argument.data(), nullptr};
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&files);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    pid_t process = 0;
    const int error = posix_spawn(&process, name.c_str(), &files, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) return std::error_code(error, std::generic_category());
    return process;
}

/// Whether the window takes the file, which is gone then.
bool isTaken(const std::filesystem::path& file, pid_t window) {
    const auto end = std::chrono::steady_clock::now() + patienceWithWindow;
    bool hasEnded = false;
    std::error_code ignored;
    while (std::filesystem::exists(file, ignored)) {
        int status = 0;
        // One that handed it to the window that is open ends well; that window may take a moment.
        if (!hasEnded && ::waitpid(window, &status, WNOHANG) == window) {
            hasEnded = true;
            if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return false;
        }
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(betweenLooks);
    }
    return true;
}

}  // namespace

WindowOpener::WindowOpener(std::filesystem::path window, std::optional<std::filesystem::path> sessionFolder)
    : m_window(std::move(window)), m_sessionFolder(std::move(sessionFolder)) {
    int ends[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return;
    const pid_t process = ::fork();
    if (process == 0) {
        ::close(ends[0]);
        serve(ends[1]);
    }
    ::close(ends[1]);
    m_requests = ends[0];
}

WindowOpener::~WindowOpener() { ::close(m_requests); }

/// Whoever asks may be somebody else by now, who has taken the process over: a message too large is not
/// taken, and what is started is always the window.
void WindowOpener::serve(int requests) const {
    ::signal(SIGPIPE, SIG_IGN);  // NOLINT(bugprone-*): who asked may have gone
    ::setsid();
    // The add-on's pipes end with the process that answers it.
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        ::close(standard);
        ::open("/dev/null", O_RDWR);
    }
    std::uint64_t size = 0;
    while (receiveAll(requests, &size, sizeof size) && size <= largestMessage) {
        HandedOver outcome{Kind::unwritten, ENOMEM};
        try {
            std::string message(size, '\0');
            if (!receiveAll(requests, message.data(), size)) break;
            outcome = handOver(message);
        } catch (const std::system_error& error) {
            outcome.error = error.code().value();
        } catch (const std::bad_alloc&) {  // want of memory: the message is still to come
            break;
        }
        if (!sendAll(requests, &outcome, sizeof outcome)) break;
    }
    ::_exit(0);
}

HandedOver WindowOpener::handOver(std::string_view message) const {
    if (!m_sessionFolder) return {Kind::noFolder};
    const auto file = handMessage(message, *m_sessionFolder);
    const auto window = started(m_window, file.string());
    const auto* process = std::get_if<pid_t>(&window);
    if (process && isTaken(file, *process)) return {};
    std::error_code ignored;
    std::filesystem::remove(file, ignored);
    if (process) return {Kind::notTaken};
    return {Kind::notStarted, std::get<std::error_code>(window).value()};
}

HandedOver WindowOpener::open(std::string_view message) {
    if (message.size() > largestMessage) return {Kind::unwritten, EFBIG};
    const std::lock_guard turn(m_mutex);
    const std::uint64_t size = message.size();
    HandedOver outcome;
    const bool isDone = sendAll(m_requests, &size, sizeof size) &&
                        sendAll(m_requests, message.data(), size) &&
                        receiveAll(m_requests, &outcome, sizeof outcome);
    return isDone ? outcome : HandedOver{Kind::unwritten, errno};
}

}  // namespace quillmark
