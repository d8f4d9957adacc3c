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
#include "Wording/Details.h"
#include "Wording/Quoted.h"

namespace quillmark {

OutputFileError::OutputFileError(const std::string& file, int systemError)
    : std::runtime_error(std::generic_category().message(systemError)), path(file), error(systemError) {}

std::string unwritable(const OutputFileError& error, const Reader& reader) {
    return reader.translate(
        "“%1” can’t be written: %2",
        {quillmark::quoted(error.path), error.error == EEXIST ? reader.translate("it is there already")
                                                              : systemErrorText(error.error, reader)});
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
    if (!m_file) return;
    if (!m_helper) {
        onFile(m_path, [this] { m_file->commitAsNew(); });
        return;
    }
    int error = 0;
    const Channel& channel = m_helper->channel();
    if (!channel.send(&m_number, sizeof m_number) || !channel.receive(&error, sizeof error)) error = errno;
    if (error != 0) throw OutputFileError(m_path, error);
}

void OutputFile::commitApart(std::vector<OutputFile*> files) {
    std::erase_if(files, [](const OutputFile* file) { return !file->m_file; });
    if (files.empty()) return;
    const auto helper = std::make_shared<HelperProcess>([&files](const Channel& channel) {
        std::uint8_t number = 0;
        while (channel.receive(&number, sizeof number) && number < files.size()) {
            int error = 0;
            try {
                files[number]->m_file->commitAsNew();
            } catch (const std::filesystem::filesystem_error& failure) {
                error = failure.code().value();
            }
            if (!channel.send(&error, sizeof error)) break;
        }
        for (OutputFile* file : files) file->m_file.reset();  // those that were not committed are gone
    });
    if (!helper->isThere()) throw OutputFileError(files.front()->m_path, EAGAIN);
    std::uint8_t number = 0;
    for (OutputFile* file : files) {
        file->m_helper = helper;
        file->m_number = number++;
    }
}

}  // namespace quillmark
