#include "Thunderbird/WindowOpener.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
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

/// Starts the program with one argument, apart from this process: in a session of its own, with none of its
/// files, and with every signal as a new program has it. Its number, or the error.
// cppcheck-suppress passedByValue; a program may write to its arguments
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
    sigset_t all, none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
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
    : m_window(std::move(window)),
      m_sessionFolder(std::move(sessionFolder)),
      m_helper([this](const Channel& channel) { serve(channel); }) {}

void WindowOpener::serve(const Channel& channel) const {
    std::uint64_t size = 0;
    while (channel.receive(&size, sizeof size) && size <= largestMessage) {
        HandedOver outcome{Kind::unwritten, ENOMEM};
        try {
            std::string message(size, '\0');
            if (!channel.receive(message.data(), size)) return;
            outcome = handOver(message);
        } catch (const std::system_error& error) {
            outcome.error = error.code().value();
        } catch (const std::bad_alloc&) {  // the message is still to come
            return;
        }
        if (!channel.send(&outcome, sizeof outcome)) return;
    }
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
    const Channel& channel = m_helper.channel();
    const bool isDone = channel.send(&size, sizeof size) && channel.send(message.data(), size) &&
                        channel.receive(&outcome, sizeof outcome);
    return isDone ? outcome : HandedOver{Kind::unwritten, errno};
}

}  // namespace quillmark
