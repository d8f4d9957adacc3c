#include "Wording/Way.h"

#include "WordingSupport.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using Kind = Way::Station::Kind;
using Vouch = Way::Station::Vouch;

PathStep step(const char* by, std::optional<int> seconds = {}) {
    PathStep made;
    if (*by) made.hop.by = by;
    if (seconds) made.delay = std::chrono::seconds(*seconds);
    return made;
}

ARCFinding::Hop hop(int instance, const char* sealer, DKIMResult::Status status) {
    ARCFinding::Hop made{.instance = instance, .sealer = sealer, .sealValid = true};
    made.messageSignature.status = status;
    made.messageSignature.bodyChecked = true;
    return made;
}

/// A message of okafor.example that the first of two lists changed.
ProofReport changedReport() {
    ProofReport report;
    report.verdict = {VerdictKind::signatureBroken, Tone::caution, "okafor.example", "okafor.example", {}};
    report.notes = {{ReportNote::Undone{.domain = "okafor.example",
                                        .fromIsOfDomain = true,
                                        .fields = {{"subject", {"[choir] Rehearsal"}, {"Rehearsal"}}}}}};
    report.arc.status.value = ARCFinding::Status::Pass{};
    report.arc.hops = {hop(1, "village.example", DKIMResult::Status::bodyChanged),
                       hop(2, "university.example", DKIMResult::Status::pass)};
    return report;
}

TEST(Way, claimsAreToldFromWhatIsVouchedFor) {
    const std::vector<PathStep> steps{step("mail.okafor.example"),       step("in.village.example", 12),
                                      step("out.village.example", 3),    step("", 1),
                                      step("mx.university.example", -5), step("mx.provider.test", 90)};
    const Way way = wayOf(changedReport(), steps, english);
    const struct {
        Kind kind;
        Vouch vouch;
        std::optional<Tone> tone;
        const char *name, *delay;
        bool isChanged;
    } rows[] = {
        {Kind::author, Vouch::signature, Tone::caution, "okafor.example", "", false},
        {Kind::server, Vouch::nobody, {}, "mail.okafor.example", "", false},
        {Kind::forwarder, Vouch::seal, Tone::good, "village.example", "after 15 seconds", false},
        {Kind::server, Vouch::nobody, {}, "unnamed server", "after 1 second", false},
        {Kind::forwarder, Vouch::seal, Tone::caution, "university.example", "clocks disagree", true},
        {Kind::server, Vouch::nobody, {}, "mx.provider.test", "after 90 seconds", false},
        {Kind::reader, Vouch::nobody, {}, "you", "", false},
    };
    ASSERT_EQ(way.stations.size(), std::size(rows));
    for (std::size_t i = 0; const auto& row : rows) {
        const Way::Station& station = way.stations[i++];
        EXPECT_EQ(station.name, row.name);
        EXPECT_EQ(station.kind, row.kind) << row.name;
        EXPECT_EQ(station.vouch, row.vouch) << row.name;
        EXPECT_EQ(station.tone, row.tone) << row.name;
        EXPECT_EQ(station.delay, row.delay) << row.name;
        EXPECT_EQ(!station.change.empty(), row.isChanged) << row.name;
    }
    EXPECT_TRUE(way.remarks.empty());
    const std::string words = wayInWords(way, english);
    EXPECT_NE(words.find("after 15 seconds: village.example, forwarder"), std::string::npos) << words;
    EXPECT_NE(words.find("mx.provider.test, by its own word"), std::string::npos) << words;
}

TEST(Way, whereItChangedIsToldOnlyWhereItIsKnown) {
    ProofReport broken = changedReport();
    broken.arc.status.value = ARCFinding::Status::Fail{};
    const Way way = wayOf(broken, std::nullopt, english);
    ASSERT_EQ(way.stations.size(), 4U);  // nobody but the marks names a station
    for (const Way::Station& each : way.stations) EXPECT_EQ(each.change, "") << each.name;
    ASSERT_EQ(way.remarks.size(), 1U);
    EXPECT_TRUE(way.remarks[0].starts_with("Changed on the way, and nothing shows where: "))
        << way.remarks[0];
    ProofReport forged;
    forged.verdict = {VerdictKind::cannotProve, Tone::bad, "", "bank.example", {}};
    const Way claimed = wayOf(forged, std::vector<PathStep>{step("mail.bank.example")}, english);
    ASSERT_EQ(claimed.stations.size(), 3U);
    for (const Way::Station& each : claimed.stations) EXPECT_EQ(each.vouch, Vouch::nobody) << each.name;
}

TEST(Way, thousandsOfLinesAreFewStations) {
    std::vector<PathStep> steps;
    for (int i = 0; i < 50'000; ++i)
        steps.push_back(step(("s" + std::to_string(i) + ".test\u202E" + std::string(500, 'x')).c_str()));
    const Way way = wayOf(changedReport(), steps, english);
    ASSERT_EQ(way.stations.size(), 13U);
    EXPECT_EQ(way.stations[1].kind, Kind::leftOut);
    EXPECT_EQ(way.stations[1].name, "49,992 more steps");
    for (const Way::Station& each : way.stations) {
        EXPECT_LT(each.name.size(), 200U);
        EXPECT_EQ(each.name.find("\u202E"), std::string::npos);
    }
    EXPECT_EQ(std::ranges::count(way.stations, Kind::forwarder, &Way::Station::kind), 2);
}

}  // namespace
}  // namespace quillmark
