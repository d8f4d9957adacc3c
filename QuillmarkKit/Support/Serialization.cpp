#include "QuillmarkKit/Support/Serialization.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <istream>
#include <iterator>
#include <streambuf>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

/// No document of ours is nested half as deep.
constexpr int deepest = 64;

/// Whether a terminal could do something else with it than show it.
constexpr bool isHarmful(char32_t c) {
    return c < 0x20 || (c >= 0x7F && c <= 0x9F) || c == 0x061C || c == 0x200E || c == 0x200F ||
           (c >= 0x2028 && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

/// Printable ASCII that stands for itself in a JSON text.
constexpr bool isPlain(char c) { return c >= 0x20 && c < 0x7F && c != '"' && c != '\\'; }

/// Where the quote stands that ends a string whose characters begin at `begin`, or the end of the text.
std::size_t endOfString(std::string_view text, std::size_t begin) {
    for (auto end = text.find('"', begin); end != std::string_view::npos; end = text.find('"', end + 1)) {
        std::size_t escapes = 0;
        while (end - escapes > begin && text[end - escapes - 1] == '\\') ++escapes;
        if (escapes % 2 == 0) return end;
    }
    return text.size();
}

/// Where the list or the object ends that a text begins with, or the end of the text.
std::size_t endOfFirst(std::string_view text) {
    std::size_t depth = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') i = endOfString(text, i + 1);
        if (c == '[' || c == '{') ++depth;
        if ((c == ']' || c == '}') && --depth == 0) return i + 1;
    }
    return text.size();
}

/// Whether lists and objects lie deeper in each other than we read. Exact as far as the text is JSON, which
/// is as far as the parser goes.
bool isTooDeep(std::string_view text) {
    int depth = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            i = endOfString(text, i + 1);
        } else if (c == '[' || c == '{') {
            if (++depth > deepest) return true;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return false;
}

/// The bytes of a stream for the parser, which takes a zero byte for the end of the text: here it comes as
/// another that has no place in JSON.
class Bytes {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = char;

    Bytes() = default;  ///< the end of any stream
    explicit Bytes(std::streambuf& buffer) : m_buffer(&buffer), m_byte(buffer.sbumpc()) {}
    char operator*() const { return m_byte == 0 ? '\x01' : Traits::to_char_type(m_byte); }
    Bytes& operator++() {
        m_byte = m_buffer->sbumpc();
        return *this;
    }
    /// Only the end is ever compared with.
    bool operator==(const Bytes& end) const { return m_byte == end.m_byte; }

private:
    using Traits = std::char_traits<char>;
    std::streambuf* m_buffer = nullptr;
    Traits::int_type m_byte = Traits::eof();
};

}  // namespace

JSON parsedJSON(std::string_view text, std::size_t sizeLimit) {
    if (text.size() > sizeLimit) throw DecodingError("too large");
    // Before the parser, which keeps some bytes for each level, however many there are.
    if (isTooDeep(text)) throw DecodingError("nested too deep");
    JSON document = JSON::parse(text, nullptr, false);
    // The parser takes a zero byte for the end.
    if (document.is_discarded() || text.find('\0') != std::string_view::npos)
        throw DecodingError("this is no JSON");
    return document;
}

JSON parsedFirst(std::string_view text) { return parsedJSON(text.substr(0, endOfFirst(text)), text.size()); }

JSON parsedPiecewise(std::istream& text, std::string_view list,
                     const std::function<void(std::size_t number, const JSON& element)>& element) {
    using Event = JSON::parse_event_t;
    bool isListNext = false, inList = false;
    std::size_t number = 0;
    const auto keep = [&](int depth, Event event, const JSON& value) {
        const bool isBegin = event == Event::object_start || event == Event::array_start;
        if (isBegin && depth >= deepest) throw DecodingError("nested too deep");
        if (depth == 1) {
            if (event == Event::key) isListNext = value.get_ref<const std::string&>() == list;
            inList = isListNext && event == Event::array_start;
        }
        if (depth != 2 || !inList || isBegin) return true;
        element(number++, value);
        return false;
    };
    try {
        return JSON::parse(Bytes(*text.rdbuf()), Bytes(), keep);
    } catch (const JSON::parse_error& error) {
        throw DecodingError("byte " + std::to_string(error.byte) + ": this is no JSON");
    } catch (const JSON::exception&) {  // a number that nothing can hold
        throw DecodingError("a number is out of range");
    }
}

std::string asciiText(const JSON& json) { return json.dump(-1, ' ', true); }

std::string indented(std::string_view json, std::size_t depth) {
    std::string text;
    text.reserve(json.size() + json.size() / 2);
    const auto newLine = [&] { text.append(1, '\n').append(2 * depth, ' '); };
    for (std::size_t i = 0; i < json.size(); ++i) {
        const char c = json[i];
        if (c == '"') {
            const std::size_t begin = i++;
            while (json[i] != '"') i += json[i] == '\\' ? 2u : 1u;
            text += json.substr(begin, i - begin + 1);
        } else if (c == '{' || c == '[') {
            text += c;
            if (json[i + 1] == '}' || json[i + 1] == ']') {
                text += json[++i];
            } else {
                ++depth;
                newLine();
            }
        } else if (c == '}' || c == ']') {
            --depth;
            newLine();
            text += c;
        } else {
            text += c;
            if (c == ',') newLine();
            if (c == ':') text += ' ';
        }
    }
    return text;
}

