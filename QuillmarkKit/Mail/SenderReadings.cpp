#include "QuillmarkKit/Mail/SenderReadings.h"

#include <algorithm>
#include <set>
#include <utility>

#include "QuillmarkKit/Mail/Addresses.h"
#include "QuillmarkKit/Support/Pattern.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::size_t mostDomains = 8;

/// What a field value is made of (RFC 5322, section 3.2), comments and white space left out.
struct Token {
    enum class Kind { word, special, literal };
    Kind kind = Kind::word;
    std::string text = {};  ///< of a quoted string without its marks; of a special character that character
};

/// What can stand in an atom, and obsolete or international text besides.
bool isAtomText(char c) {
    return static_cast<unsigned char>(c) > ' ' && c != '\x7F' &&
           std::string_view("()<>[]:;@\\,.\"").find(c) == std::string_view::npos;
}

/// Takes a comment off the front of `rest`, nested ones with it (RFC 5322, section 3.2.2).
void skipComment(std::string_view& rest) {
    std::size_t depth = 0, i = 0;
    do {
        if (rest[i] == '\\')
            ++i;
        else if (rest[i] == '(')
            ++depth;
        else if (rest[i] == ')')
            --depth;
        ++i;
    } while (i < rest.size() && depth > 0);
    rest.remove_prefix(std::min(i, rest.size()));
}

/// Takes what `close` ends off the front of `rest`, both marks with it, and gives what stands between them.
std::string takeQuoted(std::string_view& rest, char close) {
    std::string text;
    std::size_t i = 1;
    for (; i < rest.size() && rest[i] != close; ++i) {
        if (rest[i] == '\\' && i + 1 < rest.size()) ++i;
        text += rest[i];
    }
    rest.remove_prefix(std::min(i + 1, rest.size()));
    return text;
}

std::vector<Token> tokens(std::string_view rest) {
    std::vector<Token> tokens;
    while (!rest.empty()) {
        const char c = rest.front();
        if (c == '(') {
            skipComment(rest);
        } else if (c == '"') {
            tokens.push_back({Token::Kind::word, takeQuoted(rest, '"')});
        } else if (c == '[') {
            tokens.push_back({Token::Kind::literal, '[' + takeQuoted(rest, ']') + ']'});
        } else if (isAtomText(c)) {
            const auto end = std::find_if_not(rest.begin(), rest.end(), isAtomText);
            const auto length = static_cast<std::size_t>(end - rest.begin());
            tokens.push_back({Token::Kind::word, std::string(rest.substr(0, length))});
            rest.remove_prefix(length);
        } else {
            if (!isBlank(c))  // control characters end a word, as NUL does for many
                tokens.push_back({Token::Kind::special, std::string(1, c)});
            rest.remove_prefix(1);
        }
    }
    return tokens;
}

/// Reads a list of tokens from the front: section 3.4's grammar, an entry at a time. Where an entry breaks
/// it, what is an address as far as it goes counts as well: most programs stop there.
class Reading {
public:
    explicit Reading(std::vector<Token> tokens) : m_tokens(std::move(tokens)) {}

    std::vector<std::string> addresses() {
        while (m_next < m_tokens.size()) {
            if (isWord()) {
                takeAddress();
            } else if (isSpecial('<')) {
                ++m_next;
                skipRoute();
            } else {
                ++m_next;
            }
        }
        return std::move(m_addresses);
    }

private:
    bool isSpecial(char c) const {
        return m_next < m_tokens.size() && m_tokens[m_next].kind == Token::Kind::special &&
               m_tokens[m_next].text.front() == c;
    }
    bool isWord() const { return m_next < m_tokens.size() && m_tokens[m_next].kind == Token::Kind::word; }

    /// "@a,@b:" in front of an address in angle brackets (section 4.4).
    void skipRoute() {
        if (!isSpecial('@') && !isSpecial(',')) return;
        const std::size_t begin = m_next;
        while (m_next < m_tokens.size() && !isSpecial(':') && !isSpecial('>') && !isSpecial('<')) ++m_next;
        if (isSpecial(':'))
            ++m_next;
        else
            m_next = begin;
    }

    /// local-part "@" domain, both with the obsolete blanks and comments between their words. Without the
    /// second there is none, and what was read is part of none.
    void takeAddress() {
        std::string address;
        if (!takeDotted(address) || !isSpecial('@')) return;
        ++m_next;
        address += '@';
        if (m_next < m_tokens.size() && m_tokens[m_next].kind == Token::Kind::literal) {
            address += m_tokens[m_next++].text;
        } else {
            takeDotted(address);
        }
        if (!address.ends_with('@')) m_addresses.push_back(std::move(address));
    }

    /// Takes words with dots between them; false when no word follows the last dot.
    bool takeDotted(std::string& text) {
        if (!isWord()) return false;
        text += m_tokens[m_next++].text;
        while (isSpecial('.')) {
            ++m_next;
            if (!isWord()) return false;
            text += '.' + m_tokens[m_next++].text;
        }
        return true;
    }

    const std::vector<Token> m_tokens;
    std::size_t m_next = 0;
    std::vector<std::string> m_addresses = {};
};

