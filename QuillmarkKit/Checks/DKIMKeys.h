#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "QuillmarkKit/Support/Crypto.h"
#include "QuillmarkKit/Support/Fields.h"

namespace quillmark {

/// The signature algorithms of DKIM (RFC 6376, section 3.3; RFC 8463).
enum class SignatureAlgorithm { rsaSHA256, rsaSHA1, ed25519SHA256 };
constexpr auto namesOf(SignatureAlgorithm) {
    return enumTable<SignatureAlgorithm>(EnumStyle::word, {"rsa-sha256", "rsa-sha1", "ed25519-sha256"});
}
/// The algorithm with exactly this `a=` value.
std::optional<SignatureAlgorithm> signatureAlgorithm(std::string_view name);
HashAlgorithm hashAlgorithm(SignatureAlgorithm algorithm);

/// The public key record of a selector (RFC 6376, section 3.6.1).
struct DKIMKeyRecord {
    std::string keyType = "rsa";  ///< `k=`, lower-case
    std::string publicKey = {};   ///< `p=`, decoded bytes
    bool testing = false;         ///< `t=y`
    bool strict = false;          ///< `t=s`: the domain of `i=` must be exactly `d=`
    std::optional<std::vector<std::string>> hashAlgorithms = {};  ///< `h=`, lower-case; absent: any
    std::optional<std::vector<std::string>> serviceTypes = {};    ///< `s=`, lower-case
    bool operator==(const DKIMKeyRecord&) const = default;

    struct Revoked {  ///< an empty `p=`
        bool operator==(const Revoked&) const = default;
    };
    struct Unusable {
        std::string message = {};
        bool operator==(const Unusable&) const = default;
    };
    using Problem = std::variant<Revoked, Unusable>;

    /// Whatever its services are.
    static std::variant<DKIMKeyRecord, Problem> parse(std::string_view text);
    /// The record among the TXT texts of one name: the first that has a `p=`, unusable when its `s=` names
    /// neither "*" nor "email". Nothing when none has.
    static std::optional<std::variant<DKIMKeyRecord, Problem>> firstOf(std::span<const std::string> texts);
    /// The usable records behind that one, at most three, each once. None when any of all is revoked: then no
    /// key under this name is to be trusted.
    static std::vector<DKIMKeyRecord> othersOf(std::span<const std::string> texts);
};

/// An RSA key of at most this many bits proves nothing (RFC 8301, section 3.2).
constexpr int tooFewKeyBits = 1023;

/// Why a signature could not be verified with a key.
struct KeyError {
    enum class Kind { keyTypeMismatch, hashNotAllowed, unusableKey, didNotVerify };
    Kind kind = Kind::didNotVerify;
    std::string description = {};  ///< a short English reason
    bool operator==(const KeyError&) const = default;
};

/// A signature that verified.
struct Verified {
    std::optional<int> keyBits = {};  ///< an RSA key's block size in bits; absent for Ed25519
    bool operator==(const Verified&) const = default;
};

/// RSA keys with what their arithmetic needs, so that a key of many signatures is worked out once. They are
/// kept by their own bytes, never by a name, so none can stand for another. Safe from many threads at once.
///
/// Kept in two halves: a key that is used comes into the newer one, and when that is full, the older one is
/// dropped. Whoever sends more keys than there is room for costs what there would be to do without this.
class ParsedKeys {
public:
    /// What it holds at most: some 2 KB a key, 4 MB in all.
    static constexpr std::size_t mostKeys = 2048;
    /// Larger keys, which nobody uses for mail, aren't kept.
    static constexpr std::size_t mostBits = 4096;
    /// Nor those with more bytes than such a key has, which some are published with.
    static constexpr std::size_t longest = 1024;

    /// The key of a record's bytes; nothing where `RSAPublicKey` refuses them.
    std::optional<RSAPublicKey> rsa(std::string_view publicKey);
    /// How many it holds.
    std::size_t size() const;

private:
    using Keys = std::map<std::string, RSAPublicKey, std::less<>>;
    void keep(Keys::node_type key);

    mutable std::mutex m_mutex = {};
    Keys m_newer = {}, m_older = {};
};

/// Verifies a signature over signed header data that is given by its digest, made with
/// `hashAlgorithm(algorithm)`. (Ed25519 signs the digest itself, RFC 8463, section 3.) With `keys` the key is
/// worked out once for all.
std::variant<Verified, KeyError> verifySignature(std::string_view signature, std::string_view digest,
                                                 SignatureAlgorithm algorithm, const DKIMKeyRecord& record,
                                                 ParsedKeys* keys = nullptr);

/// The digest of the header data that an RSA signature was made over, by this key. Nothing when the key is
/// not for the algorithm, or did not make the signature as it stands.
std::optional<std::string> signedDigest(std::string_view signature, SignatureAlgorithm algorithm,
                                        const DKIMKeyRecord& record);

/// The PKCS#1 key inside a SubjectPublicKeyInfo (RFC 5280, section 4.1.2.7), or the bytes as they are when
/// they are anything else. A view into `der`.
std::string_view rsaKeyBytes(std::string_view der);

}  // namespace quillmark
