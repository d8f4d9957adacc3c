#include "CommandLine/Output.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "Wording/Details.h"
#include "Wording/Direction.h"
#include "Wording/Reader.h"
#include "Wording/Wrapped.h"

namespace quillmark {

namespace {

// Held while anything is written. Who has it may lock it again: what `Undisturbed` guards may be a stream.
std::recursive_timed_mutex outputMutex;
bool isProgressShown = false;  // under the mutex

std::mutex endMutex;                 // held for good by who ends the process
std::function<void()> beforeEnding;  // under it

/// For what must be said even while standard output takes nothing: a reader may not read.
std::unique_lock<std::recursive_timed_mutex> outputForAWhile() { return {outputMutex, timeToFinish}; }

bool writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

/// To the beginning of the line, and empty from there on.
void takeProgressAway() {
    if (std::exchange(isProgressShown, false)) writeAll(STDERR_FILENO, "\r\x1B[K");
}

bool isUsableTerminal(int descriptor) {
    const char* const terminal = std::getenv("TERM");
    return terminal && *terminal && std::string_view(terminal) != "dumb" && isatty(descriptor) == 1;
}

/// The columns of a terminal; 0 for what is none, and 80 for one that doesn't say.
std::size_t widthOf(int descriptor) {
    if (isatty(descriptor) != 1) return 0;
    winsize size = {};
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

/// As much of the text as stands in one line of the terminal.
std::string fitting(std::string text, int descriptor) {
    const std::size_t width = widthOf(descriptor);
    if (width == 0) return text;
    std::string_view rest = text;
    // The last column stays empty: some terminals go on to the next line there.
    for (std::size_t column = 1; !rest.empty();) {
        std::string_view behind = rest;
        column += static_cast<std::size_t>(columnsOf(takeScalar(behind)));
        if (column > width) break;
        rest = behind;
    }
    text.resize(text.size() - rest.size());
    return text;
}

/// What is said on standard error has the language of the environment, as everything that this program says.
std::string ownLine(std::string_view line) { return inertLine(line, Reader::ofEnvironment().language); }

}  // namespace

static_assert(readerHasGone == 128 + SIGPIPE);

int writeBytes(std::string_view bytes, int descriptor) {
    const std::lock_guard lock(outputMutex);
    takeProgressAway();
    return writeAll(descriptor, bytes) ? 0 : errno;
}

bool writeOutput(std::string_view bytes) {
    const int error = writeBytes(bytes);
    if (error == EPIPE) _exit(readerHasGone);
    errno = error;
    return error == 0;
}

int writeWhole(std::string_view text, const Reader& reader) {
    if (writeOutput(text)) return 0;
    writeProblem(reader.translate("The output couldn’t be written: %1", {systemErrorText(errno, reader)}));
    return 1;
}

bool outputHasColours() {
    const char* const refused = std::getenv("NO_COLOR");
    return (!refused || !*refused) && isUsableTerminal(STDOUT_FILENO);
}

std::size_t outputWidth() { return widthOf(STDOUT_FILENO); }

bool canShowProgress() { return isUsableTerminal(STDERR_FILENO); }

void showProgress(std::string_view line) {
    const std::lock_guard lock(outputMutex);
    takeProgressAway();
    isProgressShown = true;
    writeAll(STDERR_FILENO, fitting(ownLine(line), STDERR_FILENO));
}

void clearProgress() {
    const auto lock = outputForAWhile();
    takeProgressAway();
}

void writeProblem(std::string_view message) {
    const auto lock = outputForAWhile();
    takeProgressAway();
    const std::string line = "quillmark: " + ownLine(message);
    // There is nobody left to tell if it fails.
    writeAll(STDERR_FILENO, wrapped(line, 0, widthOf(STDERR_FILENO)) + "\n");
}

void occupyStandardDescriptors() {
    // The wrong way round, so that using one still fails. Each takes the lowest free number, its own.
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(number, F_GETFD) < 0) open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

void ignoreSignalsOfWriting() {
    signal(SIGPIPE,
           SIG_IGN);  // NOLINT(bugprone-*): a closed pipe or connection is an error where it is written
    signal(SIGXFSZ, SIG_IGN);  // NOLINT(bugprone-*): so is a file that may not grow
}

void endOnSignals() {
    sigset_t ours;
    sigemptyset(&ours);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction current = {};
        sigaction(number, nullptr, &current);
        if (current.sa_handler != SIG_IGN) sigaddset(&ours, number);  // ignored on purpose, by nohup for one
    }
    pthread_sigmask(SIG_BLOCK, &ours, nullptr);
    const auto wait = [ours] {
        int number = 0;
        while (sigwait(&ours, &number) != 0) {
        }
        const std::lock_guard ending(endMutex);
        if (beforeEnding) {
            // The next ends the process, whatever is under way. Of hanging up there may be several at once.
            sigset_t atOnce = ours;
            sigdelset(&atOnce, SIGHUP);
            pthread_sigmask(SIG_UNBLOCK, &atOnce, nullptr);
            beforeEnding();
        }
        // A reader that does not read, or a history of a gigabyte, must not keep us from ending.
        const auto lock = outputForAWhile();
        if (lock) takeProgressAway();
        _exit(128 + number);
    };
    try {
        std::thread(wait).detach();
    } catch (const std::system_error& error) {
        const Reader reader = Reader::ofEnvironment();
        writeProblem(reader.translate("The system allows this program no thread: %1",
                                      {systemErrorText(error.code().message(), reader)}));
        _exit(1);
    }
}

BeforeEnd::BeforeEnd(std::function<void()> last) {
    const std::lock_guard lock(endMutex);
    beforeEnding = std::move(last);
}
BeforeEnd::~BeforeEnd() {
    const std::lock_guard lock(endMutex);
    beforeEnding = nullptr;
}

Undisturbed::Undisturbed() : m_lock(outputForAWhile()) {}

}  // namespace quillmark
