#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Support/Files.h"
#include "Sandbox/HelperProcess.h"
#include "Wording/Reader.h"

namespace quillmark {

/// That nothing came of a file, and the system's error (`errno`).
struct OutputFileError : std::runtime_error {
    OutputFileError(const std::string& file, int systemError);
    std::string path;
    int error;
};
/// The line for the user: "“path” can’t be written: …".
std::string unwritable(const OutputFileError& error, const Reader& reader);
/// Runs what throws errors of files: they are then errors of `path`.
template <typename Action>
void onFile(const std::string& path, const Action& action) {
    try {
        action();
    } catch (const std::filesystem::filesystem_error& error) {
        throw OutputFileError(path, error.code().value());
    }
}

/// A file that an option names: a new one for the user alone (0600), there once it is complete; or what takes
/// the bytes as they come: standard output ("-", /dev/stdout), a pipe, a device. Throws `OutputFileError`.
class OutputFile {
public:
    /// Whatever can be found out beforehand throws here already: nobody wants to learn after a long check
    /// that its file can't be written. Waits for the reader of a pipe.
    explicit OutputFile(std::string path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Whether it takes the bytes as they come, and may keep us waiting.
    bool isStream() const { return m_descriptor >= 0; }
    void write(std::string_view bytes);
    /// The file is there from now on. Of a stream nothing is left to do.
    void commit();
    /// From now on `commit` is done by a process that is started here: this one gives up what it takes. While
    /// there is one thread.
    static void commitApart(std::vector<OutputFile*> files);

    static bool isStandardOutput(std::string_view path);

private:
    const std::string m_path;
    std::optional<FileReplacement> m_file = {};
    int m_descriptor = -1;  // of a stream
    std::shared_ptr<const HelperProcess> m_helper = {};
    std::uint8_t m_number = 0;  // among those that it commits
};

}  // namespace quillmark
