#include <array>
#include <cstdint>

#include "fuzz/ReadReply.h"

/// The first byte chooses the type, the rest is the body of a reply.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quillmark;
    using enum DNSRecordType;
    if (size == 0) return 0;
    const DNSRecordType type = std::array{a, mx, txt, aaaa}[data[0] % 4];
    const std::string_view body(reinterpret_cast<const char*>(data) + 1, size - 1);
    fuzz::requireReadable([&] { return DoHReply::parse(body, type); });
    return 0;
}
