#include "QuillmarkKit/Addresses.h"

#include <re2/re2.h>

#include <algorithm>
#include <utility>

#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

/// "=?" charset "?" encoding "?" text "?=" (RFC 2047, section 2), without "?" and white space in charset and
/// text.
const RE2& encodedWord() {
    static const RE2 pattern(R"(=\?([^?\t\n\f\r\p{Z}]+)\?([BbQq])\?([^?\t\n\f\r\p{Z}]*)\?=)", RE2::Quiet);
    return pattern;
}

std::string_view view(const re2::StringPiece& piece) { return {piece.data(), piece.size()}; }

/// The "Q" encoding (RFC 2047, section 4.2); a "=" that no two hexadecimal digits follow stands for itself.
std::string decodedQ(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '=' && i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
        const int low = high >= 0 ? hexValue(text[i + 2]) : -1;
        if (low >= 0) {
            bytes += static_cast<char>(high << 4 | low);
            i += 2;
        } else {
            bytes += text[i] == '_' ? ' ' : text[i];
        }
    }
    return bytes;
}

/// The "B" encoding, of which the padding may be missing.
std::optional<std::string> decodedB(std::string_view text) {
    std::string padded(text);
    padded.append((4 - text.size() % 4) % 4, '=');
    return decodedBase64(padded);
}

std::optional<std::string> decodedWord(CharsetDecoder& decoder, std::string_view charset, char encoding,
                                       std::string_view text) {
    const auto bytes = asciiLowered(encoding) == 'b' ? decodedB(text) : std::optional(decodedQ(text));
    if (!bytes) return std::nullopt;
    const std::string_view name = takeWord(charset, "*");  // a language may follow (RFC 2231, section 5)
    return decoder.decode(name.empty() ? "utf-8" : name, *bytes);
}

/// The text between double quotes, if it begins and ends with one, with each \" made a plain quote. Of a
/// quote alone nothing is left.
std::string unquoted(std::string text) {
    if (text.empty() || text.front() != '"' || text.back() != '"') return text;
    std::string plain;
    plain.reserve(text.size());
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        if (text[i] == '\\' && text[i + 1] == '"' && i + 2 < text.size()) continue;
        plain += text[i];
    }
    return plain;
}

/// Takes the entry at the front of a field's value: up to a "," or ";" outside quotes, angle brackets and
/// parentheses. A quoted pair does not hide a quote here.
std::string_view takeEntry(std::string_view& value) {
    std::size_t angles = 0, parentheses = 0;
    bool inQuotes = false;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        if (c == '"') inQuotes = !inQuotes;
        if (inQuotes) continue;
        if (c == '<') ++angles;
        if (c == '>' && angles > 0) --angles;
        if (c == '(') ++parentheses;
        if (c == ')' && parentheses > 0) --parentheses;
        if ((c == ',' || c == ';') && angles == 0 && parentheses == 0) {
            const std::string_view entry = value.substr(0, i);
            value.remove_prefix(i + 1);
            return entry;
        }
    }
    return std::exchange(value, {});
}

std::optional<std::string> unlessEmpty(std::string text) {
    return text.empty() ? std::nullopt : std::optional(std::move(text));
}

std::string decodedWords(CharsetDecoder& decoder, std::string_view text) {
    std::string decoded;
    std::size_t end = 0;  // of the last word
    bool first = true;
    re2::StringPiece parts[4];
    while (text.find("=?", end) != std::string_view::npos &&
           encodedWord().Match(text, end, text.size(), RE2::UNANCHORED, parts, 4)) {
        const auto begin = static_cast<std::size_t>(parts[0].data() - text.data());
        const std::string_view between = text.substr(end, begin - end);
        if (first || !trimmed(between).empty()) decoded += between;
        const auto word = decodedWord(decoder, view(parts[1]), parts[2][0], view(parts[3]));
        decoded += word ? std::string_view(*word) : view(parts[0]);
        end = begin + parts[0].size();
        first = false;
    }
    decoded += text.substr(end);
    return decoded;
}

std::optional<MailAddress> parsedEntry(CharsetDecoder& decoder, std::string_view entry) {
    entry = trimmedBlanks(entry);
    const auto colon = entry.find(':');
    if (colon != std::string_view::npos &&
        entry.substr(0, colon).find_first_of("<\"") == std::string_view::npos) {
        entry = trimmedBlanks(entry.substr(colon + 1));  // the name of a group
    }
    if (entry.empty()) return std::nullopt;

    const auto open = entry.rfind('<'), close = entry.rfind('>');
    if (open != std::string_view::npos && close != std::string_view::npos && close > open) {
        return MailAddress{unlessEmpty(unquoted(decodedWords(decoder, trimmedBlanks(entry.substr(0, open))))),
                           std::string(trimmedBlanks(entry.substr(open + 1, close - open - 1)))};
    }
    const auto comment = entry.find('('), commentEnd = entry.rfind(')');
    MailAddress address;
    if (comment != std::string_view::npos && commentEnd != std::string_view::npos && commentEnd > comment) {
        address.address = trimmedBlanks(entry.substr(0, comment));
        address.displayName =
            unlessEmpty(decodedWords(decoder, entry.substr(comment + 1, commentEnd - comment - 1)));
    } else {
        address.address = entry;
    }
    if (address.address.find('@') == std::string::npos) return std::nullopt;
    return address;
}

}  // namespace

std::string EncodedWords::decode(std::string_view text) {
    CharsetDecoder decoder;
    return decodedWords(decoder, text);
}

std::vector<MailAddress> MailAddress::parseList(std::string_view value) {
    // Growing would hold a hostile list twice; room for more than there can be might not be granted. An
    // address has a separator or the end behind it, and a "@" or a "<" in it.
    std::size_t separators = 0, marks = 0;
    for (const char c : value) {
        separators += c == ',' || c == ';';
        marks += c == '@' || c == '<';
    }
    std::vector<MailAddress> list;
    list.reserve(std::min(separators + 1, marks));
    CharsetDecoder decoder;
    while (!value.empty()) {
        if (auto address = parsedEntry(decoder, takeEntry(value))) list.push_back(std::move(*address));
    }
    return list;
}

std::optional<MailAddress> MailAddress::parse(std::string_view entry) {
    CharsetDecoder decoder;
    return parsedEntry(decoder, entry);
}

std::string MailAddress::domainPart(std::string_view address) {
    const auto at = address.rfind('@');
    if (at == std::string_view::npos) return {};
    const std::string lowered = unicodeLowered(address.substr(at + 1));
    return std::string(trimmed(lowered, ".>"));
}

}  // namespace quillmark
