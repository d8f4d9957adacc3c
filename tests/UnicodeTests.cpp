#include "QuillmarkKit/Support/Unicode.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using namespace std::string_view_literals;

TEST(Unicode, lowerCaseAndLetters) {
    EXPECT_EQ(unicodeLowered("ÄB\u0130"), "äbi\u0307");
    EXPECT_EQ(unicodeLowered("A\xFF"), "a\uFFFD");
    EXPECT_TRUE(isAlphabetic(U'ж'));
    EXPECT_FALSE(isAlphabetic(U'1'));
}

TEST(Unicode, asciiDomain) {
    const struct {
        std::string domain;
        std::optional<std::string> ascii;
    } rows[] = {
        {"_DMARC.Example..", "_DMARC.Example.."},
        {"S1._domainkey.b\u00FCcher.Example", "S1._domainkey.xn--bcher-kva.Example"},
        {"BU\u0308CHER.example", "xn--bcher-kva.example"},  // decomposed, and in capitals
        {"stra\u00DFe.example", "xn--strae-oqa.example"},   // not strasse.example
        {"\u03A3\u03B1\u03C2.example", "xn--mxa8ab.example"},
        {"\u0130.example", "xn--i-9bb.example"},
        {"\u516C\u53F8.cn", "xn--55qx5d.cn"},
        // What would be asked for is another name than the one that stands there.
        {"b\u017Fd.example", std::nullopt},        // a long s
        {"\uFF42ank.example", std::nullopt},       // a wide b
        {"b\u00ADank.example", std::nullopt},      // a soft hyphen
        {"a\u3002b\u00FC.example", std::nullopt},  // a full stop
        {"a\u200Db\u00FC.example", std::nullopt},  // a joiner that joins nothing
        {"\u05D0a.example", std::nullopt},         // right to left and left to right
        {"_b\u00FCcher.example", std::nullopt},    // an underscore beside letters
        {"b\u00FC cher.example", std::nullopt},
        {"xn--b\u00FC.example", std::nullopt},
        {"\uFFFD.example", std::nullopt},
        {std::string(64, 'a') + "\u00FC.example", std::nullopt},
        {"\u00FC." + std::string(2000, 'a'), std::nullopt},
    };
    for (const auto& row : rows) EXPECT_EQ(asciiDomain(row.domain), row.ascii) << row.domain;
}

TEST(Unicode, whatACharacterIsTakenFor) {
    for (const auto& [scalar, alike] : {std::pair(U'\u0430', std::optional('a')),  // Cyrillic
                                        {U'\u03BF', 'o'},                          // Greek
                                        {U'\u0131', 'i'},
                                        {U'\u00FC', std::nullopt},
                                        {U'\u4E2D', std::nullopt},
                                        {U'a', std::nullopt}})
        EXPECT_EQ(asciiLookAlike(scalar), alike);
}

TEST(CharsetDecoder, decode) {
    const struct {
        std::string_view charset, bytes;
        std::optional<std::string> text;
    } rows[] = {
        {"iso-8859-15", "\xA4", "€"},
        {"Windows-1252", "\x80", "€"},
        {"windows-1251", "\xCF\xF0", "Пр"},
        {"koi8-r", "\xF0", "П"},
        {"K_O-I8-R", "\xF0", "П"},  // spellings that ICU takes for the same
        {"shift_jis", "\x93\xFA", "日"},
        {"shift_jis", "\x93", std::nullopt},  // cut short
        {"euc-jp", "\xC6\xFC", "日"},
        {"gb2312", "\xD6\xD0", "中"},
        {"gb2312", "\xE9\x46", "镕"},           // GBK has this one, GB 2312 has not
        {"GBK", "\x81\x30\x81\x30", "\u0080"},  // and only GB 18030 has this one
        {"gb18030", "\xFF", std::nullopt},
        {"big5", "\xA4\xA4", "中"},
        {"euc-kr", "\xC7\xD1", "한"},
        {"us-ascii", "a\xE9", std::nullopt},
        {"ISO-2022-JP", "\x1B$BF|K\\\x1B(B", "日本"},
        {"ISO-2022-JP", "\x1B$BF", std::nullopt},
        {"ISO-2022-JP", "plain", "plain"},  // an earlier failure leaves nothing behind
        {"hz-gb-2312", "~{VP~}", "中"},
        {"hz-gb-2312", "a~~b~{VP", "a~b中"},
        {"hz-gb-2312", "~{V", std::nullopt},
        {"hz-gb-2312", "~{VP~}a~", std::nullopt},
        {"utf-7", "+AOk-", "é"},
        {"utf-7", "\xE9", std::nullopt},
        {"utf-16be", "\0a"sv, "a"},
        {"utf-16be", "\xD8\x00\x00\x61"sv, std::nullopt},  // half a pair
        {"utf-16be", "\0"sv, std::nullopt},
        {"utf-8", "\xC3\xA9", "é"},
        {"utf8", "\xED\xA0\x80", std::nullopt},
        {"", "\xC3\xA9", "é"},
        {"x-unknown", "\xC3\xA9", "é"},
        {"x-unknown", "\xE9", std::nullopt},
        {"koi8-r\0x"sv, "\xF0", std::nullopt},  // nobody's name
        {"us-ascii", "", ""},
    };
    CharsetDecoder one;  // as in a text whose words follow each other
    for (const auto& row : rows) {
        SCOPED_TRACE(row.charset);
        EXPECT_EQ(one.decode(row.charset, row.bytes), row.text);
        EXPECT_EQ(CharsetDecoder().decode(row.charset, row.bytes), row.text);
    }
    EXPECT_EQ(one.decode(std::string(100, 'x'), "a"), "a");
}

}  // namespace
}  // namespace quillmark
