#include "QuillmarkKit/Mail/Punycode.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(Punycode, standardVectors) {  // RFC 3492, section 7.1
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"egbpdaj6bu4bxfgehfvwxn", "ليهمابتكلموشعربي؟"},
        {"Proprostnemluvesky-uyb24dma41a", "Pročprostěnemluvíčesky"},
        {"i1baa7eci9glrd9b2ae1bj0hfcgg6iyaf8o0a1dig0cd", "यहलोगहिन्दीक्योंनहींबोलसकतेहैं"},
        {"989aomsvi5e83db1d2a355cv1e0vak1dwrv93d5xbh15a0dt30a5jpsd879ccm6fea98c",
         "세계의모든사람들이한국어를이해한다면얼마나좋을까"},
        {"b1abfaaepdrnnbgefbaDotcwatmq2g4l", "почемужеонинеговорятпорусски"},
        {"Hello-Another-Way--fc4qua05auwb3674vfr0b", "Hello-Another-Way-それぞれの場所"},
        {"-> $1.00 <--", "-> $1.00 <-"},
    };
    for (const auto& [encoded, decoded] : rows) EXPECT_EQ(Punycode::decode(encoded), decoded) << encoded;
}

TEST(Punycode, decode) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"mnchen-3ya", "münchen"}, {"MNCHEN-3YA", "MüNCHEN"}, {"abc-", "abc"}, {"", ""},
        {"hb9b", "\uD7FF"},        {"-kva", "\u0369"}  // a delimiter with nothing before it is one still
    };
    for (const auto& [encoded, decoded] : rows) EXPECT_EQ(Punycode::decode(encoded), decoded) << encoded;
    // The last: in the middle of a number, beyond U+10FFFF, beyond 32 bits, a surrogate.
    for (const char* none : {"ab!c", "ü-abc", "abc-ü", "9", "999999b", "99999999999", "ib9b"})
        EXPECT_EQ(Punycode::decode(none), std::nullopt) << none;
    EXPECT_TRUE(Punycode::decode(std::string(254, 'a') + "-"));
    EXPECT_FALSE(Punycode::decode(std::string(255, 'a') + "-"));
}

TEST(Punycode, unicodeDomain) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"xn--mnchen-3ya.de", "münchen.de"},  {"XN--MNCHEN-3YA.DE", "münchen.DE"},
        {"xn--!!.example", "xn--!!.example"}, {"..xn--bcher-kva..", "..bücher.."},
        {"Plain.Example", "Plain.Example"},   {"", ""},
    };
    for (const auto& [domain, unicode] : rows) EXPECT_EQ(Punycode::unicodeDomain(domain), unicode) << domain;
    const std::string hostile = "xn--" + std::string(10'000'000, '9');
    EXPECT_EQ(Punycode::unicodeDomain(hostile), hostile);
}

TEST(Punycode, scripts) {
    using Names = std::set<std::string_view>;
    const struct {
        std::string_view text;
        Names names;
    } rows[] = {
        {"p\u0430ypal", {"Latin", "Cyrillic"}},
        {"example-123", {"Latin"}},
        {"straße\u1E9E", {"Latin"}},
        {"123.@-", {}},
        {"", {}},
        {"αω\u1F00", {"Greek"}},
        {"\u0531\u052F", {"Armenian", "Cyrillic"}},
        {"日本", {"Other"}},
        {"a\u00D7", {"Latin"}},           // a multiplication sign lies among the letters
        {"a\u00AA", {"Latin", "Other"}},  // the feminine ordinal lies outside them
    };
    for (const auto& row : rows) EXPECT_EQ(Punycode::scripts(row.text), row.names) << row.text;
}

}  // namespace
}  // namespace quillmark
