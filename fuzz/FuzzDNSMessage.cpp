#include <array>
#include <cstdint>

#include "QuillmarkKit/Lookups/DNSMessage.h"
#include "QuillmarkKit/Support/Text.h"
#include "fuzz/Require.h"

using quillmark::fuzz::require;

/// The first byte chooses the type, the rest is a message in answer to a question for "a.example". Whatever
/// it holds, reading it ends in an answer within its bounds or in the one error; anything else that is thrown
/// ends the run.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quillmark;
    using enum DNSRecordType;
    if (size == 0) return 0;
    const DNSRecordType type = std::array{a, mx, txt, aaaa}[data[0] % 4];
    const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
    // No input: our own question, which is no answer.
    const std::string question = input.empty() ? dnsQuestion("a.example", type, 0) : std::string();
    try {
        const DoHReply reply = parseDNSMessage(input.empty() ? question : input, "a.example", type);
        require(!input.empty());
        const auto* answer = std::get_if<DNSAnswer>(&reply.value);
        if (!answer) return 0;
        require(answer->data().size() <= DoHReply::recordLimit);
        require(std::holds_alternative<DNSAnswer::Records>(answer->value) != answer->data().empty());
        for (const auto& record : answer->data()) {
            constexpr std::size_t bytesOfReplacement = 3;
            require(record.size() <= bytesOfReplacement * DoHReply::dataLimit && isUTF8(record));
        }
    } catch (const DNSLookupError& error) {
        const std::string_view text = error.what();
        require(text == "unreadable answer" || text.starts_with("DNS status "));
    }
    return 0;
}
