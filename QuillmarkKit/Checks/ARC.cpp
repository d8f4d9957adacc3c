#include "QuillmarkKit/Checks/ARC.h"

#include <algorithm>
#include <map>
#include <utility>

#include "QuillmarkKit/Checks/DKIMKeys.h"
#include "QuillmarkKit/Mail/TagList.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

using Reason = ARCFinding::Reason;
using Status = ARCFinding::Status;

constexpr std::string_view resultsName = "ARC-Authentication-Results";

/// The three kinds of fields, and where each stands in its set.
constexpr std::pair<std::string_view, const HeaderField * ARCSet::*> kinds[] = {
    {resultsName, &ARCSet::results},
    {"ARC-Message-Signature", &ARCSet::messageSignature},
    {"ARC-Seal", &ARCSet::seal},
};

/// The first piece of a results field: the others are no tags.
std::string instancePiece(std::string_view value) {
    const std::string text = withoutComments(value);
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::string_view piece = trimmed(takePiece(rest, ';'));
        if (!piece.empty()) return std::string(piece);
    }
    return {};
}

void addLine(const HeaderField* field, ByteSink& sink) {
    if (!field) return;
    canonicalizeHeader(field->raw, Canonicalization::relaxed, sink);
    sink.add("\r\n");
}

}  // namespace

std::optional<int> arcInstance(const HeaderField& field) {
    constexpr std::size_t mostDigits = 4;
    const bool isResults = equalsIgnoringCase(field.name, resultsName);
    const std::string text = isResults ? instancePiece(field.value()) : field.value();
    const auto value = TagList::parse(text).value("i");
    if (!value || value->size() > mostDigits) return std::nullopt;
    const auto number = decimal(*value);
    if (!number) return std::nullopt;
    return static_cast<int>(*number);
}

std::optional<std::vector<ARCSet>> arcSets(const MailMessage& message, StrayARCFields stray) {
    std::vector<ARCSet> sets;
    for (const auto& [name, member] : kinds) {
        for (const auto position : message.positions(name)) {
            const HeaderField& field = message.headers()[position];
            const int instance = arcInstance(field).value_or(0);
            if (instance < 1 || instance > mostARCSets) {
                if (stray == StrayARCFields::refuse) return std::nullopt;
                continue;
            }
            const auto index = static_cast<std::size_t>(instance - 1);
            if (sets.size() <= index) sets.resize(index + 1);
            if (!(sets[index].*member)) sets[index].*member = &field;
        }
    }
    return sets;
}

std::vector<std::string> arcSealDigests(std::span<const ARCSet> sets, HashAlgorithm algorithm) {
    std::vector<std::string> digests;
    HashingSink earlier(algorithm);  // all fields before the seal
    for (const ARCSet& set : sets) {
        addLine(set.results, earlier);
        addLine(set.messageSignature, earlier);
        HashingSink sealed = earlier;
        if (set.seal)
            canonicalizeHeader(withEmptiedSignature(set.seal->raw), Canonicalization::relaxed, sealed);
        digests.push_back(sealed.digest());
        addLine(set.seal, earlier);
    }
    return digests;
}

namespace {

/// What a seal says, without the fields it seals.
class Seal {
public:
    explicit Seal(const HeaderField& field) : m_value(field.value()), m_tags(TagList::parse(m_value)) {}
    Seal(const Seal&) = delete;
    Seal& operator=(const Seal&) = delete;

    std::string text(std::string_view tag) const { return std::string(m_tags.value(tag).value_or("")); }

    /// What is needed to verify it; nothing when it lacks something or has a tag twice.
    struct Parts {
        SignatureAlgorithm algorithm;
        std::string signature;
        std::string keyName;
    };
    std::optional<Parts> parts() const {
        const auto algorithm = signatureAlgorithm(text("a"));
        auto signature = decodedBase64(m_tags.compactValue("b").value_or(""));
        const std::string domain = text("d"), selector = text("s");
        if (m_tags.duplicateTag || !algorithm || !signature || domain.empty() || selector.empty())
            return std::nullopt;
        return Parts{*algorithm, std::move(*signature), selector + "._domainkey." + domain};
    }

private:
    const std::string m_value;
    const TagList m_tags;  // views into m_value
};

/// Whether the chain itself says that it is whole, as far as the seal of an instance goes.
std::optional<ARCFinding> chainFault(int instance, const std::string& chain) {
    const std::string detail = "ARC-Seal i=" + std::to_string(instance) + " has cv=" + chain;
    if (chain == "fail") return ARCFinding{{Status::Fail{Reason::sealSaysFailed}}, detail, {}};
    if (chain == (instance == 1 ? "none" : "pass")) return std::nullopt;
    return ARCFinding{{Status::Fail{Reason::brokenStructure}}, detail, {}};
}

/// One chain whose structure is right.
class Validation {
public:
    Validation(const SignatureChecker& checker, std::vector<ARCSet> sets)
        : m_checker(checker), m_sets(std::move(sets)) {}

