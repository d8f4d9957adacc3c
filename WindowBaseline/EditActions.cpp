#include "WindowBaseline/EditActions.h"

#include <QAbstractItemView>
#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QTextEdit>

namespace window_baseline {

namespace {

using Command = EditActions::Command;

/// The kinds of widgets that a person edits or selects text in; at most one is there.
struct Focus {
    QLineEdit* line = nullptr;
    QPlainTextEdit* plain = nullptr;
    QTextEdit* text = nullptr;
    QLabel* label = nullptr;
    QAbstractItemView* list = nullptr;

    static Focus read() {
        QWidget* widget = QApplication::focusWidget();
        auto* list = qobject_cast<QAbstractItemView*>(widget);
        if (list && list->selectionMode() != QAbstractItemView::ExtendedSelection) list = nullptr;
        return {qobject_cast<QLineEdit*>(widget), qobject_cast<QPlainTextEdit*>(widget),
                qobject_cast<QTextEdit*>(widget), qobject_cast<QLabel*>(widget), list};
    }
    bool isEditor() const {
        if (line) return !line->isReadOnly();
        return (plain && !plain->isReadOnly()) || (text && !text->isReadOnly());
    }
    bool hasSelection() const {
        if (line) return line->hasSelectedText();
        if (plain) return plain->textCursor().hasSelection();
        if (text) return text->textCursor().hasSelection();
        return label && label->hasSelectedText();
    }
    const QTextDocument* document() const {
        if (plain) return plain->document();
        return text ? text->document() : nullptr;
    }
    bool canUndo() const {
        return isEditor() && (line ? line->isUndoAvailable() : document()->isUndoAvailable());
    }
    bool canRedo() const {
        return isEditor() && (line ? line->isRedoAvailable() : document()->isRedoAvailable());
    }
};

template <typename Editor>
void performIn(Editor* editor, Command command) {
    switch (command) {
        case EditActions::undo:
            return editor->undo();
        case EditActions::redo:
            return editor->redo();
        case EditActions::cut:
            return editor->cut();
        case EditActions::copy:
            return editor->copy();
        case EditActions::paste:
            return editor->paste();
        case EditActions::selectAll:
            return editor->selectAll();
    }
}

}  // namespace

EditActions::EditActions(const std::array<QString, commandCount>& texts, QMenu* menu, QObject* parent)
    : QObject(parent) {
    constexpr std::array<QKeySequence::StandardKey, commandCount> keys = {
        QKeySequence::Undo, QKeySequence::Redo,  QKeySequence::Cut,
        QKeySequence::Copy, QKeySequence::Paste, QKeySequence::SelectAll};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const auto command = static_cast<Command>(i);
        m_actions[i] = menu->addAction(texts[i]);
        m_actions[i]->setShortcuts(keys[i]);
        connect(m_actions[i], &QAction::triggered, this, [this, command] { perform(command); });
        if (command == redo || command == paste) menu->addSeparator();
    }
    connect(menu, &QMenu::aboutToShow, this, &EditActions::readFocus);
    // A closed menu must not keep a key from working because of what was true when it was last open.
    connect(menu, &QMenu::aboutToHide, this, [this] {
        for (QAction* each : m_actions) each->setEnabled(true);
    });
}

void EditActions::readFocus() {
    const Focus focus = Focus::read();
    m_actions[undo]->setEnabled(focus.canUndo() || (!focus.isEditor() && m_canUndoElsewhere));
    m_actions[redo]->setEnabled(focus.canRedo());
    m_actions[cut]->setEnabled(focus.isEditor() && focus.hasSelection());
    m_actions[selectAll]->setEnabled(focus.line || focus.document() || focus.label || focus.list);
}

void EditActions::perform(Command command) {
    const Focus focus = Focus::read();
    if (command == paste && !focus.isEditor()) return emit pastedElsewhere();
    if (command == copy && !focus.hasSelection()) return emit copiedElsewhere();
    if (command == undo && !focus.isEditor()) return emit undoneElsewhere();
    if (command == selectAll && focus.list) return focus.list->selectAll();
    if (focus.line) return performIn(focus.line, command);
    if (focus.plain) return performIn(focus.plain, command);
    if (focus.text) return performIn(focus.text, command);
    if (!focus.label) return;
    if (command == copy) QApplication::clipboard()->setText(focus.label->selectedText());
    if (command == selectAll) focus.label->setSelection(0, static_cast<int>(focus.label->text().size()));
}

}  // namespace window_baseline
