#pragma once

#include <chrono>
#include <ostream>

#include "Wording/Remark.h"

namespace quillmark {

inline ZoneOffset oneHourAhead(Date) { return {std::chrono::hours(1), "CET"}; }

inline const Reader english{Language::english, Platform::other, oneHourAhead};
inline const Reader german{Language::german, Platform::other, oneHourAhead};

/// A moment in January 2026, which the readers above call "… Jan 2026 at 12:00 CET".
inline Date january(int day) {
    return std::chrono::sys_days{std::chrono::January / day / 2026} + std::chrono::hours(11);
}

/// For messages of failed expectations.
inline void PrintTo(const Remark& remark, std::ostream* out) { *out << remark.text; }

}  // namespace quillmark
