#include "QuillmarkKit/Lookups/DNS.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

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
    const std::string label(63, 'a'), longest = label + "." + label + "." + label + "." + label.substr(0, 61);
    ASSERT_EQ(longest.size(), 253u);
    std::vector<std::string> good =
        test::words(R"(Example.Org. 2026.s1._domainkey.example.org _dmarc.example.org
        a@b=c%{d}!.example.org xn--e1afmkfd.xn--p1ai a.notlocal local.example
        athome.arpa a.4you 7.2.0.192.in-addr.arpa
        1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2.IP6.arpa)");
    good.insert(good.end(), {longest, longest + "."});
    for (const std::string& name : good) EXPECT_TRUE(mayBeQueried(name)) << name;
    using namespace std::string_literals;
    std::vector<std::string> bad = test::words(R"(. org org. _DMARC.org s1._DomainKey.org. a.s1._domainkey
        a._domainkey.b._domainkey.org .example.org example..org example.org..
        printer.local a.INTERNAL router.lan. home.arpa a.home.arpa a.onion _dmarc.a.test
        s._domainkey.a.invalid a.localhost wiki.corp a.home a.mail a.intranet a.private
        _dmarc.192.0.2.1 2.1 s._domainkey.[192.0.2.1] a[.example in-addr.arpa
        2.0.192.in-addr.arpa x.7.2.0.192.in-addr.arpa 7%.2.0.192.in-addr.arpa
        1.0.0.10.in-addr.arpa b.d.0.1.0.0.2.ip6.arpa
        0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2.ip6.arpa
        1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.e.f.ip6.arpa)");
    bad.insert(bad.end(),
               {longest + "a", "a" + label + ".example.org", ""s, "exam ple.org"s, "example.org\r\n"s,
                "a\0.example.org"s, "a\x7F.example.org"s, "b\u00FCcher.example"s});
    for (const std::string& name : bad) EXPECT_FALSE(mayBeQueried(name)) << name;
}

}  // namespace
}  // namespace quillmark
