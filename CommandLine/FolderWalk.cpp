#include "CommandLine/FolderWalk.h"

#include <sys/stat.h>

#include <set>
#include <utility>
#include <vector>

namespace quillmark {

namespace fs = std::filesystem;

void walkFolder(const fs::path& root, const FolderVisitor& visitor) {
    std::set<std::pair<dev_t, ino_t>> known;
    std::vector<fs::path> folders{root};
    while (!folders.empty()) {
        const fs::path folder = std::move(folders.back());
        folders.pop_back();
        struct stat status = {};
        if (stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
            !known.emplace(status.st_dev, status.st_ino).second) {
            continue;
        }
        if (visitor.enter && !visitor.enter(folder)) return;
        std::error_code error;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
             entry.increment(error)) {
            std::error_code none;
            if (entry->is_directory(none)) folders.push_back(entry->path());
            if (visitor.see) visitor.see(*entry);
        }
        if (error && visitor.fail) visitor.fail(folder, error);
    }
}

}  // namespace quillmark
