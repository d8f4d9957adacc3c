#include "QuillmarkKit/Verdict.h"

#include <gtest/gtest.h>

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
    const auto suffixes = PublicSuffixList::parse("com\norg\nexample\nuk\nco.uk");
    const ARCFinding none;
    const ARCFinding pass = arc(ARCFinding::Status::Pass{});
    const ARCFinding fail = arc(ARCFinding::Status::Fail{});
    const std::vector<std::string> sealers = {"list.example", "box.example"};
    const DKIMResult broken = result(Status::bodyChanged, "a.org");
    using enum VerdictKind;
    const struct {
        const char* what;
        std::string fromDomain;
        std::vector<DKIMResult> dkim;
        ARCFinding arc;
        bool spfAligned;
        Verdict verdict;
    } rows[] = {
        {"nothing", "a.org", {}, none, false, {cannotProve, Tone::bad, "a.org", "a.org", {}}},
        {"an allowed server",
         "a.org",
         {},
         none,
         true,
         {allowedServerOnly, Tone::caution, "a.org", "a.org", {}}},
        {"a sibling subdomain",
         "News.A.org",
         {result(Status::pass, "mail.a.org")},
         none,
         false,
         {verified, Tone::good, "mail.a.org", "News.A.org", {}}},
        {"a body checked later in the list",
         "a.org",
         {result(Status::pass, "x.a.org", false), result(Status::pass, "y.a.org")},
         none,
         false,
         {verified, Tone::good, "y.a.org", "a.org", {}}},
        {"headers only",
         "a.org",
         {result(Status::pass, "b.org", false), result(Status::pass, "a.org", false)},
         none,
         false,
         {verifiedHeadersOnly, Tone::good, "a.org", "a.org", {}}},
        {"another one's before a broken one",
         "a.org",
         {broken, result(Status::pass, "list.org")},
         none,
         false,
         {signedByOther, Tone::caution, "list.org", "a.org", {}}},
        {"strangers under one public suffix",
         "a.co.uk",
         {result(Status::pass, "b.co.uk")},
         none,
         false,
         {signedByOther, Tone::caution, "b.co.uk", "a.co.uk", {}}},
        {"no From domain",
         "",
         {result(Status::pass, "a.org")},
         none,
         true,
         {signedByOther, Tone::caution, "a.org", "", {}}},
        {"an empty signing domain",
         "",
         {result(Status::pass, "")},
         none,
         false,
         {signedByOther, Tone::caution, "", "", {}}},
        {"broken",
         "a.org",
         {result(Status::lookupFailed, "b.org"), broken},
         none,
         true,
         {signatureBroken, Tone::bad, "a.org", "a.org", {}}},
        {"broken, vouched for",
         "a.org",
         {broken},
         pass,
         false,
         {signatureBroken, Tone::caution, "a.org", "a.org", sealers}},
        {"broken, chain too",
         "a.org",
         {broken},
         fail,
         false,
         {signatureBroken, Tone::bad, "a.org", "a.org", {}}},
        {"headers changed",
         "a.org",
         {result(Status::headersChanged, "c.org")},
         none,
         false,
         {signatureBroken, Tone::bad, "c.org", "a.org", {}}},
        {"key gone",
         "a.org",
         {result(Status::lookupFailed, "b.org"), result(Status::keyRevoked, "c.org")},
         none,
         true,
         {keyGone, Tone::unknown, "c.org", "a.org", {}}},
        {"no key",
         "a.org",
         {result(Status::keyNotPublished, "c.org")},
         none,
         true,
         {keyGone, Tone::unknown, "c.org", "a.org", {}}},
        {"lookup failed",
         "a.org",
         {result(Status::malformed, "a.org"), result(Status::lookupFailed, "b.org")},
         none,
         true,
         {couldNotCheck, Tone::unknown, "b.org", "a.org", {}}},
        {"signatures that count for nothing",
         "a.org",
         {result(Status::keyUnusable, "a.org"), result(Status::keyTooWeak, "a.org"),
          result(Status::unsupportedAlgorithm, "a.org"), result(Status::malformed, "a.org")},
         none,
         false,
         {cannotProve, Tone::bad, "a.org", "a.org", {}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        DMARCFinding dmarc;
        dmarc.spfAligned = row.spfAligned;
        EXPECT_EQ(verdict(row.fromDomain, row.dkim, dmarc, row.arc, suffixes), row.verdict);
    }
}

TEST(Verdict, limits) {
    const ARCFinding::Status none;
    const SPFFinding::Status noSPF;
    const std::vector<Limit> always = {Limit::domainNotCompany, Limit::compromisedMailbox};
    const auto with = [&](std::initializer_list<Limit> more) {
        auto list = always;
        list.insert(list.end(), more);
        return list;
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
