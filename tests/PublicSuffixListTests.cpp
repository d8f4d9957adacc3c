#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(PublicSuffixList, theSharedList) {
    const auto& list = PublicSuffixList::shared();
    EXPECT_GE(list.ruleCount(), 5000u);
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"Mail.Example.CO.UK.", "example.co.uk"},
        {"a.b.example.com", "example.com"},
        {"CO..UK.", "co..uk"},
        {"x..example..com", "example.com"},
        {".Com.", "com"},
        {"a.b.unlisted.invalidtld", "unlisted.invalidtld"},
        // Wildcards and exceptions.
        {"a.shop.foo.ck", "shop.foo.ck"},
        {"a.www.ck", "www.ck"},
        {"www.city.kawasaki.jp", "city.kawasaki.jp"},
        {"a.b.c.kawasaki.jp", "b.c.kawasaki.jp"},
        {"www.test.k12.ak.us", "test.k12.ak.us"},
        // Both forms of a rule beyond ASCII: strangers under it are no organization.
        {"a.食狮.公司.cn", "食狮.公司.cn"},
        {"a.xn--85x722f.xn--55qx5d.cn", "xn--85x722f.xn--55qx5d.cn"},
        {"МОСКВА.РФ", "москва.рф"},
        // The private section counts.
        {"a.somebody.github.io", "somebody.github.io"},
    };
    for (const auto& [name, domain] : rows) EXPECT_EQ(list.organizationalDomain(name), domain) << name;
    for (const char* own : {"", "...", "co.uk", "example.com", "localhost", "unlisted.invalidtld", "ck",
                            "foo.ck", "shop.foo.ck", "www.ck", "a.b.kobe.jp", "b.xn--p1ai"})
        EXPECT_EQ(list.organizationalDomain(own), own);
    EXPECT_TRUE(list.sameOrganization("a.example.org", "B.EXAMPLE.org"));
    EXPECT_FALSE(list.sameOrganization("a.co.uk", "b.co.uk"));
    EXPECT_FALSE(list.sameOrganization("", ""));
    EXPECT_TRUE(list.sameOrganization("a.食狮.公司.cn", "xn--85x722f.公司.cn"));
    EXPECT_FALSE(list.sameOrganization("a.公司.cn", "b.xn--55qx5d.cn"));
}

TEST(PublicSuffixList, theFileIsInLowerCaseAndHasBothForms) {
    std::istringstream text(test::contents(QUILLMARK_SUFFIX_LIST));
    const auto parsed = PublicSuffixList::parse(text.str());
    EXPECT_EQ(parsed.ruleCount(), PublicSuffixList::shared().ruleCount());
    for (std::string line; std::getline(text, line);) {
        const std::string below = "a.b." + line.substr(std::min(line.find_first_not_of("*!."), line.size()));
        EXPECT_EQ(parsed.organizationalDomain(below), PublicSuffixList::shared().organizationalDomain(below));
        const bool isUnicode =
            std::ranges::any_of(line, [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
        if (isUnicode) {
            ASSERT_TRUE(std::getline(text, line));
            EXPECT_NE(line.find("xn--"), std::string::npos) << line;
        }
    }
}

TEST(PublicSuffixList, parse) {
    const auto list = PublicSuffixList::parse(
        "// a comment\ncom\r\nUK trailing text\n\n*.uk\n!Free.UK\v\u2028jp\u0085\u2029*.jp\fb.c.jp\n "
        "uk.leading");
    EXPECT_EQ(list.ruleCount(), 7u);
    for (const auto& [name, organization] : {std::pair{"x.a.co.uk", "a.co.uk"},
                                             {"x.free.uk", "free.uk"},
                                             {"x.b.c.jp", "x.b.c.jp"},
                                             {"a.x.y.jp", "x.y.jp"},
                                             {"b.a.x.y.jp", "x.y.jp"}}) {
        EXPECT_EQ(list.organizationalDomain(name), organization) << name;
    }
    const auto fallback = PublicSuffixList::parse("com\nnet\norg");
    EXPECT_EQ(fallback.organizationalDomain("a.b.example.de"), "example.de");
    EXPECT_EQ(fallback.organizationalDomain("x.y.co.uk"), "co.uk");
    EXPECT_EQ(PublicSuffixList::parse("").organizationalDomain("a.b.c"), "b.c");
}

TEST(PublicSuffixList, namesOfManyLabels) {
    std::string name;
    for (int i = 0; i < 1'000'000; ++i) name += "a.";
    EXPECT_EQ(PublicSuffixList::shared().organizationalDomain(name + "co.uk"), "a.co.uk");
    EXPECT_EQ(PublicSuffixList::shared().organizationalDomain(std::string(1'000'000, '.') + "com"), "com");
}

}  // namespace
}  // namespace quillmark
