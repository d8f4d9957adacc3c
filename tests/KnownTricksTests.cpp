// Tricks that have fooled programs of this kind: for each a whole message, made by one who owns evil.example
// and its keys and knows genuine messages of bank.example, and what the text report must say of it and must
// not.

#include <gtest/gtest.h>

#include "QuillmarkKit/Checks/Canonicalization.h"
#include "QuillmarkKit/Checks/Signer.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Verifier.h"
#include "TestSigner.h"
#include "Wording/TextReport.h"

namespace quillmark::test {
namespace {

using namespace std::string_literals;

const Date now = *parsedRFC3339("2026-11-21T10:00:00Z");
constexpr std::int64_t later = 1'795'428'000, lastYear = 1'763'632'800;
const Reader reader{Language::english, Platform::other, [](Date) { return ZoneOffset{}; }};

/// A message with a signature of bank.example on top that holds.
std::string byBank(std::string_view message, const std::string& tags = "h=from:subject") {
    return signedMessage(message, {.tags = "v=1; d=bank.example; s=key; " + tags}, rsaKey());
}
/// The same of evil.example.
std::string byEvil(std::string_view message,
                   const std::string& tags = "d=evil.example; s=key; h=from:subject") {
    return signedMessage(message, {.tags = "v=1; " + tags}, ed25519Key());
}

/// A signature of bank.example that anybody can make once its key has the exponent 1: the padded digest
/// itself.
std::string forgedForExponentOne(std::string_view message) {
    const std::string field =
        "DKIM-Signature: v=1; a=rsa-sha256; c=relaxed/relaxed; d=bank.example; s=one; h=from; bh=" +
        encodedBase64(hash(HashAlgorithm::sha256, "Pay\r\n")) + "; b=";
    const auto parsed = MailMessage::parse(message);
    HashingSink data(HashAlgorithm::sha256);
    addSignedHeaderData(parsed, std::vector{"from"s}, HeaderField{field, "DKIM-Signature"},
                        Canonicalization::relaxed, data);
    const std::string info =
        "\x30\x31\x30\x0d\x06\x09\x60\x86\x48\x01\x65\x03\x04\x02\x01\x05\0\x04\x20"s + data.digest();
    const std::string padded = "\0\1"s + std::string(128 - 3 - info.size(), '\xFF') + "\0"s + info;
    return field + encodedBase64(padded) + "\r\n" + std::string(message);
}
std::string keyOfExponentOne() {
    const std::string modulus = "\0"s + std::string(128, '\xC5');
    const std::string der = "\x30\x81\x87\x02\x81\x81"s + modulus + "\x02\x01\x01";
    return "v=DKIM1; p=" + encodedBase64(der);
}

/// What evil.example says it received from the bank, sealed by itself.
std::string sealedByEvil(const std::string& message) {
    const auto key = SigningKey::newEd25519().value();
    Signer::ARCOptions options;
    options.domain = "evil.example";
    options.selector = "arc";
    options.results = "mx.evil.example; dkim=pass header.d=bank.example; spf=pass; dmarc=pass";
    const auto set = Signer::arcSet(MailMessage::parse(message), options, key);
    return "key: " + Signer::keyRecord(key) + "\r\n" + set.seal + "\r\n" + set.messageSignature + "\r\n" +
           set.results + "\r\n" + message;
}

struct Row {
    const char* trick;
    std::string message;
    std::vector<std::string> says;
    std::vector<std::string> mustNotSay = {"[OK] Signed by bank.example,"};
};

std::string reportOn(std::string message) {
    StaticResolver::Answers answers = {
        {"key._domainkey.bank.example|TXT", DNSAnswer::records({keyRecord(rsaKey())})},
        {"one._domainkey.bank.example|TXT", DNSAnswer::records({keyOfExponentOne()})},
        {"_dmarc.bank.example|TXT", DNSAnswer::records({"v=DMARC1; p=reject"})},
        {"bank.example|TXT", DNSAnswer::records({"v=spf1 ip4:198.51.100.1 -all"})},
    };
    // The attacker can publish whatever he likes under any name of his own.
    const std::string evil = keyRecord(ed25519Key());
    for (const char* name :
         {"key._domainkey.evil.example", "evil.example", "key._domainkey.bank.example(.evil.example",
          "key._domainkey.example", "key._domainkey.bank.example\xEF\xBC\x8F.evil.example"})
        answers[std::string(name) + "|TXT"] = DNSAnswer::records({evil});
    if (message.starts_with("key: ")) {
        const auto end = message.find("\r\n");
        answers["arc._domainkey.evil.example|TXT"] = DNSAnswer::records({message.substr(5, end - 5)});
        message.erase(0, end + 2);
    }
    const Verifier verifier(std::make_shared<StaticResolver>(std::move(answers)));
    return textReport(verifier.verify(MailMessage::parse(message), std::nullopt, now), reader);
}

TEST(KnownTricks, reportsDoNotMislead) {
    const std::string bank = "From: Bank <info@bank.example>\r\n", evil = "From: x@evil.example\r\n",
                      rest = "Subject: Hello\r\n\r\nPay\r\n";
    const std::string genuine = byBank(bank + rest);
    const auto from = [&](const std::string& value) { return byEvil("From: " + value + "\r\n" + rest); };
    const std::string severalFrom = "[!] Several From addresses: ",
                      byEvilOnly = "[!] Signed by evil.example, not by",
                      evilIsTold = "[OK] Signed by evil.example, unchanged",
                      noHost = "isn’t a valid host name, so the signature doesn’t tell who signed.",
                      unproven = "[X] Can’t prove who sent this",
                      anotherName = "[!] The name shows another address: ",
                      route = "[!] The address in From has a route in it: ",
                      results = "[!] The sender could have written the Authentication-Results line",
                      dated = "[!] The signature by bank.example says it was made on ";
    const std::string inComment = "bank.example(.evil.example", wideSlash = "bank.example\uFF0F.evil.example";
    const Row rows[] = {
        {"a genuine message", genuine, {"[OK] Signed by bank.example, unchanged since sent"}, {"[!]", "[X]"}},

        // Two senders, of which one is signed and the other shown.
        {"a From above the signed one",
         bank + byEvil(evil + rest),
         {byEvilOnly, severalFrom, "more From lines than the signature covers"}},
        {"a From behind a bare CR",
         byEvil("X-Mailer: y\rFrom: info@bank.example\r\n" + evil + rest),
         {byEvilOnly, severalFrom}},
        {"a From with a blank behind its name",
         byEvil("FROM :info@bank.example\r\n" + evil + rest),
         {byEvilOnly, severalFrom}},
        {"two addresses in From", from("info@bank.example, x@evil.example"), {byEvilOnly, severalFrom}},
        {"a From in a fold",
         byEvil("X-Mailer: y\r\n From: info@bank.example\r\n" + evil + rest),
         {evilIsTold},
         {"bank.example"}},
        {"no From",
         byEvil("Sender: info@bank.example\r\n" + rest),
         {byEvilOnly, "From: (no From line)",
          "[!] From names no address. The Sender line reads “info@bank.example”."}},

        // One address that looks like another.
        {"NUL", from("info@bank.example\0@evil.example"s), {evilIsTold, route + "“info@bank.example\uFFFD”"}},
        {"a route", from("<@bank.example:x@evil.example>"), {evilIsTold, route + "“@bank.example”"}},
        {"a second @", from("info@bank.example@evil.example"), {evilIsTold, route + "“info@bank.example”"}},
        {"the name of a group",
         from("info@bank.example:x@evil.example;"),
         {evilIsTold, "[!] From also holds something that is no address: “info@bank.example”"}},
        {"an encoded word that holds an address",
         from("=?utf-8?Q?Bank_=3Cinfo=40bank=2Eexample=3E?= <x@evil.example>"),
         {evilIsTold, anotherName}},
        {"an encoded line end",
         from("=?utf-8?Q?Bank=0D=0AFrom=3A_info=40bank=2Eexample?= <x@evil.example>"),
         {evilIsTold, anotherName},
         {"\nFrom: info"}},
        {"an encoded word in place of an address",
         from("=?utf-8?b?aW5mb0BiYW5rLmV4YW1wbGUA?=@evil.example"),
         {evilIsTold},
         {"bank.example"}},
        {"in a comment", from("x@evil.example (info@bank.example)"), {evilIsTold, anotherName}},
        {"behind a comment", from("info@(bank.example)evil.example"), {byEvilOnly, anotherName}},
        {"a comment in the domain",
         byEvil("From: info@" + inComment + "\r\n" + rest, "d=" + inComment + "; s=key; h=from"),
         {noHost}},
        {"a wide slash in the domain",
         byEvil("From: info@" + wideSlash + "\r\n" + rest, "d=" + wideSlash + "; s=key; h=from"),
         {wideSlash + " is no name that DNS can hold, so nobody could be asked"}},

        // Signatures.
        {"somebody else's signature",
         byEvil(bank + rest),
         {byEvilOnly + " bank.example", "[X] Nothing that was proven belongs to bank.example"}},
        {"everybody's signature",
         byEvil(bank + rest, "d=example; s=key; h=from"),
         {"[!] Signed by example, not by bank.example", noHost}},
        {"NUL in the selector",
         byEvil(bank + rest, "d=bank.example; s=evil.example\0; h=from"s),
         {"[?] Can’t check: bank.example’s signing key is no longer published"}},
        {"a key with the exponent 1",
         forgedForExponentOne(bank + rest),
         {unproven, "published key can’t be used"}},
        {"longer than the modulus", replaced(genuine, "; b=", "; b=AAAA"), {"[X] Signature broken"}},
        {"no body covered",
         replaced(byBank(bank + rest, "l=0; h=from:subject"), "\r\n\r\nPay", "\r\n\r\nPay evil"),
         {"[!] The signature covers nothing of the body. All of its 10 bytes could be anyone’s."},
         {}},
        {"text behind what is covered",
         byBank(bank + rest, "l=5; h=from:subject") + "Pay evil\r\n",
         {"[!] The signature covers the body only up to byte 5 (33%)."},
         {}},
        {"a second Subject",
         "Subject: Urgent\r\n" + genuine,
         {"[!] The Subject line that is shown isn’t the one that was signed. Shown: “Urgent”. Signed: "
          "“Hello”."},
         {}},
        {"lines that nobody signed",
         replaced(genuine, "Subject: ", "Reply-To: x@evil.example\r\nSubject: "),
         {"[!] Not covered by the signature: Reply-To.", "[!] Replies go somewhere else"},
         {}},
        {"a header cut short",
         byBank("From: info@bank.example\r\nno colon here\r\n" + rest, "h=from"),
         {"[!] The header lines end at line 4, which isn’t one.", "the body wasn’t checked"},
         {"unchanged since sent"}},
        {"a From behind a line that is none",
         byEvil("Subject: x\r\nno colon\r\n" + bank + rest, "d=evil.example; s=key; h=from"),
         {byEvilOnly, "[!] The header lines end at line 4", "From: (no From line)"}},

        // What others say they found.
        {"results below a server of the sender",
         "Received: from mx.evil.example by mx.home.example\r\nReceived: from b by mx.evil.example\r\n"
         "Authentication-Results: mx.home.example; dkim=pass header.d=bank.example\r\n" +
             bank + rest,
         {unproven, results}},
        {"results of another server",
         "Received: from a by mx.home.example\r\nAuthentication-Results: mx.evil.example; dkim=pass\r\n" +
             bank + rest,
         {unproven, results + ": it speaks of “mx.evil.example”"}},
        {"a chain made by the sender",
         sealedByEvil(bank + rest),
         {unproven,
          "One forwarder, evil.example, signed what it passed on. That is worth as much as you trust it."}},

        // Genuine, but not now.
        {"an old message once more",
         "Received: from a by mx.home.example; Sat, 21 Nov 2026 09:00:00 +0000\r\n" +
             byBank(bank + rest, "t=" + std::to_string(lastYear) + "; h=from:subject"),
         {dated + "20 Nov 2025 at 10:00 UTC, long before"},
         {}},
        {"a signature of the day after tomorrow",
         byBank(bank + rest, "t=" + std::to_string(later) + "; h=from:subject"),
         {dated + "23 Nov 2026 at 10:00 UTC, which is later"},
         {}},
    };
    for (const Row& row : rows) {
        const std::string report = reportOn(row.message);
        SCOPED_TRACE(row.trick + ("\n" + report));
        for (const std::string& text : row.says) EXPECT_NE(report.find(text), std::string::npos) << text;
        for (const std::string& text : row.mustNotSay)
            EXPECT_EQ(report.find(text), std::string::npos) << text;
    }
}

}  // namespace
}  // namespace quillmark::test
