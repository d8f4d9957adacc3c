#include "QuillmarkKit/Support/DER.h"

namespace quillmark {

std::optional<std::string_view> takeDER(std::string_view& der, unsigned char tag) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(der[i]); };
    if (der.size() < 2 || byte(0) != tag) return std::nullopt;
    std::size_t length = byte(1), head = 2;
    if (length >= 0x80) {
        const std::size_t count = length & 0x7F;
        if (count < 1 || count > 4 || der.size() < 2 + count) return std::nullopt;
        length = 0;
        for (std::size_t i = 0; i < count; ++i) length = length << 8 | byte(2 + i);
        head += count;
    }
    if (length > der.size() - head) return std::nullopt;
    const std::string_view content = der.substr(head, length);
    der.remove_prefix(head + length);
    return content;
}

std::string encodedDER(char tag, std::string_view content) {
    std::string bytes(1, tag);
    const auto byte = [](std::size_t value) { return static_cast<char>(static_cast<unsigned char>(value)); };
    if (content.size() >= 0x100) {
        bytes += {'\x82', byte(content.size() >> 8), byte(content.size() & 0xFF)};
    } else if (content.size() >= 0x80) {
        bytes += {'\x81', byte(content.size())};
    } else {
        bytes += byte(content.size());
    }
    return bytes.append(content);
}

std::string rsaPublicKeyInfo(std::string_view pkcs1) {
    using namespace std::string_view_literals;
    constexpr std::string_view algorithm = "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x01\x01\x05\x00"sv;
    return encodedDER('\x30',
                      encodedDER('\x30', algorithm) + encodedDER('\x03', std::string(1, '\0').append(pkcs1)));
}

}  // namespace quillmark
