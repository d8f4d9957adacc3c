#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "QuillmarkKit/Support/ByteBuffer.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/DecodingError.h"
#include "QuillmarkKit/Support/Fields.h"
#include "QuillmarkKit/Support/PackedList.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/UUID.h"

/// Values as bytes on their way between the window and the processes beside it, by the same tables as
/// their JSON (`Fields.h`). For one program alone, which is both ends: there are no names and no versions.
/// A text is UTF-8; `ByteBuffer` and `std::string_view` are bytes as they are.
namespace quillmark {

/// How many values an enumeration without names has, from 0.
template <typename Enum>
constexpr std::size_t enumeratorsOf = namesOf(Enum()).names.size();

/// The table of a type whose fields need no names.
template <typename T, typename... Members>
constexpr auto packedFields(Members T::*... members) {
    return std::tuple{Field{"", members}...};
}

namespace wire {

template <typename T>
constexpr bool isOptional = false;
template <typename T>
constexpr bool isOptional<std::optional<T>> = true;
template <typename T>
constexpr bool isList = false;
template <typename T>
constexpr bool isList<std::vector<T>> = true;
template <typename T>
constexpr bool isList<PackedList<T>> = true;
template <typename T>
constexpr bool isPair = false;
template <typename First, typename Second>
constexpr bool isPair<std::pair<First, Second>> = true;
template <typename T>
constexpr bool isTime = std::is_same_v<T, Date> || std::is_same_v<T, std::chrono::milliseconds>;
template <typename T>
concept Cased = requires { casesOf(static_cast<const T*>(nullptr)); };

struct TooLong {};

/// Throws `TooLong` instead of writing more than `most` bytes.
class Writer {
public:
    explicit Writer(std::string& bytes, std::size_t most = std::numeric_limits<std::size_t>::max())
        : m_bytes(bytes), m_most(most) {}

    template <typename T>
    void write(const T& value) {
        if constexpr (std::is_same_v<T, std::string>) {
            writeText(value);
        } else if constexpr (std::is_same_v<T, NamedText>) {
            writeText(value.name);
            writeText(value.text);
        } else if constexpr (std::is_same_v<T, std::string_view>) {
            writeBytes(value);
        } else if constexpr (std::is_same_v<T, ByteBuffer>) {
            writeBytes(value.view());
        } else if constexpr (std::is_same_v<T, UUID>) {
            append({reinterpret_cast<const char*>(value.bytes.data()), value.bytes.size()});
        } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
            writeNumber(static_cast<std::uint64_t>(value));
        } else if constexpr (std::is_same_v<T, Date>) {
            writeNumber(static_cast<std::uint64_t>(value.time_since_epoch().count()));
        } else if constexpr (isTime<T>) {
            writeNumber(static_cast<std::uint64_t>(value.count()));
        } else if constexpr (isOptional<T>) {
            write(value.has_value());
            if (value) write(*value);
        } else if constexpr (isList<T>) {
            writeNumber(value.size());
            for (const auto& each : value) writeElement<T>(each);
        } else if constexpr (isPair<T>) {
            write(value.first);
            write(value.second);
        } else if constexpr (Cased<T>) {
            writeNumber(value.value.index());
            std::visit([&](const auto& each) { writeCase(each); }, value.value);
        } else {
            std::apply([&](const auto&... field) { (write(value.*field.member), ...); },
                       fieldsOf(static_cast<const T*>(nullptr)));
        }
    }

private:
    template <typename List, typename Element>
    void writeElement(const Element& element) {
        if constexpr (std::is_same_v<List, TextList>) {
            writeText(element);
        } else {
            write(element);
        }
    }
    /// Nobody has read or written a report of another version on the way.
    void writeCase(const UnknownCase&) {}
    template <typename T>
    void writeCase(const T& value) {
        write(value);
    }
    void writeNumber(std::uint64_t number) {
        std::array<char, sizeof number> bytes;
        std::memcpy(bytes.data(), &number, sizeof number);
        append({bytes.data(), bytes.size()});
    }
    void writeText(std::string_view text) {
        isUTF8(text) ? writeBytes(text) : writeBytes(repairedUTF8(text));
    }
    void writeBytes(std::string_view bytes) {
        writeNumber(bytes.size());
        append(bytes);
    }
    void append(std::string_view bytes) {
        if (bytes.size() > m_most - m_bytes.size()) throw TooLong();
        m_bytes += bytes;
    }

    std::string& m_bytes;
    const std::size_t m_most;
};

/// Takes nothing on trust: what does not fit the types throws `DecodingError`, and nothing is made that is
/// larger than what came by more than the size of its type.
class Reader {
public:
    explicit Reader(std::string_view bytes) : m_rest(bytes) {}

    bool isAtEnd() const { return m_rest.empty(); }

