#pragma once

#include <string_view>
#include <variant>

#include "QuillmarkKit/Lookups/DoHReply.h"
#include "QuillmarkKit/Support/Text.h"
#include "fuzz/Require.h"

namespace quillmark::fuzz {

/// Whatever it is that `read` reads, it ends in an answer within its bounds or in the one error; anything
/// else that is thrown ends the run.
template <typename Read>
void requireReadable(const Read& read) {
    try {
        const DoHReply reply = read();
        const auto* answer = std::get_if<DNSAnswer>(&reply.value);
        if (!answer) return;
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
}

}  // namespace quillmark::fuzz
