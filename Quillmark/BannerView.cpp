#include "Quillmark/BannerView.h"

#include <QApplication>
#include <QBoxLayout>
#include <QKeyEvent>
#include <QPainter>
#include <QStyleOptionFocusRect>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextLayout>
#include <algorithm>
#include <cmath>

namespace quillmark {

namespace {

constexpr double badgeLines = 2.5;      // the height of the verdict's symbol
constexpr std::size_t mostLines = 4;    // of the cautions: the others are one line, lest they hide what to do
constexpr double smallestDomain = 0.6;  // of its size

/// A stripe as wide as the box.
class Band : public QWidget {
public:
    explicit Band(Tone tone) : m_tone(tone) {}

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        const QColor ground = bandGround(m_tone, palette());
        painter.fillRect(rect(), ground);
        painter.setPen(toneColor(m_tone, ground, palette()));
        painter.drawLine(0, 0, width(), 0);
        painter.drawLine(0, height() - 1, width(), height() - 1);
    }

private:
    Tone m_tone;
};

/// Lays a text out in so many pixels. Gives its height.
double layOut(QTextLayout& layout, double width) {
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(option);
    double height = 0;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        line.setPosition({0, height});
        height += line.height();
    }
    layout.endLayout();
    return height;
}

PlainText* text(const QString& contents, double scale = 1, QFont::Weight weight = QFont::Normal) {
    auto* made = new PlainText(contents);
    made->setFont(scaled(made->font(), scale, weight));
    return made;
}

/// How programs show an international domain, with the letters marked that aren't what they seem.
PlainText* lettersText(const DomainIdentity& identity, const Words& words) {
    QString letters;
    for (const DomainIdentity::Letters& each : identity.letters) letters += isolatedRuns(each.text);
    auto* made = text(words("Some programs show it as %1", letters));
    auto at = static_cast<int>(made->toPlainText().indexOf(letters));
    QTextCharFormat odd;
    odd.setFontWeight(QFont::Bold);
    odd.setBackground(bandGround(Tone::caution, made->palette()));
    odd.setForeground(toneColor(Tone::caution, bandGround(Tone::caution, made->palette()), made->palette()));
    odd.setUnderlineStyle(QTextCharFormat::SingleUnderline);
    for (const DomainIdentity::Letters& each : identity.letters) {
        QTextCursor cursor(made->document());
        cursor.setPosition(at);
        at += static_cast<int>(isolatedRuns(each.text).size());
        cursor.setPosition(at, QTextCursor::KeepAnchor);
        if (each.areOdd) cursor.mergeCharFormat(odd);
    }
    return made;
}

}  // namespace

QLayout* noteLine(const ReportLine& note, const Words& words) {
    auto* line = new QHBoxLayout;
    if (note.tone) {
        line->addWidget(new ToneBadge(*note.tone, 1.1, words), 0, Qt::AlignTop);
    } else {
        line->addWidget(new QLabel(QStringLiteral("•")), 0, Qt::AlignTop);
    }
    line->addWidget(new PlainText(note.text), 1);
    return line;
}

LeadLine::LeadLine(const QString& text, const QString& go, QWidget* parent)
    : QAbstractButton(parent), m_text(text), m_go(go + QStringLiteral(" ›")) {
    setAccessibleName(withoutIsolation(text));
    setAccessibleDescription(go);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::StrongFocus);
    QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Minimum);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

int LeadLine::goWidth() const {
    return fontMetrics().horizontalAdvance(m_go) + 2 * fontMetrics().averageCharWidth();
}

QSize LeadLine::sizeHint() const {
    return {goWidth() + 20 * fontMetrics().averageCharWidth(), 4 * fontMetrics().height() / 3};
}

int LeadLine::heightForWidth(int width) const {
    QTextLayout layout(m_text, font());
    return static_cast<int>(std::ceil(layOut(layout, std::max(width - goWidth(), 1)))) +
           fontMetrics().height() / 3;
}

