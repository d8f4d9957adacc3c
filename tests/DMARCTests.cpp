#include "QuillmarkKit/DMARC.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

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
    DNSAnswer lookup(std::string_view name, DNSRecordType type, std::stop_token stop) override {
        names.emplace_back(name);
        return StaticResolver::lookup(name, type, stop);
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
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.a) + " and " + std::string(row.b));
        EXPECT_EQ(aligned(row.a, row.b, AlignmentMode::strict, suffixes()), row.strict);
        EXPECT_EQ(aligned(row.b, row.a, AlignmentMode::relaxed, suffixes()), row.relaxed);
    }
}

TEST(DMARC, whereTheRecordIsFound) {
    const std::string own = "v=DMARC1; p=Reject; sp=none", above = " V = DMARC1;p=quarantine; sp=Reject";
    const std::string noSubdomainPolicy = "v=dmarc1;p=quarantine";
    const struct {
        std::string_view from;
        std::vector<std::string> atFrom, atOrganization;
        Text record, recordDomain, applied;
        std::size_t questions;
    } rows[] = {
        {"a.org.example", {own}, {above}, own, "a.org.example", "reject", 1},
        {"a.org.example", {}, {above}, above, "org.example", "reject", 2},
        {"a.org.example",
         {"v=spf1", "v=DMARC"},
         {noSubdomainPolicy},
         noSubdomainPolicy,
         "org.example",
         "quarantine",
         2},
        {"a.org.example", {own, own}, {"x", above}, above, "org.example", "reject", 2},
        {"a.org.example", {own, above}, {own, own}, {}, {}, {}, 2},
        {"org.example", {}, {own}, own, "org.example", "reject", 1},
        {"org.example", {}, {}, {}, {}, {}, 1},
        {"a.org.example", {}, {"v=DMARC10"}, "v=DMARC10", "org.example", {}, 2},
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
        Text policy, subdomainPolicy;
        int percent;
        AlignmentMode dkim, spf;
    } rows[] = {
        {"", {}, {}, 100, relaxed, relaxed},
        {"p=NONE; sp=; pct=20; adkim=S; aspf=r", "none", "", 20, strict, relaxed},
        {"p=x; pct=-1; aspf=s; adkim=strict", "x", {}, 0, relaxed, strict},
        {"pct=101", {}, {}, 100, relaxed, relaxed},
        {"pct=+7", {}, {}, 7, relaxed, relaxed},
        {"pct=0", {}, {}, 0, relaxed, relaxed},
        {"pct=9999999999999999999", {}, {}, 100, relaxed, relaxed},
        {"pct=-9999999999999999999", {}, {}, 100, relaxed, relaxed},
        {"pct=5x", {}, {}, 100, relaxed, relaxed},
        {"pct=", {}, {}, 100, relaxed, relaxed},
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
    const auto broken = DKIMResult::Status::bodyChanged;
    const std::string strict = "v=DMARC1; p=reject; adkim=s; aspf=s";
    const struct {
        std::string record;
        std::vector<DKIMResult> dkim;
        SPFFinding spf;
        Status status;
        Text alignedDKIMDomain;
        bool spfAligned;
    } rows[] = {
        {"v=DMARC1", {signature("b.org.example")}, {}, Status::pass, "b.org.example", false},
        {strict, {signature("b.org.example")}, {}, Status::fail, {}, false},
        {strict,
         {signature("b.org.example"), signature("A.org.example")},
         {},
         Status::pass,
         "A.org.example",
         false},
        {"v=DMARC1",
         {signature("a.org.example", broken), signature("other.example")},
         {},
         Status::fail,
         {},
         false},
        {"v=DMARC1", {signature("")}, judged(SPFResult::pass, {}), Status::fail, {}, false},
        {"v=DMARC1", {}, judged(SPFResult::pass, "b.org.example"), Status::pass, {}, true},
        {strict, {}, judged(SPFResult::pass, "b.org.example"), Status::fail, {}, false},
        {"v=DMARC1", {}, judged(SPFResult::softfail, "a.org.example"), Status::fail, {}, false},
        {"",
         {signature("org.example")},
         judged(SPFResult::pass, "b.org.example"),
         Status::noPolicy,
         "org.example",
         true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.record + " " + row.alignedDKIMDomain.value_or("-"));
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
        SCOPED_TRACE(failing);
        StaticResolver resolver({}, {failing});
        DMARCFinding expected;
        expected.status = Status::lookupFailed;
        expected.fromDomain = "a.org.example";
        expected.organizationalDomain = "org.example";
        EXPECT_EQ(dmarc("a.org.example", signatures, spf, resolver, suffixes()), expected);
    }
    Asked resolver(StaticResolver::Answers{});
    DMARCFinding expected;
    expected.status = Status::noFromDomain;
    EXPECT_EQ(dmarc("", signatures, spf, resolver, suffixes()), expected);
    EXPECT_TRUE(resolver.names.empty());
}

}  // namespace
}  // namespace quillmark
