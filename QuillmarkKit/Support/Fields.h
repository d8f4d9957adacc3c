#pragma once

#include <array>
#include <compare>
#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

/// The words in which a type describes itself, so that its encoding, its decoding and the position of a
/// fault all come from one table. No JSON here: `Serialization.h` reads these tables.
///
/// A type stands for itself through one of three functions, declared right under it and found by
/// argument-dependent lookup:
///
///     constexpr auto fieldsOf(const T*);  // std::tuple of Field: a keyed object
///     constexpr auto namesOf(T);          // EnumTable: an enumeration without values
///     constexpr auto casesOf(const T*);   // std::array of names: T::value is a std::variant, one name a
///     case
///
/// A type with a member `UnknownMembers unknown` keeps what its JSON, and whatever lies in it, holds beyond
/// its table. One whose variant ends in an `UnknownCase` keeps cases that it has no name for.
namespace quillmark {

/// Whether a list without elements is written.
enum class WhenEmpty { written, leftOut };

/// One member of a keyed object. An unlabelled value of a case is named "_0".
template <typename Owner, typename Member>
struct Field {
    std::string_view name;
    Member Owner::* member;
    WhenEmpty whenEmpty = WhenEmpty::written;
};

/// How an enumeration without values is written.
enum class EnumStyle {
    word,          ///< "relaxed"
    object,        ///< {"relaxed":{}}
    wordOrObject,  ///< written as a word, read in both forms
};

/// The written names of an enumeration whose values are 0 … count-1, in that order.
template <typename Enum, std::size_t count>
struct EnumTable {
    EnumStyle style;
    std::array<const char*, count> names;
};
template <typename Enum, std::size_t count>
constexpr EnumTable<Enum, count> enumTable(EnumStyle style, const char* const (&names)[count]) {
    return {style, std::to_array(names)};
}

/// A case without values: `struct Missing : Unit {};`.
struct Unit {
    bool operator==(const Unit&) const = default;
};
template <std::derived_from<Unit> T>
constexpr auto fieldsOf(const T*) {
    return std::tuple{};
}

/// The written name of an enumerator.
template <typename Enum>
constexpr const char* nameOf(Enum value) {
    return namesOf(value).names[static_cast<std::size_t>(value)];
}

/// What a newer program wrote and this one has no name for, to be written back as it was.
struct UnknownMember {
    std::string path = {};  ///< of the object that holds it, from the value that keeps it: "dkim[0].status"
    std::string name = {};
    std::string json = {};  ///< one line of ASCII
    auto operator<=>(const UnknownMember&) const = default;
};
using UnknownMembers = std::vector<UnknownMember>;  ///< sorted

/// A case that a newer program wrote and this one has no name for.
struct UnknownCase {
    std::string name = {};
    std::string json = {};  ///< its values, an object: one line of ASCII
    bool operator==(const UnknownCase&) const = default;
};

/// Whether the type's variant ends in an `UnknownCase`.
template <typename T>
constexpr bool keepsUnknownCases = std::is_same_v<
    std::variant_alternative_t<std::variant_size_v<decltype(T::value)> - 1, decltype(T::value)>, UnknownCase>;

/// The written name of a case.
template <typename T>
std::string_view caseNameOf(const T& value) {
    constexpr auto names = casesOf(static_cast<const T*>(nullptr));
    if constexpr (keepsUnknownCases<T>) {
        if (const auto* unknown = std::get_if<UnknownCase>(&value.value)) return unknown->name;
    }
    return names[value.value.index()];
}

}  // namespace quillmark
