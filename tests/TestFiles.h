#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

namespace quillmark::test {

/// All of a file; nothing when it can't be read.
inline std::string contents(const std::filesystem::path& path) {
    std::stringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

/// A new folder for files, gone with the object.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "quillmark-test-XXXXXX").string();
        m_path = ::mkdtemp(pattern.data());
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    std::string operator/(std::string_view name) const { return m_path + "/" + std::string(name); }
    /// Writes a file, in a new folder if need be, and gives its path.
    std::string write(std::string_view name, std::string_view bytes) const {
        const std::string path = *this / name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }

private:
    std::string m_path;
};

}  // namespace quillmark::test
