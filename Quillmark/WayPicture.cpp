#include "Quillmark/WayPicture.h"

#include <QEvent>
#include <QFontMetricsF>
#include <QPainter>
#include <QTextLayout>
#include <algorithm>
#include <cmath>

#include "Quillmark/Panels.h"
#include "Quillmark/Tones.h"
#include "Wording/Direction.h"

namespace quillmark {

namespace {

// In lines of text.
constexpr double disc = 1.9, aboveDisc = 0.3, belowDisc = 0.4, belowText = 0.15, belowRow = 0.8;
constexpr double narrowestStation = 17, widestStation = 30;  // letters
constexpr std::size_t mostInRow = 6;

QString symbolOf(const Way::Station& station, const Words& words) {
    using Kind = Way::Station::Kind;
    if (station.kind == Kind::reader) return words("you");
    if (station.kind == Kind::leftOut) return QStringLiteral("…");
    if (station.tone && station.tone != Tone::good) return toneSymbol(*station.tone);
    if (station.kind == Kind::forwarder) return QString::number(station.instance);
    return station.tone ? toneSymbol(*station.tone) : QString();
}

}  // namespace

WayPicture::WayPicture(const Way& way, const QFont& font, QPaintDevice* device, const Words& words)
    : m_font(font), m_device(device) {
    const QFontMetricsF metrics = device ? QFontMetricsF(font, device) : QFontMetricsF(font);
    m_line = metrics.height();
    m_letter = metrics.averageCharWidth();
    m_narrowest = narrowestStation * m_letter;
    const QFont small = scaled(font, 0.9, QFont::Normal);
    for (const Way::Station& each : way.stations) {
        using Kind = Way::Station::Kind;
        Station station{symbolOf(each, words),
                        each.tone,
                        each.vouch == Way::Station::Vouch::signature,
                        each.vouch == Way::Station::Vouch::nobody && each.kind != Kind::reader,
                        words.sentence(each.delay),
                        {}};
        if (each.kind != Kind::reader)
            station.texts.push_back({words.sentence(isolated(each.name, words.reader.language)),
                                     scaled(font, 1, QFont::DemiBold)});
        for (const std::string& line : each.lines)
            station.texts.push_back({words.sentence(line), small, false, true});
        if (!each.change.empty())
            station.texts.push_back({words.sentence(each.change), scaled(font, 0.9, QFont::DemiBold), true});
        // A name is broken only where it is very long.
        const QFontMetricsF bold = device ? QFontMetricsF(scaled(font, 1, QFont::DemiBold), device)
                                          : QFontMetricsF(scaled(font, 1, QFont::DemiBold));
        const double name =
            bold.horizontalAdvance(words.sentence(isolated(each.name, words.reader.language))) + 2 * m_letter;
        m_narrowest = std::clamp(name, m_narrowest, std::max(widestStation * m_letter, m_narrowest));
        m_stations.push_back(std::move(station));
    }
}

std::size_t WayPicture::stationsInRow(double width) const {
    const auto room = static_cast<std::size_t>(std::max(1.0, width / m_narrowest));
    const std::size_t most = std::min({room, mostInRow, std::max<std::size_t>(m_stations.size(), 1)});
    // As many in each row as can be, and the same in all but the last.
    const std::size_t rows = (m_stations.size() + most - 1) / most;
    return rows > 0 ? (m_stations.size() + rows - 1) / rows : 1;
}

double WayPicture::textHeight(const Text& text, double width) const {
    QTextLayout layout(text.text, text.font, m_device);
    return layOut(layout, width, Qt::AlignHCenter);
}

double WayPicture::rowHeight(std::size_t first, std::size_t end, double column) const {
    double tallest = 0;
    for (std::size_t i = first; i < end; ++i) {
        double height = 0;
        for (const Text& each : m_stations[i].texts)
            height += textHeight(each, column - m_letter) + belowText * m_line;
        tallest = std::max(tallest, height);
    }
    return (aboveDisc + disc + belowDisc + belowRow) * m_line + tallest;
}

double WayPicture::heightForWidth(double width) const {
    const std::size_t inRow = stationsInRow(width);
    double height = 0;
    for (std::size_t first = 0; first < m_stations.size(); first += inRow)
        height +=
            rowHeight(first, std::min(first + inRow, m_stations.size()), width / static_cast<double>(inRow));
    return height;
}

void WayPicture::paintStation(QPainter& painter, const Station& station, const QRectF& area,
                              const QPalette& palette) const {
    const QColor base = palette.color(QPalette::Base);
    const double side = disc * m_line, thickness = m_line / 10;
    const QRectF circle(area.center().x() - side / 2, area.top() + aboveDisc * m_line, side, side);
    const QColor color = station.tone
                             ? toneColor(*station.tone, base, palette)
                             : (station.isClaim ? fadedText(palette) : palette.color(QPalette::Text));
    painter.setPen(QPen(color, thickness, station.isClaim ? Qt::DashLine : Qt::SolidLine));
    painter.setBrush(station.isFilled ? color : base);
    painter.drawEllipse(circle);
    QColor symbol = color;
    if (station.isFilled)
        symbol = contrast(color, Qt::white) >= contrast(color, Qt::black) ? Qt::white : Qt::black;
    painter.setPen(symbol);
    painter.setFont(scaled(m_font, station.symbol.size() > 2 ? 0.8 : 1.1, QFont::Bold));
    painter.drawText(circle, Qt::AlignCenter, station.symbol);
    double top = circle.bottom() + belowDisc * m_line;
    for (const Text& each : station.texts) {
        QTextLayout layout(each.text, each.font, m_device);
        const double height = layOut(layout, area.width() - m_letter, Qt::AlignHCenter);
        painter.setPen(each.isLoud    ? toneColor(Tone::caution, base, palette)
                       : each.isQuiet ? fadedText(palette)
                                      : palette.color(QPalette::Text));
        layout.draw(&painter, QPointF(area.left() + m_letter / 2, top));
        top += height + belowText * m_line;
    }
}

void WayPicture::paint(QPainter& painter, const QPointF& corner, double width, const QPalette& palette,
                       bool isRightToLeft) const {
    const std::size_t inRow = stationsInRow(width);
    const double column = width / static_cast<double>(inRow), radius = disc * m_line / 2;
    const QFont small = scaled(m_font, 0.85, QFont::Normal);
    double top = corner.y();
    for (std::size_t first = 0; first < m_stations.size(); first += inRow) {
        const std::size_t end = std::min(first + inRow, m_stations.size());
        const double middle = top + aboveDisc * m_line + radius, height = rowHeight(first, end, column);
        for (std::size_t i = first; i < end; ++i) {
            const auto place = static_cast<double>(i - first);
            const double left = corner.x() + (isRightToLeft ? width - (place + 1) * column : place * column);
            const double forward = isRightToLeft ? -1 : 1, centre = left + column / 2;
            const Station& station = m_stations[i];
            painter.setPen(QPen(fadedText(palette), m_line / 12));
            const auto line = [&](double from, double to) {
                painter.drawLine(QPointF(centre + forward * from, middle),
                                 QPointF(centre + forward * to, middle));
            };
            if (i > 0) line(-column / 2, -radius);
            if (i + 1 < m_stations.size()) line(radius, column / 2);
            if (i > 0 && !station.delay.isEmpty()) {
                // Between the two discs, or before the first one of a row.
                const double room = i == first ? column / 2 - radius : column - 2 * radius;
                const QFontMetricsF metrics =
                    m_device ? QFontMetricsF(small, m_device) : QFontMetricsF(small);
                const double from = centre - forward * radius, to = from - forward * room;
                QRectF area(std::min(from, to), middle - metrics.height() * 2.2, room, metrics.height() * 2);
                painter.setFont(small);
                painter.drawText(area, Qt::AlignHCenter | Qt::AlignBottom | Qt::TextWordWrap, station.delay);
            }
            paintStation(painter, station, QRectF(left, top, column, height), palette);
        }
        top += height;
    }
}

WayView::WayView(const Way& way, const Words& words, QWidget* parent)
    : QWidget(parent), m_way(way), m_words(words), m_picture(way, font(), nullptr, words) {
    setAccessibleName(withoutIsolation(words.sentence(wayInWords(way, words.reader))));
    QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Minimum);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

QSize WayView::sizeHint() const {
    return {20 * fontMetrics().averageCharWidth(), 4 * fontMetrics().height()};
}

int WayView::heightForWidth(int width) const {
    return static_cast<int>(std::ceil(m_picture.heightForWidth(width)));
}

void WayView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    m_picture.paint(painter, {0, 0}, width(), palette(), layoutDirection() == Qt::RightToLeft);
}

void WayView::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() != QEvent::FontChange) return;
    m_picture = WayPicture(m_way, font(), nullptr, m_words);
    updateGeometry();
}

}  // namespace quillmark
