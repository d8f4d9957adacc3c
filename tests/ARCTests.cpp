#include "QuillmarkKit/Checks/ARC.h"

#include "QuillmarkKit/Support/Base64.h"
#include "tests/ReferenceCanonicalization.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using Reason = ARCFinding::Reason;
using Status = ARCFinding::Status;
using test::ed25519Key, test::PrivateKey, test::rsaKey;

const Date now = Date(std::chrono::seconds(1'800'000'000));

std::string numbered(std::string text, const std::string& instance) {
    for (std::size_t at; (at = text.find('#')) != std::string::npos;) text.replace(at, 1, instance);
    return text;
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
        const std::string number = std::to_string(++m_count), results = numbered(set.results, number);
        const std::string signedMessage = test::signedMessage(
            m_message, {.tags = numbered(set.signatureTags, number), .fieldName = "ARC-Message-Signature"},
            ed25519Key());
        const std::string signature = signedMessage.substr(0, signedMessage.size() - m_message.size() - 2);
        const std::string chain = !set.chain.empty() ? set.chain : m_count == 1 ? "none" : "pass";
        const std::string seal = "ARC-Seal : " + numbered(set.sealTags, number) + chain + ";\r\n  b=";
        m_sealed += reference::header(results) + "\r\n" + reference::header(signature) + "\r\n";
        const std::string digest = hash(hashAlgorithm(set.sealAlgorithm), m_sealed + reference::header(seal));
        const std::string sealed = seal + encodedBase64(set.key->signature(set.sealAlgorithm, digest));
        m_sealed += reference::header(sealed) + "\r\n";
        m_message = sealed + "\r\n" + results + "\r\n" + signedMessage;
        return *this;
    }
    Forwarded& replace(std::string_view what, std::string_view with) {
        m_message = test::replaced(m_message, what, with);
        return *this;
    }
    const std::string& message() const { return m_message; }

private:
    std::string m_message = "From: a@example.org\r\nSubject: Hello\r\n\tworld\r\n\r\nBody\r\n", m_sealed = {};
    int m_count = 0;
};

using Records = std::map<std::string, std::string, std::less<>>;

/// Knows one key under every name but those given; counts how often it was asked.
struct Keys : DNSResolver {
    Records records = {};  ///< "!" fails, "" is no record
    std::string usual = test::keyRecord(ed25519Key());
    int questions = 0;
    DNSAnswer lookup(std::string_view name, DNSRecordType, const Patience& = {}) override {
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

const Status pass{Status::Pass{}}, unknown{Status::Unknown{}};
Status failed(Reason reason) { return {Status::Fail{reason}}; }

std::vector<bool> sealsOf(const ARCFinding& finding) {
    std::vector<bool> valid;
    for (const auto& hop : finding.hops) valid.push_back(hop.sealValid);
    return valid;
}

TEST(ARC, chainsThatHold) {
    Keys keys;
    EXPECT_EQ(validated("From: a@example.org\r\n\r\n", keys), ARCFinding{});
    for (std::size_t count = 1; count <= 3; ++count) {
        const auto finding = validated(Forwarded(static_cast<int>(count)).message(), keys);
        EXPECT_EQ(finding.status, pass) << finding.detail;
        EXPECT_EQ(finding.detail, "");
        ASSERT_EQ(finding.hops.size(), count);
        for (std::size_t i = 1; i <= count; ++i) {
            const auto& hop = finding.hops[i - 1];
            const std::string number = std::to_string(i);
            EXPECT_EQ(hop.instance, i);
            EXPECT_EQ(hop.sealer, "seal" + number + ".example");
            EXPECT_TRUE(hop.sealValid);
            EXPECT_EQ(hop.messageSignature.status, DKIMResult::Status::pass) << hop.messageSignature.detail;
            EXPECT_EQ(hop.messageSignature.domain, "list" + number + ".example");
            EXPECT_TRUE(hop.messageSignature.bodyChecked);
            EXPECT_EQ(hop.sawResults, (AuthResults{"mx" + number + ".example",
                                                   {{"spf", "pass", {{"smtp.mailfrom", "A@b.example"}}}}}));
        }
    }
    // Header lines alone can hold, too.
    const std::string whole = Forwarded(2).message();
    const auto headersOnly = validated(whole.substr(0, whole.find("\r\n\r\n")), keys);
    EXPECT_EQ(headersOnly.status, pass);
    EXPECT_FALSE(headersOnly.hops[1].messageSignature.bodyChecked);
}

/// Ways to write a set that all are right.
TEST(ARC, spellings) {
    const std::string none = "a=ed25519-sha256; d=seal.example; s=key; x=";
    const Set rows[] = {
        {.results = "arc-authentication-results:i=#;mx.example; none"},
        {.results = "ARC-Authentication-Results: (i=7;) I = #;\r\n mx.example"},
        {.results = "ARC-Authentication-Results: ;; i=0#; mx.example"},
        {.results = "ARC-Authentication-Results: i=# (x)"},
        {.signatureTags = "d=list#.example;i = 000#; s=key; h=From:Subject:to"},
        {.sealTags = "cv= none; i=\r\n\t#;h=from; " + none},
        {.sealTags = "cv=none; c=simple/simple; i=0#; " + none},
    };
    for (const auto& row : rows) {
        Keys keys;
        const std::string message = Forwarded().add(row).message();
        const auto finding = validated(message, keys);
        EXPECT_EQ(finding.status, pass) << finding.detail << message;
    }
}

/// What is wrong with the structure is found without a lookup, and leaves no hops.
TEST(ARC, structure) {
    const auto set = [](const std::string& instance) {
        return numbered(
            "ARC-Seal: i=#; cv=none\r\nARC-Message-Signature: i=#\r\n"
            "ARC-Authentication-Results: i=#; x\r\n",
            instance);
    };
    const auto withChain = [](const std::string& first, const std::string& second) {
        return Forwarded().add({.chain = first}).add({.chain = second}).message();
    };
    std::string sets51;
    for (int i = 51; i >= 1; --i) sets51 += set(std::to_string(i));
    const std::string missing = "ARC sets are missing or out of order";
    const struct {
        std::string message, detail;
        Reason reason = Reason::brokenStructure;
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
        {withChain("pass", ""), "ARC-Seal i=1 has cv=pass"},
        {withChain("None", ""), "ARC-Seal i=1 has cv=None"},
        {withChain("", "none"), "ARC-Seal i=2 has cv=none"},
        {withChain("", " "), "ARC-Seal i=2 has cv="},
        {withChain("fail", "fail"), "ARC-Seal i=1 has cv=fail", Reason::sealSaysFailed},
        {withChain("", "fail"), "ARC-Seal i=2 has cv=fail", Reason::sealSaysFailed},
        {withChain("x", "fail"), "ARC-Seal i=1 has cv=x"},
        {Forwarded(1).replace("cv=none", "cw=none").message(), "ARC-Seal i=1 has cv="},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message.substr(0, 2000));
        Keys keys;
        EXPECT_EQ(validated(row.message, keys), (ARCFinding{failed(row.reason), row.detail, {}}));
        EXPECT_EQ(keys.questions, 0);
    }
}

TEST(ARC, onlyTheTopmostFieldOfAKindAndInstanceCounts) {
    Keys keys;
    const std::string copies =
        "ARC-Seal: i=1; cv=fail\r\nARC-Message-Signature: i=1\r\nARC-Message-Signature: i=2\r\n"
        "ARC-Authentication-Results: i=2; x\r\n";
    EXPECT_EQ(validated(Forwarded(2).replace("From:", copies + "From:").message(), keys).status, pass);
    EXPECT_EQ(validated(copies + Forwarded(2).message(), keys).status, failed(Reason::sealSaysFailed));
}

TEST(ARC, messageSignatures) {
    const std::string newest = "key._domainkey.list2.example", oldest = "key._domainkey.list1.example";
    const std::string strict = test::keyRecord(ed25519Key()) + "; t=s";
    const Status fail = failed(Reason::messageSignatureFailed);
    using Signature = DKIMResult::Status;
    constexpr auto bodyChanged = Signature::bodyChanged, headersChanged = Signature::headersChanged,
                   gone = Signature::keyNotPublished, unasked = Signature::lookupFailed,
                   malformed = Signature::malformed, good = Signature::pass;
    const auto tagged = [](const char* tags) { return Forwarded().add({.signatureTags = tags}); };
    const Forwarded bodyChangedAtLast = Forwarded(2).replace("Body", "Bady"),
                    subjectChangedOnTheWay = Forwarded(1).replace("Hello", "[list] Hello").add({});
    const struct {
        Forwarded message;
        std::string keyName, record;
        Status status;
        std::vector<Signature> signatures;
    } rows[] = {
        {bodyChangedAtLast, "", "", fail, {bodyChanged, bodyChanged}},
        {subjectChangedOnTheWay, "", "", pass, {headersChanged, good}},
        {Forwarded(2), newest, "", fail, {good, gone}},
        {Forwarded(2), oldest, "", pass, {gone, good}},
        {Forwarded(2), newest, "!", unknown, {good, unasked}},
        {Forwarded(2), oldest, "!", pass, {unasked, good}},
        // i= is no identity here: a key that asks for an exact one doesn't mind.
        {Forwarded(1), oldest, strict, pass, {good}},
        {tagged("i=1; d=a.example; s=key; h=subject"), "", "", fail, {malformed}},  // not From
        {tagged("i=1; i=2; d=a.example; s=key; h=from"), "", "", fail, {malformed}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message.message() + row.keyName + row.record);
        Keys keys;
        keys.records[row.keyName] = row.record;
        const auto finding = validated(row.message.message(), keys);
        EXPECT_EQ(finding.status, row.status);
        const std::string last = std::to_string(row.signatures.size());
        EXPECT_EQ(finding.detail,
                  row.status == fail ? "ARC-Message-Signature i=" + last + " didn't verify" : "");
        std::vector<Signature> signatures;
        for (const auto& hop : finding.hops) signatures.push_back(hop.messageSignature.status);
        EXPECT_EQ(signatures, row.signatures);
        // Seals are looked at only when the newest message signature holds.
        EXPECT_EQ(sealsOf(finding), std::vector<bool>(row.signatures.size(), row.status == pass));
    }
}

TEST(ARC, seals) {
    const PrivateKey weak = PrivateKey::rsa(1016);
    const std::string first = "key._domainkey.seal1.example", second = "key._domainkey.seal2.example",
                      third = "key._domainkey.seal3.example";
    const auto rsaSet = [](SignatureAlgorithm algorithm, const PrivateKey& key) {
        return Set{.sealTags = "i=#; a=" + std::string(nameOf(algorithm)) + "; d=seal#.example; s=key; cv=",
                   .sealAlgorithm = algorithm,
                   .key = &key};
    };
    const Set sha256 = rsaSet(SignatureAlgorithm::rsaSHA256, rsaKey()),
              sha1 = rsaSet(SignatureAlgorithm::rsaSHA1, rsaKey()),
              tooWeak = rsaSet(SignatureAlgorithm::rsaSHA256, weak);
    const std::string rsaRecord = test::keyRecord(rsaKey()), weakRecord = test::keyRecord(weak),
                      testing = test::keyRecord(ed25519Key()) + "; t=y:s";
    const auto withTags = [](const std::string& tags) {
        return Forwarded().add({.sealTags = tags + "; cv="});
    };
    const auto changed = [](int count, std::string_view what, std::string_view with) {
        return Forwarded(count).replace(what, with);
    };
    const Forwarded threeAlgorithms = Forwarded(1).add(sha1).add(sha256).add({});
    constexpr int holds = 0, isUnknown = -1;
    const struct {
        Forwarded message;
        Records records;
        int failing;  ///< whose seal doesn't verify; or one of the two words
        std::vector<bool> valid;
    } rows[] = {
        {threeAlgorithms, {{second, rsaRecord}, {third, rsaRecord}}, holds, {true, true, true, true}},
        {Forwarded(1), {{first, testing}}, holds, {true}},
        {changed(2, "mx1", "mx9"), {}, 1, {false, false}},  // results
        {changed(2, "mx2", "mx9"), {}, 2, {true, false}},
        {changed(3, "cv=none", "cv=none;x=y"), {}, 1, {false, false, false}},  // the first seal
        {changed(2, "d=list1", "d=list9"), {}, 1, {false, false}},             // an older signature
        {Forwarded(2), {{second, ""}}, 2, {true, false}},
        {Forwarded(2), {{second, "v=DKIM1; p="}}, 2, {true, false}},
        {Forwarded(2), {{second, "v=spf1 -all"}}, 2, {true, false}},
        {Forwarded(2), {{first, "p=%"}}, 1, {false, false}},
        {Forwarded(2), {{first, rsaRecord}}, 1, {false, false}},
        {Forwarded(1).add(sha256), {{second, weakRecord}}, 2, {true, false}},  // another's key
        {Forwarded(1).add(tooWeak), {{second, weakRecord}}, 2, {true, false}},
        {Forwarded(3), {{second, "!"}}, isUnknown, {true, false, false}},
        {changed(2, "mx1", "mx9"), {{second, "!"}}, 1, {false, false}},  // broken before the failed lookup
        {withTags("i=1; a=ed25519-sha256; d=seal.example; s=key; D=seal.example"), {}, 1, {false}},
        {withTags("i=1; a=ed25519-sha256; d=seal.example"), {}, 1, {false}},
        {withTags("i=1; a=ed25519-sha256; d=; s=key"), {}, 1, {false}},
        {withTags("i=1; d=seal.example; s=key"), {}, 1, {false}},
        {withTags("i=1; a=ed25519; d=seal.example; s=key"), {}, 1, {false}},
        {changed(1, "  b=", "  y="), {}, 1, {false}},
        {changed(1, "  b=", "  b=*"), {}, 1, {false}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message.message() + testing::PrintToString(row.records));
        Keys keys;
        keys.records = row.records;
        const auto finding = validated(row.message.message(), keys);
        EXPECT_EQ(finding.status, row.failing == holds       ? pass
                                  : row.failing == isUnknown ? unknown
                                                             : failed(Reason::sealFailed));
        EXPECT_EQ(finding.detail,
                  row.failing > 0 ? "ARC-Seal i=" + std::to_string(row.failing) + " didn't verify" : "");
        EXPECT_EQ(sealsOf(finding), row.valid);
    }
}

TEST(ARC, costsAtMostTwoLookupsASet) {
    Keys keys;
    EXPECT_EQ(validated(Forwarded(mostARCSets).message(), keys).status, pass);
    EXPECT_EQ(keys.questions, 2 * mostARCSets);
}

}  // namespace
}  // namespace quillmark
