// Decoding against encoding: what decodes is encoded again by the procedure of RFC 3492, section 6.3, and
// decodes to the same.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "QuillmarkKit/Mail/Punycode.h"
#include "QuillmarkKit/Support/Text.h"

namespace {

std::uint64_t adapted(std::uint64_t delta, std::uint64_t count, bool first) {
    delta = first ? delta / 700 : delta / 2;
    delta += delta / count;
    std::uint64_t k = 0;
    for (; delta > 455; k += 36) delta /= 35;
    return k + 36 * delta / (delta + 38);
}

std::string encoded(const std::u32string& text) {
    std::string output;
    for (const char32_t c : text) {
        if (c < 0x80) output += static_cast<char>(c);
    }
    const std::uint64_t basic = output.size();
    if (basic > 0) output += '-';
    std::uint64_t n = 128, delta = 0, bias = 72, handled = basic;
    while (handled < text.size()) {
        std::uint64_t next = 0x110000;
        for (const char32_t c : text) {
            if (c >= n) next = std::min<std::uint64_t>(next, c);
        }
        delta += (next - n) * (handled + 1);
        n = next;
        for (const char32_t c : text) {
            if (c < n) ++delta;
            if (c != n) continue;
            std::uint64_t q = delta;
            for (std::uint64_t k = 36;; k += 36) {
                const std::uint64_t t = k <= bias ? 1 : std::min<std::uint64_t>(k - bias, 26);
                const std::uint64_t digit = q < t ? q : t + (q - t) % (36 - t);
                output += "abcdefghijklmnopqrstuvwxyz0123456789"[digit];
                if (q < t) break;
                q = (q - t) / (36 - t);
            }
            bias = adapted(delta, handled + 1, handled == basic);
            delta = 0;
            ++handled;
        }
        ++delta;
        ++n;
    }
    return output;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quillmark;
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::string unicode = Punycode::unicodeDomain(input);
    if (std::ranges::count(unicode, '.') < std::ranges::count(input, '.')) std::abort();
    if (isUTF8(input) && !isUTF8(unicode)) std::abort();
    if (Punycode::scripts(unicode).size() > 5) std::abort();

    const auto decoded = Punycode::decode(input);
    if (!decoded) return 0;
    std::u32string scalars;
    for (std::string_view rest = *decoded; !rest.empty();) scalars += takeScalar(rest);
    const std::string again = encoded(scalars);
    // Letters of digits may be written in either case, and a delimiter may stand before digits alone.
    if (again.size() <= 255 && Punycode::decode(again) != decoded) std::abort();
    return 0;
}
