#pragma once

#include <QAbstractButton>

#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"
#include "Quillmark/ReportContent.h"

class QBoxLayout;
class QLayout;
class QLineEdit;

namespace quillmark {

/// A sentence with the symbol of its tone.
QLayout* noteLine(const ReportLine& note, const Words& words);

/// A line that is a button as a whole: what it says leads somewhere. Its text is wrapped, never read as
/// markup or for mnemonics; Return and Space press it.
class LeadLine : public QAbstractButton {
public:
    /// `go`: a word at its end that says what pressing it does.
    LeadLine(const QString& text, const QString& go, QWidget* parent = nullptr);

    QSize sizeHint() const override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    int goWidth() const;

    QString m_text, m_go;
};

/// A domain in large letters, its registrable part bold and what stands before it dim. It shrinks before it
/// takes a second line.
class DomainText : public PlainText {
public:
    DomainText(const DomainIdentity& identity, double scale, QWidget* parent = nullptr);

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void fit();
    void format(double points);

    qsizetype m_before;
    double m_points;
};

/// A stripe as wide as the box; without a tone it has the box's ground.
class Band : public QWidget {
public:
    explicit Band(std::optional<Tone> tone) : m_tone(tone) {}
    void setTone(std::optional<Tone> tone);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::optional<Tone> m_tone;
};

/// What a reader must see first of a report, as one box: read out as a whole by its accessible name.
class BannerView : public Card {
    Q_OBJECT
public:
    BannerView(const ReportContent& content, const Words& words, QWidget* parent = nullptr);

    /// Whether the report can be made again; then one whose lookups failed says so.
    void offerRecheck(bool isPossible);

    /// Where there is little height, fewer cautions are shown at once, and what the headline means stands
    /// below what to do, which else would be out of sight.
    void setCompact(bool isCompact);

    /// What the person typed is answered, or no longer asked.
    void setExpectation(const std::optional<ReportExpectation>& expectation);
    /// Domains to choose from; of use once `suggestionsWanted`.
    void suggest(const QStringList& domains);
    QLineEdit* expectationField() const { return m_field; }
    /// Where it is typed and answered.
    QWidget* expectation() const { return m_expectation; }

signals:
    /// Something else was typed as the domain or address that is expected; perhaps nothing.
    void expectationChanged(const QString& typed);
    void suggestionsWanted();
    void recheckWanted();
    void comparisonWanted();  ///< of what is shown with what was signed
    /// What a line speaks of is to be shown.
    void placeWanted(const quillmark::ReportLead& lead);

private:
    QWidget* head();
    QWidget* decider();
    QWidget* cautions();
    QWidget* foot();
    QWidget* buildExpectation();
    QWidget* quiet();
    void submitExpectation();
    void showAnswer();
    bool eventFilter(QObject* watched, QEvent* event) override;
    QWidget* meaning();
    QWidget* addLead(QBoxLayout* lines, const ReportLead& lead, bool isBold = false);
    QString spoken() const;

    ReportContent m_content;
    Words m_words;
    QPushButton* m_recheck = nullptr;
    PlainText* m_headline = nullptr;
    QWidget* m_meaning = nullptr;
    QBoxLayout *m_headTexts = nullptr, *m_footLines = nullptr;
    std::vector<QWidget*> m_ample = {}, m_compact = {};  // what is shown in one of the two ways alone
    QLineEdit* m_field = nullptr;
    Band* m_expectation = nullptr;
    QWidget* m_answer = nullptr;
    PlainText* m_whatToDo = nullptr;
};

}  // namespace quillmark
