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
#include <span>
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
#include "QuillmarkKit/Support/PackedList.h"
#include "QuillmarkKit/Support/UUID.h"

/// JSON to and from any type that describes itself (Fields.h). Leaf types: text, whole numbers, booleans,
/// dates, UUIDs, lists, maps from text to text.
namespace quillmark {

using JSON = nlohmann::json;

/// A JSON text of at most `sizeLimit` bytes, nested at most 64 deep, read without recursion. Of several
/// members with one name the last counts. Throws `DecodingError`.
JSON parsedJSON(std::string_view text, std::size_t sizeLimit);

/// The JSON value that a text begins with, whatever comes behind it; nested at most 64 deep. Throws
/// `DecodingError`.
JSON parsedFirst(std::string_view text);

/// Reads an object whose member `list` may be larger than memory has room for: its elements are handed on as
/// they are read, one at a time, each with its number, and dropped. Gives the object with that list empty.
/// Nested at most 64 deep, read without recursion; every byte of `text` has to belong to it. Throws
/// `DecodingError`; what `text` or `element` throws goes through.
JSON parsedPiecewise(std::istream& text, std::string_view list,
                     const std::function<void(std::size_t number, const JSON& element)>& element);

/// A JSON text without white space laid out over lines, `depth` times two blanks in front of all but the
/// first.
std::string indented(std::string_view json, std::size_t depth);

/// A value as one line of JSON, all of it ASCII.
std::string asciiText(const JSON& json);

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
concept KeepsUnknown = requires(T value) {
    { value.unknown } -> std::same_as<UnknownMembers&>;
};
template <typename T>
struct IsList : std::false_type {};
template <typename T>
struct IsList<std::vector<T>> : std::true_type {};
template <typename T>
struct IsList<PackedList<T>> : std::true_type {};
template <typename T>
struct IsOptional : std::false_type {};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type {};

template <typename T>
constexpr auto fieldNames() {
    return std::apply(
        [](const auto&... field) { return std::array<std::string_view, sizeof...(field)>{field.name...}; },
        fieldsOf(static_cast<const T*>(nullptr)));
}

/// The positions of a type's fields in the order of their names.
template <typename T>
constexpr auto sortedFields() {
    const auto names = fieldNames<T>();
    std::array<std::size_t, names.size()> order = {};
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::ranges::sort(order, {}, [&](std::size_t i) { return names[i]; });
    return order;
}

/// Where a value stands in another: "dkim[0].status.pass".
class Path {
public:
    explicit Path(std::string text = {}) : m_text(std::move(text)) {}
    const std::string& text() const { return m_text; }

    /// Runs `act` with `step` added.
    template <typename Act>
    auto inside(std::string_view step, Act act) {
        const std::size_t length = m_text.size();
        if (!step.starts_with('[') && !m_text.empty()) m_text += '.';
        m_text += step;
        if constexpr (std::is_void_v<decltype(act())>) {
            act();
            m_text.resize(length);
        } else {
            auto result = act();
            m_text.resize(length);
            return result;
        }
    }
    template <typename Act>
    auto inside(std::size_t index, Act act) {
        return inside("[" + std::to_string(index) + "]", std::move(act));
    }

private:
    std::string m_text;
};

/// Writes values as JSON text straight from their tables: a tree in between would take a hundred bytes for
/// each of the millions of values that a hostile message can make.
class Encoder {
public:
    explicit Encoder(std::string& text) : m_text(text) {}
    /// Hands on what is in `text` whenever that has `pieceSize` bytes, or some more, and takes it out. What
    /// is in it when all is written is the last piece.
    Encoder(std::string& text, std::size_t pieceSize, std::function<void(std::string_view)> sink)
        : m_text(text), m_pieceSize(pieceSize), m_sink(std::move(sink)) {}

    /// With members that the outermost value hasn't itself: sorted by their names, and in place of those that
    /// it keeps for a newer program.
    template <typename T>
    void writeWith(const T& value, std::span<const UnknownMember> also) {
        m_also = also;
        write(value);
    }

