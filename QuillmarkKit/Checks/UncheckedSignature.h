#pragma once

#include <optional>
#include <string>

#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/Crypto.h"
#include "QuillmarkKit/Support/Date.h"

namespace quillmark {

struct SignatureChecker;

/// What can be said of a signature without its key: the digest that it was made over, if it is of this
/// message.
struct UncheckedSignature {
    std::string domain = {}, selector = {};
    std::optional<HashAlgorithm> rsaHash = {};  ///< nothing for Ed25519
    std::string signature = {};                 ///< `b=`, decoded
    std::string digest = {};                    ///< of the header data, `bh=` included
    std::optional<Date> signedAt = {};          ///< `t=`
};

/// Asks for no key. Nothing when the field can't be a signature of this message: it is malformed, or the body
/// isn't there or isn't the one that it covers.
std::optional<UncheckedSignature> withoutKey(const SignatureChecker& checker, const HeaderField& signature);

}  // namespace quillmark
