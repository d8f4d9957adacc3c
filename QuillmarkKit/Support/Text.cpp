#include "QuillmarkKit/Support/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>

namespace quillmark {

namespace {

constexpr char32_t replacement = 0xFFFD;

/// White_Space of the Unicode character database: blanks, tabs and every kind of line end.
constexpr bool isWhitespace(char32_t c) {
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
           c == 0x3000;
}

/// Decodes the scalar at the front; `length` is how many bytes it takes, 0 for a byte that begins no
/// well-formed sequence. (RFC 3629, section 4.)
struct Decoded {
    char32_t scalar;
    std::size_t length;
};
Decoded decodedFront(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    if (first < 0x80) return {first, 1};
    std::size_t length = 0;
    unsigned low = 0x80, high = 0xBF;  // what the second byte may be
    if (first >= 0xC2 && first <= 0xDF) {
        length = 2;
    } else if (first >= 0xE0 && first <= 0xEF) {
        length = 3;
        if (first == 0xE0) low = 0xA0;
        if (first == 0xED) high = 0x9F;
    } else if (first >= 0xF0 && first <= 0xF4) {
        length = 4;
        if (first == 0xF0) low = 0x90;
        if (first == 0xF4) high = 0x8F;
    } else {
        return {replacement, 0};
    }
    if (text.size() < length || byte(1) < low || byte(1) > high) return {replacement, 0};
    char32_t scalar = first & (0xFFu >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if (byte(i) < 0x80 || byte(i) > 0xBF) return {replacement, 0};
        scalar = scalar << 6 | (byte(i) & 0x3F);
    }
    return {scalar, length};
}

/// How many bytes at the front are ASCII.
std::size_t asciiPrefix(std::string_view text) {
    std::size_t length = 0;
    std::uint64_t eight = 0;
    for (; length + sizeof eight <= text.size(); length += sizeof eight) {
        std::memcpy(&eight, text.data() + length, sizeof eight);
        if ((eight & 0x8080'8080'8080'8080) != 0) break;
    }
    while (length < text.size() && static_cast<unsigned char>(text[length]) < 0x80) ++length;
    return length;
}

/// The scalar at the back and its length, the counterpart of `decodedFront`.
Decoded decodedBack(std::string_view text) {
    for (std::size_t length = 1; length <= std::min<std::size_t>(4, text.size()); ++length) {
        const std::string_view tail = text.substr(text.size() - length);
        if ((static_cast<unsigned char>(tail[0]) & 0xC0) == 0x80) continue;
        const Decoded decoded = decodedFront(tail);
        if (decoded.length == length) return decoded;
        break;
    }
    return {replacement, 0};
}

}  // namespace

std::string asciiLowered(std::string_view text) {
    std::string lowered(text);
    for (char& c : lowered) c = asciiLowered(c);
    return lowered;
}

int compareIgnoringCase(std::string_view a, std::string_view b) {
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        if (a[i] == b[i]) continue;
        const auto x = static_cast<unsigned char>(asciiLowered(a[i]));
        const auto y = static_cast<unsigned char>(asciiLowered(b[i]));
        if (x != y) return x < y ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

namespace {

/// Sets have a few characters: `std::string_view` would call the C library for each character that it looks
/// at.
bool isOneOf(char c, std::string_view set) { return std::ranges::find(set, c) != set.end(); }

}  // namespace

std::string_view trimmed(std::string_view text, std::string_view set) {
    while (!text.empty() && isOneOf(text.front(), set)) text.remove_prefix(1);
    while (!text.empty() && isOneOf(text.back(), set)) text.remove_suffix(1);
    return text;
}

std::string_view trimmed(std::string_view text) {
    const auto isPlain = [](char c) { return c > ' ' && c < '\x7F'; };
    if (!text.empty() && isPlain(text.front()) && isPlain(text.back())) return text;  // as nearly always
    while (!text.empty()) {
        const Decoded front = decodedFront(text);
        if (front.length == 0 || !isWhitespace(front.scalar)) break;
        text.remove_prefix(front.length);
    }
    while (!text.empty()) {
        const Decoded back = decodedBack(text);
        if (back.length == 0 || !isWhitespace(back.scalar)) break;
        text.remove_suffix(back.length);
    }
    return text;
}

std::string withoutWhitespace(std::string_view text) {
    std::string kept;
    kept.reserve(text.size());
    while (!text.empty()) {
        // Nearly all of it is base64: printable ASCII without blanks goes in one piece.
        const auto isPlain = [](char c) { return c > ' ' && c < '\x7F'; };
        const auto plain = static_cast<std::size_t>(std::ranges::find_if_not(text, isPlain) - text.begin());
        kept += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) break;
        const Decoded front = decodedFront(text);
        const std::size_t length = std::max<std::size_t>(front.length, 1);
        if (front.length == 0 || !isWhitespace(front.scalar)) kept += text.substr(0, length);
        text.remove_prefix(length);
    }
    return kept;
}

std::string_view takePiece(std::string_view& rest, char separator) {
    const auto end = std::min(rest.find(separator), rest.size());
    const std::string_view piece = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return piece;
}

std::string_view takeWord(std::string_view& rest, std::string_view separators) {
    const auto separates = [&](char c) { return isOneOf(c, separators); };
    const auto begin = std::ranges::find_if_not(rest, separates);
    const auto end = std::ranges::find_if(begin, rest.end(), separates);
    rest = {end, rest.end()};
    return {begin, end};
}

std::optional<std::int64_t> decimal(std::string_view text) {
    if (text.empty() || !std::ranges::all_of(text, isDigit)) return std::nullopt;
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) return std::nullopt;
    return number;
}

bool isUTF8(std::string_view bytes) {
    while (!bytes.empty()) {
        bytes.remove_prefix(asciiPrefix(bytes));
        // Behind what isn't ASCII there is mostly more of it.
        while (!bytes.empty() && static_cast<unsigned char>(bytes.front()) >= 0x80) {
            const Decoded front = decodedFront(bytes);
            if (front.length == 0) return false;
            bytes.remove_prefix(front.length);
        }
    }
    return true;
}

std::string repairedUTF8(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const std::size_t ascii = asciiPrefix(bytes);
        text += bytes.substr(0, ascii);
        bytes.remove_prefix(ascii);
        if (!bytes.empty()) appendUTF8(text, takeScalar(bytes));
    }
    return text;
}

std::string decodedText(std::string_view bytes) {
    if (isUTF8(bytes)) return std::string(bytes);
    std::string text;
    text.reserve(bytes.size() + bytes.size() / 8);
    for (const char c : bytes) appendUTF8(text, static_cast<unsigned char>(c));
    return text;
}

void appendUTF8(std::string& text, char32_t scalar) {
    const auto add = [&](char32_t byte) { text += static_cast<char>(byte); };
    if (scalar < 0x80) {
        add(scalar);
    } else if (scalar < 0x800) {
        add(0xC0 | scalar >> 6);
        add(0x80 | (scalar & 0x3F));
    } else if (scalar < 0x10000) {
        add(0xE0 | scalar >> 12);
        add(0x80 | (scalar >> 6 & 0x3F));
        add(0x80 | (scalar & 0x3F));
    } else {
        add(0xF0 | scalar >> 18);
        add(0x80 | (scalar >> 12 & 0x3F));
        add(0x80 | (scalar >> 6 & 0x3F));
        add(0x80 | (scalar & 0x3F));
    }
}

char32_t takeScalar(std::string_view& text) {
    const Decoded front = decodedFront(text);
    text.remove_prefix(std::max<std::size_t>(front.length, 1));
    return front.scalar;
}

std::string withoutComments(std::string_view text) {
    std::string kept;
    kept.reserve(text.size());
    std::size_t depth = 0;
    bool inQuotes = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '"') inQuotes = !inQuotes;
        if (!inQuotes && c == '(') {
            ++depth;
            continue;
        }
        if (!inQuotes && c == ')') {
            if (depth > 0) --depth;
            continue;
        }
        if (depth > 0) continue;
        if (!inQuotes && !(c >= ' ' && c < '\x7F')) {
            const std::string_view rest = text.substr(i);
            // Line ends: LF, VT, FF, CR, U+0085, U+2028 and U+2029.
            if (c >= '\n' && c <= '\r') {
                c = ' ';
            } else if (rest.starts_with("\u0085")) {
                c = ' ';
                i += 1;
            } else if (rest.starts_with("\u2028") || rest.starts_with("\u2029")) {
                c = ' ';
                i += 2;
            }
        }
        kept += c;
    }
    return kept;
}

