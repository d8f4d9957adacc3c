#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Wording/Reader.h"

namespace quillmark {

/// `quillmark keygen`.
struct KeygenCommand {
    std::string type = "rsa";           ///< or "ed25519"
    std::optional<unsigned> bits = {};  ///< of an RSA key; 2048 when absent
    std::string out = {};               ///< the new file for the private key

    /// Writes a private key (PEM, PKCS#8) into a new file that only the user may read, and then the record
    /// that publishes it to standard output. Returns the exit status: 0 when there is a key, 1 when its file
    /// could not be written, 2 when the arguments are at fault.
    int run() const;
};

/// What `quillmark sign` and `quillmark seal` have in common. Their `run` writes the message with the new
/// fields above its first one to standard output, with CR LF line ends and otherwise as it was, or nothing.
/// They return the exit status: 0 when it was signed, 1 when the message could not be read or is none that
/// can be signed, 2 when the arguments or the key are at fault.
struct SigningArguments {
    std::string file = {};  ///< the message; "-" is standard input
    std::string domain = {}, selector = {};
    std::string keyFile = {};              ///< PEM, PKCS#8 or PKCS#1
    std::optional<std::string> time = {};  ///< RFC 3339, or seconds since 1970; no `t=` when absent
    Reader reader = {};                    ///< whom problems are for
};

/// `quillmark sign`.
struct SignCommand : SigningArguments {
    /// Field names with ":" between them. When absent those of `usualHeaders`, each as often as it occurs.
    std::optional<std::string> headers = {};
    std::string canonicalization = "relaxed/relaxed";
    std::optional<std::int64_t> length = {};  ///< `l=`, canonical bytes; not more than the body has

    int run() const;
};

/// `quillmark seal`.
struct SealCommand : SigningArguments {
    std::string results = {};               ///< what this server found: "mx.example; dkim=pass …"
    std::optional<std::string> chain = {};  ///< `cv=`

    int run() const;
};

}  // namespace quillmark
