#include "CommandLine/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "CommandLine/Output.h"
#include "CommandLine/Restriction.h"
#include "Sandbox/ProgramSandbox.h"
#include "Wording/Quoted.h"

namespace quillmark {

OutputFileError::OutputFileError(const std::string& file, int systemError)
    : std::runtime_error(std::generic_category().message(systemError)), path(file), error(systemError) {}

std::string unwritable(const OutputFileError& error, const Reader& reader) {
    return reader.translate("“%1” can’t be written: %2",
                            {quillmark::quoted(error.path),
                             error.error == EEXIST ? reader.translate("it is there already") : error.what()});
}

bool OutputFile::isStandardOutput(std::string_view path) {
    constexpr std::array<std::string_view, 4> names{"-", "/dev/stdout", "/dev/fd/1", "/proc/self/fd/1"};
    return std::ranges::count(names, path) > 0;
}

OutputFile::OutputFile(std::string path) : m_path(std::move(path)) {
    if (isStandardOutput(m_path)) {
        m_descriptor = STDOUT_FILENO;
        return;
    }
    const std::filesystem::path file = m_path, folder = file.parent_path();
    struct stat status = {};
    const bool isStream =
        stat(m_path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
    if (isStream) {
        m_descriptor = open(m_path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
        if (m_descriptor < 0) throw OutputFileError(m_path, errno);
        return;
    }
    if (lstat(m_path.c_str(), &status) == 0) throw OutputFileError(m_path, EEXIST);
    if (file.filename().empty()) throw OutputFileError(m_path, EISDIR);
    if (access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) != 0) throw OutputFileError(m_path, errno);
    onFile(m_path, [this] { m_file.emplace(m_path); });
}

OutputFile::~OutputFile() {
    if (m_descriptor >= 0 && m_descriptor != STDOUT_FILENO) close(m_descriptor);
}

void OutputFile::write(std::string_view bytes) {
    if (!m_file) {
        if (const int error = writeBytes(bytes, m_descriptor)) throw OutputFileError(m_path, error);
        return;
    }
    onFile(m_path, [&] { m_file->write(bytes); });
}

void OutputFile::commit() {
    if (m_file) onFile(m_path, [this] { m_file->commitAsNew(); });
}

void OutputFile::allowIn(Sandbox& sandbox) const {
    if (m_file) (m_file->isNamed() ? sandbox.write : sandbox.name).push_back(folderOf(m_path));
}

}  // namespace quillmark
