#include "Wording/Quoted.h"

#include "QuillmarkKit/Punycode.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::size_t longestQuote = 500;  // bytes
constexpr std::size_t longestList = 100;

}  // namespace

std::string quoted(std::string_view text) { return forDisplay(text, longestQuote); }

std::string quotedDomain(std::string_view domain) {
    const std::string letters = Punycode::unicodeDomain(domain.substr(0, longestQuote));
    if (letters == domain.substr(0, longestQuote)) return quoted(domain);
    return quoted(domain) + " (" + quoted(letters) + ")";
}

std::string quotedList(std::span<const std::string> texts) {
    std::string list;
    for (std::size_t i = 0; i < texts.size() && i < longestList; ++i) {
        list += (i == 0 ? "" : ", ") + quoted(texts[i]);
    }
    return texts.size() > longestList ? list + ", …" : list;
}

}  // namespace quillmark
