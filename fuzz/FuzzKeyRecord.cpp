// Key records and the DER inside them: views stay inside, and no key is taken that must not be used.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <variant>

#include "QuillmarkKit/Checks/DKIMKeys.h"
#include "QuillmarkKit/Support/DER.h"

using namespace quillmark;

namespace {

/// Takes an INTEGER of a key that was accepted, without leading zeros: it must be positive and odd.
std::string_view takeNumber(std::string_view& der) {
    auto content = takeDER(der, 0x02);
    if (!content || content->empty() || (content->front() & 0x80) != 0) std::abort();
    content->remove_prefix(std::min(content->find_first_not_of('\0'), content->size()));
    if (content->empty() || (content->back() & 1) == 0) std::abort();
    return *content;
}

void checkKey(std::string_view bytes) {
    const std::string_view inner = rsaKeyBytes(bytes);
    if (inner.data() < bytes.data() || inner.data() + inner.size() > bytes.data() + bytes.size())
        std::abort();
    const auto key = RSAPublicKey::fromPKCS1(inner);
    if (!key) return;
    std::string_view rest = inner;
    auto numbers = takeDER(rest, 0x30);
    if (!numbers || !rest.empty()) std::abort();
    const std::string_view modulus = takeNumber(*numbers), exponent = takeNumber(*numbers);
    if (!numbers->empty() || modulus.size() != key->blockSize() || modulus.size() > 2048) std::abort();
    if (exponent.size() > 8 || exponent == "\x01") std::abort();
    if (rsaKeyBytes(rsaPublicKeyInfo(inner)) != inner) std::abort();
    // Zero opens to zero, which is no padded digest.
    const std::string digest = hash(HashAlgorithm::sha256, "x");
    if (key->verify(HashAlgorithm::sha256, digest, std::string(key->blockSize(), '\0'))) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    checkKey(text);
    const auto parsed = DKIMKeyRecord::parse(text);
    const auto* record = std::get_if<DKIMKeyRecord>(&parsed);
    if (!record) return 0;
    if (record->publicKey.empty()) std::abort();
    checkKey(record->publicKey);
    for (const auto algorithm :
         {SignatureAlgorithm::rsaSHA256, SignatureAlgorithm::rsaSHA1, SignatureAlgorithm::ed25519SHA256}) {
        const auto outcome = verifySignature("x", hash(hashAlgorithm(algorithm), "x"), algorithm, *record);
        if (std::holds_alternative<Verified>(outcome)) std::abort();
    }
    return 0;
}
