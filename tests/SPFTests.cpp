#include "QuillmarkKit/Checks/SPF.h"

#include <initializer_list>
#include "tests/Test.h"

namespace quillmark {
namespace {

using Zone = std::vector<std::pair<std::string, std::vector<std::string>>>;

StaticResolver::Answers answers(const Zone& zone) {
    StaticResolver::Answers table;
    for (const auto& [key, data] : zone) table.emplace(key, DNSAnswer::records(data));
    return table;
}

/// "result: what matched or why nothing did"
std::string text(const SPFEvaluator::Outcome& outcome) {
    EXPECT_NE(outcome.matched.has_value(), outcome.detail.has_value());
    return std::string(nameOf(outcome.result)) + ": " + outcome.matched.value_or("") +
           outcome.detail.value_or("");
}

std::string judge(DNSResolver& resolver, std::string_view address, std::string_view domain = "d.example",
                  std::string_view sender = "joe@d.example") {
    return text(SPFEvaluator{resolver}.evaluate(*IPAddress::parse(address), domain, sender));
}

/// Judges 192.0.2.7 by one record of d.example and what else is in the zone.
std::string judgeRecord(const std::string& record, Zone zone = {}) {
    zone.push_back({"d.example|TXT", {record}});
    StaticResolver resolver(answers(zone));
    return judge(resolver, "192.0.2.7");
}

TEST(SPF, recordSelection) {
    const std::string none = "none: d.example publishes no SPF record",
                      nothing = "neutral: nothing in d.example's record matched";
    const struct {
        std::vector<std::string> texts;
        std::string outcome;
    } rows[] = {
        {{}, none},
        {{"v=spf10 -all", "v=spf1-all", " v=spf1 -all", "v=spf", "google=1"}, none},
        {{"V=SPF1 -ALL", "other"}, "fail: -ALL in d.example"},
        {{"v=spf1 -all", "v=spf1"}, "permerror: d.example publishes 2 SPF records"},
        {{"v=spf1"}, nothing},
        {{"v=spf1   "}, nothing},
    };
    for (const auto& row : rows) {
        StaticResolver resolver(answers({{"d.example|TXT", row.texts}}));
        EXPECT_EQ(judge(resolver, "192.0.2.7", "D.Example"), row.outcome);
    }
    StaticResolver failing({}, {"d.example"});
    EXPECT_EQ(judge(failing, "192.0.2.7"), "temperror: no resolver answered");
}

TEST(SPF, terms) {
    const std::pair<std::string, std::string> rows[] = {
        {"+all", "pass: +all in d.example"},
        {"~all -all", "softfail: ~all in d.example"},
        {"?all", "neutral: ?all in d.example"},
        {"all", "pass: all in d.example"},
        {"ip4:192.0.2.0/24 -all", "pass: ip4:192.0.2.0/24 in d.example"},
        {"-IP4:192.0.2.7", "fail: -IP4:192.0.2.7 in d.example"},
        {"ip4:192.0.2.0/29 ip4:10.0.0.0/0", "pass: ip4:192.0.2.0/29 in d.example"},
        {"ip4:192.0.2.6 ip6:2001:db8::/32 ip6:::/0 ~all", "softfail: ~all in d.example"},
        {"ip4:192.0.2.0/0024 -all", "pass: ip4:192.0.2.0/0024 in d.example"},
        {"exp=x.example -all", "fail: -all in d.example"},
        {"-all=x ip4=1.2.3.4 -all", "fail: -all in d.example"},
        {"redirect=gone.example -all", "fail: -all in d.example"},
        {"ptr ?ptr:x.example", "neutral: nothing in d.example's record matched"},
        {"redirect=%", "permerror: bad redirect"},
    };
    for (const auto& [record, outcome] : rows) EXPECT_EQ(judgeRecord("v=spf1 " + record), outcome) << record;
    for (const std::string term : {"-", "~foo:bar", "++all"})
        EXPECT_EQ(judgeRecord("v=spf1 " + term), "permerror: unknown mechanism " + term);
    for (const std::string& term :
         test::words(R"(ip4:192.0.2.1/33 ip4:192.0.2.1/-1 ip4:192.0.2.1/+24 ip4:192.0.2.1/
        ip4:192.0.2.1/24/24 ip4:192.0.2.1/99999999999999999999 ip6:2001:db8::/129
        -ip4:2001:db8::1 ip6:::ffff:192.0.2.7 ip4 ip4/24 a: a:/24 a:%{p} a/33 a//129
        a/24/64 a/24// a/ mx///64 include include/24 include: include:%{x} exists
        exists:. exists:%{p}.example)"))
        EXPECT_EQ(judgeRecord("v=spf1 " + term), "permerror: bad " + term);
}

TEST(SPF, hosts) {
    const Zone zone = {
        {"d.example|A", {"192.0.2.1", "no address", "2001:db8::1"}},
        {"d.example|AAAA", {"2001:db8:1:2::1"}},
        {"d.example|MX", {"20 mx2.d.example.", " ", "10 MX1.D.example."}},
        {"mx1.d.example|A", {"198.51.100.1"}},
        {"mx1.d.example|AAAA", {"2001:db8:1:3::1"}},
        {"null.example|MX", {"0 ."}},
        {"broken.example|MX", {"10 down.example"}},
    };
    const struct {
        std::string terms, address, outcome;  ///< " in d.example" where something matched
    } rows[] = {
        {"a -all", "192.0.2.1", "pass: a"},
        {"a -all", "192.0.2.2", "fail: -all"},
        {"a/24 -all", "192.0.2.2", "pass: a/24"},
        {"a:D.EXAMPLE./24 -all", "192.0.2.2", "pass: a:D.EXAMPLE./24"},
        {"a/24 -all", "2001:db8:1:2::2", "fail: -all"},
        {"a//64 -all", "2001:db8:1:2::2", "pass: a//64"},
        {"a/0//64 -all", "2001:db8:1:3::2", "fail: -all"},
        {"a//64 -all", "192.0.2.2", "fail: -all"},
        {"mx -all", "198.51.100.1", "pass: mx"},
        {"-mx/24", "198.51.100.2", "fail: -mx/24"},
        {"mx//64 -all", "2001:db8:1:3::2", "pass: mx//64"},
        {"mx//64 -all", "198.51.100.2", "fail: -all"},
        {"mx:null.example ?all", "198.51.100.1", "neutral: ?all"},
        {"mx:broken.example -all", "198.51.100.1", "temperror: no resolver answered"},
        {"exists:d.example -all", "2001:db8::9", "pass: exists:d.example"},
        {"-exists:mx2.d.example ~all", "192.0.2.1", "softfail: ~all"},
    };
    for (const auto& row : rows) {
        auto table = answers(zone);
        table.emplace("d.example|TXT", DNSAnswer::records({"v=spf1 " + row.terms}));
        StaticResolver resolver(table, {"down.example"});
        const std::string where = row.outcome.starts_with("temperror") ? "" : " in d.example";
        EXPECT_EQ(judge(resolver, row.address), row.outcome + where) << row.terms << row.address;
    }
}

TEST(SPF, includeAndRedirect) {
    const Zone zone = {
        {"pass.example|TXT", {"v=spf1 ip4:192.0.2.7 -all"}},
        {"fail.example|TXT", {"v=spf1 -all"}},
        {"soft.example|TXT", {"v=spf1 ~all"}},
        {"neutral.example|TXT", {"v=spf1"}},
        {"two.example|TXT", {"v=spf1", "v=spf1"}},
        {"bad.example|TXT", {"v=spf1 a:"}},
        {"deep.example|TXT", {"v=spf1 include:pass.example"}},
        {"chain.example|TXT", {"v=spf1 redirect=pass.example"}},
    };
    const std::pair<std::string, std::string> rows[] = {
        {"?include:pass.example -all", "neutral: ?include:pass.example in d.example"},
        {"?include:fail.example ~all", "softfail: ~all in d.example"},
        {"include:soft.example include:neutral.example -all", "fail: -all in d.example"},
        {"include:gone.example", "permerror: gone.example publishes no SPF record"},
        {"include:two.example", "permerror: two.example publishes 2 SPF records"},
        {"include:bad.example", "permerror: bad a:"},
        {"include:error.example all", "temperror: the zone is out"},
        {"-include:Deep.Example", "fail: -include:Deep.Example in d.example"},
        {"include:chain.example", "pass: include:chain.example in d.example"},
        {"redirect=pass.example", "pass: ip4:192.0.2.7 in pass.example"},
        {"Redirect=pass.example redirect=soft.example", "softfail: ~all in soft.example"},
        {"redirect=two.example", "permerror: two.example publishes 2 SPF records"},
        {"redirect=Gone.%{d}.", "permerror: redirect=gone.d.example has no SPF record"},
        {"redirect=error.example", "temperror: the zone is out"},
    };
    for (const auto& [terms, outcome] : rows) {
        auto table = answers(zone);
        table.emplace("d.example|TXT", DNSAnswer::records({"v=spf1 " + terms}));
        StaticResolver resolver(table, {}, {{"error.example|TXT", "the zone is out"}});
        EXPECT_EQ(judge(resolver, "192.0.2.7"), outcome) << terms;
    }
}

std::string repeated(const std::string& term, int times) {
    std::string terms;
    for (int i = 0; i < times; ++i) terms += " " + term;
    return terms;
}

TEST(SPF, limits) {
    const std::string tooMany = "permerror: more than 10 DNS lookups";
    const std::string tooEmpty = "permerror: more than 2 empty lookups";
    const Zone zone = {{"fail.example|TXT", {"v=spf1 -all"}},
                       {"far.example|A", {"203.0.113.1"}},
                       {"self.example|TXT", {"v=spf1 include:self.example"}},
                       {"void.example|TXT", {"v=spf1 a:gone.example"}},
                       {"ten.example|MX", std::vector<std::string>(10, "1 far.example")},
                       {"eleven.example|MX", std::vector<std::string>(11, "1 far.example")}};
    const std::pair<std::string, std::string> rows[] = {
        {repeated("include:fail.example", 10) + " -all", "fail: -all in d.example"},
        {repeated("include:fail.example", 11) + " -all", tooMany},
        {repeated("a:far.example", 5) + repeated("mx:ten.example", 5) + " -all", "fail: -all in d.example"},
        {repeated("exists:%{d", 11), "permerror: bad exists:%{d"},  // a bad term is told before it is counted
        {repeated("a:far.example", 10) + " exists:far.example", tooMany},
        {repeated("a:far.example", 10) + " redirect=fail.example", tooMany},
        {repeated("ptr", 20) + " -all", "fail: -all in d.example"},
        {repeated("ptr", 10) + " a -all", tooMany},
        {"include:self.example", tooMany},
        {repeated("a:gone.example", 2) + " -all", "fail: -all in d.example"},
        {repeated("a:gone.example", 3) + " -all", tooEmpty},
        {"a:gone.example mx:gone.example exists:gone.example -all", tooEmpty},
        {repeated("include:void.example", 3) + " -all", tooEmpty},
        {"mx:eleven.example", "permerror: more than 10 MX hosts"},
    };
    for (const auto& [terms, outcome] : rows)
        EXPECT_EQ(judgeRecord("v=spf1 " + terms, zone), outcome) << terms;
}

/// Publishes one record and remembers the last other question.
struct AskedName : DNSResolver {
    std::string record, name;
    DNSAnswer lookup(std::string_view asked, DNSRecordType type, const Patience& = {}) override {
        if (type == DNSRecordType::txt) return DNSAnswer::records({record});
        name = asked;
        return DNSAnswer::nxdomain();
    }
};

/// What a domain with macros stands for; "(bad)" when it stands for nothing.
std::string expanded(const std::string& macros, std::string_view address, std::string_view sender,
                     std::optional<std::string_view> helo = {}) {
    AskedName resolver;
    resolver.record = "v=spf1 exists:" + macros;
    resolver.name = "(bad)";
    SPFEvaluator{resolver}.evaluate(*IPAddress::parse(address), "email.example.com", sender, helo);
    return resolver.name;
}

TEST(SPF, macrosOfTheStandard) {  // RFC 7208, section 7.4
    const std::pair<std::string, std::string> rows[] = {
        {"%{s}", "strong-bad@email.example.com"},
        {"%{o}", "email.example.com"},
        {"%{d}", "email.example.com"},
        {"%{d4}", "email.example.com"},
        {"%{d3}", "email.example.com"},
        {"%{d2}", "example.com"},
        {"%{d1}", "com"},
        {"%{dr}", "com.example.email"},
        {"%{d2r}", "example.email"},
        {"%{l}", "strong-bad"},
        {"%{l-}", "strong.bad"},
        {"%{lr}", "strong-bad"},
        {"%{lr-}", "bad.strong"},
        {"%{l1r-}", "strong"},
        {"%{ir}.%{v}._spf.%{d2}", "3.2.0.192.in-addr._spf.example.com"},
        {"%{lr-}.lp._spf.%{d2}", "bad.strong.lp._spf.example.com"},
        {"%{lr-}.lp.%{ir}.%{v}._spf.%{d2}", "bad.strong.lp.3.2.0.192.in-addr._spf.example.com"},
        {"%{ir}.%{v}.%{l1r-}.lp._spf.%{d2}", "3.2.0.192.in-addr.strong.lp._spf.example.com"},
        {"%{d2}.trusted-domains.example.net", "example.com.trusted-domains.example.net"},
    };
    for (const auto& [macros, name] : rows) {
        EXPECT_EQ(expanded(macros, "192.0.2.3", "strong-bad@email.example.com"), name) << macros;
    }
    EXPECT_EQ(expanded("%{ir}.%{v}._spf.%{d2}", "2001:db8::cb01", "strong-bad@email.example.com"),
              "1.0.b.c.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2.ip6._spf.example.com");
}

TEST(SPF, macros) {
    const struct {
        std::string macros, sender, name;
    } rows[] = {
        {"a%%b%_c%-d", "", "a%b c%20d"},
        {"%{L}.%{O}.%{D}", "Joe@Mail.Example", "joe.mail.example.email.example.com"},
        {"%{l}.%{o}", "", "postmaster.email.example.com"},
        {"%{l}.%{o}", "@only.example", "only.example.only.example"},
        {"%{l}.%{o}", "a@b@c.example", "a.c.example"},
        {"%{h}", "", "helo.example"},
        {"%{d0}", "", "email.example.com"},
        {"%{d00000000000000000000001}", "", "com"},
        {"%{d99999999999999999999999}", "", "email.example.com"},
        {"%{dR}", "", "com.example.email"},
        {"%{l+-}.x", "a+b-c.d@e.example", "a.b.c.d.x"},
        {"%{oé}.x", "x@aéb\u00E8", "a.b\u00E8.x"},  // by characters, not by their bytes
        {"..x.%{l}..", "y.@e.example", "x.y"},
        {".%{l1}", "a.@e.example", "(bad)"},
        {std::string(4094, 'x') + "%%", "", std::string(4094, 'x') + "%"},
        {std::string(4095, 'x') + "%%", "", "(bad)"},
        {"%{o}%{o}x", "a@" + std::string(2048, 'b'), "(bad)"},
        {"%{l1}x", std::string(4097, 'a') + ".b@e.example", "(bad)"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(expanded(row.macros, "192.0.2.3", row.sender, "Helo.Example"), row.name) << row.macros;
    }
    for (const char* bad : {"%{p}", "%{c}", "%{}", "%{d", "a%", "%a", ""})
        EXPECT_EQ(expanded(bad, "192.0.2.3", ""), "(bad)") << bad;
    EXPECT_EQ(expanded("%{h}", "192.0.2.3", ""), "unknown");
}

TEST(SPF, examplesOfTheStandard) {  // RFC 7208, appendix A
    const Zone zone = {{"example.com|MX", {"10 mail-a.example.com.", "20 mail-b.example.com."}},
                       {"example.com|A", {"192.0.2.10", "192.0.2.11"}},
                       {"mail-a.example.com|A", {"192.0.2.129"}},
                       {"mail-b.example.com|A", {"192.0.2.130"}},
                       {"example.org|MX", {"10 mail-c.example.org."}},
                       {"mail-c.example.org|A", {"192.0.2.140"}},
                       {"ip4._spf.example.com|TXT", {"v=spf1 -ip4:192.0.2.0/24 +all"}},
                       {"mary.mobile-users._spf.example.com|A", {"127.0.0.2"}}};
    const struct {
        std::string terms;
        std::vector<std::string_view> passing, failing;
    } rows[] = {
        {"a:example.org -all", {}, {"192.0.2.10", "192.0.2.140"}},
        {"mx mx:example.org -all", {"192.0.2.129", "192.0.2.130", "192.0.2.140"}, {"192.0.2.10"}},
        {"mx/30 mx:example.org/30 -all", {"192.0.2.131", "192.0.2.143"}, {"192.0.2.132", "192.0.2.139"}},
        {"ip4:192.0.2.128/28 -all", {"192.0.2.129", "192.0.2.140"}, {"192.0.2.65"}},
        {"mx ?a -all", {"192.0.2.129"}, {"192.0.2.12"}},
        {"exists:%{l1r+}.mobile-users._spf.%{d} -all", {"192.0.2.3"}, {}},
        {"-include:ip4._spf.%{d} +all", {"192.0.2.1"}, {"203.0.113.1"}},
    };
    for (const auto& row : rows) {
        auto table = answers(zone);
        table.emplace("example.com|TXT", DNSAnswer::records({"v=spf1 " + row.terms}));
        StaticResolver resolver(table);
        const auto result = [&](std::string_view address) {
            return judge(resolver, address, "example.com", "mary@example.com").substr(0, 4);
        };
        for (const auto address : row.passing) EXPECT_EQ(result(address), "pass") << row.terms << address;
        for (const auto address : row.failing) EXPECT_EQ(result(address), "fail") << row.terms << address;
    }
}

}  // namespace
}  // namespace quillmark
