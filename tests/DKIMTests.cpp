#include "QuillmarkKit/Checks/DKIM.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using Status = DKIMResult::Status;
using test::keyRecord;
using test::PrivateKey;
using test::published;
using test::replaced;
using test::rsaKey;
using test::signedMessage;

const std::string plain =
    "From: Alice <a@example.org>\r\nSubject: Hello\r\n\tworld\r\nTo: b@example.com\r\n\r\nBody  text "
    "\r\n\r\n";
const Date now = Date(std::chrono::seconds(1'800'000'000));

DKIMResult check(std::string_view message, StaticResolver::Answers answers,
                 SignatureChecker::Kind kind = SignatureChecker::Kind::dkim) {
    const auto parsed = MailMessage::parse(message);
    StaticResolver resolver(std::move(answers), {"key._domainkey.broken.example"});
    std::optional<BodyHashes> hashes;
    if (parsed.body()) hashes.emplace(*parsed.body());
    return SignatureChecker{parsed, hashes ? &*hashes : nullptr, resolver, now}.check(
        parsed.headers().front(), kind);
}

StaticResolver::Answers answers(std::vector<std::string> records) {
    return {{"key._domainkey.example.org|TXT", DNSAnswer::records(std::move(records))}};
}

/// The plain message with a signature that has these tags besides.
std::string signedWith(const std::string& tags) {
    return signedMessage(plain, {.tags = "v=1; d=example.org; s=key; " + tags}, rsaKey());
}

TEST(DKIM, everyAlgorithmAndCanonicalization) {
    for (const auto algorithm :
         {SignatureAlgorithm::rsaSHA256, SignatureAlgorithm::rsaSHA1, SignatureAlgorithm::ed25519SHA256}) {
        const bool isRSA = algorithm != SignatureAlgorithm::ed25519SHA256;
        const PrivateKey& key = isRSA ? rsaKey() : test::ed25519Key();
        for (const char* form : {"simple/simple", "simple/relaxed", "relaxed/simple", "relaxed/relaxed"}) {
            SCOPED_TRACE(std::string(nameOf(algorithm)) + form);
            const std::string message =
                signedMessage(plain, {.algorithm = algorithm, .canonicalization = form}, key);
            const auto changed = [&](std::string_view what, std::string_view with) {
                return check(replaced(message, what, with), published(key)).status;
            };
            const DKIMResult result = check(message, published(key));
            EXPECT_EQ(result.status, Status::pass) << result.detail;
            EXPECT_TRUE(result.bodyChecked);
            EXPECT_EQ(result.keyBits, isRSA ? std::optional(1024) : std::nullopt);
            EXPECT_EQ(changed("Hello", "Hallo"), Status::headersChanged);
            EXPECT_EQ(changed("Body", "Bady"), Status::bodyChanged);
            const bool relaxed = std::string_view(form).ends_with("relaxed");
            EXPECT_EQ(changed("Body  ", "Body "), relaxed ? Status::pass : Status::bodyChanged);
        }
    }
}

TEST(DKIM, lineEndsAndEightBitBytesAreNoChange) {
    const std::string latin1 =
        "From: J\xFCrgen <j@example.org>\r\nSubject: Gr\xFC\xDF\x65\r\n\r\nGr\xFC\xDF\x65\r\n";
    std::string message = signedMessage(latin1, {.canonicalization = "simple/simple"}, rsaKey());
    std::erase(message, '\r');
    EXPECT_EQ(check(message, published(rsaKey())).status, Status::pass);
}

/// Faults in the tags, each met before any key is asked for: the first in the order of the steps is told.
TEST(DKIM, tagsThatAreNoSignature) {
    const std::string good = "v=1; a=rsa-sha256; b=AAAA; bh=AAAA; d=example.org; h=From:to; s=key";
    const struct {
        std::string tags;
        Status status;
        std::string detail;
    } rows[] = {
        {"d=a; d=b", Status::malformed, "tag d= appears twice"},
        {good + "; D=x", Status::malformed, "tag d= appears twice"},
        {"a=rsa-sha256", Status::malformed, "no v= tag"},
        {"v=2", Status::malformed, "v=2"},
        {"v=1.0", Status::malformed, "v=1.0"},
        {"v=1", Status::malformed, "no a= tag"},
        {"v=1; a=x; h=from; d=x; s=y", Status::malformed, "no b= tag"},
        {"v=1; a=x; b=; h=from; d=x; s=y", Status::malformed, "no bh= tag"},
        {"v=1; a=x; b=; bh=; s=y; h=from", Status::malformed, "no d= tag"},
        {"v=1; a=x; b=; bh=; s=y; d=x", Status::malformed, "no h= tag"},
        {"v=1; a=x; b=; bh=; d=x; h=from", Status::malformed, "no s= tag"},
        {"v=1; a=x; b=; bh=; d=; h=to; s=y", Status::malformed, "empty d= or s="},
        {"v=1; a=x; b=; bh=; d=x; h=to; s= ", Status::malformed, "empty d= or s="},
        {"v=1; a=x; b=; bh=; d=x; h=to:fromm; s=y", Status::malformed, "From isn't signed (h=)"},
        {replaced(good, "rsa-sha256", "RSA-SHA256"), Status::unsupportedAlgorithm, "a=RSA-SHA256"},
        {replaced(good, "rsa-sha256", ""), Status::unsupportedAlgorithm, "a="},
        {good + "; c=relaxed/", Status::malformed, "c=relaxed/"},
        {replaced(good, "bh=AAAA", "bh=AAA"), Status::malformed, "b= or bh= is not base64"},
        {replaced(good, "b=AAAA", "b=A*AA"), Status::malformed, "b= or bh= is not base64"},
        {good + "; i=@notexample.org", Status::malformed, "i= is outside d="},
        {good + "; i=example.org", Status::malformed, "i= is outside d="},
        {good + "; i=", Status::malformed, "i= is outside d="},
        {good + "; l=-1", Status::malformed, "l=-1"},
        {good + "; l=", Status::malformed, "l="},
        {good + "; l=99999999999999999999", Status::malformed, "l=99999999999999999999"},
        {good + "; i=x@A.Example.ORG; c=Relaxed", Status::keyNotPublished,
         "key._domainkey.example.org: no key"},
        {replaced(good, "d=example.org", "d=broken.example"), Status::lookupFailed, "no resolver answered"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.tags);
        const auto result = check("DKIM-Signature: " + row.tags + "\r\nFrom: a@b\r\n\r\n", {});
        EXPECT_EQ(result.status, row.status);
        EXPECT_EQ(result.detail, row.detail);
        EXPECT_FALSE(result.bodyChecked);
    }
}

/// Sixty signatures that each cover a whole message of 50 MB must not cost sixty times its size.
TEST(DKIM, signedHeaderOfAnySize) {
    for (const auto& [size, status] : {std::pair(15, Status::pass), std::pair(17, Status::malformed)}) {
        const std::string subject(static_cast<std::size_t>(size) * 1'000'000, 'x');
        const std::string text = "From: a@example.org\r\nSubject: " + subject + "\r\n\r\n";
        const auto result = check(signedMessage(text, {}, rsaKey()), published(rsaKey()));
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.detail, size > 16 ? "more than 16 MB of header fields are signed" : "");
    }
}

TEST(DKIM, keys) {
    const std::string message = signedMessage(plain, {}, rsaKey());
    const std::string good = keyRecord(rsaKey()), otherType = replaced(good, "k=rsa", "k=ed25519");
    const struct {
        std::vector<std::string> records;
        Status status;
        std::string detail;
    } rows[] = {
        {{good}, Status::pass, ""},
        {{"v=spf1 -all", "p", good, "v=DKIM1; p="}, Status::pass, ""},  // the first that has a p= tag
        {{}, Status::keyNotPublished, "key._domainkey.example.org: no key"},
        {{"v=DKIM1; k=rsa"}, Status::keyNotPublished, "key._domainkey.example.org: no key"},
        {{"v=DKIM1; p="}, Status::keyRevoked, ""},
        {{"v=dkim1; p=AAAA"}, Status::keyUnusable, "v=dkim1"},
        {{"p=AAA"}, Status::keyUnusable, "p= is not base64"},
        {{"p=AAAA"}, Status::keyUnusable, "the key's bytes are not a key"},
        {{otherType}, Status::keyUnusable, "the key is for ed25519, the signature uses rsa-sha256"},
        {{good + "; h=sha1"}, Status::keyUnusable, "the key does not allow sha256"},
        {{good + "; h=sha1: SHA256"}, Status::pass, ""},
        {{good + "; s=x: EMail"}, Status::pass, ""},
        {{good + "; s=*"}, Status::pass, ""},
        {{good + "; s="}, Status::pass, ""},
        {{good + "; s=tlsrpt: X", good}, Status::keyUnusable, "the key isn’t for email (s=tlsrpt: X)"},
        {{"p=; s=x"}, Status::keyRevoked, ""},
        {{keyRecord(PrivateKey::rsa(1024))}, Status::headersChanged, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.records));
        const auto result = check(message, answers(row.records));
        EXPECT_EQ(result.status, row.status);
        EXPECT_EQ(result.detail, row.detail);
    }
    // The key's size counts only once its signature has verified.
    for (const auto& [bits, status] :
         {std::pair{512u, Status::keyTooWeak}, {1016u, Status::keyTooWeak}, {1023u, Status::pass}}) {
        const PrivateKey key = PrivateKey::rsa(bits);
        const auto result = check(signedMessage(plain, {}, key), published(key));
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.detail, status == Status::pass ? "" : std::to_string(bits) + "-bit RSA key");
        EXPECT_EQ(result.keyBits, bits == 1023 ? 1024 : static_cast<int>(bits));
    }
}