    template <typename T>
    void write(const T& value) {
        if constexpr (std::same_as<T, std::string> || std::same_as<T, std::string_view>) {
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
    /// After each piece of text: nothing else can be long.
    void handOnIfLong() {
        if (m_text.size() < m_pieceSize) return;
        // The last byte tells what may follow.
        m_sink(std::string_view(m_text).substr(0, m_text.size() - 1));
        m_text.erase(0, m_text.size() - 1);
    }
    void writeDate(Date date);
    void writeTextMap(const TextMap& map);

    template <typename List>
    void writeList(const List& list) {
        m_text += '[';
        std::size_t i = 0;
        for (const auto& element : list) {
            if (i > 0) m_text += ',';
            inside(i++, [&] { write(element); });
        }
        m_text += ']';
    }

    template <typename Enum>
    void writeEnumerator(Enum value) {
        if (namesOf(value).style != EnumStyle::object) {
            writeText(nameOf(value));
            return;
        }
        m_text += '{';
        beginField(nameOf(value));
        m_text += '{';
        inside(nameOf(value), [&] { writeUnknown(unknownHere()); });
        m_text += "}}";
    }

    template <typename T>
    void writeCase(const T& value) {
        constexpr auto names = casesOf(static_cast<const T*>(nullptr));
        static_assert(
            names.size() + (keepsUnknownCases<T> ? 1 : 0) == std::variant_size_v<decltype(value.value)>,
            "one name for each case");
        const auto writeValues = [&](const auto& values) {
            if constexpr (std::same_as<std::remove_cvref_t<decltype(values)>, UnknownCase>) {
                writeUnknown(values.name, values.json);
            } else {
                const std::string_view name = names[value.value.index()];
                beginField(name);
                inside(name, [&] { write(values); });
            }
        };
        m_text += '{';
        std::visit(writeValues, value.value);
        m_text += '}';
    }

    template <typename T, std::size_t... indices>
    void writeFields(const T& value, std::index_sequence<indices...> order) {
        if constexpr (KeepsUnknown<T>) {
            const auto outer = std::exchange(m_unknown, value.unknown);
            Path outerPath = std::exchange(m_path, Path());
            writeMembers(value, order);
            m_unknown = outer;
            m_path = std::move(outerPath);
        } else {
            writeMembers(value, order);
        }
    }

    template <typename T, std::size_t... indices>
    void writeMembers(const T& value, std::index_sequence<indices...>) {
        [[maybe_unused]] static constexpr auto order = sortedFields<T>();
        [[maybe_unused]] static constexpr auto fields = fieldsOf(static_cast<const T*>(nullptr));
        std::span<const UnknownMember> unknown =
            m_also.empty() ? unknownHere() : std::exchange(m_also, std::span<const UnknownMember>());
        m_text += '{';
        (writeField(value, std::get<order[indices]>(fields), unknown), ...);
        writeUnknown(unknown);
        m_text += '}';
    }

    /// Writes a field, and before it those unknown members whose names come first; they are taken off.
    template <typename T, typename Field>
    void writeField(const T& value, const Field& field, std::span<const UnknownMember>& unknown) {
        std::size_t before = 0;
        while (before < unknown.size() && unknown[before].name < field.name) ++before;
        writeUnknown(unknown.first(before));
        unknown = unknown.subspan(before);
        const auto& member = value.*field.member;
        if constexpr (IsOptional<std::remove_cvref_t<decltype(member)>>::value) {
            if (!member) return;
            beginField(field.name);
            inside(field.name, [&] { write(*member); });
        } else {
            if constexpr (IsList<std::remove_cvref_t<decltype(member)>>::value) {
                if (member.empty() && field.whenEmpty == WhenEmpty::leftOut) return;
            }
            beginField(field.name);
            inside(field.name, [&] { write(member); });
        }
    }
    /// A field's name is plain ASCII.
    void beginField(std::string_view name) {
        m_text += m_text.back() == '{' ? "\"" : ",\"";
        m_text += name;
        m_text += "\":";
    }

    void writeUnknown(std::span<const UnknownMember> members) {
        for (const UnknownMember& member : members) {
            if (m_text.back() != '{') m_text += ',';
            writeUnknown(member.name, member.json);
        }
    }
    void writeUnknown(std::string_view name, std::string_view json) {
        writeText(name);
        m_text.append(":").append(json);
    }
    std::span<const UnknownMember> unknownHere() const {
        if (m_unknown.empty()) return {};
        return std::ranges::equal_range(m_unknown, m_path.text(), {}, &UnknownMember::path);
    }
    /// The path is only needed where unknown members are to be found by it.
    template <typename Step, typename Act>
    void inside(Step step, Act act) {
        m_unknown.empty() ? act() : m_path.inside(step, act);
    }

    std::string& m_text;
    const std::size_t m_pieceSize = std::numeric_limits<std::size_t>::max();
    const std::function<void(std::string_view)> m_sink = {};
    std::span<const UnknownMember> m_also = {};     // until the outermost value is begun
    std::span<const UnknownMember> m_unknown = {};  // of the value that keeps them, below which we are
    Path m_path = Path();                           // from there
};

/// Reads one value, keeping the path to where it is. A `std::string_view` is a view of the JSON.
class Decoder {
public:
    /// `path`: where the value stands that is decoded.
    explicit Decoder(MissingMembers missing, std::string path = {})
        : m_missing(missing), m_path(std::move(path)) {}

    template <typename T>
    T decoded(const JSON& json) {
        if constexpr (std::same_as<T, std::string>) {
            return std::string(text(json));
        } else if constexpr (std::same_as<T, std::string_view>) {
            return text(json);
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
            return list<T>(json);
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
    /// A view of `json`.
    std::string_view text(const JSON& json) const;
    std::int64_t integer(const JSON& json, std::int64_t least, std::int64_t most) const;
    Date date(const JSON& json) const;
    TextMap textMap(const JSON& json);
    /// The one key of an object; its value must be an object.
    const std::string& onlyKey(const JSON& json);

    /// Keeps the members of an object that are not among `names`, as far as anything keeps them.
    void keepUnknown(const JSON& json, std::span<const std::string_view> names);

    template <typename List>
    List list(const JSON& json) {
        using Element = typename List::value_type;
        if (!json.is_array()) fail("expected a list");
        List elements;
        if constexpr (requires { elements.reserve(json.size()); }) elements.reserve(json.size());
        for (std::size_t i = 0; i < json.size(); ++i) {
            elements.push_back(m_path.inside(i, [&] { return decoded<Element>(json[i]); }));
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
            if (name != table.names[i]) continue;
            if (table.style == EnumStyle::object) m_path.inside(name, [&] { keepUnknown(json.front(), {}); });
            return static_cast<Enum>(i);
        }
        fail("unknown case \"" + name + "\"");
    }

    template <typename T>
    T cased(const JSON& json) {
        const std::string& name = onlyKey(json);
        return m_path.inside(name, [&] { return caseNamed<T, 0>(name, json.front()); });
    }

    template <typename T, std::size_t index>
    T caseNamed(const std::string& name, const JSON& values) {
        constexpr auto names = casesOf(static_cast<const T*>(nullptr));
        if constexpr (index == names.size() && keepsUnknownCases<T>) {
            return T{UnknownCase{name, asciiText(values)}};
        } else if constexpr (index == names.size()) {
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
        UnknownMembers* const outer = m_unknown;
        const std::size_t outerBegin = m_begin;
        if constexpr (KeepsUnknown<T>) {
            m_unknown = &value.unknown;
            m_begin = m_path.text().size();
        }
        std::size_t known = 0;
        const auto read = [&](const auto& field) {
            auto& member = value.*field.member;
            using Member = std::remove_cvref_t<decltype(member)>;
            const auto found = json.find(field.name);
            if (found != json.end()) ++known;
            m_path.inside(field.name, [&] {
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
            });
        };
        std::apply([&](const auto&... field) { (read(field), ...); },
                   fieldsOf(static_cast<const T*>(nullptr)));
        if (known < json.size()) keepUnknown(json, fieldNames<T>());
        if constexpr (KeepsUnknown<T>) {
            std::ranges::sort(value.unknown);
            m_unknown = outer;
            m_begin = outerBegin;
        }
        return value;
    }

    MissingMembers m_missing;
    Path m_path;
    UnknownMembers* m_unknown = nullptr;  // of the value that keeps them, below which we are
    std::size_t m_begin = 0;              // of the path from there
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
