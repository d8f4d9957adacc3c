#include "Quillmark/TextPanel.h"

#include <QBoxLayout>
#include <QFrame>
#include <QKeyEvent>
#include <QPainter>
#include <QScrollBar>
#include <QStyle>
#include <algorithm>

#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"
#include "Quillmark/Tones.h"

namespace quillmark {

namespace {

constexpr qsizetype linesAtOnce = 25, lettersAtOnce = 5'000;  // of one piece of text
constexpr int piecesAtFirst = 12;
constexpr qsizetype linesAtFirst = 25;
constexpr qsizetype longestDescription = 2'000;  // characters

QFont fixedFont(const QFont& like) {
    QFont fixed(QStringLiteral("monospace"));
    fixed.setStyleHint(QFont::Monospace);
    fixed.setPointSizeF(like.pointSizeF());
    return fixed;
}

}  // namespace

/// One block: its word in the margin, painted, and beside it its lines.
class TextBlockFrame : public QFrame {
public:
    TextBlockFrame(const TextBlock& block, int marginWidth)
        : m_look(block.look),
          m_margin(block.margin),
          m_marginWidth(marginWidth),
          m_lines(new QVBoxLayout(this)) {
        setFocusPolicy(Qt::StrongFocus);
        setAccessibleName(block.name);
        setAccessibleDescription(block.lines.join(u'\n').left(longestDescription));
        const int line = fontMetrics().height();
        m_lines->setContentsMargins(inDirection({marginWidth + line, line / 6, line / 2, line / 6}, *this));
        m_lines->setSpacing(0);
    }