/// Encoded words as lenient programs take them: blanks in them, and in base64 whatever is none.
std::string withLenientWords(std::string_view text) {
    std::string lenient;
    for (;;) {
        const auto begin = text.find("=?");
        const auto charsetEnd = begin == text.npos ? text.npos : text.find('?', begin + 2);
        const auto end = charsetEnd == text.npos ? text.npos : text.find("?=", charsetEnd + 3);
        if (end == text.npos) return lenient.append(text);
        const bool isBase64 = asciiLowered(text[charsetEnd + 1]) == 'b';
        const std::size_t content = charsetEnd + 3;
        lenient += text.substr(0, content);
        for (const char c : text.substr(content, end - content)) {
            if (!isBase64) {
                lenient += isBlank(c) ? '_' : c;
            } else if (isASCIILetter(c) || isDigit(c) || c == '+' || c == '/') {
                lenient += c;
            }
        }
        lenient += "?=";
        text.remove_prefix(end + 2);
    }
}

/// The ASCII that a name is taken for, in lower case, when each of its letters is some or looks like it.
std::string plainLookAlike(std::string_view name) {
    std::string plain;
    while (!name.empty()) {
        const char32_t scalar = takeScalar(name);
        const auto alike = scalar < 0x80 ? asciiLowered(static_cast<char>(scalar)) : asciiLookAlike(scalar);
        if (!alike) return {};
        plain += *alike;
    }
    return plain;
}

}  // namespace

std::vector<std::string> readableAddresses(std::string_view value) {
    return Reading(tokens(value)).addresses();
}

std::optional<std::string> firstBracketed(std::string_view value) {
    std::size_t open = value.size();  // behind the last "<"
    for (std::size_t i = 0; i <= value.size(); ++i) {
        if (i < value.size() && value[i] != '<' && value[i] != '>') continue;
        const std::string_view inside = value.substr(std::min(open, i), i - std::min(open, i));
        if (inside.find('@') != std::string_view::npos) return upToEndOfDomain(trimmedBlanks(inside));
        open = i < value.size() && value[i] == '<' ? i + 1 : value.size();
    }
    return std::nullopt;
}

std::string upToEndOfDomain(std::string_view address) {
    const auto at = address.rfind('@');
    if (at == std::string_view::npos) return std::string(address);
    std::string_view rest = trimmed(address.substr(at + 1));
    std::string whole(address.substr(0, at + 1));
    while (!rest.empty() && (rest.front() == '.' || isAtomText(rest.front()))) {
        const std::string_view before = rest;
        takeScalar(rest);
        const std::string_view scalar = before.substr(0, before.size() - rest.size());
        if (trimmed(scalar).empty()) break;  // there are blanks beyond ASCII
        whole += scalar;
    }
    return whole;
}

std::string shownName(std::string_view displayName) {
    std::string plain = EncodedWords::decode(displayName);
    std::erase(plain, '\\');  // which can hide encoded words, too
    if (plain.find("=?") != std::string::npos) plain = EncodedWords::decode(withLenientWords(plain));
    plain = compatibleForm(plain);
    std::string shown, blanks;
    std::string_view rest = plain;
    while (!rest.empty()) {
        const std::string_view before = rest;
        const char32_t scalar = takeScalar(rest);
        const std::string_view bytes = before.substr(0, before.size() - rest.size());
        if (isBlank(bytes.front()) || (scalar > 0x7F && isWhiteSpace(scalar))) {
            blanks += bytes;
            continue;
        }
        if (scalar < U' ' || isInvisible(scalar)) continue;
        if (scalar != U'@' && !shown.ends_with('@')) shown += blanks;
        blanks.clear();
        if (scalar == U'\u3002') {
            shown += '.';  // a dot in domains (UTS 46)
        } else {
            shown += bytes;
        }
    }
    return shown + blanks;
}

std::vector<std::string> domainsIn(std::string_view name, const PublicSuffixList& suffixes) {
    if (name.find('.') == std::string_view::npos)
        return {};  // most names; making the pattern takes milliseconds
    static const Pattern pattern(R"((?:[\pL\pM\pN._%+-]+@)?(?:[\pL\pM\pN-]+\.)+[\pL\pM]{2,})");
    std::vector<std::string> domains;
    std::set<std::string> organizations;  // many names of one don't crowd out another's
    std::string_view match;
    for (std::size_t position = 0;
         domains.size() < mostDomains && pattern.find(name, position, {&match, 1});) {
        position = static_cast<std::size_t>(match.data() + match.size() - name.data());
        const auto at = match.find('@');
        if (at != std::string_view::npos) match.remove_prefix(at + 1);
        std::string domain = unicodeLowered(match);
        const std::string compared = comparableDomain(domain);
        const auto looksLikeDomain = [&](std::string_view written) {
            return suffixes.hasTopLevelOf(plainLookAlike(written));
        };
        // Without an "@" it may be anything else with a dot, such as initials, or a site in ".ru" in Russian
        // letters.
        const bool isDomain =
            at != std::string_view::npos || suffixes.hasTopLevelOf(compared) ||
            (!domain.ends_with(".\u0440\u0443") && (looksLikeDomain(match) || looksLikeDomain(domain)));
        if (isDomain && organizations.insert(suffixes.organizationalDomain(compared)).second)
            domains.push_back(std::move(domain));
    }
    return domains;
}

}  // namespace quillmark
