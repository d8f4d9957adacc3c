#include "WindowBaseline/FusionEdges.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QPainter>
#include <QProxyStyle>
#include <QStyleOption>

namespace window_baseline {

namespace {

// Of a window's colour, 0 to 255: up to these nobody tells its darker shade from it, or from a field.
constexpr int darkest = 0x18, darkestFields = 0x48;

class EdgeStyle : public QProxyStyle {
public:
    EdgeStyle() : QProxyStyle(QStringLiteral("fusion")) {}

    using QProxyStyle::polish;
    void polish(QWidget* widget) override {
        QProxyStyle::polish(widget);
        if (widget->isWindow()) widget->installEventFilter(this);
    }

    /// Also what took the keyboard before anybody pressed Tab shows that it has it.
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Show && watched->isWidgetType())
            static_cast<QWidget*>(watched)->setAttribute(Qt::WA_KeyboardFocusChange);
        return QProxyStyle::eventFilter(watched, event);
    }

    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override {
        if (element == PE_FrameFocusRect && qobject_cast<const QAbstractItemView*>(widget))
            return drawFocus(*option, *painter);
        QProxyStyle::drawPrimitive(element, option, painter, widget);
        switch (element) {
            case PE_Frame:
            case PE_FrameLineEdit: {
                const auto* frame = qstyleoption_cast<const QStyleOptionFrame*>(option);
                if (frame && frame->lineWidth > 0) drawEdge(*option, *painter, Shape::field);
                break;
            }
            case PE_FrameTabWidget:
            case PE_IndicatorCheckBox:
            case PE_PanelButtonCommand:
            case PE_PanelButtonTool:
                return drawEdge(*option, *painter);
            case PE_IndicatorRadioButton:
                return drawEdge(*option, *painter, Shape::round);
            default:
                break;
        }
    }

    void drawComplexControl(ComplexControl control, const QStyleOptionComplex* option, QPainter* painter,
                            const QWidget* widget) const override {
        QProxyStyle::drawComplexControl(control, option, painter, widget);
        if (control == CC_ComboBox) return drawEdge(*option, *painter);
        if (control != CC_ScrollBar) return;
        QStyleOption slider(*option);
        slider.rect = subControlRect(control, option, SC_ScrollBarSlider, widget);
        drawEdge(slider, *painter);
    }

private:
    enum class Shape { box, field, round };

    static void drawEdge(const QStyleOption& option, QPainter& painter, Shape shape = Shape::box) {
        const QPalette& palette = option.palette;
        const int ground = palette.color(QPalette::Window).lightness();
        if (ground > (shape == Shape::field ? darkestFields : darkest)) return;
        const bool hasFocus = option.state & State_HasFocus;
        QColor color = palette.color(hasFocus ? QPalette::Highlight : QPalette::WindowText);
        if (ground > darkest && !hasFocus) color.setAlphaF(0.4F);
        painter.save();
        painter.setPen(color);
        painter.setBrush(Qt::NoBrush);
        const QRect edge = option.rect.adjusted(0, 0, -1, -1);
        shape == Shape::round ? painter.drawEllipse(edge) : painter.drawRect(edge);
        painter.restore();
    }

    /// Around the row of a list that has the keyboard, in a colour that can be seen when it is selected, too.
    static void drawFocus(const QStyleOption& option, QPainter& painter) {
        const auto* focus = qstyleoption_cast<const QStyleOptionFocusRect*>(&option);
        const QPalette& palette = option.palette;
        const bool isSelected = (focus && focus->backgroundColor == palette.color(QPalette::Highlight)) ||
                                (option.state & State_Selected);
        painter.save();
        painter.setPen(
            QPen(palette.color(isSelected ? QPalette::HighlightedText : QPalette::Text), 1, Qt::DotLine));
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(option.rect.adjusted(1, 1, -2, -2));
        painter.restore();
    }
};

}  // namespace

void showFusionsEdges() {
    if (QApplication::style()->name() == QLatin1String("fusion")) QApplication::setStyle(new EdgeStyle);
}

}  // namespace window_baseline
