#include "QuillmarkKit/Checks/DKIM.h"

#include <algorithm>
#include <array>
#include <utility>

#include "QuillmarkKit/Checks/DKIMKeys.h"
#include "QuillmarkKit/Checks/UncheckedSignature.h"
#include "QuillmarkKit/Mail/TagList.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

using Status = DKIMResult::Status;

/// A hostile message can have sixty signatures that each cover a field as large as itself. No server accepts
/// a header of a tenth of this.
constexpr std::size_t mostSignedHeaderBytes = 16'000'000;

/// Seconds since 1970; up to 15 digits, so that milliseconds fit.
std::optional<Date> timestamp(std::optional<std::string_view> value) {
    if (!value || value->size() > 15) return std::nullopt;
    const auto seconds = decimal(*value);
    if (!seconds) return std::nullopt;
    return Date(std::chrono::seconds(*seconds));
}

TextList fieldNames(std::string_view list) {
    TextList names;
    while (!list.empty()) {
        const std::string_view piece = takePiece(list, ':');
        if (!piece.empty()) names.push_back(trimmed(piece));
    }
    return names;
}

/// The lines a reader relies on of which the message holds more than `h=` names: the rest could have been
/// added.
std::vector<std::string> uncoveredLines(const MailMessage& message, const TextList& signedNames,
                                        bool hasBodyLength) {
    std::vector<std::string> uncovered;
    for (const std::string_view name : {"From", "Subject", "Date", "To", "Cc", "Reply-To", "Content-Type"}) {
        if (name == "Content-Type" && !hasBodyLength) continue;
        const auto covered = std::ranges::count_if(
            signedNames, [&](std::string_view s) { return equalsIgnoringCase(s, name); });
        if (message.positions(name).size() > static_cast<std::size_t>(covered)) uncovered.emplace_back(name);
    }
    return uncovered;
}

/// The domain of `i=`, comparable; nothing without an "@".
std::optional<std::string> identityDomain(std::string_view identity) {
    const auto at = identity.rfind('@');
    if (at == std::string_view::npos) return std::nullopt;
    return comparableDomain(identity.substr(at + 1));
}

/// Whether a signature by this key can prove anything, whatever its algorithm allows.
bool isStrongEnough(const DKIMKeyRecord& record) {
    if (record.keyType != "rsa") return true;
    const auto key = RSAPublicKey::fromPKCS1(rsaKeyBytes(record.publicKey));
    return key && key->blockSize() * 8 > std::size_t{tooFewKeyBits};
}

/// One check in progress: each step either fills in and goes on, or ends the check.
class Check {
public:
    Check(const SignatureChecker& checker, const HeaderField& signature, SignatureChecker::Kind kind)
        : m_checker(checker),
          m_signature(signature),
          m_kind(kind),
          m_value(signature.value()),
          m_tags(TagList::parse(m_value)) {}

    DKIMResult run() {
        readTags();
        if (tagsAreSound() && valuesAreSound() && keyIsFound() && bodyFits()) verify();
        return std::move(m_result);
    }

    std::optional<UncheckedSignature> withoutKey() {
        readTags();
        if (!tagsAreSound() || !valuesAreSound() || !bodyFits() || !m_result.bodyChecked) return std::nullopt;
        if (!digestIsFound()) return std::nullopt;
        std::optional<HashAlgorithm> rsaHash;
        if (m_algorithm != SignatureAlgorithm::ed25519SHA256) rsaHash = hashAlgorithm(m_algorithm);
        return UncheckedSignature{m_result.domain,  m_result.selector, rsaHash,
                                  m_signatureBytes, *m_headerDigest,   m_result.signedAt};
    }

    SignatureCheck runAndExamine() {
        SignatureCheck check{run()};
        const bool isBodyBroken = check.result.status == Status::bodyChanged;
        const bool isHeaderBroken = check.result.status == Status::headersChanged;
        if (isBodyBroken || isHeaderBroken) {
            m_result = check.result;
            if (isBodyBroken) verify();
            check.signedLinesHold = m_result.status == Status::pass;
            if (m_result.status == Status::pass || m_result.status == Status::headersChanged)
                check.broken = broken(isHeaderBroken, check.signedLinesHold);
        }
        check.otherRecordFits = otherRecordFits(check.result);
        if (check.result.status == Status::keyNotPublished) check.versionInstead = versionInstead();
        return check;
    }

private:
    /// Ends the check; false, so that a step can return it.
    bool end(Status status, std::string detail) {
        m_result.status = status;
        m_result.detail = std::move(detail);
        return false;
    }
    bool isDKIM() const { return m_kind == SignatureChecker::Kind::dkim; }
    std::string text(const char* tag) const { return std::string(m_tags.value(tag).value_or("")); }

