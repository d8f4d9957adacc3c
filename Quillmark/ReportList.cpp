#include "Quillmark/ReportList.h"

#include <QApplication>
#include <QPainter>
#include <algorithm>

#include "Quillmark/Tones.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Text.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr std::size_t longestSearched = 1'000;  // bytes of one field

bool holds(std::string_view text, const QString& part) {
    return QString::fromStdString(std::string(text.substr(0, longestSearched)))
        .contains(part, Qt::CaseInsensitive);
}

}  // namespace

ReportList::ReportList(Find find, std::function<Date()> now, const Words& words, QObject* parent)
    : QAbstractListModel(parent), m_find(std::move(find)), m_now(std::move(now)), m_words(words) {}

void ReportList::setEntries(std::vector<ListEntry> entries) {
    m_all = std::move(entries);
    m_cautions.clear();
    show(filtered());
    emit entriesChanged();
}

void ReportList::setFilter(const QString& text) {
    m_filter = text.trimmed();
    show(filtered());
}

void ReportList::show(std::vector<ListEntry> rows) {
    if (rows == m_rows) {  // the same rows: a view keeps its selection and its place
        if (!m_rows.empty()) emit dataChanged(index(0), index(static_cast<int>(m_rows.size()) - 1));
        return;
    }
    beginResetModel();
    m_rows = std::move(rows);
    endResetModel();
}

std::vector<ListEntry> ReportList::filtered() const {
    std::vector<ListEntry> rows;
    bool inHistory = false, inSession = false;
    for (const ListEntry& each : m_all) {
        if (!passes(each)) continue;
        const bool isSaved = each.kind == ListEntry::Kind::history;
        if (isSaved && !std::exchange(inHistory, true)) rows.push_back({ListEntry::Kind::historyHeading});
        if (!isSaved && !std::exchange(inSession, true)) rows.push_back({ListEntry::Kind::sessionHeading});
        rows.push_back(each);
    }
    return rows;
}

bool ReportList::passes(const ListEntry& entry) const {
    if (m_filter.isEmpty()) return true;
    if (entry.kind == ListEntry::Kind::running) return entry.name.contains(m_filter, Qt::CaseInsensitive);
    const ProofReport* report = m_find(entry);
    if (!report) return false;
    if (holds(report->summary.subject, m_filter) || holds(report->verdict.domain, m_filter)) return true;
    if (report->fileName && holds(*report->fileName, m_filter)) return true;
    const auto& from = report->summary.from;
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
    return found == m_rows.end() ? QModelIndex() : index(static_cast<int>(found - m_rows.begin()));
}

int ReportList::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

QVariant ReportList::data(const QModelIndex& index, int role) const {
    const ListEntry& each = entry(index);
    switch (role) {
        case Qt::DisplayRole:
            return firstLine(each);
        case secondLineRole:
            return secondLine(each);
        case Qt::ToolTipRole: {
            const ProofReport* report = each.isReport() ? m_find(each) : nullptr;
            if (!report) return {};
            // A tooltip guesses whether its text is markup: this one is, and what it shows is escaped.
            return QStringLiteral("<span>") + shown(report->summary.subject, longestToolTip).toHtmlEscaped() +
                   QStringLiteral("</span>");
        }
        case Qt::AccessibleTextRole: {
            const ProofReport* report = each.isReport() ? m_find(each) : nullptr;
            QString spoken = firstLine(each);
            if (report) spoken.prepend(toneWord(report->verdict.tone, m_words) + QStringLiteral(": "));
            for (const QString& more :
                 {secondLine(each), report ? caution(*report) : QString(), time(each)}) {
                if (!more.isEmpty()) spoken += QStringLiteral(", ") + more;
            }
            return spoken;
        }
        case toneRole: {
            const ProofReport* report = each.isReport() ? m_find(each) : nullptr;
            return report ? QVariant(static_cast<int>(report->verdict.tone)) : QVariant();
        }
        case hasMoreRole: {
            const ProofReport* report = each.isReport() ? m_find(each) : nullptr;
            return report && !caution(*report).isEmpty();
        }
        case timeRole:
            return time(each);
        default:
            return {};
    }
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
            return entry.name.isEmpty() ? m_words("Pasted source") : shown(entry.name);
        default:
            break;
    }
    const ProofReport* report = m_find(entry);
    if (!report) return {};
    return report->summary.subject.empty() ? m_words("(no subject)") : shown(report->summary.subject);
}

