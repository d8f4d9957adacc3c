#include "QuillmarkKit/Support/Base64.h"

#include <array>
#include <cstdint>

namespace quillmark {

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<std::int8_t, 256> values = [] {
    std::array<std::int8_t, 256> table{};
    table.fill(-1);
    // cppcheck-suppress syntaxError; it does not know statements in the initializer of a constant
    for (std::size_t i = 0; i < alphabet.size(); ++i) {
        table[static_cast<unsigned char>(alphabet[i])] = static_cast<std::int8_t>(i);
    }
    return table;
}();

}  // namespace

std::optional<std::string> decodedBase64(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    const std::size_t digits = text.size() - padding;
    std::int32_t all = 0;  // below zero as soon as one character is no digit
    const auto digit = [&](std::size_t at) {
        const std::int32_t value = at < digits ? values[static_cast<unsigned char>(text[at])] : 0;
        all |= value;
        return static_cast<std::uint32_t>(value);
    };
    std::string bytes(text.size() / 4 * 3, '\0');
    char* to = bytes.data();
    for (std::size_t at = 0; at < text.size(); at += 4) {
        const std::uint32_t bits = digit(at) << 18 | digit(at + 1) << 12 | digit(at + 2) << 6 | digit(at + 3);
        *to++ = static_cast<char>(bits >> 16 & 0xFF);
        *to++ = static_cast<char>(bits >> 8 & 0xFF);
        *to++ = static_cast<char>(bits & 0xFF);
    }
    if (all < 0) return std::nullopt;
    bytes.resize(bytes.size() - padding);
    return bytes;
}

std::string encodedBase64(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    const auto byte = [&](std::size_t i) {
        return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0u;
    };
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::uint32_t bits = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        text += alphabet[bits >> 18];
        text += alphabet[bits >> 12 & 63];
        text += i + 1 < bytes.size() ? alphabet[bits >> 6 & 63] : '=';
        text += i + 2 < bytes.size() ? alphabet[bits & 63] : '=';
    }
    return text;
}

}  // namespace quillmark
