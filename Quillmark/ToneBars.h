#pragma once

#include <QWidget>
#include <vector>

#include "Quillmark/Words.h"
#include "Wording/Totals.h"

namespace quillmark {

/// Totals as a picture: a bar for each row, of which every tone has its part, with its symbol where there is
/// room.
class ToneBars : public QWidget {
public:
    ToneBars(std::vector<TotalsRow> rows, const Words& words, QWidget* parent = nullptr);

    /// The same in words: "2026: 12, of which 10 Good, 2 Bad."
    QString spoken() const;
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

private:
    QString label(const TotalsRow& row) const;
    QString inWords(const TotalsRow& row) const;
    int rowHeight() const;

    const std::vector<TotalsRow> m_rows;
    const Words m_words;
};

}  // namespace quillmark
