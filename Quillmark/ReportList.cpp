#include "Quillmark/ReportList.h"

#include <QCollator>
#include <algorithm>
#include <span>
#include <utility>

#include "Quillmark/Tones.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Text.h"
#include "Wording/NoteSentences.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr std::size_t longestSearched = 1'000;  // bytes of one field
constexpr std::size_t longestSortedBy = 200;    // the same

QString beginning(std::string_view text, std::size_t limit) {
    return QString::fromUtf8(QByteArrayView(text.substr(0, limit)));
}

bool holds(std::string_view text, const QString& part) {
    return beginning(text, longestSearched).contains(part, Qt::CaseInsensitive);
}

/// The domain of a signature that holds; empty without one.
std::string_view signedBy(const Verdict& verdict) {
    using enum VerdictKind;
    const bool holds =
        verdict.kind == verified || verdict.kind == verifiedHeadersOnly || verdict.kind == signedByOther;
    return holds ? std::string_view(verdict.domain) : std::string_view();
}

/// What a text column shows, and is sorted by.
std::string textOf(const ProofReport& report, int column, const Reader& reader) {
    switch (column) {
        case ReportList::fromColumn:
            return report.summary.from.empty() ? std::string() : displayForm(report.summary.from.front());
        case ReportList::signedByColumn:
            return std::string(signedBy(report.verdict));
        case ReportList::fileColumn:
            return report.fileName ? placeName(*report.fileName, reader) : std::string();
        default:
            return report.summary.subject;
    }
}

/// What the others are sorted by: the verdicts of which least is proven first.
std::int64_t sortNumber(const ProofReport& report, ReportList::Column column) {
    if (column == ReportList::checkedColumn) return report.checkedAt.time_since_epoch().count();
    if (column == ReportList::dateColumn)
        return report.summary.date.value_or(Date::min()).time_since_epoch().count();
    static constexpr std::array tones{Tone::bad, Tone::unknown, Tone::caution, Tone::good};
    const auto rank = std::ranges::find(tones, report.verdict.tone) - tones.begin();
    return 100 * rank - static_cast<std::int64_t>(report.verdict.kind);
}

/// Sorts by what `key` gives of a row; equal ones keep their order.
template <typename Key>
void sortBy(std::span<ListEntry> rows, Qt::SortOrder order, const Key& key) {
    std::vector<std::pair<decltype(key(rows.front())), std::size_t>> keys;
    keys.reserve(rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) keys.emplace_back(key(rows[i]), i);
    std::ranges::stable_sort(keys, [&](const auto& a, const auto& b) {
        return order == Qt::AscendingOrder ? a.first < b.first : b.first < a.first;
    });
    std::vector<ListEntry> sorted;
    sorted.reserve(rows.size());
    for (const auto& each : keys) sorted.push_back(std::move(rows[each.second]));
    std::ranges::move(sorted, rows.begin());
}

// A tooltip guesses whether its text is markup: this one is, and what it shows is escaped.
QString escaped(const QString& text) {
    return QStringLiteral("<span>") + text.toHtmlEscaped() + QStringLiteral("</span>");
}

}  // namespace

QString stoppedAfter(std::size_t checked, std::optional<std::size_t> all, const Words& words) {
    const auto count = static_cast<std::int64_t>(checked);
    if (!all) return words.translateCount("Stopped after %n message", "Stopped after %n messages", count);
    const auto number = [&](std::size_t of) {
        return QString::fromStdString(words.reader.number(static_cast<std::int64_t>(of)));
    };
    return words("Stopped after %1 of %2", number(checked), number(*all));
}

ReportList::ReportList(std::function<Date()> now, const Words& words, QObject* parent)
    : QAbstractTableModel(parent), m_now(std::move(now)), m_words(words) {}

void ReportList::setEntries(std::vector<ListEntry> entries) {
    m_all = std::move(entries);
    m_cautions.clear();
    refresh();
    emit entriesChanged();
}

void ReportList::setFilter(const QString& text) {
    m_filter = text.trimmed();
    refresh();
}

void ReportList::setTones(std::set<Tone> tones) {
    m_tones = std::move(tones);
    refresh();
}

void ReportList::setHeadings(bool areShown) {
    m_hasHeadings = areShown;
    refresh();
}

void ReportList::sort(int column, Qt::SortOrder order) {
    if (column < 0 || column >= columns || (column == m_sortColumn && order == m_sortOrder)) return;
    m_sortColumn = static_cast<Column>(column);
    m_sortOrder = order;
    refresh();
    emit sorted();
}

bool ReportList::isAsGiven() const {
    return m_sortColumn == checkedColumn && m_sortOrder == Qt::DescendingOrder;
}

