#include "QuillmarkKit/Checks/GoneKeys.h"

#include <optional>
#include <utility>

namespace quillmark {

namespace {

/// What the signature comes to when DNS has this key.
SignatureCheck checkedWith(const KnownKey& key, const SignatureChecker& checker, const HeaderField& field) {
    StaticResolver one(
        {{StaticResolver::key(key.name, DNSRecordType::txt), DNSAnswer::records({key.record})}});
    InternationalResolver resolver(one);
    return SignatureChecker{checker.message, checker.bodyHashes, resolver, checker.now, checker.stop}.examine(
        field);
}

std::optional<GoneKey> goneKey(std::size_t place, const SignatureChecker& checker, const HeaderField& field,
                               std::vector<KnownKey> keys) {
    std::optional<GoneKey> changed;
    for (KnownKey& key : keys) {
        SignatureCheck check = checkedWith(key, checker, field);
        if (check.result.status == DKIMResult::Status::pass)
            return GoneKey{place, std::move(key), GoneKey::Fit::holds, std::move(check.result)};
        const bool isOfThisKey = check.signedLinesHold || (check.broken && check.broken->signedDigest);
        if (isOfThisKey && !key.file && !changed)
            changed = GoneKey{place, std::move(key), GoneKey::Fit::changed, std::move(check.result)};
    }
    return changed;
}

}  // namespace

std::vector<GoneKey> goneKeys(const SignatureChecker& checker, const std::vector<DKIMResult>& results,
                              KeyMemory& memory) {
    std::vector<GoneKey> found;
    const auto positions = checker.message.positions("DKIM-Signature");
    for (std::size_t i = 0; i < results.size(); ++i) {
        if (results[i].status != DKIMResult::Status::keyNotPublished) continue;
        auto keys = memory.keysOf(results[i].selector + "._domainkey." + results[i].domain);
        if (auto one = goneKey(i, checker, checker.message.headers()[positions[i]], std::move(keys)))
            found.push_back(std::move(*one));
    }
    return found;
}

}  // namespace quillmark
