#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace quillmark {

/// Writes all of `bytes` to standard output. When the reader has gone the process ends quietly, as if by
/// SIGPIPE. False when it cannot be written otherwise (a full disk); `errno` says why. `last` is called
/// before either.
bool writeOutput(std::string_view bytes, const std::function<void()>& last = {});

/// Whether standard output is a terminal that shows colours, and the user wants them (NO_COLOR is unset or
/// empty).
bool outputHasColours();

/// Whether standard error is a terminal whose lines can be written over.
bool canShowProgress();

/// Shows a line on that terminal, as much of it as its width holds, in place of the one shown before.
/// Whatever else is written takes it away first, and so does the end by a signal.
void showProgress(std::string_view line);
/// Takes it away.
void clearProgress();

/// Writes one line, "quillmark: " and `message`, to standard error. The message goes through the filter for
/// text that somebody else wrote.
void writeProblem(std::string_view message);

/// Why nothing came of a file: "“path” can’t be written: …".
std::string unwritable(const std::string& path, const std::string& why);

/// Sees to it that no file or connection gets the number of a standard stream that was closed when the
/// program started: it would be read, or written into, in its place. Before any file is opened.
void occupyStandardDescriptors();

/// From now on SIGINT and SIGTERM end the process at once with 128 and the signal's number, but never in the
/// middle of a report. Before any other thread starts.
void endOnSignals();

/// While one lives, a signal leaves what is being written the time to become whole, but not for long: a
/// tenth of a second. One at a time in a thread, and nothing goes to standard output meanwhile.
class Undisturbed {
public:
    Undisturbed();
    ~Undisturbed();
    Undisturbed(const Undisturbed&) = delete;
    Undisturbed& operator=(const Undisturbed&) = delete;
};

}  // namespace quillmark