TEST(DKIM, identityAndStrictKeys) {
    const auto identified = [](const std::string& tags, const std::string& key,
                               const std::string& domain = "Example.org") {
        StaticResolver::Answers table;
        table.emplace(StaticResolver::key("key._domainkey." + domain, DNSRecordType::txt),
                      DNSAnswer::records({keyRecord(rsaKey()) + key}));
        return check(
            signedMessage(plain, {.tags = "v=1; d=" + domain + "; s=key; h=From:Subject" + tags}, rsaKey()),
            std::move(table));
    };
    EXPECT_EQ(identified("; i=a@sub.example.org", "").status, Status::pass);
    EXPECT_EQ(identified("; i=a@EXAMPLE.org", "; t=y:s").status, Status::pass);
    EXPECT_EQ(identified("", "; t=y:s").status, Status::pass);
    EXPECT_EQ(identified("; i=a@x.b\u00FCcher.example", "", "xn--bcher-kva.example").status, Status::pass);
    EXPECT_EQ(identified("; i=a@B\u00DCcher.example", "; t=s", "xn--bcher-kva.example").status, Status::pass);
    const auto outside = identified("; i=a@sub.example.org", "; t=y:s");
    EXPECT_EQ(outside.status, Status::malformed);
    EXPECT_EQ(outside.detail, "the key requires i= to be exactly d= (t=s)");
    EXPECT_TRUE(outside.testing);
    EXPECT_EQ(outside.identity, "a@sub.example.org");
}

