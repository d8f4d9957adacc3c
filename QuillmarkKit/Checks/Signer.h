#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "QuillmarkKit/Checks/Canonicalization.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/Crypto.h"

namespace quillmark {

/// Why nothing was signed, in one sentence.
class SigningError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The same where it lies with the message: no ARC set can be put on top of it.
class UnsealableMessage : public SigningError {
public:
    using SigningError::SigningError;
};

/// Makes what the checkers read: DKIM signatures (RFC 6376), ARC sets (RFC 8617) and key records. Fields come
/// back on one line, without a final CR LF, to be put on top of the message's fields.
///
/// All functions but `keyRecord` throw `SigningError` when a text could break out of the field it is to stand
/// in or name nothing (a domain or selector that is none or that DNS cannot hold, a header name with ";", a
/// line end anywhere …) or when the key cannot make signatures that hold: an RSA key below 1024 bits, a
/// damaged one.
namespace Signer {

struct Options {
    std::string domain = {};                      ///< `d=`
    std::string selector = {};                    ///< `s=`
    std::vector<std::string> headers = {};        ///< `h=`; From must be among them
    std::optional<std::int64_t> bodyLength = {};  ///< `l=`, canonical bytes; may exceed the body
    std::optional<std::int64_t> time = {};        ///< `t=`, seconds since 1970
    CanonicalizationPair canonicalization = {Canonicalization::relaxed, Canonicalization::relaxed};
};

struct ARCOptions {
    std::string domain = {};                ///< `d=`
    std::string selector = {};              ///< `s=`
    std::string results = {};               ///< what was found: an authserv-id, then "; method=result …"
    std::optional<std::int64_t> time = {};  ///< `t=`, seconds since 1970
    /// `cv=`: "none", "pass" or "fail". When absent, "none" for the first set and "pass" for later ones:
    /// nobody looks whether the chain holds.
    std::optional<std::string> chain = {};
};

/// The three fields of a new ARC set.
struct ARCFields {
    std::string results = {}, messageSignature = {}, seal = {};
};

/// The TXT record that publishes the key (RFC 6376, section 3.6.1), for the name
/// `<selector>._domainkey.<domain>`.
std::string keyRecord(const SigningKey& key);

/// A DKIM-Signature field. A message without a body is signed as one with an empty body.
std::string dkimSignature(const MailMessage& message, const Options& options, const SigningKey& key);

/// A new ARC set on top of those the message has; its instance is one more than that of the highest
/// ARC-Seal. Throws `UnsealableMessage` when one has the instance 50 or more, or when there is no From
/// field that could be signed.
ARCFields arcSet(const MailMessage& message, const ARCOptions& options, const SigningKey& key);

}  // namespace Signer

}  // namespace quillmark
