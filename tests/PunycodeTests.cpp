#include "QuillmarkKit/Punycode.h"

#include <gtest/gtest.h>

#include <string>

namespace quillmark {
namespace {

TEST(Punycode, standardVectors) {  // RFC 3492, section 7.1
    const struct {
        std::string_view encoded, decoded;
    } rows[] = {
        {"egbpdaj6bu4bxfgehfvwxn", "ليهمابتكلموشعربي؟"},
        {"ihqwcrb4cv8a8dqg056pqjye", "他们为什么不说中文"},
        {"ihqwctvzc91f659drss3x8bo0yb", "他們爲什麽不說中文"},
        {"Proprostnemluvesky-uyb24dma41a", "Pročprostěnemluvíčesky"},
        {"4dbcagdahymbxekheh6e0a7fei0b", "למההםפשוטלאמדבריםעברית"},
        {"i1baa7eci9glrd9b2ae1bj0hfcgg6iyaf8o0a1dig0cd", "यहलोगहिन्दीक्योंनहींबोलसकतेहैं"},
        {"n8jok5ay5dzabd5bym9f0cm5685rrjetr6pdxa", "なぜみんな日本語を話してくれないのか"},
        {"989aomsvi5e83db1d2a355cv1e0vak1dwrv93d5xbh15a0dt30a5jpsd879ccm6fea98c",
         "세계의모든사람들이한국어를이해한다면얼마나좋을까"},
        {"b1abfaaepdrnnbgefbaDotcwatmq2g4l", "почемужеонинеговорятпорусски"},
        {"PorqunopuedensimplementehablarenEspaol-fmd56a", "PorquénopuedensimplementehablarenEspañol"},
        {"TisaohkhngthchnitingVit-kjcr8268qyxafd2f1b9g", "TạisaohọkhôngthểchỉnóitiếngViệt"},
        {"3B-ww4c5e180e575a65lsy2b", "3年B組金八先生"},
        {"-with-SUPER-MONKEYS-pc58ag80a8qai00g7n9n", "安室奈美恵-with-SUPER-MONKEYS"},
        {"Hello-Another-Way--fc4qua05auwb3674vfr0b", "Hello-Another-Way-それぞれの場所"},
        {"2-u9tlzr9756bt3uc0v", "ひとつ屋根の下2"},
        {"MajiKoi5-783gue6qz075azm5e", "MajiでKoiする5秒前"},
        {"de-jg4avhby1noc0d", "パフィーdeルンバ"},
        {"d9juau41awczczp", "そのスピードで"},
        {"-> $1.00 <--", "-> $1.00 <-"},
    };
    for (const auto& row : rows) EXPECT_EQ(Punycode::decode(row.encoded), row.decoded) << row.encoded;
}

TEST(Punycode, decode) {
    const struct {
        std::string_view encoded;
        std::optional<std::string> decoded;
    } rows[] = {
        {"mnchen-3ya", "münchen"},
        {"MNCHEN-3YA", "MüNCHEN"},
        {"bcher-kva", "bücher"},
        {"abc-", "abc"},
        {"-kva", "\u0369"},  // a delimiter with nothing before it is one still
        {"", ""},
        {"ab!c", std::nullopt},
        {"ü-abc", std::nullopt},
        {"abc-ü", std::nullopt},
        {"9", std::nullopt},            // ends in the middle of a number
        {"999999b", std::nullopt},      // beyond U+10FFFF
        {"99999999999", std::nullopt},  // beyond 32 bits
        {"hb9b", "\uD7FF"},
        {"ib9b", std::nullopt},  // a surrogate
    };
    for (const auto& row : rows) EXPECT_EQ(Punycode::decode(row.encoded), row.decoded) << row.encoded;
    EXPECT_TRUE(Punycode::decode(std::string(254, 'a') + "-"));
    EXPECT_FALSE(Punycode::decode(std::string(255, 'a') + "-"));
}

TEST(Punycode, unicodeDomain) {
    const struct {
        std::string_view domain, unicode;
    } rows[] = {
        {"xn--mnchen-3ya.de", "münchen.de"},  {"XN--MNCHEN-3YA.DE", "münchen.DE"},
        {"xn--!!.example", "xn--!!.example"}, {"..xn--bcher-kva..", "..bücher.."},
        {"Plain.Example", "Plain.Example"},   {"", ""},
    };
    for (const auto& row : rows) EXPECT_EQ(Punycode::unicodeDomain(row.domain), row.unicode) << row.domain;
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
