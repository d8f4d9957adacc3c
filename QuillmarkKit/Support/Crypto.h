#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// Digests and signatures. The files that include OpenSSL are `Crypto.cpp` and, for time stamps,
/// `TimeStamp.cpp` (and the HTTPS engine's library uses its own). Everything runs in a library context of its
/// own, so that no policy in the machine's configuration can change a verdict.
namespace quillmark {

enum class HashAlgorithm { sha256, sha1 };

/// A digest in the making. Copying copies the state, so that the digests of several prefixes cost one pass.
class Hasher {
public:
    explicit Hasher(HashAlgorithm algorithm);
    Hasher(const Hasher& other);
    Hasher& operator=(const Hasher& other);
    Hasher(Hasher&&) noexcept;
    Hasher& operator=(Hasher&&) noexcept;
    ~Hasher();

    void add(std::string_view bytes);
    /// The digest of all that was added: 32 bytes, or 20 for SHA-1. May be asked once.
    std::string digest();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// The digest of `bytes` in one step.
std::string hash(HashAlgorithm algorithm, std::string_view bytes);

/// An RSA public key.
class RSAPublicKey {
public:
    /// From the DER bytes of a PKCS#1 RSAPublicKey (RFC 8017, appendix A.1.1). Nothing when they are no key,
    /// or one that must not be used: a modulus that is even, not positive or over 16,384 bits; an exponent
    /// that is even, below 3 or over 64 bits.
    static std::optional<RSAPublicKey> fromPKCS1(std::string_view der);

    /// The modulus' length in bytes, leading zeros not counted.
    std::size_t blockSize() const;

    /// RSASSA-PKCS1-v1_5 (RFC 8017, section 8.2.2) of a message given by its digest. No policy on key sizes
    /// applies; the padding is compared whole.
    bool verify(HashAlgorithm algorithm, std::string_view digest, std::string_view signature) const;

    /// The digest that a signature of this kind was made over: whoever made it held the private key. Nothing
    /// when it was made with another key, or is damaged.
    std::optional<std::string> recoverDigest(HashAlgorithm algorithm, std::string_view signature) const;

private:
    struct Key;
    explicit RSAPublicKey(std::shared_ptr<const Key> key) : m_key(std::move(key)) {}
    std::shared_ptr<const Key> m_key;
};

/// Ed25519 (RFC 8032) with a raw public key of 32 bytes. Nothing when the key is no key.
std::optional<bool> verifyEd25519(std::string_view publicKey, std::string_view message,
                                  std::string_view signature);

/// A private key to sign with: RSA, or Ed25519 (RFC 8032). Copies share it. Safe from many threads at once.
class SigningKey {
public:
    enum class Type { rsa, ed25519 };

    /// A new key with a modulus of `bits` bits and the exponent 65537. Nothing when the library refuses the
    /// size or has no random numbers.
    static std::optional<SigningKey> newRSA(unsigned bits);
    static std::optional<SigningKey> newEd25519();
    /// The first private key of a PEM text: PKCS#8 (RFC 5958) or PKCS#1 (RFC 8017, appendix A.1.2). Nothing
    /// when there is none, or one of another type. Of an encrypted one (and of no other) `passphrase` is
    /// called, perhaps twice; nothing comes of it when that has none, or not the right one. It must not
    /// throw.
    static std::optional<SigningKey> fromPEM(
        std::string_view pem, const std::function<std::optional<std::string>()>& passphrase = {});

    Type type() const;
    /// The key itself as PEM, PKCS#8. Whoever holds it can sign.
    std::string pem() const;
    /// The public half: a DER SubjectPublicKeyInfo (RFC 5280, section 4.1.2.7) for RSA, 32 raw bytes for
    /// Ed25519.
    std::string publicKey() const;
    /// RSASSA-PKCS1-v1_5 of a message given by its SHA-256 digest; with Ed25519 the digest itself is what is
    /// signed. Nothing when the key cannot: a modulus too small for the digest.
    std::optional<std::string> sign(std::string_view sha256Digest) const;

private:
    struct Key;
    explicit SigningKey(std::shared_ptr<const Key> key) : m_key(std::move(key)) {}
    std::shared_ptr<const Key> m_key;
};

}  // namespace quillmark
