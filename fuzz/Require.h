#pragma once

#include <cstdlib>

namespace quillmark::fuzz {

/// Ends the run, which keeps the input.
inline void require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace quillmark::fuzz
