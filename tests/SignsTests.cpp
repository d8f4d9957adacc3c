#include "Wording/Signs.h"

#include <gtest/gtest.h>

#include <set>

#include "WordingSupport.h"

namespace quillmark {
namespace {

TEST(Signs, flags) {
    const struct {
        LookAlikeFlag flag;
        std::string title, sentence;
    } rows[] = {
        {{LookAlikeFlag::ReplyToDiffers{"a@r.example", "b@s.example"}},
         "Replies go somewhere else",
         "The message says that it comes from b@s.example, but a reply would go to a@r.example."},
        {{LookAlikeFlag::DisplayNameMismatch{"bank.example\n%2", "a@s.example"}},
         "The name shows another address",
         "The name reads “bank.example %2”, but the real address is a@s.example."},
        {{LookAlikeFlag::Punycode{"xn--mnchen-3ya.example", "münchen.example"}},
         "Look-alike letters in the domain",
         "xn--mnchen-3ya.example is written in punycode; some apps show it as “münchen.example”."},
        {{LookAlikeFlag::MixedScripts{"xn--pypal-4ve.example"}},
         "Mixed alphabets in the domain",
         "xn--pypal-4ve.example (pаypal.example) mixes letters of several alphabets. That can be legitimate, "
         "but look-alike names are made in the same way."},
        {{LookAlikeFlag::YoungDomain{"d.example", january(2), 18}},
         "Newly registered domain",
         "d.example was registered on 2 Jan 2026, only 18 days ago."},
        {{LookAlikeFlag::MultipleFrom{}},
         "Several From addresses",
         "The message names more than one sender, which mail standards don’t allow for checking."},
    };
    ASSERT_EQ(std::size(rows), std::variant_size_v<decltype(LookAlikeFlag::value)>);
    for (const auto& row : rows) {
        EXPECT_EQ(title(row.flag, english), row.title);
        EXPECT_EQ(sentence(row.flag, english), row.sentence);
        EXPECT_NE(sentence(row.flag, german), row.sentence);
    }
    EXPECT_EQ(sentence(LookAlikeFlag{LookAlikeFlag::YoungDomain{"d", january(2), -4}}, english),
              "d was registered on 2 Jan 2026, after the message was checked.");
}

TEST(Signs, limits) {
    std::set<std::string> texts;
    constexpr auto count = namesOf(Limit{}).names.size();
    for (std::size_t i = 0; i < count; ++i) {
        for (const Reader& reader : {english, german}) {
            texts.insert(title(static_cast<Limit>(i), reader));
            texts.insert(sentence(static_cast<Limit>(i), reader));
        }
    }
    EXPECT_EQ(texts.size(), 4 * count);
    EXPECT_EQ(title(Limit::domainNotCompany, english), "A domain isn’t a company");
}

}  // namespace
}  // namespace quillmark
