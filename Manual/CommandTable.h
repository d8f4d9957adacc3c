#pragma once

#include <string>
#include <vector>

/// What a person can type after a program's name. `--help`, the man page and the completions are all written
/// from it, so that none of them can say something else than the others.
namespace quillmark {

struct OptionEntry {
    std::vector<std::string> names = {};    ///< with their dashes, the longest last
    std::string value = {};                 ///< what stands for its value; empty when it takes none
    std::vector<std::string> choices = {};  ///< the values that it takes, when they are few
    std::string purpose = {};
    bool required = false;
    bool isSeldom = false;  ///< left to `--help-all`

    /// Whether its value is a file's name.
    bool takesFile() const { return value == "FILE" || value == "KEY"; }
};

struct ArgumentEntry {
    std::string name = {};
    std::string purpose = {};
    bool required = false, several = false;

    bool isFile() const { return name == "FILE"; }
};

/// A program or one of its commands. Commands nest, at most as deep as their author typed them.
struct CommandTable {
    std::string name = {};
    std::string purpose = {};
    std::vector<OptionEntry> options = {};
    std::vector<ArgumentEntry> arguments = {};
    std::vector<CommandTable> commands = {};
    std::string remarks = {};  ///< what stands last: details, exit statuses

    struct Example {
        std::string command = {}, purpose = {};
    };
    struct Section {
        std::string title = {};
        std::vector<std::string> paragraphs = {};
    };
    std::vector<Example> examples = {};
    std::vector<Section> sections = {};  ///< of the man page only
};

}  // namespace quillmark
