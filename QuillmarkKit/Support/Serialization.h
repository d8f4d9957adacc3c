#pragma once

// Included by .cpp files only: it brings in the JSON library, of which this and Serialization.cpp are the
// home.

#include <algorithm>
#include <array>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/DecodingError.h"
#include "QuillmarkKit/Support/Fields.h"
#include "QuillmarkKit/Support/UUID.h"

/// JSON to and from any type that describes itself (Fields.h). Leaf types: text, whole numbers, booleans,
/// dates, UUIDs, lists, maps from text to text.
namespace quillmark {

using JSON = nlohmann::json;

/// A JSON text of at most `sizeLimit` bytes, nested at most 64 deep, read without recursion. Of several
/// members with one name the last counts. Throws `DecodingError`.
JSON parsedJSON(std::string_view text, std::size_t sizeLimit);

/// Reads an object whose member `list` may be larger than memory has room for: its elements are handed on as
/// they are read, one at a time, each with its number, and dropped. Gives the object with that list empty.
/// Nested at most 64 deep, read without recursion; every byte of `text` has to belong to it. Throws
/// `DecodingError`; what `text` or `element` throws goes through.
JSON parsedPiecewise(std::istream& text, std::string_view list,
                     const std::function<void(std::size_t number, const JSON& element)>& element);

/// A JSON text without white space laid out over lines, `depth` times two blanks in front of all but the
/// first.
std::string indented(std::string_view json, std::size_t depth);

/// What decoding does with a member that is missing though it is not optional.
enum class MissingMembers { fail, keepDefault };

namespace serialization {

template <typename T>
concept Keyed = requires { fieldsOf(static_cast<const T*>(nullptr)); };
template <typename T>
concept Cased = requires { casesOf(static_cast<const T*>(nullptr)); };
template <typename T>
concept Named = std::is_enum_v<T> && requires(T value) { namesOf(value); };

template <typename T>
struct IsList : std::false_type {};
template <typename T>
struct IsList<std::vector<T>> : std::true_type {};
template <typename T>
struct IsOptional : std::false_type {};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type {};

/// The positions of a type's fields in the order of their names.
template <typename T>
constexpr auto sortedFields() {
    const auto names = std::apply(
        [](const auto&... field) { return std::array<std::string_view, sizeof...(field)>{field.name...}; },
        fieldsOf(static_cast<const T*>(nullptr)));
    std::array<std::size_t, names.size()> order = {};
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::ranges::sort(order, {}, [&](std::size_t i) { return names[i]; });
    return order;
}

/// Writes values as JSON text straight from their tables: a tree in between would take a hundred bytes for
/// each of the millions of values that a hostile message can make.
class Encoder {
public:
    explicit Encoder(std::string& text) : m_text(text) {}

    template <typename T>
    void write(const T& value) {
        if constexpr (std::same_as<T, std::string>) {
            writeText(value);
        } else if constexpr (std::same_as<T, bool>) {
            m_text += value ? "true" : "false";
        } else if constexpr (std::integral<T>) {
            m_text += std::to_string(value);
        } else if constexpr (std::same_as<T, Date>) {
            writeDate(value);
        } else if constexpr (std::same_as<T, UUID>) {
            writeText(value.text());
        } else if constexpr (std::same_as<T, TextMap>) {
            writeTextMap(value);
        } else if constexpr (IsList<T>::value) {
            writeList(value);
        } else if constexpr (Named<T>) {
            writeEnumerator(value);
        } else if constexpr (Cased<T>) {
            writeCase(value);
        } else {
            static_assert(Keyed<T>, "a type that describes itself");
            writeFields(value, std::make_index_sequence<sortedFields<T>().size()>());
        }
    }

private:
    void writeText(std::string_view text);
    void writeDate(Date date);
    void writeTextMap(const TextMap& map);

    template <typename Element>
    void writeList(const std::vector<Element>& list) {
        m_text += '[';
        for (std::size_t i = 0; i < list.size(); ++i) {
            if (i > 0) m_text += ',';
            write(list[i]);
        }
        m_text += ']';
    }

    template <typename Enum>
    void writeEnumerator(Enum value) {
        const bool isObject = namesOf(value).style == EnumStyle::object;
        m_text += isObject ? "{\"" : "\"";
        m_text += nameOf(value);
        m_text += isObject ? "\":{}}" : "\"";
    }

    template <typename T>
    void writeCase(const T& value) {
        constexpr auto names = casesOf(static_cast<const T*>(nullptr));
        static_assert(names.size() == std::variant_size_v<decltype(value.value)>, "one name for each case");
        m_text += '{';
        beginField(names[value.value.index()]);
        std::visit([&](const auto& values) { write(values); }, value.value);
        m_text += '}';
    }

    template <typename T, std::size_t... indices>
    void writeFields(const T& value, std::index_sequence<indices...>) {
        [[maybe_unused]] static constexpr auto order = sortedFields<T>();
        [[maybe_unused]] static constexpr auto fields = fieldsOf(static_cast<const T*>(nullptr));
        m_text += '{';
        (writeField(value, std::get<order[indices]>(fields)), ...);
        m_text += '}';
    }

    template <typename T, typename Field>
    void writeField(const T& value, const Field& field) {
        const auto& member = value.*field.member;
        if constexpr (IsOptional<std::remove_cvref_t<decltype(member)>>::value) {
            if (!member) return;
            beginField(field.name);
            write(*member);
        } else {
            if constexpr (IsList<std::remove_cvref_t<decltype(member)>>::value) {
                if (member.empty() && field.whenEmpty == WhenEmpty::leftOut) return;
            }
            beginField(field.name);
            write(member);
        }
    }
    /// A field's name is plain ASCII.
    void beginField(std::string_view name) {
        m_text += m_text.back() == '{' ? "\"" : ",\"";
        m_text += name;
        m_text += "\":";
    }