void ReportList::refresh() {
    std::vector<ListEntry> rows;
    rows.reserve(m_all.size() + 2);
    m_counts = {};
    const bool hasHeadings = m_hasHeadings && isAsGiven();
    bool inHistory = !hasHeadings, inSession = !hasHeadings;
    for (const ListEntry& each : m_all) {
        if (!passes(each)) continue;
        if (each.isReport()) {
            const Tone tone = each.report->verdict.tone;
            ++m_counts[static_cast<std::size_t>(tone)];
            if (!m_tones.empty() && !m_tones.contains(tone)) continue;
        }
        const bool isSaved = each.kind == ListEntry::Kind::history;
        if (isSaved && !std::exchange(inHistory, true)) rows.push_back({ListEntry::Kind::historyHeading});
        if (!isSaved && !std::exchange(inSession, true)) rows.push_back({ListEntry::Kind::sessionHeading});
        rows.push_back(each);
    }
    if (!isAsGiven()) order(rows);
    if (rows == m_rows) {  // the same rows: a view keeps its selection and its place
        if (!rows.empty()) emit dataChanged(index(0, 0), index(rowCount() - 1, columns - 1));
    } else {
        beginResetModel();
        m_rows = std::move(rows);
        endResetModel();
    }
    emit filtered();
}

void ReportList::order(std::vector<ListEntry>& rows) const {
    const std::span<ListEntry> reports =
        std::ranges::stable_partition(rows, [](const ListEntry& each) { return !each.isReport(); });
    if (m_sortColumn == verdictColumn || m_sortColumn == dateColumn || m_sortColumn == checkedColumn) {
        return sortBy(reports, m_sortOrder,
                      [&](const ListEntry& each) { return sortNumber(*each.report, m_sortColumn); });
    }
    QCollator collator(m_words.reader.language == Language::german ? QLocale::German : QLocale::English);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    collator.setNumericMode(true);  // "message 2" before "message 12"
    sortBy(reports, m_sortOrder, [&](const ListEntry& each) {
        const std::string text = textOf(*each.report, m_sortColumn, m_words.reader);
        const bool isLast = text.empty() == (m_sortOrder == Qt::AscendingOrder);
        return std::pair(isLast, collator.sortKey(beginning(text, longestSortedBy)));
    });
}

bool ReportList::passes(const ListEntry& entry) const {
    if (m_filter.isEmpty()) return true;
    if (!entry.isReport()) return entry.name.contains(m_filter, Qt::CaseInsensitive);
    const ProofReport& report = *entry.report;
    if (holds(report.summary.subject, m_filter) || holds(report.verdict.domain, m_filter)) return true;
    if (report.fileName && holds(placeName(*report.fileName, m_words.reader), m_filter)) return true;
    const auto& from = report.summary.from;
    return std::any_of(
        from.begin(), from.begin() + static_cast<std::ptrdiff_t>(std::min(from.size(), mostRows)),
        [&](const MailAddress& each) {
            return holds(each.address, m_filter) || (each.displayName && holds(*each.displayName, m_filter));
        });
}

const ListEntry& ReportList::entry(const QModelIndex& index) const {
    static const ListEntry none{ListEntry::Kind::sessionHeading};
    const auto row = static_cast<std::size_t>(index.row());
    return index.isValid() && row < m_rows.size() ? m_rows[row] : none;
}

QModelIndex ReportList::indexOf(const UUID& id) const {
    const auto found = std::ranges::find_if(
        m_rows, [&](const ListEntry& each) { return !each.isHeading() && each.id == id; });
    return found == m_rows.end() ? QModelIndex() : index(static_cast<int>(found - m_rows.begin()), 0);
}

std::optional<UUID> ReportList::beside(const UUID& id) const {
    const QModelIndex own = indexOf(id);
    if (!own.isValid()) return std::nullopt;
    for (const int step : {1, -1}) {
        for (int row = own.row() + step; row >= 0 && row < rowCount(); row += step) {
            const ListEntry& each = m_rows[static_cast<std::size_t>(row)];
            if (!each.isHeading()) return each.id;
        }
    }
    return std::nullopt;
}

int ReportList::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

int ReportList::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : columns; }

QVariant ReportList::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    switch (section) {
        case subjectColumn:
            return m_words("Subject");
        case verdictColumn:
            return m_words("Verdict");
        case fromColumn:
            return m_words("From");
        case signedByColumn:
            return m_words("Signed by");
        case dateColumn:
            return m_words("Date");
        case fileColumn:
            return m_words("File");
        case checkedColumn:
            return m_words("Checked");
        default:
            return {};
    }
}

QVariant ReportList::data(const QModelIndex& index, int role) const {
    const ListEntry& each = entry(index);
    switch (role) {
        case Qt::DisplayRole:
            return cell(each, index.column());
        case secondLineRole:
            return secondLine(each);
        case Qt::ToolTipRole:
            return each.isHeading() ? QVariant() : toolTip(each, index.column());
        case Qt::AccessibleTextRole:
            // Of a row in the table the first cell is read out.
            return index.column() == subjectColumn || index.column() == verdictColumn
                       ? spoken(each)
                       : cell(each, index.column());
        case toneRole:
            return each.isReport() ? QVariant(static_cast<int>(each.report->verdict.tone)) : QVariant();
        case hasMoreRole:
            return each.isReport() && !caution(*each.report).isEmpty();
        case timeRole:
            return time(each);
        case isStoppedRole:
            return each.kind == ListEntry::Kind::stopped;
        default:
            return {};
    }
}

