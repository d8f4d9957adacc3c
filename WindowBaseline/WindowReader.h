#pragma once

#include <QObject>

class QPalette;
class QSettings;
class QWidget;

namespace window_baseline {

/// Whether a palette puts light text on a dark ground.
bool isDark(const QPalette& palette);

/// Reads from a window what outlasts it: its size, its place and whether it was maximised. Lives as long as
/// the window, which owns it.
class WindowReader : public QObject {
    Q_OBJECT
public:
    /// Puts the window where `settings` say it was, if they do; writes there when it is hidden. `settings`
    /// must outlive the window.
    WindowReader(QWidget* window, QSettings& settings, const char* key);

signals:
    /// The palette or the font of the system has changed.
    void looksChanged();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QSettings& m_settings;
    const char* m_key;
};

}  // namespace window_baseline
