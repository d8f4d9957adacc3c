#pragma once

#include <QDialog>

#include "Quillmark/Words.h"

class QCheckBox;

namespace quillmark {

/// The person's choices. Each takes effect at once.
class SettingsView : public QDialog {
    Q_OBJECT
public:
    struct Choices {
        bool checkDomainAge = true, keepHistory = true;
        QString lockedHistory = {};  ///< why the history cannot be written or cleared now; empty when it can
    };
    SettingsView(const Choices& choices, const Words& words, QWidget* parent = nullptr);

signals:
    void checkDomainAgeChanged(bool on);
    void keepHistoryChanged(bool on);
    void clearHistoryConfirmed();
    void dataFolderWanted();
    void welcomeWanted();

private:
    QCheckBox* addSwitch(const QString& label, const QStringList& explanations, bool on);
    void askWhetherToClear();

    Words m_words;
};

}  // namespace quillmark
