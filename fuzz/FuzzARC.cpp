// A message, a zero byte, and the answers to what the check of its ARC chain asks. Sets and seal digests are
// compared with what a plain walk over the fields gives, and a finding must agree with itself.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "QuillmarkKit/Checks/ARC.h"
#include "QuillmarkKit/Checks/Canonicalization.h"
#include "fuzz/InputResolver.h"

namespace {

using namespace quillmark;
using fuzz::require;

constexpr std::array names = {"ARC-Authentication-Results", "ARC-Message-Signature", "ARC-Seal"};
constexpr std::array members = {&ARCSet::results, &ARCSet::messageSignature, &ARCSet::seal};

/// The sets as they are defined: field by field.
struct PlainSets {
    std::vector<ARCSet> sets = {};
    bool hasStray = false;

    explicit PlainSets(const MailMessage& message) {
        for (const HeaderField& field : message.headers()) {
            for (std::size_t kind = 0; kind < names.size(); ++kind) {
                if (!equalsIgnoringCase(field.name, names[kind])) continue;
                const auto instance = static_cast<std::size_t>(arcInstance(field).value_or(0));
                if (instance < 1 || instance > mostARCSets) {
                    hasStray = true;
                    continue;
                }
                if (sets.size() < instance) sets.resize(instance);
                const HeaderField*& place = sets[instance - 1].*members[kind];
                if (!place) place = &field;
            }
        }
    }
};

bool areSame(const std::vector<ARCSet>& a, const std::vector<ARCSet>& b) {
    return std::ranges::equal(a, b, [](const ARCSet& x, const ARCSet& y) {
        return std::ranges::all_of(members, [&](auto member) { return x.*member == y.*member; });
    });
}

/// Each seal's data written out from the start.
void checkDigests(const std::vector<ARCSet>& sets) {
    const auto digests = arcSealDigests(sets, HashAlgorithm::sha256);
    require(digests.size() == sets.size());
    for (std::size_t last = 0; last < sets.size(); ++last) {
        HashingSink sink(HashAlgorithm::sha256);
        for (std::size_t i = 0; i <= last; ++i) {
            for (const auto member : members) {
                const HeaderField* field = sets[i].*member;
                if (!field) continue;
                const bool isOwnSeal = i == last && member == &ARCSet::seal;
                canonicalizeHeader(isOwnSeal ? withEmptiedSignature(field->raw) : std::string(field->raw),
                                   Canonicalization::relaxed, sink);
                if (!isOwnSeal) sink.add("\r\n");
            }
        }
        require(sink.digest() == digests[last]);
    }
}

void checkFinding(const ARCFinding& finding, const PlainSets& plain, int questions) {
    using Status = ARCFinding::Status;
    const bool isPass = std::holds_alternative<Status::Pass>(finding.status.value);
    const bool isFail = std::holds_alternative<Status::Fail>(finding.status.value);
    const bool isNone = std::holds_alternative<Status::None>(finding.status.value);
    require(isNone == (plain.sets.empty() && !plain.hasStray));
    require(isFail != finding.detail.empty());
    require(finding.hops.empty() || finding.hops.size() == plain.sets.size());
    require(static_cast<std::size_t>(questions) <= 2 * finding.hops.size());
    if (!isPass) return;
    require(std::ranges::all_of(finding.hops, &ARCFinding::Hop::sealValid));
    require(finding.hops.back().messageSignature.status == DKIMResult::Status::pass);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    const auto message = MailMessage::parse(takePiece(rest, '\0'));
    fuzz::InputResolver resolver;
    resolver.rest = rest;

    const PlainSets plain(message);
    const auto sets = arcSets(message, StrayARCFields::passOver);
    require(sets && areSame(*sets, plain.sets));
    require(arcSets(message, StrayARCFields::refuse).has_value() != plain.hasStray);
    checkDigests(*sets);

    std::optional<BodyHashes> bodyHashes;
    if (message.body()) bodyHashes.emplace(*message.body());
    const SignatureChecker checker{message, bodyHashes ? &*bodyHashes : nullptr, resolver, referenceDate};
    checkFinding(ARCValidator{checker}.validate(), plain, resolver.questions);
    return 0;
}