    ARCFinding run() {
        for (std::size_t i = 0; i < m_sets.size(); ++i) {
            if (auto fault = chainFault(static_cast<int>(i) + 1, Seal(*m_sets[i].seal).text("cv")))
                return *fault;
        }
        buildHops();
        if (messageSignatureHolds() && sealsHold()) m_finding.status.value = Status::Pass{};
        return std::move(m_finding);
    }

private:
    bool fail(Reason reason, std::string detail) {
        m_finding.status.value = Status::Fail{reason};
        m_finding.detail = std::move(detail);
        return false;
    }
    bool endUnknown() {
        m_finding.status.value = Status::Unknown{};
        return false;
    }

    void buildHops();
    bool messageSignatureHolds();
    bool sealsHold();
    bool sealHolds(std::size_t index);

    const SignatureChecker& m_checker;
    const std::vector<ARCSet> m_sets;
    std::map<HashAlgorithm, std::vector<std::string>> m_sealDigests = {};  // worked out when first asked for
    ARCFinding m_finding = {};
};

void Validation::buildHops() {
    for (const ARCSet& set : m_sets) {
        ARCFinding::Hop hop;
        hop.instance = static_cast<int>(m_finding.hops.size()) + 1;
        hop.sealer = Seal(*set.seal).text("d");
        hop.messageSignature = m_checker.check(*set.messageSignature, SignatureChecker::Kind::arc);
        hop.sawResults = AuthResults::parse(set.results->value(), AuthResults::Kind::arc);
        m_finding.hops.push_back(std::move(hop));
    }
}

bool Validation::messageSignatureHolds() {
    const auto& newest = m_finding.hops.back();
    if (newest.messageSignature.status == DKIMResult::Status::pass) return true;
    if (newest.messageSignature.status == DKIMResult::Status::lookupFailed) return endUnknown();
    return fail(Reason::messageSignatureFailed,
                "ARC-Message-Signature i=" + std::to_string(newest.instance) + " didn't verify");
}

bool Validation::sealsHold() {
    for (std::size_t i = 0; i < m_sets.size(); ++i) {
        auto& hop = m_finding.hops[i];
        try {
            hop.sealValid = sealHolds(i);
        } catch (const DNSLookupError&) {
            return endUnknown();
        }
        if (!hop.sealValid) {
            return fail(Reason::sealFailed, "ARC-Seal i=" + std::to_string(hop.instance) + " didn't verify");
        }
    }
    return true;
}

/// Throws `DNSLookupError` when the key cannot be asked for.
bool Validation::sealHolds(std::size_t index) {
    const auto seal = Seal(*m_sets[index].seal).parts();
    if (!seal) return false;
    const auto answer = m_checker.resolver.lookup(seal->keyName, DNSRecordType::txt, {m_checker.stop});
    const auto record = DKIMKeyRecord::firstOf(answer.data());
    const auto* key = record ? std::get_if<DKIMKeyRecord>(&*record) : nullptr;
    if (!key) return false;
    const HashAlgorithm algorithm = hashAlgorithm(seal->algorithm);
    auto& digests = m_sealDigests[algorithm];
    if (digests.empty()) digests = arcSealDigests(m_sets, algorithm);
    const auto outcome =
        verifySignature(seal->signature, digests[index], seal->algorithm, *key, m_checker.keys);
    const auto* verified = std::get_if<Verified>(&outcome);
    return verified && (!verified->keyBits || *verified->keyBits > tooFewKeyBits);
}

}  // namespace

ARCFinding ARCValidator::validate() const {
    auto sets = arcSets(checker.message, StrayARCFields::refuse);
    if (sets && sets->empty()) return {};
    if (!sets || !std::ranges::all_of(*sets, &ARCSet::isComplete)) {
        return {{Status::Fail{Reason::brokenStructure}}, "ARC sets are missing or out of order", {}};
    }
    return Validation(checker, std::move(*sets)).run();
}

}  // namespace quillmark
