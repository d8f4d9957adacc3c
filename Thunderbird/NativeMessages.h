#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <variant>

#include "QuillmarkKit/Support/ByteBuffer.h"

/// The protocol between a browser, or Thunderbird, and a program that an add-on talks to ("native
/// messaging"): each message is its length, four bytes in this machine's order, and then so many bytes of
/// JSON, over standard input and output.
namespace quillmark {

/// The longest request that is taken, in bytes: the largest message in base64, and some room. The protocol
/// allows 4 GB.
constexpr std::uint32_t longestRequest = 70'000'000;
/// The longest answer that the protocol allows, in bytes.
constexpr std::size_t longestAnswer = std::size_t{1} << 20;

/// Why there is no further request.
enum class RequestsEnd {
    closed,      ///< who asks has closed its end, or broke off with this request
    tooLong,     ///< its length is more than `longestRequest`; nothing was made room for
    unreadable,  ///< the system can't read
};

/// Waits for the next request.
std::variant<ByteBuffer, RequestsEnd> readRequest(int descriptor);

/// Writes an answer of at most `longestAnswer` bytes; false when who asked has gone.
bool writeAnswer(std::string_view json, int descriptor);

}  // namespace quillmark
