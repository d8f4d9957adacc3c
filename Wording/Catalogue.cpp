#include "Wording/Catalogue.h"

#include "QuillmarkKit/Support/Embedded.h"
#include "QuillmarkKit/Support/Text.h"

QUILLMARK_EMBED(quillmarkGerman, QUILLMARK_GERMAN);  // as msgfmt wrote it

namespace quillmark {

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

Language languageOf(std::string_view localeName) {
    const std::string_view language = localeName.substr(0, localeName.find_first_of("_.@-"));
    return equalsIgnoringCase(language, "de") ? Language::german : Language::english;
}

const Catalogue& catalogueOf(Language language) {
    static const Catalogue english({});
    static const Catalogue german(embedded(quillmarkGermanBegin, quillmarkGermanEnd));
    return language == Language::german ? german : english;
}

std::size_t pluralForm(Language, std::int64_t count) { return count == 1 ? 0 : 1; }

}  // namespace quillmark
