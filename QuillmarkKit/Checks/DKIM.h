#pragma once

#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <tuple>
#include <vector>

#include "QuillmarkKit/Checks/Canonicalization.h"
#include "QuillmarkKit/Checks/DKIMKeys.h"
#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Fields.h"
#include "QuillmarkKit/Support/PackedList.h"

namespace quillmark {

/// What came of checking one DKIM-Signature field (RFC 6376).
struct DKIMResult {
    enum class Status {
        pass,                  ///< it holds, of the header lines and of the body where there is one
        bodyChanged,           ///< the body isn't the one of `bh=`, or is shorter than `l=`
        headersChanged,        ///< `b=` doesn't verify
        keyNotPublished,       ///< DNS has no key of that name
        keyRevoked,            ///< the key's `p=` is empty
        keyUnusable,           ///< what stands there is no key, or not one for this signature
        keyTooWeak,            ///< it holds, with an RSA key of at most `tooFewKeyBits`
        lookupFailed,          ///< DNS gave no answer, or a stop was requested
        unsupportedAlgorithm,  ///< `a=` names none of `SignatureAlgorithm`
        malformed,             ///< the field, or what it asks for, breaks the rules
    };
    Status status = Status::malformed;
    std::string detail = {};                             ///< a short English reason; empty when there is none
    std::string domain = {};                             ///< `d=`
    std::string selector = {};                           ///< `s=`
    std::string algorithm = {};                          ///< `a=` as written
    std::string canonicalization = "simple/simple";      ///< `c=` as written
    TextList signedHeaders = {};                         ///< `h=`, each name trimmed
    std::optional<std::string> identity = {};            ///< `i=`
    std::optional<std::int64_t> bodyLength = {};         ///< `l=`, bytes
    std::optional<std::int64_t> unsignedBodyBytes = {};  ///< canonical body bytes beyond `l=`
    std::optional<Date> signedAt = {};                   ///< `t=`
    std::optional<Date> expiresAt = {};                  ///< `x=`
    bool expired = false;                                ///< `x=` lies before the time of the check
    std::optional<int> keyBits = {};                     ///< an RSA key's size
    bool testing = false;                                ///< the key record says `t=y`
    bool bodyChecked = false;                            ///< the body hash was compared
    std::vector<std::string> unsignedImportant = {};  ///< lines a reader relies on that `h=` does not cover
    bool operator==(const DKIMResult&) const = default;
};
constexpr auto namesOf(DKIMResult::Status) {
    return EnumTable<DKIMResult::Status, 10>{
        EnumStyle::object,
        {"pass", "bodyChanged", "headersChanged", "keyNotPublished", "keyRevoked", "keyUnusable",
         "keyTooWeak", "lookupFailed", "unsupportedAlgorithm", "malformed"}};
}
constexpr auto fieldsOf(const DKIMResult*) {
    using T = DKIMResult;
    return std::tuple{Field{"status", &T::status},
                      Field{"detail", &T::detail},
                      Field{"domain", &T::domain},
                      Field{"selector", &T::selector},
                      Field{"algorithm", &T::algorithm},
                      Field{"canonicalization", &T::canonicalization},
                      Field{"signedHeaders", &T::signedHeaders},
                      Field{"identity", &T::identity},
                      Field{"bodyLength", &T::bodyLength},
                      Field{"unsignedBodyBytes", &T::unsignedBodyBytes},
                      Field{"signedAt", &T::signedAt},
                      Field{"expiresAt", &T::expiresAt},
                      Field{"expired", &T::expired},
                      Field{"keyBits", &T::keyBits},
                      Field{"testing", &T::testing},
                      Field{"bodyChecked", &T::bodyChecked},
                      Field{"unsignedImportant", &T::unsignedImportant}};
}

/// A DKIM-Signature, or an ARC-Message-Signature (RFC 8617, section 4.1.2): that is read alike, but its `i=`
/// is an instance and it has no `v=`.
enum class SignatureKind { dkim, arc };
constexpr auto namesOf(SignatureKind) {
    return EnumTable<SignatureKind, 2>{EnumStyle::word, {"dkim", "forwarder"}};
}

/// A signature that could be checked and doesn't fit, under a key that would do for a pass.
struct BrokenSignature {
    HeaderField field = {};  ///< valid while any copy of its message lives
    SignatureKind kind = SignatureKind::dkim;
    std::int64_t place =
        0;  ///< in the report: from 0 among the DKIM signatures, or the instance of the ARC set
    std::string domain = {};      ///< `d=`
    TextList signedHeaders = {};  ///< `h=`, each name trimmed
    std::string copies = {};      ///< `z=`: header fields as they were signed (RFC 6376, section 3.5)
    CanonicalizationPair canonicalization = {};
    SignatureAlgorithm algorithm = SignatureAlgorithm::rsaSHA256;
    std::string bodyHash = {}, signature = {};     ///< `bh=` and `b=`, decoded
    std::optional<std::uint64_t> bodyLength = {};  ///< `l=`
    DKIMKeyRecord key = {};
    DNSAnswer keyAnswer = {};                     ///< that the key was taken from
    bool bodyHolds = false, headerHolds = false;  ///< never both
    /// The digest that `b=` was made over; only RSA gives it back.
    std::optional<std::string> signedDigest = {};
};

/// A result, and what the check learned that the result doesn't hold.
struct SignatureCheck {
    DKIMResult result = {};
    /// The body isn't the one that was signed, and the header lines are: `b=` verifies over them with the
    /// `bh=` that stands in the field, under a key that would do for a pass.
    bool signedLinesHold = false;
    /// Where the result is `bodyChanged` or `headersChanged` and the key would do for a pass.
    std::optional<BrokenSignature> broken = {};
    /// Where the key that counts doesn't fit and others are published under its name: whether one of those
    /// fits, so that the signature would have passed with it.
    std::optional<bool> otherRecordFits = {};
    /// The version (`v=`) of another kind of record that stands where no key is published: "spf1".
    std::optional<std::string> versionInstead = {};
};

/// Checks one signature field of a message.
struct SignatureChecker {
    using Kind = SignatureKind;

    const MailMessage& message;
    BodyHashes*
        bodyHashes;  ///< of the message's body, shared by all its signatures; null when there is no body
    DNSResolver& resolver;
    Date now;
    std::stop_token stop = {};
    ParsedKeys* keys = nullptr;  ///< that outlive the check of one message, if there are any

    /// Never throws: every outcome, a failed lookup included, is a result. The first fault found ends the
    /// check; what was read before it stays in the result. `signature` is a field of the message.
    DKIMResult check(const HeaderField& signature, Kind kind = Kind::dkim) const;
    /// The same. What it learns besides costs two public-key operations where the signature doesn't fit, and
    /// up to three where several keys are published under one name.
    SignatureCheck examine(const HeaderField& signature, Kind kind = Kind::dkim) const;
};

}  // namespace quillmark
