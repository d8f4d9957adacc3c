#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Manual/CommandTable.h"

namespace quillmark {

/// The text broken at blanks into lines of at most `width` bytes; a longer word has a line of its own.
std::vector<std::string> wrapped(std::string_view text, std::size_t width);

/// What has to be typed: the name, the options that are required, and the arguments. `path` is the name with
/// those of the commands above it.
std::string usage(const CommandTable& command, const std::string& path);

/// What `--help` prints: at most 80 columns wide.
std::string helpText(const CommandTable& command, const std::string& path);

}  // namespace quillmark
