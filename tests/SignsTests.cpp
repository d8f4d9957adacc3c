#include "Wording/Signs.h"

#include <gtest/gtest.h>

#include <set>

#include "WordingSupport.h"

namespace quillmark {
namespace {

TEST(Signs, flags) {
    const std::string mixed = "xn--pypal-4ve.example";
    const LookAlikeFlag flags[] = {{LookAlikeFlag::ReplyToDiffers{"a@r.example", "b@s.example"}},
                                   {LookAlikeFlag::DisplayNameMismatch{"bank.example\n%2", "a@s.example"}},
                                   {LookAlikeFlag::Punycode{"xn--mnchen-3ya.example", "münchen.example"}},
                                   {LookAlikeFlag::MixedScripts{mixed}},
                                   {LookAlikeFlag::YoungDomain{"d.example", january(2), 18}},
                                   {LookAlikeFlag::MultipleFrom{}}};
    ASSERT_EQ(std::size(flags), std::variant_size_v<decltype(LookAlikeFlag::value)>);
    std::set<std::string> texts;
    for (const auto& flag : flags) {
        for (const Reader& reader : {english, german})
            texts.insert({title(flag, reader), sentence(flag, reader)});
    }
    EXPECT_EQ(texts.size(), 4 * std::size(flags));
    // Whose address stands where; text of others; how a name looks.
    EXPECT_EQ(sentence(flags[0], english),
              "The message says that it comes from b@s.example, but a reply would go to a@r.example.");
    EXPECT_EQ(sentence(flags[1], english),
              "The name reads “bank.example %2”, but the real address is a@s.example.");
    EXPECT_TRUE(sentence(flags[3], english).starts_with(mixed + " (pаypal.example) mixes"));
    EXPECT_EQ(sentence(flags[4], english), "d.example was registered on 2 Jan 2026, only 18 days ago.");
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
