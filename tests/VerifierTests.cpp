// Whole messages through the whole pipeline.

#include "QuillmarkKit/Verifier.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "QuillmarkKit/Checks/Signer.h"
#include "tests/TestSigner.h"

namespace quillmark {
namespace {

const Date now = *parsedRFC3339("2026-11-21T10:00:00Z");

ProofReport report(std::string_view message, StaticResolver::Answers answers = {},
                   std::shared_ptr<RegistrationLookup> registry = nullptr) {
    const Verifier verifier(std::make_shared<StaticResolver>(std::move(answers)), std::move(registry));
    return verifier.verify(MailMessage::parse(message), "a.eml", now);
}

TEST(Verifier, summary) {
    const auto facts = summary(MailMessage::parse(
        "Return-Path: < b@example.org >\r\nFrom: A <a@example.org>\r\nFrom: b@example.org, c@example.org\r\n"
        "Reply-To: r@example.org\r\nTo: t@example.org\r\nSubject: =?utf-8?q?Caf=C3=A9?=\r\nSubject: "
        "second\r\n"
        "Date: Sat, 21 Nov 2026 11:00:00 +0100\r\nMessage-ID:\r\n"));
    EXPECT_EQ(facts.from,
              (std::vector<MailAddress>{
                  {"A", "a@example.org"}, {std::nullopt, "b@example.org"}, {std::nullopt, "c@example.org"}}));
    EXPECT_EQ(facts.replyTo.size(), 1u);
    EXPECT_EQ(facts.to.size(), 1u);
    EXPECT_EQ(facts.subject, "Café");
    EXPECT_EQ(facts.date, now);
    EXPECT_EQ(facts.messageID, "");
    EXPECT_EQ(facts.returnPath, "b@example.org");
    EXPECT_EQ(summary(MailMessage::parse("Return-Path: <>\r\n")).returnPath, std::nullopt);
    EXPECT_EQ(summary({}), MessageSummary{});
}

TEST(Verifier, anEmptyMessageHasAWholeReport) {
    const auto empty = report("");
    EXPECT_EQ(empty.fileName, "a.eml");
    EXPECT_EQ(empty.checkedAt, now);
    EXPECT_NE(empty.id, UUID{});
    EXPECT_NE(empty.id, report("").id);
    EXPECT_TRUE(empty.headersOnly);
    EXPECT_EQ(empty.verdict, (Verdict{VerdictKind::cannotProve, Tone::bad, "", "", {}}));
    EXPECT_EQ(empty.dmarc.status, DMARCFinding::Status::noFromDomain);
    EXPECT_EQ(empty.limits,
              (std::vector{Limit::domainNotCompany, Limit::compromisedMailbox, Limit::headersOnly}));
}

TEST(Verifier, signaturesAndOneSender) {
    const auto& key = test::ed25519Key();
    const auto signedFrom = [&](const std::string& from) {
        return report(test::signedMessage("From: " + from + "\r\nSubject: x\r\n\r\nbody\r\n", {}, key),
                      test::published(key));
    };
    const auto verified = signedFrom("a@mail.example.org");
    EXPECT_EQ(verified.verdict,
              (Verdict{VerdictKind::verified, Tone::good, "example.org", "mail.example.org", {}}));
    EXPECT_FALSE(verified.headersOnly);
    EXPECT_EQ(verified.dmarc.alignedDKIMDomain, "example.org");

    // A message that names two senders belongs to nobody's domain, whoever signed it.
    const auto two = signedFrom("a@example.org, b@example.org");
    EXPECT_EQ(two.verdict.kind, VerdictKind::signedByOther);
    EXPECT_EQ(two.verdict.fromDomain, "");
    EXPECT_EQ(two.dmarc.status, DMARCFinding::Status::noFromDomain);
    EXPECT_EQ(two.flags, (std::vector{LookAlikeFlag{LookAlikeFlag::MultipleFrom{}}}));
    // A part of From that is no address does not make a second sender.
    EXPECT_EQ(signedFrom("a@example.org, \"x\"").verdict.kind, VerdictKind::verified);

    std::string many;
    for (int i = 0; i < 12; ++i) many += "DKIM-Signature: v=" + std::to_string(i) + "\r\n";
    const auto ten = report(many + "From: a@example.org\r\n\r\n").dkim;
    ASSERT_EQ(ten.size(), 10u);
    EXPECT_EQ(ten[9].detail, "v=9");
}

/// A name and its form in DNS are one; what has none is asked for by nobody.
TEST(Verifier, internationalSenders) {
    const std::string letters = "b\u00FCcher.example", ascii = "xn--bcher-kva.example";
    const auto& key = test::ed25519Key();
    class Asked : public StaticResolver {
    public:
        using StaticResolver::StaticResolver;
        DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) override {
            names.emplace_back(name);
            return StaticResolver::lookup(name, type, patience);
        }
        std::vector<std::string> names = {};
    };
    const auto registry = std::make_shared<StaticRegistry>(StaticRegistry::Entries{{ascii, now}});
    const auto checked = [&](const std::string& from, const std::string& signer, const std::string& sender) {
        const auto resolver = std::make_shared<Asked>(StaticResolver::Answers{
            {"key._domainkey." + ascii + "|TXT", DNSAnswer::records({test::keyRecord(key)})},
            {ascii + "|TXT", DNSAnswer::records({"v=spf1 exists:%{l}.%{d} ip4:192.0.2.1 -all"})},
            {"_dmarc." + ascii + "|TXT", DNSAnswer::records({"v=DMARC1; p=reject; adkim=s; aspf=s"})}});
        const std::string message =
            "Return-Path: <" + sender + "@" + from + ">\r\nReceived: from x ([192.0.2.1]) by y; z\r\n" +
            test::signedMessage("From: ann@" + from + "\r\n\r\nbody\r\n",
                                {.tags = "v=1; d=" + signer + "; s=key; h=from"}, key);
        auto report = Verifier(resolver, registry).verify(MailMessage::parse(message), std::nullopt, now);
        return std::pair(std::move(report), resolver->names);
    };
    using Names = std::vector<std::string>;
    const Names asked{"key._domainkey." + ascii, ascii, "ann." + ascii, "_dmarc." + ascii};
    for (const auto& [from, signer] : {std::pair(letters, ascii), {ascii, letters}, {letters, letters}}) {
        const auto [report, names] = checked(from, signer, "ann");
        EXPECT_EQ(report.verdict, (Verdict{VerdictKind::verified, Tone::good, signer, from, {}}));
        EXPECT_EQ(report.spf.domain, from);
        EXPECT_EQ(std::get<SPFFinding::Status::Judged>(report.spf.status.value).result, SPFResult::pass);
        EXPECT_EQ(report.dmarc.status, DMARCFinding::Status::pass);
        EXPECT_EQ(report.dmarc.recordDomain, from);
        EXPECT_EQ(report.domainAge, (DomainAge{from, {DomainAge::Status::Known{now}}}));
        EXPECT_EQ(report.notes, std::vector<ReportNote>());
        EXPECT_EQ(names, asked);
    }
    // The local part is no label, and none is made of it.
    EXPECT_EQ(checked(ascii, ascii, "j\u00FCrgen").second, (Names{asked[0], ascii, asked[3]}));
    const auto [unfit, names] = checked("b\u00ADank.example", "b\u00ADank.example", "ann");
    EXPECT_EQ(unfit.dkim.front().status, DKIMResult::Status::keyNotPublished);
    EXPECT_EQ(unfit.dmarc.status, DMARCFinding::Status::noPolicy);
    EXPECT_EQ(names, Names());
}

/// The verdict, the status of the signature, of SPF and of DMARC, and the limits but for the two that are
/// always there.
std::string outcome(const ProofReport& report) {
    const auto& spf = std::get<SPFFinding::Status::Judged>(report.spf.status.value).result;
    std::string text(nameOf(report.verdict.kind));
    text += " " + std::string(nameOf(report.verdict.tone));
    text += ": " + std::string(nameOf(report.dkim.at(0).status));
    text += ", spf " + std::string(nameOf(spf));
    text += ", dmarc " + std::string(nameOf(report.dmarc.status)) + ";";
    for (std::size_t i = 2; i < report.limits.size(); ++i)
        text += " " + std::string(nameOf(report.limits[i]));
    return text;
}

/// What no sample of the command line's tests ends in, by whole messages.
TEST(Verifier, otherVerdicts) {
    const std::string good = test::keyRecord(test::ed25519Key());
    const std::string from = "\r\nFrom: a@example.org\r\n";
    const std::string message =
        "Return-Path: <a@mail.example.org>\r\nReceived: from x ([192.0.2.1]) by y; z\r\n" +
        test::signedMessage(from.substr(2) + "Subject: x\r\n\r\nbody\r\n", {}, test::ed25519Key());
    const std::string malformed = test::replaced(message, "v=1;", "v=2;");
    const std::string chain =
        "\r\nARC-Authentication-Results: i=1\r\nARC-Message-Signature: i=1\r\nARC-Seal: ";
    const struct {
        std::string what, edited, key, spf, dmarc, outcome;
    } rows[] = {
        {"no body", test::replaced(message, "\r\n\r\nbody\r\n", ""), good, "~all", "v=DMARC1",
         "verifiedHeadersOnly good: pass, spf softfail, dmarc pass; spfFromReceived headersOnly"},
        {"Subject changed", test::replaced(message, "Subject: x", "Subject: y"), good, "+all", "v=DMARC1",
         "signatureBroken bad: headersChanged, spf pass, dmarc pass; forwarding spfFromReceived"},
        {"a chain that says it is broken",
         test::replaced(message, from, chain + "i=1; cv=fail; d=b.example" + from), good, "-all", "v=DMARC1",
         "verified good: pass, spf fail, dmarc pass; forwarding spfFromReceived"},
        {"a broken chain vouches for nothing",
         test::replaced(message, from, chain + "i=2; d=b.example\r\nX: x\r\n"), good, "-all", "",
         "signatureBroken bad: headersChanged, spf fail, dmarc noFromDomain; forwarding spfFromReceived"},
        {"key revoked", message, "p=", "+all", "v=DMARC1",
         "keyGone unknown: keyRevoked, spf pass, dmarc pass; oldKeys spfFromReceived"},
        {"key of another kind", message, "k=rsa; p=AAAA", "?all", "v=DMARC1",
         "cannotProve bad: keyUnusable, spf neutral, dmarc fail; spfFromReceived"},
        {"unknown algorithm", test::replaced(message, "a=ed25519-sha256", "a=x"), good,
         "include:out.example +all", "",
         "cannotProve bad: unsupportedAlgorithm, spf temperror, dmarc noPolicy; spfFromReceived"},
        {"malformed, but an allowed server", malformed, good, "redirect=_spf.example.org", "",
         "allowedServerOnly caution: malformed, spf pass, dmarc noPolicy; spfFromReceived"},
        {"allowed for another name only", malformed, good, "+all", "v=DMARC1; aspf=s",
         "cannotProve bad: malformed, spf pass, dmarc fail; spfFromReceived"},
        {"SPF record with a mistake", malformed, good, "include:gone.example +all", "v=DMARC1",
         "cannotProve bad: malformed, spf permerror, dmarc fail; spfFromReceived"},
        {"policy that cannot be asked for", malformed, good, "+all", "!",
         "cannotProve bad: malformed, spf pass, dmarc lookupFailed; spfFromReceived"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const auto resolver = std::make_shared<StaticResolver>(
            StaticResolver::Answers{
                {"key._domainkey.example.org|TXT", DNSAnswer::records({row.key})},
                {"_spf.example.org|TXT", DNSAnswer::records({"v=spf1 ip4:192.0.2.0/24 -all"})},
                {"mail.example.org|TXT", DNSAnswer::records({"v=spf1 " + row.spf})},
                {"_dmarc.example.org|TXT", DNSAnswer::records({row.dmarc})}},
            std::set<std::string, std::less<>>{"out.example", row.dmarc == "!" ? "_dmarc.example.org" : ""});
        EXPECT_EQ(outcome(Verifier(resolver).verify(MailMessage::parse(row.edited), std::nullopt, now)),
                  row.outcome);
    }
}

TEST(Verifier, theEnvelopeAndItsServer) {
    const StaticResolver::Answers answers = {
        {"example.org|TXT", DNSAnswer::records({"v=spf1 ip4:192.0.2.1 -all"})},
        {"helo.example.org|TXT", DNSAnswer::records({"v=spf1 ?all"})},
        {"_dmarc.example.org|TXT", DNSAnswer::records({"v=DMARC1; p=reject"})}};
    using Finding = SPFFinding::Status;
    const std::string received = "Received: from helo.EXAMPLE.org ([192.0.2.1]) by mx.example.net; x\r\n",
                      nameless = "Received: from host ([192.0.2.1]) by mx.example.net; x\r\n";
    const Finding passed{Finding::Judged{SPFResult::pass}}, neutral{Finding::Judged{SPFResult::neutral}};
    const struct {
        std::string fields;
        Finding status;
        std::optional<std::string> domain = {}, matched = {};
    } rows[] = {
        {"Return-Path: <a@Example.ORG>\r\n" + received, passed, "example.org",
         "ip4:192.0.2.1 in example.org"},
        {"Return-Path: <\"a@b\"@example.org>\r\n" + received, passed, "example.org",
         "ip4:192.0.2.1 in example.org"},
        {"Return-Path: <>\r\n" + received, neutral, "helo.example.org", "?all in helo.example.org"},
        {nameless, {Finding::NoEnvelopeSender{}}},
        {"Return-Path: <a@example.org>\r\n", {Finding::NoSenderIP{}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fields);
        const auto checked = report(row.fields + "From: a@example.org\r\n\r\n", answers);
        EXPECT_EQ(checked.spf.status, row.status);
        EXPECT_EQ(checked.spf.domain, row.domain);
        EXPECT_EQ(checked.spf.matched, row.matched);
        EXPECT_EQ(checked.spf.ip.has_value(), row.fields.find("Received") != std::string::npos);
        EXPECT_EQ(checked.verdict.kind,
                  row.status == passed ? VerdictKind::allowedServerOnly : VerdictKind::cannotProve);
    }
}

TEST(Verifier, receiverResults) {
    const auto results =
        report("Authentication-Results: top\r\nFrom: a@b.example\r\nAuthentication-Results: below\r\n")
            .receiverResults;
    EXPECT_EQ(results, (std::vector<AuthResults>{{"top", {}}, {"below", {}}}));
}

TEST(Verifier, domainAges) {
    const Date young = now - std::chrono::days(89), old = now - std::chrono::days(90);
    const auto registry =
        std::make_shared<StaticRegistry>(StaticRegistry::Entries{{"example.org", young},
                                                                 {"shop.example", young},
                                                                 {"old.example", old},
                                                                 {"none.example", std::optional<Date>()},
                                                                 {"closed.example", "closed"}});
    using Status = DomainAge::Status;
    const struct {
        std::string fields;
        DomainAge age;
        int youngSigns;
    } rows[] = {
        {"From: a@mail.example.org", {"example.org", {Status::Known{young}}}, 1},
        {"From: a@old.example\r\nReply-To: b@x.shop.example, c@shop.example",
         {"old.example", {Status::Known{old}}},
         1},
        {"From: a@none.example", {"none.example", {Status::NotPublished{}}}, 0},
        {"From: a@closed.example\r\nReply-To: b@shop.example",
         {"closed.example", {Status::Unavailable{"closed"}}},
         1},
        {"From: a@example.org, b@example.org", {}, 0},
        {"Subject: x", {}, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fields);
        const auto checked = report(row.fields + "\r\n\r\n", {}, registry);
        EXPECT_EQ(checked.domainAge, row.age);
        EXPECT_EQ(
            std::ranges::count_if(checked.flags,
                                  [](const LookAlikeFlag& flag) {
                                      return std::holds_alternative<LookAlikeFlag::YoungDomain>(flag.value);
                                  }),
            row.youngSigns);
    }
    const auto skipped = report("From: a@mail.example.org\r\n\r\n");
    EXPECT_EQ(skipped.domainAge, (DomainAge{"example.org", {Status::Skipped{}}}));
}

TEST(Verifier, forwardersVouchForWhatTheyChanged) {
    const SigningKey key = SigningKey::newEd25519().value();
    StaticResolver::Answers answers;
    for (const char* domain : {"example.org", "list.example", "last.example"})
        answers["key._domainkey." + std::string(domain) + "|TXT"] =
            DNSAnswer::records({Signer::keyRecord(key)});
    const auto forwarded = [&](const std::string& message, const std::string& by) {
        Signer::ARCOptions options;
        options.domain = by;
        options.selector = "key";
        options.results = by + "; dkim=pass header.d=example.org";
        const auto set = Signer::arcSet(MailMessage::parse(message), options, key);
        return set.seal + "\r\n" + set.messageSignature + "\r\n" + set.results + "\r\n" + message;
    };
    const std::string sent = "From: a@example.org\r\nSubject: x\r\n\r\nbody\r\n";
    const Signer::Options options = {
        .domain = "example.org", .selector = "key", .headers = {"from", "subject"}};
    const std::string signedMessage =
        Signer::dkimSignature(MailMessage::parse(sent), options, key) + "\r\n" + sent;
    const std::string twice =
        forwarded(forwarded(signedMessage + "-- list\r\n", "list.example"), "last.example");
    const auto passed = report(twice, answers);
    EXPECT_EQ(passed.arc.status, (ARCFinding::Status{ARCFinding::Status::Pass{}}));
    const std::vector<std::string> both = {"list.example", "last.example"};
    EXPECT_EQ(passed.verdict,
              (Verdict{VerdictKind::signatureBroken, Tone::caution, "example.org", "example.org", both}));
    EXPECT_EQ(std::ranges::count(passed.limits, Limit::forwarding), 1);
    // Changed once more after the last of them: nobody vouches for that.
    const auto changed = report(twice + "more\r\n", answers);
    EXPECT_EQ(changed.arc.detail, "ARC-Message-Signature i=2 didn't verify");
    EXPECT_EQ(changed.verdict.tone, Tone::bad);
}

}  // namespace
}  // namespace quillmark
