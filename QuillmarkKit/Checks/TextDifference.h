#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace quillmark {

/// Lines of one text in whose place the other has others: some were added where `beforeLines` is 0, some are
/// missing where `afterLines` is. Places are bytes from the beginning of each text; a line's end (LF) is its
/// own.
struct DifferentLines {
    std::size_t beforeBegin = 0, beforeEnd = 0;
    std::size_t afterBegin = 0, afterEnd = 0;
    std::size_t beforeLines = 0, afterLines = 0;
    bool operator==(const DifferentLines&) const = default;
};

/// Where two texts differ, in order, with a line between any two places that both have: what they begin and
/// end with alike is left aside, then the fewest lines. All that is left is one place when it is so much that
/// comparing it would cost more than four million steps.
std::vector<DifferentLines> differentLines(std::string_view before, std::string_view after);

}  // namespace quillmark
