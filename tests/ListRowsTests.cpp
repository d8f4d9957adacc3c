#include "Quillmark/ListRows.h"

#include <gtest/gtest.h>

namespace quillmark {
namespace {

const Reader english{.zone = [](Date) { return ZoneOffset{}; }};

/// Two reports of this run, "a" and "b", two of the history, "c" and "d", and a check under way, "r".
std::vector<ListEntry> entries() {
    std::vector<ProofReport> reports(4);
    reports[0].summary = {.from = {{"A", "z@z.example"}}, .subject = "Beta"};
    reports[0].verdict = {VerdictKind::verified, Tone::good, "d.example", "d.example", {}};
    reports[0].fileName = "Inbox, message 12";
    reports[1].summary = {.from = {{std::nullopt, "b@a.example"}}, .date = Date(std::chrono::days(2))};
    reports[1].verdict = {VerdictKind::cannotProve, Tone::bad, "zz.example", "", {}};
    reports[1].fileName = "Inbox, message 2";
    reports[2].summary = {.subject = "alpha 99", .date = Date(std::chrono::days(1))};
    reports[2].verdict = {VerdictKind::signedByOther, Tone::caution, "a.example", "", {}};
    reports[3].summary = {.subject = "Alpha 100"};
    reports[3].verdict = {VerdictKind::keyGone, Tone::unknown, "zz.example", "", {}};
    std::vector<ListEntry> entries = {{ListEntry::Kind::running, {{'r'}}, "file.eml"}};
    for (std::size_t i = 0; i < reports.size(); ++i) {
        reports[i].id = {{static_cast<std::uint8_t>('a' + i)}};
        reports[i].checkedAt = Date(std::chrono::days(20'000 - i));
        const auto kind = i < 2 ? ListEntry::Kind::session : ListEntry::Kind::history;
        entries.push_back({kind, reports[i].id, {}, 0, std::make_shared<ProofReport>(reports[i])});
    }
    return entries;
}

/// Their letters; "S" and "H" are the headings.
std::string letters(const std::vector<ListEntry>& rows) {
    std::string letters;
    for (const ListEntry& each : rows) {
        letters += each.kind == ListEntry::Kind::sessionHeading   ? 'S'
                   : each.kind == ListEntry::Kind::historyHeading ? 'H'
                                                                  : static_cast<char>(each.id.bytes[0]);
    }
    return letters;
}

TEST(ListRows, filterTonesOrderAndHeadings) {
    constexpr auto up = ListOrder::ascending, down = ListOrder::descending;
    const struct {
        ListChoice choice;
        const char* rows;
    } rows[] = {
        {{}, "SrabHcd"},
        {{.hasHeadings = false}, "rabcd"},
        {{.filter = "ALPHA"}, "Hcd"},
        {{.filter = "d.EXAMPLE"}, "Sa"},
        {{.filter = "z@Z"}, "Sa"},
        {{.filter = "message 2"}, "Sb"},
        {{.filter = "FILE"}, "Sr"},
        {{.filter = "no such"}, ""},
        {{.tones = {Tone::bad, Tone::caution}}, "SrbHc"},
        {{.filter = "alpha", .tones = {Tone::caution}}, "Hc"},
        {{.column = verdictColumn, .order = up}, "rbdca"},  // of which least is proven comes first
        {{.column = verdictColumn, .order = down}, "racdb"},
        {{.column = fromColumn, .order = up}, "rabcd"},    // as it is shown
        {{.column = fromColumn, .order = down}, "rbacd"},  // what there is comes before what isn't there
        {{.column = signedByColumn, .order = up}, "rcabd"},
        {{.column = dateColumn, .order = down}, "rbcad"},
        {{.column = fileColumn, .order = up}, "rbacd"},  // 2 comes before 12
        {{.column = subjectColumn, .order = up}, "rcdab"},
        {{.column = checkedColumn, .order = up}, "rdcba"},
    };
    for (const auto& row : rows) EXPECT_EQ(letters(listRows(entries(), row.choice, english).rows), row.rows);
    const ListRows listed = listRows(entries(), {.filter = "alpha", .tones = {Tone::bad}}, english);
    EXPECT_EQ(listed.tones[static_cast<std::size_t>(Tone::caution)], 1u) << "those that the filter keeps";
    EXPECT_EQ(listed.tones[static_cast<std::size_t>(Tone::bad)], 0u);
}

TEST(ListRows, whatIsBeside) {
    const std::vector<ListEntry> rows = listRows(entries(), {}, english).rows;  // SrabHcd
    for (const auto& [own, other] : {std::pair('r', 'a'), {'a', 'b'}, {'b', 'c'}, {'d', 'c'}})
        EXPECT_EQ(beside(rows, {UUID{{static_cast<std::uint8_t>(own)}}}),
                  (UUID{{static_cast<std::uint8_t>(other)}}))
            << own;
    EXPECT_EQ(beside(rows, {UUID{{'x'}}}), std::nullopt);
    EXPECT_EQ(beside(listRows(entries(), {.filter = "file"}, english).rows, {UUID{{'r'}}}), std::nullopt);
}

TEST(ListRows, theEntriesOfThisRunAndOfTheHistory) {
    const auto report = [](char letter) {
        ProofReport made;
        made.id = {{static_cast<std::uint8_t>(letter)}};
        return std::make_shared<const ProofReport>(made);
    };
    Session session([](const UUID&) { return true; });
    session.takeIn({{.id = {{'a'}}, .report = report('a')},
                    {.id = {{'b'}}, .report = report('b'), .isRunning = true},  // others are attached to it
                    {.id = {{'m'}}, .name = "Inbox", .found = 9, .stopped = StoppedMailbox{7, 8}},
                    {.id = {{'x'}}, .report = report('x')}});
    session.remove({UUID{{'x'}}});
    const std::vector history = {report('o'), report('n'), report('a'), report('b'), report('x')};
    const auto entries = listEntries(session, history);
    EXPECT_EQ(letters(entries), "abmno");
    using Kind = ListEntry::Kind;
    std::vector<Kind> kinds;
    for (const ListEntry& each : entries) kinds.push_back(each.kind);
    EXPECT_EQ(kinds,
              (std::vector{Kind::session, Kind::running, Kind::stopped, Kind::history, Kind::history}));
    EXPECT_EQ(entries[2], (ListEntry{Kind::stopped, {{'m'}}, "Inbox", 7, {}, 8}));
}

}  // namespace
}  // namespace quillmark
