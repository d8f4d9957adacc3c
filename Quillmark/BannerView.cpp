#include "Quillmark/BannerView.h"

#include <QAccessible>
#include <QApplication>
#include <QBoxLayout>
#include <QCompleter>
#include <QGridLayout>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPainter>
#include <QStyleOptionFocusRect>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextLayout>
#include <algorithm>
#include <cmath>
#include <utility>

namespace quillmark {

namespace {

constexpr double badgeLines = 2.5;  // the height of the verdict's symbol
// Of the cautions: the others are one line, lest they hide what to do.
constexpr std::size_t mostLines = 4, mostCompactLines = 3;
constexpr double headlineScale = 1.45, compactHeadlineScale = 1.2;
constexpr double smallestDomain = 0.6;  // of its size

PlainText* text(const QString& contents, double scale = 1, QFont::Weight weight = QFont::Normal) {
    auto* made = new PlainText(contents);
    made->setFont(scaled(made->font(), scale, weight));
    return made;
}

QString textOf(const std::vector<DomainIdentity::Letters>& letters) {
    QString all;
    for (const DomainIdentity::Letters& each : letters) all += isolatedRuns(each.text);
    return all;
}

/// Marks the odd ones of letters that stand in a text, at its end if it has them twice.
void markOdd(PlainText& text, const std::vector<DomainIdentity::Letters>& letters) {
    auto at = static_cast<int>(text.toPlainText().lastIndexOf(textOf(letters)));
    QTextCharFormat odd;
    odd.setFontWeight(QFont::Bold);
    odd.setBackground(bandGround(Tone::caution, text.palette()));
    odd.setForeground(toneColor(Tone::caution, bandGround(Tone::caution, text.palette()), text.palette()));
    odd.setUnderlineStyle(QTextCharFormat::SingleUnderline);
    for (const DomainIdentity::Letters& each : letters) {
        QTextCursor cursor(text.document());
        cursor.setPosition(at);
        at += static_cast<int>(isolatedRuns(each.text).size());
        cursor.setPosition(at, QTextCursor::KeepAnchor);
        if (each.areOdd) cursor.mergeCharFormat(odd);
    }
}

/// How programs show an international domain, with the letters marked that aren't what they seem.
PlainText* lettersText(const DomainIdentity& identity, const Words& words) {
    auto* made = text(words("Some programs show it as %1", textOf(identity.letters)));
    markOdd(*made, identity.letters);
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
    painter.drawText(rect().adjusted(edge, edge, -edge, -edge),
                     static_cast<int>(Qt::AlignTop | Qt::AlignAbsolute | end), m_go);
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
    if (QGuiApplication::isRightToLeft()) {
        QTextOption option = document()->defaultTextOption();
        option.setTextDirection(Qt::LeftToRight);
        option.setAlignment(Qt::AlignRight | Qt::AlignAbsolute);
        document()->setDefaultTextOption(option);
    }
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
    // Letters of a smaller size are not smaller by as much.
    constexpr double step = 0.97;
    double part = 1;
    while (part > smallestDomain && QFontMetricsF(full).horizontalAdvance(toPlainText()) + 2 > width()) {
        part *= step;
        full.setPointSizeF(m_points * part);
    }
    format(m_points * part);
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
    layout->addWidget(buildExpectation());
    layout->addWidget(quiet());
}

/// As one reads it: the verdict, what changes it, what to do.
QString BannerView::spoken() const {
    QStringList parts{toneWord(m_content.tone, m_words) + QStringLiteral(": ") + m_content.headline};
    if (m_content.decider) parts << m_content.decider->text;
    if (!m_content.lead.isEmpty()) parts << m_content.lead;
    for (const ReportLead& each : m_content.cautions) parts << each.text;
    const auto& expectation = m_content.expectation;
    const bool isOther = expectation && !expectation->answer.whatToDo.empty();
    parts << m_words("What to do: %1",
                     isOther ? m_words.sentence(expectation->answer.whatToDo) : m_content.whatToDo);
    if (expectation) parts << m_words.sentence(expectation->answer.text);
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
    m_headTexts = texts;
    m_headline = text(m_content.headline, headlineScale, QFont::Bold);
    m_headline->setObjectName(QStringLiteral("headline"));
    m_headline->setColor(toneColor(m_content.tone, palette().color(QPalette::Base), palette()));
    texts->addWidget(m_headline);
    if (m_content.identity) {
        texts->addWidget(new DomainText(*m_content.identity, 1.7));
        if (!m_content.identity->letters.empty()) texts->addWidget(lettersText(*m_content.identity, m_words));
    }
    texts->addWidget(m_meaning = meaning());
    return head;
}

QWidget* BannerView::meaning() {
    auto* meaning = new QWidget;
    auto* texts = new QVBoxLayout(meaning);
    texts->setContentsMargins(0, 0, 0, 0);
    texts->setSpacing(fontMetrics().height() / 3);
    texts->addWidget(text(m_content.explanation));
    for (const ReportLine& each : m_content.remarks) texts->addLayout(noteLine(each, m_words));
    if (!m_content.known.isEmpty()) texts->addWidget(text(m_content.known));
    return meaning;
}

void BannerView::setCompact(bool isCompact) {
    const bool isBelow = m_footLines->indexOf(m_meaning) >= 0;
    if (isCompact == isBelow) return;
    (isBelow ? m_footLines : m_headTexts)->removeWidget(m_meaning);
    m_meaning->setContentsMargins(0, isCompact ? fontMetrics().height() / 2 : 0, 0, 0);
    if (isCompact) {
        m_footLines->addWidget(m_meaning);  // below what to do
    } else {
        m_headTexts->addWidget(m_meaning);
    }
    m_headline->setFont(scaled(font(), isCompact ? compactHeadlineScale : headlineScale, QFont::Bold));
    for (QWidget* each : m_ample) each->setHidden(isCompact);
    for (QWidget* each : m_compact) each->setVisible(isCompact);
}

void Band::setTone(std::optional<Tone> tone) {
    m_tone = tone;
    update();
}

void Band::paintEvent(QPaintEvent*) {
    if (!m_tone) return;
    QPainter painter(this);
    const QColor ground = bandGround(*m_tone, palette());
    painter.fillRect(rect(), ground);
    painter.setPen(toneColor(*m_tone, ground, palette()));
    painter.drawLine(0, 0, width(), 0);
    painter.drawLine(0, height() - 1, width(), height() - 1);
}

QWidget* BannerView::addLead(QBoxLayout* lines, const ReportLead& lead, bool isBold) {
    const QFont::Weight weight = isBold ? QFont::Bold : QFont::Normal;
    if (!lead.section) {
        auto* plain = text(lead.text, 1, weight);
        lines->addWidget(plain);
        return plain;
    }
    auto* line = new LeadLine(lead.text, m_words("Show"));
    line->setFont(scaled(line->font(), 1, weight));
    connect(line, &QAbstractButton::clicked, this, [this, lead] { emit placeWanted(lead); });
    lines->addWidget(line);
    return line;
}

namespace {

/// Whether a broken signature does, once changes are taken back.
bool holdsAgain(const ReportContent& content) {
    return std::ranges::any_of(content.sections, [](const ReportSection& section) {
        return std::ranges::any_of(section.notes,
                                   [](const ReportLine& note) { return note.undone.has_value(); });
    });
}

/// In line with the texts beside the verdict's symbol.
QBoxLayout* indented(QWidget* part) {
    auto* lines = new QVBoxLayout(part);
    const int line = part->fontMetrics().height();
    const int indent = 2 * line + static_cast<int>(std::lround(badgeLines * line));
    const QMargins margins(indent, 2 * line / 3, line, 2 * line / 3);
    lines->setContentsMargins(inDirection(margins, *part));
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
    const auto shownOf = [all](std::size_t most) { return all > most ? most - 1 : all; };
    for (std::size_t i = 0; i < shownOf(mostLines); ++i) {
        QWidget* line = addLead(lines, m_content.cautions[i]);
        if (i >= shownOf(mostCompactLines)) m_ample.push_back(line);
    }
    for (const auto& [most, only] :
         {std::pair(mostLines, &m_ample), std::pair(mostCompactLines, &m_compact)}) {
        const std::size_t shownOnes = shownOf(most);
        if (all == shownOnes) continue;
        ReportLead rest = m_content.cautions[shownOnes];  // the first of them is where it leads
        rest.text = m_words.translateCount("and %n more", "and %n more",
                                           static_cast<std::int64_t>(all - shownOnes + m_content.more));
        only->push_back(addLead(lines, rest));
    }
    for (QWidget* each : m_compact) each->hide();
    return band;
}

QWidget* BannerView::foot() {
    auto* foot = new QWidget;
    QBoxLayout* lines = m_footLines = indented(foot);
    const int line = fontMetrics().height();
    auto* what = new QHBoxLayout;
    what->setSpacing(line / 2);
    auto* label = new QLabel(m_words("What to do"));
    label->setFont(scaled(label->font(), 1.05, QFont::Bold));
    what->addWidget(label, 0, Qt::AlignTop);
    m_whatToDo = text(m_content.whatToDo, 1.05);
    m_whatToDo->setObjectName(QStringLiteral("whatToDo"));
    what->addWidget(m_whatToDo, 1);
    lines->addLayout(what);
    m_recheck = new QPushButton(m_words("Re-check"));
    connect(m_recheck, &QPushButton::clicked, this, &BannerView::recheckWanted);
    lines->addWidget(m_recheck, 0, Qt::AlignLeft);
    offerRecheck(false);
    if (!m_content.hasMessage || !holdsAgain(m_content)) return foot;
    auto* compare = new Button(m_words("Compare…"));
    compare->setAccessibleName(m_words("Compare what is shown with what was signed"));
    connect(compare, &QPushButton::clicked, this, &BannerView::comparisonWanted);
    lines->addWidget(compare, 0, Qt::AlignLeft);
    return foot;
}

QWidget* BannerView::buildExpectation() {
    m_expectation = new Band({});
    QBoxLayout* lines = indented(m_expectation);
    auto* row = new QHBoxLayout;
    auto* label = new QLabel(m_words("I e&xpected"));
    m_field = new QLineEdit;
    m_field->setObjectName(QStringLiteral("expected"));
    m_field->setAccessibleName(m_words("The domain or address that you expected"));
    m_field->setPlaceholderText(m_words("the domain or address it should be from"));
    m_field->setMaxLength(longestLabel);
    m_field->setClearButtonEnabled(true);
    m_field->installEventFilter(this);
    label->setBuddy(m_field);
    if (m_content.expectation) m_field->setText(m_content.expectation->typed);
    connect(m_field, &QLineEdit::editingFinished, this, &BannerView::submitExpectation);
    row->setSpacing(fontMetrics().height() / 2);
    row->addWidget(label);
    row->addWidget(m_field, 1);
    lines->addLayout(row);
    showAnswer();
    return m_expectation;
}

void BannerView::submitExpectation() {
    const QString typed = m_field->text().trimmed();
    const QString before = m_content.expectation ? m_content.expectation->typed : QString();
    if (typed != before) emit expectationChanged(typed);
}

bool BannerView::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::FocusIn && !m_field->completer()) emit suggestionsWanted();
    return Card::eventFilter(watched, event);
}

void BannerView::suggest(const QStringList& domains) {
    auto* completer = new QCompleter(domains, m_field);
    completer->setCaseSensitivity(Qt::CaseInsensitive);
    completer->setFilterMode(Qt::MatchContains);
    m_field->setCompleter(completer);
    // The field has the text only afterwards.
    connect(completer, qOverload<const QString&>(&QCompleter::activated), this,
            &BannerView::submitExpectation, Qt::QueuedConnection);
}

void BannerView::setExpectation(const std::optional<ReportExpectation>& expectation) {
    m_content.expectation = expectation;
    showAnswer();
    setAccessibleName(spoken());
    const QString answer =
        expectation ? withoutIsolation(m_words.sentence(expectation->answer.text)) : QString();
    m_field->setAccessibleDescription(answer);
    QAccessibleEvent changed(m_field, QAccessible::DescriptionChanged);
    QAccessible::updateAccessibility(&changed);
}

void BannerView::showAnswer() {
    delete std::exchange(m_answer, nullptr);
    const auto& expectation = m_content.expectation;
    const QString other = expectation ? m_words.sentence(expectation->answer.whatToDo) : QString();
    m_whatToDo->setContents(other.isEmpty() ? m_content.whatToDo : other);
    m_expectation->setTone(expectation ? std::optional(expectation->answer.tone) : std::nullopt);
    if (!expectation) return;
    const ExpectedAnswer& answer = expectation->answer;
    m_answer = new QWidget;
    auto* across = new QHBoxLayout(m_answer);
    across->setContentsMargins(0, fontMetrics().height() / 3, 0, 0);
    across->addWidget(new ToneBadge(answer.tone, 1.5, m_words), 0, Qt::AlignTop);
    auto* texts = new QVBoxLayout;
    across->addLayout(texts, 1);
    auto* said = text(m_words.sentence(answer.text), 1.1, QFont::DemiBold);
    said->setObjectName(QStringLiteral("answer"));
    texts->addWidget(said);
    if (!answer.found.empty()) {
        auto* grid = new QGridLayout;
        const std::pair<QString, const ExpectedAnswer::Letters*> rows[] = {
            {m_words("expected"), &answer.expected}, {m_words("this one"), &answer.found}};
        for (int i = 0; const auto& [name, letters] : rows) {
            auto* domain = text(textOf(*letters), 1.2);
            domain->setAccessibleName(name);
            markOdd(*domain, *letters);
            grid->addWidget(new QLabel(name), i, 0);
            grid->addWidget(domain, i++, 1);
        }
        texts->addLayout(grid);
    }
    m_expectation->layout()->addWidget(m_answer);
}

QWidget* BannerView::quiet() {
    auto* part = new QWidget;
    auto* quiet = text(m_content.quiet.join(QStringLiteral(" · ")), 0.9);
    quiet->setColor(fadedText(palette()));
    indented(part)->addWidget(quiet);
    return part;
}

void BannerView::offerRecheck(bool isPossible) {
    m_recheck->setVisible(isPossible && m_content.hasFailedLookup);
}

}  // namespace quillmark
