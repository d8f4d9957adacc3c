#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/DKIMKeys.h"

/// Signatures for tests, made with OpenSSL alone, so that a mistake in the kit's own signing could not hide
/// one in its checking.
namespace quillmark::test {

class PrivateKey {
public:
    /// A new key; an exponent of 65537.
    static PrivateKey rsa(unsigned bits);
    static PrivateKey ed25519();
    /// On a curve that no signature uses.
    static PrivateKey p256();

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
    std::shared_ptr<void> m_key = {};  // an EVP_PKEY
};

/// A signature field to be made for a message.
struct Signature {
    std::string tags = "v=1; d=example.org; s=key; h=from:subject";  ///< all but a=, c=, bh= and b=
    SignatureAlgorithm algorithm = SignatureAlgorithm::rsaSHA256;
    std::string canonicalization = "relaxed/relaxed";
    std::string fieldName = "DKIM-Signature";
};

/// The message with the signature field on top. The tags' `h=` and `l=` are honoured.
std::string signedMessage(std::string_view message, const Signature& signature, const PrivateKey& key);

/// A key record for the key.
std::string keyRecord(const PrivateKey& key, std::string_view type = "rsa");

}  // namespace quillmark::test
