#include "Quillmark/PlainText.h"

#include <QFocusEvent>
#include <QGuiApplication>
#include <QMimeData>
#include <QPainter>
#include <QTextBlock>
#include <QTextDocument>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <memory>

#include "Quillmark/Panels.h"
#include "Quillmark/Words.h"

namespace quillmark {

PlainText::PlainText(const QString& text, QWidget* parent) : QTextEdit(parent) {
    setReadOnly(true);
    setAcceptRichText(false);
    setUndoRedoEnabled(false);
    setFrameStyle(QFrame::NoFrame);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    // A sentence of such a language may begin with a domain or an abbreviation, which Qt would go by.
    if (QGuiApplication::isRightToLeft()) setTextDirection(Qt::RightToLeft);
    setTabChangesFocus(true);
    setAcceptDrops(false);
    // A report holds dozens of these: with the keyboard one walks from command to command, and a click or the
    // context menu selects.
    setFocusPolicy(Qt::ClickFocus);
    viewport()->setAutoFillBackground(false);
    viewport()->setAcceptDrops(false);
    document()->setDocumentMargin(0);
    QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Minimum);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    setContents(text);
}

void PlainText::setTextDirection(Qt::LayoutDirection direction) {
    QTextOption option = document()->defaultTextOption();
    option.setTextDirection(direction);
    document()->setDefaultTextOption(option);
}

void PlainText::followDirectionOfLines() { setTextDirection(Qt::LayoutDirectionAuto); }

void PlainText::setContents(const QString& text) {
    setPlainText(text);
    setLineHeight();
}

// The same for every line: characters from another font, even those that nobody sees, would push a line below
// its neighbour's. With a fixed height the baseline lies at four fifths of it.
void PlainText::setLineHeight() {
    const QFontMetricsF metrics(font());
    QTextBlockFormat format;
    format.setLineHeight(
        std::ceil(std::max({metrics.lineSpacing(), metrics.ascent() * 5 / 4, metrics.descent() * 5})),
        QTextBlockFormat::FixedHeight);
    QTextCursor all(document());
    all.select(QTextCursor::Document);
    all.mergeBlockFormat(format);
    m_measuredWidth = -1;
    updateGeometry();
}

void PlainText::setColor(const QColor& color) {
    QPalette changed = palette();
    changed.setColor(QPalette::Text, color);
    setPalette(changed);
}

void PlainText::makeStop() {
    setFocusPolicy(Qt::StrongFocus);
    document()->setDocumentMargin(fontMetrics().height() / 4.0);
    m_measuredWidth = -1;
}

int PlainText::heightForWidth(int width) const {
    if (width != m_measuredWidth) {
        const std::unique_ptr<QTextDocument> copy(document()->clone());
        copy->setTextWidth(width);
        m_measuredHeight = static_cast<int>(std::ceil(copy->size().height()));
        m_measuredWidth = width;
    }
    return m_measuredHeight;
}

// The height that counts is the one for the width; this one only keeps a line from vanishing.
QSize PlainText::sizeHint() const { return {30 * fontMetrics().averageCharWidth(), fontMetrics().height()}; }

QSize PlainText::minimumSizeHint() const {
    return {8 * fontMetrics().averageCharWidth(), fontMetrics().height()};
}

QMimeData* PlainText::createMimeDataFromSelection() const {
    auto* copied = new QMimeData;
    copied->setText(withoutIsolation(textCursor().selectedText().replace(QChar::ParagraphSeparator, u'\n')));
    return copied;
}

void PlainText::changeEvent(QEvent* event) {
    QTextEdit::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange) setLineHeight();
}

void PlainText::resizeEvent(QResizeEvent* event) {
    QTextEdit::resizeEvent(event);
    if (height() != heightForWidth(width())) updateGeometry();
}

// The report scrolls as a whole.
void PlainText::wheelEvent(QWheelEvent* event) { event->ignore(); }

void PlainText::paintEvent(QPaintEvent* event) {
    QTextEdit::paintEvent(event);
    if (!hasFocus() || !(focusPolicy() & Qt::TabFocus)) return;
    QPainter painter(viewport());
    drawFocus(painter, viewport()->rect(), palette());
}

void PlainText::focusInEvent(QFocusEvent* event) {
    QTextEdit::focusInEvent(event);
    viewport()->update();
}

void PlainText::focusOutEvent(QFocusEvent* event) {
    QTextEdit::focusOutEvent(event);
    viewport()->update();
    if (event->reason() == Qt::PopupFocusReason || event->reason() == Qt::MenuBarFocusReason) return;
    if (event->reason() == Qt::ActiveWindowFocusReason) return;
    QTextCursor cursor = textCursor();
    cursor.clearSelection();
    setTextCursor(cursor);
}

}  // namespace quillmark