TEST(DKIM, bodyLength) {
    // The canonical body is "Body text" and CR LF: 11 bytes.
    const std::string longer = "l=12 is longer than the body";
    const struct {
        std::string length;
        Status status;
        std::string detail;
        std::optional<std::int64_t> unsignedBytes;
    } rows[] = {
        {"11", Status::pass, "", 0},
        {"00004", Status::pass, "", 7},
        {"0", Status::pass, "", 11},
        {"12", Status::bodyChanged, longer, std::nullopt},
        {"00012", Status::bodyChanged, longer, std::nullopt},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.length);
        const auto result = check(signedWith("h=from:subject; l=" + row.length), published(rsaKey()));
        EXPECT_EQ(result.status, row.status);
        EXPECT_EQ(result.detail, row.detail);
        EXPECT_EQ(result.bodyLength, decimal(row.length));
        EXPECT_EQ(result.unsignedBodyBytes, row.unsignedBytes);
        EXPECT_TRUE(result.bodyChecked);
    }
    EXPECT_EQ(check(signedWith("h=from; l=4") + "appended", published(rsaKey())).unsignedBodyBytes,
              7 + 2 + 10);
}

TEST(DKIM, headersOnly) {
    std::string message = signedWith("h=from; l=3");
    message.resize(message.find("\r\n\r\n") + 2);
    const auto result = check(message, published(rsaKey()));
    EXPECT_EQ(result.status, Status::pass);
    EXPECT_FALSE(result.bodyChecked);
    EXPECT_EQ(result.bodyLength, 3);
    EXPECT_EQ(result.unsignedBodyBytes, std::nullopt);
}

