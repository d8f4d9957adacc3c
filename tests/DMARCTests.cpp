#include "QuillmarkKit/Checks/DMARCTreeWalk.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using Status = DMARCFinding::Status;
using Text = std::optional<std::string>;

const PublicSuffixList& suffixes() {
    static const auto list = PublicSuffixList::parse("example\nco.example\n");
    return list;
}

DKIMResult signature(std::string domain, DKIMResult::Status status = DKIMResult::Status::pass) {
    DKIMResult result;
    result.domain = std::move(domain);
    result.status = status;
    return result;
}

SPFFinding judged(SPFResult result, Text domain) {
    SPFFinding finding;
    finding.status = {SPFFinding::Status::Judged{result}};
    finding.domain = std::move(domain);
    return finding;
}

/// Answers from a table and keeps the names it was asked for.
struct Asked : StaticResolver {
    using StaticResolver::StaticResolver;
    std::vector<std::string> names;
    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) override {
        names.emplace_back(name);
        return StaticResolver::lookup(name, type, patience);
    }
    bool mayKnow(std::string_view, DNSRecordType) override { return true; }
};

TEST(DMARC, aligned) {
    const struct {
        std::string_view a, b;
        bool strict, relaxed;
    } rows[] = {
        {"Mail.Example.", "mail.example.", true, true},
        {"A.Org.Example", "a.org.example", true, true},
        {"a.org.example", "b.org.example", false, true},
        {"org.example", "b.org.EXAMPLE", false, true},
        {"a.co.example", "b.co.example", false, false},
        {"", "", false, false},
        {"a.example", "", false, false},
        {"b\u00FCcher.example", "XN--BCHER-KVA.example", true, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.a) + " and " + std::string(row.b));
        EXPECT_EQ(aligned(row.a, row.b, AlignmentMode::strict, suffixes()), row.strict);
        EXPECT_EQ(aligned(row.b, row.a, AlignmentMode::relaxed, suffixes()), row.relaxed);
    }
}

TEST(DMARC, whereTheRecordIsFound) {
    using List = std::vector<std::string>;
    const std::string own = "v=DMARC1; p=Reject; sp=none", above = " V = DMARC1;p=quarantine; sp=Reject",
                      noSubdomainPolicy = "v=dmarc1;p=quarantine";
    const Text sub = "a.org.example", organization = "org.example";
    const struct {
        std::string_view from;
        List atFrom, atOrganization;
        std::size_t questions;
        Text record = {}, recordDomain = {}, applied = {};
    } rows[] = {
        {"a.org.example", {own}, {above}, 1, own, sub, "reject"},
        {"a.org.example", {}, {above}, 2, above, organization, "reject"},
        {"a.org.example", {"v=DMARC"}, {noSubdomainPolicy}, 2, noSubdomainPolicy, organization, "quarantine"},
        {"a.org.example", {own, own}, {"x", above}, 2, above, organization, "reject"},
        {"a.org.example", {own, above}, {own, own}, 2},
        {"org.example", {}, {own}, 1, own, organization, "reject"},
        {"org.example", {}, {}, 1},
        {"a.org.example", {}, {"v=DMARC10"}, 2, "v=DMARC10", organization},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.from);
        Asked resolver({{"_dmarc.a.org.example|TXT", DNSAnswer::records(row.atFrom)},
                        {"_dmarc.org.example|TXT", DNSAnswer::records(row.atOrganization)}});
        const auto finding = dmarc(row.from, {}, {}, resolver, suffixes());
        EXPECT_EQ(finding.status, row.record ? Status::fail : Status::noPolicy);
        EXPECT_EQ(finding.organizationalDomain, "org.example");
        EXPECT_EQ(finding.record, row.record);
        EXPECT_EQ(finding.recordDomain, row.recordDomain);
        EXPECT_EQ(finding.appliedPolicy, row.applied);
        EXPECT_EQ(resolver.names.size(), row.questions);
    }
}

