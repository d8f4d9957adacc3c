#pragma once

#include <QObject>
#include <functional>

class QWidget;

namespace window_baseline {

/// Stands between a window and its closing, however it was asked for: by the title bar, a menu or the end of
/// the session. Lives as long as the window, which owns it.
class CloseGuard : public QObject {
public:
    /// `mayClose` is called on the window's thread before the window closes, and ends what must not go on
    /// without it; when it returns false, the window stays.
    CloseGuard(QWidget* window, std::function<bool()> mayClose);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    std::function<bool()> m_mayClose;
};

}  // namespace window_baseline
