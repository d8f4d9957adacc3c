#include "QuillmarkKit/Support/Unicode.h"

#include <gtest/gtest.h>

namespace quillmark {
namespace {

using namespace std::string_view_literals;

TEST(Unicode, lowerCaseAndLetters) {
    EXPECT_EQ(unicodeLowered("ÄB\u0130"), "äbi\u0307");
    EXPECT_EQ(unicodeLowered("A\xFF"), "a\uFFFD");
    EXPECT_TRUE(isAlphabetic(U'ж'));
    EXPECT_FALSE(isAlphabetic(U'1'));
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
