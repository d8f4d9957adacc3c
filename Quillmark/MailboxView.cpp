#include "Quillmark/MailboxView.h"

#include <QBoxLayout>
#include <QElapsedTimer>
#include <QEvent>
#include <QScrollBar>
#include <algorithm>

#include "Quillmark/BannerView.h"
#include "Quillmark/Panels.h"
#include "Quillmark/ToneBars.h"
#include "Wording/NoteSentences.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr qint64 countedAtOnce = 8;     // milliseconds
constexpr std::size_t worstShown = 10;  // messages
constexpr std::size_t domainsShown = 12, yearsShown = 15;
constexpr std::size_t longestSubject = 200;  // bytes

}  // namespace

MailboxView::MailboxView(const Words& words, QWidget* parent) : Scroller(parent), m_words(words) {
    setAccessibleName(m_words("Several messages"));
    setFocusPolicy(Qt::ClickFocus);  // its parts are stops
    m_next.setSingleShot(true);
    connect(&m_next, &QTimer::timeout, this, &MailboxView::goOn);
}

void MailboxView::setContent(MailboxContent content) {
    if (m_next.isActive() && m_content.title == content.title) {  // else one that grows were never shown
        m_waiting = std::move(content);
        return;
    }
    m_waiting.reset();
    m_content = std::move(content);
    m_counted = 0;
    m_totals = {};
    m_seen.clear();
    m_next.start(0);
}

void MailboxView::goOn() {
    QElapsedTimer taken;
    taken.start();
    while (m_counted < m_content.reports.size() && taken.elapsed() < countedAtOnce) {
        const Counted counted = countedOf(*m_content.reports[m_counted]);
        m_totals.add(counted);
        if (counted.tone != Tone::good || counted.hasCautions)
            m_seen.push_back({m_counted, counted.hasCautions});
        ++m_counted;
    }
    if (m_counted < m_content.reports.size()) return m_next.start(0);
    rebuild();
    if (!m_content.isGrowing) emit counted(m_head->accessibleName());
    if (auto waiting = std::exchange(m_waiting, {})) setContent(std::move(*waiting));
}

void MailboxView::focusHead() {
    m_head ? m_head->setFocus(Qt::OtherFocusReason) : setFocus(Qt::OtherFocusReason);
}

void MailboxView::changeEvent(QEvent* event) {
    Scroller::changeEvent(event);
    const bool looks = event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange;
    if (looks && widget() && !m_isBuilding && isComplete()) rebuild();
}

/// Warning signs weigh most, since they are about this one message; then how little is proven.
bool MailboxView::isWorse(const Seen& a, const Seen& b) const {
    const auto key = [&](const Seen& seen) {
        const ProofReport& report = *m_content.reports[seen.place];
        const auto proof = std::ranges::find(tonesByProof, report.verdict.tone) - tonesByProof.begin();
        return std::tuple(report.flags.size(), seen.hasCautions, proof, report.checkedAt);
    };
    return key(b) < key(a);
}

void MailboxView::rebuild() {
    m_isBuilding = true;
    const int place = verticalScrollBar()->value();
    const QWidget* focus = window()->focusWidget();  // also of a window that isn't the active one
    const bool hasKeyboard = focus == this || (widget() && widget()->isAncestorOf(focus));
    const QString focused = hasKeyboard ? focus->objectName() : QString();
    auto* page = new QWidget;
    QBoxLayout* layout = columnOf(*page);
    layout->addWidget(m_head = head());
    if (!m_seen.empty()) {
        layout->addWidget(sectionHeading(m_words("Look at these first")));
        layout->addWidget(worst());
    }
    const std::pair<QString, std::vector<TotalsRow>> pictures[] = {
        {m_words("By year"), yearRows(m_totals, yearsShown, m_words.reader)},
        {m_words("By signing domain"), domainRows(m_totals, domainsShown, m_words.reader)},
    };
    for (const auto& [heading, rows] : pictures) {
        if (rows.empty()) continue;
        layout->addWidget(sectionHeading(heading));
        layout->addWidget(bars(heading, rows));
    }
    layout->addStretch(1);
    setWidget(page);
    verticalScrollBar()->setValue(place);
    if (hasKeyboard) {
        QWidget* same = focused.isEmpty() ? nullptr : page->findChild<QWidget*>(focused);
        (same ? same : m_head)->setFocus();
    }
    m_isBuilding = false;
}

