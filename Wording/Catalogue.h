#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

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

/// The languages there are words in. English is what the texts in the code are.
enum class Language { english, german };

/// The language of a locale's name, such as "de_AT.UTF-8"; English for those we have no words in.
Language languageOf(std::string_view localeName);

/// The built-in catalogue of a language; English has an empty one. From any thread.
const Catalogue& catalogueOf(Language language);

/// Which form of a text goes with a number: 0 is the singular's.
std::size_t pluralForm(Language language, std::int64_t count);

}  // namespace quillmark
