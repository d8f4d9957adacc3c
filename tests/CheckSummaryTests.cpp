#include "CommandLine/CheckSummary.h"

#include "CommandLine/Progress.h"
#include "WordingSupport.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(CheckSummary, tables) {
    CheckSummary summary;
    const Verdict verified{VerdictKind::verified, Tone::good, "a.example", "a.example", {}},
        broken{VerdictKind::signatureBroken, Tone::bad, "b.example", "b.example", {}},
        vouched{VerdictKind::signatureBroken, Tone::caution, "b.example", "b.example", {}},
        none{VerdictKind::cannotProve, Tone::bad, "c.example", "c.example", {}};
    for (int i = 0; i < 1200; ++i) summary.add(verified, false);
    EXPECT_FALSE(summary.isAnyAsBadAs(Tone::caution));
    CheckSummary phish;
    phish.add(verified, true);
    EXPECT_TRUE(phish.isAnyAsBadAs(Tone::caution));
    EXPECT_FALSE(phish.isAnyAsBadAs(Tone::unknown));
    summary.add(vouched, false);
    EXPECT_TRUE(summary.isAnyAsBadAs(Tone::caution));
    EXPECT_FALSE(summary.isAnyAsBadAs(Tone::unknown));
    summary.add(broken, false);
    summary.add(none, true);
    summary.addProblem();
    summary.addPassedOver(2);
    EXPECT_TRUE(summary.isAnyAsBadAs(Tone::bad));
    EXPECT_EQ(summary.text(english),
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
    for (int i = 0; i < 60; ++i)
        summary.add({VerdictKind::keyGone, Tone::unknown, "d" + std::to_string(i) + ".example", "", {}},
                    false);
    EXPECT_NE(summary.text(german).find("        0        0       12        0  (andere Domains)\n"),
              std::string::npos)
        << summary.text(german);
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