TEST(DMARC, tags) {
    using enum AlignmentMode;
    const struct {
        std::string tags;
        Text policy = {}, subdomainPolicy = {};
        int percent = 100;
        AlignmentMode dkim = relaxed, spf = relaxed;
    } rows[] = {
        {""},
        {"p=NONE; sp=; pct=20; adkim=S; aspf=r", "none", "", 20, strict, relaxed},
        {"p=x; pct=-1; aspf=s; adkim=strict", "x", {}, 0, relaxed, strict},
        {"pct=101"},
        {"pct=+7", {}, {}, 7},
        {"pct=9999999999999999999"},
        {"pct=-9999999999999999999"},
        {"pct=5x"},
        {"pct="},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.tags);
        StaticResolver resolver({{"_dmarc.org.example|TXT", DNSAnswer::records({"v=DMARC1;" + row.tags})}});
        const auto finding = dmarc("org.example", {}, {}, resolver, suffixes());
        EXPECT_EQ(finding.policy, row.policy);
        EXPECT_EQ(finding.appliedPolicy, row.policy);
        EXPECT_EQ(finding.subdomainPolicy, row.subdomainPolicy);
        EXPECT_EQ(finding.percent, row.percent);
        EXPECT_EQ(finding.dkimMode, row.dkim);
        EXPECT_EQ(finding.spfMode, row.spf);
    }
}

TEST(DMARC, alignmentAndStatus) {
    using List = std::vector<DKIMResult>;
    const std::string strict = "v=DMARC1; p=reject; adkim=s; aspf=s", lax = "v=DMARC1";
    const List own = {signature("A.org.example")}, sibling = {signature("b.org.example")},
               both = {sibling[0], own[0]}, parent = {signature("org.example")},
               useless = {signature("a.org.example", DKIMResult::Status::bodyChanged),
                          signature("other.example")};
    const SPFFinding ofSibling = judged(SPFResult::pass, "b.org.example"),
                     ofNobody = judged(SPFResult::pass, {}),
                     failing = judged(SPFResult::softfail, "a.org.example");
    const struct {
        std::string record;
        List dkim;
        SPFFinding spf;
        Status status;
        Text alignedDKIMDomain = {};
        bool spfAligned = false;
    } rows[] = {
        {lax, sibling, {}, Status::pass, "b.org.example"},
        {strict, sibling, {}, Status::fail},
        {strict, both, {}, Status::pass, "A.org.example"},
        {lax, useless, {}, Status::fail},
        {lax, {signature("")}, ofNobody, Status::fail},
        {lax, {}, ofSibling, Status::pass, {}, true},
        {strict, {}, ofSibling, Status::fail},
        {lax, {}, failing, Status::fail},
        {"", parent, ofSibling, Status::noPolicy, "org.example", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.record << ", row " << &row - rows);
        StaticResolver resolver({{"_dmarc.a.org.example|TXT", DNSAnswer::records({row.record})}});
        const auto finding = dmarc("a.org.example", row.dkim, row.spf, resolver, suffixes());
        EXPECT_EQ(finding.status, row.status);
        EXPECT_EQ(finding.alignedDKIMDomain, row.alignedDKIMDomain);
        EXPECT_EQ(finding.spfAligned, row.spfAligned);
    }
}

/// "pass", "fail reject" or "none", with why it is another than by the older rules, if it is.
std::string outcome(const TreeWalkJudgement& judgement) {
    const DMARCFinding& finding = judgement.finding;
    std::string text = finding.status == Status::pass   ? "pass"
                       : finding.status == Status::fail ? "fail " + finding.appliedPolicy.value_or("?")
                                                        : "none";
    if (judgement.difference) text += " " + std::string(nameOf(judgement.difference->cause));
    return text;
}