TEST(DKIM, timesAndAsWritten) {
    const auto dated = [&](const std::string& tags) {
        return check(
            signedMessage(plain, {.tags = "v=1; d=Example.ORG; s=key; h= From : subject ::; " + tags},
                          rsaKey()),
            published(rsaKey()));
    };
    auto result = dated("t=1700000000; x=1799999999");
    EXPECT_EQ(result.status, Status::pass);
    EXPECT_TRUE(result.expired);
    EXPECT_EQ(result.signedAt, Date(std::chrono::seconds(1'700'000'000)));
    EXPECT_EQ(result.domain, "Example.ORG");
    EXPECT_EQ(result.signedHeaders, (TextList{"From", "subject"}));
    EXPECT_EQ(result.canonicalization, "relaxed/relaxed");
    EXPECT_FALSE(dated("x=1800000000").expired);
    for (const char* number : {"", "-1", "1.5", "1e9", "1234567890123456"}) {
        result = dated("t=" + std::string(number) + "; x=" + number);
        EXPECT_EQ(result.signedAt, std::nullopt) << number;
        EXPECT_EQ(result.expiresAt, std::nullopt) << number;
        EXPECT_EQ(result.status, Status::pass);
    }
    EXPECT_TRUE(dated("x=999999999999999").expiresAt);
}

TEST(DKIM, linesThatAReaderReliesOn) {
    const auto uncovered = [&](const std::string& above, const std::string& tags) {
        const auto result =
            check(replaced(signedWith(tags), "\r\nFrom:", "\r\n" + above + "From:"), published(rsaKey()));
        EXPECT_EQ(result.status, Status::pass);
        return result.unsignedImportant;
    };
    using Names = std::vector<std::string>;
    EXPECT_EQ(uncovered("", "h=from:subject:to:date"), Names{});
    EXPECT_EQ(uncovered("", "h=from"), (Names{"Subject", "To"}));
    EXPECT_EQ(uncovered("Subject: Pay now\r\n", "h=from:subject:to"), Names{"Subject"});
    EXPECT_EQ(uncovered("From: x@evil.example\r\nreply-to: y\r\nCC: z\r\nDate: d\r\nContent-Type: t\r\n",
                        "h=from:To:SUBJECT"),
              (Names{"From", "Date", "Cc", "Reply-To"}));
    EXPECT_EQ(uncovered("Content-Type: t\r\n", "h=from:to:subject; l=0"), Names{"Content-Type"});
}

TEST(DKIM, aStoppedCheckAccusesNobody) {
    const auto message =
        MailMessage::parse(signedMessage(plain, {.canonicalization = "simple/simple"}, rsaKey()));
    StaticResolver resolver(published(rsaKey()));
    BodyHashes hashes(*message.body());
    std::stop_source stop;
    stop.request_stop();
    const SignatureChecker checker{message, &hashes, resolver, now, stop.get_token()};
    const auto result = checker.check(message.headers().front());
    EXPECT_EQ(result.status, Status::lookupFailed);
    EXPECT_EQ(result.detail, "stopped");
    EXPECT_FALSE(result.bodyChecked);
}

TEST(DKIM, ofAForwarder) {
    const auto records = answers({keyRecord(rsaKey()) + "; t=s"});
    const std::string message = signedMessage(
        plain, {.tags = "i=1; d=example.org; s=key; h=from", .fieldName = "ARC-Message-Signature"}, rsaKey());
    const auto result = check(message, records, SignatureChecker::Kind::arc);
    EXPECT_EQ(result.status, Status::pass) << result.detail;
    EXPECT_EQ(result.identity, std::nullopt);
    EXPECT_EQ(check(message, records).detail, "no v= tag");
}

}  // namespace
}  // namespace quillmark
