#include "tests/TestSigner.h"

#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>
#include <stdexcept>

#include "QuillmarkKit/Checks/Canonicalization.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Mail/TagList.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark::test {

namespace {

EVP_PKEY* raw(const std::shared_ptr<void>& key) { return static_cast<EVP_PKEY*>(key.get()); }

template <typename Encode>
std::string der(Encode encode, EVP_PKEY* key) {
    unsigned char* bytes = nullptr;
    const int size = encode(key, &bytes);
    std::string text(reinterpret_cast<char*>(bytes), static_cast<std::size_t>(size));
    OPENSSL_free(bytes);
    return text;
}

const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

PrivateKey::PrivateKey(void* made)
    : m_key(made, [](void* old) { EVP_PKEY_free(static_cast<EVP_PKEY*>(old)); }) {
    if (!made) throw std::runtime_error("no key");
}

PrivateKey PrivateKey::rsa(unsigned bits, const char* exponent) {
    const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
        EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr), &EVP_PKEY_CTX_free);
    BIGNUM* number = nullptr;
    BN_dec2bn(&number, exponent);
    EVP_PKEY_keygen_init(context.get());
    EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), static_cast<int>(bits));
    EVP_PKEY_CTX_set1_rsa_keygen_pubexp(context.get(), number);
    BN_free(number);
    EVP_PKEY* key = nullptr;
    EVP_PKEY_generate(context.get(), &key);
    return PrivateKey(key);
}

PrivateKey PrivateKey::ed25519() { return PrivateKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519")); }

PrivateKey PrivateKey::p256() { return PrivateKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256")); }

bool PrivateKey::isRSA() const { return EVP_PKEY_get_base_id(raw(m_key)) == EVP_PKEY_RSA; }

std::string PrivateKey::publicKey() const {
    if (isRSA()) return der(i2d_PUBKEY, raw(m_key));
    std::string bytes(32, '\0');
    std::size_t size = bytes.size();
    EVP_PKEY_get_raw_public_key(raw(m_key), reinterpret_cast<unsigned char*>(bytes.data()), &size);
    return bytes;
}

std::string PrivateKey::publicPKCS1() const { return der(i2d_PublicKey, raw(m_key)); }

std::string PrivateKey::pem(PEM form) const {
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> stream(BIO_new(BIO_s_mem()), BIO_free_all);
    const auto* cipher = form == PEM::encrypted ? EVP_aes_128_cbc() : nullptr;
    const bool made = form == PEM::traditional
                          ? PEM_write_bio_PrivateKey_traditional(stream.get(), raw(m_key), nullptr, nullptr,
                                                                 0, nullptr, nullptr) == 1
                          : PEM_write_bio_PKCS8PrivateKey(stream.get(), raw(m_key), cipher, "password", 8,
                                                          nullptr, nullptr) == 1;
    if (!made) throw std::runtime_error("no PEM");
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(stream.get(), &bytes);
    return {bytes, static_cast<std::size_t>(size)};
}

std::string PrivateKey::signature(SignatureAlgorithm algorithm, std::string_view digest) const {
    std::string bytes(2048, '\0');
    std::size_t size = bytes.size();
    auto* out = reinterpret_cast<unsigned char*>(bytes.data());
    bool made = false;
    if (algorithm == SignatureAlgorithm::ed25519SHA256) {
        const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                              EVP_MD_CTX_free);
        made = EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, raw(m_key)) == 1 &&
               EVP_DigestSign(context.get(), out, &size, bytesOf(digest), digest.size()) == 1;
    } else {
        const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
            EVP_PKEY_CTX_new(raw(m_key), nullptr), EVP_PKEY_CTX_free);
        const auto* hash = algorithm == SignatureAlgorithm::rsaSHA1 ? EVP_sha1() : EVP_sha256();
        made = EVP_PKEY_sign_init(context.get()) == 1 &&
               EVP_PKEY_CTX_set_signature_md(context.get(), hash) == 1 &&
               EVP_PKEY_sign(context.get(), out, &size, bytesOf(digest), digest.size()) == 1;
    }
    if (!made) throw std::runtime_error("no signature");
    bytes.resize(size);
    return bytes;
}

std::string signedMessage(std::string_view message, const Signature& signature, const PrivateKey& key) {
    const auto parsed = MailMessage::parse(message);
    const auto pair = CanonicalizationPair::parse(signature.canonicalization).value();
    const TagList tags = TagList::parse(signature.tags);
    std::optional<std::uint64_t> limit;
    if (const auto length = tags.value("l")) limit = static_cast<std::uint64_t>(decimal(*length).value_or(0));
    TextList names;
    for (std::string_view rest = tags.value("h").value_or(""); !rest.empty();) {
        names.push_back(trimmed(takePiece(rest, ':')));
    }
    BodyHashes hashes(parsed.body().value_or(""));
    const auto algorithm = signature.algorithm.value_or(key.isRSA() ? SignatureAlgorithm::rsaSHA256
                                                                    : SignatureAlgorithm::ed25519SHA256);
    const HashAlgorithm hash = hashAlgorithm(algorithm);
    const std::string unsignedField = signature.fieldName + ": " + signature.tags +
                                      "; a=" + nameOf(algorithm) + ";\r\n c=" + signature.canonicalization +
                                      "; bh=" + encodedBase64(hashes.hash(pair.body, hash, limit).digest) +
                                      "; b=";
    HashingSink data(hash);
    addSignedHeaderData(parsed, names, HeaderField{unsignedField, signature.fieldName}, pair.header, data);
    return unsignedField + encodedBase64(key.signature(algorithm, data.digest())) + "\r\n" +
           std::string(message);
}

std::string keyRecord(const PrivateKey& key) {
    return std::string("v=DKIM1; k=") + (key.isRSA() ? "rsa" : "ed25519") +
           "; p=" + encodedBase64(key.publicKey());
}

const PrivateKey& rsaKey() {
    static const PrivateKey key = PrivateKey::rsa(1024);
    return key;
}

const PrivateKey& ed25519Key() {
    static const PrivateKey key = PrivateKey::ed25519();
    return key;
}

StaticResolver::Answers published(const PrivateKey& key) {
    return {{"key._domainkey.example.org|TXT", DNSAnswer::records({keyRecord(key)})}};
}

std::string replaced(std::string text, std::string_view what, std::string_view with) {
    const auto at = text.find(what);
    if (at == std::string::npos) throw std::runtime_error("missing: " + std::string(what));
    return text.replace(at, what.size(), with);
}

}  // namespace quillmark::test
