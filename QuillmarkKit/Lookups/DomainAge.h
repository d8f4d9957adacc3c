#pragma once

#include <array>
#include <string>
#include <tuple>
#include <variant>

#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Fields.h"

namespace quillmark {

/// When the sender's domain was registered.
struct DomainAge {
    struct Status {
        struct Known {
            Date registered = {};
            bool operator==(const Known&) const = default;
        };
        struct NotPublished : Unit {};
        struct Unavailable {
            std::string reason = {};
            bool operator==(const Unavailable&) const = default;
        };
        struct Skipped : Unit {};
        std::variant<Known, NotPublished, Unavailable, Skipped> value = Skipped{};
        bool operator==(const Status&) const = default;
    };
    std::string domain = {};  ///< the organizational domain of From; empty when there is none
    Status status = {};
    bool operator==(const DomainAge&) const = default;
};
constexpr auto casesOf(const DomainAge::Status*) {
    return std::array{"known", "notPublished", "unavailable", "skipped"};
}
constexpr auto fieldsOf(const DomainAge::Status::Known*) {
    return std::tuple{Field{"_0", &DomainAge::Status::Known::registered}};
}
constexpr auto fieldsOf(const DomainAge::Status::Unavailable*) {
    return std::tuple{Field{"_0", &DomainAge::Status::Unavailable::reason}};
}
constexpr auto fieldsOf(const DomainAge*) {
    using T = DomainAge;
    return std::tuple{Field{"domain", &T::domain}, Field{"status", &T::status}};
}

}  // namespace quillmark
