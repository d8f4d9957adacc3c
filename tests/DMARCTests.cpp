#include "QuillmarkKit/Checks/DMARC.h"
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
