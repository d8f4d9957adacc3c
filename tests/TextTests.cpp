#include "QuillmarkKit/Support/Text.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(Text, trimming) {
    EXPECT_EQ(trimmedBlanks(" \t a b\t "), "a b");
    EXPECT_EQ(trimmedBlanks(" \t "), "");
    EXPECT_EQ(trimmed("\r\n \u00A0a\u3000b\u2028\u0085"), "a\u3000b");
    EXPECT_EQ(trimmed("\xA0 a \xA0"), "\xA0 a \xA0");  // not UTF-8: not white space
    EXPECT_EQ(trimmed("\u3000"), "");
    EXPECT_EQ(withoutWhitespace(" a\r\n\tb\u00A0c\xFF"), "abc\xFF");
}

TEST(Text, pieces) {
    std::string_view rest = "a;;b";
    EXPECT_EQ(takePiece(rest, ';'), "a");
    EXPECT_EQ(takePiece(rest, ';'), "");
    EXPECT_EQ(takePiece(rest, ';'), "b");
    EXPECT_TRUE(rest.empty());
    rest = "  x y ";
    EXPECT_EQ(takeWord(rest, " "), "x");
    EXPECT_EQ(takeWord(rest, " "), "y");
    EXPECT_EQ(takeWord(rest, " "), "");
}

TEST(Text, decimal) {
    EXPECT_EQ(decimal("00012"), 12);
    EXPECT_EQ(decimal("9223372036854775807"), INT64_MAX);
    for (const auto* text :
         {"", "-1", "+1", " 1", "1 ", "9223372036854775808", "99999999999999999999", "1e3"}) {
        EXPECT_EQ(decimal(text), std::nullopt) << text;
    }
}

TEST(Text, utf8) {
    for (const std::string_view good :
         {"", "a", "é", "€", "😀", "\u00A0", "\uD7FF", "\uE000", "\U0010FFFF"}) {
        EXPECT_TRUE(isUTF8(good)) << good;
        EXPECT_EQ(repairedUTF8(good), good);
        EXPECT_EQ(decodedText(good), good);
    }
    const struct {
        std::string_view bytes, repaired, decoded;
    } bad[] = {
        {"a\x80", "a\uFFFD", "a\u0080"},
        {"\xC0\x80", "\uFFFD\uFFFD", "À\u0080"},                                  // overlong
        {"\xE0\x9F\x80", "\uFFFD\uFFFD\uFFFD", "à\u009F\u0080"},                  // overlong
        {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD", "í\u00A0\u0080"},                  // a surrogate
        {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD", "ô\u0090\u0080\u0080"},  // above U+10FFFF
        {"\xE2\x82", "\uFFFD\uFFFD", "â\u0082"},                                  // cut short
        {"\xFFz", "\uFFFDz", "ÿz"},
    };
    for (const auto& row : bad) {
        SCOPED_TRACE(row.repaired);
        EXPECT_FALSE(isUTF8(row.bytes));
        EXPECT_EQ(repairedUTF8(row.bytes), row.repaired);
        EXPECT_EQ(decodedText(row.bytes), row.decoded);
    }
}

TEST(Text, withoutComments) {
    const struct {
        std::string_view text, kept;
    } rows[] = {
        {"a (b (c) d) e", "a  e"},
        {"a \"(kept)\" b", "a \"(kept)\" b"},
        {"a) b", "a b"},
        {"(it\"s) ; dkim=pass", ""},  // the quote inside the comment hides its end
        {"a\r\n b\u2028c", "a   b c"},
        {"(never closed", ""},
    };
    for (const auto& row : rows) EXPECT_EQ(withoutComments(row.text), row.kept) << row.text;
    EXPECT_EQ(withoutComments(std::string(1'000'000, '(')), "");
}

TEST(Text, forDisplay) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"plain é 😀", "plain é 😀"},
        {"x\n[OK] Signed", "x [OK] Signed"},
        {"a\r\nb\tc", "a b c"},
        {"\x1B]0;t\x07", "\uFFFD]0;t\uFFFD"},
        {"\u009B2J", "\uFFFD2J"},
        {"a\u2028b", "a\uFFFDb"},
        {"a\u202Egpj", "a‹U+202E›gpj"},
        {"pay\u200Bpal\uFEFF", "pay‹U+200B›pal‹U+FEFF›"},
        {"\U000E0041", "‹U+E0041›"},
        {"❤\uFE0F a\uFE0F", "❤\uFE0F a‹U+FE0F›"},
        {"bad\xFF", "bad\uFFFD"},
        {"a\uFDD0b\uFFFC", "a\uFFFDb\uFFFD"},
        {"\u3164 \u2800", "‹U+3164› ‹U+2800›"},
    };
    for (const auto& [text, shown] : rows) EXPECT_EQ(forDisplay(text), shown);
    EXPECT_EQ(forDisplay("abc", 3), "abc");
    EXPECT_EQ(forDisplay("abé", 3), "ab…");
}

}  // namespace
}  // namespace quillmark
