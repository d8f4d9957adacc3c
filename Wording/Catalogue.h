#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillmark {

/// A catalogue of translations as msgfmt compiles it (.mo), with the English texts as keys. Our own reader,
/// because the C library's refuses a language whose locale the machine lacks, and keeps it for all threads.
class Catalogue {
public:
    /// One text; where it has a singular and a plural, its forms follow each other with a NUL between them.
    struct Entry {
        std::string_view original = {}, translation = {};
    };

    /// A view of `bytes`, which must outlive it. What is no catalogue is empty.
    explicit Catalogue(std::string_view bytes);

    /// The translation of an English text (of its singular, if there is a plural) in one of its forms.
    /// Nothing when there is none.
    std::optional<std::string_view> find(std::string_view text, std::size_t form = 0) const;

    std::size_t size() const { return m_size; }
    /// The entries, sorted by original, the first of them the catalogue's own header with an empty original.
    Entry entry(std::size_t index) const;

private:
    std::uint32_t number(std::size_t offset) const;
    std::string_view text(std::size_t table, std::size_t index) const;

    std::string_view m_bytes = {};
    std::size_t m_size = 0, m_originals = 0, m_translations = 0;
};

/// A language there are words in, by its place in the table of `Catalogue.cpp`. English is what the texts in
/// the code are. The others have no name in the code but for German: `languageOf` gives them.
enum class Language : std::uint8_t { english, german };

struct LanguageFacts {
    std::string_view code = {};  ///< what its catalogue is called: "pt"
    const char* tag = "";        ///< as pages, Qt and ICU call it (BCP 47): "pt-BR"
    std::string_view plurals =
        {};                      ///< CLDR's categories in the order of its catalogue's forms: "one few many"
    bool isRightToLeft = false;  ///< how it is written
};
const LanguageFacts& factsOf(Language language);

/// Those with a catalogue, English first. From any thread, as everything here.
const std::vector<Language>& allLanguages();

/// The language of a locale's name, such as "de_AT.UTF-8" or "zh-Hans-CN"; English for those we have no words
/// in.
Language languageOf(std::string_view localeName);

/// The built-in catalogue of a language, of which nothing is read before it is used; English has an empty
/// one.
Catalogue catalogueOf(Language language);

/// Which form of a text goes with a number: 0 is the first.
std::size_t pluralForm(Language language, std::int64_t count);

/// "12,345": with the separators of the language, and the digits 0 to 9 in every language.
std::string numberIn(Language language, std::int64_t number);

}  // namespace quillmark
