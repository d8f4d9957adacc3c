#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Wording/Reader.h"

namespace quillmark {

/// A private key that a command is given.
struct KeyFile {
    std::string path = {};  ///< PEM, PKCS#8 or PKCS#1; "-" is standard input
    std::optional<std::string> passphraseFile =
        {};  ///< whose first line is the passphrase; else it is asked for
};

/// `quillmark keygen`.
struct KeygenCommand {
    std::string type = "rsa";           ///< or "ed25519"
    std::optional<unsigned> bits = {};  ///< of an RSA key; 2048 when absent
    std::string out = {};               ///< the new file for the private key; "-" is standard output
    Reader reader = {};                 ///< whom problems are for

    /// Writes a private key (PEM, PKCS#8) into a new file that only the user may read, and then the record
    /// that publishes it to standard output, unless the key went there. Returns the exit status: 0 when there
    /// is a key, 1 when something could not be written, 2 when the arguments are at fault.
    int run() const;
};

/// `quillmark record`.
struct RecordCommand {
    KeyFile key = {};
    Reader reader = {};  ///< whom problems are for

    /// Prints the record that publishes the key. Returns the exit status: 0 when it was printed, 1 when that
    /// could not be, 2 when the key is at fault.
    int run() const;
};

/// What `quillmark sign` and `quillmark seal` have in common. Their `run` writes the message with the new
/// fields above its first one to standard output, with CR LF line ends and otherwise as it was, or nothing.
/// They return the exit status: 0 when it was signed, 1 when the message could not be read or is none that
/// can be signed, 2 when the arguments or the key are at fault.
struct SigningArguments {
    std::string file = {};  ///< the message; "-" is standard input
    std::string domain = {}, selector = {};
    KeyFile key = {};
    /// RFC 3339, or seconds since 1970, or "none" for no `t=`; now when absent.
    std::optional<std::string> time = {};
    Reader reader = {};  ///< whom problems are for
};

/// `quillmark sign`.
struct SignCommand : SigningArguments {
    /// Field names with ":" between them. When absent those of `usualHeaders`, each as often as it occurs,
    /// and those that a reader goes by once more, so that none can be added (RFC 6376, section 8.15).
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
