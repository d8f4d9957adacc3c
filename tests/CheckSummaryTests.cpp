#include "CommandLine/CheckSummary.h"

#include "CommandLine/Progress.h"
#include "WordingSupport.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(CheckSummary, tables) {
    const Counted verified{VerdictKind::verified, Tone::good, "a.example", false, 2026},
        broken{VerdictKind::signatureBroken, Tone::bad, "b.example", false, 2019},
        vouched{VerdictKind::signatureBroken, Tone::caution, "b.example", false, 2020},
        none{VerdictKind::cannotProve, Tone::bad, "c.example", true, {}};
    Totals totals;
    for (int i = 0; i < 1200; ++i) totals.add(verified);
    EXPECT_FALSE(isAnyAsBadAs(totals, Tone::caution));
    Totals phish;
    phish.add({verified.kind, verified.tone, verified.domain, true, {}});
    EXPECT_TRUE(isAnyAsBadAs(phish, Tone::caution));
    EXPECT_FALSE(isAnyAsBadAs(phish, Tone::unknown));
    totals.add(vouched);
    EXPECT_TRUE(isAnyAsBadAs(totals, Tone::caution));
    EXPECT_FALSE(isAnyAsBadAs(totals, Tone::unknown));
    totals.add(broken);
    totals.add(none);
    totals.problems = 1;
    totals.passedOver = 2;
    EXPECT_TRUE(isAnyAsBadAs(totals, Tone::bad));
    EXPECT_EQ(summaryText(totals, english),
              "Verdicts\n"
              "--------\n"
              "    1,200  [OK] Signed by the sender’s domain, unchanged since sent\n"
              "        1  [!] Signature broken\n"
              "        1  [X] Signature broken\n"
              "        1  [X] Can’t prove who sent it\n"
              "    1,203  in all\n"
              "        1  of these with a caution beside the verdict\n"
              "        1  not checked; why is said above\n"
              "        2  passed over: no messages, but what lies beside them\n"
              "\n"
              "Signing domains\n"
              "---------------\n"
              "     [OK]      [!]      [?]      [X]\n"
              "    1,200        0        0        0  a.example\n"
              "        0        1        0        1  b.example\n"
              "        0        0        0        1  (not signed)\n");
    EXPECT_EQ(yearRows(totals, 2, german), (std::vector<TotalsRow>{{"2026", {{1200, 0, 0, 0}, 0}},
                                                                   {"2020", {{0, 1, 0, 0}, 0}},
                                                                   {"(früher)", {{0, 0, 1, 0}, 0}},
                                                                   {"(ohne Datum)", {{0, 0, 1, 0}, 1}}}));
    for (int i = 0; i < 60; ++i)
        totals.add({VerdictKind::keyGone, Tone::unknown, "d" + std::to_string(i) + ".example"});
    EXPECT_NE(summaryText(totals, german).find("        0        0       12        0  (andere Domains)\n"),
              std::string::npos)
        << summaryText(totals, german);
}

TEST(Totals, onlyYearsThatCanBe) {
    using namespace std::chrono;
    const std::pair<std::optional<Date>, std::optional<int>> rows[] = {
        {sys_days(January / 1 / 1970), 1970},
        {sys_days(December / 31 / 1969), {}},
        {january(22), 2026},
        {january(24), {}},
        {{}, {}},
    };
    for (const auto& [sent, year] : rows) {
        ProofReport report;
        report.checkedAt = january(21);
        report.summary.date = sent;
        EXPECT_EQ(countedOf(report).year, year);
    }
}

TEST(Progress, line) {
    using std::chrono::seconds;
    EXPECT_EQ(Progress::line(english, 1, seconds(2), 0), "1 message checked, 1 a second");
    EXPECT_EQ(Progress::line(english, 12'000, seconds(10), 0.5),
              "12,000 messages checked, 1,200 a second, 0:10 left");
    EXPECT_EQ(Progress::line(english, 12'000, seconds(3600), 0.25),
              "12,000 messages checked, 3 a second, 3:00:00 left");
    EXPECT_EQ(Progress::line(german, 5, seconds(0), 1),
              "5 Nachrichten geprüft, 5.000 in der Sekunde, noch 0:00");
}

}  // namespace
}  // namespace quillmark
