#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Manual/CommandTable.h"

namespace quillmark {

/// What `--help` says besides what stands in the table.
struct HelpWords {
    std::string usage = "Usage", options = "Options", examples = "Examples";
    std::string commands = "Commands, each with a --help of its own";
    std::string anyCommand = "COMMAND", anyOptions = "OPTIONS";  ///< as they stand in the usage
    std::string more = "All options and exit statuses";
};

/// The text broken at blanks into lines of at most `width` characters; a longer word has a line of its own.
std::vector<std::string> wrapped(std::string_view text, std::size_t width);

/// What has to be typed: the name, the options that are required, and the arguments. `path` is the name with
/// those of the commands above it.
std::string usage(const CommandTable& command, const std::string& path, const HelpWords& words = {});

enum class HelpExtent {
    usual,  ///< what `--help` prints: of a command with options that are seldom needed not those
    all,    ///< what `--help-all` prints
};

/// At most 80 columns wide. `words` and the table's texts are in one language.
std::string helpText(const CommandTable& command, const std::string& path, const HelpWords& words = {},
                     HelpExtent extent = HelpExtent::usual);

}  // namespace quillmark
