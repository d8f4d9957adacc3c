#pragma once

#include <string>

#include "Manual/CommandTable.h"

namespace quillmark {

/// The program's page for section 1, for groff or mandoc. `date` is that of the version, as 2026-11-21.
std::string manPage(const CommandTable& program, const std::string& version, const std::string& date);

}  // namespace quillmark