namespace serialization {

void Encoder::writeText(std::string_view text) {
    m_text += '"';
    for (;;) {
        handOnIfLong();
        if (text.empty()) break;
        const std::size_t most = std::min(text.size(), m_pieceSize);
        std::size_t plain = 0;
        while (plain < most && isPlain(text[plain])) ++plain;
        m_text += text.substr(0, plain);
        text.remove_prefix(plain);
        if (plain == most) continue;
        const char32_t scalar = takeScalar(text);
        if (scalar == '"' || scalar == '\\') {
            m_text += '\\';
            m_text += static_cast<char>(scalar);
        } else if (isHarmful(scalar)) {
            constexpr std::string_view digits = "0123456789abcdef";
            const char escaped[] = {'\\',
                                    'u',
                                    digits[scalar >> 12 & 0xF],
                                    digits[scalar >> 8 & 0xF],
                                    digits[scalar >> 4 & 0xF],
                                    digits[scalar & 0xF]};
            m_text.append(escaped, sizeof escaped);
        } else {
            appendUTF8(m_text, scalar);
        }
    }
    m_text += '"';
}

void Encoder::writeDate(Date date) {
    const std::int64_t milliseconds = (date - referenceDate).count();
    if (milliseconds < 0) m_text += '-';
    const auto magnitude = milliseconds < 0 ? 0 - static_cast<std::uint64_t>(milliseconds)
                                            : static_cast<std::uint64_t>(milliseconds);
    m_text += std::to_string(magnitude / 1000);
    if (magnitude % 1000 == 0) return;
    std::string fraction = std::to_string(1000 + magnitude % 1000);
    fraction[0] = '.';
    while (fraction.ends_with('0')) fraction.pop_back();
    m_text += fraction;
}

void Encoder::writeTextMap(const TextMap& map) {
    m_text += '{';
    for (const auto& [key, text] : map) {
        if (m_text.back() != '{') m_text += ',';
        writeText(key);
        m_text += ':';
        writeText(text);
    }
    m_text += '}';
}

void Decoder::fail(const std::string& what) const {
    throw DecodingError(m_path.text().empty() ? what : m_path.text() + ": " + what);
}

std::string_view Decoder::text(const JSON& json) const {
    if (!json.is_string()) fail("expected a text");
    return json.get_ref<const std::string&>();
}

std::int64_t Decoder::integer(const JSON& json, std::int64_t least, std::int64_t most) const {
    if (!json.is_number_integer()) fail("expected a whole number");
    const bool fits =
        !json.is_number_unsigned() ||
        json.get<std::uint64_t>() <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const auto value = fits ? json.get<std::int64_t>() : 0;
    if (!fits || value < least || value > most) fail("number out of range");
    return value;
}

Date Decoder::date(const JSON& json) const {
    if (!json.is_number()) fail("expected a date");
    // Whole seconds do not go through floating point, which has not room for all of them in milliseconds.
    constexpr std::int64_t most = (std::numeric_limits<std::int64_t>::max() / 1000) - 978'307'200;
    if (json.is_number_integer()) return referenceDate + std::chrono::seconds(integer(json, -most, most));
    const auto seconds = json.get<double>();
    if (!(std::abs(seconds) < static_cast<double>(most) / 2)) fail("number out of range");
    return referenceDate + std::chrono::milliseconds(std::llround(seconds * 1000));
}

TextMap Decoder::textMap(const JSON& json) {
    if (!json.is_object()) fail("expected an object");
    TextMap map;
    for (const auto& item : json.items()) {  // sorted by key, as a TextMap is
        const auto text = m_path.inside(item.key(), [&] { return decoded<std::string>(item.value()); });
        map.push_back({item.key(), text});
    }
    return map;
}

void Decoder::keepUnknown(const JSON& json, std::span<const std::string_view> names) {
    if (!m_unknown) return;
    std::string_view path = std::string_view(m_path.text()).substr(m_begin);
    if (path.starts_with('.')) path.remove_prefix(1);
    for (const auto& item : json.items()) {
        if (std::ranges::find(names, item.key()) == names.end())
            m_unknown->push_back({std::string(path), item.key(), asciiText(item.value())});
    }
}

const std::string& Decoder::onlyKey(const JSON& json) {
    if (!json.is_object()) fail("expected an object");
    if (json.size() != 1) fail("Invalid number of keys found, expected one.");
    if (!json.front().is_object()) fail("expected an object of the case’s values");
    return json.begin().key();
}

}  // namespace serialization

}  // namespace quillmark
