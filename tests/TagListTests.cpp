#include "QuillmarkKit/Mail/TagList.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(TagList, parse) {
    const struct {
        std::string_view text, name;
        std::optional<std::string_view> value;
        std::optional<std::string> duplicate = {};
    } rows[] = {
        {"v=1; d = example.org", "d", "example.org"},
        {"b=ab\r\n\tcd ;", "b", "ab\r\n\tcd"},  // folding inside a value stays
        {"P=x=y", "p", "x=y"},                  // only the first "=" cuts
        {"v=1; V=2; a=; a=", "v", "1", "v"},    // the first value stays, the first repetition is told
        {"b=1; a=1; a=2; b=2", "b", "1", "a"},
        {"a=1; b=1; b=2; b=3; a=2", "a", "1", "b"},
        {"abcdefgh2=2; ABCDEFGH1=1; abcdefgh=0; Abcdefgh2=3", "abcdefgh2", "2", "abcdefgh2"},
        {"abcdefgh1=1; abcdefgh=0; abcdefg=x", "abcdefgh", "0"},
        {"\xC3\xA9=1; e=2; z=3", "\xC3\xA9", "1"},
        {" ; nothing; =value", "nothing", std::nullopt},
        {"; ;", "", std::nullopt},
        {"\u00A0d\u2003=\u3000x\u00A0", "d", "x"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const TagList list = TagList::parse(row.text);
        EXPECT_EQ(list.value(row.name), row.value);
        EXPECT_EQ(list.duplicateTag, row.duplicate);
    }
    EXPECT_EQ(TagList::parse("p= a b\r\n\tc\u00A0d ").compactValue("p"), "abcd");
    EXPECT_EQ(TagList::parse("p=").compactValue("p"), "");
    EXPECT_EQ(TagList::parse("q=").compactValue("p"), std::nullopt);
}

}  // namespace
}  // namespace quillmark
