#include "QuillmarkKit/Checks/DKIMKeys.h"

#include <algorithm>
#include <utility>

#include "QuillmarkKit/Mail/TagList.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/DER.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::string_view keyTypeOf(SignatureAlgorithm algorithm) {
    return algorithm == SignatureAlgorithm::ed25519SHA256 ? "ed25519" : "rsa";
}

constexpr std::string_view hashNameOf(SignatureAlgorithm algorithm) {
    return algorithm == SignatureAlgorithm::rsaSHA1 ? "sha1" : "sha256";
}

/// The pieces between colons, without empty ones, trimmed of blanks.
std::vector<std::string_view> colonList(std::string_view value) {
    std::vector<std::string_view> list;
    while (!value.empty()) {
        const std::string_view piece = takePiece(value, ':');
        if (!piece.empty()) list.push_back(trimmedBlanks(piece));
    }
    return list;
}

std::optional<std::vector<std::string>> loweredColonList(std::optional<std::string_view> value) {
    if (!value) return std::nullopt;
    std::vector<std::string> list;
    for (const auto piece : colonList(*value)) list.push_back(unicodeLowered(piece));
    return list;
}

std::variant<Verified, KeyError> verifyRSA(std::string_view signature, std::string_view digest,
                                           SignatureAlgorithm algorithm, const DKIMKeyRecord& record,
                                           ParsedKeys* keys) {
    const auto key =
        keys ? keys->rsa(record.publicKey) : RSAPublicKey::fromPKCS1(rsaKeyBytes(record.publicKey));
    if (!key) return KeyError{KeyError::Kind::unusableKey, "the key's bytes are not a key"};
    if (!key->verify(hashAlgorithm(algorithm), digest, signature)) {
        return KeyError{KeyError::Kind::didNotVerify, "the signature does not verify"};
    }
    return Verified{static_cast<int>(key->blockSize() * 8)};
}

std::variant<Verified, KeyError> verifyEd25519Signature(std::string_view signature, std::string_view digest,
                                                        const DKIMKeyRecord& record) {
    const auto verified = verifyEd25519(record.publicKey, digest, signature);
    if (!verified) return KeyError{KeyError::Kind::unusableKey, "the key's bytes are not a key"};
    if (!*verified) return KeyError{KeyError::Kind::didNotVerify, "the signature does not verify"};
    return Verified{};
}

}  // namespace

std::optional<SignatureAlgorithm> signatureAlgorithm(std::string_view name) {
    for (const auto algorithm :
         {SignatureAlgorithm::rsaSHA256, SignatureAlgorithm::rsaSHA1, SignatureAlgorithm::ed25519SHA256}) {
        if (name == nameOf(algorithm)) return algorithm;
    }
    return std::nullopt;
}

HashAlgorithm hashAlgorithm(SignatureAlgorithm algorithm) {
    return algorithm == SignatureAlgorithm::rsaSHA1 ? HashAlgorithm::sha1 : HashAlgorithm::sha256;
}

namespace {

std::variant<DKIMKeyRecord, DKIMKeyRecord::Problem> keyRecord(const TagList& tags) {
    using Unusable = DKIMKeyRecord::Unusable;
    if (const auto version = tags.value("v"); version && *version != "DKIM1") {
        return Unusable{"v=" + std::string(*version)};
    }
    const auto key = tags.compactValue("p");
    if (!key) return Unusable{"no p= tag"};
    if (key->empty()) return DKIMKeyRecord::Revoked{};
    auto bytes = decodedBase64(*key);
    if (!bytes) return Unusable{"p= is not base64"};
    DKIMKeyRecord record;
    record.publicKey = std::move(*bytes);
    if (const auto type = tags.value("k")) record.keyType = unicodeLowered(*type);
    const auto flags = colonList(tags.value("t").value_or(""));
    record.testing = std::ranges::count(flags, "y") > 0;
    record.strict = std::ranges::count(flags, "s") > 0;
    record.hashAlgorithms = loweredColonList(tags.value("h"));
    record.serviceTypes = loweredColonList(tags.value("s"));
    return record;
}

/// Whether the services that a key is for (`s=`) include mail; an empty list leaves none out.
bool includeEmail(std::string_view services) {
    return services.empty() || std::ranges::any_of(colonList(services), [](std::string_view service) {
               return service == "*" || equalsIgnoringCase(service, "email");
           });
}

/// The same for a key that a signature of mail is checked with.
std::variant<DKIMKeyRecord, DKIMKeyRecord::Problem> keyRecordForEmail(const TagList& tags) {
    using Problem = DKIMKeyRecord::Problem;
    auto record = keyRecord(tags);
    const std::string_view services = tags.value("s").value_or("");
    if (std::holds_alternative<DKIMKeyRecord>(record) && !includeEmail(services))
        return Problem{DKIMKeyRecord::Unusable{"the key isn’t for email (s=" + std::string(services) + ")"}};
    return record;
}

}  // namespace

