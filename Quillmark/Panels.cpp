#include "Quillmark/Panels.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QBoxLayout>
#include <QPainter>
#include <QTextLayout>
#include <QToolButton>
#include <algorithm>
#include <cmath>

// Resources of a static library have to be called for, outside of any namespace.
static void callForResources() { Q_INIT_RESOURCE(quillmark); }

namespace quillmark {

namespace {

constexpr const char *headingProperty = "isHeading", *disclosureProperty = "isDisclosure";

class AccessibleHeading : public QAccessibleWidget {
public:
    explicit AccessibleHeading(QLabel* label) : QAccessibleWidget(label, QAccessible::Heading) {}
    QString text(QAccessible::Text kind) const override {
        return kind == QAccessible::Name ? static_cast<QLabel*>(widget())->text()
                                         : QAccessibleWidget::text(kind);
    }
};

/// A button that is open or not; as one that is checked it would be taken for a choice.
class AccessibleDisclosure : public QAccessibleWidget {
public:
    explicit AccessibleDisclosure(QToolButton* button) : QAccessibleWidget(button, QAccessible::Button) {}
    QString text(QAccessible::Text kind) const override {
        const QString own = QAccessibleWidget::text(kind);
        return kind == QAccessible::Name && own.isEmpty() ? button()->text() : own;
    }
    QAccessible::State state() const override {
        QAccessible::State state = QAccessibleWidget::state();
        state.expandable = true;
        state.expanded = button()->isChecked();
        state.collapsed = !button()->isChecked();
        return state;
    }
    QStringList actionNames() const override {
        return QStringList(pressAction()) + QAccessibleWidget::actionNames();
    }
    void doAction(const QString& name) override {
        name == pressAction() ? button()->click() : QAccessibleWidget::doAction(name);
    }
    QStringList keyBindingsForAction(const QString&) const override { return {}; }

private:
    QToolButton* button() const { return static_cast<QToolButton*>(widget()); }
};

constexpr double cornerRadius = 0.4;  // lines of text
constexpr int widestColumn = 120;     // characters: longer lines are hard to read
constexpr int focusWidth = 2;

/// The palette's text faded into its ground: for lines that only divide.
QColor borderColor(const QPalette& palette) {
    QColor color = palette.color(QPalette::Text);
    color.setAlphaF(0.25F);
    return color;
}

}  // namespace

QFont scaled(QFont font, double factor, QFont::Weight weight) {
    if (font.pointSizeF() > 0) font.setPointSizeF(font.pointSizeF() * factor);
    font.setWeight(weight);
    return font;
}

double layOut(QTextLayout& layout, double width, Qt::Alignment alignment) {
    QTextOption option(alignment);
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    if (QGuiApplication::isRightToLeft()) {
        option.setTextDirection(Qt::RightToLeft);
        if (alignment == Qt::AlignLeft) option.setAlignment(Qt::AlignRight);
    }
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

QVBoxLayout* columnOf(QWidget& page) {
    auto* across = new QHBoxLayout(&page);
    auto* column = new QWidget;
    column->setMaximumWidth(widestColumn * page.fontMetrics().averageCharWidth());
    across->addStretch(0);
    across->addWidget(column, 1);
    across->addStretch(0);
    auto* layout = new QVBoxLayout(column);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(page.fontMetrics().height() / 2);
    return layout;
}

QMargins inDirection(const QMargins& margins, const QWidget& of) {
    if (!of.isRightToLeft()) return margins;
    return {margins.right(), margins.top(), margins.left(), margins.bottom()};
}

void orderAfter(QWidget* before, QWidget* shown) {
    QList<QWidget*> all = shown->findChildren<QWidget*>();
    all.prepend(shown);
    for (QWidget* each : all) {
        if ((each->focusPolicy() & Qt::TabFocus) == 0) continue;
        QWidget::setTabOrder(before, each);
        before = each;
    }
}

void drawFocus(QPainter& painter, const QRect& around, const QPalette& palette) {
    painter.setPen(QPen(palette.color(QPalette::Highlight), focusWidth));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(around.adjusted(1, 1, -1, -1));
}

QIcon programIcon() {
    callForResources();
    return QIcon(QStringLiteral(":/quillmark.svg"));
}

QLabel* sectionHeading(const QString& text) {
    auto* label = new OneLineLabel;
    label->setProperty(headingProperty, true);  // before anybody asks what it is, as with its text
    label->setTextFormat(Qt::PlainText);
    label->setText(text);
    label->setFont(scaled(label->font(), 1.1, QFont::DemiBold));
    label->setContentsMargins(0, label->fontMetrics().height() / 2, 0, 0);
    label->setWordWrap(true);
    return label;
}

void makeDisclosure(QToolButton& button) { button.setProperty(disclosureProperty, true); }

void describePartsToReaders() {
    static const bool isDone = [] {
        QAccessible::installFactory([](const QString& name, QObject* object) -> QAccessibleInterface* {
            if (name == QLatin1String("QLabel") && object->property(headingProperty).toBool())
                return new AccessibleHeading(static_cast<QLabel*>(object));
            if (name == QLatin1String("QToolButton") && object->property(disclosureProperty).toBool())
                return new AccessibleDisclosure(static_cast<QToolButton*>(object));
            return nullptr;
        });
        return true;
    }();
    static_cast<void>(isDone);
}

QSize Button::sizeHint() const {
    const int words = fontMetrics().size(Qt::TextShowMnemonic, text()).width();
    const int arrow = menu() ? fontMetrics().height() : 0;
    const QSize hint = QPushButton::sizeHint();
    return {std::max(hint.width(), words + arrow + 2 * fontMetrics().height()), hint.height()};
}

Card::Card(std::optional<Tone> tone, QWidget* parent) : QFrame(parent), m_tone(tone) {
    setFocusPolicy(Qt::TabFocus);
}

void Card::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const bool focused = hasFocus();
    QColor border =
        m_tone ? toneColor(*m_tone, palette().color(QPalette::Base), palette()) : borderColor(palette());
    if (focused) border = palette().color(QPalette::Highlight);
    painter.setPen(QPen(border, focused ? focusWidth : 1));
    painter.setBrush(m_tone ? toneGround(*m_tone, palette()) : palette().color(QPalette::Base));
    const double radius = cornerRadius * fontMetrics().height();
    painter.drawRoundedRect(QRectF(rect()).adjusted(1, 1, -1, -1), radius, radius);
}

void Card::focusInEvent(QFocusEvent* event) {
    QFrame::focusInEvent(event);
    update();
}

void Card::focusOutEvent(QFocusEvent* event) {
    QFrame::focusOutEvent(event);
    update();
}

void ClearDelegate::initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const {
    QStyledItemDelegate::initStyleOption(option, index);
    option->palette.setColor(QPalette::Inactive, QPalette::Text,
                             option->palette.color(QPalette::Active, QPalette::Text));
}

Scroller::Scroller(QWidget* parent) : QScrollArea(parent) {
    setWidgetResizable(true);
    setFrameStyle(QFrame::NoFrame);
    setViewportMargins(focusWidth, focusWidth, focusWidth, focusWidth);
}

bool Scroller::event(QEvent* event) {
    const bool isDone = QScrollArea::event(event);
    if (event->type() == QEvent::FocusIn || event->type() == QEvent::FocusOut) update();
    if (event->type() == QEvent::Paint && hasFocus()) {
        QPainter painter(this);
        drawFocus(painter, rect(), palette());
    }
    return isDone;
}

ToneBadge::ToneBadge(Tone tone, double scale, const Words& words, QWidget* parent)
    : QWidget(parent), m_tone(tone), m_scale(scale) {
    setAccessibleName(toneWord(tone, words));
    setToolTip(toneWord(tone, words));
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

QSize ToneBadge::sizeHint() const {
    const int side = static_cast<int>(std::lround(m_scale * fontMetrics().height()));
    return {side, side};
}

void ToneBadge::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor disc = toneColor(m_tone, toneGround(m_tone, palette()), palette());
    painter.setPen(Qt::NoPen);
    painter.setBrush(disc);
    painter.drawEllipse(rect().adjusted(1, 1, -1, -1));
    QFont font = this->font();
    font.setBold(true);
    font.setPixelSize(std::max(1, height() * 6 / 10));
    painter.setFont(font);
    painter.setPen(contrast(disc, Qt::white) >= contrast(disc, Qt::black) ? Qt::white : Qt::black);
    painter.drawText(rect(), Qt::AlignCenter, toneSymbol(m_tone));
}

QSize OneLineLabel::sizeHint() const {
    const QMargins around = contentsMargins();
    const int whole = fontMetrics().horizontalAdvance(text()) + 1 + around.left() + around.right();
    return QLabel::sizeHint().expandedTo({whole, 0});
}

Chip::Chip(Tone tone, const QString& text, const Words& words, QWidget* parent)
    : OneLineLabel(parent), m_tone(tone) {
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
    setText(toneSymbol(tone) + u' ' + text);
    setAccessibleName(toneWord(tone, words) + QStringLiteral(": ") + text);
    QFont bold = font();
    bold.setBold(true);
    setFont(bold);
    const int side = fontMetrics().height() / 2, end = fontMetrics().height() / 6;
    setContentsMargins(side, end, side, end);
    QSizePolicy policy(QSizePolicy::Maximum, QSizePolicy::Minimum);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    QPalette colors = palette();
    colors.setColor(QPalette::WindowText, toneColor(tone, toneGround(tone, palette()), palette()));
    setPalette(colors);
}

void Chip::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(toneGround(m_tone, palette()));
    const double radius = std::min(height() / 2.0, fontMetrics().height() * 0.7);
    painter.drawRoundedRect(rect(), radius, radius);
    painter.end();
    OneLineLabel::paintEvent(event);
}

ChainMark::ChainMark(bool isFirst, bool isLast, QWidget* parent)
    : QWidget(parent), m_isFirst(isFirst), m_isLast(isLast) {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);
}

QSize ChainMark::sizeHint() const { return {fontMetrics().height(), fontMetrics().height()}; }

void ChainMark::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const double line = fontMetrics().height(), middle = width() / 2.0, dot = line / 4;
    QColor color = palette().color(QPalette::WindowText);
    color.setAlphaF(0.6F);
    painter.setPen(QPen(color, 2));
    if (!m_isFirst) painter.drawLine(QPointF(middle, 0), QPointF(middle, line));
    if (!m_isLast) painter.drawLine(QPointF(middle, line), QPointF(middle, height()));
    painter.setPen(Qt::NoPen);
    painter.setBrush(palette().color(QPalette::WindowText));
    painter.drawEllipse(QPointF(middle, line), dot, dot);
}

}  // namespace quillmark
