#include "QuillmarkKit/ARC.h"

#include <gtest/gtest.h>

#include <string>

#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Text.h"
#include "tests/ReferenceCanonicalization.h"
#include "tests/TestSigner.h"

namespace quillmark {
namespace {

using Reason = ARCFinding::Reason;
using Status = ARCFinding::Status;
using test::PrivateKey;

const Date now = Date(std::chrono::seconds(1'800'000'000));

const PrivateKey& ed25519Key() {
    static const PrivateKey key = PrivateKey::ed25519();
    return key;
}
const PrivateKey& rsaKey() {
    static const PrivateKey key = PrivateKey::rsa(1024);
    return key;
}

/// The relaxed form of a field, in the plainest way.
std::string relaxed(std::string_view field) {
    const std::string name = asciiLowered(trimmedBlanks(takePiece(field, ':')));
    std::string value;
    for (const char c : field) value += c == '\r' || c == '\n' ? "" : std::string(1, c);
    return name + ":" + std::string(trimmedBlanks(reference::reduced(value)));
}

/// What one forwarder adds. "#" in a text stands for the instance.
struct Set {
    std::string results =
        "ARC-Authentication-Results: i=#; mx#.example;\r\n\tspf=pass smtp.mailfrom=A@b.example";
    std::string signatureTags = "i=#; d=list#.example; s=key; h=from:subject";
    std::string sealTags = "i=#; a=ed25519-sha256; d=seal#.example; s=key; cv=";
    std::string chain = "";  ///< what is right when empty
    SignatureAlgorithm sealAlgorithm = SignatureAlgorithm::ed25519SHA256;
    const PrivateKey* key = &ed25519Key();
};

/// A message that was passed on, made without the code under test.
class Forwarded {
public:
    Forwarded() = default;
    explicit Forwarded(int count) {
        for (int i = 0; i < count; ++i) add({});
    }

    Forwarded& add(const Set& set) {
        const std::string number = std::to_string(++m_count);
        const auto numbered = [&](std::string text) {
            for (std::size_t at; (at = text.find('#')) != std::string::npos;) text.replace(at, 1, number);
            return text;
        };
        const std::string results = numbered(set.results);
        const std::string signedMessage = test::signedMessage(m_message,
                                                              {.tags = numbered(set.signatureTags),
                                                               .algorithm = SignatureAlgorithm::ed25519SHA256,
                                                               .fieldName = "ARC-Message-Signature"},
                                                              ed25519Key());
        const std::string signature = signedMessage.substr(0, signedMessage.size() - m_message.size() - 2);
        const std::string chain = !set.chain.empty() ? set.chain : m_count == 1 ? "none" : "pass";
        const std::string seal = "ARC-Seal : " + numbered(set.sealTags) + chain + ";\r\n  b=";
        m_sealed += relaxed(results) + "\r\n" + relaxed(signature) + "\r\n";
        const HashAlgorithm algorithm = hashAlgorithm(set.sealAlgorithm);
        const std::string bytes =
            set.key->signature(set.sealAlgorithm, hash(algorithm, m_sealed + relaxed(seal)));
        const std::string sealed = seal + encodedBase64(bytes);
        m_sealed += relaxed(sealed) + "\r\n";
        m_message = sealed + "\r\n" + results + "\r\n" + signedMessage;
        return *this;
    }
    /// Replaces the first `what` that stands there; a text that is missing is a fault of the test.
    Forwarded& replace(std::string_view what, std::string_view with) {
        const auto at = m_message.find(what);
        EXPECT_NE(at, std::string::npos) << what;
        if (at != std::string::npos) m_message.replace(at, what.size(), with);
        return *this;
    }
    Forwarded& prepend(std::string_view fields) {
        m_message.insert(0, fields);
        return *this;
    }
    const std::string& message() const { return m_message; }

private:
    std::string m_message = "From: a@example.org\r\nSubject: Hello\r\n\tworld\r\n\r\nBody\r\n", m_sealed = {};
    int m_count = 0;
};

/// Knows one key under every name but those given; counts how often it was asked.
struct Keys : DNSResolver {
    std::map<std::string, std::string, std::less<>> records = {};  ///< "!" fails, "" is no record
    std::string usual = test::keyRecord(ed25519Key(), "ed25519");
    int questions = 0;
    DNSAnswer lookup(std::string_view name, DNSRecordType, std::stop_token) override {
        ++questions;
        const auto found = records.find(name);
        const std::string record = found == records.end() ? usual : found->second;
        if (record == "!") throw DNSLookupError("timed out");
        return record.empty() ? DNSAnswer::nxdomain() : DNSAnswer::records({record});
    }
};

ARCFinding validated(std::string_view message, DNSResolver& keys) {
    const auto parsed = MailMessage::parse(message);
    std::optional<BodyHashes> hashes;
    if (parsed.body()) hashes.emplace(*parsed.body());
    const SignatureChecker checker{parsed, hashes ? &*hashes : nullptr, keys, now};
    return ARCValidator{checker}.validate();
}

Status failed(Reason reason) { return {Status::Fail{reason}}; }

std::vector<bool> sealsOf(const ARCFinding& finding) {
    std::vector<bool> valid;
    for (const auto& hop : finding.hops) valid.push_back(hop.sealValid);
    return valid;
}

TEST(ARC, chainsThatHold) {
    Keys keys;
    EXPECT_EQ(validated("From: a@example.org\r\n\r\n", keys), ARCFinding{});
    for (int count = 1; count <= 3; ++count) {
        const auto finding = validated(Forwarded(count).message(), keys);
        EXPECT_EQ(finding.status, Status{Status::Pass{}}) << finding.detail;
        EXPECT_EQ(finding.detail, "");
        ASSERT_EQ(finding.hops.size(), static_cast<std::size_t>(count));
        for (int i = 1; i <= count; ++i) {
            const auto& hop = finding.hops[static_cast<std::size_t>(i - 1)];
            const std::string number = std::to_string(i);
            EXPECT_EQ(hop.instance, i);
            EXPECT_EQ(hop.sealer, "seal" + number + ".example");
            EXPECT_TRUE(hop.sealValid);
            EXPECT_EQ(hop.messageSignature.status, DKIMResult::Status::pass) << hop.messageSignature.detail;
            EXPECT_EQ(hop.messageSignature.domain, "list" + number + ".example");
            EXPECT_EQ(hop.messageSignature.identity, std::nullopt);
            EXPECT_TRUE(hop.messageSignature.bodyChecked);
            EXPECT_EQ(hop.sawResults, (AuthResults{"mx" + number + ".example",
                                                   {{"spf", "pass", {{"smtp.mailfrom", "A@b.example"}}}}}));
        }
    }
    // Header lines alone can hold, too.
    const std::string whole = Forwarded(2).message();
    const auto headersOnly = validated(whole.substr(0, whole.find("\r\n\r\n")), keys);
    EXPECT_EQ(headersOnly.status, Status{Status::Pass{}});
    EXPECT_FALSE(headersOnly.hops[1].messageSignature.bodyChecked);
}

/// Ways to write a set that all are right.
TEST(ARC, spellings) {
    const struct {
        std::string results = "", signatureTags = "", sealTags = "";
    } rows[] = {
        {.results = "arc-authentication-results:i=#;mx.example; none"},
        {.results = "ARC-Authentication-Results: (i=7;) I = #;\r\n mx.example"},
        {.results = "ARC-Authentication-Results: ;; i=0#; mx.example"},
        {.results = "ARC-Authentication-Results: i=# (x)"},
        {.signatureTags = "d=list#.example;i = 000#; s=key; h=From:Subject:to"},
        {.sealTags = "cv= none; i=\r\n\t#;a=ed25519-sha256; h=from; d=seal.example; s=key; x="},
        {.sealTags = "cv=none; c=simple/simple; i=0#; a=ed25519-sha256; d=seal.example; s=key; x="},
    };
    for (const auto& row : rows) {
        Set set;
        if (!row.results.empty()) set.results = row.results;
        if (!row.signatureTags.empty()) set.signatureTags = row.signatureTags;
        if (!row.sealTags.empty()) set.sealTags = row.sealTags;
        Keys keys;
        const std::string message = Forwarded().add(set).message();
        SCOPED_TRACE(message);
        const auto finding = validated(message, keys);
        EXPECT_EQ(finding.status, Status{Status::Pass{}}) << finding.detail;
    }
}

/// What is wrong with the structure is found without a lookup, and leaves no hops.
TEST(ARC, structure) {
    const std::string seal = "ARC-Seal: i=#; cv=none\r\n", signature = "ARC-Message-Signature: i=#\r\n",
                      results = "ARC-Authentication-Results: i=#; x\r\n";
    const auto set = [&](const std::string& instance) {
        std::string text = seal + signature + results;
        for (std::size_t at; (at = text.find('#')) != std::string::npos;) text.replace(at, 1, instance);
        return text;
    };
    const auto withChain = [](const std::string& first, const std::string& second) {
        return Forwarded().add({.chain = first}).add({.chain = second}).message();
    };
    std::string sets51;
    for (int i = 51; i >= 1; --i) sets51 += set(std::to_string(i));
    const auto missing = std::pair{Reason::brokenStructure, "ARC sets are missing or out of order"};
    const struct {
        std::string message;
        std::pair<Reason, const char*> fault;
    } rows[] = {
        {"ARC-Seal: i=1; cv=none\r\n", missing},
        {Forwarded(1).replace("ARC-Seal", "X-Seal").message(), missing},
        {Forwarded(1).replace("ARC-Message-Signature", "X-Signature").message(), missing},
        {Forwarded(1).replace("ARC-Authentication-Results", "X-Results").message(), missing},
        {set("2"), missing},
        {set("3") + set("1"), missing},
        {set("1") + set("0"), missing},
        {set("1") + set("51"), missing},
        {set("1") + set("99999999999999999999"), missing},
        {set("00001"), missing},
        {set("1x"), missing},
        {set("-1"), missing},
        {set(""), missing},
        {set("1") + "ARC-Authentication-Results: mx.example; i=1\r\n", missing},
        {set("1") + "ARC-Authentication-Results:\r\n", missing},
        {set("1") + "ARC-Seal: cv=none\r\n", missing},
        {sets51, missing},
        {withChain("pass", ""), {Reason::brokenStructure, "ARC-Seal i=1 has cv=pass"}},
        {withChain("None", ""), {Reason::brokenStructure, "ARC-Seal i=1 has cv=None"}},
        {withChain("", "none"), {Reason::brokenStructure, "ARC-Seal i=2 has cv=none"}},
        {withChain("", " "), {Reason::brokenStructure, "ARC-Seal i=2 has cv="}},
        {withChain("fail", "fail"), {Reason::sealSaysFailed, "ARC-Seal i=1 has cv=fail"}},
        {withChain("", "fail"), {Reason::sealSaysFailed, "ARC-Seal i=2 has cv=fail"}},
        {withChain("x", "fail"), {Reason::brokenStructure, "ARC-Seal i=1 has cv=x"}},
        {Forwarded(1).replace("cv=none", "cw=none").message(),
         {Reason::brokenStructure, "ARC-Seal i=1 has cv="}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message.substr(0, 2000));
        Keys keys;
        EXPECT_EQ(validated(row.message, keys), (ARCFinding{failed(row.fault.first), row.fault.second, {}}));
        EXPECT_EQ(keys.questions, 0);
    }
}

TEST(ARC, onlyTheTopmostFieldOfAKindAndInstanceCounts) {
    Keys keys;
    const std::string copies =
        "ARC-Seal: i=1; cv=fail\r\nARC-Message-Signature: i=1\r\nARC-Message-Signature: i=2\r\n"
        "ARC-Authentication-Results: i=2; x\r\n";
    EXPECT_EQ(validated(Forwarded(2).replace("From:", copies + "From:").message(), keys).status,
              Status{Status::Pass{}});
    EXPECT_EQ(validated(Forwarded(2).prepend(copies).message(), keys).status, failed(Reason::sealSaysFailed));
}

TEST(ARC, messageSignatures) {
    const std::string newest = "key._domainkey.list2.example", oldest = "key._domainkey.list1.example";
    const Status pass{Status::Pass{}}, unknown{Status::Unknown{}},
        fail = failed(Reason::messageSignatureFailed);
    using Signature = DKIMResult::Status;
    const struct {
        std::string name;
        Forwarded message;
        std::map<std::string, std::string, std::less<>> records = {};
        Status status;
        std::vector<Signature> signatures;
    } rows[] = {
        {"body changed after all",
         Forwarded(2).replace("Body", "Bady"),
         {},
         fail,
         {Signature::bodyChanged, Signature::bodyChanged}},
        {"subject changed on the way",
         Forwarded(1).replace("Hello", "[list] Hello").add({}),
         {},
         pass,
         {Signature::headersChanged, Signature::pass}},
        {"newest key gone",
         Forwarded(2),
         {{newest, ""}},
         fail,
         {Signature::pass, Signature::keyNotPublished}},
        {"oldest key gone",
         Forwarded(2),
         {{oldest, ""}},
         pass,
         {Signature::keyNotPublished, Signature::pass}},
        {"newest lookup failed",
         Forwarded(2),
         {{newest, "!"}},
         unknown,
         {Signature::pass, Signature::lookupFailed}},
        {"oldest lookup failed",
         Forwarded(2),
         {{oldest, "!"}},
         pass,
         {Signature::lookupFailed, Signature::pass}},
        // i= is no identity here: a key that asks for an exact one doesn't mind.
        {"strict key",
         Forwarded(1),
         {{oldest, test::keyRecord(ed25519Key(), "ed25519; t=s")}},
         pass,
         {Signature::pass}},
        {"From not signed",
         Forwarded().add({.signatureTags = "i=1; d=a.example; s=key; h=subject"}),
         {},
         fail,
         {Signature::malformed}},
        {"a tag twice",
         Forwarded().add({.signatureTags = "i=1; i=2; d=a.example; s=key; h=from"}),
         {},
         fail,
         {Signature::malformed}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Keys keys;
        keys.records = row.records;
        const auto finding = validated(row.message.message(), keys);
        EXPECT_EQ(finding.status, row.status);
        const bool isFailed = row.status == fail;
        EXPECT_EQ(finding.detail,
                  isFailed
                      ? "ARC-Message-Signature i=" + std::to_string(row.signatures.size()) + " didn't verify"
                      : "");
        std::vector<Signature> signatures;
        for (const auto& hop : finding.hops) signatures.push_back(hop.messageSignature.status);
        EXPECT_EQ(signatures, row.signatures);
        // Seals are looked at only when the newest message signature holds.
        EXPECT_EQ(sealsOf(finding), std::vector<bool>(row.signatures.size(), row.status == pass));
    }
}

TEST(ARC, seals) {
    const PrivateKey weak = PrivateKey::rsa(1016);
    const std::string first = "key._domainkey.seal1.example", second = "key._domainkey.seal2.example";
    const auto rsaSet = [](const char* algorithm, SignatureAlgorithm sealAlgorithm, const PrivateKey& key) {
        return Set{.sealTags = "i=#; a=" + std::string(algorithm) + "; d=seal#.example; s=key; cv=",
                   .sealAlgorithm = sealAlgorithm,
                   .key = &key};
    };
    const Set sha256 = rsaSet("rsa-sha256", SignatureAlgorithm::rsaSHA256, rsaKey()),
              sha1 = rsaSet("rsa-sha1", SignatureAlgorithm::rsaSHA1, rsaKey()),
              tooWeak = rsaSet("rsa-sha256", SignatureAlgorithm::rsaSHA256, weak);
    const std::string rsaRecord = test::keyRecord(rsaKey());
    const auto withTags = [](const std::string& tags) {
        return Forwarded().add({.sealTags = tags + "; cv="});
    };
    using Records = std::map<std::string, std::string, std::less<>>;
    constexpr int pass = 0, unknown = -1;
    const struct {
        std::string name;
        Forwarded message;
        Records records;
        int failing;  ///< whose seal doesn't verify; or one of the two words
        std::vector<bool> valid;
    } rows[] = {
        {"three algorithms",
         Forwarded(1).add(sha1).add(sha256).add({}),
         Records{{second, rsaRecord}, {"key._domainkey.seal3.example", rsaRecord}},
         pass,
         {true, true, true, true}},
        {"testing key",
         Forwarded(1),
         {{first, test::keyRecord(ed25519Key(), "ed25519; t=y:s")}},
         pass,
         {true}},
        {"first results changed", Forwarded(2).replace("mx1", "mx9"), {}, 1, {false, false}},
        {"second results changed", Forwarded(2).replace("mx2", "mx9"), {}, 2, {true, false}},
        {"first seal changed", Forwarded(3).replace("cv=none", "cv=none;x=y"), {}, 1, {false, false, false}},
        {"older signature changed", Forwarded(2).replace("d=list1", "d=list9"), {}, 1, {false, false}},
        {"key gone", Forwarded(2), {{second, ""}}, 2, {true, false}},
        {"key revoked", Forwarded(2), {{second, "v=DKIM1; p="}}, 2, {true, false}},
        {"no key record", Forwarded(2), {{second, "v=spf1 -all"}}, 2, {true, false}},
        {"unusable key", Forwarded(2), {{first, "p=%"}}, 1, {false, false}},
        {"key of another type", Forwarded(2), {{first, rsaRecord}}, 1, {false, false}},
        {"another's key", Forwarded(1).add(sha256), {{second, test::keyRecord(weak)}}, 2, {true, false}},
        {"weak key", Forwarded(1).add(tooWeak), {{second, test::keyRecord(weak)}}, 2, {true, false}},
        {"lookup failed", Forwarded(3), {{second, "!"}}, unknown, {true, false, false}},
        {"broken before the failed lookup",
         Forwarded(2).replace("mx1", "mx9"),
         {{second, "!"}},
         1,
         {false, false}},
        {"a tag twice",
         withTags("i=1; a=ed25519-sha256; d=seal.example; s=key; D=seal.example"),
         {},
         1,
         {false}},
        {"no selector", withTags("i=1; a=ed25519-sha256; d=seal.example"), {}, 1, {false}},
        {"no domain", withTags("i=1; a=ed25519-sha256; d=; s=key"), {}, 1, {false}},
        {"no algorithm", withTags("i=1; d=seal.example; s=key"), {}, 1, {false}},
        {"unknown algorithm", withTags("i=1; a=ed25519; d=seal.example; s=key"), {}, 1, {false}},
        {"no signature", Forwarded(1).replace("  b=", "  y="), {}, 1, {false}},
        {"signature is not base64", Forwarded(1).replace("  b=", "  b=*"), {}, 1, {false}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Keys keys;
        keys.records = row.records;
        const auto finding = validated(row.message.message(), keys);
        EXPECT_EQ(finding.status, row.failing == pass      ? Status{Status::Pass{}}
                                  : row.failing == unknown ? Status{Status::Unknown{}}
                                                           : failed(Reason::sealFailed));
        EXPECT_EQ(finding.detail,
                  row.failing > 0 ? "ARC-Seal i=" + std::to_string(row.failing) + " didn't verify" : "");
        EXPECT_EQ(sealsOf(finding), row.valid);
    }
}

TEST(ARC, costsAtMostTwoLookupsASet) {
    Keys keys;
    const auto finding = validated(Forwarded(mostARCSets).message(), keys);
    EXPECT_EQ(finding.status, Status{Status::Pass{}}) << finding.detail;
    EXPECT_EQ(keys.questions, 2 * mostARCSets);
}

}  // namespace
}  // namespace quillmark
