#include "QuillmarkKit/Support/Files.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <system_error>
#include <thread>
#include <utility>

namespace quillmark {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const char* what, const fs::path& path, int error = errno) {
    throw fs::filesystem_error(what, path, std::error_code(error, std::generic_category()));
}

constexpr std::size_t temporaryEnd = 6;

/// What a replacement of a file is called before it has the file's name, without its last six characters.
std::string temporaryName(const fs::path& path) { return "." + path.filename().string() + "."; }

/// Where the system shows an open file, named or not.
std::string nameOfOpen(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

fs::path folderOf(const fs::path& path) { return path.has_parent_path() ? path.parent_path() : "."; }

/// New names in a folder last only once the folder is on disk, too. Where that cannot be had, they are there
/// all the same.
void syncFolder(const fs::path& folder) {
    const int opened = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (opened < 0) return;
    ::fsync(opened);
    ::close(opened);
}

}  // namespace

std::optional<std::string> fileContents(const fs::path& path, std::size_t limit) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes(limit + 1, '\0');
    if (!file.read(bytes.data(), static_cast<std::streamsize>(bytes.size())) && !file.eof())
        return std::nullopt;
    const auto size = static_cast<std::size_t>(file.gcount());
    if (size > limit) return std::nullopt;
    bytes.resize(size);
    return bytes;
}

void replaceFile(const fs::path& path, std::string_view bytes) {
    FileReplacement file(path);
    file.write(bytes);
    file.commit();
}

void createFile(const fs::path& path, std::string_view bytes) {
    FileReplacement file(path);
    file.write(bytes);
    file.commitAsNew();
}

FileReplacement::FileReplacement(fs::path path) : m_path(std::move(path)) {
    const fs::path folder = folderOf(m_path);
    makeFolders(folder);
    // Without a name until it is whole, so that nothing stays behind when the process ends before.
    m_descriptor = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (m_descriptor >= 0 && ::access(nameOfOpen(m_descriptor).c_str(), F_OK) == 0) return;
    if (m_descriptor >= 0) ::close(m_descriptor);
    m_temporary = (folder / (temporaryName(m_path) + "XXXXXX")).string();
    m_descriptor = ::mkostemp(m_temporary.data(), O_CLOEXEC);  // 0600
    if (m_descriptor < 0) fail("cannot write", m_path);
}

FileReplacement::~FileReplacement() {
    ::close(m_descriptor);
    if (!m_temporary.empty()) ::unlink(m_temporary.c_str());
}

void FileReplacement::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(m_descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail("cannot write", m_path);
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

/// A file without a name gets a temporary one; only a rename replaces another file in one step.
void FileReplacement::giveName() {
    while (m_temporary.empty()) {
        const std::string end = std::to_string(100'000 + arc4random_uniform(900'000));
        const std::string name = (folderOf(m_path) / (temporaryName(m_path) + end)).string();
        if (::linkat(AT_FDCWD, nameOfOpen(m_descriptor).c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) ==
            0) {
            m_temporary = name;
        } else if (errno != EEXIST) {
            fail("cannot write", m_path);
        }
    }
}

void FileReplacement::commit() {
    if (::fsync(m_descriptor) != 0) fail("cannot write", m_path);
    giveName();
    if (::rename(m_temporary.c_str(), m_path.c_str()) != 0) fail("cannot write", m_path);
    m_temporary.clear();
    syncFolder(folderOf(m_path));
}

void FileReplacement::commitAsNew() {
    if (::fsync(m_descriptor) != 0) fail("cannot write", m_path);
    giveName();
    if (!renameToUnused(m_temporary, m_path)) fail("cannot write", m_path, EEXIST);
    m_temporary.clear();
}

void FileReplacement::removeLeftovers(const fs::path& path) {
    const std::string begin = temporaryName(path);
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(folderOf(path), ignored)) {
        const std::string name = entry.path().filename().string();
        if (name.size() == begin.size() + temporaryEnd && name.starts_with(begin))
            fs::remove(entry.path(), ignored);
    }
}

FileInput::FileInput(fs::path path) : m_path(std::move(path)) {
    m_descriptor = ::open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);  // a pipe would wait
    if (m_descriptor < 0) fail("cannot read", m_path);
    struct stat status = {};
    int error = ::fstat(m_descriptor, &status) == 0 ? 0 : errno;
    if (error == 0 && S_ISDIR(status.st_mode)) error = EISDIR;
    if (error == 0 && !S_ISREG(status.st_mode)) error = EINVAL;
    if (error == 0) return;
    ::close(m_descriptor);
    fail("cannot read", m_path, error);
}

FileInput::~FileInput() { ::close(m_descriptor); }

FileInput::int_type FileInput::underflow() {
    ssize_t count = 0;
    do {
        count = ::read(m_descriptor, m_buffer.data(), m_buffer.size());
    } while (count < 0 && errno == EINTR);
    if (count < 0) fail("cannot read", m_path);
    if (count == 0) return traits_type::eof();
    setg(m_buffer.data(), m_buffer.data(), m_buffer.data() + count);
    return traits_type::to_int_type(m_buffer.front());
}

FileLock::FileLock(const fs::path& path, std::chrono::milliseconds patience) {
    constexpr std::chrono::milliseconds pause{5};
    const auto end = std::chrono::steady_clock::now() + patience;
    m_descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0600);
    if (m_descriptor < 0) fail("cannot lock", path);
    while (::flock(m_descriptor, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        const bool mayWait = error == EWOULDBLOCK && std::chrono::steady_clock::now() < end;
        if (mayWait) std::this_thread::sleep_for(pause);
        if (mayWait || error == EINTR) continue;
        ::close(m_descriptor);
        fail("cannot lock", path, error == EWOULDBLOCK ? EBUSY : error);
    }
}

FileLock::~FileLock() { ::close(m_descriptor); }

void makeFolders(const fs::path& folder) {
    if (folder.empty() || fs::is_directory(folder)) return;
    makeFolders(folder.parent_path());
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) fail("cannot make the folder", folder);
    syncFolder(folderOf(folder));
}

bool renameToUnused(const fs::path& from, const fs::path& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) != 0) {
        // Some file systems cannot do that, but a second link replaces nothing, either.
        const bool isUnknown = errno == EINVAL || errno == ENOSYS;
        if (!isUnknown && errno != EEXIST) fail("cannot move", from);
        if (!isUnknown) return false;
        if (::link(from.c_str(), to.c_str()) != 0) {
            if (errno == EEXIST) return false;
            fail("cannot move", from);
        }
        if (::unlink(from.c_str()) != 0) fail("cannot move", from);
    }
    syncFolder(folderOf(to));
    return true;
}

}  // namespace quillmark
