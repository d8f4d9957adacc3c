#pragma once

#include <QDialog>
#include <functional>
#include <string>

#include "Quillmark/Words.h"
#include "Settings/StoredSettings.h"

class QAbstractButton;
class QDialogButtonBox;
class QLineEdit;
class QRadioButton;
class QScrollArea;
class QVBoxLayout;

namespace quillmark {

class PlainText;

/// The person's choices. Each takes effect at once.
class SettingsView : public QDialog {
    Q_OBJECT
public:
    struct Choices {
        bool checkDomainAge = true, keepHistory = true, rememberKeys = true, judgeByRFC9989 = false;
        std::string resolver = AppOptions().resolver;  ///< who is asked for DNS records
        QString lockedHistory = {};  ///< why the history cannot be written or cleared now; empty when it can
    };
    SettingsView(const Choices& choices, const Words& words, QWidget* parent = nullptr);

    /// Asks before `clear` is called. `what` says what goes, in a few lines.
    void askWhetherToClear(const QString& what, const std::function<void()>& clear);
    /// What became of an action.
    void showOutcome(const QString& text);

    /// Not while a DNS service is chosen and not named.
    void accept() override;

signals:
    /// Never with a choice that is none (`isResolverChoice`).
    void resolverChanged(const std::string& choice);
    void checkDomainAgeChanged(bool on);
    void keepHistoryChanged(bool on);
    void rememberKeysChanged(bool on);
    void judgeByRFC9989Changed(bool on);
    void keyBookWanted();
    void clearHistoryWanted();
    void dataFolderWanted();
    void welcomeWanted();

private:
    void add(QAbstractButton* button, const QStringList& explanations, bool on);
    /// Below what was added last, as far in as its label.
    void addUnderIt(QWidget* widget);
    void addResolvers(const std::string& choice);
    /// Tells of the service that is named; says what is wrong when none is.
    bool chooseService();

    /// Makes it as large as what it shows, and no smaller than this; but the screen has to have room for it.
    void fit(QSize least);

    Words m_words;
    QScrollArea* m_scroller = nullptr;
    QVBoxLayout* m_rows = nullptr;
    QDialogButtonBox* m_buttons = nullptr;
    QRadioButton* m_ownService = nullptr;
    QLineEdit* m_service = nullptr;
    PlainText* m_outcome = nullptr;
};

}  // namespace quillmark