void LeadLine::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const int edge = fontMetrics().height() / 6;
    const bool isRightToLeft = layoutDirection() == Qt::RightToLeft;
    QTextLayout layout(m_text, font());
    layOut(layout, std::max(width() - goWidth(), 1));
    painter.setPen(palette().color(QPalette::Text));
    layout.draw(&painter, QPointF(isRightToLeft ? goWidth() : 0, edge));
    QFont go = font();
    go.setWeight(QFont::Normal);
    go.setUnderline(underMouse() || hasFocus());
    painter.setFont(go);
    const Qt::Alignment end = isRightToLeft ? Qt::AlignLeft : Qt::AlignRight;
    painter.drawText(rect().adjusted(edge, edge, -edge, -edge), static_cast<int>(Qt::AlignTop | end), m_go);
    if (!hasFocus()) return;
    painter.setPen(QPen(palette().color(QPalette::Text), 1, Qt::DashLine));
    painter.drawRect(rect().adjusted(-edge, 0, edge, 0).intersected(rect()).adjusted(0, 0, -1, -1));
}

void LeadLine::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) return click();
    QAbstractButton::keyPressEvent(event);
}

void LeadLine::resizeEvent(QResizeEvent* event) {
    QAbstractButton::resizeEvent(event);
    if (height() != heightForWidth(width())) updateGeometry();
}

DomainText::DomainText(const DomainIdentity& identity, double scale, QWidget* parent)
    : PlainText({}, parent), m_points(font().pointSizeF() * scale) {
    const QString before = isolatedRuns(identity.before), registrable = isolatedRuns(identity.registrable);
    m_before = before.size();
    setFont(scaled(font(), scale, QFont::Bold));
    setContents(before + registrable);
    setAccessibleName(withoutIsolation(toPlainText()));
    format(m_points);
}

void DomainText::format(double points) {
    QFont sized = font();
    if (sized.pointSizeF() != points) {
        sized.setPointSizeF(points);
        setFont(sized);
    }
    QTextCursor cursor(document());
    cursor.setPosition(static_cast<int>(m_before), QTextCursor::KeepAnchor);
    QTextCharFormat dim;
    dim.setForeground(fadedText(palette()));
    dim.setFontWeight(QFont::Normal);
    cursor.mergeCharFormat(dim);
}

void DomainText::fit() {
    QFont full = font();
    full.setPointSizeF(m_points);
    const double needed = QFontMetricsF(full).horizontalAdvance(toPlainText()) + 2;
    format(m_points * std::clamp(width() / std::max(needed, 1.0), smallestDomain, 1.0));
}

void DomainText::resizeEvent(QResizeEvent* event) {
    fit();
    PlainText::resizeEvent(event);
}

BannerView::BannerView(const ReportContent& content, const Words& words, QWidget* parent)
    : Card({}, parent), m_content(content), m_words(words) {
    setObjectName(QStringLiteral("banner"));
    setAccessibleName(spoken());
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(1, 1, 1, 1);
    layout->setSpacing(0);
    layout->addWidget(head());
    if (m_content.decider) layout->addWidget(decider());
    if (!m_content.cautions.empty()) layout->addWidget(cautions());
    layout->addWidget(foot());
}

/// As one reads it: the verdict, what changes it, what to do.
QString BannerView::spoken() const {
    QStringList parts{toneWord(m_content.tone, m_words) + QStringLiteral(": ") + m_content.headline};
    if (m_content.decider) parts << m_content.decider->text;
    if (!m_content.lead.isEmpty()) parts << m_content.lead;
    for (const ReportLead& each : m_content.cautions) parts << each.text;
    parts << m_words("What to do: %1", m_content.whatToDo);
    return withoutIsolation(parts.join(QStringLiteral(". ")));
}

