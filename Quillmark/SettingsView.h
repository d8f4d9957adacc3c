#pragma once

#include <QDialog>
#include <functional>

#include "Quillmark/Words.h"

class QCheckBox;

namespace quillmark {

class PlainText;

/// The person's choices. Each takes effect at once.
class SettingsView : public QDialog {
    Q_OBJECT
public:
    struct Choices {
        bool checkDomainAge = true, keepHistory = true;
        QString lockedHistory = {};  ///< why the history cannot be written or cleared now; empty when it can
    };
    SettingsView(const Choices& choices, const Words& words, QWidget* parent = nullptr);

    /// Asks before `clear` is called. `what` says what goes, in a few lines.
    void askWhetherToClear(const QString& what, const std::function<void()>& clear);
    /// What became of an action.
    void showOutcome(const QString& text);

signals:
    void checkDomainAgeChanged(bool on);
    void keepHistoryChanged(bool on);
    void clearHistoryWanted();
    void dataFolderWanted();
    void welcomeWanted();

private:
    QCheckBox* addSwitch(const QString& label, const QStringList& explanations, bool on);

    Words m_words;
    PlainText* m_outcome = nullptr;
};

}  // namespace quillmark
