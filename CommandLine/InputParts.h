#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CommandLine/FileList.h"

namespace quillmark {

/// Some of the names that `quillmark check` is given, of which one result file is made.
struct InputPart {
    std::vector<std::string> files = {};
    /// A digest of the names and of what the files are now: size, time of the last change, whether they can
    /// be read; of a folder all that lies in it.
    std::string state = {};
};
/// `InputPart::state` of these, looked at anew.
std::string stateOf(const std::vector<std::string>& files);

/// Names in their order, in parts of so many that a lost part isn't much and a result file is worth its name.
/// Not safe from several threads at once.
class InputParts {
public:
    static constexpr std::size_t mostNames = 1000;
    static constexpr std::uint64_t mostBytes = 64'000'000;  ///< of their files; a larger one is a part

    InputParts(std::vector<std::string> files, std::optional<FileList> list)
        : m_files(std::move(files)), m_list(std::move(list)) {}

    /// The next, as long as there are names. Throws as `FileList::next`.
    std::optional<InputPart> next();

private:
    std::optional<std::string> nextName();

    const std::vector<std::string> m_files;
    std::optional<FileList> m_list;
    std::size_t m_taken = 0;
    std::optional<std::string> m_ahead = {};  // for which there was no room in the part before
};

}  // namespace quillmark
