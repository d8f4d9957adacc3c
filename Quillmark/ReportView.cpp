#include "Quillmark/ReportView.h"

#include <QApplication>
#include <QBoxLayout>
#include <QEvent>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QToolButton>
#include <algorithm>

#include "Quillmark/BannerView.h"
#include "Quillmark/Explanation.h"
#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"
#include "Quillmark/WayPicture.h"

namespace quillmark {

namespace {

constexpr std::size_t firstAtOnce = 48, builtAtOnce = 8;  // findings and the like
constexpr int widestName = 24;                            // characters
constexpr int leastHeight = 32;                           // lines: in less the banner is compact

/// Has a button show its explanation where `place` puts it; made when it is first asked for.
void explainBelow(ExplainButton* button, QWidget* owner, std::function<void(QWidget*)> place) {
    QObject::connect(
        button, &QToolButton::toggled, owner,
        [button, place = std::move(place), explanation = static_cast<QWidget*>(nullptr)](bool open) mutable {
            if (!explanation) {
                place(explanation = button->explanation());
                orderAfter(button, explanation);
            }
            explanation->setVisible(open);
        });
}

/// Names in one column, values in the other; what explains a name opens below it.
QWidget* factGrid(const std::vector<ReportFact>& facts, const Words& words) {
    auto* grid = new QWidget;
    auto* layout = new QGridLayout(grid);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setColumnStretch(0, 1);
    layout->setColumnStretch(1, 2);
    int row = 0;
    for (const ReportFact& fact : facts) {
        auto* name = new PlainText(fact.name);
        name->setFont(scaled(name->font(), 1.0, QFont::DemiBold));
        name->setMaximumWidth(widestName * name->fontMetrics().averageCharWidth());
        auto* value = new PlainText(fact.value);
        value->setAccessibleName(fact.name);
        layout->addWidget(value, row, 1);
        if (fact.entry) {
            auto* named = new QHBoxLayout;
            auto* explain = new ExplainButton(fact.name, *fact.entry, {}, words);
            named->addWidget(name, 1);
            named->addWidget(explain, 0, Qt::AlignTop);
            layout->addLayout(named, row, 0);
            explainBelow(explain, grid, [layout, row](QWidget* explanation) {
                layout->addWidget(explanation, row + 1, 0, 1, 2);
            });
        } else {
            layout->addWidget(name, row, 0);
        }
        row += 2;
    }
    return grid;
}

QWidget* factPanel(const ReportSection& section, const Words& words) {
    auto* panel = new Card;
    QStringList all;
    for (const ReportFact& fact : section.facts) all << fact.name + QStringLiteral(": ") + fact.value;
    panel->setAccessibleName(section.heading + QStringLiteral(". ") + all.join(QStringLiteral(". ")));
    auto* inside = new QVBoxLayout(panel);
    inside->addWidget(factGrid(section.facts, words));
    return panel;
}

/// What a screen reader says of a finding without its details.
QString spoken(const ReportRow& row, const Words& words) {
    QStringList parts;
    if (row.tone) parts << toneWord(*row.tone, words);
    parts << row.label << row.aside << row.sentence;
    for (const ReportLine& note : row.notes) parts << note.text;
    parts.removeAll(QString());
    return parts.join(QStringLiteral(". "));
}

}  // namespace

ReportView::ReportView(const Words& words, QWidget* parent) : Scroller(parent), m_words(words) {
    setAccessibleName(m_words("Report"));
    setFocusPolicy(Qt::ClickFocus);  // its parts are stops
    m_next.setSingleShot(true);
    connect(&m_next, &QTimer::timeout, this, &ReportView::goOn);
}

void ReportView::setContent(const ReportContent& content) {
    m_content = content;
    rebuild();
    verticalScrollBar()->setValue(0);
}

QString ReportView::spokenVerdict() const { return m_banner ? m_banner->accessibleName() : QString(); }

void ReportView::focusVerdict() {
    if (m_banner) m_banner->setFocus(Qt::OtherFocusReason);
}

void ReportView::expandAll(bool expanded) {
    m_unfolded = 0;
    m_unfolding = expanded;
    m_next.start(0);
}

void ReportView::goOn() {
    for (std::size_t i = 0; i < builtAtOnce && !m_unbuilt.empty(); ++i) {
        m_unbuilt.front()();
        m_unbuilt.pop_front();
    }
    if (m_unbuilt.empty() && m_unfolding && m_unfolded < m_disclosures.size())
        m_disclosures[m_unfolded++]->setChecked(*m_unfolding);
    if (!m_unbuilt.empty() || (m_unfolding && m_unfolded < m_disclosures.size())) m_next.start(0);
}

void ReportView::offerRecheck(bool isPossible) {
    m_offersRecheck = isPossible;
    if (m_banner) m_banner->offerRecheck(isPossible);
}

void ReportView::setExpectation(const std::optional<ReportExpectation>& expectation) {
    m_content.expectation = expectation;
    if (!m_banner) return;
    m_banner->setExpectation(expectation);
    // The answer has its height only once each layout above it has asked the next.
    QTimer::singleShot(0, m_banner, [this] {
        QApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
        ensureWidgetVisible(m_banner->expectation());
    });
}

void ReportView::suggestExpectations(const QStringList& domains) {
    if (m_banner) m_banner->suggest(domains);
}

void ReportView::askForExpectation() {
    if (!m_banner) return;
    ensureWidgetVisible(m_banner->expectation());
    m_banner->expectationField()->setFocus(Qt::ShortcutFocusReason);
    m_banner->expectationField()->selectAll();
}

void ReportView::changeEvent(QEvent* event) {
    Scroller::changeEvent(event);
    const bool looks = event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange;
    if (looks && widget() && !m_isBuilding) rebuild();
}

void ReportView::resizeEvent(QResizeEvent* event) {
    Scroller::resizeEvent(event);
    if (m_banner) m_banner->setCompact(viewport()->height() < leastHeight * fontMetrics().height());
}

void ReportView::rebuild() {
    m_isBuilding = true;
    const QWidget* focus = window()->focusWidget();  // also of a window that isn't the active one
    const bool hasKeyboard = focus == this || (widget() && widget()->isAncestorOf(focus));
    const QString focused = hasKeyboard ? focus->accessibleName() : QString();
    m_unbuilt.clear();
    m_disclosures.clear();
    m_places.clear();
    m_unfolding = std::nullopt;
    auto* page = new QWidget;
    QBoxLayout* layout = columnOf(*page);
    m_banner = new BannerView(m_content, m_words);
    connect(m_banner, &BannerView::recheckWanted, this, &ReportView::recheckWanted);
    connect(m_banner, &BannerView::comparisonWanted, this, [this] { emit comparisonWanted(0); });
    connect(m_banner, &BannerView::placeWanted, this, &ReportView::goTo);
    connect(m_banner, &BannerView::expectationChanged, this, &ReportView::expectationChanged);
    connect(m_banner, &BannerView::suggestionsWanted, this, &ReportView::expectationsWanted);
    offerRecheck(m_offersRecheck);
    m_banner->setCompact(viewport()->height() < leastHeight * fontMetrics().height());
    layout->addWidget(m_banner);
    for (const ReportSection& each : m_content.sections) plan(each, layout);
    layout->addStretch(1);
    for (std::size_t i = 0; i < firstAtOnce / builtAtOnce; ++i) goOn();
    setWidget(page);
    if (hasKeyboard) focusAgain(focused);
    m_isBuilding = false;
    emit contentChanged();
}

// What had the keyboard is made anew, or is no longer there.
void ReportView::focusAgain(const QString& name) {
    while (!m_unbuilt.empty()) goOn();
    const auto parts = widget()->findChildren<QWidget*>();
    const auto same = std::ranges::find_if(parts, [&](const QWidget* each) {
        return (each->focusPolicy() & Qt::TabFocus) && !each->isHidden() && each->accessibleName() == name;
    });
    giveKeyboard(same == parts.end() ? m_banner : *same);
}

void ReportView::giveKeyboard(QWidget* place) {
    place->setFocus(Qt::OtherFocusReason);
    // What was only just built has no place yet.
    QTimer::singleShot(0, place, [this, place] { ensureWidgetVisible(place, 0, fontMetrics().height()); });
}

void ReportView::goTo(const ReportLead& lead) {
    while (!m_unbuilt.empty()) goOn();
    if (!lead.section) return;
    auto found = m_places.find({*lead.section, lead.note, lead.row});
    if (found == m_places.end()) found = m_places.find({*lead.section, {}, {}});
    if (found == m_places.end()) return;
    QWidget* place = found->second;
    if (!dynamic_cast<Card*>(place)) {  // a part as a whole: what it begins with
        // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): no place is null
        const auto inside = place->findChildren<QWidget*>();
        const auto first =
            std::ranges::find_if(inside, [](QWidget* each) { return dynamic_cast<Card*>(each); });
        if (first != inside.end()) place = *first;
    }
    giveKeyboard(place);
}

void ReportView::plan(const ReportSection& section, QBoxLayout* page) {
    auto* box = new QWidget;
    box->hide();  // until there is something in it
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* steps = new QWidget;
    auto *rows = new QVBoxLayout, *chain = new QVBoxLayout(steps), *end = new QVBoxLayout;
    chain->setSpacing(0);
    chain->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(rows);
    layout->addWidget(steps);
    layout->addLayout(end);
    page->addWidget(box);
    if (section.part) m_places[{*section.part, {}, {}}] = box;
    m_unbuilt.push_back([=, this, &section] {
        box->show();
        addHeading(section, rows, box);
        if (!section.facts.empty()) rows->addWidget(factPanel(section, m_words));
        if (!section.way) return;
        auto* card = new Card;
        auto* inside = new QVBoxLayout(card);
        auto* picture = new WayView(*section.way, m_words);
        inside->addWidget(picture);
        card->setAccessibleName(picture->accessibleName());
        rows->addWidget(card);
        if (section.chain.empty()) return;
        steps->hide();
        QToolButton* lines = disclosure(m_words("Step by step"), m_words("The way it came, step by step"));
        connect(lines, &QToolButton::toggled, steps, &QWidget::setVisible);
        rows->addWidget(lines, 0, Qt::AlignLeft);
    });
    for (const ReportRow& each : section.rows) {
        m_unbuilt.push_back([=, this, &each, &section] {
            QWidget* made = row(each);
            rows->addWidget(made);
            const auto place = static_cast<std::size_t>(&each - section.rows.data());
            if (section.part) m_places[{*section.part, {}, place}] = made;
        });
    }
    for (const ReportRow& each : section.chain) {
        const bool isFirst = &each == &section.chain.front(), isLast = &each == &section.chain.back();
        m_unbuilt.push_back([=, this, &each] { chain->addLayout(step(each, isFirst, isLast)); });
    }
    m_unbuilt.push_back([=, this, &section] {
        for (const ReportLine& each : section.notes) {
            if (each.tone && each.note && section.part) {
                auto* card = new Card;
                card->setAccessibleName(toneWord(*each.tone, m_words) + QStringLiteral(": ") + each.text);
                card->setLayout(note(each));
                end->addWidget(card);
                m_places[{*section.part, each.note, {}}] = card;
            } else {
                end->addLayout(note(each));
            }
        }
        for (const QString& remark : section.remarks) end->addWidget(new PlainText(remark));
    });
}

void ReportView::addHeading(const ReportSection& section, QBoxLayout* rows, QWidget* box) {
    QLabel* label = sectionHeading(section.heading);
    if (!section.entry) return rows->addWidget(label);
    auto* line = new QHBoxLayout;
    auto* explain = new ExplainButton(section.heading, *section.entry, section.raw, m_words);
    line->addWidget(label);
    line->addWidget(explain, 0, Qt::AlignBottom);
    line->addStretch(1);
    rows->addLayout(line);
    explainBelow(explain, box, [rows](QWidget* explanation) { rows->insertWidget(1, explanation); });
}

QToolButton* ReportView::disclosure(const QString& text, const QString& accessibleName) {
    QToolButton* made = disclosureButton(text, accessibleName);
    m_disclosures.push_back(made);
    return made;
}

QLayout* ReportView::step(const ReportRow& content, bool isFirst, bool isLast) {
    auto* step = new QHBoxLayout;
    step->addWidget(new ChainMark(isFirst, isLast));
    auto* beside = new QVBoxLayout;
    beside->setContentsMargins(0, 0, 0, fontMetrics().height() / 3);
    beside->addWidget(row(content));
    step->addLayout(beside, 1);
    return step;
}

QLayout* ReportView::note(const ReportLine& note) {
    if (!note.undone) return noteLine(note, m_words);
    auto* line = new QHBoxLayout;
    line->addWidget(new ToneBadge(note.tone.value_or(Tone::unknown), 1.1, m_words), 0, Qt::AlignTop);
    auto* texts = new QVBoxLayout;
    texts->addWidget(new PlainText(note.text));
    texts->addLayout(comparison(*note.undone));
    line->addLayout(texts, 1);
    return line;
}

QLayout* ReportView::comparison(std::size_t undone) {
    auto* row = new QHBoxLayout;
    auto* button = new Button(m_words("Compare…"));
    button->setObjectName(QStringLiteral("compare"));
    button->setAccessibleName(m_words("Compare what is shown with what was signed"));
    connect(button, &QPushButton::clicked, this, [this, undone] { emit comparisonWanted(undone); });
    row->addWidget(button, 0, Qt::AlignTop);
    if (m_content.hasMessage) {
        row->addStretch(1);
        return row;
    }
    const QString why = m_words("Open the file again to see this.");
    button->setEnabled(false);
    button->setToolTip(why);
    button->setAccessibleDescription(why);
    row->addWidget(new PlainText(why), 1, Qt::AlignVCenter);
    return row;
}

QWidget* ReportView::row(const ReportRow& row) {
    auto* panel = new Card;
    panel->setAccessibleName(spoken(row, m_words));
    auto* layout = new QVBoxLayout(panel);
    QHBoxLayout* top = nullptr;
    if (!row.label.isEmpty() || !row.details.empty()) layout->addLayout(top = new QHBoxLayout);
    if (top && row.tone) {
        top->addWidget(new Chip(*row.tone, row.label, m_words), 0, Qt::AlignTop);
        if (row.aside.isEmpty()) {
            top->addStretch(1);
        } else {
            auto* aside = new PlainText(row.aside);
            aside->setFont(scaled(aside->font(), 0.9, QFont::Normal));
            aside->setColor(fadedText(palette()));
            // It is worth less than what stands on both sides, which is long in some languages.
            aside->setMinimumWidth(5 * aside->fontMetrics().averageCharWidth());
            top->addWidget(aside, 1, Qt::AlignVCenter);
        }
    } else if (top && !row.label.isEmpty()) {
        auto* label = new PlainText(row.label);
        label->setFont(scaled(label->font(), 1.0, QFont::DemiBold));
        top->addWidget(label, 1);
    }
    if (!row.sentence.isEmpty()) layout->addWidget(new PlainText(row.sentence));
    for (const ReportLine& each : row.notes) layout->addLayout(note(each));
    if (!top || row.details.empty()) return panel;

    QToolButton* more = disclosure(m_words("Details"), m_words("Details: %1", row.label));
    top->addWidget(more, 0, Qt::AlignTop);
    // Made when they are first asked for: most never are.
    connect(more, &QToolButton::toggled, panel,
            [more, column = layout, details = row.details, words = m_words,
             grid = static_cast<QWidget*>(nullptr)](bool open) mutable {
                if (!grid) {
                    column->addWidget(grid = factGrid(details, words));
                    orderAfter(more, grid);
                }
                grid->setVisible(open);
            });
    return panel;
}

}  // namespace quillmark
