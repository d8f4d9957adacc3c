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

}  // namespace
}  // namespace quillmark
