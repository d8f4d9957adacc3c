#include "CommandLine/Restriction.h"

#include <system_error>
#include <utility>

#include "CommandLine/FolderWalk.h"
#include "CommandLine/Output.h"
#include "Sandbox/ProgramSandbox.h"

namespace quillmark {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t mostLinks = 10'000;  // of all inputs; what others lead to is refused

bool isLeftOut = false;

}  // namespace

void leaveOutSandbox(const Reader& reader) {
    isLeftOut = true;
    writeProblem(sandboxLeftOut(reader));
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
    const auto addLink = [&paths, left = mostLinks](const fs::directory_entry& entry) mutable {
        std::error_code none;
        if (left > 0 && entry.is_symlink(none)) --left, paths.push_back(entry.path());
    };
    const FolderVisitor visitor{.see = addLink};
    for (const std::string& file : files) {
        if (file == "-") continue;
        paths.emplace_back(file);
        walkFolder(file, visitor);
    }
    return paths;
}

std::vector<std::string> sandboxLines(const Reader& reader) {
    return isLeftOut ? std::vector{reader.translate("Sandbox: none, as --no-sandbox asks")}
                     : linesOfSandbox(reader);
}

}  // namespace quillmark
