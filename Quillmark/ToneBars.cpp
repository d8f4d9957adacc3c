#include "Quillmark/ToneBars.h"

#include <QEvent>
#include <QHelpEvent>
#include <QPainter>
#include <QToolTip>
#include <algorithm>

#include "Quillmark/ReportRows.h"
#include "Quillmark/Tones.h"

namespace quillmark {

ToneBars::ToneBars(std::vector<TotalsRow> rows, const Words& words, QWidget* parent)
    : QWidget(parent), m_rows(std::move(rows)), m_words(words) {
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

int ToneBars::rowHeight() const { return fontMetrics().height() * 3 / 2; }

QSize ToneBars::sizeHint() const {
    return {30 * fontMetrics().averageCharWidth(), static_cast<int>(m_rows.size()) * rowHeight()};
}

QString ToneBars::label(const TotalsRow& row) const {
    return row.isDomain ? shownDomain(row.label) : shown(row.label);
}

QString ToneBars::inWords(const TotalsRow& row) const {
    const auto number = [&](std::int64_t count) {
        return QString::fromStdString(m_words.reader.number(count));
    };
    QStringList parts;
    for (const Tone tone : tonesByProof) {
        if (row.counts.of(tone) > 0) parts << number(row.counts.of(tone)) + u' ' + toneWord(tone, m_words);
    }
    return m_words("%1: %2, of which %3", label(row), number(row.counts.all()),
                   parts.join(QStringLiteral(", ")));
}

QString ToneBars::spoken() const {
    QStringList all;
    for (const TotalsRow& row : m_rows) all << inWords(row);
    return withoutIsolation(all.join(QStringLiteral(". ")));
}

bool ToneBars::event(QEvent* event) {
    if (event->type() != QEvent::ToolTip) return QWidget::event(event);
    const auto* help = static_cast<QHelpEvent*>(event);
    const auto row = static_cast<std::size_t>(help->y() / rowHeight());
    if (row < m_rows.size())
        QToolTip::showText(
            help->globalPos(),
            QStringLiteral("<span>") + inWords(m_rows[row]).toHtmlEscaped() + QStringLiteral("</span>"),
            this);
    return true;
}

void ToneBars::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QFontMetrics metrics = fontMetrics();
    const int line = metrics.height(), gap = line / 2;
    int labels = 0, numbers = 0;
    std::int64_t most = 1;
    for (const TotalsRow& row : m_rows) {
        labels = std::max(labels, metrics.horizontalAdvance(label(row)));
        numbers = std::max(numbers, metrics.horizontalAdvance(
                                        QString::fromStdString(m_words.reader.number(row.counts.all()))));
        most = std::max(most, row.counts.all());
    }
    labels = std::min(labels, width() * 2 / 5);
    const double room = std::max(width() - labels - numbers - 2 * gap, line);
    const bool isLeftwards = layoutDirection() == Qt::RightToLeft;
    const auto place = [&](double left, double top, double wide, double high) {
        return QRectF(isLeftwards ? width() - left - wide : left, top, wide, high);
    };
    const QColor ground = palette().color(QPalette::Base);
    double top = 0;
    for (const TotalsRow& row : m_rows) {
        const double middle = top + (rowHeight() - line) / 2.0;
        painter.setPen(palette().color(QPalette::Text));
        const QString text = row.isDomain ? elidedBeforeDomain(label(row), metrics, labels)
                                          : metrics.elidedText(label(row), Qt::ElideRight, labels);
        painter.drawText(place(0, middle, labels, line), Qt::AlignVCenter | Qt::TextSingleLine, text);
        double left = labels + gap;
        for (const Tone tone : tonesByProof) {
            const auto count = static_cast<double>(row.counts.of(tone));
            if (count == 0) continue;
            const double wide = std::max(room * count / static_cast<double>(most), 1.0);
            const QColor color = toneColor(tone, ground, palette());
            const QRectF part = place(left, middle, wide > 3 ? wide - 1 : wide, line);
            painter.fillRect(part, color);
            if (wide > line) {
                painter.setPen(contrast(color, Qt::white) >= contrast(color, Qt::black) ? Qt::white
                                                                                        : Qt::black);
                painter.drawText(part, Qt::AlignCenter, toneSymbol(tone));
            }
            left += wide;
        }
        painter.setPen(palette().color(QPalette::Text));
        painter.drawText(place(left + gap, middle, numbers + line, line), Qt::AlignVCenter,
                         QString::fromStdString(m_words.reader.number(row.counts.all())));
        top += rowHeight();
    }
}

}  // namespace quillmark
