#pragma once

#include <QTextEdit>

namespace quillmark {

/// A piece of text to read and select, never to edit, never read as markup. As tall as its text at its width,
/// breaking inside a word where the word alone is wider. What is copied from it lacks the characters that
/// isolate and join.
class PlainText : public QTextEdit {
    Q_OBJECT
public:
    explicit PlainText(const QString& text, QWidget* parent = nullptr);

    /// Replaces the text; `accessibleName` stays as it is.
    void setContents(const QString& text);
    void setColor(const QColor& color);
    /// Where there is little else on a page, one goes from text to text with the keyboard, which each shows.
    void makeStop();
    /// For lines that others wrote: each has the direction of its own first letter, not that of the window.
    void followDirectionOfLines();

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    QMimeData* createMimeDataFromSelection() const override;
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    void setTextDirection(Qt::LayoutDirection direction);
    void setLineHeight();

    mutable int m_measuredWidth = -1, m_measuredHeight = 0;
};

}  // namespace quillmark
