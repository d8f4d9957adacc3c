#pragma once

#include <array>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "QuillmarkKit/AuthResults.h"
#include "QuillmarkKit/DKIM.h"
#include "QuillmarkKit/Support/Fields.h"

namespace quillmark {

/// What came of validating the chain of forwarders' marks (RFC 8617).
struct ARCFinding {
    enum class Reason { brokenStructure, sealSaysFailed, messageSignatureFailed, sealFailed };
    struct Status {
        struct None {  ///< no forwarder left its mark
            bool operator==(const None&) const = default;
        };
        struct Pass {
            bool operator==(const Pass&) const = default;
        };
        struct Fail {
            Reason reason = Reason::brokenStructure;
            bool operator==(const Fail&) const = default;
        };
        struct Unknown {  ///< a key could not be asked for
            bool operator==(const Unknown&) const = default;
        };
        std::variant<None, Pass, Fail, Unknown> value = None{};
        bool operator==(const Status&) const = default;
    };
    struct Hop {
        int instance = 0;                  ///< the set's `i=`
        std::string sealer = {};           ///< the seal's `d=`
        DKIMResult messageSignature = {};  ///< of the set's ARC-Message-Signature
        bool sealValid = false;
        AuthResults sawResults = {};  ///< what the forwarder's own checks found
        bool operator==(const Hop&) const = default;
    };
    Status status = {};
    std::string detail = {};     ///< why the chain failed; else empty
    std::vector<Hop> hops = {};  ///< oldest first
    bool operator==(const ARCFinding&) const = default;
};
constexpr auto namesOf(ARCFinding::Reason) {
    return EnumTable<ARCFinding::Reason, 4>{
        EnumStyle::wordOrObject,
        {"brokenStructure", "sealSaysFailed", "messageSignatureFailed", "sealFailed"}};
}
constexpr auto casesOf(const ARCFinding::Status*) { return std::array{"none", "pass", "fail", "unknown"}; }
constexpr auto fieldsOf(const ARCFinding::Status::None*) { return std::tuple{}; }
constexpr auto fieldsOf(const ARCFinding::Status::Pass*) { return std::tuple{}; }
constexpr auto fieldsOf(const ARCFinding::Status::Fail*) {
    return std::tuple{Field{"_0", &ARCFinding::Status::Fail::reason}};
}
constexpr auto fieldsOf(const ARCFinding::Status::Unknown*) { return std::tuple{}; }
constexpr auto fieldsOf(const ARCFinding::Hop*) {
    using T = ARCFinding::Hop;
    return std::tuple{Field{"instance", &T::instance}, Field{"sealer", &T::sealer},
                      Field{"messageSignature", &T::messageSignature}, Field{"sealValid", &T::sealValid},
                      Field{"sawResults", &T::sawResults}};
}
constexpr auto fieldsOf(const ARCFinding*) {
    using T = ARCFinding;
    return std::tuple{Field{"status", &T::status}, Field{"detail", &T::detail}, Field{"hops", &T::hops}};
}

}  // namespace quillmark
