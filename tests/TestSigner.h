#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Checks/DKIMKeys.h"
#include "QuillmarkKit/Lookups/DNS.h"

/// Signatures for tests, made with OpenSSL alone, so that a mistake in the kit's own signing could not hide
/// one in its checking.
namespace quillmark::test {

class PrivateKey {
public:
    /// A new key; an exponent of 65537, or that decimal number.
    static PrivateKey rsa(unsigned bits, const char* exponent = "65537");
    static PrivateKey ed25519();
    /// On a curve that no signature uses.
    static PrivateKey p256();

    bool isRSA() const;
    /// What stands in `p=`: a SubjectPublicKeyInfo for RSA, the raw key for Ed25519.
    std::string publicKey() const;
    /// The bare PKCS#1 form of an RSA key.
    std::string publicPKCS1() const;
    enum class PEM { pkcs8, traditional, encrypted };
    /// The key itself; "traditional" is PKCS#1 for RSA. The password is "password".
    std::string pem(PEM form) const;
    /// Signs a digest as the algorithm does.
    std::string signature(SignatureAlgorithm algorithm, std::string_view digest) const;

private:
    explicit PrivateKey(void* made);
    std::shared_ptr<void> m_key = {};  // an EVP_PKEY
};

/// A signature field to be made for a message.
struct Signature {
    std::string tags = "v=1; d=example.org; s=key; h=from:subject";  ///< all but a=, c=, bh= and b=
    std::optional<SignatureAlgorithm> algorithm = {};                ///< that of the key, with SHA-256
    std::string canonicalization = "relaxed/relaxed";
    std::string fieldName = "DKIM-Signature";
};

/// The message with the signature field on top. The tags' `h=` and `l=` are honoured.
std::string signedMessage(std::string_view message, const Signature& signature, const PrivateKey& key);

/// A key record for the key.
std::string keyRecord(const PrivateKey& key);

/// Keys made once: one of 1,024 bits, and the other kind.
const PrivateKey& rsaKey();
const PrivateKey& ed25519Key();

/// What the DNS answers for the signature above.
StaticResolver::Answers published(const PrivateKey& key);

/// The text with the first `what` replaced; one that isn't there is a fault of the test.
std::string replaced(std::string text, std::string_view what, std::string_view with);

}  // namespace quillmark::test