QString ReportList::secondLine(const ListEntry& entry) const {
    if (entry.isHeading()) return {};
    if (entry.kind == ListEntry::Kind::running) {
        return entry.found == 0 ? m_words("Checking…")
                                : m_words.translateCount("%n message so far", "%n messages so far",
                                                         static_cast<std::int64_t>(entry.found));
    }
    const ProofReport* report = m_find(entry);
    if (!report) return {};
    const std::string& domain =
        report->verdict.fromDomain.empty() ? report->verdict.domain : report->verdict.fromDomain;
    QString sender = domain.empty() ? m_words("(no From line)") : shown(domain);
    if (domain.empty() && !report->summary.from.empty()) {
        sender = shown(displayForm(report->summary.from.front()));
    }
    return sender;
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
    const ProofReport* report = entry.isReport() ? m_find(entry) : nullptr;
    if (!report) return {};
    const Reader& reader = m_words.reader;
    const Date local = report->checkedAt + reader.zone(report->checkedAt).ahead;
    const std::string day = reader.date(report->checkedAt);
    if (day != reader.date(m_now())) return QString::fromStdString(day);
    return QString::fromStdString(iso8601(local).substr(11, 5));
}

void ReportListDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                               const QModelIndex& index) const {
    QStyleOptionViewItem plain(option);
    plain.index = index;
    QApplication::style()->drawPrimitive(QStyle::PE_PanelItemViewItem, &plain, painter, plain.widget);

    painter->save();
    const bool selected = option.state & QStyle::State_Selected;
    const QPalette::ColorGroup group =
        option.state & QStyle::State_Active ? QPalette::Active : QPalette::Inactive;
    const QColor text = option.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text);
    const int line = option.fontMetrics.height(), gap = line / 3;
    const QRect inside = option.rect.adjusted(gap, gap, -gap, -gap);
    const QVariant tone = index.data(ReportList::toneRole);
    const QString second = index.data(ReportList::secondLineRole).toString();
    painter->setPen(text);
    QFont bold = option.font;
    bold.setBold(true);
    if (second.isEmpty()) {  // a heading
        painter->setFont(bold);
        painter->drawText(inside, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                          index.data(Qt::DisplayRole).toString());
        painter->restore();
        return;
    }
    painter->setFont(bold);
    const QRect mark(inside.left(), inside.top(), line, line);
    const auto drawSymbol = [&](Tone value, const QRect& where) {
        if (!selected)
            painter->setPen(toneColor(value, option.palette.color(QPalette::Base), option.palette));
        painter->drawText(where, Qt::AlignCenter, toneSymbol(value));
    };
    if (tone.isValid()) {
        const auto value = static_cast<Tone>(tone.toInt());
        drawSymbol(value, mark);
        if (value != Tone::caution && index.data(ReportList::hasMoreRole).toBool())
            drawSymbol(Tone::caution, mark.translated(0, line + gap / 2));
    } else {  // a ring with a gap that goes around
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(QPen(text, line / 8.0));
        constexpr int circle = 360 * 16;
        painter->drawArc(mark.adjusted(gap / 2, gap / 2, -gap / 2, -gap / 2), -m_turns * circle / turnsAround,
                         circle * 3 / 4);
    }
    painter->setPen(text);
    const QRect words = inside.adjusted(line + gap, 0, 0, 0);
    const auto draw = [&](const QFont& font, int top, int width, const QString& what) {
        painter->setFont(font);
        painter->drawText(QRect(words.left(), words.top() + top, width, line),
                          Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                          QFontMetrics(font).elidedText(what, Qt::ElideRight, width));
    };
    draw(bold, 0, words.width(), index.data(Qt::DisplayRole).toString());
    const QString time = index.data(ReportList::timeRole).toString();
    draw(option.font, line + gap / 2, words.width() - option.fontMetrics.horizontalAdvance(time) - gap,
         second);
    painter->drawText(QRect(words.left(), words.top() + line + gap / 2, words.width(), line),
                      Qt::AlignRight | Qt::AlignVCenter | Qt::TextSingleLine, time);
    if (option.state & QStyle::State_HasFocus) {
        QStyleOptionFocusRect focus;
        focus.QStyleOption::operator=(option);
        QApplication::style()->drawPrimitive(QStyle::PE_FrameFocusRect, &focus, painter, option.widget);
    }
    painter->restore();
}

QSize ReportListDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const {
    const int line = option.fontMetrics.height();
    return {10 * line, 2 * line + line / 6 + 2 * (line / 3)};
}

}  // namespace quillmark
