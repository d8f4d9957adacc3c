#pragma once

#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "QuillmarkKit/Support/Fields.h"

namespace quillmark {

template <typename T>
class PackedList;

/// How the fields of a packed element stand behind each other: each as a number and as many bytes, less one.
/// A number zero is a text that isn't there.
namespace packing {

inline void putNumber(std::string& bytes, std::size_t number) {
    for (; number >= 0x80; number >>= 7) bytes += static_cast<char>(0x80 | (number & 0x7F));
    bytes += static_cast<char>(number);
}
inline std::size_t takeNumber(std::string_view& bytes) {
    std::size_t number = 0, count = 0;
    unsigned char byte = 0;
    do {
        byte = static_cast<unsigned char>(bytes[count]);
        number |= static_cast<std::size_t>(byte & 0x7F) << 7 * count++;
    } while (byte & 0x80);
    bytes.remove_prefix(count);
    return number;
}

inline void put(std::string& bytes, std::string_view text) {
    putNumber(bytes, text.size() + 1);
    bytes += text;
}
inline void put(std::string& bytes, const std::string& text) { put(bytes, std::string_view(text)); }
inline void put(std::string& bytes, const std::optional<std::string>& text) {
    text ? put(bytes, std::string_view(*text)) : putNumber(bytes, 0);
}
template <typename T>
void put(std::string& bytes, const PackedList<T>& list) {
    put(bytes, std::string_view(list.m_bytes));
}

inline std::optional<std::string_view> take(std::string_view& bytes) {
    const std::size_t number = takeNumber(bytes);
    if (number == 0) return std::nullopt;
    const std::string_view text = bytes.substr(0, number - 1);
    bytes.remove_prefix(text.size());
    return text;
}
inline void take(std::string_view& bytes, std::string_view& text) { text = *take(bytes); }
inline void take(std::string_view& bytes, std::string& text) { text = *take(bytes); }
inline void take(std::string_view& bytes, std::optional<std::string>& text) { text = take(bytes); }
template <typename T>
void take(std::string_view& bytes, PackedList<T>& list) {
    list.m_bytes = *take(bytes);
    list.m_size = static_cast<std::size_t>(std::distance(list.begin(), list.end()));
}

}  // namespace packing

/// Elements one behind the other in one buffer, each in a few bytes more than its texts have: for lists that
/// a hostile message can fill with millions, of which each would take a hundred bytes by itself. Elements
/// are views of texts, or describe themselves (Fields.h); then their fields are texts, texts that may be
/// missing, and such lists. They are read from the first on, and come as values: a reference to a part of one
/// lives no longer than the value does. A `std::string_view` that is an element, or in one, is a view of the
/// list: valid while the list lives, unchanged.
template <typename T>
class PackedList {
public:
    using value_type = T;

    class const_iterator {
    public:
        using iterator_concept = std::forward_iterator_tag;
        using iterator_category = std::input_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = T;

        const_iterator() = default;
        explicit const_iterator(std::string_view bytes) : m_bytes(bytes) {}
        T operator*() const {
            T element;
            std::string_view bytes = m_bytes;
            forTexts(element, [&](auto& text) { packing::take(bytes, text); });
            return element;
        }
        const_iterator& operator++() {
            if constexpr (isText) {
                packing::take(m_bytes);
            } else {
                constexpr auto fields = fieldsOf(static_cast<const T*>(nullptr));
                for (std::size_t i = 0; i < std::tuple_size_v<decltype(fields)>; ++i) packing::take(m_bytes);
            }
            return *this;
        }
        const_iterator operator++(int) {
            const const_iterator before = *this;
            ++*this;
            return before;
        }
        /// Of iterators of one list.
        bool operator==(const const_iterator& other) const { return m_bytes.size() == other.m_bytes.size(); }

    private:
        std::string_view m_bytes = {};  // from the element on
    };
    using iterator = const_iterator;

    PackedList() = default;
    PackedList(std::initializer_list<T> elements) {
        for (const T& element : elements) push_back(element);
    }
    PackedList(std::size_t count, const T& element) {
        for (std::size_t i = 0; i < count; ++i) push_back(element);
    }
    bool operator==(const PackedList&) const = default;

    const_iterator begin() const { return const_iterator(m_bytes); }
    const_iterator end() const { return const_iterator(); }
    std::size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    /// Of a list that isn't empty.
    T front() const { return *begin(); }

    void push_back(const T& element) {
        forTexts(element, [&](const auto& text) { packing::put(m_bytes, text); });
        ++m_size;
    }
    void append(const PackedList& other) {
        m_bytes += other.m_bytes;
        m_size += other.m_size;
    }

private:
    friend void packing::put<T>(std::string& bytes, const PackedList& list);
    friend void packing::take<T>(std::string_view& bytes, PackedList& list);
    static constexpr bool isText = std::is_same_v<T, std::string_view>;
    /// Calls `act` with each text of an element, or list of such.
    template <typename Element, typename Act>
    static void forTexts(Element& element, Act act) {
        if constexpr (isText) {
            act(element);
        } else {
            std::apply([&](const auto&... field) { (act(element.*field.member), ...); },
                       fieldsOf(static_cast<const T*>(nullptr)));
        }
    }

    std::size_t m_size = 0;
    std::string m_bytes = {};
};

/// A text with its name: views.
struct NamedText {
    std::string_view name = {}, text = {};
    bool operator==(const NamedText&) const = default;
};
constexpr auto fieldsOf(const NamedText*) {
    return std::tuple{Field{"name", &NamedText::name}, Field{"text", &NamedText::text}};
}

/// A list of texts: views.
using TextList = PackedList<std::string_view>;

/// A map from text to text, sorted by key, each key once; written as a keyed object.
using TextMap = PackedList<NamedText>;

}  // namespace quillmark
