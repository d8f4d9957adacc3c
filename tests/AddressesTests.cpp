#include "QuillmarkKit/Mail/Addresses.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using List = PackedList<MailAddress>;

TEST(Addresses, parseList) {
    const struct {
        std::string_view value;
        List list;
    } rows[] = {
        {"Alice <alice@example.org>, Bob <bob@example.org>",
         {{"Alice", "alice@example.org"}, {"Bob", "bob@example.org"}}},
        {"\"Doe, John\" <j@example.org>", {{"Doe, John", "j@example.org"}}},
        {"\"a \\\"b\\\" c\" <j@example.org>", {{"a \"b\" c", "j@example.org"}}},
        {"undisclosed-recipients:;", {}},
        {"Team: a@example.org, b@example.org;",
         {{std::nullopt, "a@example.org"}, {std::nullopt, "b@example.org"}}},
        {"john@example.org (John Doe)", {{"John Doe", "john@example.org"}}},
        {"john@example.org ()", {{std::nullopt, "john@example.org"}}},
        {"(John) john@example.org", {}},
        {"not an address", {}},
        {"Name <no-at-sign>", {{"Name", "no-at-sign"}}},
        {"<>", {{std::nullopt, ""}}},
        {"\t a@b \t", {{std::nullopt, "a@b"}}},
        {"<a@x> <b@y>", {{"<a@x>", "b@y"}}},
        {"a@b > <", {{std::nullopt, "a@b > <"}}},
        {"a@b (x, y); c@d", {{"x, y", "a@b"}, {std::nullopt, "c@d"}}},
        {"a@b>, c@d", {{std::nullopt, "a@b>"}, {std::nullopt, "c@d"}}},
        {"a@b), c@d", {{std::nullopt, "a@b)"}, {std::nullopt, "c@d"}}},
        {"(open a@b, c@d", {{std::nullopt, "(open a@b, c@d"}}},
        {"=?utf-8?q?J=C3=BCrgen?= <j@x>", {{"Jürgen", "j@x"}}},
        {"\"=?utf-8?q?J=C3=BCrgen?=\" <j@x>", {{"Jürgen", "j@x"}}},
        {"user@[IPv6:2001:db8::1]", {}},
        {"\" <c@d>", {{std::nullopt, "c@d"}}},
        {"=?koi8-r?q?=F0?= <a@b>, =?koi8-r?q?=F1?= <c@d>", {{"П", "a@b"}, {"Я", "c@d"}}},
        {"\"a:b\" <c@d>", {{"a:b", "c@d"}}},
        {"", {}},
        {" , ;", {}},
    };
    for (const auto& row : rows) EXPECT_EQ(MailAddress::parseList(row.value), row.list) << row.value;
}

TEST(Addresses, domainPart) {
    for (const auto& [address, domain] : {std::pair{"User@Example.ORG>", "example.org"},
                                          {"nobody", ""},
                                          {"\"a@b\"@example.org.", "example.org"},
                                          {"a@MÜNCHEN.example", "münchen.example"},
                                          {"a@", ""},
                                          {"a@...", ""}}) {
        EXPECT_EQ(MailAddress::domainPart(address), domain) << address;
    }
}

TEST(EncodedWords, decode) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"plain", "plain"},
        {"=?utf-8?q?Caf=C3=A9_Bar?=", "Café Bar"},
        {"=?ISO-8859-1?Q?a?= \r\n =?ISO-8859-1?Q?b?=", "ab"},
        {"x =?utf-8?q?a?= y =?utf-8?q?b?= z", "x a y b z"},
        {"=?utf-8?q?a?=\u3000=?utf-8?q?b?=", "ab"},
        {"=?utf-8?B?SGk?=", "Hi"},
        {"=?utf-8?b?SGk=?=", "Hi"},
        {"=?utf-8?B?S!k=?=", "=?utf-8?B?S!k=?="},
        {"=?utf-8?B?SGkaa?=", "=?utf-8?B?SGkaa?="},
        {"=?x-unknown?Q?abc?=", "abc"},
        {"=?x-unknown?Q?=FF?=", "=?x-unknown?Q?=FF?="},
        {"=?utf-8*en?q?a?=", "a"},
        {"=?*?q?=C3=A9?=", "é"},
        {"=?utf-8?q?=C3?= =?utf-8?q?=A9?=", "=?utf-8?q?=C3?==?utf-8?q?=A9?="},
        {"=?utf-8?q?a=4?= =?utf-8?q?=zz=?=", "a=4=zz="},
        {"=?utf-8?q?Hello World?=", "=?utf-8?q?Hello World?="},
        {"=?utf-8?x?a?=", "=?utf-8?x?a?="},
        {"=?utf-8?q?\?=", ""},
        {"=?utf-8?q?x=0A[OK]?=", "x\n[OK]"},
        {"=?=?utf-8?q?a?=", "=?a"},
        {"=?", "=?"},
    };
    for (const auto& [text, decoded] : rows) EXPECT_EQ(EncodedWords::decode(text), decoded) << text;
}

TEST(EncodedWords, hostileNamesStayCheap) {
    std::string text;
    for (int i = 0; i < 100'000; ++i) text += "=?x" + std::to_string(i) + "?q?a?= ";
    EXPECT_EQ(EncodedWords::decode(text).size(), 100'001u);
}

}  // namespace
}  // namespace quillmark
