#include "CommandLine/Restriction.h"

#include <sys/stat.h>

#include <set>
#include <system_error>
#include <utility>

#include "CommandLine/Output.h"
#include "QuillmarkKit/HistoryFile.h"
#include "QuillmarkKit/Lookups/KeyBook.h"
#include "QuillmarkKit/Support/Files.h"
#include "Settings/UserFolders.h"

namespace quillmark {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t mostLinks = 10'000;  // of all inputs; what others lead to is refused

bool isLeftOut = false;

/// Adds what links in a folder lead to, and in those that are reached from there.
void addLinked(const fs::path& root, std::vector<fs::path>& paths) {
    std::set<std::pair<dev_t, ino_t>> known;
    std::vector<fs::path> folders{root};
    while (!folders.empty()) {
        const fs::path folder = std::move(folders.back());
        folders.pop_back();
        struct stat status = {};
        if (stat(folder.c_str(), &status) != 0 || !known.emplace(status.st_dev, status.st_ino).second)
            continue;
        std::error_code error;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
             entry.increment(error)) {
            std::error_code none;
            const bool isLink = entry->is_symlink(none);
            if (isLink && paths.size() < mostLinks) paths.push_back(entry->path());
            if (entry->is_directory(none)) folders.push_back(entry->path());
        }
    }
}

std::string errorText(int error) { return std::generic_category().message(error); }

}  // namespace

void leaveOutSandbox(const Reader& reader) {
    isLeftOut = true;
    writeProblem(reader.translate(
        "This runs without its sandbox, as --no-sandbox asks: should a message use a fault in this "
        "program, it can do all that you can."));
}

void restricted(const Sandbox& sandbox) {
    if (!isLeftOut) restrictProcess(sandbox);
    endOnSignals();
}

std::vector<fs::path> readable(const std::vector<std::string>& files) {
    std::vector<fs::path> paths;
    for (const std::string& file : files) {
        if (file == "-") continue;
        paths.emplace_back(file);
        addLinked(file, paths);
    }
    return paths;
}

fs::path folderOf(const fs::path& file) { return file.has_parent_path() ? file.parent_path() : "."; }

void allowUserData(Sandbox& sandbox, UserData data) {
    try {
        const fs::path history = HistoryFile::defaultLocation(dataFolderName);
        for (const fs::path& file : {history, KeyBook::besideHistory(history)}) {
            const fs::path folder = folderOf(followed(file));
            sandbox.write.push_back(folder);
            if (data == UserData::made) makeFolders(folder);
        }
    } catch (const fs::filesystem_error&) {  // NOLINT(bugprone-empty-catch)
        // Whoever opens it will say so.
    }
    sandbox.read.emplace_back("/proc");  // who holds their lock
}

std::vector<std::string> sandboxLines(const Reader& reader) {
    if (isLeftOut) return {reader.translate("Sandbox: none, as --no-sandbox asks")};
    if (isSandboxLeftOut()) return {reader.translate("Sandbox: none in a build with a sanitizer")};
    const SandboxState state = restrictProcess({});
    return {
        state.landlock > 0
            ? reader.translate("Sandbox for files: Landlock, version %1", {std::to_string(state.landlock)})
            : reader.translate("Sandbox for files: none (Landlock: %1)", {errorText(state.landlockError)}),
        state.seccompError == 0
            ? reader.translate("Sandbox for the rest: seccomp")
            : reader.translate("Sandbox for the rest: none (seccomp: %1)", {errorText(state.seccompError)})};
}

}  // namespace quillmark
