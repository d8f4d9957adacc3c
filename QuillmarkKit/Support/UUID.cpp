#include "QuillmarkKit/Support/UUID.h"

#include <stdlib.h>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr bool hyphenBefore(std::size_t byte) { return byte == 4 || byte == 6 || byte == 8 || byte == 10; }

}  // namespace

UUID UUID::random() {
    UUID id;
    arc4random_buf(id.bytes.data(),
                   id.bytes.size());  // the system's random numbers, not a generator of our own
    id.bytes[6] = static_cast<std::uint8_t>((id.bytes[6] & 0x0F) | 0x40);
    id.bytes[8] = static_cast<std::uint8_t>((id.bytes[8] & 0x3F) | 0x80);
    return id;
}

std::optional<UUID> UUID::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    UUID id;
    std::size_t at = 0;
    for (std::size_t i = 0; i < id.bytes.size(); ++i) {
        if (hyphenBefore(i) && text[at++] != '-') return std::nullopt;
        const int high = hexValue(text[at]), low = hexValue(text[at + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        id.bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
        at += 2;
    }
    return id;
}

std::string UUID::text() const {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (hyphenBefore(i)) text += '-';
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

}  // namespace quillmark
