#include "tests/TestSigner.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <stdexcept>

#include "QuillmarkKit/Canonicalization.h"
#include "QuillmarkKit/Message.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/TagList.h"

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

PrivateKey PrivateKey::rsa(unsigned bits) {
    PrivateKey key;
    const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
        EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr), EVP_PKEY_CTX_free);
    EVP_PKEY* made = nullptr;
    if (EVP_PKEY_keygen_init(context.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), static_cast<int>(bits)) != 1 ||
        EVP_PKEY_keygen(context.get(), &made) != 1) {
        throw std::runtime_error("no RSA key");
    }
    key.m_key = std::shared_ptr<void>(made, [](void* old) { EVP_PKEY_free(static_cast<EVP_PKEY*>(old)); });
    return key;
}

PrivateKey PrivateKey::ed25519() {
    PrivateKey key;
    key.m_key = std::shared_ptr<void>(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"),
                                      [](void* old) { EVP_PKEY_free(static_cast<EVP_PKEY*>(old)); });
    return key;
}

PrivateKey PrivateKey::p256() {
    PrivateKey key;
    key.m_key = std::shared_ptr<void>(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"),
                                      [](void* old) { EVP_PKEY_free(static_cast<EVP_PKEY*>(old)); });
    return key;
}

std::string PrivateKey::publicKey() const {
    if (EVP_PKEY_get_base_id(raw(m_key)) == EVP_PKEY_RSA) return der(i2d_PUBKEY, raw(m_key));
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
    std::vector<std::string> names;
    for (std::string_view rest = tags.value("h").value_or(""); !rest.empty();) {
        names.emplace_back(trimmed(takePiece(rest, ':')));
    }
    BodyHashes hashes(parsed.body().value_or(""));
    const HashAlgorithm hash = hashAlgorithm(signature.algorithm);
    const std::string unsignedField =
        signature.fieldName + ": " + signature.tags + "; a=" + nameOf(signature.algorithm) +
        ";\r\n c=" + signature.canonicalization +
        "; bh=" + encodedBase64(hashes.hash(pair.body, hash, limit).digest) + "; b=";
    HashingSink data(hash);
    addSignedHeaderData(parsed, names, HeaderField{unsignedField, signature.fieldName}, pair.header, data);
    return unsignedField + encodedBase64(key.signature(signature.algorithm, data.digest())) + "\r\n" +
           std::string(message);
}

std::string keyRecord(const PrivateKey& key, std::string_view type) {
    return "v=DKIM1; k=" + std::string(type) + "; p=" + encodedBase64(key.publicKey());
}

}  // namespace quillmark::test