QWidget* MailboxView::head() {
    auto* card = new Card;
    card->setObjectName(QStringLiteral("mailbox"));
    auto* layout = new QVBoxLayout(card);
    const int line = fontMetrics().height();
    layout->setContentsMargins(line, line, line, line);
    layout->setSpacing(line / 3);
    auto* title = new PlainText(m_content.title);
    title->setFont(scaled(title->font(), 1.45, QFont::Bold));
    layout->addWidget(title);
    QStringList spoken{m_content.title};
    if (!m_content.state.isEmpty()) {
        layout->addWidget(new PlainText(m_content.state));
        spoken << (m_content.state.endsWith(u'.') ? m_content.state.chopped(1) : m_content.state);
    }
    layout->addSpacing(line / 3);
    const auto number = [&](std::int64_t count) {
        return QString::fromStdString(m_words.reader.number(count));
    };
    for (const Tone tone : tonesByProof) {
        const std::int64_t count = m_totals.all.of(tone);
        if (count == 0) continue;
        const QString text = m_words("%1: %2", toneWord(tone, m_words), number(count));
        spoken << text;
        auto* row = new QHBoxLayout;
        row->addWidget(new ToneBadge(tone, 1.3, m_words), 0, Qt::AlignTop);
        auto* lead = new LeadLine(text, m_words("Show"));
        lead->setObjectName(QStringLiteral("tone") + toneSymbol(tone));
        lead->setAccessibleName(m_words("Show only “%1”: %2", toneWord(tone, m_words), number(count)));
        connect(lead, &QAbstractButton::clicked, this, [this, tone] { emit tonesWanted({tone}); });
        row->addWidget(lead, 1);
        layout->addLayout(row);
    }
    if (m_totals.all.withCautions > 0) {
        const QString text =
            m_words("Of these, with a caution beside the verdict: %1", number(m_totals.all.withCautions));
        spoken << text;
        layout->addWidget(new PlainText(text));
    }
    card->setAccessibleName(withoutIsolation(spoken.join(QStringLiteral(". "))));
    return card;
}

QWidget* MailboxView::worst() {
    const std::size_t count = std::min(m_seen.size(), worstShown);
    std::ranges::partial_sort(m_seen, m_seen.begin() + static_cast<std::ptrdiff_t>(count),
                              [this](const Seen& a, const Seen& b) { return isWorse(a, b); });
    auto* card = new Card;
    card->setFocusPolicy(Qt::NoFocus);  // its lines are stops
    auto* layout = new QVBoxLayout(card);
    for (std::size_t i = 0; i < count; ++i) {
        const ProofReport& report = *m_content.reports[m_seen[i].place];
        const Tone tone = report.verdict.tone;
        QStringList parts{report.summary.subject.empty() ? m_words("(no subject)")
                                                         : shown(report.summary.subject, longestSubject)};
        const std::string& domain =
            report.verdict.fromDomain.empty() ? report.verdict.domain : report.verdict.fromDomain;
        if (!domain.empty()) parts << shownDomain(domain);
        if (!report.flags.empty()) {
            parts << m_words.translateCount("%n warning sign", "%n warning signs",
                                            static_cast<std::int64_t>(report.flags.size()));
        } else if (m_seen[i].hasCautions && tone != Tone::caution) {
            parts << m_words("with a caution");
        }
        auto* row = new QHBoxLayout;
        // A tick alone would speak against looking at it.
        const bool isNoTick = tone == Tone::good && m_seen[i].hasCautions;
        row->addWidget(new ToneBadge(isNoTick ? Tone::caution : tone, 1.3, m_words), 0, Qt::AlignTop);
        auto* lead = new LeadLine(parts.join(QStringLiteral(" · ")), m_words("Show"));
        lead->setObjectName(QString::fromStdString(report.id.text()));
        lead->setAccessibleName(toneWord(tone, m_words) + QStringLiteral(": ") +
                                withoutIsolation(parts.join(QStringLiteral(", "))));
        connect(lead, &QAbstractButton::clicked, this, [this, id = report.id] { emit reportWanted(id); });
        row->addWidget(lead, 1);
        layout->addLayout(row);
    }
    if (m_seen.size() > count) {
        auto* rest = new LeadLine(m_words.translateCount("and %n more", "and %n more",
                                                         static_cast<std::int64_t>(m_seen.size() - count)),
                                  m_words("Show"));
        rest->setObjectName(QStringLiteral("rest"));
        std::set<Tone> tones{Tone::caution, Tone::bad};
        if (m_totals.all.of(Tone::unknown) > 0) tones.insert(Tone::unknown);
        connect(rest, &QAbstractButton::clicked, this, [this, tones] { emit tonesWanted(tones); });
        layout->addWidget(rest);
    }
    return card;
}

QWidget* MailboxView::bars(const QString& heading, std::vector<TotalsRow> rows) {
    auto* card = new Card;
    card->setObjectName(heading);
    auto* layout = new QVBoxLayout(card);
    auto* picture = new ToneBars(std::move(rows), m_words);
    card->setAccessibleName(heading + QStringLiteral(". ") + picture->spoken());
    layout->addWidget(picture);
    return card;
}

}  // namespace quillmark
