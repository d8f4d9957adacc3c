// Input: a text. It is decoded to valid UTF-8; without "=?" it stays, and what stands around an encoded word
// does not change how the word is read. Behind the last NUL byte of an input that has one: the name of a
// character set, in which the bytes before it are decoded. What is decoded is shown as one inert line.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "QuillmarkKit/Mail/Addresses.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "fuzz/Require.h"

namespace {

using namespace quillmark;
using fuzz::require;

void checkCharset(std::string_view charset, std::string_view bytes) {
    CharsetDecoder decoder;
    const auto text = decoder.decode(charset, bytes);
    require(!text || isUTF8(*text));
    // A converter that stopped in the middle begins anew, and so does one that another name came between.
    decoder.decode("iso-2022-jp", "\x1B$B");
    require(decoder.decode(charset, bytes) == text);

    if (charset.empty() || charset.find_first_of("*?= \t\r\n\v\f") != std::string_view::npos) return;
    if (!isUTF8(charset) || withoutWhitespace(charset) != charset) return;
    const std::string word = "=?" + std::string(charset) + "?b?" + encodedBase64(bytes) + "?=";
    require(EncodedWords::decode(word) == (text ? *text : word));
}

void checkShown(const std::string& text) {
    const std::string shown = forDisplay(text);
    require(isUTF8(shown));
    for (std::string_view rest = shown; !rest.empty();) {
        const char32_t c = takeScalar(rest);
        require(c >= 0x20 && !(c >= 0x7F && c <= 0x9F));
        require(!(c >= 0x200B && c <= 0x200F) && !(c >= 0x2028 && c <= 0x202E) &&
                !(c >= 0x2066 && c <= 0x2069));
    }
    const std::string front = forDisplay(text, text.size() / 2);
    require(front == shown || (front.ends_with("…") && shown.starts_with(front.substr(0, front.size() - 3))));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    if (const auto cut = input.rfind('\0'); cut != std::string_view::npos) {
        checkCharset(input.substr(cut + 1), input.substr(0, cut));
    }
    const std::string text = repairedUTF8(input);
    const std::string decoded = EncodedWords::decode(text);
    require(isUTF8(decoded));
    checkShown(decoded);
    if (text.find("=?") == std::string::npos) require(decoded == text);
    require(EncodedWords::decode("a " + text) == "a " + decoded);
    require(EncodedWords::decode(text + " a") == decoded + " a");
    require(EncodedWords::decode("=?utf-8?q?a?=b" + text) == "ab" + decoded);
    return 0;
}
