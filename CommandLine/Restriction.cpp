#include "CommandLine/Restriction.h"

#include <sys/stat.h>

#include <set>
#include <system_error>
#include <utility>

#include "CommandLine/Output.h"
#include "Sandbox/ProgramSandbox.h"

namespace quillmark {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t mostLinks = 10'000;  // of all inputs; what others lead to is refused

bool isLeftOut = false;

/// Adds what links in a folder lead to, and in those that are reached from there; of all folders together as
/// many as are `left`.
void addLinked(const fs::path& root, std::vector<fs::path>& paths, std::size_t& left) {
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
            if (isLink && left > 0) --left, paths.push_back(entry->path());
            if (entry->is_directory(none)) folders.push_back(entry->path());
        }
    }
}

}  // namespace

void leaveOutSandbox(const Reader& reader) {
    isLeftOut = true;
    writeProblem(reader.translate(
        "This runs without its sandbox, as --no-sandbox asks: should a message use a fault in this "
        "program, it can do all that you can."));
}

void restricted(const Sandbox& sandbox, std::vector<OutputFile*> made) {
    if (!isLeftOut && !isSandboxLeftOut()) {
        OutputFile::commitApart(std::move(made));
        restrictProcess(sandbox);
    }
    endOnSignals();
}

std::vector<fs::path> readable(const std::vector<std::string>& files) {
    std::vector<fs::path> paths;
    std::size_t links = mostLinks;
    for (const std::string& file : files) {
        if (file == "-") continue;
        paths.emplace_back(file);
        addLinked(file, paths, links);
    }
    return paths;
}

std::vector<std::string> sandboxLines(const Reader& reader) {
    return isLeftOut ? std::vector{reader.translate("Sandbox: none, as --no-sandbox asks")}
                     : linesOfSandbox(reader);
}

}  // namespace quillmark