    bool isMarked() const { return m_look == TextBlock::Look::marked; }
    void add(const QString& lines) {
        auto* text = new PlainText(lines);
        text->followDirectionOfLines();
        text->setFont(m_look == TextBlock::Look::quiet ? font() : fixedFont(font()));
        if (m_look == TextBlock::Look::quiet) text->setColor(fadedText(palette()));
        m_lines->addWidget(text);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        const int line = fontMetrics().height();
        const QColor ground =
            isMarked() ? toneGround(Tone::caution, palette()) : palette().color(QPalette::Base);
        const QColor color = isMarked() ? toneColor(Tone::caution, ground, palette()) : fadedText(palette());
        painter.fillRect(rect(), ground);
        const auto placed = [this](const QRect& where) {
            return QStyle::visualRect(layoutDirection(), rect(), where);
        };
        if (isMarked()) painter.fillRect(placed({0, 0, std::max(3, line / 4), height()}), color);
        QFont word = font();
        word.setBold(isMarked());
        painter.setFont(word);
        painter.setPen(color);
        painter.drawText(placed({0, line / 3, m_marginWidth + line / 2, line * 3 / 2}),
                         Qt::AlignTrailing | Qt::AlignTop, m_margin);
        if (hasFocus()) drawFocus(painter, rect(), palette());
    }
    void focusInEvent(QFocusEvent* event) override {
        QFrame::focusInEvent(event);
        update();
    }
    void focusOutEvent(QFocusEvent* event) override {
        QFrame::focusOutEvent(event);
        update();
    }

private:
    TextBlock::Look m_look;
    QString m_margin;
    int m_marginWidth;
    QVBoxLayout* m_lines;
};

TextPanel::TextPanel(const Words& words, QWidget* parent) : Scroller(parent), m_words(words) {
    setFocusPolicy(Qt::StrongFocus);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setBackgroundRole(QPalette::Base);
    m_next.setSingleShot(true);
    connect(&m_next, &QTimer::timeout, this, &TextPanel::goOn);
}

void TextPanel::setContents(const QString& intro, const std::vector<TextBlock>& blocks) {
    m_intro = intro;
    m_blocks = blocks;
    rebuild();
    verticalScrollBar()->setValue(0);
}

void TextPanel::rebuild() {
    m_isBuilding = true;
    m_next.stop();
    m_frames.clear();
    m_last = -1;
    m_block = 0;
    m_line = m_lines = 0;
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* intro = new PlainText(m_intro);
    intro->document()->setDocumentMargin(fontMetrics().height() / 2.0);
    intro->setVisible(!m_intro.isEmpty());
    layout->addWidget(intro);
    m_column = new QVBoxLayout;
    m_column->setSpacing(0);
    layout->addLayout(m_column);
    layout->addStretch(1);
    for (int i = 0; i < piecesAtFirst && m_lines < linesAtFirst; ++i) goOn();
    setWidget(page);
    orderAfter(this, page);
    m_isBuilding = false;
}

void TextPanel::goOn() {
    if (m_block == m_blocks.size()) return;
    const TextBlock& block = m_blocks[m_block];
    if (m_line == 0) {
        QFont bold = font();
        bold.setBold(true);
        int margin = 0;
        for (const TextBlock& each : m_blocks)
            margin = std::max(margin, QFontMetrics(bold).horizontalAdvance(each.margin));
        m_frames.push_back(new TextBlockFrame(block, margin + fontMetrics().height()));
        m_column->addWidget(m_frames.back());
        m_frames.back()->show();  // else it takes the keyboard only a turn later
        QWidget* before = this;
        if (m_frames.size() > 1) before = m_frames.rbegin()[1];
        if (!m_isBuilding) orderAfter(before, m_frames.back());
    }
    qsizetype end = m_line, letters = 0;
    while (end < block.lines.size() && end < m_line + linesAtOnce && letters < lettersAtOnce)
        letters += block.lines[end++].size();
    m_frames.back()->add(block.lines.mid(m_line, end - m_line).join(u'\n'));
    m_lines += end - m_line;
    m_line = end;
    if (m_line >= block.lines.size()) {
        ++m_block;
        m_line = 0;
    }
    if (!isComplete() && isVisible()) m_next.start(0);
}

// What is built while nobody sees it would all be laid out at once.
void TextPanel::showEvent(QShowEvent* event) {
    Scroller::showEvent(event);
    if (!isComplete()) m_next.start(0);
}

bool TextPanel::hasMarked() const {
    return std::ranges::find(m_blocks, TextBlock::Look::marked, &TextBlock::look) != m_blocks.end();
}

bool TextPanel::goToMarked(bool isForwards) {
    const auto focused = std::ranges::find_if(m_frames, [](const TextBlockFrame* each) {
        return each->hasFocus() || each->isAncestorOf(each->window()->focusWidget());
    });
    // From a button or the panel itself it begins with the first, or the last.
    const auto count = static_cast<std::ptrdiff_t>(m_frames.size());
    const bool isInside = focused != m_frames.end();
    std::ptrdiff_t at = isInside ? focused - m_frames.begin() : m_last;
    for (at += isForwards ? 1 : -1; at >= 0 && at < count; at += isForwards ? 1 : -1) {
        TextBlockFrame* frame = m_frames[static_cast<std::size_t>(at)];
        if (!frame->isMarked()) continue;
        m_last = at;
        frame->setFocus(Qt::ShortcutFocusReason);
        const int top = frame->mapTo(widget(), QPoint()).y() - 2 * fontMetrics().height();
        QScrollBar* bar = verticalScrollBar();
        if (top < bar->value() ||
            top + frame->height() > bar->value() + viewport()->height() - 2 * fontMetrics().height())
            bar->setValue(top);
        return true;
    }
    return false;
}

void TextPanel::keyPressEvent(QKeyEvent* event) {
    const bool isPlain = event->modifiers() == Qt::NoModifier;
    if (isPlain && event->key() == Qt::Key_Down && goToMarked(true)) return;
    if (isPlain && event->key() == Qt::Key_Up && goToMarked(false)) return;
    Scroller::keyPressEvent(event);
}

void TextPanel::changeEvent(QEvent* event) {
    Scroller::changeEvent(event);
    const bool looks = event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange;
    if (looks && widget() && !m_isBuilding) rebuild();
}

}  // namespace quillmark
