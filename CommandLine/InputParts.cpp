#include "CommandLine/InputParts.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "CommandLine/FolderWalk.h"
#include "QuillmarkKit/Support/Crypto.h"

namespace quillmark {

namespace {

namespace fs = std::filesystem;

/// What is found under one name.
struct Found {
    std::string state = {};
    std::uint64_t bytes = 0;
};

Found lookedAt(const std::string& name);

/// All that lies in a folder and in those below it, each of which counts once, wherever links lead.
Found lookedInto(const std::string& name) {
    std::vector<std::string> states;
    std::uint64_t bytes = 0;
    const auto see = [&](const fs::directory_entry& entry) {
        std::error_code none;
        if (entry.is_directory(none)) return;
        const std::string path = entry.path().string();
        const Found found = lookedAt(path);
        bytes += found.bytes;
        states.push_back(hash(HashAlgorithm::sha256, path + '\0' + found.state));
    };
    const auto fail = [&states](const fs::path& folder, const std::error_code& error) {
        states.push_back(hash(HashAlgorithm::sha256, folder.string() + '\0' + error.message()));
    };
    walkFolder(name, {.see = see, .fail = fail});
    std::ranges::sort(states);
    Hasher all(HashAlgorithm::sha256);
    for (const std::string& state : states) all.add(state);
    return {"folder " + all.digest(), bytes};
}

Found lookedAt(const std::string& name) {
    struct stat status = {};
    if (stat(name.c_str(), &status) != 0) return {"missing " + std::to_string(errno)};
    if (S_ISDIR(status.st_mode)) return lookedInto(name);
    if (!S_ISREG(status.st_mode)) return {"other"};
    const auto size = static_cast<std::uint64_t>(status.st_size);
    std::string state = "file";
    for (const std::uint64_t number : {size, static_cast<std::uint64_t>(status.st_mtim.tv_sec),
                                       static_cast<std::uint64_t>(status.st_mtim.tv_nsec),
                                       static_cast<std::uint64_t>(access(name.c_str(), R_OK) == 0)}) {
        state += ' ' + std::to_string(number);
    }
    return {std::move(state), size};
}

/// Each with its length in front, so that no two lists are one text.
void add(Hasher& hasher, const std::string& name, const Found& found) {
    hasher.add(std::to_string(name.size()) + ' ' + name + std::to_string(found.state.size()) + ' ' +
               found.state);
}

}  // namespace

std::string stateOf(const std::vector<std::string>& files) {
    Hasher hasher(HashAlgorithm::sha256);
    for (const std::string& name : files) add(hasher, name, lookedAt(name));
    return hasher.digest();
}

std::optional<std::string> InputParts::nextName() {
    if (m_ahead) return std::exchange(m_ahead, std::nullopt);
    if (m_taken < m_files.size()) return m_files[m_taken++];
    auto name = m_list ? m_list->next() : std::nullopt;
    if (name == "-") name = "./-";  // a list names files only
    return name;
}

std::optional<InputPart> InputParts::next() {
    InputPart part;
    Hasher hasher(HashAlgorithm::sha256);
    std::uint64_t bytes = 0;
    while (part.files.size() < mostNames) {
        auto name = nextName();
        if (!name) break;
        const Found found = lookedAt(*name);
        if (!part.files.empty() && bytes + found.bytes > mostBytes) {
            m_ahead = std::move(name);
            break;
        }
        bytes += found.bytes;
        add(hasher, *name, found);
        part.files.push_back(*std::move(name));
    }
    if (part.files.empty()) return std::nullopt;
    part.state = hasher.digest();
    return part;
}

}  // namespace quillmark
