#include "QuillmarkKit/Checks/Signer.h"

#include "QuillmarkKit/Checks/ARC.h"
#include "QuillmarkKit/Support/Base64.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using PEM = test::PrivateKey::PEM;

const Date now = Date(std::chrono::seconds(1'800'000'000));
const std::string plain = "From: a@example.org\r\nTo: b@example.com\r\nSubject: Hello\r\n\r\nBody\r\n";

/// Made once; not before the first test that needs it.
const SigningKey& rsaKey() {
    static const SigningKey key = SigningKey::newRSA(1024).value();
    return key;
}
const SigningKey& ed25519Key() {
    static const SigningKey key = SigningKey::newEd25519().value();
    return key;
}

Signer::Options options(std::vector<std::string> headers = {"from"}) {
    return {.domain = "example.org", .selector = "key", .headers = std::move(headers)};
}
Signer::ARCOptions arcOptions() {
    return {.domain = "list.example", .selector = "key", .results = "mx.example; none"};
}

std::string sealed(const std::string& message, const Signer::ARCOptions& arc, const SigningKey& signingKey) {
    const auto set = Signer::arcSet(MailMessage::parse(message), arc, signingKey);
    return set.seal + "\r\n" + set.messageSignature + "\r\n" + set.results + "\r\n" + message;
}

ARCFinding validated(const std::string& message, StaticResolver& resolver) {
    const auto parsed = MailMessage::parse(message);
    BodyHashes hashes(parsed.body().value_or(""));
    const SignatureChecker checker{parsed, &hashes, resolver, now};
    return ARCValidator{checker}.validate();
}

/// A field up to its body hash or signature, which differ from key to key.
std::string start(const std::string& field) { return field.substr(0, field.find("bh=")); }

/// What `sign` says when it refuses.
std::string problem(auto&& sign) {
    try {
        sign();
    } catch (const SigningError& error) {
        return error.what();
    }
    return "";
}

TEST(Signer, keyRecord) {
    for (const test::PrivateKey* key : {&test::rsaKey(), &test::ed25519Key()})
        EXPECT_EQ(Signer::keyRecord(SigningKey::fromPEM(key->pem(PEM::pkcs8)).value()),
                  test::keyRecord(*key));
}

TEST(Signer, fieldsAsWritten) {
    const auto message = MailMessage::parse(plain);
    auto all = options({"From", "subject"});
    all.time = 1'700'000'000;
    all.bodyLength = 3;
    all.canonicalization = {Canonicalization::simple, Canonicalization::relaxed};
    EXPECT_EQ(start(Signer::dkimSignature(message, all, ed25519Key())),
              "DKIM-Signature: v=1; a=ed25519-sha256; c=simple/relaxed; d=example.org; s=key; "
              "t=1700000000; l=3; h=From:subject; ");
    EXPECT_EQ(start(Signer::dkimSignature(message, options(), rsaKey())),
              "DKIM-Signature: v=1; a=rsa-sha256; c=relaxed/relaxed; d=example.org; s=key; h=from; ");

    auto arc = arcOptions();
    const auto first = Signer::arcSet(message, arc, ed25519Key());
    EXPECT_EQ(first.results, "ARC-Authentication-Results: i=1; mx.example; none");
    EXPECT_EQ(first.seal.find("ARC-Seal: i=1; a=ed25519-sha256; cv=none; d=list.example; s=key; b="), 0u);
    // The highest seal counts, and those that cannot be read don't.
    const auto sealedBefore = MailMessage::parse(
        "ARC-Seal: i=2\r\nARC-Seal: i=9x\r\nARC-Message-Signature: i=7\r\nDKIM-Signature: v=1\r\n"
        "DKIM-Signature: v=1\r\nMessage-ID: <1>\r\nDate: x\r\n" +
        plain);
    arc.time = 0;
    const auto third = Signer::arcSet(sealedBefore, arc, ed25519Key());
    EXPECT_EQ(start(third.messageSignature),
              "ARC-Message-Signature: i=3; a=ed25519-sha256; c=relaxed/relaxed; d=list.example; s=key; t=0; "
              "h=from:to:subject:date:message-id:dkim-signature; ");
    EXPECT_EQ(third.seal.find("ARC-Seal: i=3; a=ed25519-sha256; cv=pass; d=list.example; s=key; t=0; b="),
              0u);
    arc.chain = "fail";
    EXPECT_NE(Signer::arcSet(message, arc, ed25519Key()).seal.find("cv=fail;"), std::string::npos);
}

TEST(Signer, whatItSignsVerifies) {
    using namespace std::string_literals;
    const std::string head = "From: a@example.org\r\nSubject: Hello\r\n";
    const std::string messages[] = {
        plain,
        head + "\r\n",
        head + "\r\n\r\n \t\r\n\r\n",
        head + "\r\nno line end",
        head + "\r\n a \t b  \r\n\r\nend  \r\n\r\n\r\n",
        "From: \"A\r\n\tB\"\r\n  <a@example.org>\r\nSubject : x \r\n \r\n\ty\r\nSubject:\r\n\r\nBody\r\n",
        "From: Andr\xE9 <a@example.org>\r\nSubject: \xFF\xC3\xA9\xE2\x80\xA8\r\n\r\n\xE9\x80\0\xFF\r\n"s,
        head + "DKIM-Signature: v=1; d=example.net; b=AAAA\r\nDKIM-Signature: v=1\r\n\r\nBody\r\n",
    };
    const auto roundTrip = [](const std::string& message, const Signer::Options& made,
                              const SigningKey& key) {
        const std::string field = Signer::dkimSignature(MailMessage::parse(message), made, key);
        SCOPED_TRACE(field + message);
        const auto parsed = MailMessage::parse(field + "\r\n" + message);
        StaticResolver resolver(
            {{"key._domainkey.example.org|TXT", DNSAnswer::records({Signer::keyRecord(key)})}});
        BodyHashes hashes(parsed.body().value());
        const auto length =
            hashes.hash(made.canonicalization.body, HashAlgorithm::sha256, {}).canonicalLength;
        // A limit beyond the body is written as it was given, and no signature that holds.
        const bool tooLong = made.bodyLength && static_cast<std::uint64_t>(*made.bodyLength) > length;
        const auto result =
            SignatureChecker{parsed, &hashes, resolver, now}.check(*parsed.first("DKIM-Signature"));
        EXPECT_EQ(result.status, tooLong ? DKIMResult::Status::bodyChanged : DKIMResult::Status::pass);
        EXPECT_EQ(result.bodyLength, made.bodyLength);
        EXPECT_TRUE(std::ranges::equal(result.signedHeaders, made.headers));
    };
    using enum Canonicalization;
    for (const std::string& message : messages) {
        for (const std::vector<std::string>& headers :
             {std::vector<std::string>{"FROM"},
              {"from", "from", "subject", "subject", "to", "dkim-signature", "x-none"}}) {
            for (const CanonicalizationPair pair : {CanonicalizationPair{simple, simple},
                                                    {simple, relaxed},
                                                    {relaxed, simple},
                                                    {relaxed, relaxed}}) {
                for (const std::optional<std::int64_t> length :
                     {std::optional<std::int64_t>(), {0}, {4}, {1'000'000}}) {
                    auto made = options(headers);
                    made.canonicalization = pair;
                    made.bodyLength = length;
                    roundTrip(message, made, rsaKey());
                    roundTrip(message, made, ed25519Key());
                }
            }
        }
    }
}

TEST(Signer, chainsOfOneToFiftySets) {
    StaticResolver resolver(
        {{"key._domainkey.list.example|TXT", DNSAnswer::records({Signer::keyRecord(ed25519Key())})},
         {"key._domainkey.rsa.example|TXT", DNSAnswer::records({Signer::keyRecord(rsaKey())})}});
    std::string message = "From: Andr\xE9 <a@example.org>\r\nSubject: x\r\n y\r\nDKIM-Signature: v=1\r\n\r\n";
    auto ed25519Options = arcOptions(), rsaOptions = arcOptions();
    ed25519Options.results = "mx.example (it's ours; not theirs);\tspf=pass smtp.mailfrom=\xE9@example.org";
    rsaOptions.domain = "rsa.example";
    for (int i = 1; i <= mostARCSets; ++i) {
        const bool isRSA = i % 7 == 2;
        message = sealed(message, isRSA ? rsaOptions : ed25519Options, isRSA ? rsaKey() : ed25519Key());
        if (i > 3 && i < mostARCSets - 1 && i % 10 != 0) continue;
        const auto finding = validated(message, resolver);
        EXPECT_EQ(finding.status, (ARCFinding::Status{ARCFinding::Status::Pass{}})) << i << finding.detail;
        EXPECT_EQ(finding.hops.size(), static_cast<std::size_t>(i));
        for (const auto& hop : finding.hops) {
            EXPECT_EQ(hop.messageSignature.status, DKIMResult::Status::pass) << hop.instance;
        }
    }
    EXPECT_EQ(problem([&] { sealed(message, arcOptions(), ed25519Key()); }),
              "The message has an ARC-Seal with i=50; there may be no more than 50 ARC sets.");
}

/// Fields that somebody left without a whole set don't get into a new one.
TEST(Signer, sealsOverTheTopmostFieldsOfEachSet) {
    StaticResolver resolver(
        {{"key._domainkey.list.example|TXT", DNSAnswer::records({Signer::keyRecord(ed25519Key())})}});
    const std::string strays =
        "ARC-Authentication-Results: i=2; x\r\nARC-Message-Signature: i=2; x=y\r\nARC-Seal: i=1; cv=fail\r\n";
    const auto first = sealed(plain, arcOptions(), ed25519Key());
    const auto second =
        sealed(first.substr(0, first.find("From:")) + strays + plain, arcOptions(), ed25519Key());
    EXPECT_EQ(validated(second, resolver).status, (ARCFinding::Status{ARCFinding::Status::Pass{}}));
}

TEST(Signer, textsThatWouldBreakOutOfAField) {
    const std::string noName = "” isn’t made of letters, digits, “-”, “_” and single dots.",
                      noHeader = "” can’t be the name of a signed header field.",
                      noTime = "The signing time is out of range.";
    using Change = void (*)(Signer::Options&, Signer::ARCOptions&);
    const struct {
        Change change;
        std::string dkim, arc;  ///< what each of the two says
    } rows[] = {
        {[](auto& d, auto& a) { d.domain = "a.example; x=y", a.domain = "a..example"; },
         "The domain “a.example; x=y" + noName, "The domain “a..example" + noName},
        {[](auto& d, auto& a) { d.domain = a.domain = ""; }, "The domain “" + noName,
         "The domain “" + noName},
        {[](auto& d, auto& a) { d.selector = "k\r\nX: y", a.selector = "k."; },
         "The selector “k\r\nX: y" + noName, "The selector “k." + noName},
        {[](auto& d, auto&) { d.headers = {"from", "to;b="}; }, "“to;b=" + noHeader, ""},
        {[](auto& d, auto&) { d.headers = {"from", "to:cc"}; }, "“to:cc" + noHeader, ""},
        {[](auto& d, auto&) { d.headers = {"from", ""}; }, "“" + noHeader, ""},
        {[](auto& d, auto&) { d.headers = {"from", "x\n"}; }, "“x\n" + noHeader, ""},
        {[](auto& d, auto&) { d.headers = {"to"}; }, "From must be among the signed header fields.", ""},
        {[](auto& d, auto&) { d.bodyLength = -1; }, "The body length is negative.", ""},
        {[](auto& d, auto& a) { d.time = -1, a.time = 1'000'000'000'000'000; }, noTime, noTime},
        {[](auto&, auto& a) { a.results = "mx.example\r\nX: y"; }, "",
         "The results hold a line end or another control character."},
        {[](auto&, auto& a) { a.results = " \t"; }, "", "The results are empty."},
        {[](auto&, auto& a) { a.chain = "pass; x=y"; }, "",
         "The chain value must be none, pass or fail, not “pass; x=y”."},
    };
    const auto message = MailMessage::parse(plain);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.dkim + row.arc);
        auto dkim = options();
        auto arc = arcOptions();
        row.change(dkim, arc);
        EXPECT_EQ(problem([&] { Signer::dkimSignature(message, dkim, ed25519Key()); }), row.dkim);
        EXPECT_EQ(problem([&] { Signer::arcSet(message, arc, ed25519Key()); }), row.arc);
    }
    const auto nobody = MailMessage::parse("Subject: x\r\n\r\n");
    EXPECT_EQ(problem([&] { Signer::arcSet(nobody, arcOptions(), ed25519Key()); }),
              "The message has no From field to sign.");
}

/// One that is too short, and one whose modulus lost a bit.
TEST(Signer, keysWhoseSignaturesWouldNotHold) {
    const auto refused = [](std::string_view pem) {
        const auto key = SigningKey::fromPEM(pem).value();
        return problem([&] { Signer::dkimSignature(MailMessage::parse(plain), options(), key); });
    };
    EXPECT_EQ(refused(test::PrivateKey::rsa(1016).pem(PEM::pkcs8)),
              "The key has only 1016 bits; an RSA key needs at least 1024.");
    std::string pem = test::PrivateKey::rsa(1024).pem(PEM::traditional);
    const std::size_t inModulus = pem.find('\n') + 41;
    pem[inModulus] = pem[inModulus] == 'A' ? 'B' : 'A';
    EXPECT_EQ(refused(pem), "The key can’t be used: what it signs doesn’t verify.");
}

}  // namespace
}  // namespace quillmark
