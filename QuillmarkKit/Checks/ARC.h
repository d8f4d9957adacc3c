#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "QuillmarkKit/Checks/DKIM.h"
#include "QuillmarkKit/Mail/AuthResults.h"
#include "QuillmarkKit/Support/Fields.h"

namespace quillmark {

/// What came of validating the chain of forwarders' marks (RFC 8617).
struct ARCFinding {
    enum class Reason { brokenStructure, sealSaysFailed, messageSignatureFailed, sealFailed };
    struct Status {
        struct None : Unit {};  ///< no forwarder left its mark
        struct Pass : Unit {};
        struct Fail {
            Reason reason = Reason::brokenStructure;
            bool operator==(const Fail&) const = default;
        };
        struct Unknown : Unit {};  ///< a key could not be asked for
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
    return enumTable<ARCFinding::Reason>(EnumStyle::wordOrObject, {"brokenStructure", "sealSaysFailed",
                                                                   "messageSignatureFailed", "sealFailed"});
}
constexpr auto casesOf(const ARCFinding::Status*) { return std::array{"none", "pass", "fail", "unknown"}; }
constexpr auto fieldsOf(const ARCFinding::Status::Fail*) {
    return std::tuple{Field{"_0", &ARCFinding::Status::Fail::reason}};
}
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

/// A chain may not have more sets (RFC 8617, section 4.2.1).
constexpr int mostARCSets = 50;

/// The fields of one ARC set (RFC 8617, section 4.1); null where the message has none. Pointers into it.
struct ARCSet {
    const HeaderField* results = nullptr;           ///< ARC-Authentication-Results
    const HeaderField* messageSignature = nullptr;  ///< ARC-Message-Signature
    const HeaderField* seal = nullptr;              ///< ARC-Seal
    bool isComplete() const { return results && messageSignature && seal; }
};

/// The instance (`i=`) of an ARC field: up to four digits; nothing when it cannot be read.
std::optional<int> arcInstance(const HeaderField& field);

/// What becomes of ARC fields whose instance is not 1 to 50.
enum class StrayARCFields { refuse, passOver };
/// A message's ARC fields by instance, instance 1 first, up to the highest there is; of several fields of one
/// kind and instance the topmost. When stray ones are refused, nothing as soon as there is one.
std::optional<std::vector<ARCSet>> arcSets(const MailMessage& message, StrayARCFields stray);

/// The digest that each set's seal signs (RFC 8617, section 5.1.1): of the fields of all sets up to it,
/// relaxed, its own seal last and with an empty `b=`. Linear in the fields, however many sets there are.
std::vector<std::string> arcSealDigests(std::span<const ARCSet> sets, HashAlgorithm algorithm);

/// Validates the chain of one message (RFC 8617, section 5.2).
struct ARCValidator {
    const SignatureChecker& checker;  ///< of the message: its body hashes, resolver and stop serve here, too

    /// Never throws. Structure comes before cryptography: a chain that is incomplete, or that says it is
    /// broken, costs no lookup and has no hops. Otherwise there is a hop for every set, with at most two
    /// lookups each, whatever came of the chain: an older message signature that does not hold tells where
    /// the message was changed, and does not make the chain fail.
    ARCFinding validate() const;
};

}  // namespace quillmark
