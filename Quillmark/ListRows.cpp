#include "Quillmark/ListRows.h"

#include <QCollator>
#include <algorithm>
#include <ranges>
#include <utility>

#include "QuillmarkKit/Support/Date.h"
#include "Wording/Banner.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr std::size_t longestSearched = 1'000;  // bytes of one field
constexpr std::size_t longestSortedBy = 200;    // the same
constexpr std::size_t mostSenders = 50;         // of one message that are searched

QString beginning(std::string_view text, std::size_t limit) {
    return QString::fromUtf8(QByteArrayView(text.substr(0, limit)));
}

bool holds(std::string_view text, const QString& part) {
    return beginning(text, longestSearched).contains(part, Qt::CaseInsensitive);
}

bool passes(const ListEntry& entry, const QString& filter, const Reader& reader) {
    if (filter.isEmpty()) return true;
    if (!entry.isReport()) return holds(entry.name, filter);
    const ProofReport& report = *entry.report;
    if (holds(report.summary.subject, filter) || holds(report.verdict.domain, filter)) return true;
    if (report.fileName && holds(placeName(*report.fileName, reader), filter)) return true;
    return std::ranges::any_of(
        std::views::take(report.summary.from, mostSenders), [&](const MailAddress& each) {
            return holds(each.address, filter) || (each.displayName && holds(*each.displayName, filter));
        });
}

/// The domain of a signature that holds; empty without one.
std::string_view signingDomain(const Verdict& verdict) {
    using enum VerdictKind;
    const bool holds =
        verdict.kind == verified || verdict.kind == verifiedHeadersOnly || verdict.kind == signedByOther;
    return holds ? std::string_view(verdict.domain) : std::string_view();
}

/// What the others are sorted by: the verdicts of which least is proven first.
std::int64_t sortNumber(const ProofReport& report, ListColumn column) {
    if (column == checkedColumn) return report.checkedAt.time_since_epoch().count();
    if (column == dateColumn) return report.summary.date.value_or(Date::min()).time_since_epoch().count();
    static constexpr std::array tones{Tone::bad, Tone::unknown, Tone::caution, Tone::good};
    const auto rank = std::ranges::find(tones, report.verdict.tone) - tones.begin();
    return 100 * rank - static_cast<std::int64_t>(report.verdict.kind);
}

/// Sorts by what `key` gives of a row; equal ones keep their order.
template <typename Key>
void sortBy(std::span<ListEntry> rows, ListOrder order, const Key& key) {
    std::vector<std::pair<decltype(key(rows.front())), std::size_t>> keys;
    keys.reserve(rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) keys.emplace_back(key(rows[i]), i);
    std::ranges::stable_sort(keys, [&](const auto& a, const auto& b) {
        return order == ListOrder::ascending ? a.first < b.first : b.first < a.first;
    });
    std::vector<ListEntry> sorted;
    sorted.reserve(rows.size());
    for (const auto& each : keys) sorted.push_back(std::move(rows[each.second]));
    std::ranges::move(sorted, rows.begin());
}

void sortRows(std::vector<ListEntry>& rows, const ListChoice& choice, const Reader& reader) {
    const std::span<ListEntry> reports =
        std::ranges::stable_partition(rows, [](const ListEntry& each) { return !each.isReport(); });
    if (choice.column == verdictColumn || choice.column == dateColumn || choice.column == checkedColumn) {
        return sortBy(reports, choice.order,
                      [&](const ListEntry& each) { return sortNumber(*each.report, choice.column); });
    }
    QCollator collator{QLocale(QString::fromLatin1(factsOf(reader.language).tag))};
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    collator.setNumericMode(true);  // "message 2" before "message 12"
    sortBy(reports, choice.order, [&](const ListEntry& each) {
        const std::string text = listText(*each.report, choice.column, reader);
        const bool isLast = text.empty() == (choice.order == ListOrder::ascending);
        return std::pair(isLast, collator.sortKey(beginning(text, longestSortedBy)));
    });
}

}  // namespace

