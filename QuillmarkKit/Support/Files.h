#pragma once

#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <streambuf>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

/// Files on disk. What fails throws `std::filesystem::filesystem_error` with the system's error.
namespace quillmark {

/// What we refuse ourselves; its category's words are "it is no ordinary file" and the like.
enum class FileFault {
    notOrdinary = 1,  ///< a pipe, a device …
    leadsNowhere,     ///< a symbolic link
    readOnly,
    held,  ///< a lock, by somebody else; equals `std::errc::device_or_resource_busy`
};
std::error_code make_error_code(FileFault fault);

/// The file that a symbolic link leads to, or what is no link as it stands. Throws when it leads nowhere.
std::filesystem::path followed(const std::filesystem::path& path);
/// Throws when there is such a file and we are not to write into it, though it could be replaced.
void requireWritable(const std::filesystem::path& path);

/// The last component of a path of the system's, as text.
std::string lastComponent(std::string_view path);

/// The whole of an ordinary file of at most `limit` bytes; nothing when it cannot be read, is larger or is no
/// ordinary file.
std::optional<std::string> fileContents(const std::filesystem::path& path, std::size_t limit);

/// Puts a file with these bytes in the place of whatever has the name, in one step: whoever reads it sees the
/// old or the new, whole. Only the user may read it (0600), and a folder that has to be made (0700). A
/// symbolic link of that name is replaced, not followed. Throws `std::filesystem::filesystem_error`; then the
/// old file is as it was.
void replaceFile(const std::filesystem::path& path, std::string_view bytes);
/// The same, but throws when anything has the name already.
void createFile(const std::filesystem::path& path, std::string_view bytes);

/// `replaceFile` for more bytes than should be in memory at once. Until `commit`, and when it is destroyed
/// without, it is as if it had never been.
class FileReplacement {
public:
    explicit FileReplacement(std::filesystem::path path);
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    void write(std::string_view bytes);
    /// Once it has returned, the new file outlasts a loss of power.
    void commit();
    /// The same, but throws when anything has the name already.
    void commitAsNew();

    /// Removes what replacements of `path` whose process was killed have left beside it. Only while nobody
    /// else replaces it.
    static void removeLeftovers(const std::filesystem::path& path);

private:
    void giveName();

    std::filesystem::path m_path;
    std::string m_temporary;  // its name so far; empty while it has none, and once committed
    int m_descriptor = -1;
};

/// The bytes of an ordinary file for a `std::istream`, of which a small part is in memory at a time.
class FileInput : public std::streambuf {
public:
    explicit FileInput(std::filesystem::path path);
    ~FileInput() override;
    FileInput(const FileInput&) = delete;
    FileInput& operator=(const FileInput&) = delete;

protected:
    int_type underflow() override;

private:
    std::filesystem::path m_path;
    int m_descriptor = -1;
    std::array<char, 65'536> m_buffer;
};

/// Who holds a lock, as far as the system tells.
struct LockHolder {
    int process = 0;           ///< 0: unknown
    std::string program = {};  ///< its name, perhaps cut; empty: unknown
};

/// An advisory lock, from when it is there until it is destroyed: of all that lock the same file, in this
/// process or others, one goes on and the others wait. The file is made and never removed; the lock of a
/// process that dies is free.
class FileLock {
public:
    /// Longer than any change takes, so that a process that was stopped with the lock doesn't stop others.
    static constexpr std::chrono::seconds usualPatience{120};
    /// Throws as soon as it has waited for `patience`. `waiting` is called once, when that is longer than
    /// changes take as a rule, or when it throws.
    explicit FileLock(const std::filesystem::path& path, std::chrono::milliseconds patience = usualPatience,
                      const std::function<void(const LockHolder&)>& waiting = {});
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    int m_descriptor = -1;
};

/// Makes the folder, and those above it that are missing, for the user alone (0700).
void makeFolders(const std::filesystem::path& folder);

/// Moves a file to another name in the same folder; false, and nothing is done, when something has that name.
bool renameToUnused(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace quillmark

template <>
struct std::is_error_code_enum<quillmark::FileFault> : std::true_type {};
