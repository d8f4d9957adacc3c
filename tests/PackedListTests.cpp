#include "QuillmarkKit/Mail/AuthResults.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(PackedList, everyElementComesBack) {
    PackedList<AuthResults::Method> list;
    std::vector<AuthResults::Method> elements;
    TextList texts;
    std::vector<std::string> kept;
    for (const std::size_t length : {0u, 1u, 126u, 127u, 128u, 16'383u, 16'384u, 3'000'000u}) {
        const std::string text(length, 'x');
        elements.push_back({text, "", {{"", text}, {text, "\x80"}}});
        list.push_back(elements.back());
        texts.push_back(text);
        kept.push_back(text);
    }
    EXPECT_TRUE(std::ranges::equal(texts, kept));
    EXPECT_EQ(std::vector(list.begin(), list.end()), elements);
    EXPECT_EQ((*std::next(list.begin(), 3)).properties.size(), 2u);
}

}  // namespace
}  // namespace quillmark
