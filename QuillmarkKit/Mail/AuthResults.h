#pragma once

#include <string>
#include <string_view>
#include <tuple>

#include "QuillmarkKit/Support/Fields.h"
#include "QuillmarkKit/Support/PackedList.h"

namespace quillmark {

/// What a receiving server wrote about its own checks: one Authentication-Results field (RFC 8601) or
/// ARC-Authentication-Results field (RFC 8617, section 4.1.1). Shown beside our own findings, never trusted.
struct AuthResults {
    struct Method {
        std::string method = {};  ///< "dkim", "spf", …: lower-case, without a version
        std::string result = {};  ///< "pass", "fail", …: lower-case
        /// "header.d" and the like, lower-case, to the value as written. A view of it is one of this method.
        TextMap properties = {};
        bool operator==(const Method&) const = default;
    };
    std::string server = {};  ///< the authserv-id; empty when there is none
    PackedList<Method> methods = {};
    bool operator==(const AuthResults&) const = default;

    enum class Kind { authenticationResults, arc };
    /// Never fails: statements that cannot be read are passed over. A quoted value keeps only its first word.
    static AuthResults parse(std::string_view value, Kind kind = Kind::authenticationResults);
};
constexpr auto fieldsOf(const AuthResults::Method*) {
    using T = AuthResults::Method;
    return std::tuple{Field{"method", &T::method}, Field{"result", &T::result},
                      Field{"properties", &T::properties}};
}
constexpr auto fieldsOf(const AuthResults*) {
    using T = AuthResults;
    return std::tuple{Field{"server", &T::server}, Field{"methods", &T::methods}};
}

}  // namespace quillmark
