#include "Wording/DomainIdentity.h"

#include <algorithm>

#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "QuillmarkKit/Mail/Punycode.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

constexpr std::size_t longestDomain = 1'000;  // bytes, which are more than DNS can hold

/// A domain's letters, whichever of its forms stands there; of one that is longer than any domain, nothing.
std::string lettersOf(std::string_view domain) {
    if (domain.size() > longestDomain) return {};
    const std::string letters = Punycode::unicodeDomain(domain);
    return isASCII(letters) ? std::string() : letters;
}

}  // namespace

DomainIdentity identityOf(std::string_view domain) {
    DomainIdentity identity;
    std::string name = comparableDomain(domain.substr(0, std::min(domain.size(), longestDomain)));
    while (name.ends_with('.')) name.pop_back();
    const std::string organization = PublicSuffixList::shared().organizationalDomain(name);
    const bool isInside = name.ends_with("." + organization);
    identity.registrable = inert(cutInside(isInside ? organization : name));
    if (isInside) identity.before = inert(cutInside(name.substr(0, name.size() - organization.size())));
    const std::string letters = lettersOf(domain);
    for (std::string_view rest = letters; !rest.empty();) {
        const std::string_view all = rest;
        const bool isOdd = asciiLookAlike(takeScalar(rest)).has_value();
        const std::string letter = inert(all.substr(0, all.size() - rest.size()));
        if (identity.letters.empty() || identity.letters.back().areOdd != isOdd) {
            identity.letters.push_back({letter, isOdd});
        } else {
            identity.letters.back().text += letter;
        }
    }
    return identity;
}

std::optional<std::string> lookAlikeOf(std::string_view domain) {
    std::string alike;
    const std::string letters = lettersOf(domain);
    for (std::string_view rest = letters; !rest.empty();) {
        const char32_t scalar = takeScalar(rest);
        const auto ascii = scalar < 0x80 ? std::optional(static_cast<char>(scalar)) : asciiLookAlike(scalar);
        if (!ascii) return std::nullopt;
        alike += *ascii;
    }
    return alike.empty() ? std::nullopt : std::optional(alike);
}

namespace {

/// A letter of those beyond ASCII, by the first of which a domain differs from the one it looks like.
std::string otherThan(const std::string& own, const std::string& other, std::string_view letter,
                      const Reader& reader) {
    const auto scripts = Punycode::scripts(letter);
    if (scripts.contains("Cyrillic"))
        return reader.translate("%1 isn’t %2: its “%3” is a Cyrillic letter", {own, other, letter});
    if (scripts.contains("Greek"))
        return reader.translate("%1 isn’t %2: its “%3” is a Greek letter", {own, other, letter});
    if (scripts.contains("Armenian"))
        return reader.translate("%1 isn’t %2: its “%3” is an Armenian letter", {own, other, letter});
    return reader.translate("%1 isn’t %2: its “%3” is another letter than it seems", {own, other, letter});
}

}  // namespace

std::string lettersInWords(std::string_view domain, const Reader& reader) {
    const std::string letters = lettersOf(domain), own = quotedWord(comparableDomain(domain));
    if (const auto alike = lookAlikeOf(domain)) {
        for (std::string_view rest = letters; !rest.empty();) {
            const std::string_view all = rest;
            if (takeScalar(rest) >= 0x80)
                return otherThan(own, quotedWord(*alike), all.substr(0, all.size() - rest.size()), reader);
        }
    }
    if (letters.empty()) return reader.translate("Letters beyond a to z in %1", {own});
    return reader.translate("Some programs show %1 as “%2”", {own, quoted(cutInside(letters))});
}

}  // namespace quillmark
