// What a report holds whatever the message says; whole messages with what it must say are tests/messages/.

#include "QuillmarkKit/Verifier.h"

#include <thread>

#include "tests/Test.h"

namespace quillmark {
namespace {

const Date now = *parsedRFC3339("2026-11-21T10:00:00Z");

TEST(Verifier, summary) {
    const auto facts = summary(MailMessage::parse(
        "Return-Path: < b@example.org >\r\nFrom: A <a@example.org>\r\nFrom: b@example.org, c@example.org\r\n"
        "Reply-To: r@example.org\r\nTo: t@example.org\r\nSubject: =?utf-8?q?Caf=C3=A9?=\r\nSubject: "
        "second\r\n"
        "Date: Sat, 21 Nov 2026 11:00:00 +0100\r\nMessage-ID:\r\n"));
    EXPECT_EQ(facts.from,
              (PackedList<MailAddress>{
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
    const Verifier verifier(std::make_shared<StaticResolver>(StaticResolver::Answers()));
    const auto empty = verifier.verify(MailMessage(), "a.eml", now);
    EXPECT_EQ(empty.fileName, "a.eml");
    EXPECT_EQ(empty.checkedAt, now);
    EXPECT_NE(empty.id, UUID{});
    EXPECT_NE(empty.id, verifier.verify(MailMessage(), "a.eml", now).id);
    EXPECT_TRUE(empty.headersOnly);
    EXPECT_EQ(empty.verdict, (Verdict{VerdictKind::cannotProve, Tone::bad, "", "", {}}));
    EXPECT_EQ(empty.dmarc.status, DMARCFinding::Status::noFromDomain);
    EXPECT_EQ(empty.limits,
              (std::vector{Limit::domainNotCompany, Limit::compromisedMailbox, Limit::headersOnly}));
}

TEST(Verifier, receiverResults) {
    const auto message = MailMessage::parse(
        "Authentication-Results: top\r\nFrom: a@b.example\r\nAuthentication-Results: below\r\n");
    const Verifier verifier(std::make_shared<StaticResolver>(StaticResolver::Answers()));
    EXPECT_EQ(verifier.verify(message, {}, now).receiverResults,
              (std::vector<AuthResults>{{"top", {}}, {"below", {}}}));
}

/// A verifier keeps keys, and two keys of one name are two, whoever checks at the same time.
TEST(Verifier, keysUnderOneName) {
    const auto& key = test::rsaKey();
    const auto message = MailMessage::parse(
        test::signedMessage("From: a@example.org\r\nSubject: Hello\r\n\r\nHi\r\n", {}, key));
    const auto asking = [](const test::PrivateKey& published) {
        return std::make_shared<StaticResolver>(test::published(published));
    };
    const Verifier verifier(asking(key));
    const auto check = [&](const std::shared_ptr<DNSResolver>& resolver, DKIMResult::Status status) {
        for (int i = 0; i < 20; ++i) {
            const auto report = verifier.asking(resolver, nullptr).verify(message, {}, now);
            EXPECT_EQ(report.dkim.front().status, status);
        }
    };
    const std::jthread right(check, asking(key), DKIMResult::Status::pass),
        changed(check, asking(test::PrivateKey::rsa(1024)), DKIMResult::Status::headersChanged);
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

}  // namespace
}  // namespace quillmark