std::vector<ListEntry> listEntries(const Session& session,
                                   std::span<const std::shared_ptr<const ProofReport>> history) {
    using Kind = ListEntry::Kind;
    std::vector<ListEntry> entries;
    entries.reserve(session.rows().size() + history.size());
    for (const SessionRow& row : session.rows()) {
        const std::string name = row.name.value_or("");
        if (row.stopped) {
            entries.push_back({Kind::stopped, row.id, name, row.stopped->checked, {}, row.stopped->all});
        } else if (row.isDone) {
            entries.push_back({Kind::mailbox, row.id, name, row.found, {}});
        } else if (row.isRunning || !row.report) {
            entries.push_back({Kind::running, row.id, name, row.found, {}});
        } else {
            entries.push_back({Kind::session, row.id, {}, 0, row.report});
        }
    }
    const auto first = static_cast<std::ptrdiff_t>(entries.size());
    for (auto each = history.rbegin(); each != history.rend(); ++each) {
        const SessionRow* row = session.row((*each)->id);
        if (session.isRemoved((*each)->id) || (row && row->report)) continue;
        entries.push_back({Kind::history, (*each)->id, {}, 0, *each});
    }
    // One that was put back stands at the end of the history, whenever it was checked.
    const auto isLater = [](const ListEntry& a, const ListEntry& b) {
        return a.report->checkedAt > b.report->checkedAt;
    };
    if (!std::is_sorted(entries.begin() + first, entries.end(), isLater))
        std::stable_sort(entries.begin() + first, entries.end(), isLater);
    return entries;
}

ListRows listRows(std::span<const ListEntry> entries, const ListChoice& choice, const Reader& reader) {
    ListRows listed;
    listed.rows.reserve(entries.size() + 2);
    const bool isAsGiven = choice.column == checkedColumn && choice.order == ListOrder::descending;
    const bool hasHeadings = choice.hasHeadings && isAsGiven;
    bool inHistory = !hasHeadings, inSession = !hasHeadings;
    for (const ListEntry& each : entries) {
        if (!passes(each, choice.filter, reader)) continue;
        if (each.isReport()) {
            const Tone tone = each.report->verdict.tone;
            const bool isCaution = tone == Tone::caution || hasCautions(*each.report);
            ++listed.tones[static_cast<std::size_t>(tone)];
            if (isCaution && tone != Tone::caution) ++listed.tones[static_cast<std::size_t>(Tone::caution)];
            const bool isWanted = choice.tones.empty() || choice.tones.contains(tone) ||
                                  (isCaution && choice.tones.contains(Tone::caution));
            if (!isWanted) continue;
        }
        const bool isSaved = each.kind == ListEntry::Kind::history;
        if (isSaved && !std::exchange(inHistory, true))
            listed.rows.push_back({ListEntry::Kind::historyHeading});
        if (!isSaved && !std::exchange(inSession, true))
            listed.rows.push_back({ListEntry::Kind::sessionHeading});
        listed.rows.push_back(each);
    }
    if (!isAsGiven) sortRows(listed.rows, choice, reader);
    return listed;
}

std::string listText(const ProofReport& report, ListColumn column, const Reader& reader) {
    switch (column) {
        case fromColumn:
            return report.summary.from.empty() ? std::string() : displayForm(report.summary.from.front());
        case signedByColumn:
            return std::string(signingDomain(report.verdict));
        case fileColumn:
            return report.fileName ? placeName(*report.fileName, reader) : std::string();
        default:
            return report.summary.subject;
    }
}

std::optional<std::size_t> rowOf(std::span<const ListEntry> rows, const UUID& id) {
    const auto found =
        std::ranges::find_if(rows, [&](const ListEntry& each) { return !each.isHeading() && each.id == id; });
    if (found == rows.end()) return std::nullopt;
    return static_cast<std::size_t>(found - rows.begin());
}

std::optional<UUID> beside(std::span<const ListEntry> rows, const std::set<UUID>& ids) {
    const auto isOne = [&](const ListEntry& each) { return !each.isHeading() && ids.contains(each.id); };
    const auto isOther = [&](const ListEntry& each) { return !each.isHeading() && !ids.contains(each.id); };
    std::size_t end = rows.size();
    while (end > 0 && !isOne(rows[end - 1])) --end;
    if (end == 0) return std::nullopt;
    const auto below = std::ranges::find_if(rows.subspan(end), isOther);
    if (below != rows.end()) return below->id;
    for (std::size_t row = end; row > 0; --row) {
        if (isOther(rows[row - 1])) return rows[row - 1].id;
    }
    return std::nullopt;
}

}  // namespace quillmark
