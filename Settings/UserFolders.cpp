#include "Settings/UserFolders.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace quillmark {

namespace {

std::filesystem::path named(const char* variable) {
    const char* const value = std::getenv(variable);
    return value ? value : "";
}

std::optional<std::filesystem::path> ours(const char* variable, const char* inHome) {
    const auto folder = named(variable), home = named("HOME");
    if (folder.is_absolute()) return folder / "quillmark";
    if (home.is_absolute()) return home / inHome / "quillmark";
    return std::nullopt;
}

}  // namespace

std::optional<std::filesystem::path> cacheFolder() { return ours("XDG_CACHE_HOME", ".cache"); }

std::optional<std::filesystem::path> settingsFolder() { return ours("XDG_CONFIG_HOME", ".config"); }

std::optional<std::filesystem::path> sessionFolder() {
    const auto folder = named("XDG_RUNTIME_DIR");
    struct stat status{};
    const bool isSafe = folder.is_absolute() && ::lstat(folder.c_str(), &status) == 0 &&
                        S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() &&
                        (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
    return isSafe ? std::optional(folder) : std::nullopt;
}

}  // namespace quillmark
