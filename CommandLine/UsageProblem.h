#pragma once

#include <string>
#include <vector>

#include "Manual/CommandTable.h"
#include "Wording/Reader.h"

namespace quillmark {

/// One line for arguments that can't be used, with what was probably meant and where to read on. `arguments`
/// are all of them; `unknown` those that mean nothing where they stand; `reason` the parser's words, for the
/// case that it is something else. In the reader's language.
std::string usageProblem(const CommandTable& program, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& unknown, const std::string& reason,
                         const Reader& reader = {});

}  // namespace quillmark