    void readTags();
    bool tagsAreSound();
    bool valuesAreSound();
    bool keyIsFound();
    bool keyAllowsIdentity();
    bool bodyFits();
    bool digestIsFound();
    void verify();
    std::optional<BrokenSignature> broken(bool bodyHolds, bool headerHolds) const;
    std::optional<bool> otherRecordFits(const DKIMResult& result);
    std::optional<std::string> versionInstead() const;

    const SignatureChecker& m_checker;
    const HeaderField& m_signature;
    const SignatureChecker::Kind m_kind;
    const std::string m_value;
    const TagList m_tags;  // views into m_value
    DKIMResult m_result = {};

    // Known once the steps that find them have passed.
    SignatureAlgorithm m_algorithm = SignatureAlgorithm::rsaSHA256;
    CanonicalizationPair m_canonicalization = {};
    std::string m_bodyHash = {}, m_signatureBytes = {};
    DKIMKeyRecord m_key = {};
    DNSAnswer m_keyAnswer = {};
    std::optional<std::string> m_headerDigest = {};
};

void Check::readTags() {
    m_result.domain = text("d");
    m_result.selector = text("s");
    m_result.algorithm = text("a");
    if (const auto canonicalization = m_tags.value("c")) m_result.canonicalization = *canonicalization;
    m_result.signedHeaders = fieldNames(m_tags.value("h").value_or(""));
    if (isDKIM()) {
        if (const auto identity = m_tags.value("i")) m_result.identity = *identity;
    }
    m_result.signedAt = timestamp(m_tags.value("t"));
    m_result.expiresAt = timestamp(m_tags.value("x"));
    m_result.expired = m_result.expiresAt && *m_result.expiresAt < m_checker.now;
    m_result.unsignedImportant =
        uncoveredLines(m_checker.message, m_result.signedHeaders, m_tags.value("l").has_value());
}

bool Check::tagsAreSound() {
    if (m_tags.duplicateTag) return end(Status::malformed, "tag " + *m_tags.duplicateTag + "= appears twice");
    if (isDKIM()) {
        const auto version = m_tags.value("v");
        if (!version) return end(Status::malformed, "no v= tag");
        if (*version != "1") return end(Status::malformed, "v=" + std::string(*version));
    }
    for (const char* tag : {"a", "b", "bh", "d", "h", "s"}) {
        if (!m_tags.value(tag)) return end(Status::malformed, "no " + std::string(tag) + "= tag");
    }
    if (m_result.domain.empty() || m_result.selector.empty()) return end(Status::malformed, "empty d= or s=");
    const bool signsFrom = std::ranges::any_of(
        m_result.signedHeaders, [](std::string_view name) { return equalsIgnoringCase(name, "from"); });
    if (!signsFrom) return end(Status::malformed, "From isn't signed (h=)");
    return true;
}

bool Check::valuesAreSound() {
    const auto algorithm = signatureAlgorithm(m_result.algorithm);
    if (!algorithm) return end(Status::unsupportedAlgorithm, "a=" + m_result.algorithm);
    m_algorithm = *algorithm;
    const auto canonicalization = CanonicalizationPair::parse(m_tags.value("c"));
    if (!canonicalization) return end(Status::malformed, "c=" + m_result.canonicalization);
    m_canonicalization = *canonicalization;
    auto bodyHash = decodedBase64(*m_tags.compactValue("bh"));
    auto signature = decodedBase64(*m_tags.compactValue("b"));
    if (!bodyHash || !signature) return end(Status::malformed, "b= or bh= is not base64");
    m_bodyHash = std::move(*bodyHash);
    m_signatureBytes = std::move(*signature);
    if (m_result.identity) {
        const auto domain = identityDomain(*m_result.identity);
        const std::string signer = comparableDomain(m_result.domain);
        if (!domain || (*domain != signer && !domain->ends_with("." + signer))) {
            return end(Status::malformed, "i= is outside d=");
        }
    }
    if (const auto length = m_tags.value("l")) {
        m_result.bodyLength = decimal(*length);
        if (!m_result.bodyLength) return end(Status::malformed, "l=" + std::string(*length));
    }
    return true;
}

bool Check::keyIsFound() {
    const std::string name = m_result.selector + "._domainkey." + m_result.domain;
    try {
        m_keyAnswer = m_checker.resolver.lookup(name, DNSRecordType::txt, {m_checker.stop});
    } catch (const DNSLookupError& error) {
        return end(Status::lookupFailed, error.what());
    }
    auto record = DKIMKeyRecord::firstOf(m_keyAnswer.data());
    if (!record) return end(Status::keyNotPublished, name + ": no key");
    if (const auto* problem = std::get_if<DKIMKeyRecord::Problem>(&*record)) {
        const auto* unusable = std::get_if<DKIMKeyRecord::Unusable>(problem);
        return unusable ? end(Status::keyUnusable, unusable->message) : end(Status::keyRevoked, "");
    }
    m_key = std::move(std::get<DKIMKeyRecord>(*record));
    m_result.testing = m_key.testing;
    return keyAllowsIdentity();
}