QString ReportList::cell(const ListEntry& entry, int column) const {
    if (column == subjectColumn) return firstLine(entry);
    if (column == verdictColumn) return verdict(entry);
    if (!entry.isReport()) return {};
    const ProofReport& report = *entry.report;
    switch (column) {
        case fromColumn:
        case signedByColumn:
        case fileColumn: {
            const std::string text = textOf(report, column, m_words.reader);
            if (text.empty()) return {};
            return column == signedByColumn ? shownDomain(text) : shown(text);
        }
        case dateColumn:
            return report.summary.date ? QString::fromStdString(m_words.reader.date(*report.summary.date))
                                       : QString();
        default:
            return time(entry);
    }
}

QString ReportList::verdict(const ListEntry& entry) const {
    if (!entry.isReport()) return secondLine(entry);
    const Tone tone = entry.report->verdict.tone;
    QString text = toneSymbol(tone) + u' ' + toneWord(tone, m_words);
    if (tone != Tone::caution && !caution(*entry.report).isEmpty())
        text += QStringLiteral("  ") + toneSymbol(Tone::caution);
    return text;
}

QString ReportList::toolTip(const ListEntry& entry, int column) const {
    if (!entry.isReport()) return escaped(firstLine(entry) + QStringLiteral(": ") + secondLine(entry));
    const ProofReport& report = *entry.report;
    QString text = cell(entry, column);
    if (column == subjectColumn) text = shown(report.summary.subject, longestToolTip);
    if (column == verdictColumn) {
        text = isolatedRuns(headline(report.verdict, m_words.reader));
        if (!caution(report).isEmpty()) text += QStringLiteral(", ") + caution(report);
    }
    return escaped(text);
}

QString ReportList::spoken(const ListEntry& entry) const {
    QString text = firstLine(entry);
    if (entry.isReport()) text.prepend(toneWord(entry.report->verdict.tone, m_words) + QStringLiteral(": "));
    for (const QString& more :
         {secondLine(entry), entry.isReport() ? caution(*entry.report) : QString(), time(entry)}) {
        if (!more.isEmpty()) text += QStringLiteral(", ") + more;
    }
    return text;
}

Qt::ItemFlags ReportList::flags(const QModelIndex& index) const {
    if (entry(index).isHeading()) return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
}

QString ReportList::firstLine(const ListEntry& entry) const {
    switch (entry.kind) {
        case ListEntry::Kind::sessionHeading:
            return m_words("This session");
        case ListEntry::Kind::historyHeading:
            return m_words("History");
        case ListEntry::Kind::running:
        case ListEntry::Kind::stopped:
            return entry.name.isEmpty() ? m_words("Pasted source") : shown(entry.name);
        default:
            break;
    }
    const std::string& subject = entry.report->summary.subject;
    return subject.empty() ? m_words("(no subject)") : shown(subject);
}

QString ReportList::secondLine(const ListEntry& entry) const {
    if (entry.isHeading()) return {};
    if (entry.kind == ListEntry::Kind::running) {
        return entry.found == 0 ? m_words("Checking…")
                                : m_words.translateCount("%n message so far", "%n messages so far",
                                                         static_cast<std::int64_t>(entry.found));
    }
    if (entry.kind == ListEntry::Kind::stopped) return stoppedAfter(entry.found, entry.all, m_words);
    const ProofReport& report = *entry.report;
    const std::string& domain =
        report.verdict.fromDomain.empty() ? report.verdict.domain : report.verdict.fromDomain;
    if (!domain.empty()) return shownDomain(domain);
    if (const auto other = insteadOfSender(report, m_words.reader)) return shown(*other);
    return shown(displayForm(report.summary.from.front()));
}

QString ReportList::caution(const ProofReport& report) const {
    const auto known = m_cautions.find(report.id);
    if (known != m_cautions.end()) return known->second;
    QString text;
    if (!report.flags.empty()) {
        text = m_words.translateCount("%n warning sign", "%n warning signs",
                                      static_cast<std::int64_t>(report.flags.size()));
    } else if (report.verdict.tone == Tone::good &&
               std::ranges::any_of(besideHeadline(report, m_words.reader),
                                   [](const Remark& each) { return each.tone == Tone::caution; })) {
        text = m_words("with a caution");
    }
    return m_cautions[report.id] = text;
}

QString ReportList::time(const ListEntry& entry) const {
    if (!entry.isReport()) return {};
    const Reader& reader = m_words.reader;
    const Date checkedAt = entry.report->checkedAt;
    const Date local = checkedAt + reader.zone(checkedAt).ahead;
    const std::string day = reader.date(checkedAt);
    if (day != reader.date(m_now())) return QString::fromStdString(day);
    return QString::fromStdString(iso8601(local).substr(11, 5));
}

}  // namespace quillmark
