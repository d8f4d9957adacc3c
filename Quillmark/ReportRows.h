#pragma once

#include "Quillmark/Panels.h"

/// How a `ReportList` is painted.
namespace quillmark {

/// A text that ends with a domain, or with an address in angle brackets, in one line of `width` pixels: what
/// stands before the domain gives way first, and of the domain its beginning.
QString elidedBeforeDomain(const QString& text, const QFontMetrics& metrics, int width);

/// In the list: the tone's symbol, the subject with the time beside it, and under them the domain; a caution
/// mark where there is more to be read than the verdict.
class ReportListDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    /// Turns the mark of running checks by a step, for the next painting.
    void turn() { m_turns = (m_turns + 1) % turnsAround; }

private:
    static constexpr int turnsAround = 12;
    int m_turns = 0;
};

/// In the table, whose verdicts have the colours of their tones.
class ReportTableDelegate : public ClearDelegate {
public:
    using ClearDelegate::ClearDelegate;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;
};

}  // namespace quillmark
