#include "QuillmarkKit/Checks/Verdict.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using Status = DKIMResult::Status;

DKIMResult result(Status status, std::string domain, bool bodyChecked = true) {
    DKIMResult result;
    result.status = status;
    result.domain = std::move(domain);
    result.bodyChecked = bodyChecked;
    return result;
}

ARCFinding arc(decltype(ARCFinding::Status::value) status) {
    ARCFinding arc;
    arc.status.value = status;
    for (const auto* sealer : {"list.example", "", "box.example"}) arc.hops.push_back({.sealer = sealer});
    return arc;
}

TEST(Verdict, theFirstRuleThatAppliesWins) {
    using enum VerdictKind;
    using enum DKIMResult::Status;
    using List = std::vector<DKIMResult>;
    const auto suffixes = PublicSuffixList::parse("com\norg\nexample\nuk\nco.uk");
    const ARCFinding none, intact = arc(ARCFinding::Status::Pass{}),
                           failing = arc(ARCFinding::Status::Fail{});
    const auto good = [](const char* domain) { return result(pass, domain); };
    const DKIMResult broken = result(bodyChanged, "a.org"), unasked = result(lookupFailed, "b.org");
    const List countForNothing = {result(keyUnusable, "a.org"), result(keyTooWeak, "a.org"),
                                  result(unsupportedAlgorithm, "a.org"), result(malformed, "a.org")};
    const List checkedLater = {result(pass, "x.a.org", false), good("y.a.org")};
    const List headersAlone = {result(pass, "b.org", false), result(pass, "a.org", false)};
    const struct {
        std::string fromDomain;
        List dkim;
        VerdictKind kind;
        Tone tone;
        std::string domain;
        bool spfAligned = false;
        ARCFinding arc = {};
    } rows[] = {
        {"a.org", {}, cannotProve, Tone::bad, "a.org"},
        {"a.org", {}, allowedServerOnly, Tone::caution, "a.org", true},
        {"News.A.org", {good("mail.a.org")}, verified, Tone::good, "mail.a.org"},
        {"a.org", checkedLater, verified, Tone::good, "y.a.org"},
        {"a.org", headersAlone, verifiedHeadersOnly, Tone::good, "a.org"},
        {"a.org", {broken, good("list.org")}, signedByOther, Tone::caution, "list.org"},
        {"a.co.uk", {good("b.co.uk")}, signedByOther, Tone::caution, "b.co.uk"},  // one public suffix
        {"", {good("a.org")}, signedByOther, Tone::caution, "a.org", true},
        {"", {good("")}, signedByOther, Tone::caution, ""},
        {"a.org", {unasked, broken}, signatureBroken, Tone::bad, "a.org", true},
        {"a.org", {broken}, signatureBroken, Tone::caution, "a.org", false, intact},
        {"a.org", {broken}, signatureBroken, Tone::bad, "a.org", false, failing},
        {"a.org", {result(headersChanged, "c.org")}, signatureBroken, Tone::bad, "c.org"},
        {"a.org", {unasked, result(keyRevoked, "c.org")}, keyGone, Tone::unknown, "c.org", true},
        {"a.org", {result(keyNotPublished, "c.org")}, keyGone, Tone::unknown, "c.org", true},
        {"a.org", {result(malformed, "a.org"), unasked}, couldNotCheck, Tone::unknown, "b.org", true},
        {"a.org", countForNothing, cannotProve, Tone::bad, "a.org"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows);
        Verdict expected{row.kind, row.tone, row.domain, row.fromDomain, {}};
        if (row.arc == intact) expected.arcVouchers = {"list.example", "box.example"};
        DMARCFinding dmarc;
        dmarc.spfAligned = row.spfAligned;
        EXPECT_EQ(verdict(row.fromDomain, row.dkim, dmarc, row.arc, suffixes), expected);
    }
}

TEST(Verdict, limits) {
    const ARCFinding::Status none;
    const SPFFinding::Status noSPF;
    const std::vector<Limit> always = {Limit::domainNotCompany, Limit::compromisedMailbox};
    const auto with = [&](std::vector<Limit> more) {
        more.insert(more.begin(), always.begin(), always.end());
        return more;
    };
    using List = std::vector<DKIMResult>;
    EXPECT_EQ(limits(List{result(Status::pass, "a.org")}, none, noSPF, true), always);
    for (const Status status : {Status::keyNotPublished, Status::keyRevoked}) {
        EXPECT_EQ(limits(List{result(status, "a.org")}, none, noSPF, true), with({Limit::oldKeys}));
    }
    for (const Status status : {Status::bodyChanged, Status::headersChanged}) {
        EXPECT_EQ(limits(List{result(status, "a.org")}, none, noSPF, true), with({Limit::forwarding}));
    }
    for (const auto& status : {arc(ARCFinding::Status::Pass{}), arc(ARCFinding::Status::Fail{}),
                               arc(ARCFinding::Status::Unknown{})}) {
        EXPECT_EQ(limits(List{}, status.status, noSPF, true), with({Limit::forwarding}));
    }
    EXPECT_EQ(limits(List{}, none, {SPFFinding::Status::Judged{SPFResult::fail}}, false),
              with({Limit::spfFromReceived, Limit::headersOnly}));
    EXPECT_EQ(limits(List{}, none, {SPFFinding::Status::NoEnvelopeSender{}}, true), always);
}

}  // namespace
}  // namespace quillmark
