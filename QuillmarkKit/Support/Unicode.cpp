#include "QuillmarkKit/Support/Unicode.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <map>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

std::string unicodeLowered(std::string_view text) {
    const bool isASCII =
        std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    if (isASCII) return asciiLowered(text);
    icu::UnicodeString wide =
        icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
    std::string lowered;
    wide.toLower(icu::Locale::getRoot()).toUTF8String(lowered);
    return lowered;
}

bool isAlphabetic(char32_t scalar) { return u_isUAlphabetic(static_cast<UChar32>(scalar)) != 0; }

namespace {

struct Close {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, Close>;

/// Names that ICU knows are bounded by its own table; of those that nobody knows so many are remembered.
constexpr std::size_t mostUnknownNames = 1000;

/// Whether a converter's name is one that mail may use: an IANA or a MIME name.
bool isStandardName(const std::string& name) {
    UErrorCode known = U_ZERO_ERROR;
    if (ucnv_countAliases(name.c_str(), &known) == 0) return false;
    for (const char* standard : {"IANA", "MIME"}) {
        UErrorCode error = U_ZERO_ERROR;
        if (ucnv_getCanonicalName(name.c_str(), standard, &error) && U_SUCCESS(error)) return true;
    }
    return false;
}

/// An open converter that stops at anything invalid; null for an unknown name.
Converter opened(const std::string& lowerName) {
    // Both names are widely used for text of the larger set.
    const std::string name = lowerName == "gb2312" || lowerName == "gbk" ? "gb18030" : lowerName;
    if (!isStandardName(name)) return nullptr;
    UErrorCode error = U_ZERO_ERROR;
    Converter converter(ucnv_open(name.c_str(), &error));
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    return U_SUCCESS(error) ? std::move(converter) : nullptr;
}

std::optional<std::string> converted(UConverter& converter, std::string_view bytes) {
    UErrorCode error = U_ZERO_ERROR;
    ucnv_reset(&converter);
    std::u16string wide(bytes.size() + 16, u'\0');
    const auto convert = [&] {
        error = U_ZERO_ERROR;
        return ucnv_toUChars(&converter, wide.data(), static_cast<std::int32_t>(wide.size()), bytes.data(),
                             static_cast<std::int32_t>(bytes.size()), &error);
    };
    std::int32_t length = convert();
    if (error == U_BUFFER_OVERFLOW_ERROR) {
        wide.resize(static_cast<std::size_t>(length) + 1);
        length = convert();
    }
    if (U_FAILURE(error)) return std::nullopt;
    std::string text;
    icu::UnicodeString(false, wide.data(), length).toUTF8String(text);
    return text;
}

}  // namespace

struct CharsetDecoder::Converters {
    std::map<std::string, Converter, std::less<>> byName = {};  // null: an unknown name
    std::size_t unknown = 0;
};

CharsetDecoder::CharsetDecoder() : m_converters(std::make_unique<Converters>()) {}
CharsetDecoder::~CharsetDecoder() = default;

std::optional<std::string> CharsetDecoder::decode(std::string_view charset, std::string_view bytes) {
    const auto asUTF8 = [&] { return isUTF8(bytes) ? std::optional(std::string(bytes)) : std::nullopt; };
    constexpr std::size_t longestName = 60;  // ICU's own bound; a longer name is nobody's
    if (charset.size() >= longestName || equalsIgnoringCase(charset, "utf-8")) return asUTF8();
    const std::string name = asciiLowered(charset);
    auto found = m_converters->byName.find(name);
    if (found == m_converters->byName.end()) {
        Converter converter = opened(name);
        if (!converter && m_converters->unknown == mostUnknownNames) return asUTF8();
        if (!converter) ++m_converters->unknown;
        found = m_converters->byName.emplace(name, std::move(converter)).first;
    }
    return found->second ? converted(*found->second, bytes) : asUTF8();
}

}  // namespace quillmark
