#include "Wording/Expected.h"

#include "WordingSupport.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using Kind = ExpectedAnswer::Kind;

ProofReport reportOf(VerdictKind kind, Tone tone, const std::string& domain, const std::string& from) {
    ProofReport report;
    report.verdict = {kind, tone, domain, from, {}};
    report.summary.from = {{"Service", "service@" + from}};
    return report;
}

ProofReport verifiedReport(const std::string& domain) {
    return reportOf(VerdictKind::verified, Tone::good, domain, domain);
}

/// The marked letters between brackets.
std::string marked(const ExpectedAnswer::Letters& letters) {
    std::string text;
    for (const auto& each : letters) text += each.areOdd ? "[" + each.text + "]" : each.text;
    return text;
}

TEST(Expected, isReadAsPeopleTypeIt) {
    const ProofReport report = verifiedReport("mail.bank.example");
    const struct {
        std::string typed;
        Kind kind;
    } rows[] = {
        {"bank.example", Kind::yes},
        {" BANK.Example. ", Kind::yes},
        {"https://www.bank.example:443/login?a=@evil.test", Kind::yes},
        {"Service <SERVICE@mail.bank.example>", Kind::yes},
        {"mailto:service@mail.bank.example", Kind::yes},
        {"@bank.example", Kind::yes},
        {"boss@bank.example", Kind::no},
        {"bank-example.test", Kind::no},
        {"bank.example.evil.test", Kind::no},
        {"", Kind::unread},
        {"bank", Kind::unread},
        {"my bank.example", Kind::unread},
        {"bank..example", Kind::unread},
        {"co.uk", Kind::unread},
        {"b\u202Eank.example", Kind::unread},
        {std::string(100'000, 'x') + ".example", Kind::unread},
    };
    for (const auto& row : rows)
        EXPECT_EQ(expectedAnswer(report, row.typed, english).kind, row.kind) << row.typed.substr(0, 100);
    ProofReport other = report;
    for (const auto kind : {VerdictKind::verifiedHeadersOnly, VerdictKind::signedByOther,
                            VerdictKind::couldNotCheck, VerdictKind::cannotProve}) {
        other.verdict.kind = kind;
        other.verdict.domain = kind == VerdictKind::signedByOther ? "list.test" : "mail.bank.example";
        EXPECT_EQ(expectedAnswer(other, "boss@bank.example", english).kind, Kind::no)
            << static_cast<int>(kind);
        EXPECT_EQ(expectedAnswer(other, "service@mail.bank.example", english).kind, Kind::unproven);
    }
}

TEST(Expected, yesOnlyWhereItIsProven) {
    const struct {
        VerdictKind kind;
        const char *domain, *from;
        Kind answer;
        const char* text;
    } rows[] = {
        {VerdictKind::verified, "bank.example", "bank.example", Kind::yes,
         "Yes: this message is signed by bank.example, as you expected."},
        {VerdictKind::verified, "bank.example.evil.test", "evil.test", Kind::no,
         "No: you expected bank.example. This message is signed by bank.example.evil.test (a part of "
         "evil.test)."},
        {VerdictKind::verifiedHeadersOnly, "bank.example", "bank.example", Kind::unproven,
         "Only in part: bank.example, as you expected, signed the header lines. The text wasn’t there to "
         "check."},
        {VerdictKind::signedByOther, "list.test", "bank.example", Kind::unproven,
         "Not proven: the message says that it is from bank.example, as you expected, but it is signed by "
         "list.test."},
        {VerdictKind::signedByOther, "bank.example", "evil.test", Kind::unproven,
         "Only in part: bank.example, which you expected, signed this message, but From names evil.test."},
        {VerdictKind::signedByOther, "list.test", "evil.test", Kind::no,
         "No: you expected bank.example. This message is signed by list.test and says that it is from "
         "evil.test."},
        {VerdictKind::keyGone, "bank.example", "bank.example", Kind::unproven,
         "Not proven: the message says that it is from bank.example, as you expected, and nothing proves "
         "that."},
        {VerdictKind::couldNotCheck, "bank.example", "bank.example", Kind::unproven,
         "Not known yet: the message says that it is from bank.example, as you expected, and that couldn’t "
         "be checked."},
        {VerdictKind::cannotProve, "", "evil.test", Kind::no,
         "No: you expected bank.example. This message says that it is from evil.test, and not even that is "
         "proven."},
        {VerdictKind::cannotProve, "", "", Kind::unproven,
         "Not proven: nothing shows that this message is from bank.example."},
    };
    for (const auto& row : rows) {
        const auto answer =
            expectedAnswer(reportOf(row.kind, Tone::bad, row.domain, row.from), "bank.example", english);
        EXPECT_EQ(answer.text, row.text);
        EXPECT_EQ(answer.kind, row.answer) << row.text;
        EXPECT_EQ(answer.tone == Tone::good, row.answer == Kind::yes) << row.text;
    }
    ProofReport warned = verifiedReport("bank.example");
    warned.flags = {{LookAlikeFlag::ReplyToDiffers{"a@evil.test", "service@bank.example"}}};
    const auto answer = expectedAnswer(warned, "bank.example", english);
    EXPECT_EQ(answer.kind, Kind::yes);
    EXPECT_EQ(answer.tone, Tone::caution);
    EXPECT_EQ(answer.whatToDo, "");
    ProofReport undone = reportOf(VerdictKind::signatureBroken, Tone::bad, "bank.example", "bank.example");
    undone.notes = {{ReportNote::Undone{.domain = "bank.example", .fromIsOfDomain = true}}};
    EXPECT_TRUE(expectedAnswer(undone, "bank.example", english).text.starts_with("Not as it stands: bank"));
    EXPECT_EQ(expectedAnswer(undone, "boss@bank.example", english).kind, Kind::no);
}

TEST(Expected, differencesAreMarkedAndLookAlikesNamed) {
    const struct {
        const char *domain, *expected, *markedExpected, *markedFound, *says;
    } rows[] = {
        {"bank-example.test", "bank.example", "bank[.]example", "bank[-]example[.test]", nullptr},
        {"shop.test", "bank.example", "", "", nullptr},
        {"okafor.example", "sparbank.example", "", "", nullptr},
        {"paypa1.test", "paypal.test", "paypa[l].test", "paypa[1].test", "has “l”, this one has “1”."},
        {"rnail.test", "mail.test", "[m]ail.test", "[rn]ail.test", "has “m”, this one has “rn”."},
        {"g0ogle.test", "google.test", "g[o]ogle.test", "g[0]ogle.test", "has “o”, this one has “0”."},
        {"xn--sprbank-3fg.example", "sparbank.example", "sp[a]rbank.example", "sp[\u0430]rbank.example",
         "has “a”, this one has “\u0430”. That letter is Cyrillic."},
        {"sparbank.example", "sp\u0430rbank.example", "sp[\u0430]rbank.example", "sp[a]rbank.example",
         "has “\u0430”, this one has “a”."},
        {"munchen.example", "m\u00FCnchen.example", "m[\u00FC]nchen.example", "m[u]nchen.example", nullptr},
    };
    for (const auto& row : rows) {
        const auto answer = expectedAnswer(verifiedReport(row.domain), row.expected, english);
        EXPECT_EQ(answer.kind, Kind::no) << row.domain;
        EXPECT_EQ(marked(answer.expected), row.markedExpected);
        EXPECT_EQ(marked(answer.found), row.markedFound);
        EXPECT_EQ(answer.text.find("look alike") != std::string::npos, row.says != nullptr) << answer.text;
        EXPECT_TRUE(answer.text.ends_with(row.says ? row.says : ".")) << answer.text;
    }
    const auto long_ = expectedAnswer(verifiedReport(std::string(100'000, 'x') + ".test"), "x.test", english);
    EXPECT_LT(long_.text.size(), 3'000U);
    EXPECT_EQ(expectedAnswer(verifiedReport("xn--mnchen-3ya.example"), "M\u00DCNCHEN.example", english).kind,
              Kind::yes);
}

}  // namespace
}  // namespace quillmark
