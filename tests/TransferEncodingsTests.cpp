#include "QuillmarkKit/Mail/TransferEncodings.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(TransferEncodings, base64InLines) {
    EXPECT_EQ(encodedBase64Lines("0123456789", 8), "MDEyMzQ1\r\nNjc4OQ==\r\n");
    EXPECT_EQ(encodedBase64Lines("012345", 8, "\n"), "MDEyMzQ1\n");
    EXPECT_EQ(encodedBase64Lines("", 8), "");
    EXPECT_EQ(decodedBase64Lines("MDEy\r\n Mz*Q1\r\nNjc4OQ==\r\nMDEy"), "0123456789");
    EXPECT_EQ(decodedBase64Lines("MDEyM"), "012");
}

/// What the programs named beside the styles wrote for one text, from their own output. Lines are joined by
/// "|".
TEST(TransferEncodings, quotedPrintableAsProgramsWriteIt) {
    const auto spelled = [](std::string_view text) {
        std::string result;
        while (!text.empty()) {
            const auto run = std::min(text.find_first_not_of('a'), text.size());
            const auto count = run > 15 ? run : 0;
            if (count > 0) result += "<" + std::to_string(count) + ">";
            text.remove_prefix(count);
            if (text.empty()) break;
            if (text.starts_with("\r\n")) {
                result += "|";
                text.remove_prefix(2);
            } else {
                result += text.front();
                text.remove_prefix(1);
            }
        }
        return result;
    };
    const auto a = [](std::size_t count) { return std::string(count, 'a'); };
    const std::string text = "From h\u00f6re\r\n.\r\n.x\r\n" + a(76) + "\r\n" + a(77) + "\r\n" + a(70) +
                             "\u00f6\r\nx \t\r\na\tb\r\n" + a(76) + "\u20ac\r\n" + a(64) + " word word\r\n";
    const std::string blank = a(74) + " \r\n";  // one does something of its own there
    const std::string written[] = {
        "From h=C3=B6re|.|.x|<76>|<75>=|aa|<70>=C3=B6|x=20=09|a\tb|<75>=|a=E2=82=AC|<64> word "
        "word|<74>=|=20|",
        "From h=C3=B6re|.|.x|<55>=|<21>|<53>=|<24>|<50>=|<20>=C3=B6|x "
        "=09|a\tb|<38>=|<38>=E2=82=AC|<27>=|<37> word "
        "word|<27>=|<47>=20|",
        "From h=C3=B6re|.|.x|<75>=|a|<75>=|aa|<70>=|=C3=B6|x =09|a=09b|<75>=|a=E2=82=AC|<64> word "
        "word|<74>=|=20|",
        "From h=C3=B6re|.|.x|<75>=|a|<75>=|aa|<70>=C3=|=B6|x =09|a\tb|<75>=|a=E2=82=AC|<64> word "
        "word|<74>=|=20|",
        "From h=C3=B6re|.|.x|<76>|<75>=|aa|<70>=C3=B6|x =09|a\tb|<75>=|a=E2=82=AC|<64> word word|<74> =||",
        "From h=C3=B6re|.|.x|<76>|<77>|<70>=C3=B6|x =09|a\tb|<76>=|=E2=82=AC|<64> word word|<74>=20|",
        "From h=C3=B6re|.|.x|<73>=|aaa|<73>=|aaaa|<70>=C3=|=B6|x \t=||a\tb|<73>=|aaa=E2=82=AC|<64> word "
        "wor=|d|<73>=|a =||",
        "From h=C3=B6re|.|.x|<75>=|a|<75>=|aa|<70>=C3=|=B6|x =09|a=09b|<75>=|a=E2=82=AC|<64> word "
        "word|<74>=|=20|",
        "From h=C3=B6re|.|.x|<76>|<75>=|aa|<70>=C3=|=B6|x =09|a\tb|<75>=|a=E2=82=AC|<64> word "
        "word|<74>=|=20|",
        "From h=C3=B6re|=2E|.x|<76>|<75>=|aa|<70>=C3=|=B6|x =09|a\tb|<75>=|a=E2=82=AC|<64> word word|",
        "=46rom h=C3=B6re|=2E|=2Ex|<76>|<75>=|aa|<70>=C3=B6|x =09|a\tb|<75>=|a=E2=82=AC|<64> word "
        "word|<74>=|=20|",
        "=46rom h=C3=B6re|=2E|.x|<76>|<75>=|aa|<70>=C3=|=B6|x =09|a\tb|<75>=|a=E2=82=AC|<64> word "
        "word|<74>=|=20|",
    };
    ASSERT_EQ(std::size(written), quotedPrintableStyles.size());
    for (std::size_t i = 0; i < std::size(written); ++i) {
        const bool hasBlank = i != 9;
        const std::string sent = hasBlank ? text + blank : text;
        EXPECT_EQ(spelled(encodedQuotedPrintable(sent, quotedPrintableStyles[i])), written[i]) << i;
        EXPECT_EQ(decodedQuotedPrintable(encodedQuotedPrintable(sent, quotedPrintableStyles[i])), sent) << i;
    }
    const QuotedPrintableStyle blanks = {.longest = 12, .breaks = QuotedPrintableStyle::Break::blank};
    EXPECT_EQ(encodedQuotedPrintable("one two three four", blanks), "one two =\r\nthree four");
}

}  // namespace
}  // namespace quillmark
