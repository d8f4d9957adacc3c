#include "Sandbox/ProgramSandbox.h"

#include "QuillmarkKit/HistoryFile.h"
#include "QuillmarkKit/Lookups/KeyBook.h"
#include "QuillmarkKit/Support/Files.h"
#include "Settings/UserFolders.h"
#include "Wording/Details.h"

namespace quillmark {

namespace fs = std::filesystem;

void allowUserData(Sandbox& sandbox, UserData data) {
    // What goes wrong here is told by whoever opens it.
    const auto allow = [&](const auto& find) {
        try {
            sandbox.write.push_back(followed(find()).parent_path());
            if (data == UserData::made) makeFolders(sandbox.write.back());
        } catch (const fs::filesystem_error&) {
            sandbox.write.emplace_back();  // nothing, but it may be tried, and fails for the same reason
        }
    };
    const auto history = [] { return HistoryFile::defaultLocation(dataFolderName); };
    allow(history);
    allow([&] { return KeyBook::besideHistory(history()); });
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
    return {state.landlock > 0 ? reader.translate("Sandbox for files: Landlock, version %1",
                                                  {std::to_string(state.landlock)})
                               : reader.translate("Sandbox for files: none (Landlock: %1)",
                                                  {systemErrorText(state.landlockError, reader)}),
            state.seccompError == 0 ? reader.translate("Sandbox for the rest: seccomp")
                                    : reader.translate("Sandbox for the rest: none (seccomp: %1)",
                                                       {systemErrorText(state.seccompError, reader)})};
}

std::string sandboxLeftOut(const Reader& reader) {
    return reader.translate(
        "This runs without its sandbox, as --no-sandbox asks: should a message use a fault in this "
        "program, it can do all that you can.");
}

}  // namespace quillmark
