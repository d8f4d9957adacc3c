#include "Thunderbird/NativeMessages.h"

#include <unistd.h>

#include <bit>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <string>

namespace quillmark {

namespace {

/// Fills `bytes`, unless the end comes first.
std::variant<std::monostate, RequestsEnd> fill(int descriptor, char* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t count = ::read(descriptor, bytes, size);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return RequestsEnd::unreadable;
        if (count == 0) return RequestsEnd::closed;
        bytes += count;
        size -= static_cast<std::size_t>(count);
    }
    return std::monostate{};
}

}  // namespace

std::variant<ByteBuffer, RequestsEnd> readRequest(int descriptor) {
    std::uint32_t length = 0;
    char head[sizeof length];
    const auto begun = fill(descriptor, head, sizeof head);
    if (const auto* end = std::get_if<RequestsEnd>(&begun)) return *end;
    std::memcpy(&length, head, sizeof length);
    if (length > longestRequest) return RequestsEnd::tooLong;
    ByteBuffer bytes(std::size_t{length});
    const auto filled = fill(descriptor, bytes.data(), length);
    if (const auto* end = std::get_if<RequestsEnd>(&filled)) return *end;
    bytes.setSize(length);
    return bytes;
}

bool writeAnswer(std::string_view json, int descriptor) {
    assert(json.size() <= longestAnswer);
    const auto length = static_cast<std::uint32_t>(json.size());
    std::string bytes(sizeof length, '\0');
    std::memcpy(bytes.data(), &length, sizeof length);
    bytes += json;
    std::string_view rest = bytes;
    while (!rest.empty()) {
        const ssize_t count = ::write(descriptor, rest.data(), rest.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        rest.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace quillmark
