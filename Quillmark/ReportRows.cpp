#include "Quillmark/ReportRows.h"

#include <QApplication>
#include <QPainter>

#include "Quillmark/ReportList.h"
#include "Quillmark/Tones.h"

namespace quillmark {

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

QSize ReportTableDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    const QSize hint = QStyledItemDelegate::sizeHint(option, index);
    return {hint.width(), hint.height() + option.fontMetrics.height() / 2};
}

void ReportTableDelegate::initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const {
    QStyledItemDelegate::initStyleOption(option, index);
    const QVariant tone = index.data(ReportList::toneRole);
    if (index.column() != ReportList::verdictColumn || !tone.isValid()) return;
    option->font.setBold(true);
    option->palette.setColor(
        QPalette::Text,
        toneColor(static_cast<Tone>(tone.toInt()), option->palette.color(QPalette::Base), option->palette));
}

}  // namespace quillmark
