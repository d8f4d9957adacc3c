#pragma once

#include <QString>
#include <QTimer>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <tuple>
#include <vector>

#include "Quillmark/Panels.h"
#include "Quillmark/ReportContent.h"

class QBoxLayout;
class QLayout;
class QToolButton;

namespace quillmark {

class BannerView;

/// One report on the screen: the verdict's banner, then a section for each kind of evidence, the details of
/// each finding one click deeper. Shows nothing until it is given a report.
class ReportView : public Scroller {
    Q_OBJECT
public:
    explicit ReportView(const Words& words, QWidget* parent = nullptr);

    /// Replaces what is shown and scrolls to the top; details are folded. Of a report with very many findings
    /// the first are there at once, the others in later turns of the event loop.
    void setContent(const ReportContent& content);
    /// The verdict with its cautions, as it is read out.
    QString spokenVerdict() const;
    /// Puts the keyboard onto the verdict, which is read out then.
    void focusVerdict();
    /// Unfolds every finding's details, or folds them all, in later turns.
    void expandAll(bool expanded);
    /// Whether nothing is left for later turns.
    bool isComplete() const { return !m_next.isActive(); }

    /// Whether the report can be made again; then one whose lookups failed says so.
    void offerRecheck(bool isPossible);

    /// Answers what was typed in the banner, as in `BannerView`.
    void setExpectation(const std::optional<ReportExpectation>& expectation);
    void suggestExpectations(const QStringList& domains);
    /// Puts the keyboard where it is typed.
    void askForExpectation();

signals:
    void recheckWanted();
    void expectationChanged(const QString& typed);
    void expectationsWanted();  ///< to choose from
    /// To see what a signature that holds again was made over, by its place among them.
    void comparisonWanted(std::size_t undone);
    void contentChanged();

protected:
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void rebuild();
    void focusAgain(const QString& name);
    void giveKeyboard(QWidget* place);
    void goOn();
    /// Shows what a line of the banner speaks of, and puts the keyboard there.
    void goTo(const ReportLead& lead);
    /// What adds a section to a layout, piece by piece.
    void plan(const ReportSection& section, QBoxLayout* page);
    void addHeading(const ReportSection& section, QBoxLayout* rows, QWidget* box);
    /// Folds and unfolds what is one click deeper.
    QToolButton* disclosure(const QString& text, const QString& accessibleName);
    QLayout* step(const ReportRow& row, bool isFirst, bool isLast);
    QWidget* row(const ReportRow& row);
    QLayout* note(const ReportLine& note);
    QLayout* comparison(std::size_t undone);

    Words m_words;
    ReportContent m_content;
    std::deque<std::function<void()>> m_unbuilt;  // pieces of the content
    std::vector<QToolButton*> m_disclosures;
    std::size_t m_unfolded = 0;            // of them, while all are unfolded or folded
    std::optional<bool> m_unfolding = {};  // which of the two
    QTimer m_next;
    BannerView* m_banner = nullptr;
    /// Parts of the report, with a note or a row of theirs.
    std::map<std::tuple<NoteSection, std::optional<std::size_t>, std::optional<std::size_t>>, QWidget*>
        m_places;
    bool m_offersRecheck = false;
    bool m_isBuilding = false;
};

}  // namespace quillmark
