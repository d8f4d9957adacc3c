#include "Wording/Signatures.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "QuillmarkKit/Support/Text.h"
#include "Wording/Details.h"
#include "Wording/Quoted.h"

namespace quillmark {

using Status = DKIMResult::Status;

std::string label(Status status, const Reader& reader) {
    switch (status) {
        case Status::pass:
            return reader.translate("Valid");
        case Status::bodyChanged:
            return reader.translate("Body changed");
        case Status::headersChanged:
            return reader.translate("Headers changed");
        case Status::keyNotPublished:
            return reader.translate("Key no longer published");
        case Status::keyRevoked:
            return reader.translate("Key withdrawn");
        case Status::keyUnusable:
            return reader.translate("Key can’t be used");
        case Status::keyTooWeak:
            return reader.translate("Key too weak");
        case Status::lookupFailed:
            return reader.translate("Lookup failed");
        case Status::unsupportedAlgorithm:
            return reader.translate("Unsupported algorithm");
        case Status::malformed:
            break;
    }
    return reader.translate("Not a valid signature");
}

Tone tone(const DKIMResult& result) {
    switch (result.status) {
        case Status::pass:
            return result.bodyChecked ? Tone::good : Tone::caution;
        case Status::bodyChanged:
        case Status::headersChanged:
        case Status::keyTooWeak:
        case Status::malformed:
            return Tone::bad;
        default:
            return Tone::unknown;
    }
}

namespace {

std::string keyName(const DKIMResult& result) { return result.selector + "._domainkey." + result.domain; }

}  // namespace

std::optional<NameFault> keyFault(const DKIMResult& result) {
    if (result.status != Status::keyNotPublished) return std::nullopt;
    return nameFault(keyName(result));
}

std::optional<std::string> otherRecordVersion(const DKIMResult& result) {
    if (result.status != Status::keyUnusable || !result.detail.starts_with("v=")) return std::nullopt;
    return result.detail.substr(2);
}

std::string otherRecordSentence(std::string_view domain, std::string_view version, const Reader& reader) {
    const std::string owner = quotedDomain(domain);
    if (equalsIgnoringCase(version, "DMARC1")) {
        return reader.translate(
            "At the name of %1’s key stands a DMARC record, no key. The key may have been withdrawn.",
            {owner});
    }
    if (equalsIgnoringCase(version, "spf1")) {
        return reader.translate(
            "At the name of %1’s key stands an SPF record, no key. The key may have been withdrawn.",
            {owner});
    }
    return reader.translate(
        "At the name of %1’s key stands a record of another kind (“%2”), no key. The key may have been "
        "withdrawn.",
        {owner, quoted(version)});
}

namespace {

std::string passSentence(const DKIMResult& result, const Reader& reader) {
    const std::string domain = quotedDomain(result.domain);
    if (!result.bodyChecked) {
        return reader.translate(
            "%1 signed these header lines and they haven’t changed. The body wasn’t there to check.",
            {domain});
    }
    if (result.unsignedBodyBytes.value_or(0) > 0) {
        return reader.translate(
            "%1 signed this message, and neither the signed lines nor the signed part of the body changed "
            "since.",
            {domain});
    }
    return reader.translate(
        "%1 signed this message, and neither the signed lines nor the body changed since.", {domain});
}

}  // namespace

std::string sentence(const DKIMResult& result, const Reader& reader) {
    const std::string domain = quotedDomain(result.domain), detail = detailText(result.detail, reader);
    switch (result.status) {
        case Status::pass:
            return passSentence(result, reader);
        case Status::bodyChanged:
            if (!result.detail.empty()) {  // a length limit beyond the body's end
                return reader.translate(
                    "%1 says it signed more body than this message has. Part of the body is missing.",
                    {domain});
            }
            return reader.translate(
                "The body isn’t the one %1 signed. Mailing lists and virus scanners often add lines; so do "
                "forgers.",
                {domain});
        case Status::headersChanged:
            return reader.translate(
                "The signed header lines, or the signature itself, changed after %1 signed, or %1 never "
                "signed them. Mailing lists and filters often change the Subject; so do forgers.",
                {domain});
        case Status::keyNotPublished:
            if (const auto fault = keyFault(result)) {
                const std::string name = quotedWord(keyName(result));
                if (*fault == NameFault::unfit) {
                    return reader.translate(
                        "The key would stand at %1, which is no name that DNS can hold. So nobody could be "
                        "asked for it, and the signature can be neither confirmed nor refuted.",
                        {name});
                }
                return reader.translate(
                    "The key would stand at %1, which is no public name. So nobody was asked for it, and the "
                    "signature can be neither confirmed nor refuted.",
                    {name});
            }
            return reader.translate(
                "%1 doesn’t publish this key now. Senders often withdraw keys after some months, so an old "
                "message can no longer be checked.",
                {domain});
        case Status::keyRevoked:
            return reader.translate(
                "%1 has withdrawn this key on purpose. A signature made with it proves nothing any more.",
                {domain});
        case Status::keyUnusable:
            if (const auto version = otherRecordVersion(result))
                return otherRecordSentence(result.domain, *version, reader);
            return reader.translate("%1’s published key can’t be used for this signature: %2.",
                                    {domain, detail});
        case Status::keyTooWeak:
            return reader.translateCount(
                "The signature fits, but the key is so short (%n bit) that others could have made it.",
                "The signature fits, but the key is so short (%n bits) that others could have made it.",
                result.keyBits.value_or(0));
        case Status::lookupFailed:
            return reader.translate("The key couldn’t be asked for.");
        case Status::unsupportedAlgorithm:
            return reader.translate("The signature uses a method that Quillmark doesn’t know (%1).",
                                    {quotedWord(result.algorithm)});
        case Status::malformed:
            break;
    }
    return reader.translate("This isn’t a valid signature: %1.", {detail});
}

std::optional<Remark> unsignedBodyRemark(const DKIMResult& result, const Reader& reader) {
    const std::int64_t rest = result.unsignedBodyBytes.value_or(0), covered = result.bodyLength.value_or(0);
    if (rest <= 0) return std::nullopt;
    if (covered <= 0) {
        return Remark{
            Tone::caution,
            reader.translateCount(
                "The signature covers nothing of the body. Its only byte could be anyone’s.",
                "The signature covers nothing of the body. All of its %n bytes could be anyone’s.", rest)};
    }
    const auto share = static_cast<int>(100.0 * static_cast<double>(covered) /
                                        (static_cast<double>(covered) + static_cast<double>(rest)));
    return Remark{Tone::caution,
                  reader.translateCount("The signature covers the body only up to byte %1 (%2%). The %n byte "
                                        "after it could have been added by anyone.",
                                        "The signature covers the body only up to byte %1 (%2%). The %n "
                                        "bytes after it could have been added by anyone.",
                                        rest, {reader.number(covered), reader.number(share)})};
}

std::string fieldName(std::string_view name, const Reader& reader) {
    static constexpr std::array known = {toTranslate("From"), toTranslate("Reply-To"), toTranslate("To"),
                                         toTranslate("Cc"),   toTranslate("Subject"),  toTranslate("Date")};
    for (const std::string_view each : known) {
        if (equalsIgnoringCase(name, each)) return reader.translate(each);
    }
    return std::string(name);
}

std::string fieldNames(const std::vector<std::string>& names, const Reader& reader) {
    constexpr std::size_t longest = 1'000;  // bytes
    std::string list;
    for (const std::string& each : names) {
        if (list.size() > longest) {
            reader.addTo(list, "…");
            break;
        }
        const std::string known = fieldName(each, reader);
        reader.addTo(list, known == each ? quotedWord(each) : known);
    }
    return list;
}

Coverage coverage(const DKIMResult& result, std::string_view field) {
    const bool isNamed = std::ranges::any_of(
        result.signedHeaders, [&](std::string_view name) { return equalsIgnoringCase(name, field); });
    return isNamed ? Coverage::some : Coverage::none;
}

void addCoverageRemarks(std::vector<Remark>& remarks, const DKIMResult& result,
                        const std::vector<std::string>& fields, const Reader& reader) {
    std::vector<std::string> uncovered;
    for (const std::string& field : fields) {
        if (coverage(result, field) == Coverage::none) {
            uncovered.push_back(field);
            continue;
        }
        remarks.push_back(
            {Tone::caution, reader.translate("The message has more %1 lines than the signature covers; the "
                                             "one that is shown may have been added later.",
                                             {fieldNames({field}, reader)})});
    }
    if (uncovered.empty()) return;
    remarks.push_back(
        {Tone::caution, reader.translateCount(
                            "Not covered by the signature: %1. This line could have been changed or added.",
                            "Not covered by the signature: %1. These lines could have been changed or added.",
                            static_cast<std::int64_t>(uncovered.size()), {fieldNames(uncovered, reader)})});
}

namespace {

Remark expiredRemark(const DKIMResult& result, const Reader& reader) {
    using namespace std::chrono;
    const std::string until = reader.time(*result.expiresAt);
    if (!result.signedAt || *result.signedAt > *result.expiresAt) {
        return {Tone::caution,
                reader.translate("The signature was meant to be valid until %1; that has passed.", {until})};
    }
    const auto validity = *result.expiresAt - *result.signedAt;
    if (validity >= days(2)) {
        return {Tone::caution,
                reader.translateCount(
                    "The signature was meant to be valid until %1, %n day after signing; that has passed.",
                    "The signature was meant to be valid until %1, %n days after signing; that has passed.",
                    duration_cast<days>(validity).count(), {until})};
    }
    if (validity >= hours(2)) {
        return {Tone::caution,
                reader.translateCount(
                    "The signature was meant to be valid until %1, %n hour after signing; that has passed.",
                    "The signature was meant to be valid until %1, %n hours after signing; that has passed.",
                    duration_cast<hours>(validity).count(), {until})};
    }
    return {Tone::caution,
            reader.translateCount(
                "The signature was meant to be valid until %1, %n minute after signing; that has passed.",
                "The signature was meant to be valid until %1, %n minutes after signing; that has passed.",
                duration_cast<minutes>(validity).count(), {until})};
}

/// What matters of a signature that fits: how much it says.
void addReservations(std::vector<Remark>& remarks, const DKIMResult& result, const Reader& reader) {
    if (auto remark = unsignedBodyRemark(result, reader)) remarks.push_back(std::move(*remark));
    addCoverageRemarks(remarks, result, result.unsignedImportant, reader);
    if (equalsIgnoringCase(result.algorithm, "rsa-sha1")) {
        remarks.push_back(
            {Tone::caution,
             reader.translate("The signature uses SHA-1, an old method that is no longer considered safe.")});
    }
    if (result.testing) {
        remarks.push_back(
            {Tone::caution,
             reader.translate("%1 marks this key as being tested; it asks nobody to rely on it.",
                              {quotedDomain(result.domain)})});
    }
}

}  // namespace

std::vector<Remark> remarks(const DKIMResult& result, Date checkedAt, const Reader& reader) {
    // Clocks differ: a signature is from later than the check only when no clock can be blamed.
    constexpr std::chrono::minutes tolerance{10};
    std::vector<Remark> remarks;
    if (result.status == Status::malformed) return remarks;
    if (result.status == Status::pass) addReservations(remarks, result, reader);
    if (result.expired && result.expiresAt) remarks.push_back(expiredRemark(result, reader));
    if (result.identity && !result.identity->empty() &&
        !equalsIgnoringCase(*result.identity, "@" + result.domain)) {
        remarks.push_back({{}, reader.translate("Signed for %1.", {quotedWord(*result.identity)})});
    }
    if (result.signedAt && *result.signedAt - tolerance > checkedAt) {
        remarks.push_back(
            {Tone::caution, reader.translate("Says it was signed on %1, which is later than this check.",
                                             {reader.time(*result.signedAt)})});
    } else if (result.signedAt) {
        remarks.push_back(
            {{}, reader.translate("Says it was signed on %1.", {reader.time(*result.signedAt)})});
    }
    return remarks;
}

}  // namespace quillmark
