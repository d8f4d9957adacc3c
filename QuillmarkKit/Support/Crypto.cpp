#include "QuillmarkKit/Support/Crypto.h"

#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/provider.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "QuillmarkKit/Support/DER.h"
#include "QuillmarkKit/Support/Release.h"

namespace quillmark {

namespace {

using Bignum = std::unique_ptr<BIGNUM, Release<BN_free>>;
using Montgomery = std::unique_ptr<BN_MONT_CTX, Release<BN_MONT_CTX_free>>;
using BignumContext = std::unique_ptr<BN_CTX, Release<BN_CTX_free>>;
using PKey = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using PKeyContext = std::unique_ptr<EVP_PKEY_CTX, Release<EVP_PKEY_CTX_free>>;
using ByteStream = std::unique_ptr<BIO, Release<BIO_free_all>>;
using DigestContext = std::unique_ptr<EVP_MD_CTX, Release<EVP_MD_CTX_free>>;

/// What is fetched once. Never freed: threads may verify until the process ends.
struct Library {
    OSSL_LIB_CTX* context = OSSL_LIB_CTX_new();
    OSSL_PROVIDER* provider = OSSL_PROVIDER_load(context, "default");
    EVP_MD* sha256 = EVP_MD_fetch(context, "SHA256", nullptr);
    EVP_MD* sha1 = EVP_MD_fetch(context, "SHA1", nullptr);
};

const Library& library() {
    static const Library shared;
    return shared;
}

const EVP_MD* digestOf(HashAlgorithm algorithm) {
    return algorithm == HashAlgorithm::sha256 ? library().sha256 : library().sha1;
}

const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

struct Hasher::State {
    DigestContext context{EVP_MD_CTX_new()};
};

Hasher::Hasher(HashAlgorithm algorithm) : m_state(std::make_unique<State>()) {
    if (!m_state->context || EVP_DigestInit_ex2(m_state->context.get(), digestOf(algorithm), nullptr) != 1) {
        throw std::bad_alloc();
    }
}
Hasher::Hasher(const Hasher& other) : m_state(std::make_unique<State>()) {
    if (!m_state->context || EVP_MD_CTX_copy_ex(m_state->context.get(), other.m_state->context.get()) != 1) {
        throw std::bad_alloc();
    }
}
Hasher& Hasher::operator=(const Hasher& other) {
    if (this != &other) *this = Hasher(other);
    return *this;
}
Hasher::Hasher(Hasher&&) noexcept = default;
Hasher& Hasher::operator=(Hasher&&) noexcept = default;
Hasher::~Hasher() = default;

void Hasher::add(std::string_view bytes) {
    EVP_DigestUpdate(m_state->context.get(), bytes.data(), bytes.size());
}

std::string Hasher::digest() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes = {};
    unsigned size = 0;
    EVP_DigestFinal_ex(m_state->context.get(), bytes.data(), &size);
    return {reinterpret_cast<const char*>(bytes.data()), size};
}

std::string hash(HashAlgorithm algorithm, std::string_view bytes) {
    Hasher hasher(algorithm);
    hasher.add(bytes);
    return hasher.digest();
}

struct RSAPublicKey::Key {
    Bignum modulus, exponent;
    Montgomery reduction;  // by the modulus; nothing changes it, so threads share it
};

namespace {

constexpr int mostModulusBits = 16'384;
constexpr int mostExponentBits = 64;

/// A positive INTEGER.
Bignum takePositive(std::string_view& der) {
    const auto content = takeDER(der, 0x02);
    if (!content || content->empty() || (bytesOf(*content)[0] & 0x80) != 0) return nullptr;
    if (content->size() > std::size_t{mostModulusBits} / 8 + 64) return nullptr;
    return Bignum(BN_bin2bn(bytesOf(*content), static_cast<int>(content->size()), nullptr));
}

std::size_t digestSize(HashAlgorithm algorithm) { return algorithm == HashAlgorithm::sha256 ? 32 : 20; }

/// What a signature over the digest must open to (EMSA-PKCS1-v1_5; RFC 8017, section 9.2); empty when the
/// block is too small for it.
std::string paddedDigest(HashAlgorithm algorithm, std::string_view digest, std::size_t size) {
    using namespace std::string_literals;
    std::string block = algorithm == HashAlgorithm::sha256
                            ? "\x30\x31\x30\x0d\x06\x09\x60\x86\x48\x01\x65\x03\x04\x02\x01\x05\x00\x04\x20"s
                            : "\x30\x21\x30\x09\x06\x05\x2b\x0e\x03\x02\x1a\x05\x00\x04\x14"s;
    block += digest;
    constexpr std::size_t leastPadding = 8;
    if (size < block.size() + leastPadding + 3) return {};
    return "\x00\x01"s + std::string(size - block.size() - 3, '\xFF') + '\0' + block;
}

bool mayBeUsed(const BIGNUM* modulus, const BIGNUM* exponent) {
    return BN_is_odd(modulus) && BN_num_bits(modulus) <= mostModulusBits && BN_is_odd(exponent) &&
           !BN_is_one(exponent) && BN_num_bits(exponent) <= mostExponentBits && BN_num_bits(modulus) > 1;
}

}  // namespace

std::optional<RSAPublicKey> RSAPublicKey::fromPKCS1(std::string_view der) {
    // RSAPublicKey ::= SEQUENCE { modulus INTEGER, publicExponent INTEGER }
    auto sequence = takeDER(der, 0x30);
    if (!sequence || !der.empty()) return std::nullopt;
    Bignum modulus = takePositive(*sequence);
    Bignum exponent = modulus ? takePositive(*sequence) : nullptr;
    if (!exponent || !sequence->empty() || !mayBeUsed(modulus.get(), exponent.get())) return std::nullopt;

    const BignumContext context(BN_CTX_new());
    Montgomery reduction(BN_MONT_CTX_new());
    if (!context || !reduction || BN_MONT_CTX_set(reduction.get(), modulus.get(), context.get()) != 1)
        throw std::bad_alloc();
    return RSAPublicKey(
        std::make_shared<const Key>(Key{std::move(modulus), std::move(exponent), std::move(reduction)}));
}

std::size_t RSAPublicKey::blockSize() const {
    return static_cast<std::size_t>(BN_num_bytes(m_key->modulus.get()));
}

bool RSAPublicKey::verify(HashAlgorithm algorithm, std::string_view digest,
                          std::string_view signature) const {
    return recoverDigest(algorithm, signature) == digest;
}

std::optional<std::string> RSAPublicKey::recoverDigest(HashAlgorithm algorithm,
                                                       std::string_view signature) const {
    // The library's own verification takes longer, and asks the machine's policy what it may verify. Nothing
    // here is secret, so the exponentiation and one comparison are all there is to it.
    const std::string unknown(digestSize(algorithm), '\0');
    const std::string expected = paddedDigest(algorithm, unknown, blockSize());
    if (expected.empty() || signature.size() != expected.size()) return std::nullopt;
    const BignumContext context(BN_CTX_new());
    const Bignum base(BN_bin2bn(bytesOf(signature), static_cast<int>(signature.size()), nullptr));
    const Bignum result(BN_new());
    if (!context || !base || !result || BN_cmp(base.get(), m_key->modulus.get()) >= 0) return std::nullopt;
    std::string block(expected.size(), '\0');
    if (BN_mod_exp_mont(result.get(), base.get(), m_key->exponent.get(), m_key->modulus.get(), context.get(),
                        m_key->reduction.get()) != 1 ||
        BN_bn2binpad(result.get(), reinterpret_cast<unsigned char*>(block.data()),
                     static_cast<int>(block.size())) <= 0) {
        return std::nullopt;
    }
    const std::size_t padding = block.size() - unknown.size();
    if (std::string_view(block).substr(0, padding) != std::string_view(expected).substr(0, padding))
        return std::nullopt;
    return block.substr(padding);
}

std::optional<bool> verifyEd25519(std::string_view publicKey, std::string_view message,
                                  std::string_view signature) {
    const PKey key(EVP_PKEY_new_raw_public_key_ex(library().context, "ED25519", nullptr, bytesOf(publicKey),
                                                  publicKey.size()));
    if (!key) return std::nullopt;
    const DigestContext context(EVP_MD_CTX_new());
    if (!context || EVP_DigestVerifyInit_ex(context.get(), nullptr, nullptr, library().context, nullptr,
                                            key.get(), nullptr) != 1) {
        return std::nullopt;
    }
    return EVP_DigestVerify(context.get(), bytesOf(signature), signature.size(), bytesOf(message),
                            message.size()) == 1;
}

struct SigningKey::Key {
    PKey pkey;
};

namespace {

using Passphrase = std::function<std::optional<std::string>()>;

/// Gives the library the passphrase that it asks for: how long it is, or -1.
int writePassphrase(char* buffer, int size, int, void* from) {
    const auto& passphrase = *static_cast<const Passphrase*>(from);
    const auto text = passphrase ? passphrase() : std::nullopt;
    if (!text || text->size() > static_cast<std::size_t>(size)) return -1;
    std::ranges::copy(*text, buffer);
    return static_cast<int>(text->size());
}

unsigned char* bytesOf(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }

std::optional<std::string> signRSA(EVP_PKEY* key, std::string_view digest) {
    const PKeyContext context(EVP_PKEY_CTX_new_from_pkey(library().context, key, nullptr));
    std::string signature(static_cast<std::size_t>(EVP_PKEY_get_size(key)), '\0');
    std::size_t size = signature.size();
    if (!context || EVP_PKEY_sign_init(context.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1 ||
        EVP_PKEY_CTX_set_signature_md(context.get(), library().sha256) != 1 ||
        EVP_PKEY_sign(context.get(), bytesOf(signature), &size, bytesOf(digest), digest.size()) != 1) {
        return std::nullopt;
    }
    return signature;
}

std::optional<std::string> signEd25519(EVP_PKEY* key, std::string_view message) {
    const DigestContext context(EVP_MD_CTX_new());
    std::string signature(64, '\0');
    std::size_t size = signature.size();
    if (!context ||
        EVP_DigestSignInit_ex(context.get(), nullptr, nullptr, library().context, nullptr, key, nullptr) !=
            1 ||
        EVP_DigestSign(context.get(), bytesOf(signature), &size, bytesOf(message), message.size()) != 1) {
        return std::nullopt;
    }
    return signature;
}

}  // namespace

std::optional<SigningKey> SigningKey::newRSA(unsigned bits) {
    PKey key(EVP_PKEY_Q_keygen(library().context, nullptr, "RSA", std::size_t{bits}));
    if (!key) return std::nullopt;
    return SigningKey(std::make_shared<const Key>(Key{std::move(key)}));
}

std::optional<SigningKey> SigningKey::newEd25519() {
    PKey key(EVP_PKEY_Q_keygen(library().context, nullptr, "ED25519"));
    if (!key) return std::nullopt;
    return SigningKey(std::make_shared<const Key>(Key{std::move(key)}));
}

std::optional<SigningKey> SigningKey::fromPEM(std::string_view pem, const Passphrase& passphrase) {
    constexpr std::size_t mostBytes = 1'000'000;
    const ByteStream stream(BIO_new_mem_buf(pem.data(), static_cast<int>(std::min(pem.size(), mostBytes))));
    PKey key(PEM_read_bio_PrivateKey_ex(stream.get(), nullptr, writePassphrase,
                                        const_cast<Passphrase*>(&passphrase), library().context, nullptr));
    if (!key || (!EVP_PKEY_is_a(key.get(), "RSA") && !EVP_PKEY_is_a(key.get(), "ED25519")))
        return std::nullopt;
    return SigningKey(std::make_shared<const Key>(Key{std::move(key)}));
}

SigningKey::Type SigningKey::type() const {
    return EVP_PKEY_is_a(m_key->pkey.get(), "RSA") ? Type::rsa : Type::ed25519;
}

std::string SigningKey::pem() const {
    const ByteStream stream(BIO_new(BIO_s_mem()));
    if (!stream || PEM_write_bio_PKCS8PrivateKey(stream.get(), m_key->pkey.get(), nullptr, nullptr, 0,
                                                 nullptr, nullptr) != 1) {
        throw std::bad_alloc();
    }
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(stream.get(), &bytes);
    return {bytes, static_cast<std::size_t>(size)};
}

std::string SigningKey::publicKey() const {
    if (type() == Type::ed25519) {
        std::string raw(32, '\0');
        std::size_t size = raw.size();
        EVP_PKEY_get_raw_public_key(m_key->pkey.get(), bytesOf(raw), &size);
        return raw;
    }
    std::string der(static_cast<std::size_t>(std::max(i2d_PUBKEY(m_key->pkey.get(), nullptr), 0)), '\0');
    unsigned char* end = bytesOf(der);
    i2d_PUBKEY(m_key->pkey.get(), &end);
    return der;
}

std::optional<std::string> SigningKey::sign(std::string_view sha256Digest) const {
    EVP_PKEY* key = m_key->pkey.get();
    return type() == Type::rsa ? signRSA(key, sha256Digest) : signEd25519(key, sha256Digest);
}

}  // namespace quillmark
