#include "Quillmark/MessageWaysView.h"

#include <QBoxLayout>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QSignalBlocker>
#include <algorithm>
#include <optional>

#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"
#include "Quillmark/Tones.h"

namespace quillmark {

namespace {

constexpr int placeRole = Qt::UserRole;  // of an item: which of the ways it is
constexpr int narrowestSteps = 36;       // letters: with less beside the programs they stand below them
constexpr int programsAbove = 6;         // are seen at once then

/// From the mail program by way of a file or the clipboard into the window, in three drawings with arrows
/// between them. It shows what the steps beside it say.
class StepsPicture : public QWidget {
public:
    explicit StepsPicture(WayOut out) : m_out(out) {
        setMaximumWidth(units * fontMetrics().height());
        QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        policy.setHeightForWidth(true);
        setSizePolicy(policy);
    }
    QSize sizeHint() const override { return {maximumWidth(), heightForWidth(maximumWidth())}; }
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override { return width / 4; }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        if (layoutDirection() == Qt::RightToLeft) {
            painter.translate(width(), 0);
            painter.scale(-1, 1);
        }
        const double unit = width() / static_cast<double>(units);  // the picture has 24 by 6 of them
        painter.scale(unit, unit);
        m_line = palette().color(QPalette::Text);
        m_strong = palette().color(QPalette::Highlight);
        switch (m_out) {
            case WayOut::save:
                program(painter, {0, 0.5, 6.5, 5}, Marked::row);
                sheet(painter, {10, 1, 3.4, 4}, false);
                break;
            case WayOut::copy:
                program(painter, {0, 0.5, 6.5, 5}, Marked::all);
                sheet(painter, {10, 1, 3.4, 4}, true);
                break;
            case WayOut::elsewhere:
                phone(painter, {2, 0.7, 2.6, 4.6});
                program(painter, {8.4, 0.5, 6.5, 5}, Marked::row);
                break;
        }
        arrow(painter, 7.1, m_out == WayOut::elsewhere ? 7.9 : 9.4);
        arrow(painter, m_out == WayOut::elsewhere ? 15.4 : 14, 16.6);
        result(painter, {17.2, 0.5, 6.5, 5});
    }

private:
    enum class Marked { row, all };

    void frame(QPainter& painter, const QRectF& where, double radius) const {
        painter.setPen(QPen(m_line, 0.1));
        painter.setBrush(palette().color(QPalette::Base));
        painter.drawRoundedRect(where, radius, radius);
    }

