#pragma once

#include <chrono>

#include "QuillmarkKit/Support/Date.h"

namespace quillmark {

/// By this machine's clock, which the kit never reads.
inline Date currentTime() {
    return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

}  // namespace quillmark
