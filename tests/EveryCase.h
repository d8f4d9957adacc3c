#pragma once

#include <chrono>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "QuillmarkKit/Support/Serialization.h"

namespace quillmark {

/// Values of any type that describes itself (Fields.h), so that every field is in use, every case and every
/// enumerator of its enumerations occurs, and every optional value is once absent: what a test needs that is
/// about all of a report and must not forget what is added to it. Texts hold the name of their field, numbers
/// and dates differ from field to field, so that two that trade places show.
class EveryCase {
public:
    /// The first value is the one with everything in it; each other one differs from it in one field.
    template <typename T>
    std::vector<T> of(std::string_view name = {}) {
        using namespace serialization;
        if constexpr (std::same_as<T, std::string>) {
            return {std::string(name) + ".example"};
        } else if constexpr (std::same_as<T, TextList>) {
            const std::string text = std::string(name) + ".example";
            return {TextList{text}, TextList{}};
        } else if constexpr (std::same_as<T, bool>) {
            return {true, false};
        } else if constexpr (std::integral<T>) {
            return {static_cast<T>(++m_number), 1};
        } else if constexpr (std::same_as<T, Date>) {
            return {std::chrono::sys_days{std::chrono::January / 1 / 2026} +
                    std::chrono::hours(36 * ++m_number)};
        } else if constexpr (std::same_as<T, UUID>) {
            return {*UUID::parse("01234567-89ab-cdef-0123-456789abcdef")};
        } else if constexpr (std::same_as<T, TextMap>) {
            return {{{"a", std::string(name)}, {"b", ""}}};
        } else if constexpr (IsList<T>::value) {
            T list;
            for (auto&& value : of<typename T::value_type>(name)) list.push_back(std::move(value));
            return {list, {}};
        } else if constexpr (IsOptional<T>::value) {
            std::vector<T> values;
            for (auto&& value : of<typename T::value_type>(name)) values.emplace_back(std::move(value));
            values.emplace_back();
            return values;
        } else if constexpr (Named<T>) {
            std::vector<T> values;
            for (std::size_t i = 0; i < namesOf(T{}).names.size(); ++i) values.push_back(static_cast<T>(i));
            return values;
        } else if constexpr (std::same_as<T, UnknownCase>) {
            return {{"later", R"({"a":[1]})"}};
        } else if constexpr (Cased<T>) {
            return cases<T>(std::make_index_sequence<std::variant_size_v<decltype(T::value)>>());
        } else {
            static_assert(Keyed<T>, "a type that describes itself");
            std::vector<T> values(1);
            std::apply([&](const auto&... field) { (addValues(values, field), ...); },
                       fieldsOf(static_cast<const T*>(nullptr)));
            return values;
        }
    }

private:
    template <typename T, std::size_t... index>
    std::vector<T> cases(std::index_sequence<index...>) {
        std::vector<T> values;
        const auto add = [&]<typename Case>(const std::vector<Case>& some) {
            for (const Case& one : some) values.push_back(T{one});
        };
        (add(of<std::variant_alternative_t<index, decltype(T::value)>>()), ...);
        return values;
    }

    template <typename T, typename Member>
    void addValues(std::vector<T>& values, const Field<T, Member>& field) {
        std::vector<Member> members = of<Member>(field.name == "_0" ? "value" : field.name);
        for (T& value : values) value.*field.member = members.front();
        for (std::size_t i = 1; i < members.size(); ++i) {
            values.push_back(values.front());
            values.back().*field.member = members[i];
        }
    }

    int m_number = 1;
};

}  // namespace quillmark
