#pragma once

#include <QMainWindow>
#include <QTimer>
#include <QVariantMap>
#include <array>
#include <optional>

#include "Quillmark/DropTarget.h"
#include "Quillmark/ReportContent.h"
#include "Quillmark/ReportList.h"

class QGridLayout;
class QLabel;
class QListView;
class QMenu;
class QProgressBar;
class QPushButton;
class QSplitter;
class QStackedWidget;
class QToolButton;
namespace window_baseline {
class EditActions;
}

namespace quillmark {

class ListPanel;
class MailboxView;
struct MailboxContent;
class PlainText;
class ReportView;

/// The commands of the menus, besides those of the Edit and Help menus that every window has.
enum class Command {
    open,
    openFolder,
    paste,
    recoverHistory,
    closeWindow,
    quit,
    find,
    settings,
    recheck,
    expected,
    whatWasSigned,
    messageAsText,
    exportPDF,
    exportText,
    exportEvidence,
    exportPage,
    exportTable,
    exportJSON,
    copyReport,
    copyPage,
    removeFromList,
    removeFromHistory,
    cancelChecks,
    toggleList,
    showTable,
    expandAll,
    foldAll,
    zoomIn,
    zoomOut,
    actualSize,
    helpChecks,
    helpMessage,
    helpLimits,
    helpShortcuts,
    about,
};
constexpr std::size_t commandCount = 35;

/// The main window: the list of checks and the report of one of them. It shows what it is told and says what
/// the person wants; it decides nothing.
class MainView : public QMainWindow {
    Q_OBJECT
public:
    /// `list` must outlive the window.
    MainView(ReportList& list, const Words& words, QWidget* parent = nullptr);

    // cppcheck-suppress CastIntegerToAddressAtReturn; the array holds pointers
    QAction* action(Command command) const { return m_actions[static_cast<std::size_t>(command)]; }
    ListPanel* listPanel() const { return m_listSide; }
    QListView* listView() const;
    ReportView* reportView() const { return m_reportView; }
    MailboxView* mailboxView() const { return m_mailboxView; }

    /// The line above the list; empty takes it away. It may tell of reports that can be recovered.
    void setProblem(const QString& line, bool isRecoverable = false);
    QString problem() const;
    /// The line at the bottom, which stays until it is empty.
    void setUnsaved(const QString& line);
    /// What is said of the checks under way.
    struct Running {
        std::size_t count = 0;  ///< a mailbox is one
        std::size_t found = 0;  ///< messages in mailboxes that were checked
        double part = 0;        ///< how much is done, 0 to 1; 0 when that can't be known
    };
    void setRunning(const Running& running);
    /// Selects an entry, or none. Does not say so.
    void select(const std::optional<UUID>& id);
    /// Shows a report, the drop area, why something was not taken in, or what is to be said of a row that has
    /// no report.
    void showReport(const ReportContent& content);
    void showMailbox(MailboxContent content);
    /// Says of which mailbox the report is, with a way back to its page; empty: of none.
    void offerMailbox(const QString& name);
    void showDropArea();
    void showRefusal(const QString& line);
    /// Whether the drop area is what is shown.
    bool isDropAreaShown() const;
    /// Says in it that the clipboard holds a message.
    void offerClipboard(bool holdsMessage);
    void showWithoutReport(const QString& name, const QString& text);
    /// Says what was removed, with a button that undoes it; empty takes the line away.
    /// `canUndo`: also what was removed before.
    void offerUndo(const QString& line, bool canUndo);
    /// Says for a while what a command came to that shows nothing else.
    void tell(const QString& line);
    /// How wide its parts are, in the list and in the table: to be kept until the next run.
    QVariantMap sizes();
    void setSizes(const QVariantMap& sizes);
    /// Puts the keyboard into the filter, showing the list if need be.
    void focusFilter();
    /// Every command and its key, menu by menu.
    std::vector<std::pair<QString, QString>> shortcuts() const;

signals:
    void commanded(Command command);
    /// Something was dropped, or pasted where no editor has the keyboard.
    void received(const DropContents& contents);
    void chosen(const std::optional<UUID>& id);
    void clipboardWanted();  ///< to check what it holds
    void mailboxWanted();    ///< that of the report
    void undoWanted();       ///< of what was removed
    void problemDismissed();
    void recoveryWanted();  ///< of what the problem tells of

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void buildMenus();
    QAction* add(QMenu* menu, Command command, const QString& title, const QKeySequence& key = {});
    QWidget* buildTopRow();
    void placeBusyRow();
    QWidget* buildProblemLine();
    QWidget* buildUnsavedLine();
    QWidget* buildDoneLine();
    void showDone(const QString& line, bool isUndone);
    void showMenu(const QPoint& where);
    QWidget* buildListSide();
    QWidget* buildReportSide();
    QWidget* buildDropArea();
    QWidget* buildClipboardLine();
    /// Tells whoever listens what is shown now.
    void announce(const QString& text);
    bool isWaitingFor(const QWidget* page) const;
    void openShown();
    void light(bool on);
    void refreshListSide();
    void setTable(bool isTable);
    void keepSizes();

    ReportList& m_list;
    Words m_words;
    std::array<QAction*, commandCount> m_actions = {};
    window_baseline::EditActions* m_edit = nullptr;
    QSplitter* m_splitter = nullptr;
    std::array<QList<int>, 2> m_sizes = {};  // of its parts, of the list and of the table; empty: as usual
    bool m_areSizesTheirs = false;           // a person has moved what lies between
    ListPanel* m_listSide = nullptr;
    QMenu* m_sortMenu = nullptr;
    QToolButton* m_back = nullptr;
    QStackedWidget* m_pages = nullptr;
    ReportView* m_reportView = nullptr;
    MailboxView* m_mailboxView = nullptr;
    QLabel* m_dropTitle = nullptr;
    QWidget* m_refusalBadge = nullptr;
    PlainText* m_refusal = nullptr;
    QWidget* m_clipboardLine = nullptr;
    PlainText* m_waitingName = nullptr;
    QLabel* m_waitingText = nullptr;
    QWidget* m_topRow = nullptr;
    QGridLayout* m_topGrid = nullptr;
    QWidget* m_problemLine = nullptr;
    PlainText* m_problemText = nullptr;
    QPushButton* m_recover = nullptr;
    QWidget* m_doneLine = nullptr;
    PlainText* m_doneText = nullptr;
    QPushButton* m_undo = nullptr;
    QTimer m_doneTimer;
    QWidget* m_unsavedLine = nullptr;
    PlainText* m_unsavedText = nullptr;
    QWidget* m_busyRow = nullptr;
    QProgressBar* m_progress = nullptr;
    QLabel* m_busyText = nullptr;
    QWidget* m_dropLight = nullptr;
};

}  // namespace quillmark
