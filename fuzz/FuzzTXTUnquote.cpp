#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "QuillmarkKit/Lookups/DoHReply.h"
#include "QuillmarkKit/Support/Text.h"

namespace {

/// The same in two plain passes: first each byte with what it means, then the strings between bare quotes.
std::string reference(const std::string& data) {
    struct Byte {
        char value;
        bool isQuote;
    };
    std::vector<Byte> bytes;
    bool isInside = false;
    for (std::size_t i = 0; i < data.size(); ++i) {
        const char c = data[i];
        if (c == '"') {
            isInside = !isInside;
            bytes.push_back({c, true});
        } else if (isInside && c == '\\' && i + 1 < data.size()) {
            const std::string digits = data.substr(i + 1, 3);
            const bool isNumber =
                digits.size() == 3 && digits.find_first_not_of("0123456789") == std::string::npos;
            if (isNumber && std::stoi(digits) < 256) {
                bytes.push_back({static_cast<char>(std::stoi(digits)), false});
                i += 3;
            } else {
                bytes.push_back({data[++i], false});
            }
        } else if (isInside) {
            bytes.push_back({c, false});
        }
    }
    if (data.find('"') == std::string::npos) return data;
    std::string text, string;
    bool isOpen = false;
    for (const auto& [value, isQuote] : bytes) {
        if (!isQuote) {
            string += value;
            continue;
        }
        if (isOpen) text += quillmark::repairedUTF8(string);
        string.clear();
        isOpen = !isOpen;
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (quillmark::unquotedTXT(text) != reference(text)) std::abort();
    return 0;
}
