#include "QuillmarkKit/Checks/Signer.h"

#include <algorithm>
#include <string_view>

#include "QuillmarkKit/Checks/ARC.h"
#include "QuillmarkKit/Checks/DKIMKeys.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

SignatureAlgorithm algorithmOf(const SigningKey& key) {
    return key.type() == SigningKey::Type::rsa ? SignatureAlgorithm::rsaSHA256
                                               : SignatureAlgorithm::ed25519SHA256;
}

/// The record of the key's public half, as a checker reads it.
DKIMKeyRecord publicRecord(const SigningKey& key) {
    DKIMKeyRecord record;
    record.keyType = key.type() == SigningKey::Type::rsa ? "rsa" : "ed25519";
    record.publicKey = key.publicKey();
    return record;
}

/// The base64 signature of a digest. Each is verified: a damaged key would make some that nobody can.
std::string signature(const SigningKey& key, std::string_view digest) {
    const auto bytes = key.sign(digest);
    const auto outcome = verifySignature(bytes.value_or(""), digest, algorithmOf(key), publicRecord(key));
    const auto* verified = std::get_if<Verified>(&outcome);
    if (verified && verified->keyBits && *verified->keyBits <= tooFewKeyBits) {
        throw SigningError("The key has only " + std::to_string(*verified->keyBits) +
                           " bits; an RSA key needs at least 1024.");
    }
    if (!bytes || !verified) throw SigningError("The key can’t be used: what it signs doesn’t verify.");
    return encodedBase64(*bytes);
}

bool isNameCharacter(char c) { return isASCIILetter(c) || isDigit(c) || c == '-' || c == '_'; }

/// label *( "." label ), of letters, digits, "-" and "_"
void requireName(std::string_view what, std::string_view name) {
    constexpr std::size_t longestLabel = 63;  // RFC 1035, section 2.3.4
    bool isName = !name.empty() && name.back() != '.';
    for (std::string_view rest = name; !rest.empty();) {
        const std::string_view label = takePiece(rest, '.');
        isName = isName && !label.empty() && std::ranges::all_of(label, isNameCharacter);
        if (label.size() > longestLabel) {
            throw SigningError("DNS can’t hold the " + std::string(what) + " “" + std::string(name) +
                               "”: no part of a name may be longer than 63 bytes.");
        }
    }
    if (!isName) {
        throw SigningError("The " + std::string(what) + " “" + std::string(name) +
                           "” isn’t made of letters, digits, “-”, “_” and single dots.");
    }
}

/// Where the key is published.
void requireKeyName(std::string_view selector, std::string_view domain) {
    constexpr std::size_t longestName = 253;  // RFC 1035, section 2.3.4, as text
    requireName("domain", domain);
    requireName("selector", selector);
    const std::string name = std::string(selector) + "._domainkey." + std::string(domain);
    if (name.size() > longestName)
        throw SigningError("DNS can’t hold the name of the key, “" + name +
                           "”: it is longer than 253 bytes.");
}

/// Names of fields (RFC 5322, section 3.6.8) that can stand in `h=`.
void requireHeaderNames(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        const bool isName = !name.empty() && std::ranges::all_of(name, [](char c) {
            return c > ' ' && c <= '~' && c != ':' && c != ';';
        });
        if (!isName) throw SigningError("“" + name + "” can’t be the name of a signed header field.");
    }
    if (std::ranges::none_of(names, [](const std::string& n) { return equalsIgnoringCase(n, "from"); })) {
        throw SigningError("From must be among the signed header fields.");
    }
}

void requireTime(const std::optional<std::int64_t>& time) {
    constexpr std::int64_t latest = 999'999'999'999'999;  // more digits are no time to a checker
    if (time && (*time < 0 || *time > latest)) throw SigningError("The signing time is out of range.");
}

void requireResults(std::string_view results) {
    const bool fits = std::ranges::none_of(
        results, [](char c) { return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F; });
    if (!fits) throw SigningError("The results hold a line end or another control character.");
    if (trimmed(results).empty()) throw SigningError("The results are empty.");
}

void requireChain(std::string_view chain) {
    if (chain != "none" && chain != "pass" && chain != "fail") {
        throw SigningError("The chain value must be none, pass or fail, not “" + std::string(chain) + "”.");
    }
}

/// " t=…;" when there is a time.
std::string timeTag(const std::optional<std::int64_t>& time) {
    return time ? " t=" + std::to_string(*time) + ";" : "";
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ":") + name;
    return text;
}