    std::string& m_text;
};

/// Reads one value, keeping the path to where it is.
class Decoder {
public:
    /// `path`: where the value stands that is decoded.
    explicit Decoder(MissingMembers missing, std::string path = {})
        : m_missing(missing), m_path(std::move(path)) {}

    template <typename T>
    T decoded(const JSON& json) {
        if constexpr (std::same_as<T, std::string>) {
            if (!json.is_string()) fail("expected a text");
            return json.get<std::string>();
        } else if constexpr (std::same_as<T, bool>) {
            if (!json.is_boolean()) fail("expected true or false");
            return json.get<bool>();
        } else if constexpr (std::integral<T>) {
            static_assert(sizeof(T) < sizeof(std::int64_t) || std::is_signed_v<T>, "fits the wide one");
            return static_cast<T>(
                integer(json, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
        } else if constexpr (std::same_as<T, Date>) {
            return date(json);
        } else if constexpr (std::same_as<T, UUID>) {
            const auto id = UUID::parse(decoded<std::string>(json));
            if (!id) fail("expected a UUID");
            return *id;
        } else if constexpr (std::same_as<T, TextMap>) {
            return textMap(json);
        } else if constexpr (IsList<T>::value) {
            return list<typename T::value_type>(json);
        } else if constexpr (Named<T>) {
            return enumerator<T>(json);
        } else if constexpr (Cased<T>) {
            return cased<T>(json);
        } else {
            static_assert(Keyed<T>, "a type that describes itself");
            return keyed<T>(json);
        }
    }

private:
    [[noreturn]] void fail(const std::string& what) const;
    std::int64_t integer(const JSON& json, std::int64_t least, std::int64_t most) const;
    Date date(const JSON& json) const;
    TextMap textMap(const JSON& json);
    /// The one key of an object; its value must be an object.
    const std::string& onlyKey(const JSON& json);

    /// Runs `read` with `step` added to the path.
    template <typename Read>
    auto inside(std::string_view step, Read read) {
        const std::size_t length = m_path.size();
        if (!step.starts_with('[') && !m_path.empty()) m_path += '.';
        m_path += step;
        auto result = read();
        m_path.resize(length);
        return result;
    }

    template <typename Element>
    std::vector<Element> list(const JSON& json) {
        if (!json.is_array()) fail("expected a list");
        std::vector<Element> elements;
        elements.reserve(json.size());
        for (std::size_t i = 0; i < json.size(); ++i) {
            elements.push_back(
                inside("[" + std::to_string(i) + "]", [&] { return decoded<Element>(json[i]); }));
        }
        return elements;
    }

    template <typename Enum>
    Enum enumerator(const JSON& json) {
        constexpr auto table = namesOf(Enum());
        const bool asObject =
            table.style == EnumStyle::object || (table.style == EnumStyle::wordOrObject && json.is_object());
        const std::string name = asObject ? onlyKey(json) : decoded<std::string>(json);
        for (std::size_t i = 0; i < table.names.size(); ++i) {
            if (name == table.names[i]) return static_cast<Enum>(i);
        }
        fail("unknown case \"" + name + "\"");
    }

    template <typename T>
    T cased(const JSON& json) {
        const std::string& name = onlyKey(json);
        return inside(name, [&] { return caseNamed<T, 0>(name, json.front()); });
    }

    template <typename T, std::size_t index>
    T caseNamed(const std::string& name, const JSON& values) {
        constexpr auto names = casesOf(static_cast<const T*>(nullptr));
        if constexpr (index == names.size()) {
            fail("unknown case");
        } else {
            if (name != names[index]) return caseNamed<T, index + 1>(name, values);
            return T{keyed<std::variant_alternative_t<index, decltype(T::value)>>(values)};
        }
    }

    template <typename T>
    T keyed(const JSON& json) {
        if (!json.is_object()) fail("expected an object");
        T value;
        const auto read = [&](const auto& field) {
            auto& member = value.*field.member;
            using Member = std::remove_cvref_t<decltype(member)>;
            const auto found = json.find(field.name);
            inside(field.name, [&] {
                if constexpr (IsOptional<Member>::value) {
                    if (found != json.end() && !found->is_null()) {
                        member = decoded<typename Member::value_type>(*found);
                    }
                } else {
                    if (found != json.end()) {
                        member = decoded<Member>(*found);
                    } else if (m_missing == MissingMembers::fail && field.whenEmpty == WhenEmpty::written) {
                        fail("missing");
                    }
                }
                return 0;
            });
        };
        std::apply([&](const auto&... field) { (read(field), ...); },
                   fieldsOf(static_cast<const T*>(nullptr)));
        return value;
    }

    MissingMembers m_missing;
    std::string m_path;
};

}  // namespace serialization

/// One line of JSON, keys sorted. Bytes that are not UTF-8 become U+FFFD; control characters, line separators
/// and bidirectional controls are escaped, so that showing the text on a terminal does no harm.
template <typename T>
std::string encoded(const T& value) {
    std::string text;
    serialization::Encoder(text).write(value);
    return text;
}

/// Throws `DecodingError` with the path to the fault, which begins with `path`.
template <typename T>
T decoded(const JSON& json, MissingMembers missing = MissingMembers::fail, std::string path = {}) {
    return serialization::Decoder(missing, std::move(path)).decoded<T>(json);
}

}  // namespace quillmark
