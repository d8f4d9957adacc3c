#pragma once

#include <string>
#include <vector>

#include "Wording/Reader.h"

namespace quillmark {

/// `quillmark explain`: what a technical word of a report means.
struct ExplainCommand {
    std::vector<std::string> words =
        {};  ///< of one name, such as "signing" and "domain"; none: list them all
    Reader reader = {};
    std::size_t width = 0;  ///< columns, in which lines are `wrapped`; 0: each line is whole

    /// Returns the exit status: 0 when it is explained, 1 when there is no such word.
    int run() const;
};

}  // namespace quillmark
