// Input: a list and, behind the last NUL byte, a name. The organizational domain must be the one that a plain
// walk over all suffixes of the name gives. No name leaves the machine that isn't plain or means something
// here only.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace {

using namespace quillmark;

struct Rules {
    std::set<std::string> rules, wildcards, exceptions;
};

Rules rulesOf(std::string text) {
    for (const std::string_view lineEnd : {"\v", "\f", "\r", "\u0085", "\u2028", "\u2029"}) {
        for (std::size_t at = 0; (at = text.find(lineEnd, at)) != std::string::npos;) {
            text.replace(at, lineEnd.size(), "\n");
        }
    }
    Rules rules;
    std::string_view rest = text;
    while (!rest.empty()) {
        std::string_view line = takePiece(rest, '\n');
        line = line.substr(0, line.find(' '));
        if (line.empty() || line.starts_with("//")) continue;
        const std::string rule = unicodeLowered(line);
        if (rule.starts_with('!')) {
            rules.exceptions.insert(rule.substr(1));
        } else if (rule.starts_with("*.")) {
            rules.wildcards.insert(rule.substr(2));
        } else {
            rules.rules.insert(rule);
        }
    }
    return rules;
}

std::string organizationalDomain(const Rules& rules, const std::string& name) {
    const std::string lowered = unicodeLowered(name);
    const std::string_view stripped = trimmed(lowered, ".");
    std::vector<std::string> labels;
    for (std::string_view rest = stripped; !rest.empty();) {
        if (const std::string_view label = takePiece(rest, '.'); !label.empty()) labels.emplace_back(label);
    }
    if (labels.empty()) return name;
    if (labels.size() == 1) return labels[0];
    const auto from = [&](std::size_t first) {
        std::string joined;
        for (std::size_t i = first; i < labels.size(); ++i) joined += (i > first ? "." : "") + labels[i];
        return joined;
    };
    std::size_t suffixLength = 1;
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const std::size_t length = labels.size() - i;
        if (rules.exceptions.contains(from(i))) return from(i);
        if (rules.rules.contains(from(i))) suffixLength = std::max(suffixLength, length);
        if (length > 1 && rules.wildcards.contains(from(i + 1))) {
            suffixLength = std::max(suffixLength, length);
        }
    }
    if (suffixLength >= labels.size()) return std::string(stripped);
    return from(labels.size() - suffixLength - 1);
}

void checkQueried(std::string_view name) {
    if (!mayBeQueried(name)) return;
    if (name.ends_with('.')) name.remove_suffix(1);
    if (name.size() > 253 || name.find('.') == std::string_view::npos) std::abort();
    const std::string wrapped = "." + asciiLowered(name) + ".";
    if (wrapped.find("..") != std::string::npos) std::abort();
    for (const char c : name) {
        if (c <= ' ' || c > '~') std::abort();
    }
    for (const std::string_view local : {".local.", ".localhost.", ".onion."}) {
        if (wrapped.ends_with(local)) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const auto cut = input.rfind('\0');
    const bool ownList = cut != std::string_view::npos;
    const std::string name = repairedUTF8(ownList ? input.substr(cut + 1) : input);
    const std::string text = repairedUTF8(ownList ? input.substr(0, cut) : "com\nco.uk\n*.ck\n!www.ck");
    if (PublicSuffixList::parse(text).organizationalDomain(name) !=
        organizationalDomain(rulesOf(text), name)) {
        std::abort();
    }
    checkQueried(name);
    // An organization is its own organization, whichever list is asked.
    const auto& shared = PublicSuffixList::shared();
    const std::string organization = shared.organizationalDomain(name);
    if (shared.organizationalDomain(organization) != organization) std::abort();
    return 0;
}
