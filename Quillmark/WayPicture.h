#pragma once

#include <QPalette>
#include <QWidget>
#include <vector>

#include "Quillmark/Words.h"
#include "Wording/Way.h"

class QPainter;

namespace quillmark {

/// Draws the way a message came: stations side by side, in as many rows as they need, each with its symbol
/// and what is known of it. What is vouched for has a closed ring, what is only claimed a dashed one. On the
/// screen and on paper.
class WayPicture {
public:
    /// `device`: for which sizes are measured; may be null for the screen.
    WayPicture(const Way& way, const QFont& font, QPaintDevice* device, const Words& words);

    double heightForWidth(double width) const;
    void paint(QPainter& painter, const QPointF& corner, double width, const QPalette& palette,
               bool isRightToLeft = false) const;

private:
    struct Text {
        QString text;
        QFont font;
        bool isLoud = false, isQuiet = false;
    };
    struct Station {
        QString symbol;
        std::optional<Tone> tone;
        bool isFilled = false, isClaim = false;
        QString delay;
        std::vector<Text> texts;
    };
    std::size_t stationsInRow(double width) const;
    double textHeight(const Text& text, double width) const;
    double rowHeight(std::size_t first, std::size_t end, double column) const;
    void paintStation(QPainter& painter, const Station& station, const QRectF& area,
                      const QPalette& palette) const;

    std::vector<Station> m_stations = {};
    QFont m_font;
    QPaintDevice* m_device;
    double m_line, m_letter, m_narrowest;
};

/// The same as a widget, read out by its accessible name.
class WayView : public QWidget {
public:
    WayView(const Way& way, const Words& words, QWidget* parent = nullptr);

    QSize sizeHint() const override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    Way m_way;
    Words m_words;
    WayPicture m_picture;
};

}  // namespace quillmark
