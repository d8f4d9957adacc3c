#include "QuillmarkKit/Mail/IPAddress.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using namespace std::string_view_literals;

TEST(IPAddress, parseAndDescription) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"  192.0.2.7\t", "192.0.2.7"},
        {"IPv6:2001:DB8::1", "2001:db8::1"},
        {"ipv6:192.0.2.1", "192.0.2.1"},
        {"203.0.113.9%x", "203.0.113.9"},
        {"fe80::1%en0", "fe80::1"},
        {"::FFFF:c000:0201", "192.0.2.1"},
        {"2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1"},
        {"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"},  // one group of zeros is not compressed
        {"::", "::"},
        {"64:ff9b::192.0.2.33", "64:ff9b::c000:221"},
    };
    for (const auto& [text, description] : rows) {
        SCOPED_TRACE(text);
        const auto address = IPAddress::parse(text);
        ASSERT_TRUE(address);
        EXPECT_EQ(address->description(), description);
        EXPECT_EQ(IPAddress::parse(description), address);
    }
    for (const auto text :
         {""sv, "192.0.2"sv, "192.0.2.256"sv, "192.0.2.1.5"sv, "192.0.2.1\0"sv, "0x7f.0.0.1"sv,
          "[192.0.2.1]"sv, "1::2::3"sv, "2001:db8"sv, "12345::"sv, "%1"sv, "example.org"sv}) {
        EXPECT_FALSE(IPAddress::parse(text)) << text;
    }
    EXPECT_FALSE(IPAddress::parse("::1%" + std::string(61, 'x')));  // 65 bytes
    EXPECT_TRUE(IPAddress::parse("::1%" + std::string(60, 'x') + "   "));
}

TEST(IPAddress, dottedNibbles) {
    EXPECT_EQ(IPAddress::parse("192.0.2.3")->dottedNibbles(), "192.0.2.3");
    EXPECT_EQ(IPAddress::parse("2001:db8::cb01")->dottedNibbles(),
              "2.0.0.1.0.d.b.8.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.c.b.0.1");
    EXPECT_EQ(IPAddress().dottedNibbles(), "");
}

TEST(IPAddress, isPublic) {
    for (const char* text :
         {"1.0.0.0",         "9.255.255.255", "11.0.0.0",      "100.63.255.255", "100.128.0.0",
          "126.255.255.255", "128.0.0.0",     "169.253.0.1",   "169.255.0.1",    "172.15.0.1",
          "172.32.0.1",      "192.167.0.1",   "192.0.2.1",     "192.169.0.1",    "::2",
          "::100:0",         "::192.0.2.1",   "2001:db8::1",   "223.255.255.1",  "fbff::1",
          "fe00::1",         "fec0::1",       "64:ff9b::a00:1"}) {
        EXPECT_TRUE(IPAddress::parse(text)->isPublic()) << text;
    }
    for (const char* text : {"0.0.0.0",     "10.0.0.1",    "100.64.0.1", "100.127.255.255",
                             "127.0.0.1",   "169.254.1.1", "172.16.0.1", "172.31.0.1",
                             "192.168.1.1", "224.0.0.1",   "240.0.0.1",  "255.255.255.255",
                             "::",          "::1",         "fc00::1",    "fdff::1",
                             "ff02::1",     "fe80::1",     "febf::1",    "::ffff:10.0.0.1"}) {
        EXPECT_FALSE(IPAddress::parse(text)->isPublic()) << text;
    }
    EXPECT_FALSE(IPAddress().isPublic());
}

TEST(IPAddress, matches) {
    const auto in = [](const char* address, const char* network, int length) {
        return IPAddress::parse(address)->matches(*IPAddress::parse(network), length);
    };
    EXPECT_TRUE(in("192.0.2.1", "192.0.2.0", 31));
    for (const int length : {32, 33, 99}) {  // a longer one as 32
        EXPECT_FALSE(in("192.0.2.1", "192.0.2.0", length)) << length;
        EXPECT_TRUE(in("192.0.2.1", "192.0.2.1", length)) << length;
    }
    for (const int length : {0, -1}) EXPECT_TRUE(in("192.0.2.1", "10.0.0.0", length)) << length;
    EXPECT_FALSE(in("192.0.2.129", "192.0.2.0", 25));
    EXPECT_TRUE(in("192.0.2.129", "192.0.2.200", 25));
    EXPECT_TRUE(in("2001:db8:8000::1", "2001:db8::", 32));
    EXPECT_FALSE(in("2001:db8:8000::1", "2001:db8::", 33));
    EXPECT_FALSE(in("192.0.2.1", "::", 0));
    EXPECT_FALSE(in("::1", "0.0.0.0", 0));
}

}  // namespace
}  // namespace quillmark
