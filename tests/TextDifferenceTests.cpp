#include "QuillmarkKit/Checks/TextDifference.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

/// " 1-0[a|>]" for each place: the lines missing and added, and what they are.
std::string described(std::string_view before, std::string_view after) {
    std::string text;
    for (const auto& lines : differentLines(before, after)) {
        text += " " + std::to_string(lines.beforeLines) + "-" + std::to_string(lines.afterLines) + "[";
        text += before.substr(lines.beforeBegin, lines.beforeEnd - lines.beforeBegin);
        text += ">";
        text += after.substr(lines.afterBegin, lines.afterEnd - lines.afterBegin);
        text += "]";
    }
    return text;
}

TEST(TextDifference, wholeLinesInOrder) {
    const struct {
        std::string before, after, differences;
    } rows[] = {
        {"", "", ""},
        {"a\nb\n", "a\nb\n", ""},
        {"a\nb\n", "a\nb\nc\nd\n", " 0-2[>c\nd\n]"},
        {"a\nb\n", "x\na\nb\n", " 0-1[>x\n]"},
        {"a\nb\n", "", " 2-0[a\nb\n>]"},
        {"ab\nc\n", "ad\nc\n", " 1-1[ab\n>ad\n]"},  // not from the middle of a line
        {"xa\nc\n", "ya\nc\n", " 1-1[xa\n>ya\n]"},  // nor to it
        {"a\na\n", "a\na\na\n", " 0-1[>a\n]"},      // the last of equal ones
        {"a\nb", "a\nb\n", " 1-1[b>b\n]"},
        {"1\na\nb\nc\n2\n", "1\nx\nb\ny\n2\n", " 1-1[a\n>x\n] 1-1[c\n>y\n]"},
        {"a\nb\nc\nd\n", "b\nX\nc\nd\ne\n", " 1-0[a\n>] 0-1[>X\n] 0-1[>e\n]"},
    };
    for (const auto& row : rows) EXPECT_EQ(described(row.before, row.after), row.differences) << row.after;
}

TEST(TextDifference, isOnePlaceWhereThereIsTooMuch) {
    std::string before = "first\n", after = before;
    for (int i = 0; i < 2'100; ++i) {
        before += "a" + std::to_string(i) + "\nsame\n";
        after += "b" + std::to_string(i) + "\nsame\n";
    }
    const auto differences = differentLines(before + "end\n", after + "end\n");
    ASSERT_EQ(differences.size(), 1u);
    EXPECT_EQ(differences[0].beforeLines, 4'199u);
    EXPECT_EQ(differences[0].beforeBegin, 6u);
    EXPECT_EQ(differentLines(before.substr(0, 8'000), after.substr(0, 8'000)).size(), 811u);
}

}  // namespace
}  // namespace quillmark
