#pragma once

#include <QKeySequence>
#include <QString>
#include <functional>
#include <vector>

class QMenu;
class QMenuBar;

namespace window_baseline {

/// One entry of a Help menu.
struct HelpTopic {
    QString title;
    std::function<void()> open;
    QKeySequence key = {};
};

/// Adds a Help menu as the last one, with the topics in their order, and "About" behind a line of its own.
QMenu* addHelpMenu(QMenuBar* bar, const QString& title, const std::vector<HelpTopic>& topics,
                   const HelpTopic& about);

}  // namespace window_baseline
