#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string_view>

#include "Sandbox/HelperProcess.h"

namespace quillmark {

/// What became of a message that was handed to the window.
struct HandedOver {
    enum class Kind {
        taken,
        noFolder,    ///< this session has none for that
        unwritten,   ///< the file couldn't be, or the message didn't get that far
        notStarted,  ///< the window
        notTaken     ///< by the window
    };
    Kind kind = Kind::taken;
    int error = 0;  ///< `errno` of `unwritten` and `notStarted`
};

/// Hands messages to the window. A process of its own does it, which reads nothing of them: the one that
/// checks may start no program and write no file of the session's (`restrictProcess`).
class WindowOpener {
public:
    /// Starts that process, which ends with this one. While there is one thread. `window`: the program
    /// quillmark-desktop. `sessionFolder`: where messages are handed to it.
    WindowOpener(std::filesystem::path window, std::optional<std::filesystem::path> sessionFolder);

    /// Waits until the window has taken it, half a minute at most, and for those before. From any thread.
    HandedOver open(std::string_view message);

private:
    void serve(const Channel& channel) const;
    HandedOver handOver(std::string_view message) const;

    const std::filesystem::path m_window;
    const std::optional<std::filesystem::path> m_sessionFolder;
    std::mutex m_mutex = {};
    const HelperProcess m_helper;
};

}  // namespace quillmark
