#include "WindowBaseline/WindowReader.h"

#include <QEvent>
#include <QPalette>
#include <QSettings>
#include <QWidget>

namespace window_baseline {

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < palette.color(QPalette::WindowText).lightness();
}

WindowReader::WindowReader(QWidget* window, QSettings& settings, const char* key)
    : QObject(window), m_settings(settings), m_key(key) {
    window->restoreGeometry(m_settings.value(key).toByteArray());
    window->installEventFilter(this);
}

bool WindowReader::eventFilter(QObject* watched, QEvent* event) {
    if (watched != parent()) return false;
    if (event->type() == QEvent::Hide) {
        m_settings.setValue(m_key, static_cast<QWidget*>(watched)->saveGeometry());
    }
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange) emit looksChanged();
    return false;
}

}  // namespace window_baseline
