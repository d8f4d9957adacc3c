#include "Quillmark/ReportList.h"

#include <algorithm>
#include <utility>

#include "Quillmark/Tones.h"
#include "QuillmarkKit/Support/Date.h"
#include "Wording/Banner.h"
#include "Wording/NoteSentences.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

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
    m_choice.filter = text.trimmed();
    refresh();
}

void ReportList::setTones(std::set<Tone> tones) {
    m_choice.tones = std::move(tones);
    refresh();
}

void ReportList::setHeadings(bool areShown) {
    m_choice.hasHeadings = areShown;
    refresh();
}

void ReportList::sort(int column, Qt::SortOrder order) {
    if (column < 0 || column >= listColumns) return;
    const auto by = static_cast<ListColumn>(column);
    if (by == m_choice.column && order == sortOrder()) return;
    m_choice.column = by;
    m_choice.order = order == Qt::AscendingOrder ? ListOrder::ascending : ListOrder::descending;
    refresh();
    emit sorted();
}

Qt::SortOrder ReportList::sortOrder() const {
    return m_choice.order == ListOrder::ascending ? Qt::AscendingOrder : Qt::DescendingOrder;
}

void ReportList::refresh() {
    ListRows listed = listRows(m_all, m_choice, m_words.reader);
    if (listed.rows == m_listed.rows) {  // a view keeps its selection and its place
        m_listed = std::move(listed);
        if (rowCount() > 0) emit dataChanged(index(0, 0), index(rowCount() - 1, listColumns - 1));
    } else {
        beginResetModel();
        m_listed = std::move(listed);
        endResetModel();
    }
    emit filtered();
}

const ListEntry& ReportList::entry(const QModelIndex& index) const {
    static const ListEntry none{ListEntry::Kind::sessionHeading};
    const auto row = static_cast<std::size_t>(index.row());
    return index.isValid() && row < m_listed.rows.size() ? m_listed.rows[row] : none;
}

QModelIndex ReportList::indexOf(const UUID& id) const {
    const auto row = rowOf(m_listed.rows, id);
    return row ? index(static_cast<int>(*row), 0) : QModelIndex();
}

int ReportList::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_listed.rows.size());
}

int ReportList::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : listColumns; }

QVariant ReportList::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    switch (static_cast<ListColumn>(section)) {
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
    const auto column = static_cast<ListColumn>(index.column());
    switch (role) {
        case Qt::DisplayRole:
            return cell(each, column);
        case secondLineRole:
            return secondLine(each);
        case Qt::ToolTipRole:
            return each.isHeading() ? QVariant() : toolTip(each, column);
        case Qt::AccessibleTextRole:
            // Of a row in the table the first cell is read out.
            return column == subjectColumn || column == verdictColumn ? spoken(each) : cell(each, column);
        case toneRole:
            return each.isReport() ? QVariant(static_cast<int>(each.report->verdict.tone)) : QVariant();
        case hasMoreRole:
            return each.isReport() && !caution(*each.report).isEmpty();
        case senderNameRole:
            return senderName(each);
        case dateRole:
            return date(each);
        case isStoppedRole:
            return each.kind == ListEntry::Kind::stopped;
        case isMailboxRole:
            return each.kind == ListEntry::Kind::mailbox;
        default:
            return {};
    }
}

QString ReportList::cell(const ListEntry& entry, ListColumn column) const {
    if (column == subjectColumn) return firstLine(entry);
    if (column == verdictColumn) return verdict(entry);
    if (!entry.isReport()) return {};
    const ProofReport& report = *entry.report;
    switch (column) {
        case fromColumn:
        case signedByColumn:
        case fileColumn: {
            const std::string text = listText(report, column, m_words.reader);
            if (text.empty()) return {};
            return column == signedByColumn ? shownDomain(text) : shown(text);
        }
        case dateColumn:
            return report.summary.date ? QString::fromStdString(m_words.reader.date(*report.summary.date))
                                       : QString();
        default:
            return shortly(report.checkedAt);
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

QString ReportList::toolTip(const ListEntry& entry, ListColumn column) const {
    if (!entry.isReport()) return escaped(firstLine(entry) + QStringLiteral(": ") + secondLine(entry));
    const ProofReport& report = *entry.report;
    QString text = cell(entry, column);
    if (column == subjectColumn) text = shown(report.summary.subject, longestToolTip);
    if (column == verdictColumn) {
        text = m_words.sentence(headline(report.verdict, m_words.reader));
        if (!caution(report).isEmpty()) text += QStringLiteral(", ") + caution(report);
    }
    return escaped(text);
}

QString ReportList::spoken(const ListEntry& entry) const {
    QString text = firstLine(entry);
    if (entry.isReport()) text.prepend(toneWord(entry.report->verdict.tone, m_words) + QStringLiteral(": "));
    for (const QString& more : {secondLine(entry), senderName(entry),
                                entry.isReport() ? caution(*entry.report) : QString(), date(entry)}) {
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
        case ListEntry::Kind::mailbox:
            return entry.name.empty() ? m_words("Pasted source") : shown(entry.name);
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
    if (entry.kind == ListEntry::Kind::mailbox)
        return m_words.translateCount("%n message", "%n messages", static_cast<std::int64_t>(entry.found));
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
    } else if (report.verdict.tone != Tone::caution && hasCautions(report)) {
        text = m_words("with a caution");
    }
    return m_cautions[report.id] = text;
}

QString ReportList::senderName(const ListEntry& entry) const {
    if (!entry.isReport()) return {};
    const auto& from = entry.report->summary.from;
    if (from.size() != 1 || !from.front().displayName || entry.report->verdict.fromDomain.empty()) return {};
    return m_words("“%1”", shown(*from.front().displayName));
}

QString ReportList::date(const ListEntry& entry) const {
    const bool isDated = entry.isReport() && entry.report->summary.date;
    return isDated ? shortly(*entry.report->summary.date) : QString();
}

QString ReportList::shortly(Date date) const {
    const Reader& reader = m_words.reader;
    const std::string day = reader.date(date);
    if (day != reader.date(m_now())) return QString::fromStdString(day);
    return QString::fromStdString(iso8601(date + reader.zone(date).ahead).substr(11, 5));
}

}  // namespace quillmark
