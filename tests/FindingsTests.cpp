#include "Wording/Findings.h"

#include <gtest/gtest.h>

#include <set>

#include "Wording/Details.h"
#include "Wording/ReceiverResults.h"
#include "WordingSupport.h"

namespace quillmark {
namespace {

SPFFinding spf(SPFResult result) {
    return {.status = {SPFFinding::Status::Judged{result}},
            .domain = "d.example",
            .ip = SenderIP{"192.0.2.1", {SenderIP::Source::Received{"mx.example"}}, {}},
            .detail = "include loop"};
}

TEST(Findings, spf) {
    const struct {
        SPFResult result;
        std::string label, sentence;
    } rows[] = {
        {SPFResult::pass, "Allowed server", "d.example lets the server 192.0.2.1 send its mail."},
        {SPFResult::fail, "Server not allowed",
         "d.example says that the server 192.0.2.1 may not send its mail."},
        {SPFResult::softfail, "Server probably not allowed",
         "d.example says that the server 192.0.2.1 probably shouldn’t send its mail."},
        {SPFResult::neutral, "No opinion", "d.example’s record says nothing about the server 192.0.2.1."},
        {SPFResult::none, "No SPF record", "d.example doesn’t say which servers may send its mail."},
        {SPFResult::permerror, "Broken SPF record",
         "d.example’s SPF record has a mistake, so it can’t be used: include loop."},
        {SPFResult::temperror, "Lookup failed",
         "d.example’s SPF record couldn’t be asked for: include loop. Check again when you are online."},
    };
    ASSERT_EQ(std::size(rows), namesOf(SPFResult{}).names.size());
    for (const auto& row : rows) {
        EXPECT_EQ(label(spf(row.result), english), row.label);
        EXPECT_EQ(sentence(spf(row.result), english), row.sentence);
        EXPECT_NE(sentence(spf(row.result), german), row.sentence);
    }
    for (const SPFFinding& finding : {SPFFinding{.status = {SPFFinding::Status::NoEnvelopeSender{}}},
                                      SPFFinding{.status = {SPFFinding::Status::NoSenderIP{}}}}) {
        EXPECT_EQ(label(finding, english), "Not judged");
        EXPECT_EQ(sentence(finding, english).find("Can’t be judged"), 0u);
        EXPECT_TRUE(remarks(finding, english).empty());
        EXPECT_EQ(tone(finding), Tone::unknown);
    }
    EXPECT_EQ(remarks(spf(SPFResult::pass), english).front().text,
              "The address comes from the Received line written by mx.example, which should be your own mail "
              "provider.");
}

TEST(Findings, dmarc) {
    using Status = DMARCFinding::Status;
    const struct {
        Status status;
        std::string label;
        Tone tone;
    } rows[] = {
        {Status::pass, "Aligned with From", Tone::good},
        {Status::fail, "Not aligned with From", Tone::bad},
        {Status::noPolicy, "No DMARC policy", Tone::unknown},
        {Status::lookupFailed, "Lookup failed", Tone::unknown},
        {Status::noFromDomain, "No single From address", Tone::unknown},
    };
    ASSERT_EQ(std::size(rows), namesOf(Status{}).names.size());
    std::set<std::string> sentences;
    for (const auto& row : rows) {
        const DMARCFinding finding{.status = row.status, .fromDomain = "d.example"};
        EXPECT_EQ(label(finding, english), row.label);
        EXPECT_EQ(tone(finding), row.tone);
        sentences.insert(sentence(finding, english));
        sentences.insert(sentence(finding, german));
    }
    EXPECT_EQ(sentences.size(), 2 * std::size(rows));
    EXPECT_EQ(policyInWords("reject", english), "reject failing mail");
    EXPECT_EQ(policyInWords("quarantine", english), "send failing mail to spam");
    EXPECT_EQ(policyInWords("none", english), "monitor only");
    EXPECT_EQ(policyInWords("Reject", english), "Reject");
    const DMARCFinding some{.appliedPolicy = "reject", .percent = 5, .record = "", .recordDomain = "d"};
    EXPECT_EQ(remarks(some, english).front().text, "What d asks receivers to do: reject failing mail.");
    EXPECT_EQ(remarks(some, german).back().text, "Das gilt nur für 5 % der Nachrichten, die durchfallen.");
}

TEST(Findings, arc) {
    const ARCFinding::Hop hop{.instance = 1, .sealer = "list.example", .messageSignature = {}};
    const struct {
        ARCFinding finding;
        std::string label, sentence;
    } rows[] = {
        {{}, "Not forwarded", "No forwarder left its mark on this message."},
        {{{ARCFinding::Status::Pass{}}, "", {hop}},
         "Chain intact",
         "One forwarder, list.example, signed what it passed on. That is worth as much as you trust it."},
        {{{ARCFinding::Status::Pass{}}, "", {hop, hop}},
         "Chain intact",
         "Each of the 2 forwarders signed what it passed on, the last of them list.example. That is worth as "
         "much as you trust them."},
        {{{ARCFinding::Status::Fail{ARCFinding::Reason::sealSaysFailed}}, "ARC-Seal i=2 has cv=fail", {}},
         "Chain broken",
         "A forwarder found the marks before its own broken already: ARC-Seal i=2 has cv=fail."},
        {{{ARCFinding::Status::Unknown{}}, "", {}},
         "Lookup failed",
         "A forwarder’s key couldn’t be asked for, so the chain can’t be judged. Check again when you are "
         "online."},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(label(row.finding, english), row.label);
        EXPECT_EQ(sentence(row.finding, english), row.sentence);
    }
    std::set<std::string> sentences;
    for (const auto reason : {0, 1, 2, 3}) {
        ARCFinding finding{{ARCFinding::Status::Fail{static_cast<ARCFinding::Reason>(reason)}}, "x", {}};
        sentences.insert(sentence(finding, german));
    }
    EXPECT_EQ(sentences.size(), namesOf(ARCFinding::Reason{}).names.size());
}

TEST(Findings, age) {
    const struct {
        DomainAge::Status status;
        std::string english, german;
    } rows[] = {
        {{DomainAge::Status::Known{january(1) - std::chrono::days(7700)}},
         "registered on 2 Dec 2004, 21 years ago",
         "registriert am 2. Dez. 2004, vor 21 Jahren"},
        {{DomainAge::Status::Known{january(1) - std::chrono::days(100)}},
         "registered on 23 Sep 2025, 3 months ago",
         "registriert am 23. Sept. 2025, vor 3 Monaten"},
        {{DomainAge::Status::Known{january(19)}},
         "registered on 19 Jan 2026, only 1 day ago",
         "registriert am 19. Jan. 2026, vor nur 1 Tag"},
        {{DomainAge::Status::Known{january(21)}},
         "registered on 21 Jan 2026, after the message was checked",
         "registriert am 21. Jan. 2026, nach der Prüfung der Nachricht"},
        {{DomainAge::Status::Unavailable{"no RDAP server for .zz in the IANA list"}},
         "its age couldn’t be found out: no RDAP server for .zz in the IANA list",
         "Alter nicht zu ermitteln: in der Liste der IANA steht kein RDAP-Server für .zz"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ageInWords({"d", row.status}, january(20), english), row.english);
        EXPECT_EQ(ageInWords({"d", row.status}, january(20), german), row.german);
    }
}

TEST(Findings, details) {
    const struct {
        std::string_view detail, german;
    } rows[] = {
        {"a.example: timed out; b.example: no connection",
         "a.example: keine Antwort in der vorgesehenen Zeit; b.example: keine Verbindung"},
        {"d.example publishes 2 SPF records", "d.example veröffentlicht 2 SPF-Einträge"},
        {"nothing in %2's record matched", "nichts im Eintrag von %2 traf zu"},
        {"bad redirect", "unbrauchbare Umleitung (redirect)"},
        {"bad ip4:x; y\x1B[", "unbrauchbar ist \"ip4:x; y\uFFFD[\""},
        {"v=2", "v=2"},
        {"; ; x", "; ; x"},
        {"", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(detailText(row.detail, german), row.german);
    }
}

TEST(Findings, receivers) {
    ProofReport report;
    EXPECT_EQ(receiverRemarks(report, english).front().text, "No Authentication-Results header.");
    report.dkim = {{.status = DKIMResult::Status::pass, .domain = "d.example", .selector = "s"},
                   {.status = DKIMResult::Status::bodyChanged, .domain = "list.example", .selector = "s"}};
    report.spf = spf(SPFResult::fail);
    report.receiverResults = {AuthResults::parse(
        "mx.example; dkim=pass header.d=D.example; dkim=pass header.i=@list.example; dkim=pass header.d=x; "
        "spf=softfail; spf=pass smtp.mailfrom=a@b; dmarc=none; iprev=pass")};
    const std::vector<Remark> expected = {
        {{}, "mx.example wrote this about its own checks:"},
        {{}, "dkim=pass (header.d=D.example): the same was found here."},
        {Tone::caution, "dkim=pass (header.i=@list.example): found here is “Body changed”."},
        {{}, "dkim=pass (header.d=x)"},
        {{}, "spf=softfail: found here is “Server not allowed”."},
        {Tone::caution, "spf=pass (smtp.mailfrom=a@b): found here is “Server not allowed”."},
        {{}, "dmarc=none: the same was found here."},
        {{}, "iprev=pass"},
        {{}, "Anyone can write such a line. Only the one that your own mail provider added counts."},
    };
    EXPECT_EQ(receiverRemarks(report, english), expected);
}

}  // namespace
}  // namespace quillmark
