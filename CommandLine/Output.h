#pragma once

#include <unistd.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace quillmark {

struct Reader;

/// Writes all of `bytes` to standard output, or to another stream. Returns 0, or the error (`errno`): EPIPE
/// when the reader has gone.
int writeBytes(std::string_view bytes, int descriptor = STDOUT_FILENO);

/// The exit status of a process whose reader has gone: as if SIGPIPE had ended it.
constexpr int readerHasGone = 128 + 13;

/// The same for a command that has nothing to do when the reader has gone: then the process ends quietly.
/// False when nothing can be written otherwise (a full disk); `errno` says why.
bool writeOutput(std::string_view bytes);

/// The same for all that a command has to say. Returns the exit status: 1, after a line on standard error,
/// when it can't be written.
int writeWhole(std::string_view text, const Reader& reader);

/// Whether standard output is a terminal that shows colours, and the user wants them (NO_COLOR is unset or
/// empty).
bool outputHasColours();

/// How many columns the terminal has that standard output is; 0 when it is none.
std::size_t outputWidth();

/// Whether standard error is a terminal whose lines can be written over.
bool canShowProgress();

/// Shows a line on that terminal, as much of it as its width holds, in place of the one shown before.
/// Whatever else is written takes it away first, and so does the end by a signal.
void showProgress(std::string_view line);
/// Takes it away.
void clearProgress();

/// Writes one line, "quillmark: " and `message`, to standard error. The message goes through the filter for
/// text that somebody else wrote; on a terminal the line is wrapped.
void writeProblem(std::string_view message);

/// Sees to it that no file or connection gets the number of a standard stream that was closed when the
/// program started: it would be read, or written into, in its place. Before any file is opened.
void occupyStandardDescriptors();

/// From now on writing where nobody reads any more, or into a file that may not grow, is an error and no
/// signal.
void ignoreSignalsOfWriting();

/// How long a signal leaves what is being written the time to become whole.
constexpr std::chrono::milliseconds timeToFinish{100};

/// From now on SIGINT, SIGTERM and SIGHUP end the process at once with 128 and the signal's number, but not
/// in the middle of what is being written, unless that takes longer than `timeToFinish`. Before any other
/// thread starts. Where the system allows no thread, the process ends with a line that says so.
void endOnSignals();

/// While one lives, a signal has `last` called before the process ends, on a thread of its own and for as
/// long as that takes; a second signal ends it at once. Once that has begun the destructor never returns. One
/// at a time.
class BeforeEnd {
public:
    explicit BeforeEnd(std::function<void()> last);
    ~BeforeEnd();
    BeforeEnd(const BeforeEnd&) = delete;
    BeforeEnd& operator=(const BeforeEnd&) = delete;
};

/// While one lives, a signal leaves what is being written that time, and other threads write nothing.
class Undisturbed {
public:
    Undisturbed();

private:
    std::unique_lock<std::recursive_timed_mutex> m_lock;
};

}  // namespace quillmark
