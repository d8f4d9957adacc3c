#pragma once

#include <QScrollArea>
#include <QString>
#include <QTimer>
#include <vector>

#include "Quillmark/ReportContent.h"

class QLayout;
class QPushButton;
class QToolButton;

namespace quillmark {

/// One report on the screen: the verdict's banner, then a section for each kind of evidence, the details of
/// each finding one click deeper. Shows nothing until it is given a report.
class ReportView : public QScrollArea {
    Q_OBJECT
public:
    explicit ReportView(const Words& words, QWidget* parent = nullptr);

    /// Replaces what is shown and scrolls to the top; details are folded.
    void setContent(const ReportContent& content);
    /// Unfolds every finding's details, or folds them all: the first ones at once, those of a report with
    /// very many in later turns of the event loop.
    void expandAll(bool expanded);

    /// Whether the report can be made again; then one whose lookups failed says so.
    void offerRecheck(bool isPossible);

signals:
    void recheckWanted();
    void contentChanged();

protected:
    void changeEvent(QEvent* event) override;

private:
    void rebuild();
    void unfoldSome();
    QWidget* banner();
    QWidget* section(const ReportSection& section);
    QWidget* row(const ReportRow& row);
    QLayout* note(const ReportLine& note) const;

    Words m_words;
    ReportContent m_content;
    std::vector<QToolButton*> m_disclosures;
    std::size_t m_unfolded = 0;  // of them, while all are unfolded or folded
    bool m_isUnfolding = false;
    QTimer m_unfoldNext;
    QPushButton* m_recheck = nullptr;
    bool m_offersRecheck = false;
    bool m_isBuilding = false;
};

}  // namespace quillmark
