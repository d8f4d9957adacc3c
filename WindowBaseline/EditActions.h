#pragma once

#include <QObject>
#include <array>

class QAction;
class QMenu;
class QString;
class QWidget;

namespace window_baseline {

/// The six commands of an Edit menu. They read from the widget that has the keyboard which of them it can do
/// now, and hand them to it: a line or text editor, a label with selectable text, or a list of which several
/// rows can be selected.
class EditActions : public QObject {
    Q_OBJECT
public:
    enum Command { undo, redo, cut, copy, paste, selectAll };
    static constexpr int commandCount = 6;

    /// `texts` are the titles in the order of `Command`. The actions are added to `menu` and belong to it.
    EditActions(const std::array<QString, commandCount>& texts, QMenu* menu, QObject* parent);

    // cppcheck-suppress CastIntegerToAddressAtReturn; it takes a Qt pointer for a number
    QAction* action(Command command) const { return m_actions[command]; }

    /// Whether there is something to undo besides what editors have.
    void setCanUndoElsewhere(bool can) { m_canUndoElsewhere = can; }

signals:
    /// Paste was asked for while no editor has the keyboard.
    void pastedElsewhere();
    /// Copy was asked for while nothing that has the keyboard has text selected.
    void copiedElsewhere();
    /// Undo was asked for while no editor has the keyboard.
    void undoneElsewhere();

private:
    void readFocus();
    void perform(Command command);

    std::array<QAction*, commandCount> m_actions = {};
    bool m_canUndoElsewhere = false;
};

}  // namespace window_baseline
