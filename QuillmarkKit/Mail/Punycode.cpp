#include "QuillmarkKit/Mail/Punycode.h"

#include <array>
#include <cstdint>
#include <limits>
#include <vector>

#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

// Inserting into the middle makes decoding quadratic; a label in DNS has at most 63 bytes.
constexpr std::size_t longestEncodedPart = 255;

// The parameters of RFC 3492, section 5.
constexpr std::uint32_t base = 36, tMin = 1, tMax = 26, skew = 38, damp = 700;
constexpr std::uint32_t initialBias = 72, initialN = 128;
constexpr std::uint32_t highest = std::numeric_limits<std::uint32_t>::max();

std::optional<std::uint32_t> digitValue(char c) {
    if (isDigit(c)) return static_cast<std::uint32_t>(c - '0') + 26;
    if (isASCIILetter(c)) return static_cast<std::uint32_t>(asciiLowered(c) - 'a');
    return std::nullopt;
}

std::uint32_t adaptedBias(std::uint32_t delta, std::uint32_t count, bool first) {
    delta = first ? delta / damp : delta / 2;
    delta += delta / count;
    std::uint32_t k = 0;
    while (delta > (base - tMin) * tMax / 2) {
        delta /= base - tMin;
        k += base;
    }
    return k + base * delta / (delta + skew);
}

/// Takes one generalized variable-length integer off the front of `digits`.
std::optional<std::uint32_t> takeInteger(std::string_view& digits, std::uint32_t bias) {
    std::uint32_t value = 0, weight = 1;
    for (std::uint32_t k = base;; k += base) {
        if (digits.empty()) return std::nullopt;
        const auto digit = digitValue(digits.front());
        digits.remove_prefix(1);
        if (!digit || *digit > (highest - value) / weight) return std::nullopt;
        value += *digit * weight;
        const std::uint32_t threshold = k <= bias + tMin ? tMin : k >= bias + tMax ? tMax : k - bias;
        if (*digit < threshold) return value;
        if (weight > highest / (base - threshold)) return std::nullopt;
        weight *= base - threshold;
    }
}

struct Script {
    char32_t first, last;
    std::string_view name;
};
constexpr std::array scriptRanges = {
    Script{'A', 'Z', "Latin"},          Script{'a', 'z', "Latin"},          Script{0x00C0, 0x024F, "Latin"},
    Script{0x1E00, 0x1EFF, "Latin"},    Script{0x0370, 0x03FF, "Greek"},    Script{0x1F00, 0x1FFF, "Greek"},
    Script{0x0400, 0x052F, "Cyrillic"}, Script{0x0530, 0x058F, "Armenian"}, Script{0x0000, 0x10FFFF, "Other"},
};

}  // namespace

std::optional<std::string> Punycode::decode(std::string_view encoded) {
    if (encoded.size() > longestEncodedPart) return std::nullopt;
    std::vector<char32_t> output;
    std::string_view digits = encoded;
    if (const auto delimiter = encoded.rfind('-'); delimiter != std::string_view::npos) {
        for (const char c : encoded.substr(0, delimiter)) {
            if (static_cast<unsigned char>(c) >= 0x80) return std::nullopt;
            output.push_back(static_cast<char32_t>(c));
        }
        digits = encoded.substr(delimiter + 1);
    }

    std::uint32_t n = initialN, i = 0, bias = initialBias;
    while (!digits.empty()) {
        const auto delta = takeInteger(digits, bias);
        if (!delta || *delta > highest - i) return std::nullopt;
        const auto count = static_cast<std::uint32_t>(output.size()) + 1;
        bias = adaptedBias(*delta, count, i == 0);
        i += *delta;
        if (i / count > 0x10FFFF - n) return std::nullopt;
        n += i / count;
        i %= count;
        if (n >= 0xD800 && n <= 0xDFFF) return std::nullopt;
        output.insert(output.begin() + i, n);
        ++i;
    }
    std::string text;
    for (const char32_t scalar : output) appendUTF8(text, scalar);
    return text;
}

std::string Punycode::unicodeDomain(std::string_view domain) {
    std::string text;
    text.reserve(domain.size());
    for (std::size_t start = 0; start <= domain.size();) {
        const std::string_view label = domain.substr(start, domain.find('.', start) - start);
        std::optional<std::string> decoded;
        if (startsWithIgnoringCase(label, "xn--")) decoded = decode(asciiLowered(label.substr(4)));
        if (start > 0) text += '.';
        text += decoded ? std::string_view(*decoded) : label;
        start += label.size() + 1;
    }
    return text;
}

std::set<std::string_view> Punycode::scripts(std::string_view text) {
    std::array<bool, scriptRanges.size()> met = {};
    while (!text.empty()) {
        const char32_t scalar = takeScalar(text);
        if (!isAlphabetic(scalar)) continue;
        std::size_t row = 0;
        while (scalar < scriptRanges[row].first || scalar > scriptRanges[row].last) ++row;
        met[row] = true;
    }
    std::set<std::string_view> names;
    for (std::size_t row = 0; row < met.size(); ++row) {
        if (met[row]) names.insert(scriptRanges[row].name);
    }
    return names;
}

}  // namespace quillmark