    void line(QPainter& painter, double left, double right, double y, bool isMarked) const {
        QColor color = isMarked ? m_strong : m_line;
        if (!isMarked) color.setAlphaF(0.45F);
        painter.setPen(QPen(color, isMarked ? 0.5 : 0.16, Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(QPointF(left, y), QPointF(right, y));
    }

    void program(QPainter& painter, const QRectF& where, Marked marked) const {
        frame(painter, where, 0.4);
        painter.drawLine(QPointF(where.left(), where.top() + 1), QPointF(where.right(), where.top() + 1));
        for (int i = 0; i < 4; ++i) {
            const double right = where.right() - 0.7 - (i % 2 == 0 ? 0 : 1.2);
            line(painter, where.left() + 0.7, right, where.top() + 1.8 + 0.85 * i,
                 marked == Marked::all || i == 1);
        }
    }

    /// A file, or the clipboard.
    void sheet(QPainter& painter, const QRectF& where, bool hasClip) const {
        frame(painter, where, hasClip ? 0.3 : 0.1);
        if (hasClip) {
            painter.setBrush(m_line);
            painter.drawRoundedRect(QRectF(where.center().x() - 0.7, where.top() - 0.4, 1.4, 0.8), 0.2, 0.2);
        }
        for (int i = 0; i < 3; ++i)
            line(painter, where.left() + 0.6, where.right() - 0.6, where.top() + 1.1 + 0.9 * i, hasClip);
    }

    void phone(QPainter& painter, const QRectF& where) const {
        frame(painter, where, 0.5);
        for (int i = 0; i < 3; ++i)
            line(painter, where.left() + 0.5, where.right() - 0.5, where.top() + 1.2 + 0.8 * i, false);
        painter.setPen(QPen(toneColor(Tone::bad, palette().color(QPalette::Window), palette()), 0.25));
        painter.drawLine(where.topLeft() - QPointF(0.5, 0), where.bottomRight() + QPointF(0.5, 0));
    }

    void arrow(QPainter& painter, double from, double to) const {
        painter.setPen(QPen(m_line, 0.16, Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(QPointF(from, 3), QPointF(to, 3));
        painter.drawLine(QPointF(to - 0.5, 2.5), QPointF(to, 3));
        painter.drawLine(QPointF(to - 0.5, 3.5), QPointF(to, 3));
    }

    void result(QPainter& painter, const QRectF& where) const {
        frame(painter, where, 0.4);
        const QColor good = toneColor(Tone::good, palette().color(QPalette::Base), palette());
        painter.setPen(QPen(good, 0.4, Qt::SolidLine, Qt::RoundCap));
        const QPointF middle = where.center();
        painter.drawLine(middle - QPointF(1.1, 0), middle + QPointF(-0.3, 0.8));
        painter.drawLine(middle + QPointF(-0.3, 0.8), middle + QPointF(1.2, -0.9));
    }

    static constexpr int units = 24;
    const WayOut m_out;
    QColor m_line, m_strong;
};

QWidget* pageOf(const MessageWay& way, const Words& words) {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    const int line = page->fontMetrics().height();
    const auto text = [](const std::string& contents) {
        auto* made = new PlainText(QString::fromStdString(contents));
        made->makeStop();
        return made;
    };
    auto* title = text(way.program);
    title->setFont(scaled(title->font(), 1.3, QFont::Bold));
    layout->addWidget(title);
    layout->addWidget(new StepsPicture(way.out));
    auto* grid = new QGridLayout;
    grid->setHorizontalSpacing(line / 2);
    grid->setVerticalSpacing(line / 2);
    grid->setColumnStretch(1, 1);
    for (std::size_t i = 0; i < way.steps.size(); ++i) {
        auto* number = new QLabel(QString::number(i + 1) + u'.');
        number->setFont(scaled(number->font(), 1, QFont::Bold));
        number->setContentsMargins(0, line / 4, 0, 0);  // in line with its step
        grid->addWidget(number, static_cast<int>(i), 0, Qt::AlignTop);
        auto* step = text(way.steps[i]);
        step->setAccessibleName(words("Step %1", QString::number(i + 1)));
        grid->addWidget(step, static_cast<int>(i), 1);
    }
    layout->addLayout(grid);
    if (!way.remark.empty()) {
        layout->addSpacing(line / 2);
        auto* remark = text(way.remark);
        remark->setColor(fadedText(page->palette()));
        layout->addWidget(remark);
    }
    layout->addStretch(1);
    return page;
}

}  // namespace

MessageWaysView::MessageWaysView(const Words& words, QWidget* parent)
    : QWidget(parent), m_words(words), m_ways(messageWays(words.reader)) {
    auto* layout = new QVBoxLayout(this);
    m_search = new QLineEdit;
    m_search->setObjectName(QStringLiteral("searchWays"));
    m_search->setPlaceholderText(words("Your mail program or provider"));
    m_search->setAccessibleName(words("Search for a mail program or provider"));
    m_search->setClearButtonEnabled(true);
    layout->addWidget(m_search);
    m_across = new QHBoxLayout;
    layout->addLayout(m_across, 1);
    m_programs = new QListWidget;
    m_programs->setObjectName(QStringLiteral("ways"));
    m_programs->setItemDelegate(new ClearDelegate(m_programs));
    m_programs->setAccessibleName(words("Mail programs"));
    m_programs->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_across->addWidget(m_programs);
    m_page = new Scroller;
    m_page->setAccessibleName(words("Steps"));
    m_across->addWidget(m_page, 1);
    connect(m_search, &QLineEdit::textChanged, this, &MessageWaysView::listWays);
    connect(m_search, &QLineEdit::returnPressed, m_programs, qOverload<>(&QWidget::setFocus));
    connect(m_programs, &QListWidget::currentRowChanged, this, &MessageWaysView::showWay);
    listWays({});
    m_widest = m_programs->sizeHintForColumn(0) + 5 * fontMetrics().averageCharWidth();
    setFocusProxy(m_search);
}

void MessageWaysView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    const bool isBeside = width() >= m_widest + narrowestSteps * fontMetrics().averageCharWidth();
    m_across->setDirection(isBeside ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
    m_programs->setMinimumWidth(isBeside ? m_widest : 0);
    m_programs->setMaximumWidth(isBeside ? m_widest : QWIDGETSIZE_MAX);
    m_programs->setMaximumHeight(isBeside ? QWIDGETSIZE_MAX : programsAbove * 3 * fontMetrics().height() / 2);
}

// Where nothing is found the last one, which does for any program, is left.
void MessageWaysView::listWays(const QString& typed) {
    const auto isWanted = [wanted = typed.toStdString()](const MessageWay& way) {
        return isAbout(way, wanted);
    };
    const bool isAnyWanted = std::ranges::any_of(m_ways, isWanted);
    const QSignalBlocker quiet(m_programs);
    m_programs->clear();
    std::optional<MailPlace> place;
    int first = -1;
    // By place, and those of one place in their order.
    for (const MailPlace each :
         {MailPlace::computer, MailPlace::browser, MailPlace::phone, MailPlace::other}) {
        for (std::size_t i = 0; i < m_ways.size(); ++i) {
            const bool isLast = i + 1 == m_ways.size();
            if (m_ways[i].place != each || !(isAnyWanted ? isWanted(m_ways[i]) : isLast)) continue;
            if (place != each) {
                auto* heading = new QListWidgetItem(QString::fromStdString(nameOf(each, m_words.reader)));
                QFont bold = font();
                bold.setBold(true);
                heading->setFont(bold);
                heading->setFlags(Qt::NoItemFlags);
                heading->setForeground(fadedText(palette()));
                m_programs->addItem(heading);
                place = each;
            }
            auto* item = new QListWidgetItem(QString::fromStdString(m_ways[i].program));
            item->setData(placeRole, static_cast<int>(i));
            m_programs->addItem(item);
            if (first < 0) first = m_programs->count() - 1;
        }
    }
    m_programs->setCurrentRow(first);
    showWay(first);
}

void MessageWaysView::showWay(int row) {
    const QVariant way = row < 0 ? QVariant() : m_programs->item(row)->data(placeRole);
    if (!way.isValid()) return;
    m_page->setWidget(pageOf(m_ways[way.toUInt()], m_words));
    orderAfter(m_page, m_page->widget());
}

}  // namespace quillmark
