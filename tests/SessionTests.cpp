#include "Quillmark/Session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace quillmark {
namespace {

UUID idOf(char letter) { return {{static_cast<std::uint8_t>(letter)}}; }
char letterOf(const UUID& id) { return static_cast<char>(id.bytes[0]); }

/// "+ab" takes two messages in, "-ab" lets them go, "?ab" as well, for they are refused, "=aA" gives a row a
/// new identity, "xa" takes one away, "!a" selects, and "," joins changes that come together.
void perform(Session& session, const std::string& step) {
    Session::Changes changes;
    Session::Refusals refusals;
    std::stringstream parts(step);
    for (std::string part; std::getline(parts, part, ',');) {
        const std::string letters = part.substr(1);
        if (part[0] == '!')
            return session.select(letters.empty() ? std::nullopt : std::optional(idOf(letters[0])));
        if (part[0] == 'x') return void(session.remove({idOf(letters[0])}));
        if (part[0] == '+') {
            std::vector<SessionRow> rows;
            for (const char each : letters) rows.push_back({.id = idOf(each)});
            return session.takeIn(std::move(rows));
        }
        if (part[0] == '=') {
            SessionRow row = *session.row(idOf(letters[0]));
            row.id = idOf(letters[1]);
            changes.emplace(idOf(letters[0]), row);
            continue;
        }
        for (const char each : letters) {
            changes.emplace(idOf(each), std::nullopt);
            if (part[0] == '?') refusals.emplace(idOf(each), std::string("no ") + each);
        }
    }
    session.apply(changes, refusals);
}

TEST(Session, whatIsListedAndWhatIsSelected) {
    const struct {
        const char *steps, *rows, *shown;  // the selection, or the refusal
    } rows[] = {
        {"+abc", "abc", "a"},
        {"+abc +de", "deabc", "d"},
        {"+abc -a", "bc", "b"},  // of several files the next one
        {"+abc ?ab", "c", "c"},
        {"+abc -a,=bB", "Bc", "B"},
        {"+abc ?abc", "", "no a"},
        {"+ab !b +c -c", "ab", "b"},     // what was looked at before
        {"+ab !b +c ?c", "ab", "no c"},  // but not beneath a refusal
        {"+ab !b +c ?c !a", "ab", "a"},
        {"+ab !b +c -b -c", "a", ""},
        {"+ab !b +c =bB -c", "aB", "B"},
        {"+ab !b -a", "b", "b"},
        {"+ab =aA", "Ab", "A"},
        {"+ab xa", "b", "b"},
        {"+ab !", "ab", ""},
        {"+ab !z", "ab", ""},   // which is nowhere
        {"+ab !S", "ab", "S"},  // which is saved
        {"+ab !S -a", "b", "S"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.steps);
        Session session([](const UUID& id) { return letterOf(id) == 'S'; });
        std::stringstream steps(row.steps);
        for (std::string step; steps >> step;) perform(session, step);
        std::string listed;
        for (const SessionRow& each : session.rows()) {
            listed += letterOf(each.id);
            EXPECT_EQ(session.row(each.id), &each);
        }
        EXPECT_EQ(listed, row.rows);
        const std::string selected(session.selection() ? 1 : 0,
                                   letterOf(session.selection().value_or(UUID{})));
        EXPECT_EQ(selected + session.refusal().value_or(""), row.shown);
        EXPECT_EQ(session.isRemoved(idOf('a')), std::string(row.steps).ends_with("xa"));
    }
}

TEST(Session, removedRowsComeBackToTheirPlaces) {
    Session session([](const UUID&) { return false; });
    const auto listed = [&] {
        std::string letters;
        for (const SessionRow& each : session.rows()) letters += letterOf(each.id);
        return letters;
    };
    perform(session, "+abcde");
    const RemovedRows middle = session.remove({idOf('b'), idOf('c')}),
                      ends = session.remove({idOf('e'), idOf('a'), idOf('z')});
    perform(session, "+f");
    EXPECT_EQ(listed(), "fd");
    session.restore(ends);
    session.restore(middle);
    EXPECT_EQ(listed(), "fabcde");
    EXPECT_FALSE(session.isRemoved(idOf('b')));
    const RemovedRows first = session.remove({idOf('a')});
    perform(session, "-b");
    session.restore(first);
    EXPECT_EQ(listed(), "fcdea") << "whose neighbour has gone";
}

TEST(Session, theMessagesOfAMailboxStandBelowItInTheirOrder) {
    Session session([](const UUID&) { return false; });
    perform(session, "+yz");
    perform(session, "+amb");
    const auto insert = [&](const std::vector<std::vector<std::size_t>>& positions) {
        std::vector<SessionRow> rows;
        for (const auto& each : positions) rows.push_back({.id = UUID::random(), .position = each});
        session.insert(idOf('m'), std::move(rows));
    };
    insert({{12}, {3, 2}, {1}});
    insert({{3, 1, 1}, {2}, {3}, {3, 1}});
    std::vector<std::vector<std::size_t>> positions;
    for (const SessionRow& each : session.rows()) {
        positions.push_back(each.position);
        EXPECT_EQ(each.mailbox.has_value(), !each.position.empty());
    }
    EXPECT_EQ(positions, (std::vector<std::vector<std::size_t>>{
                             {}, {}, {1}, {2}, {3}, {3, 1}, {3, 1, 1}, {3, 2}, {12}, {}, {}, {}}));
    EXPECT_EQ(session.row(idOf('m'))->found, 7u);
    perform(session, "!m");
    perform(session, "-m");
    EXPECT_EQ(session.selection(), session.rows()[1].id) << "its first message";
}

}  // namespace
}  // namespace quillmark
