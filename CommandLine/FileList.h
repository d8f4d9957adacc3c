#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace quillmark {

/// The names of files out of a list, one after the other and only as far as they are asked for: a list may be
/// longer than memory, or come from a program that is still finding them.
class FileList {
public:
    enum class Ends { lines, zeroBytes };  ///< what stands behind each name

    /// `path`: the list; "-" is standard input.
    FileList(std::string path, Ends ends) : m_path(std::move(path)), m_ends(ends) {}

    /// The next name that isn't empty, in which nothing has a meaning; nothing at the end. Throws
    /// `std::system_error` once when the list can't be read; then that is its end.
    std::optional<std::string> next();

    const std::string& path() const { return m_path; }

private:
    const std::string m_path;
    const Ends m_ends;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_file{nullptr, std::fclose};
    bool m_hasEnded = false;
};

}  // namespace quillmark
