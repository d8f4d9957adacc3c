#pragma once

#include <string>

#include "Manual/CommandTable.h"

namespace quillmark {

/// What lets a shell complete the program's commands, options and files: a file for it to source.
std::string bashCompletion(const CommandTable& program);
std::string zshCompletion(const CommandTable& program);
std::string fishCompletion(const CommandTable& program);

}  // namespace quillmark
