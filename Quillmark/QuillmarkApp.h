#pragma once

#include <QObject>
#include <QPointer>
#include <QThreadPool>
#include <QTimer>
#include <functional>
#include <map>
#include <optional>
#include <stop_token>

#include "Quillmark/AppModel.h"
#include "Quillmark/MailboxView.h"
#include "Quillmark/MainView.h"
#include "Quillmark/MessageTextView.h"
#include "Quillmark/ReportList.h"
#include "Quillmark/Words.h"

class QDialog;
class QFileDialog;
class QSettings;

namespace quillmark {

class HelpView;
class SettingsView;
enum class HelpPage;

/// Joins the model to the window: what the model holds is shown, what the person wants is done.
class QuillmarkApp : public QObject {
    Q_OBJECT
public:
    struct Surroundings {
        QSettings* settings = nullptr;  ///< of the window alone: where it was, how large the letters are
        std::function<std::string()> dataFolder = {};  ///< where the history lies
        std::function<Date()> now = {};
    };

    /// `model` and the settings must outlive it. The window is not shown yet.
    QuillmarkApp(AppModel& model, Surroundings surroundings, const Words& words);
    ~QuillmarkApp() override;

    MainView& window() { return m_window; }
    /// Takes files in, as from the command line or a second start, and brings the window to the front.
    void openFiles(const QStringList& paths);
    /// As the session ends. A welcome that stands then goes with the window: nobody has closed it.
    void quit();
    /// Before quitting: waits until what is exported is written; what fails becomes the model's problem.
    void finish();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void rememberSizes();

private:
    void connectModel();
    void refreshList();
    void refreshSelection();
    void refreshCommands();
    void refreshSheet();
    void perform(Command command);
    void remove(void (AppModel::*fromWhere)(const std::set<UUID>&));
    void refreshUndo(std::size_t removed);
    /// What is chosen: rows and reports, of a mailbox that was chosen its messages, too.
    std::set<UUID> chosenOnes() const;
    /// The one in whose file its message was found, as long as that has a row.
    std::optional<UUID> mailboxOfSelected() const;
    /// Several reports that are to be shown together; nothing while one alone is.
    std::optional<MailboxContent> several() const;
    std::vector<SharedReport> messagesOf(const UUID& mailbox) const;
    void receive(const DropContents& contents);
    /// Says in the drop area when the clipboard holds a message, as often as it is looked at.
    void offerClipboard();
    void receiveHanded(const std::string& path);

    std::optional<UUID> selected() const { return m_model.selection(); }
    SharedReport selectedReport() const;
    /// That begins where the last file or folder was chosen, and is gone once it is closed.
    QFileDialog* fileDialog(const QString& title);
    void chooseFiles();
    void chooseFolder();
    void exportPDF();
    void exportText();
    void exportEvidence();
    /// Asks for a name, and before it replaces a file, and writes what `bytes` gives: it is called on another
    /// thread.
    void saveAs(const QString& name, const QString& suffix, const QString& kind,
                std::function<std::string()> bytes);
    /// The reports that are shown, together.
    void exportPage();
    void exportTable();
    void exportJSON();
    QString nameOfTogether(const QString& suffix) const;
    void save(const QString& suffix, const QString& kind, std::function<std::string()> bytes);
    void copyReport();
    /// A page for whoever the person turns to.
    void copyPage();
    void copyText(const std::string& text);
    /// How far the mailbox came that a report was found in; empty unless it was stopped.
    QString stoppedMailbox(const ProofReport& report) const;
    /// The text that is saved and copied.
    std::string reportText(const ProofReport& report) const;
    /// What was typed as expected of a report, answered; nothing without that.
    std::optional<ReportExpectation> expectationOf(const ProofReport& report) const;
    void showMessageText(MessageTextView::Page page, std::size_t undone = 0);
    void showSettings();
    void chooseDamagedHistory();
    void showHelp(HelpPage page);
    void zoom(double factor);

    AppModel& m_model;
    Surroundings m_surroundings;
    Words m_words;
    ReportList m_list;
    MainView m_window;
    QTimer m_listTimer, m_selectionTimer;  // one refresh for a burst of changes
    int m_listRest = 0;                    // milliseconds
    QThreadPool m_exports;                 // where files are made and written
    SharedReport m_shown;
    std::map<UUID, QString> m_expected = {};  // what was typed for a report of this run
    std::vector<SharedReport> m_together;     // what is shown: one report, or several
    QString m_togetherName;
    bool m_isTogetherWhole = true;  // else the mailbox was stopped
    bool m_hasMessage = false;
    QPointer<QDialog> m_sheet;
    QPointer<SettingsView> m_settings;
    QPointer<HelpView> m_help;
    QPointer<MessageTextView> m_text;
    std::stop_source m_reading = {};    // of what it shows
    std::stop_source m_exporting = {};  // what is exported waits for no process any more
    QFont m_font;
    QString m_lastFolder = {};  // empty until something was chosen
};

}  // namespace quillmark