    template <typename T>
    T read() {
        if constexpr (std::is_same_v<T, std::string>) {
            return std::string(text());
        } else if constexpr (std::is_same_v<T, NamedText>) {
            return {text(), text()};
        } else if constexpr (std::is_same_v<T, std::string_view>) {
            return bytes();
        } else if constexpr (std::is_same_v<T, ByteBuffer>) {
            return ByteBuffer(bytes());
        } else if constexpr (std::is_same_v<T, UUID>) {
            UUID id;
            const std::string_view taken = take(id.bytes.size());
            std::memcpy(id.bytes.data(), taken.data(), taken.size());
            return id;
        } else if constexpr (std::is_same_v<T, bool>) {
            const std::uint64_t value = number();
            if (value > 1) fail("neither true nor false");
            return value == 1;
        } else if constexpr (std::is_integral_v<T>) {
            const std::uint64_t value = number();
            const auto narrow = static_cast<T>(value);
            if (static_cast<std::uint64_t>(narrow) != value) fail("a number out of range");
            return narrow;
        } else if constexpr (std::is_enum_v<T>) {
            const std::uint64_t value = number();
            if (value >= enumeratorsOf<T>) fail("an unknown value");
            return static_cast<T>(value);
        } else if constexpr (isTime<T>) {
            const auto value = static_cast<std::int64_t>(number());
            // As in JSON, so that each time that a report may have comes over.
            if (value > latestTime || value < -latestTime) fail("a time out of range");
            return T(std::chrono::milliseconds(value));
        } else if constexpr (isOptional<T>) {
            return read<bool>() ? T(read<typename T::value_type>()) : T();
        } else if constexpr (isList<T>) {
            const std::uint64_t count = number();
            if (count > m_rest.size()) fail("a list that is longer than what came");
            T list;
            // No room beforehand: the count is the other's word.
            for (std::uint64_t i = 0; i < count; ++i)
                list.push_back(element<T>());  // NOLINT(*-inefficient-vector-operation)
            return list;
        } else if constexpr (isPair<T>) {
            auto first = read<typename T::first_type>();
            return {std::move(first), read<typename T::second_type>()};
        } else if constexpr (Cased<T>) {
            T value;
            readCase<0>(number(), value);
            return value;
        } else {
            T value;
            std::apply(
                [&](const auto&... field) {
                    ((value.*field.member = read<std::remove_cvref_t<decltype(value.*field.member)>>()), ...);
                },
                fieldsOf(static_cast<const T*>(nullptr)));
            return value;
        }
    }

    [[noreturn]] static void fail(const char* what) { throw DecodingError(what); }

private:
    /// In milliseconds; what is nearer the ends runs over when it is counted from `referenceDate`.
    static constexpr std::int64_t latestTime =
        std::numeric_limits<std::int64_t>::max() - 2 * referenceDate.time_since_epoch().count();

    template <typename List>
    auto element() {
        if constexpr (std::is_same_v<List, TextList>) {
            return text();
        } else {
            return read<typename List::value_type>();
        }
    }
    template <std::size_t index, typename T>
    void readCase(std::uint64_t number, T& value) {
        if constexpr (index < casesOf(static_cast<const T*>(nullptr)).size()) {
            if (number != index) return readCase<index + 1>(number, value);
            value.value.template emplace<index>(
                read<std::variant_alternative_t<index, decltype(T::value)>>());
        } else {
            fail("an unknown case");
        }
    }
    std::string_view take(std::size_t size) {
        if (size > m_rest.size()) fail("less than announced");
        const std::string_view taken = m_rest.substr(0, size);
        m_rest.remove_prefix(size);
        return taken;
    }
    std::uint64_t number() {
        std::uint64_t value = 0;
        std::memcpy(&value, take(sizeof value).data(), sizeof value);
        return value;
    }
    std::string_view bytes() { return take(number()); }
    std::string_view text() {
        const std::string_view text = bytes();
        if (!isUTF8(text)) fail("no UTF-8");
        return text;
    }

    std::string_view m_rest;
};

}  // namespace wire

/// The values, one behind the other.
template <typename... Values>
std::string packed(const Values&... values) {
    std::string bytes;
    wire::Writer writer(bytes);
    (writer.write(values), ...);
    return bytes;
}

/// The same; nothing where it has more bytes than `most`.
template <typename... Values>
std::optional<std::string> packedWithin(std::size_t most, const Values&... values) {
    std::string bytes;
    wire::Writer writer(bytes, most);
    try {
        (writer.write(values), ...);
    } catch (const wire::TooLong&) {
        return std::nullopt;
    }
    return bytes;
}

/// The values that `packed` was given, of these types, and nothing else; else `DecodingError`. A
/// `std::string_view` lives as long as the bytes.
template <typename... Values>
std::tuple<Values...> unpacked(std::string_view bytes) {
    wire::Reader reader(bytes);
    std::tuple<Values...> values{reader.template read<Values>()...};
    if (!reader.isAtEnd()) wire::Reader::fail("more than there should be");
    return values;
}

}  // namespace quillmark
