#include "WindowBaseline/HelpMenu.h"

#include <QAction>
#include <QMenu>
#include <QMenuBar>

namespace window_baseline {

QMenu* addHelpMenu(QMenuBar* bar, const QString& title, const std::vector<HelpTopic>& topics,
                   const HelpTopic& about) {
    QMenu* menu = bar->addMenu(title);
    const auto add = [menu](const HelpTopic& topic) {
        QAction* action = menu->addAction(topic.title, menu, topic.open);
        action->setShortcut(topic.key);
        return action;
    };
    for (const HelpTopic& topic : topics) add(topic);
    menu->addSeparator();
    add(about)->setMenuRole(QAction::AboutRole);
    return menu;
}

}  // namespace window_baseline
