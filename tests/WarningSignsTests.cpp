#include "QuillmarkKit/WarningSigns.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace quillmark {
namespace {

using Flags = std::vector<LookAlikeFlag>;
using MultipleFrom = LookAlikeFlag::MultipleFrom;
using ReplyToDiffers = LookAlikeFlag::ReplyToDiffers;
using DisplayNameMismatch = LookAlikeFlag::DisplayNameMismatch;
using PunycodeFlag = LookAlikeFlag::Punycode;
using MixedScripts = LookAlikeFlag::MixedScripts;

const PublicSuffixList& suffixes() {
    static const auto list = PublicSuffixList::parse("example\ncom\norg\nsmith\nco.example\n");
    return list;
}

MessageSummary summary(std::vector<MailAddress> from, std::vector<std::string> replyTo = {}) {
    MessageSummary result;
    result.from = std::move(from);
    for (auto& address : replyTo) result.replyTo.push_back({std::nullopt, std::move(address)});
    return result;
}

TEST(WarningSigns, sendersAndReplies) {
    const MailAddress joe{std::nullopt, "joe@mail.org.example"}, ann{std::nullopt, "ann@other.example"};
    const struct {
        MessageSummary summary;
        Flags flags;
    } rows[] = {
        {summary({}, {"a@b.example"}), {}},
        {summary({joe}), {}},
        {summary({joe, ann}), {{MultipleFrom{}}}},
        {summary({joe, ann}, {"x@other.example"}),
         {{MultipleFrom{}}, {ReplyToDiffers{"x@other.example", "joe@mail.org.example"}}}},
        {summary({joe}, {"x@ORG.example", "nobody", "y@deep.mail.org.example."}), {}},
        {summary({joe}, {"nobody", "X@Other.Example", "y@third.example"}),
         {{ReplyToDiffers{"X@Other.Example", "joe@mail.org.example"}}}},
        {summary({{std::nullopt, "nobody"}}, {"x@other.example"}),
         {{ReplyToDiffers{"x@other.example", "nobody"}}}},
    };
    for (const auto& row : rows) EXPECT_EQ(warningSigns(row.summary, suffixes()), row.flags);
}

TEST(WarningSigns, displayName) {
    const struct {
        std::string name;
        bool differs;
    } rows[] = {
        {"Joe Smith", false},
        {"service@bank.example", true},
        {"Joe of shop.ORG.example", false},
        {"joe@org.example (bank.example)", false},  // only the first is looked at
        {"@bank.example", true},
        {"a@b@bank.example", true},
        {"J.Smith", true},
        {"Version 1.2.3", false},
        {"bank.e", false},
        {"x%y@-.bank.example!", true},
        {"p\u0430ypal.com", true},  // the part behind the Cyrillic letter
        {std::string(1'000'000, 'a'), false},
        {std::string(1'000'000, '@') + "bank.example", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name.substr(0, 50));
        Flags expected;
        if (row.differs) expected.push_back({DisplayNameMismatch{row.name, "joe@org.example"}});
        EXPECT_EQ(warningSigns(summary({{row.name, "joe@org.example"}}), suffixes()), expected);
    }
    const Flags expected{{DisplayNameMismatch{"x.example", "nobody"}}};
    EXPECT_EQ(warningSigns(summary({{"x.example", "nobody"}}), suffixes()), expected);
}

TEST(WarningSigns, internationalDomains) {
    const MailAddress joe{std::nullopt, "joe@XN--PYPAL-4VE.example"};
    const Flags expected{
        {ReplyToDiffers{"x@xn--bcher-kva.example", joe.address}},
        {MixedScripts{"m\u0430il.example"}},
        {PunycodeFlag{"xn--bcher-kva.example", "bücher.example"}},
        {PunycodeFlag{"xn--pypal-4ve.example", "p\u0430ypal.example"}},
        {MixedScripts{"xn--pypal-4ve.example"}},
    };
    EXPECT_EQ(warningSigns(summary({joe}, {"x@xn--bcher-kva.example", "y@xn--BCHER-kva.example",
                                           "z@m\u0430il.example", "z@\u043C\u0438.latin.example"}),
                           suffixes()),
              expected);
}

TEST(WarningSigns, registrationDomains) {
    using Domains = std::vector<std::string>;
    const MailAddress joe{std::nullopt, "joe@mail.org.example"};
    EXPECT_EQ(registrationDomains(
                  summary({joe}, {"a@ORG.example", "b@x.two.example", "c@y.two.example", "d", "e@three.com"}),
                  suffixes()),
              (Domains{"org.example", "two.example", "three.com"}));
    EXPECT_EQ(
        registrationDomains(
            summary({joe}, {"a@a.com", "a@b.com", "a@c.com", "a@d.com", "a@e.com", "a@f.com"}), suffixes()),
        (Domains{"org.example", "a.com", "b.com", "c.com", "d.com", "e.com"}));
    for (const auto& none :
         {summary({}, {"a@a.com"}), summary({joe, joe}), summary({{std::nullopt, "joe"}}, {"a@a.com"})}) {
        EXPECT_EQ(registrationDomains(none, suffixes()), Domains{});
    }
}

TEST(WarningSigns, youngDomain) {
    using namespace std::chrono;
    const Date now = sys_days(January / 15 / 2026);
    const struct {
        milliseconds age;
        std::optional<int> days;
    } rows[] = {
        {days(90), {}},
        {days(90) - milliseconds(1), 89},
        {days(1) - seconds(1), 0},
        {hours(-23), 0},
        {days(-400), -400},
        {days(-3'000'000'000), std::numeric_limits<int>::min()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.age.count());
        const auto flag = youngDomain("a.example", now - row.age, now);
        ASSERT_EQ(flag.has_value(), row.days.has_value());
        if (!flag) continue;
        EXPECT_EQ(*flag, (LookAlikeFlag{LookAlikeFlag::YoungDomain{"a.example", now - row.age, *row.days}}));
    }
}

}  // namespace
}  // namespace quillmark
