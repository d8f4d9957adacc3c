#include "QuillmarkKit/Mail/Addresses.h"

#include <algorithm>
#include <array>
#include <utility>

#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Pattern.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

/// "=?" charset "?" encoding "?" text "?=" (RFC 2047, section 2), without "?" and white space in charset and
/// text.
const Pattern& encodedWord() {
    static const Pattern pattern(R"(=\?([^?\t\n\f\r\p{Z}]+)\?([BbQq])\?([^?\t\n\f\r\p{Z}]*)\?=)");
    return pattern;
}

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
    std::array<std::string_view, 4> parts;
    while (text.find("=?", end) != std::string_view::npos && encodedWord().find(text, end, parts)) {
        const auto begin = static_cast<std::size_t>(parts[0].data() - text.data());
        const std::string_view between = text.substr(end, begin - end);
        if (first || !trimmed(between).empty()) decoded += between;
        const auto word = decodedWord(decoder, parts[1], parts[2][0], parts[3]);
        decoded += word ? std::string_view(*word) : parts[0];
        end = begin + parts[0].size();
        first = false;
    }
    decoded += text.substr(end);
    return decoded;
}

/// The pieces of an entry: a name and an address, in one of the three forms, and what is neither.
struct EntryPieces {
    std::string_view group = {};  ///< the name of the group that begins here
    std::string_view all = {};    ///< behind it
    std::string_view name = {}, address = {}, behind = {};
    bool nameIsQuotable = false;
    bool holdsAddress = false;
};

EntryPieces pieces(std::string_view entry) {
    EntryPieces pieces{.all = trimmedBlanks(entry)};
    const auto colon = pieces.all.find(':');
    if (colon != std::string_view::npos &&
        pieces.all.substr(0, colon).find_first_of("<\"") == std::string_view::npos) {
        pieces.group = trimmedBlanks(pieces.all.substr(0, colon));
        pieces.all = trimmedBlanks(pieces.all.substr(colon + 1));
    }
    const auto cut = [&](std::size_t from, std::size_t to) { return pieces.all.substr(from, to - from); };
    const auto open = pieces.all.rfind('<'), close = pieces.all.rfind('>');
    if (open != std::string_view::npos && close != std::string_view::npos && close > open) {
        pieces.name = trimmedBlanks(cut(0, open));
        pieces.nameIsQuotable = true;
        pieces.address = trimmedBlanks(cut(open + 1, close));
        pieces.behind = trimmedBlanks(pieces.all.substr(close + 1));
        pieces.holdsAddress = true;
        return pieces;
    }
    const auto comment = pieces.all.find('('), commentEnd = pieces.all.rfind(')');
    if (comment != std::string_view::npos && commentEnd != std::string_view::npos && commentEnd > comment) {
        pieces.address = trimmedBlanks(cut(0, comment));
        pieces.name = cut(comment + 1, commentEnd);
        pieces.behind = trimmedBlanks(pieces.all.substr(commentEnd + 1));
    } else {
        pieces.address = pieces.all;
    }
    pieces.holdsAddress = pieces.address.find('@') != std::string_view::npos;
    return pieces;
}

std::optional<MailAddress> parsedEntry(CharsetDecoder& decoder, std::string_view entry) {
    const EntryPieces found = pieces(entry);
    if (!found.holdsAddress) return std::nullopt;
    std::string name = decodedWords(decoder, found.name);
    if (found.nameIsQuotable) name = unquoted(std::move(name));
    return MailAddress{unlessEmpty(std::move(name)), std::string(found.address)};
}

/// What stands inside an address beside the mailbox that its domain belongs to.
AddressExtras extrasWithin(std::string_view address) {
    AddressExtras extras;
    const auto lastAt = address.rfind('@');
    if (lastAt == std::string_view::npos) return extras;
    // Blanks and "@" in a quoted user name are part of it. A "<" that nothing closes begins another address,
    // and quotes in which no user name stands are a name.
    auto blank = std::string_view::npos, at = std::string_view::npos;
    bool inQuotes = false;
    for (std::size_t i = 0; i < lastAt; ++i) {
        if (address[i] == '"') inQuotes = !inQuotes;
        if (inQuotes) continue;
        const bool endsQuotes = address[i] == '"' && address[i + 1] != '@' && address[i + 1] != '.';
        if (isBlank(address[i]) || address[i] == '<') blank = i;
        if (endsQuotes) blank = i + 1;
        if (address[i] == '@') at = i;
    }
    if (blank != std::string_view::npos) {
        extras.text = trimmedBlanks(address.substr(0, blank));
        return extras;
    }
    if (const auto end = address.find_first_of(" \t", lastAt); end != std::string_view::npos) {
        extras.text = trimmedBlanks(address.substr(end));
    }
    if (at != std::string_view::npos) {
        const auto colon = address.front() == '@' ? address.find(':') : std::string_view::npos;
        extras.route = address.substr(0, std::min(colon, lastAt));
    }
    return extras;
}

}  // namespace

std::string EncodedWords::decode(std::string_view text) {
    CharsetDecoder decoder;
    return decodedWords(decoder, text);
}

PackedList<MailAddress> MailAddress::parseList(std::string_view value) {
    PackedList<MailAddress> list;
    CharsetDecoder decoder;
    while (!value.empty()) {
        if (const auto address = parsedEntry(decoder, takeEntry(value))) list.push_back(*address);
    }
    return list;
}

std::optional<MailAddress> MailAddress::parse(std::string_view entry) {
    CharsetDecoder decoder;
    return parsedEntry(decoder, entry);
}

AddressExtras MailAddress::extras(std::string_view value) {
    AddressExtras extras;
    const auto keepFirst = [](std::string_view& kept, std::string_view found) {
        if (kept.empty()) kept = found;
    };
    while (!value.empty()) {
        const EntryPieces found = pieces(takeEntry(value));
        keepFirst(extras.part, found.group);
        if (!found.holdsAddress) {
            keepFirst(extras.part, found.all);
            continue;
        }
        keepFirst(extras.text, found.behind);
        const AddressExtras within = extrasWithin(found.address);
        keepFirst(extras.text, within.text);
        keepFirst(extras.route, within.route);
    }
    return extras;
}

std::string MailAddress::domainPart(std::string_view address) {
    const auto at = address.rfind('@');
    if (at == std::string_view::npos) return {};
    std::string domain = unicodeLowered(address.substr(at + 1));
    domain.erase(domain.find_last_not_of(".>") + 1);
    domain.erase(0, domain.find_first_not_of(".>"));
    return domain;
}

}  // namespace quillmark
