#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
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

/// The written name of an enumerator.
template <typename Enum>
constexpr const char* nameOf(Enum value) {
    return namesOf(value).names[static_cast<std::size_t>(value)];
}

/// A map from text to text, sorted by key, each key once; written as a keyed object.
using TextMap = std::vector<std::pair<std::string, std::string>>;

}  // namespace quillmark
