#include "Quillmark/ReportRows.h"

#include <QApplication>
#include <QPainter>
#include <algorithm>

#include "Quillmark/ReportList.h"
#include "Quillmark/Tones.h"

namespace quillmark {

namespace {

/// Of the list's two lines the first is bold, and bold letters may be taller.
int lineHeight(const QStyleOptionViewItem& option) {
    QFont bold = option.font;
    bold.setBold(true);
    return std::max(option.fontMetrics.height(), QFontMetrics(bold).height());
}

}  // namespace

QString elidedBeforeDomain(const QString& text, const QFontMetrics& metrics, int width) {
    if (metrics.horizontalAdvance(text) <= width) return text;
    const QString domain = text.mid(std::max(text.lastIndexOf(u'@'), qsizetype{0}));
    const int before = width - metrics.horizontalAdvance(domain);
    if (domain == text || before < metrics.horizontalAdvance(QStringLiteral("…")))
        return metrics.elidedText(text, Qt::ElideLeft, width);
    return metrics.elidedText(text.left(text.size() - domain.size()), Qt::ElideRight, before) + domain;
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
    // Some styles fade the text of whatever hasn't the keyboard.
    const QColor text = selected ? option.palette.color(group, QPalette::HighlightedText)
                                 : option.palette.color(QPalette::Active, QPalette::Text);
    const int line = lineHeight(option), gap = line / 3;
    const QRect inside = option.rect.adjusted(gap, gap, -gap, -gap);
    // As it stands where one reads from left to right.
    const auto placed = [&](const QRect& where) {
        return QStyle::visualRect(option.direction, option.rect, where);
    };
    const QVariant tone = index.data(ReportList::toneRole);
    const bool isStopped = index.data(ReportList::isStoppedRole).toBool();
    const bool isMailbox = index.data(ReportList::isMailboxRole).toBool();
    const QString second = index.data(ReportList::secondLineRole).toString();
    painter->setPen(text);
    QFont bold = option.font;
    bold.setBold(true);
    if (second.isEmpty()) {  // a heading
        painter->setFont(bold);
        painter->drawText(inside, Qt::AlignLeading | Qt::AlignVCenter | Qt::TextSingleLine,
                          index.data(Qt::DisplayRole).toString());
        painter->restore();
        return;
    }
    painter->setFont(bold);
    const QRect mark = placed({inside.left(), inside.top(), line, line});
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
    } else if (isStopped) {
        painter->fillRect(mark.adjusted(gap, gap, -gap, -gap), text);
    } else if (isMailbox) {  // an envelope
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(QPen(text, line / 12.0));
        const QRectF envelope(mark.left() + line / 8.0, mark.top() + line / 4.0, line * 0.75, line * 0.5);
        painter->drawRect(envelope);
        painter->drawPolyline(QPolygonF(
            {envelope.topLeft(), envelope.center() + QPointF(0, line / 12.0), envelope.topRight()}));
    } else {  // a ring with a gap that goes around
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(QPen(text, line / 8.0));
        constexpr int circle = 360 * 16;
        painter->drawArc(mark.adjusted(gap / 2, gap / 2, -gap / 2, -gap / 2), -m_turns * circle / turnsAround,
                         circle * 3 / 4);
    }
    painter->setPen(text);
    // On a baseline: within a box, a character from another font would push the line down.
    const int ascent = line - QFontMetrics(bold).descent();
    const auto draw = [&](const QString& words, const QRect& where) {
        const int left = option.direction == Qt::RightToLeft
                             ? where.right() + 1 - painter->fontMetrics().horizontalAdvance(words)
                             : where.left();
        painter->drawText(left, where.top() + ascent, words);
    };
    const QFontMetrics& metrics = option.fontMetrics;
    const QRect words = inside.adjusted(line + gap, 0, 0, 0);
    const QString date = index.data(ReportList::dateRole).toString();
    const int dateWidth = metrics.horizontalAdvance(date), beside = date.isEmpty() ? 0 : dateWidth + gap;
    draw(QFontMetrics(bold).elidedText(index.data(Qt::DisplayRole).toString(), Qt::ElideRight,
                                       words.width() - beside),
         placed(words.adjusted(0, 0, -beside, 0)));
    painter->setFont(option.font);
    draw(date, placed(words.adjusted(words.width() - dateWidth, 0, 0, 0)));
    // Of "Stopped after 514 of 4,200" the numbers are the last to go.
    const auto mode = isStopped ? Qt::ElideLeft : Qt::ElideRight;
    const QRect below = words.translated(0, line + gap / 2);
    const QString domain = tone.isValid() ? elidedBeforeDomain(second, metrics, words.width())
                                          : metrics.elidedText(second, mode, words.width());
    draw(domain, placed(below));
    // What the sender calls himself proves nothing: it has the room that the domain leaves.
    const QString name = index.data(ReportList::senderNameRole).toString();
    const QRect rest = below.adjusted(metrics.horizontalAdvance(domain) + gap, 0, 0, 0);
    if (!name.isEmpty() && rest.width() > 3 * line)
        draw(metrics.elidedText(name, Qt::ElideRight, rest.width()), placed(rest));
    if (option.state & QStyle::State_HasFocus) {
        QStyleOptionFocusRect focus;
        focus.QStyleOption::operator=(option);
        focus.backgroundColor = option.palette.color(group, selected ? QPalette::Highlight : QPalette::Base);
        QApplication::style()->drawPrimitive(QStyle::PE_FrameFocusRect, &focus, painter, option.widget);
    }
    painter->restore();
}

QSize ReportListDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const {
    const int line = lineHeight(option);
    return {10 * line, 2 * line + line / 6 + 2 * (line / 3)};
}

QSize ReportTableDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    const QSize hint = ClearDelegate::sizeHint(option, index);
    return {hint.width(), hint.height() + option.fontMetrics.height() / 2};
}

void ReportTableDelegate::initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const {
    ClearDelegate::initStyleOption(option, index);
    const bool isDomain = index.column() == signedByColumn || index.column() == fromColumn;
    if (isDomain && option->widget && !option->rect.isEmpty()) {
        const int margin = option->widget->style()->pixelMetric(QStyle::PM_FocusFrameHMargin) + 1;
        option->text =
            elidedBeforeDomain(option->text, option->fontMetrics, option->rect.width() - 2 * margin);
    }
    if (index.data(ReportList::isStoppedRole).toBool()) option->textElideMode = Qt::ElideLeft;
    if (index.column() == fileColumn) option->textElideMode = Qt::ElideMiddle;
    const QVariant tone = index.data(ReportList::toneRole);
    if (index.column() != verdictColumn || !tone.isValid()) return;
    option->font.setBold(true);
    option->palette.setColor(
        QPalette::Text,
        toneColor(static_cast<Tone>(tone.toInt()), option->palette.color(QPalette::Base), option->palette));
}

}  // namespace quillmark
