#include "QuillmarkKit/Support/Unicode.h"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/idna.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unicode/unistr.h>
#include <unicode/unumberformatter.h>
#include <unicode/upluralrules.h>
#include <unicode/uspoof.h>

#include <algorithm>
#include <array>
#include <map>
#include <stdexcept>

#include "QuillmarkKit/Support/LoadedLibrary.h"
#include "QuillmarkKit/Support/Text.h"

// The headers put ICU's version into its names: "uspoof_open_72".
#define QUILLMARK_TEXT_OF(name) #name
#define QUILLMARK_NAME_OF(name) QUILLMARK_TEXT_OF(name)

namespace quillmark {

namespace {

/// What is used of ICU's larger part, which is loaded when it is first needed: few checks come to letters
/// that look like others, and few languages to its numbers.
class LargerPart : public LoadedLibrary {
public:
    LargerPart() : LoadedLibrary("libicui18n.so." QUILLMARK_NAME_OF(U_ICU_VERSION_MAJOR_NUM)) {}

    decltype(&::unumf_openForSkeletonAndLocale) openNumbers =
        find(QUILLMARK_NAME_OF(unumf_openForSkeletonAndLocale));
    decltype(&::unumf_close) closeNumbers = find(QUILLMARK_NAME_OF(unumf_close));
    decltype(&::unumf_openResult) openNumber = find(QUILLMARK_NAME_OF(unumf_openResult));
    decltype(&::unumf_formatInt) writeNumber = find(QUILLMARK_NAME_OF(unumf_formatInt));
    decltype(&::unumf_resultToString) textOfNumber = find(QUILLMARK_NAME_OF(unumf_resultToString));
    decltype(&::unumf_closeResult) closeNumber = find(QUILLMARK_NAME_OF(unumf_closeResult));
    decltype(&::uplrules_open) openPlurals = find(QUILLMARK_NAME_OF(uplrules_open));
    decltype(&::uplrules_close) closePlurals = find(QUILLMARK_NAME_OF(uplrules_close));
    decltype(&::uplrules_select) pluralOf = find(QUILLMARK_NAME_OF(uplrules_select));
    decltype(&::uspoof_open) openChecker = find(QUILLMARK_NAME_OF(uspoof_open));
    decltype(&::uspoof_close) closeChecker = find(QUILLMARK_NAME_OF(uspoof_close));
    decltype(&::uspoof_getSkeleton) skeletonOf = find(QUILLMARK_NAME_OF(uspoof_getSkeleton));
};

/// Null where it is missing.
const LargerPart* largerPart() {
    static const LargerPart loaded;
    return loaded.isWhole() ? &loaded : nullptr;
}

icu::StringPiece pieceOf(std::string_view text) {
    return {text.data(), static_cast<std::int32_t>(text.size())};
}

icu::UnicodeString wideOf(std::string_view text) { return icu::UnicodeString::fromUTF8(pieceOf(text)); }

}  // namespace

std::string unicodeLowered(std::string_view text) {
    if (isASCII(text)) return asciiLowered(text);
    // ICU leaves what is ill-formed as it is.
    if (!isUTF8(text)) return unicodeLowered(repairedUTF8(text));
    std::string lowered;
    icu::StringByteSink<std::string> end(&lowered, static_cast<std::int32_t>(text.size()));
    UErrorCode error = U_ZERO_ERROR;
    icu::CaseMap::utf8ToLower("", 0, pieceOf(text), end, nullptr, error);
    if (U_FAILURE(error)) return std::string(text);
    return lowered;
}

std::string unicodeUppered(std::string_view text, const char* language) {
    std::string uppered;
    wideOf(text).toUpper(icu::Locale(language)).toUTF8String(uppered);
    return uppered;
}

std::string compatibleForm(std::string_view text) {
    if (isASCII(text)) return std::string(text);
    UErrorCode error = U_ZERO_ERROR;
    const icu::Normalizer2* const form = icu::Normalizer2::getNFKCInstance(error);
    if (U_FAILURE(error)) return std::string(text);
    std::string normalized;
    form->normalize(wideOf(text), error).toUTF8String(normalized);
    return U_FAILURE(error) ? std::string(text) : normalized;
}

bool isAlphabetic(char32_t scalar) { return u_isUAlphabetic(static_cast<UChar32>(scalar)) != 0; }

bool isWhiteSpace(char32_t scalar) { return u_isUWhiteSpace(static_cast<UChar32>(scalar)) != 0; }

Direction directionOf(char32_t scalar) {
    switch (u_charDirection(static_cast<UChar32>(scalar))) {
        case U_LEFT_TO_RIGHT:
            return Direction::rightwards;
        case U_RIGHT_TO_LEFT:
        case U_RIGHT_TO_LEFT_ARABIC:
        case U_ARABIC_NUMBER:
            return Direction::leftwards;
        case U_DIR_NON_SPACING_MARK:
            return Direction::mark;
        default:
            return Direction::none;
    }
}

int columnsOf(char32_t scalar) {
    if (scalar < 0x80) return 1;
    if ((U_GET_GC_MASK(static_cast<UChar32>(scalar)) & (U_GC_MN_MASK | U_GC_ME_MASK | U_GC_CF_MASK)) != 0)
        return 0;
    const auto width = u_getIntPropertyValue(static_cast<UChar32>(scalar), UCHAR_EAST_ASIAN_WIDTH);
    return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

std::size_t columnsOf(std::string_view text) {
    std::size_t sum = 0;
    while (!text.empty()) sum += static_cast<std::size_t>(columnsOf(takeScalar(text)));
    return sum;
}

namespace {

std::int32_t lineBreakClass(char32_t scalar) {
    return u_getIntPropertyValue(static_cast<UChar32>(scalar), UCHAR_LINE_BREAK);
}

bool mayEndLine(char32_t scalar) {
    switch (lineBreakClass(scalar)) {
        case U_LB_OPEN_PUNCTUATION:
        case U_LB_PREFIX_NUMERIC:
        case U_LB_GLUE:
        case U_LB_WORD_JOINER:
            return false;
        default:
            return true;
    }
}

bool mayBeginLine(char32_t scalar) {
    switch (lineBreakClass(scalar)) {
        case U_LB_CLOSE_PUNCTUATION:
        case U_LB_CLOSE_PARENTHESIS:
        case U_LB_EXCLAMATION:
        case U_LB_NONSTARTER:
        case U_LB_CONDITIONAL_JAPANESE_STARTER:
        case U_LB_POSTFIX_NUMERIC:
        case U_LB_INSEPARABLE:
        case U_LB_GLUE:
        case U_LB_WORD_JOINER:
            return false;
        default:
            return true;
    }
}

}  // namespace

std::vector<std::string_view> piecesOf(std::string_view word) {
    std::vector<std::string_view> pieces;
    const auto isOfName = [](char c) { return c == '.' || c == '@' || c == '-'; };
    std::size_t begin = 0;  // of the piece
    for (std::size_t at = 0; at < word.size();) {
        // A run of wide letters, and the places in it.
        const std::size_t runBegin = at;
        std::vector<std::size_t> places;
        char32_t last = 0;
        while (at < word.size()) {
            std::string_view rest = word.substr(at);
            const char32_t scalar = takeScalar(rest);
            if (columnsOf(scalar) != 2) break;
            if (at > runBegin && mayEndLine(last) && mayBeginLine(scalar)) places.push_back(at);
            last = scalar;
            at = word.size() - rest.size();
        }
        const bool isName =
            (runBegin > 0 && isOfName(word[runBegin - 1])) || (at < word.size() && isOfName(word[at]));
        if (at > runBegin && at < word.size() && lineBreakClass(last) == U_LB_CLOSE_PUNCTUATION && !isName)
            places.push_back(at);
        if (isName) places.clear();
        for (const std::size_t place : places) {
            pieces.push_back(word.substr(begin, place - begin));
            begin = place;
        }
        if (at < word.size()) {  // what ended the run
            std::string_view rest = word.substr(at);
            takeScalar(rest);
            at = word.size() - rest.size();
        }
    }
    pieces.push_back(word.substr(begin));
    return pieces;
}

struct NumberRules::Rules {
    struct Close {
        void operator()(UNumberFormatter* opened) const { largerPart()->closeNumbers(opened); }
        void operator()(UFormattedNumber* opened) const { largerPart()->closeNumber(opened); }
        void operator()(UPluralRules* opened) const { largerPart()->closePlurals(opened); }
    };
    std::unique_ptr<UNumberFormatter, Close> numbers = {};
    std::unique_ptr<UPluralRules, Close> plurals = {};
};

NumberRules::NumberRules(const char* language) {
    if (!largerPart()) return;
    UErrorCode error = U_ZERO_ERROR;
    auto made = std::make_unique<Rules>();
    // Dates, sizes and counts stand beside domains, digests and other evidence, which have these digits only.
    const icu::Locale locale = icu::Locale::forLanguageTag(std::string(language) + "-u-nu-latn", error);
    made->numbers.reset(largerPart()->openNumbers(u"", 0, locale.getName(), &error));
    made->plurals.reset(largerPart()->openPlurals(locale.getName(), &error));
    if (U_SUCCESS(error)) m_rules = std::move(made);
}

NumberRules::~NumberRules() = default;

std::string NumberRules::written(std::int64_t number) const {
    if (!m_rules) return std::to_string(number);
    UErrorCode error = U_ZERO_ERROR;
    const std::unique_ptr<UFormattedNumber, Rules::Close> written(largerPart()->openNumber(&error));
    largerPart()->writeNumber(m_rules->numbers.get(), number, written.get(), &error);
    std::array<char16_t, 64> wide = {};
    const auto length = largerPart()->textOfNumber(written.get(), wide.data(), wide.size(), &error);
    if (U_FAILURE(error)) return std::to_string(number);
    std::string text;
    return icu::UnicodeString(false, wide.data(), length).toUTF8String(text);
}

std::string NumberRules::category(std::int64_t count) const {
    if (!m_rules) return "other";
    UErrorCode error = U_ZERO_ERROR;
    std::array<char16_t, 16> wide = {};
    const auto length = largerPart()->pluralOf(m_rules->plurals.get(), static_cast<double>(count),
                                               wide.data(), wide.size(), &error);
    if (U_FAILURE(error)) return "other";
    std::string name;
    return icu::UnicodeString(false, wide.data(), length).toUTF8String(name);
}

namespace {

/// A letter takes at least one of the 253 bytes of a name in DNS, and at most four in UTF-8.
constexpr std::size_t longestInternationalDomain = 253 * std::size_t{4};

/// The rules for domain names; null when ICU lacks its data.
const icu::IDNA* domainRules() {
    static const auto rules = [] {
        UErrorCode error = U_ZERO_ERROR;
        constexpr std::uint32_t options = UIDNA_USE_STD3_RULES | UIDNA_CHECK_BIDI | UIDNA_CHECK_CONTEXTJ |
                                          UIDNA_NONTRANSITIONAL_TO_ASCII | UIDNA_NONTRANSITIONAL_TO_UNICODE;
        std::unique_ptr<const icu::IDNA> made(icu::IDNA::createUTS46Instance(options, error));
        if (U_FAILURE(error)) made.reset();
        return made;
    }();
    return rules.get();
}

/// Composed and in lower case, letter by letter: no rule that looks at the neighbours takes part, such as the
/// one of the Greek final sigma.
std::optional<icu::UnicodeString> foldedLabel(const icu::UnicodeString& label) {
    UErrorCode error = U_ZERO_ERROR;
    const icu::Normalizer2* const composed = icu::Normalizer2::getNFCInstance(error);
    if (U_FAILURE(error)) return std::nullopt;
    const icu::UnicodeString text = composed->normalize(label, error);
    icu::UnicodeString lowered;
    for (std::int32_t at = 0; at < text.length(); at = text.moveIndex32(at, 1))
        lowered.append(icu::UnicodeString(text.char32At(at)).toLower(icu::Locale::getRoot()));
    const icu::UnicodeString folded = composed->normalize(lowered, error);
    return U_SUCCESS(error) ? std::optional(folded) : std::nullopt;
}

/// The A-label of a label that is not ASCII.
std::optional<std::string> asciiLabel(std::string_view label) {
    const icu::IDNA* const rules = domainRules();
    if (!rules) return std::nullopt;
    const icu::UnicodeString written = wideOf(label);
    icu::UnicodeString letters, ascii;
    icu::IDNAInfo toLetters, toASCII;
    UErrorCode error = U_ZERO_ERROR;
    rules->labelToUnicode(written, letters, toLetters, error);
    rules->labelToASCII(written, ascii, toASCII, error);
    if (U_FAILURE(error) || toLetters.hasErrors() || toASCII.hasErrors()) return std::nullopt;
    if (foldedLabel(written) != foldedLabel(letters)) return std::nullopt;
    std::string text;
    ascii.toUTF8String(text);
    return text;
}

}  // namespace

std::optional<std::string> asciiDomain(std::string_view domain) {
    if (isASCII(domain)) return std::string(domain);
    if (domain.size() > longestInternationalDomain) return std::nullopt;
    std::string text;
    for (std::size_t start = 0; start <= domain.size();) {
        const std::string_view label = domain.substr(start, domain.find('.', start) - start);
        const auto ascii = isASCII(label) ? std::optional(std::string(label)) : asciiLabel(label);
        if (!ascii) return std::nullopt;
        if (start > 0) text += '.';
        text += *ascii;
        start += label.size() + 1;
    }
    return text;
}

std::string comparableDomain(std::string_view domain) {
    if (isASCII(domain) || domain.size() > longestInternationalDomain) return asciiLowered(domain);
    const auto ascii = asciiDomain(domain);
    return ascii ? asciiLowered(*ascii) : unicodeLowered(domain);
}

namespace {

/// The prototypes of a text's characters, or nothing where ICU can't tell. Throws when its larger part can't
/// be loaded: whoever isn't told of a letter that looks like another takes it for that one.
std::optional<icu::UnicodeString> skeletonOf(const icu::UnicodeString& text) {
    if (!largerPart())
        throw std::runtime_error(
            "libicui18n.so." QUILLMARK_NAME_OF(U_ICU_VERSION_MAJOR_NUM) " can't be loaded");
    static const auto checker = [] {
        struct Close {
            void operator()(USpoofChecker* opened) const { largerPart()->closeChecker(opened); }
        };
        UErrorCode error = U_ZERO_ERROR;
        std::unique_ptr<USpoofChecker, Close> made(largerPart()->openChecker(&error));
        if (U_FAILURE(error)) made.reset();
        return made;
    }();
    if (!checker) return std::nullopt;
    UErrorCode error = U_ZERO_ERROR;
    std::u16string skeleton(static_cast<std::size_t>(text.length()) + 16, u'\0');
    const auto make = [&] {
        error = U_ZERO_ERROR;
        return largerPart()->skeletonOf(checker.get(), 0, text.getBuffer(), text.length(), skeleton.data(),
                                        static_cast<std::int32_t>(skeleton.size()), &error);
    };
    std::int32_t length = make();
    if (error == U_BUFFER_OVERFLOW_ERROR) {
        skeleton.resize(static_cast<std::size_t>(length));
        length = make();
    }
    if (U_FAILURE(error)) return std::nullopt;
    return icu::UnicodeString(skeleton.data(), length);
}

}  // namespace

std::optional<char> asciiLookAlike(char32_t scalar) {
    if (scalar < 0x80) return std::nullopt;
    const auto skeleton = skeletonOf(icu::UnicodeString(static_cast<UChar32>(scalar)));
    if (!skeleton || skeleton->length() != 1 || (*skeleton)[0] >= 0x80) return std::nullopt;
    const char alike = asciiLowered(static_cast<char>((*skeleton)[0]));
    return isASCIILetter(alike) || isDigit(alike) || alike == '-' ? std::optional(alike) : std::nullopt;
}

bool areConfusable(std::string_view a, std::string_view b) {
    // Of small letters: in the list "I" is an "l" and "0" an "O".
    const auto skeleton = [](std::string_view text) {
        auto made = skeletonOf(wideOf(unicodeLowered(text)));
        if (made) made->toLower(icu::Locale::getRoot());
        return made;
    };
    const auto first = skeleton(a), second = skeleton(b);
    return first && second && *first == *second;
}

namespace {

struct Close {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, Close>;

/// What ICU calls the character set that has this IANA or MIME name, or null. Its tables hold a few hundred,
/// but it passes over hyphens, underscores and leading zeros, so each has names without number.
const char* canonicalName(const std::string& name) {
    for (const char* const same : {"GB2312", "GBK"}) {
        // Both names are widely used for text of the larger set.
        if (ucnv_compareNames(name.c_str(), same) == 0) return "gb18030";
    }
    for (const char* const standard : {"IANA", "MIME"}) {
        UErrorCode error = U_ZERO_ERROR;
        const char* const canonical = ucnv_getCanonicalName(name.c_str(), standard, &error);
        if (canonical && U_SUCCESS(error)) return canonical;
    }
    return nullptr;
}

/// An open converter that stops at anything invalid; null when there is none.
Converter opened(const std::string& canonicalName) {
    UErrorCode error = U_ZERO_ERROR;
    Converter converter(ucnv_open(canonicalName.c_str(), &error));
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    return U_SUCCESS(error) ? std::move(converter) : nullptr;
}

/// Whether text in HZ (RFC 1843) ends inside a character or an escape: ICU says nothing and drops what is
/// left.
bool endsInsideHZ(std::string_view bytes) {
    bool isDoubleByte = false;
    while (!bytes.empty()) {
        const std::size_t length = bytes.front() == '~' || isDoubleByte ? 2 : 1;
        if (bytes.size() < length) return true;
        if (bytes.starts_with("~{")) isDoubleByte = true;
        if (bytes.starts_with("~}")) isDoubleByte = false;
        bytes.remove_prefix(length);
    }
    return false;
}

std::optional<std::string> converted(UConverter& converter, std::string_view bytes) {
    if (ucnv_getType(&converter) == UCNV_HZ && endsInsideHZ(bytes)) return std::nullopt;
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
    std::map<std::string, Converter, std::less<>> byCanonicalName = {};
    std::string lastName = {};  // most texts use one, which then is looked up once
    UConverter* last = nullptr;

    UConverter* find(const std::string& name);
};

UConverter* CharsetDecoder::Converters::find(const std::string& name) {
    const char* const canonical = canonicalName(name);
    if (!canonical) return nullptr;
    const auto [entry, isNew] = byCanonicalName.try_emplace(canonical);
    if (isNew) entry->second = opened(entry->first);
    return entry->second.get();
}

CharsetDecoder::CharsetDecoder() = default;
CharsetDecoder::~CharsetDecoder() = default;

std::optional<std::string> CharsetDecoder::decode(std::string_view charset, std::string_view bytes) {
    const auto asUTF8 = [&] { return isUTF8(bytes) ? std::optional(std::string(bytes)) : std::nullopt; };
    constexpr std::size_t longestName = 60;  // ICU's own bound; a longer name is nobody's
    const bool mayBeKnown = charset.size() < longestName && charset.find('\0') == std::string_view::npos;
    if (!mayBeKnown || equalsIgnoringCase(charset, "utf-8")) return asUTF8();
    if (!m_converters) m_converters = std::make_unique<Converters>();  // most texts need none
    if (charset != m_converters->lastName) {
        m_converters->lastName = charset;
        m_converters->last = m_converters->find(m_converters->lastName);
    }
    return m_converters->last ? converted(*m_converters->last, bytes) : asUTF8();
}

}  // namespace quillmark