bool Check::keyAllowsIdentity() {
    if (m_key.strict && m_result.identity &&
        identityDomain(*m_result.identity) != comparableDomain(m_result.domain)) {
        return end(Status::malformed, "the key requires i= to be exactly d= (t=s)");
    }
    return true;
}

bool Check::bodyFits() {
    if (!m_checker.bodyHashes) return true;  // headers alone: the signature can still hold for them
    std::optional<std::uint64_t> limit;
    if (m_result.bodyLength) limit = static_cast<std::uint64_t>(*m_result.bodyLength);
    const auto& hash = m_checker.bodyHashes->hash(m_canonicalization.body, hashAlgorithm(m_algorithm), limit,
                                                  m_checker.stop);
    if (m_checker.stop.stop_requested())
        return end(Status::lookupFailed, "stopped");  // the hash is of a part
    m_result.bodyChecked = true;
    if (limit && *limit > hash.canonicalLength) {
        return end(Status::bodyChanged, "l=" + std::to_string(*limit) + " is longer than the body");
    }
    if (limit) m_result.unsignedBodyBytes = static_cast<std::int64_t>(hash.canonicalLength - *limit);
    if (hash.digest != m_bodyHash) return end(Status::bodyChanged, "");
    return true;
}

bool Check::digestIsFound() {
    if (m_headerDigest) return true;
    HashingSink data(hashAlgorithm(m_algorithm));
    if (!addSignedHeaderData(m_checker.message, m_result.signedHeaders, m_signature,
                             m_canonicalization.header, data, mostSignedHeaderBytes)) {
        return end(Status::malformed, "more than 16 MB of header fields are signed");
    }
    m_headerDigest = data.digest();
    return true;
}

void Check::verify() {
    if (!digestIsFound()) return;
    const auto outcome =
        verifySignature(m_signatureBytes, *m_headerDigest, m_algorithm, m_key, m_checker.keys);
    if (const auto* error = std::get_if<KeyError>(&outcome)) {
        const bool didNotVerify = error->kind == KeyError::Kind::didNotVerify;
        end(didNotVerify ? Status::headersChanged : Status::keyUnusable,
            didNotVerify ? "" : error->description);
        return;
    }
    m_result.keyBits = std::get<Verified>(outcome).keyBits;
    if (m_result.keyBits && *m_result.keyBits <= tooFewKeyBits) {
        end(Status::keyTooWeak, std::to_string(*m_result.keyBits) + "-bit RSA key");
        return;
    }
    end(Status::pass, "");
}

/// Nothing without a body, or when the key is too weak to prove anything.
std::optional<BrokenSignature> Check::broken(bool bodyHolds, bool headerHolds) const {
    if (!m_result.bodyChecked || !isStrongEnough(m_key)) return std::nullopt;
    BrokenSignature broken{.field = m_signature,
                           .kind = m_kind,
                           .domain = m_result.domain,
                           .signedHeaders = m_result.signedHeaders,
                           .copies = text("z"),
                           .canonicalization = m_canonicalization,
                           .algorithm = m_algorithm,
                           .bodyHash = m_bodyHash,
                           .signature = m_signatureBytes,
                           .key = m_key,
                           .keyAnswer = m_keyAnswer,
                           .bodyHolds = bodyHolds,
                           .headerHolds = headerHolds,
                           .signedDigest = signedDigest(m_signatureBytes, m_algorithm, m_key)};
    if (m_result.bodyLength) broken.bodyLength = static_cast<std::uint64_t>(*m_result.bodyLength);
    return broken;
}

std::optional<bool> Check::otherRecordFits(const DKIMResult& result) {
    if (result.status != Status::headersChanged && result.status != Status::keyUnusable &&
        result.status != Status::keyTooWeak) {
        return std::nullopt;
    }
    const auto others = DKIMKeyRecord::othersOf(m_keyAnswer.data());
    if (others.empty()) return std::nullopt;
    return std::ranges::any_of(others, [&](const DKIMKeyRecord& other) {
        m_result = result;
        m_key = other;
        if (keyAllowsIdentity() && bodyFits()) verify();
        return m_result.status == Status::pass;
    });
}

std::optional<std::string> Check::versionInstead() const {
    for (const std::string& text : m_keyAnswer.data()) {
        const TagList tags = TagList::parse(text);
        std::string_view version = tags.value("v").value_or("");
        version = takeWord(version, " \t");
        if (!version.empty() && version != "DKIM1") return std::string(version);
    }
    return std::nullopt;
}

}  // namespace

DKIMResult SignatureChecker::check(const HeaderField& signature, Kind kind) const {
    return Check(*this, signature, kind).run();
}

std::optional<UncheckedSignature> withoutKey(const SignatureChecker& checker, const HeaderField& signature) {
    return Check(checker, signature, SignatureKind::dkim).withoutKey();
}

SignatureCheck SignatureChecker::examine(const HeaderField& signature, Kind kind) const {
    return Check(*this, signature, kind).runAndExamine();
}

}  // namespace quillmark
