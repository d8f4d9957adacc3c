#include "QuillmarkKit/Mail/AuthResults.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using Method = AuthResults::Method;

TEST(AuthResults, parse) {
    const struct {
        std::string_view value;
        AuthResults results;
        AuthResults::Kind kind = AuthResults::Kind::authenticationResults;
    } rows[] = {
        {"mx.example.org", {"mx.example.org", {}}},
        {"mx.example.org 1; none", {"mx.example.org", {}}},
        {"", {}},
        {" ; ;", {}},
        {"mx; dkim=pass (good; signature) header.d=example",
         {"mx", {{"dkim", "pass", {{"header.d", "example"}}}}}},
        {"mx;\r\n DKIM/1=PASS Header.D=Example.ORG\theader.s=\"x\"",
         {"mx", {{"dkim", "pass", {{"header.d", "Example.ORG"}, {"header.s", "x"}}}}}},
        {"mx; spf=fail smtp.mailfrom=a smtp.mailfrom=b a=1",
         {"mx", {{"spf", "fail", {{"a", "1"}, {"smtp.mailfrom", "b"}}}}}},
        {"mx; dkim=fail reason=\"two words\"", {"mx", {{"dkim", "fail", {{"reason", "two"}}}}}},
        {"mx; none=x; =pass; nonsense; arc=none", {"mx", {{"arc", "none", {}}}}},
        {"mx; dmarc=pass=2 p=a=b word", {"mx", {{"dmarc", "pass=2", {{"p", "a=b"}}}}}},
        {"I=1; mx; spf=pass", {"mx", {{"spf", "pass", {}}}}, AuthResults::Kind::arc},
        {"I =\t1; mx; spf=pass", {"mx", {{"spf", "pass", {}}}}, AuthResults::Kind::arc},
        {"i; mx=x", {"i", {{"mx", "x", {}}}}, AuthResults::Kind::arc},
        {"i=1; mx", {"i=1", {}}},  // an instance stands in the other kind of field only
    };
    for (const auto& row : rows) EXPECT_EQ(AuthResults::parse(row.value, row.kind), row.results) << row.value;
}

TEST(AuthResults, manyPropertiesStayCheap) {
    std::string value = "mx; dkim=pass";
    for (int i = 0; i < 200'000; ++i) value += " a" + std::to_string(i % 1000) + "=" + std::to_string(i);
    const auto results = AuthResults::parse(value);
    ASSERT_EQ(results.methods.size(), 1u);
    const Method method = results.methods.front();
    EXPECT_EQ(method.properties.size(), 1000u);
    EXPECT_EQ(method.properties.front(), (NamedText{"a0", "199000"}));
}

}  // namespace
}  // namespace quillmark