QWidget* BannerView::head() {
    auto* head = new QWidget;
    auto* across = new QHBoxLayout(head);
    const int line = fontMetrics().height();
    across->setContentsMargins(line, line, line, line);
    across->setSpacing(line);
    across->addWidget(new ToneBadge(m_content.tone, badgeLines, m_words), 0, Qt::AlignTop);
    auto* texts = new QVBoxLayout;
    texts->setSpacing(line / 3);
    across->addLayout(texts, 1);
    auto* headline = text(m_content.headline, 1.45, QFont::Bold);
    headline->setObjectName(QStringLiteral("headline"));
    headline->setColor(toneColor(m_content.tone, palette().color(QPalette::Base), palette()));
    texts->addWidget(headline);
    if (m_content.identity) {
        texts->addWidget(new DomainText(*m_content.identity, 1.7));
        if (!m_content.identity->letters.empty()) texts->addWidget(lettersText(*m_content.identity, m_words));
    }
    texts->addWidget(text(m_content.explanation));
    for (const ReportLine& each : m_content.remarks) texts->addLayout(noteLine(each, m_words));
    if (!m_content.known.isEmpty()) texts->addWidget(text(m_content.known));
    return head;
}

void BannerView::addLead(QBoxLayout* lines, const ReportLead& lead, bool isBold) {
    const QFont::Weight weight = isBold ? QFont::Bold : QFont::Normal;
    if (!lead.section) {
        lines->addWidget(text(lead.text, 1, weight));
        return;
    }
    auto* line = new LeadLine(lead.text, m_words("Show"));
    line->setFont(scaled(line->font(), 1, weight));
    connect(line, &QAbstractButton::clicked, this, [this, lead] { emit placeWanted(lead); });
    lines->addWidget(line);
}

namespace {

/// In line with the texts beside the verdict's symbol.
QBoxLayout* indented(QWidget* part) {
    auto* lines = new QVBoxLayout(part);
    const int line = part->fontMetrics().height();
    const int indent = 2 * line + static_cast<int>(std::lround(badgeLines * line));
    lines->setContentsMargins(indent, 2 * line / 3, line, 2 * line / 3);
    lines->setSpacing(line / 6);
    return lines;
}

}  // namespace

QWidget* BannerView::decider() {
    auto* band = new Band(Tone::bad);
    addLead(indented(band), *m_content.decider, true);
    return band;
}

QWidget* BannerView::cautions() {
    auto* band = new Band(Tone::caution);
    QBoxLayout* lines = indented(band);
    auto* lead = text(toneSymbol(Tone::caution) + u' ' + m_content.lead, 1.2, QFont::Bold);
    lead->setObjectName(QStringLiteral("lead"));
    lead->setColor(toneColor(Tone::caution, bandGround(Tone::caution, palette()), palette()));
    lines->addWidget(lead);
    const std::size_t all = m_content.cautions.size();
    const std::size_t shownOnes = all > mostLines ? mostLines - 1 : all;
    for (std::size_t i = 0; i < shownOnes; ++i) addLead(lines, m_content.cautions[i]);
    if (all == shownOnes) return band;
    ReportLead rest = m_content.cautions[shownOnes];  // the first of them is where it leads
    rest.text = m_words.translateCount("and %n more", "and %n more",
                                       static_cast<std::int64_t>(all - shownOnes + m_content.more));
    addLead(lines, rest);
    return band;
}

QWidget* BannerView::foot() {
    auto* foot = new QWidget;
    QBoxLayout* lines = indented(foot);
    const int line = fontMetrics().height();
    auto* what = new QHBoxLayout;
    what->setSpacing(line / 2);
    auto* label = new QLabel(m_words("What to do"));
    label->setFont(scaled(label->font(), 1.05, QFont::Bold));
    what->addWidget(label, 0, Qt::AlignTop);
    auto* whatToDo = text(m_content.whatToDo, 1.05);
    whatToDo->setObjectName(QStringLiteral("whatToDo"));
    what->addWidget(whatToDo, 1);
    lines->addLayout(what);
    auto* quiet = text(m_content.quiet.join(QStringLiteral(" · ")), 0.9);
    quiet->setColor(fadedText(palette()));
    lines->addSpacing(line / 3);
    lines->addWidget(quiet);
    m_recheck = new QPushButton(m_words("Re-check"));
    connect(m_recheck, &QPushButton::clicked, this, &BannerView::recheckWanted);
    lines->addWidget(m_recheck, 0, Qt::AlignLeft);
    offerRecheck(false);
    return foot;
}

void BannerView::offerRecheck(bool isPossible) {
    m_recheck->setVisible(isPossible && m_content.hasFailedLookup);
}

}  // namespace quillmark
