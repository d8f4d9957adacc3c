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
    for (const std::string& name :
         {std::string("Example.Org."), std::string("2026.s1._domainkey.example.org"),
          std::string("_dmarc.example.org"), std::string("a@b=c%{d}!.example.org"),
          std::string("xn--e1afmkfd.xn--p1ai"), longest, longest + ".", std::string("a.notlocal"),
          std::string("local.example"), std::string("athome.arpa"), std::string("a.4you"),
          std::string("7.2.0.192.in-addr.arpa"),
          std::string("1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2.IP6.arpa")}) {
        EXPECT_TRUE(mayBeQueried(name)) << name;
    }
    using namespace std::string_view_literals;
    EXPECT_FALSE(mayBeQueried(longest + "a"));
    EXPECT_FALSE(mayBeQueried("a" + label + ".example.org"));
    for (const auto name : {""sv,
                            "."sv,
                            "org"sv,
                            "org."sv,
                            "_DMARC.org"sv,
                            "s1._DomainKey.org."sv,
                            "a.s1._domainkey"sv,
                            "a._domainkey.b._domainkey.org"sv,
                            ".example.org"sv,
                            "example..org"sv,
                            "example.org.."sv,
                            "exam ple.org"sv,
                            "example.org\r\n"sv,
                            "a\0.example.org"sv,
                            "a\x7F.example.org"sv,
                            "b\u00FCcher.example"sv,
                            "printer.local"sv,
                            "a.INTERNAL"sv,
                            "router.lan."sv,
                            "home.arpa"sv,
                            "a.home.arpa"sv,
                            "a.onion"sv,
                            "_dmarc.a.test"sv,
                            "s._domainkey.a.invalid"sv,
                            "a.localhost"sv,
                            "wiki.corp"sv,
                            "a.home"sv,
                            "a.mail"sv,
                            "a.intranet"sv,
                            "a.private"sv,
                            "_dmarc.192.0.2.1"sv,
                            "2.1"sv,
                            "s._domainkey.[192.0.2.1]"sv,
                            "a[.example"sv,
                            "in-addr.arpa"sv,
                            "2.0.192.in-addr.arpa"sv,
                            "x.7.2.0.192.in-addr.arpa"sv,
                            "7%.2.0.192.in-addr.arpa"sv,
                            "1.0.0.10.in-addr.arpa"sv,
                            "b.d.0.1.0.0.2.ip6.arpa"sv,
                            "0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2.ip6.arpa"sv,
                            "1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.e.f.ip6.arpa"sv}) {
        EXPECT_FALSE(mayBeQueried(name)) << name;
    }
}

}  // namespace
}  // namespace quillmark