std::variant<DKIMKeyRecord, DKIMKeyRecord::Problem> DKIMKeyRecord::parse(std::string_view text) {
    return keyRecord(TagList::parse(text));
}

std::optional<std::variant<DKIMKeyRecord, DKIMKeyRecord::Problem>> DKIMKeyRecord::firstOf(
    std::span<const std::string> texts) {
    for (const std::string& text : texts) {
        const TagList tags = TagList::parse(text);
        if (!tags.value("p")) continue;
        return keyRecordForEmail(tags);
    }
    return std::nullopt;
}

std::vector<DKIMKeyRecord> DKIMKeyRecord::othersOf(std::span<const std::string> texts) {
    constexpr std::size_t mostOthers = 3;
    std::optional<std::variant<DKIMKeyRecord, Problem>> first;
    std::vector<DKIMKeyRecord> others;
    for (const std::string& text : texts) {
        const TagList tags = TagList::parse(text);
        if (!tags.value("p")) continue;
        auto record = keyRecordForEmail(tags);
        const auto* problem = std::get_if<Problem>(&record);
        if (problem && std::holds_alternative<Revoked>(*problem)) return {};
        if (!first) {
            first = std::move(record);
        } else if (!problem && record != *first && others.size() < mostOthers &&
                   std::ranges::count(others, std::get<DKIMKeyRecord>(record)) == 0) {
            others.push_back(std::move(std::get<DKIMKeyRecord>(record)));
        }
    }
    return others;
}

std::optional<RSAPublicKey> ParsedKeys::rsa(std::string_view publicKey) {
    {
        const std::lock_guard lock(m_mutex);
        if (const auto found = m_newer.find(publicKey); found != m_newer.end()) return found->second;
        if (const auto found = m_older.find(publicKey); found != m_older.end()) {
            RSAPublicKey key = found->second;
            keep(m_older.extract(found));
            return key;
        }
    }
    auto key = RSAPublicKey::fromPKCS1(rsaKeyBytes(publicKey));
    if (key && key->blockSize() * 8 <= mostBits && publicKey.size() <= longest) {
        Keys made;
        made.emplace(publicKey, *key);
        const std::lock_guard lock(m_mutex);
        keep(made.extract(made.begin()));
    }
    return key;
}

void ParsedKeys::keep(Keys::node_type key) {
    if (m_newer.size() == mostKeys / 2) m_older = std::exchange(m_newer, {});
    m_newer.insert(std::move(key));
}

std::size_t ParsedKeys::size() const {
    const std::lock_guard lock(m_mutex);
    return m_newer.size() + m_older.size();
}

std::variant<Verified, KeyError> verifySignature(std::string_view signature, std::string_view digest,
                                                 SignatureAlgorithm algorithm, const DKIMKeyRecord& record,
                                                 ParsedKeys* keys) {
    if (record.keyType != keyTypeOf(algorithm)) {
        return KeyError{KeyError::Kind::keyTypeMismatch,
                        "the key is for " + record.keyType + ", the signature uses " + nameOf(algorithm)};
    }
    if (record.hashAlgorithms && std::ranges::count(*record.hashAlgorithms, hashNameOf(algorithm)) == 0) {
        return KeyError{KeyError::Kind::hashNotAllowed,
                        "the key does not allow " + std::string(hashNameOf(algorithm))};
    }
    if (algorithm == SignatureAlgorithm::ed25519SHA256)
        return verifyEd25519Signature(signature, digest, record);
    return verifyRSA(signature, digest, algorithm, record, keys);
}

std::optional<std::string> signedDigest(std::string_view signature, SignatureAlgorithm algorithm,
                                        const DKIMKeyRecord& record) {
    if (algorithm == SignatureAlgorithm::ed25519SHA256 || record.keyType != keyTypeOf(algorithm))
        return std::nullopt;
    const auto key = RSAPublicKey::fromPKCS1(rsaKeyBytes(record.publicKey));
    if (!key) return std::nullopt;
    return key->recoverDigest(hashAlgorithm(algorithm), signature);
}

std::string_view rsaKeyBytes(std::string_view der) {
    using namespace std::string_view_literals;
    constexpr std::string_view rsaEncryption = "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x01\x01"sv;
    std::string_view outer = der;
    auto sequence = takeDER(outer, 0x30);
    if (!sequence) return der;
    const auto identifier = takeDER(*sequence, 0x30);
    if (!identifier || !identifier->starts_with(rsaEncryption)) return der;
    const auto bits = takeDER(*sequence, 0x03);
    if (!bits || bits->size() < 2 || bits->front() != '\0') return der;
    return bits->substr(1);
}

}  // namespace quillmark
