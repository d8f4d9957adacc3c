#include "WindowBaseline/CloseGuard.h"

#include <QEvent>
#include <QWidget>

namespace window_baseline {

CloseGuard::CloseGuard(QWidget* window, std::function<bool()> mayClose)
    : QObject(window), m_mayClose(std::move(mayClose)) {
    window->installEventFilter(this);
}

bool CloseGuard::eventFilter(QObject* watched, QEvent* event) {
    if (watched != parent() || event->type() != QEvent::Close || m_mayClose()) return false;
    event->ignore();
    return true;
}

}  // namespace window_baseline
