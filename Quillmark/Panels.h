#pragma once

#include <QFrame>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QStyledItemDelegate>
#include <optional>

class QTextLayout;
class QToolButton;
class QVBoxLayout;

#include "Quillmark/Tones.h"

/// The small painted pieces that a report is put together from. Their colours follow the palette, their sizes
/// the font.
namespace quillmark {

/// The font so many times as large.
QFont scaled(QFont font, double factor, QFont::Weight weight);

/// Lays a text out in lines of so many units, in whole words where that can be. Gives its height.
double layOut(QTextLayout& layout, double width, Qt::Alignment alignment = Qt::AlignLeft);

/// What a page that scrolls holds, one below the other: in the middle, and not wider than lines can be read.
QVBoxLayout* columnOf(QWidget& page);

/// Margins as they are where one reads from left to right, turned round where one doesn't.
QMargins inDirection(const QMargins& margins, const QWidget& of);

/// With the keyboard, what was made later comes where it stands: behind the one before it. Both are in a
/// window.
void orderAfter(QWidget* before, QWidget* shown);

/// Shows that this has the keyboard.
void drawFocus(QPainter& painter, const QRect& around, const QPalette& palette);

/// The program's own picture.
QIcon programIcon();

/// What stands above a part of a page.
QLabel* sectionHeading(const QString& text);

/// Tells screen readers what parts are that Qt takes for something else: section headings, and buttons that
/// unfold details. To be called once there is an application; again, it does nothing.
void describePartsToReaders();
/// Makes such a button of one that is checkable.
void makeDisclosure(QToolButton& button);

/// A push button whose text keeps clear of its edges, in every language and at every size of the letters.
class Button : public QPushButton {
public:
    using QPushButton::QPushButton;
    QSize sizeHint() const override;
};

/// A box with round corners. With the keyboard it is one stop, read out as a whole by its accessible name.
class Card : public QFrame {
public:
    /// Without a tone it has the palette's ground and a fine border.
    explicit Card(std::optional<Tone> tone = {}, QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    std::optional<Tone> m_tone;
};

/// Rows of a list that can be read just as well while something else has the keyboard: some styles fade them.
class ClearDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;
};

/// A page that scrolls, which shows when it is what the keyboard scrolls.
class Scroller : public QScrollArea {
public:
    explicit Scroller(QWidget* parent = nullptr);

protected:
    bool event(QEvent* event) override;
};

/// A tone's symbol in a disc.
class ToneBadge : public QWidget {
public:
    /// `scale`: its height, in lines of text.
    ToneBadge(Tone tone, double scale, const Words& words, QWidget* parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Tone m_tone;
    double m_scale;
};

/// In one line where there is room for it: a label that wraps asks for less, beside whatever would stretch.
class OneLineLabel : public QLabel {
public:
    using QLabel::QLabel;
    QSize sizeHint() const override;
};

/// A few words about one finding, with the symbol and the colour of its tone.
class Chip : public OneLineLabel {
public:
    Chip(Tone tone, const QString& text, const Words& words, QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Tone m_tone;
};

/// One step's mark beside a chain that runs downwards.
class ChainMark : public QWidget {
public:
    ChainMark(bool isFirst, bool isLast, QWidget* parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool m_isFirst, m_isLast;
};

}  // namespace quillmark
