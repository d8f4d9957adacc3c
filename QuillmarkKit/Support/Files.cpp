#include "QuillmarkKit/Support/Files.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <system_error>

namespace quillmark {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const char* what, const fs::path& path, int error) {
    throw fs::filesystem_error(what, path, std::error_code(error, std::generic_category()));
}

/// Closes a descriptor at the end of a scope.
struct Closing {
    int descriptor;
    ~Closing() { ::close(descriptor); }
};

int writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return ::fsync(descriptor) == 0 ? 0 : errno;
}

/// Folders that have to be made are the user's alone, from the moment they are there.
void makeFolders(const fs::path& folder) {
    if (folder.empty() || fs::is_directory(folder)) return;
    makeFolders(folder.parent_path());
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) fail("cannot make the folder", folder, errno);
}

/// Gives a file a name that nothing has, in one step where the file system can. 0, or the system's error.
int renameToNew(const char* from, const char* to) {
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    struct stat status = {};
    if (::lstat(to, &status) == 0) return EEXIST;
    return ::rename(from, to) == 0 ? 0 : errno;
}

int renameOver(const char* from, const char* to) { return ::rename(from, to) == 0 ? 0 : errno; }

/// Writes a file beside `path`; `rename` gives it the name.
void put(const fs::path& path, std::string_view bytes, int (*rename)(const char* from, const char* to)) {
    const fs::path folder = path.parent_path();
    makeFolders(folder);
    std::string name = (folder / ("." + path.filename().string() + ".XXXXXX")).string();
    const int descriptor = ::mkostemp(name.data(), O_CLOEXEC);  // 0600
    if (descriptor < 0) fail("cannot write", path, errno);
    int error = 0;
    {
        const Closing closing{descriptor};
        error = writeAll(descriptor, bytes);
    }
    if (error == 0) error = rename(name.c_str(), path.c_str());
    if (error != 0) {
        ::unlink(name.c_str());
        fail("cannot write", path, error);
    }
    // The new name lasts only once the folder is on disk, too; where that cannot be had, the file is there
    // all the same.
    const int opened = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (opened < 0) return;
    const Closing closing{opened};
    ::fsync(opened);
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

void replaceFile(const fs::path& path, std::string_view bytes) { put(path, bytes, renameOver); }

void createFile(const fs::path& path, std::string_view bytes) { put(path, bytes, renameToNew); }

}  // namespace quillmark