/// A signature field whose value ends with an empty `b=`, signed.
std::string signedField(const MailMessage& message, std::string_view fieldName, const std::string& value,
                        const std::vector<std::string>& names, Canonicalization canonicalization,
                        const SigningKey& key) {
    const std::string field = std::string(fieldName) + ": " + value;
    TextList listed;
    for (const std::string& name : names) listed.push_back(name);
    HashingSink data(HashAlgorithm::sha256);
    addSignedHeaderData(message, listed, HeaderField{field, fieldName}, canonicalization, data);
    return field + signature(key, data.digest());
}

std::string bodyHash(const MailMessage& message, Canonicalization canonicalization,
                     const std::optional<std::int64_t>& limit) {
    std::optional<std::uint64_t> bytes;
    if (limit) bytes = static_cast<std::uint64_t>(*limit);
    BodyHashes hashes(message.body().value_or(""));
    return encodedBase64(hashes.hash(canonicalization, HashAlgorithm::sha256, bytes).digest);
}

/// One more than the highest instance among the seals.
int nextInstance(const MailMessage& message) {
    int highest = 0;
    for (const auto position : message.positions("ARC-Seal")) {
        highest = std::max(highest, arcInstance(message.headers()[position]).value_or(0));
    }
    if (highest >= mostARCSets) {
        throw UnsealableMessage("The message has an ARC-Seal with i=" + std::to_string(highest) +
                                "; there may be no more than 50 ARC sets.");
    }
    return highest + 1;
}

/// Those of the usual names that occur.
std::vector<std::string> arcSignedNames(const MailMessage& message) {
    std::vector<std::string> names;
    for (const char* name : {"from", "to", "subject", "date", "message-id", "dkim-signature"}) {
        if (message.first(name)) names.emplace_back(name);
    }
    if (!message.first("from")) throw UnsealableMessage("The message has no From field to sign.");
    return names;
}

}  // namespace

std::string Signer::keyRecord(const SigningKey& key) {
    const DKIMKeyRecord record = publicRecord(key);
    return "v=DKIM1; k=" + record.keyType + "; p=" + encodedBase64(record.publicKey);
}

std::string Signer::dkimSignature(const MailMessage& message, const Options& options, const SigningKey& key) {
    requireKeyName(options.selector, options.domain);
    requireHeaderNames(options.headers);
    requireTime(options.time);
    if (options.bodyLength && *options.bodyLength < 0) throw SigningError("The body length is negative.");
    const auto& [header, body] = options.canonicalization;
    std::string value = std::string("v=1; a=") + nameOf(algorithmOf(key)) + "; c=" + nameOf(header) + "/" +
                        nameOf(body) + "; d=" + options.domain + "; s=" + options.selector + ";" +
                        timeTag(options.time);
    if (options.bodyLength) value += " l=" + std::to_string(*options.bodyLength) + ";";
    value += " h=" + joined(options.headers) + "; bh=" + bodyHash(message, body, options.bodyLength) + "; b=";
    return signedField(message, "DKIM-Signature", value, options.headers, header, key);
}

Signer::ARCFields Signer::arcSet(const MailMessage& message, const ARCOptions& options,
                                 const SigningKey& key) {
    requireKeyName(options.selector, options.domain);
    requireResults(options.results);
    requireTime(options.time);
    const int instance = nextInstance(message);
    const std::string chain = options.chain.value_or(instance == 1 ? "none" : "pass");
    requireChain(chain);
    const std::string number = "i=" + std::to_string(instance) + "; ";
    const std::string start = number + "a=" + nameOf(algorithmOf(key)) + "; ";
    const std::string signer =
        "d=" + options.domain + "; s=" + options.selector + ";" + timeTag(options.time);

    ARCFields fields;
    fields.results = "ARC-Authentication-Results: " + number + options.results;
    const auto names = arcSignedNames(message);
    const std::string hash = bodyHash(message, Canonicalization::relaxed, {});
    fields.messageSignature = signedField(
        message, "ARC-Message-Signature",
        start + "c=relaxed/relaxed; " + signer + " h=" + joined(names) + "; bh=" + hash + "; b=", names,
        Canonicalization::relaxed, key);
    fields.seal = "ARC-Seal: " + start + "cv=" + chain + "; " + signer + " b=";

    const HeaderField results{fields.results, "ARC-Authentication-Results"};
    const HeaderField messageSignature{fields.messageSignature, "ARC-Message-Signature"};
    const HeaderField seal{fields.seal, "ARC-Seal"};
    auto sets = arcSets(message, StrayARCFields::passOver).value();
    sets.resize(static_cast<std::size_t>(instance - 1));
    sets.push_back({&results, &messageSignature, &seal});
    const auto digests = arcSealDigests(sets, HashAlgorithm::sha256);
    fields.seal += signature(key, digests.back());  // from here on `seal` is no longer of use
    return fields;
}

}  // namespace quillmark