/// Default_Ignorable_Code_Point of
/// the Unicode character database, annotation marks and the blank of Braille.
bool isInvisible(char32_t c) {
    constexpr std::pair<char32_t, char32_t> ranges[] = {
        {0x00AD, 0x00AD},   {0x034F, 0x034F},   {0x061C, 0x061C},  {0x115F, 0x1160}, {0x17B4, 0x17B5},
        {0x180B, 0x180F},   {0x200B, 0x200F},   {0x202A, 0x202E},  {0x2060, 0x206F}, {0x2800, 0x2800},
        {0x3164, 0x3164},   {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},  {0xFFA0, 0xFFA0}, {0xFFF0, 0xFFFB},
        {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF}};
    return std::ranges::any_of(ranges,
                               [&](const auto& range) { return c >= range.first && c <= range.second; });
}

namespace {

/// Characters that programs use among themselves, such as U+FDD0, a line end for some, and U+FFFC, which
/// stands for a picture.
constexpr bool isInternal(char32_t c) {
    return (c >= 0xFDD0 && c <= 0xFDEF) || (c & 0xFFFE) == 0xFFFE || c == 0xFFFC;
}

}  // namespace

std::string forDisplay(std::string_view text, std::size_t limit) {
    std::string shown;
    shown.reserve(std::min(text.size(), limit));
    std::size_t used = 0;
    char32_t previous = 0;
    while (!text.empty()) {
        const std::size_t before = text.size();
        std::string_view rest = text;
        char32_t c = takeScalar(rest);
        if (c == '\r' && rest.starts_with('\n')) rest.remove_prefix(1);
        used += before - rest.size();
        if (used > limit) {
            shown += "…";
            break;
        }
        text = rest;
        // A variation selector on a symbol stays; on its own or on ASCII it is spelled out.
        const bool isOnSymbol = c >= 0xFE00 && c <= 0xFE0F && previous >= 0x80;
        if (c == '\r' || c == '\n' || c == '\t') {
            shown += ' ';
        } else if (c < 0x20 || (c >= 0x7F && c <= 0x9F) || c == 0x2028 || c == 0x2029 || isInternal(c)) {
            appendUTF8(shown, replacement);
        } else if (isInvisible(c) && !isOnSymbol) {
            std::array<char, 16> number = {};
            std::snprintf(number.data(), number.size(), "%04X", static_cast<unsigned>(c));
            shown += "‹U+";
            shown += number.data();
            shown += "›";
        } else {
            appendUTF8(shown, c);
        }
        previous = c;
    }
    return shown;
}

}  // namespace quillmark
