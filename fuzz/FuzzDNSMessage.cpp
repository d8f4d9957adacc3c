#include <array>
#include <cstdint>
#include <string>

#include "QuillmarkKit/Lookups/DNSMessage.h"
#include "fuzz/ReadReply.h"

/// The first byte chooses the type, the rest is a message in answer to a question for "a.example".
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quillmark;
    using enum DNSRecordType;
    if (size == 0) return 0;
    const DNSRecordType type = std::array{a, mx, txt, aaaa}[data[0] % 4];
    const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
    // No input: our own question, which is no answer.
    const std::string question = input.empty() ? dnsQuestion("a.example", type, 0) : std::string();
    fuzz::requireReadable([&] {
        DoHReply reply = parseDNSMessage(input.empty() ? question : input, "a.example", type);
        fuzz::require(!input.empty());
        return reply;
    });
    return 0;
}
