#include "Sandbox/ProgramSandbox.h"

#include <system_error>

#include "QuillmarkKit/HistoryFile.h"
#include "QuillmarkKit/Lookups/KeyBook.h"
#include "QuillmarkKit/Support/Files.h"
#include "Settings/UserFolders.h"

namespace quillmark {

namespace fs = std::filesystem;

namespace {

std::string errorText(int error) { return std::generic_category().message(error); }

}  // namespace

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

void allowCache(Sandbox& sandbox) {
    const auto cache = cacheFolder();
    if (!cache) return;
    try {
        makeFolders(*cache);
    } catch (const fs::filesystem_error&) {  // NOLINT(bugprone-empty-catch)
        // Without it a check goes on, too.
    }
    sandbox.write.push_back(*cache);
}

std::vector<std::string> linesOfSandbox(const Reader& reader) {
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
