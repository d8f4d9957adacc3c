#include "Wording/Catalogue.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <memory>
#include <mutex>

#include "QuillmarkKit/Support/Embedded.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

// The catalogues in po/, as msgfmt wrote them. Catalogues.inc names each: QUILLMARK_CATALOGUE(de)
#define QUILLMARK_CATALOGUE(code) \
    QUILLMARK_EMBED(quillmarkCatalogue_##code, QUILLMARK_CATALOGUES "/" #code ".mo");
#include "Catalogues.inc"
#undef QUILLMARK_CATALOGUE

namespace quillmark {

namespace {

constexpr LanguageFacts known[] = {
    {"en", "en", "one other"},
    {"de", "de", "one other"},
    {"ar", "ar", "zero one two few many other", true},
    {"cs", "cs", "one few other"},
    {"el", "el", "one other"},
    {"es", "es", "one other"},
    {"fr", "fr", "one other"},
    {"he", "he", "one two other", true},
    {"it", "it", "one other"},
    {"ja", "ja", "other"},
    {"nl", "nl", "one other"},
    {"pl", "pl", "one few many"},
    {"pt", "pt-BR", "one other"},
    {"sv", "sv", "one other"},
    {"tr", "tr", "one other"},
    {"uk", "uk", "one few many"},
    {"zh", "zh-Hans", "other"},
};

struct BuiltIn {
    std::string_view code;
    const char *begin, *end;
};
#define QUILLMARK_CATALOGUE(code) {#code, quillmarkCatalogue_##code##Begin, quillmarkCatalogue_##code##End},
constexpr BuiltIn builtIn[] = {
#include "Catalogues.inc"
};
#undef QUILLMARK_CATALOGUE

static_assert(std::ranges::all_of(builtIn,
                                  [](const BuiltIn& each) {
                                      return std::ranges::find(known, each.code, &LanguageFacts::code) !=
                                             std::end(known);
                                  }),
              "a catalogue in po/ lacks its row in the table");

/// What ICU knows of a language, made when it is needed first.
const NumberRules& rulesOf(Language language) {
    struct Made {
        std::once_flag once = {};
        std::unique_ptr<const NumberRules> rules = {};
    };
    static std::array<Made, std::size(known)> all;
    Made& made = all[static_cast<std::size_t>(language)];
    std::call_once(made.once,
                   [&] { made.rules = std::make_unique<const NumberRules>(factsOf(language).tag); });
    return *made.rules;
}

bool isWithoutICU(Language language) { return language == Language::english || language == Language::german; }

}  // namespace

Catalogue::Catalogue(std::string_view bytes) : m_bytes(bytes) {
    constexpr std::uint32_t magic = 0x950412DE;  // in little-endian order, which msgfmt writes everywhere
    if (number(0) != magic) return;
    m_size = number(8);
    m_originals = number(12);
    m_translations = number(16);
}

std::uint32_t Catalogue::number(std::size_t offset) const {
    if (offset > m_bytes.size() || m_bytes.size() - offset < 4) return 0;
    std::uint32_t value = 0;
    // cppcheck-suppress containerOutOfBounds; the second condition above sees to it
    for (std::size_t i = 4; i-- > 0;) value = value << 8 | static_cast<unsigned char>(m_bytes[offset + i]);
    return value;
}

std::string_view Catalogue::text(std::size_t table, std::size_t index) const {
    const std::size_t length = number(table + 8 * index), offset = number(table + 8 * index + 4);
    return offset <= m_bytes.size() ? m_bytes.substr(offset, length) : std::string_view();
}

Catalogue::Entry Catalogue::entry(std::size_t index) const {
    return {text(m_originals, index), text(m_translations, index)};
}

std::optional<std::string_view> Catalogue::find(std::string_view text, std::size_t form) const {
    std::size_t low = 0, high = m_size;
    while (low < high) {
        const std::size_t middle = low + (high - low) / 2;
        Entry found = entry(middle);
        const int order = takePiece(found.original, '\0').compare(text);
        if (order == 0) {
            while (form-- > 0) takePiece(found.translation, '\0');
            const std::string_view translation = takePiece(found.translation, '\0');
            if (translation.empty()) return std::nullopt;
            return translation;
        }
        (order < 0 ? low : high) = order < 0 ? middle + 1 : middle;
    }
    return std::nullopt;
}

const LanguageFacts& factsOf(Language language) { return known[static_cast<std::size_t>(language)]; }

const std::vector<Language>& allLanguages() {
    static const std::vector<Language> all = [] {
        std::vector<Language> found;
        for (std::size_t i = 0; i < std::size(known); ++i) {
            if (i == 0 || std::ranges::find(builtIn, known[i].code, &BuiltIn::code) != std::end(builtIn))
                found.push_back(static_cast<Language>(i));
        }
        return found;
    }();
    return all;
}

Language languageOf(std::string_view localeName) {
    const std::string name = asciiLowered(localeName.substr(0, localeName.find_first_of(".@")));
    std::string_view code = std::string_view(name).substr(0, name.find_first_of("_-"));
    if (code == "iw") code = "he";  // what Java and old systems call it
    if (code == "zh" && name.find("hans") == std::string::npos) {
        for (const std::string_view traditional : {"hant", "tw", "hk", "mo"}) {
            if (name.find(traditional) != std::string::npos) return Language::english;
        }
    }
    for (const Language each : allLanguages()) {
        if (factsOf(each).code == code) return each;
    }
    return Language::english;
}

Catalogue catalogueOf(Language language) {
    const auto* const found = std::ranges::find(builtIn, factsOf(language).code, &BuiltIn::code);
    return Catalogue(found == std::end(builtIn) ? std::string_view() : embedded(found->begin, found->end));
}

std::size_t pluralForm(Language language, std::int64_t count) {
    if (isWithoutICU(language)) return count == 1 ? 0 : 1;
    const std::string category = rulesOf(language).category(count);
    std::size_t form = 0;
    // Some languages have one more category, for fractions or millions, which goes with their last form.
    for (std::string_view rest = factsOf(language).plurals;; ++form) {
        if (takePiece(rest, ' ') == category || rest.empty()) return form;
    }
}

std::string numberIn(Language language, std::int64_t number) {
    if (!isWithoutICU(language)) return rulesOf(language).written(number);
    std::string digits = std::to_string(number);
    const std::size_t first = number < 0 ? 1 : 0;
    for (std::size_t i = digits.size(); i > first + 3;) {
        i -= 3;
        digits.insert(i, 1, language == Language::german ? '.' : ',');
    }
    return digits;
}

}  // namespace quillmark