TEST(DMARC, byTreeWalk) {
    using Records = std::vector<std::pair<std::string, std::string>>;
    const std::string reject = "v=DMARC1; p=reject", deep = "a.b.c.d.e.f.g.h.i.j.example";
    const struct {
        const char* what;
        std::string from;
        Records records;
        std::vector<std::string> signers;
        std::string outcome;
        std::vector<std::string> asked;  // beyond what the older rules ask, in front of which "_dmarc."
    } rows[] = {
        {"own record", "org.example", {{"org.example", reject}}, {}, "fail reject", {}},
        {"the organization's",
         "a.org.example",
         {{"org.example", reject + "; sp=none"}},
         {},
         "fail none",
         {"example"}},
        {"one between",
         "a.b.org.example",
         {{"org.example", reject}, {"b.org.example", "v=DMARC1;p=none;psd=n"}},
         {},
         "fail none treeWalk",
         {"b.org.example"}},
        {"one between that ends nothing",
         "a.b.org.example",
         {{"org.example", reject}, {"b.org.example", "v=DMARC1;p=none"}},
         {},
         "fail reject",
         {"b.org.example", "example"}},
        {"more than eight labels",
         deep,
         {},
         {},
         "none",
         {"e.f.g.h.i.j.example", "f.g.h.i.j.example", "g.h.i.j.example", "h.i.j.example", "i.j.example",
          "example"}},
        {"a suffix's",
         "a.co.example",
         {{"co.example", "v=DMARC1; p=quarantine; psd=y"}},
         {},
         "fail quarantine treeWalk",
         {"co.example"}},
        {"of a suffix, one label below",
         "b.a.co.example",
         {{"co.example", "v=DMARC1; p=none; psd=y"}, {"a.co.example", reject}},
         {},
         "fail reject",
         {"co.example"}},
        {"a domain that the list takes for a suffix",
         "a.co.example",
         {{"co.example", reject}},
         {"co.example"},
         "pass treeWalk",
         {"co.example", "example"}},
        {"a parent without a record",
         "a.org.example",
         {{"a.org.example", reject}},
         {"org.example"},
         "fail reject organization",
         {"org.example", "example"}},
        {"the same with its record",
         "a.org.example",
         {{"a.org.example", reject}, {"org.example", reject}},
         {"org.example"},
         "pass",
         {"org.example", "example"}},
        {"siblings",
         "a.org.example",
         {{"org.example", reject}},
         {"b.org.example"},
         "pass",
         {"example", "b.org.example"}},
        {"strangers", "a.org.example", {{"a.org.example", reject}}, {"other.example"}, "fail reject", {}},
        {"a missing name",
         "x.org.example",
         {{"org.example", "v=DMARC1; p=none; np=reject"}},
         {},
         "fail reject missingDomain",
         {"example", "x.org.example"}},
        {"one that exists",
         "x.org.example",
         {{"org.example", "v=DMARC1; p=none; np=reject"}, {"!x.org.example", "v=spf1 -all"}},
         {},
         "fail none",
         {"example", "x.org.example"}},
        {"one that exists, since names below it do",
         "x.org.example",
         {{"org.example", "v=DMARC1; p=none; np=reject"}, {"x.org.example", "other"}},
         {},
         "fail none",
         {"example"}},
        {"a test", "org.example", {{"org.example", reject + "; t=y"}}, {}, "fail quarantine testing", {}},
        {"a test of quarantine",
         "org.example",
         {{"org.example", "v=DMARC1; p=Quarantine; T=Y"}},
         {},
         "fail none testing",
         {}},
        {"no test", "org.example", {{"org.example", reject + "; t=n"}}, {}, "fail reject", {}},
        {"a share", "org.example", {{"org.example", reject + "; pct=10"}}, {}, "fail reject percent", {}},
        {"a share of nothing",
         "org.example",
         {{"org.example", "v=DMARC1; p=none; pct=0"}},
         {},
         "fail none",
         {}},
        {"several",
         "a.org.example",
         {{"a.org.example", reject}, {"a.org.example", reject}, {"org.example", reject}},
         {},
         "none severalRecords",
         {}},
        {"several above",
         "a.org.example",
         {{"org.example", reject}, {"org.example", reject}},
         {},
         "none",
         {"example"}},
        {"small letters",
         "org.example",
         {{"org.example", "v=dmarc1; p=reject"}},
         {},
         "none otherRecord",
         {"example"}},
        {"a longer word",
         "org.example",
         {{"org.example", "v=DMARC1x; p=reject"}},
         {},
         "none otherRecord",
         {"example"}},
        {"blanks",
         "org.example",
         {{"org.example", "v = DMARC1 ; p = Reject ; adkim=S"}},
         {"a.org.example"},
         "fail reject",
         {}},
        {"no policy", "org.example", {{"org.example", "v=DMARC1; p=all"}}, {}, "none noPolicyTag", {}},
        {"but reports",
         "org.example",
         {{"org.example", "v=DMARC1; rua=mailto:d@org.example"}},
         {},
         "fail none noPolicyTag",
         {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        std::map<std::string, std::vector<std::string>> texts;
        for (const auto& [name, text] : row.records)
            texts[name.starts_with('!') ? name.substr(1) + "|TXT" : "_dmarc." + name + "|TXT"].push_back(
                text);
        StaticResolver::Answers answers;
        for (const auto& [question, records] : texts) answers[question] = DNSAnswer::records(records);
        Asked resolver(answers);
        std::vector<DKIMResult> signatures;
        for (const std::string& signer : row.signers) signatures.push_back(signature(signer));
        const auto older = dmarc(row.from, signatures, {}, resolver, suffixes());
        const std::set<std::string> known(resolver.names.begin(), resolver.names.end());
        resolver.names.clear();
        const auto judgement = dmarcByTreeWalk(older, signatures, {}, resolver);
        ASSERT_TRUE(judgement);
        EXPECT_EQ(outcome(*judgement), row.outcome);
        std::vector<std::string> further;
        for (const std::string& name : resolver.names) {
            if (!known.contains(name)) further.push_back(name.starts_with("_dmarc.") ? name.substr(7) : name);
        }
        EXPECT_EQ(further, row.asked);
        EXPECT_EQ(std::set(resolver.names.begin(), resolver.names.end()).size(), resolver.names.size());
    }
}

TEST(DMARC, whatTheTreeWalkCannotKnow) {
    const auto answers = [](const char* text) {
        return StaticResolver::Answers{{"_dmarc.a.org.example|TXT", DNSAnswer::noData()},
                                       {"_dmarc.org.example|TXT", DNSAnswer::records({text})}};
    };
    StaticResolver unlisted(answers("v=DMARC1; p=none"));  // of "example" it knows nothing
    StaticResolver listed(answers("v=DMARC1; p=none; psd=n"));
    Asked failing(answers("v=DMARC1; p=none"), {"_dmarc.example"});
    const auto older = dmarc("a.org.example", {}, {}, listed, suffixes());
    EXPECT_FALSE(dmarcByTreeWalk(older, {}, {}, unlisted));
    EXPECT_TRUE(dmarcByTreeWalk(older, {}, {}, listed));
    EXPECT_FALSE(dmarcByTreeWalk(older, {}, {}, failing));
    EXPECT_FALSE(dmarcByTreeWalk({.status = Status::noFromDomain}, {}, {}, listed));
    // Signatures of many names could ask for as many.
    std::vector<DKIMResult> signatures;
    for (int i = 0; i < 10; ++i) signatures.push_back(signature(std::to_string(i) + ".a.org.example"));
    Asked resolver(answers("v=DMARC1; p=none; psd=n"));
    const auto many = dmarc("a.org.example", signatures, {}, resolver, suffixes());
    resolver.names.clear();
    EXPECT_TRUE(dmarcByTreeWalk(many, signatures, {}, resolver));
    EXPECT_LE(resolver.names.size(), 10U);
}

TEST(DMARC, withoutAnAnswer) {
    const std::vector signatures{signature("a.org.example")};
    const auto spf = judged(SPFResult::pass, "a.org.example");
    for (const char* failing : {"_dmarc.a.org.example", "_dmarc.org.example"}) {
        StaticResolver resolver({}, {failing});
        EXPECT_EQ(dmarc("a.org.example", signatures, spf, resolver, suffixes()),
                  (DMARCFinding{.status = Status::lookupFailed,
                                .fromDomain = "a.org.example",
                                .organizationalDomain = "org.example"}));
    }
    Asked resolver(StaticResolver::Answers{});
    EXPECT_EQ(dmarc("", signatures, spf, resolver, suffixes()), DMARCFinding{.status = Status::noFromDomain});
    EXPECT_TRUE(resolver.names.empty());
}

}  // namespace
}  // namespace quillmark
