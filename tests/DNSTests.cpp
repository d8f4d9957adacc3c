#include "QuillmarkKit/DNS.h"

#include <gtest/gtest.h>

namespace quillmark {
namespace {

TEST(DNS, recordTypes) {
    for (const auto& [code, name] : {std::pair{1, "A"}, {15, "MX"}, {16, "TXT"}, {28, "AAAA"}}) {
        ASSERT_TRUE(dnsRecordType(code));
        EXPECT_EQ(mnemonic(*dnsRecordType(code)), name);
    }
    EXPECT_FALSE(dnsRecordType(5));
}

TEST(DNS, staticResolver) {
    StaticResolver resolver(
        {{"a.example|TXT", DNSAnswer::records({"x", "y"})}, {"b.example|A", DNSAnswer::nxdomain()}},
        {"broken.example"}, {{"a.example|MX", "timed out"}});
    EXPECT_EQ(resolver.lookup("A.Example", DNSRecordType::txt, {}), DNSAnswer::records({"x", "y"}));
    EXPECT_EQ(resolver.lookup("a.example", DNSRecordType::a, {}), DNSAnswer::noData());
    EXPECT_EQ(resolver.lookup("b.example", DNSRecordType::a, {}), DNSAnswer::nxdomain());
    EXPECT_EQ(resolver.lookup("a.exampl", DNSRecordType::txt, {}), DNSAnswer::nxdomain());
    EXPECT_EQ(resolver.lookup("", DNSRecordType::txt, {}), DNSAnswer::nxdomain());
    const auto failure = [&](std::string_view name, DNSRecordType type) {
        try {
            resolver.lookup(name, type, {});
        } catch (const DNSLookupError& error) {
            return std::string(error.what());
        }
        return std::string();
    };
    EXPECT_EQ(failure("Broken.Example", DNSRecordType::txt), "no resolver answered");
    EXPECT_EQ(failure("a.example", DNSRecordType::mx), "timed out");
}

TEST(DNS, mayBeQueried) {
    const std::string label(63, 'a');
    const std::string longest = label + "." + label + "." + label + "." + label.substr(0, 61);
    ASSERT_EQ(longest.size(), 253u);
    const std::pair<std::string, bool> rows[] = {
        {"example.org", true},
        {"Example.Org.", true},
        {"s1._domainkey.example.org", true},
        {"2026.s1._domainkey.example.org", true},
        {"_dmarc.example.org", true},
        {"_spf.example.org", true},
        {"a@b=c%{d}!.example.org", true},
        {"xn--e1afmkfd.xn--p1ai", true},
        {longest, true},
        {longest + ".", true},
        {longest + "a", false},
        {"a" + label + ".example.org", false},
        {"", false},
        {".", false},
        {"org", false},
        {"org.", false},
        {"_dmarc.org", false},
        {"_DMARC.org", false},
        {"s1._domainkey.org", false},
        {"s1._DomainKey.org.", false},
        {"a.s1._domainkey", false},
        {"a._domainkey.b._domainkey.org", false},
        {".example.org", false},
        {"example..org", false},
        {"example.org..", false},
        {"exam ple.org", false},
        {"example.org\r\n", false},
        {std::string("a\0.example.org", 14), false},
        {"a\x7F.example.org", false},
        {"b\u00FCcher.example", false},
        {"printer.local", false},
        {"a.INTERNAL", false},
        {"router.lan.", false},
        {"home.arpa", false},
        {"a.home.arpa", false},
        {"a.onion", false},
        {"_dmarc.a.test", false},
        {"s._domainkey.a.invalid", false},
        {"a.localhost", false},
        {"a.notlocal", true},
        {"local.example", true},
        {"athome.arpa", true},
    };
    for (const auto& [name, may] : rows) {
        SCOPED_TRACE(name);
        EXPECT_EQ(mayBeQueried(name), may);
    }
}

}  // namespace
}  // namespace quillmark
