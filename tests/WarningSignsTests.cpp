#include "QuillmarkKit/Checks/WarningSigns.h"

#include <limits>
#include <set>
#include "tests/Test.h"

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

MessageSummary summary(PackedList<MailAddress> from, std::vector<std::string> replyTo = {}) {
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
    const auto signs = [](const std::string& name, const std::string& address) {
        return warningSigns(summary({{name, address}}), suffixes());
    };
    const std::string joe = "joe@org.example";
    // Of two only the first is looked at.
    for (const std::string& same :
         {std::string("Joe Smith"), std::string("Joe of shop.ORG.example"), joe + " (bank.example)",
          std::string("Version 1.2.3"), std::string("bank.e"), std::string(1'000'000, 'a')})
        EXPECT_EQ(signs(same, joe), Flags{}) << same.substr(0, 50);
    for (const std::string& other :
         {std::string("service@bank.example"), std::string("@bank.example"), std::string("a@b@bank.example"),
          std::string("J.Smith"), std::string("x%y@-.bank.example!"), std::string("p\u0430ypal.com"),
          std::string(1'000'000, '@') + "bank.example"})
        EXPECT_EQ(signs(other, joe), (Flags{{DisplayNameMismatch{other, joe}}})) << other.substr(0, 50);
    EXPECT_EQ(signs("x.example", "nobody"), (Flags{{DisplayNameMismatch{"x.example", "nobody"}}}));
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

// They are gathered in turns: more of them than one turn takes, each often, in no order.
TEST(WarningSigns, manyInternationalDomains) {
    const auto domain = [](std::size_t i) { return "xn--" + std::to_string(i * 7919 % 5000) + ".example"; };
    MessageSummary facts = summary({{std::nullopt, "joe@xn--0.example"}});
    std::set<std::string> domains;
    for (std::size_t i = 0; i < 20'000; ++i) {
        domains.insert(domain(i));
        facts.replyTo.push_back({std::nullopt, "a@" + domain(i)});
    }
    std::vector<std::string> warnedOf;
    for (const LookAlikeFlag& flag : warningSigns(facts, suffixes())) {
        if (const auto* found = std::get_if<PunycodeFlag>(&flag.value)) warnedOf.push_back(found->domain);
    }
    EXPECT_EQ(warnedOf, std::vector(domains.begin(), domains.end()));
}

TEST(WarningSigns, registrationDomains) {
    using Domains = std::vector<std::string>;
    const MailAddress joe{std::nullopt, "joe@mail.org.example"};
    const auto domains = [](const MessageSummary& facts) { return registrationDomains(facts, suffixes()); };
    EXPECT_EQ(
        domains(summary({joe}, {"a@ORG.example", "b@x.two.example", "c@y.two.example", "d", "e@three.com"})),
        (Domains{"org.example", "two.example", "three.com"}));
    EXPECT_EQ(domains(summary({joe}, {"a@a.com", "a@b.com", "a@c.com", "a@d.com", "a@e.com", "a@f.com"})),
              (Domains{"org.example", "a.com", "b.com", "c.com", "d.com", "e.com"}));
    EXPECT_EQ(domains(summary({}, {"a@a.com"})), Domains{});
    EXPECT_EQ(domains(summary({joe, joe})), Domains{});
    EXPECT_EQ(domains(summary({{std::nullopt, "joe"}}, {"a@a.com"})), Domains{});
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
