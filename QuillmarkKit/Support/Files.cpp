#include "QuillmarkKit/Support/Files.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <system_error>
#include <thread>
#include <utility>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const char* what, const fs::path& path, int error = errno) {
    throw fs::filesystem_error(what, path, std::error_code(error, std::generic_category()));
}

struct FaultCategory : std::error_category {
    const char* name() const noexcept override { return "file"; }
    std::string message(int fault) const override {
        switch (static_cast<FileFault>(fault)) {
            case FileFault::notOrdinary:
                return "it is no ordinary file";
            case FileFault::leadsNowhere:
                return "it is a link, and what it leads to isn't there";
            case FileFault::readOnly:
                return "it is read-only";
            case FileFault::held:
                break;
        }
        return "another program holds it";
    }
    std::error_condition default_error_condition(int fault) const noexcept override {
        if (fault == static_cast<int>(FileFault::held)) return std::errc::device_or_resource_busy;
        return {fault, *this};
    }
};

constexpr std::size_t temporaryEnd = 16;   // hexadecimal digits
constexpr std::size_t longestBegin = 150;  // of a file's name in that of its replacement; 255 may be

/// What a replacement of a file is called before it has the file's name, but for the digits at the end: a
/// name that nobody else gives a file.
std::string temporaryName(const fs::path& path) {
    return "." + path.filename().string().substr(0, longestBegin) + ".unfinished-quillmark-";
}

std::string randomDigits() {
    std::string digits;
    while (digits.size() < temporaryEnd) digits += "0123456789abcdef"[arc4random_uniform(16)];
    return digits;
}

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

std::error_code make_error_code(FileFault fault) {
    static const FaultCategory category;
    return {static_cast<int>(fault), category};
}

fs::path followed(const fs::path& path) {
    std::error_code error;
    // Of a folder that is away nobody knows that the file isn't there.
    if (!fs::is_symlink(path, error)) {
        if (path.has_parent_path() && fs::is_symlink(path.parent_path(), error)) followed(path.parent_path());
        return path;
    }
    fs::path target = fs::canonical(path, error);
    if (error) throw fs::filesystem_error("cannot follow", path, FileFault::leadsNowhere);
    return target;
}

void requireWritable(const fs::path& path) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) return;
    // The superuser may write everything; what it marked it did not mark for nothing.
    constexpr mode_t writable = S_IWUSR | S_IWGRP | S_IWOTH;
    const bool isMarked = (status.st_mode & writable) == 0;
    if (isMarked || (::access(path.c_str(), W_OK) != 0 && errno == EACCES))
        throw fs::filesystem_error("cannot write", path, FileFault::readOnly);
}

std::string lastComponent(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
    return repairedUTF8(path.substr(path.rfind('/') + 1));
}

std::optional<std::string> fileContents(const fs::path& path, std::size_t limit) {
    try {
        FileInput file(path);
        std::string bytes;
        // In pieces: a limit may be far more than there is, and than there is memory.
        for (std::size_t piece = 65'536; bytes.size() <= limit; piece *= 2) {
            const std::size_t size = bytes.size(), wanted = std::min(piece, limit + 1 - size);
            bytes.resize(size + wanted);
            const auto count = static_cast<std::size_t>(
                file.sgetn(bytes.data() + size, static_cast<std::streamsize>(wanted)));
            bytes.resize(size + count);
            if (count < wanted) return bytes;
        }
    } catch (const fs::filesystem_error&) {  // NOLINT(bugprone-empty-catch)
    }
    return std::nullopt;
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
    do {
        m_temporary = folder / (temporaryName(m_path) + randomDigits());
        m_descriptor = ::open(m_temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    } while (m_descriptor < 0 && errno == EEXIST);
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
        const std::string name = folderOf(m_path) / (temporaryName(m_path) + randomDigits());
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
        if (name.size() != begin.size() + temporaryEnd || !name.starts_with(begin)) continue;
        const bool isOurs = std::ranges::all_of(name.substr(begin.size()), [](char c) {
            return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
        });
        if (isOurs && entry.symlink_status(ignored).type() == fs::file_type::regular)
            fs::remove(entry.path(), ignored);
    }
}

FileInput::FileInput(fs::path path) : m_path(std::move(path)) {
    m_descriptor = ::open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);  // a pipe would wait
    if (m_descriptor < 0) fail("cannot read", m_path);
    struct stat status = {};
    std::error_code error;
    if (::fstat(m_descriptor, &status) != 0) {
        error.assign(errno, std::generic_category());
    } else if (S_ISDIR(status.st_mode)) {
        error.assign(EISDIR, std::generic_category());
    } else if (!S_ISREG(status.st_mode)) {
        error = FileFault::notOrdinary;
    }
    if (!error) return;
    ::close(m_descriptor);
    throw fs::filesystem_error("cannot read", m_path, error);
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

namespace {

/// Who holds a `flock` on the file, by the system's list (proc(5)), of which a line begins
/// "1: FLOCK ADVISORY WRITE 123 08:01:4567".
LockHolder holderOf(int descriptor) {
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0) return {};
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        int process = 0;
        unsigned major = 0, minor = 0;
        unsigned long long node = 0;
        // Those that wait for a lock stand there, too, behind "->".
        if (std::sscanf(line.c_str(), "%*d: FLOCK %*s %*s %d %x:%x:%llu", &process, &major, &minor, &node) !=
            4)
            continue;
        if (makedev(major, minor) != status.st_dev || node != status.st_ino) continue;
        LockHolder holder{process};
        std::ifstream name("/proc/" + std::to_string(process) + "/comm");
        std::getline(name, holder.program);
        return holder;
    }
    return {};
}

}  // namespace

FileLock::FileLock(const fs::path& path, std::chrono::milliseconds patience,
                   const std::function<void(const LockHolder&)>& waiting) {
    constexpr std::chrono::milliseconds pause{5}, usual{500};
    const auto begin = std::chrono::steady_clock::now();
    bool isTold = !waiting;
    m_descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0600);
    if (m_descriptor < 0) fail("cannot lock", path);
    while (::flock(m_descriptor, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        const auto waited = std::chrono::steady_clock::now() - begin;
        const bool isHeld = error == EWOULDBLOCK, mayWait = isHeld && waited < patience;
        if (isHeld && !isTold && (waited >= usual || !mayWait)) {
            isTold = true;
            waiting(holderOf(m_descriptor));
        }
        if (mayWait) std::this_thread::sleep_for(pause);
        if (mayWait || error == EINTR) continue;
        ::close(m_descriptor);
        if (isHeld) throw fs::filesystem_error("cannot lock", path, FileFault::held);
        fail("cannot lock", path, error);
    }
}

FileLock::~FileLock() { ::close(m_descriptor); }

void makeFolders(const fs::path& folder) {
    if (folder.empty() || fs::is_directory(folder)) return;
    makeFolders(folder.parent_path());
    if (::mkdir(folder.c_str(), 0700) != 0) {
        const int error = errno;
        if (error != EEXIST) fail("cannot make the folder", folder, error);
        if (!fs::is_directory(folder)) fail("cannot make the folder", folder, ENOTDIR);
    }
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
