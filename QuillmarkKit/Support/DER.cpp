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

}  // namespace quillmark
