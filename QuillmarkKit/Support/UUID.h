#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillmark {

/// A universally unique identifier (RFC 9562).
struct UUID {
    std::array<std::uint8_t, 16> bytes = {};
    auto operator<=>(const UUID&) const = default;

    /// A new random one (version 4), from the system's random numbers.
    static UUID random();
    /// 8-4-4-4-12 hexadecimal digits of either case, or nothing.
    static std::optional<UUID> parse(std::string_view text);
    /// Upper-case, hyphenated.
    std::string text() const;
};

}  // namespace quillmark
