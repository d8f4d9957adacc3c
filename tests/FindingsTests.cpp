#include "Wording/Findings.h"

#include "Wording/Details.h"
#include "Wording/ReceiverResults.h"
#include "WordingSupport.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

SPFFinding spf(SPFResult result) {
    return {.status = {SPFFinding::Status::Judged{result}},
            .domain = "d.example",
            .ip = SenderIP{"192.0.2.1", {SenderIP::Source::Received{"mx.example"}}, {}},
            .detail = "include loop"};
}

TEST(Findings, dmarc) {
    using Status = DMARCFinding::Status;
    const auto noPolicy = [](const std::string& from) {
        return sentence(DMARCFinding{.status = Status::noPolicy, .fromDomain = from}, english);
    };
    EXPECT_EQ(noPolicy("b\u00FCcher.example"),
              "b\u00FCcher.example (xn--bcher-kva.example) publishes no policy "
              "for mail that fails these checks.");
    EXPECT_EQ(noPolicy("b-\u00FC-.example"),
              "b-\u00FC-.example is no name that DNS can hold, so nobody could be asked for its policy.");
    EXPECT_EQ(noPolicy("wiki.corp"), "wiki.corp is no public name, so nobody was asked for its policy.");
    EXPECT_EQ(policyInWords("Reject", english), "Reject");  // only what is known is put in words
    const DMARCFinding some{.appliedPolicy = "reject", .percent = 5, .record = "", .recordDomain = "d"};
    EXPECT_EQ(remarks(some, english).front().text, "What d asks receivers to do: reject failing mail.");
    EXPECT_EQ(remarks(some, german).back().text, "Das gilt nur für 5 % der Nachrichten, die durchfallen.");
}

TEST(Findings, arc) {
    const ARCFinding::Hop hop{.instance = 1, .sealer = "list.example", .messageSignature = {}};
    using Status = ARCFinding::Status;
    EXPECT_EQ(
        sentence(ARCFinding{{Status::Pass{}}, "", {hop, hop}}, english),
        "Each of the 2 forwarders signed what it passed on, the last of them list.example. That is worth as "
        "much as you trust them.");
}

TEST(Findings, age) {
    using Status = DomainAge::Status;
    const auto inWords = [](const Status& status, const Reader& reader) {
        return ageInWords({"d.example", status}, january(20), reader);
    };
    const Date old = january(1) - std::chrono::days(7700), months = january(1) - std::chrono::days(100);
    EXPECT_EQ(inWords({Status::Known{old}}, english), "registered on 2 Dec 2004, 21 years ago");
    EXPECT_EQ(inWords({Status::Known{months}}, english), "registered on 23 Sep 2025, 3 months ago");
    EXPECT_EQ(inWords({Status::Known{months}}, german), "registriert am 23. Sept. 2025, vor 3 Monaten");
    EXPECT_EQ(inWords({Status::Known{january(19)}}, english), "registered on 19 Jan 2026, only 1 day ago");
    EXPECT_EQ(inWords({Status::Known{january(21)}}, english),
              "registered on 21 Jan 2026, after the message was checked");
    EXPECT_EQ(inWords({Status::Unavailable{"no RDAP server for .zz in the IANA list"}}, german),
              "Alter nicht zu ermitteln: in der Liste der IANA steht kein RDAP-Server für .zz");
    EXPECT_EQ(inWords({Status::Unavailable{"not in the test registry"}}, english),
              "its age couldn’t be found out: the file of registration dates doesn’t name this domain");
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
