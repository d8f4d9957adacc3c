#pragma once

#include <QObject>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Apart/MessageCheck.h"
#include "Quillmark/AppSettings.h"
#include "Quillmark/HistoryKeeper.h"
#include "Quillmark/KeptMessages.h"
#include "Quillmark/Mailbox.h"
#include "Quillmark/Session.h"
#include "QuillmarkKit/HistoryFile.h"
#include "QuillmarkKit/Lookups/KeyBook.h"
#include "QuillmarkKit/Support/Workers.h"
#include "Wording/Reader.h"

namespace quillmark {

/// The application without its window: takes messages in, has them checked, keeps the reports. It is
/// confined to the thread that made it (the main thread), needs that thread's event loop, and never waits
/// but in `finish`. Every signal comes after the state has changed; texts are UTF-8.
///
/// What goes wrong becomes `problem`, one line whatever a file is called; nothing is modal.
class AppModel : public QObject {
    Q_OBJECT
public:
    enum class Sheet { welcome, paste };

    using Row = SessionRow;

    /// The checks since the model was last idle; a mailbox or a folder is one.
    struct Progress {
        std::size_t done = 0, all = 0;
        std::size_t found = 0;     ///< messages in mailboxes and folders that were checked
        double ofMailboxes = 0.0;  ///< how much of those under way is done, in checks; unknown of a pipe
        bool operator==(const Progress&) const = default;
    };

    using HistoryState = quillmark::HistoryState;

    /// What the model stands on. `now` is called on any thread.
    struct Surroundings {
        std::shared_ptr<DNSResolver> resolver = {};  ///< who is asked for DNS records usually
        /// And who is by another choice in the settings (`chosenResolver`); none without it.
        std::function<std::shared_ptr<DNSResolver>(std::string_view choice)> otherResolver = {};
        std::shared_ptr<RegistrationLookup> registry = {};  ///< may be none
        /// Called on any thread; may throw `std::filesystem::filesystem_error`.
        std::function<HistoryFile()> historyFile = {};
        std::shared_ptr<SettingsStore> settings = {};
        std::shared_ptr<KeptKeys> keys = {};  ///< that were seen in DNS; may be none
        std::filesystem::path keyBook = {};   ///< the file that they are in
        std::function<Date()> now = {};
        std::shared_ptr<CheckProcesses> processes = {};  ///< that read messages; none: this one does
        Reader reader = {};
        std::size_t keptBytes = KeptMessages::usualLimit;  ///< of messages, for checks that are made again
    };

    explicit AppModel(Surroundings surroundings, QObject* parent = nullptr);
    /// As `finish`.
    ~AppModel() override;

    /// The rows and what is selected. The refusal in place of a report is one line, for the place where that
    /// would stand: an earlier report under it would be taken for its own.
    const Session& list() const { return m_session; }
    const std::vector<Row>& session() const { return m_session.rows(); }
    const std::optional<UUID>& selection() const { return m_session.selection(); }
    const std::optional<std::string>& refusal() const { return m_session.refusal(); }
    const std::optional<Sheet>& sheet() const { return m_sheet; }
    const std::optional<std::string>& problem() const { return m_problem; }
    /// The damaged history that `problem` tells of; else nothing.
    const std::optional<std::filesystem::path>& damagedHistory() const { return m_damagedHistory; }
    bool busy() const { return !m_running.empty(); }
    Progress progress() const;
    /// The saved reports, the oldest first; those of this run are among them.
    const std::vector<SharedReport>& history() const { return m_history.reports(); }
    HistoryState historyState() const { return m_history.state(); }
    /// Why nothing is saved, in one line; empty unless the history is locked.
    std::string historyLock() const { return m_history.lock(); }
    /// That reports, and perhaps how many, could not be saved yet, and why, in one line; empty when they are.
    std::string unsaved() const { return m_history.unsaved(); }
    const AppSettings& settings() const { return m_settings; }
    const AppOptions& options() const { return m_options; }
    const KeyBook& keyBook() const { return m_keyBook; }

    /// The row of this identity; null when there is none. Valid until the next change.
    const Row* row(const UUID& id) const { return m_session.row(id); }
    bool isInHistory(const UUID& id) const { return m_history.report(id) != nullptr; }
    /// The report of a row, else the saved one; null when there is none.
    SharedReport report(const UUID& id) const;
    /// What a report of this run was made from. Nothing for one of an earlier run, or when so much has been
    /// checked since that the bytes were let go.
    std::optional<CheckedMessage> message(const UUID& id) const;
    /// Whether its message, or the file it came from, is at hand, and no check of it is under way.
    bool canRecheck(const UUID& id) const;

    /// Each file or folder becomes a row at once, and is read when its turn comes; the first of them is
    /// selected. The messages of a mailbox or a folder become rows below its own, which stays where there are
    /// several, and so do, wherever a message comes from, those attached inside it.
    /// Paths are bytes for the system.
    void openFiles(std::vector<std::string> paths);
    /// The same for what was dropped, as far as there isn't much of it read at once: many a mail program
    /// deletes what it handed over.
    void openDropped(const std::vector<std::string>& paths);
    /// The bytes of one message, as a mail program gives them, perhaps with a name for it. Gives the identity
    /// of its row.
    UUID checkData(ByteBuffer bytes, std::optional<std::string> name = {});
    /// The source of a message, or only its headers.
    UUID paste(std::string_view text);
    /// Why `paste` would not take this text in, in one line; nothing when it would.
    std::optional<std::string> whyNotPasted(std::string_view text) const;
    /// For what was dropped or pasted and cannot even be tried: `problem` and `refusal` say why.
    void refuse(std::string_view line);

    /// Checks a message of this run again. The history keeps both reports.
    void recheck(UUID id);
    /// Ends the check of a row: the row goes, or has its former report again, or, that of a mailbox, stays
    /// and says how far it came.
    void cancel(UUID id);
    void cancelAll();
    /// Takes rows away, and cancels their checks; the history keeps their reports.
    void removeFromList(const std::set<UUID>& ids);
    void removeFromHistory(const std::set<UUID>& ids);
    bool canUndoRemoval() const { return !m_removals.empty(); }
    /// Puts back what the latest removal took, but for checks that it cancelled.
    void undoRemoval();
    /// Looks what there is to clear, also when no history is kept; `historyContentsRead` follows, or
    /// `historyCleared` says why it can't be seen.
    void readHistoryContents();
    /// Removes that for good, and nothing that came since; `historyCleared` follows.
    void clearHistory(const HistoryContents& contents);
    /// Puts the good reports of a damaged file back into the history; `problem` says what came of it.
    void recoverHistory(const std::filesystem::path& damaged);
    /// Looks whether another program has changed the history meanwhile, as when the window comes to the
    /// front, and then reads it again.
    void refreshHistory();

    /// Nothing, or the identity of a row or a saved report; another one is none.
    void select(std::optional<UUID> id);
    /// Nothing takes the place of the first start's welcome.
    void showSheet(Sheet sheet);
    /// Once the welcome sheet has been dismissed it does not come again by itself. It says what leaves the
    /// computer: until then what was taken in is listed and waits, and nothing is asked.
    void dismissSheet();
    /// For what others have to tell, such as that a report could not be exported.
    void showProblem(std::string_view line);
    void dismissProblem();

    /// No registry is asked from then on, not even for checks under way, or again.
    void setCheckDomainAge(bool isOn);
    void setKeepHistory(bool isOn);
    /// Who is asked by checks that begin from now on (`isResolverChoice`).
    void setResolver(const std::string& choice);
    void setRememberKeys(bool isOn);
    /// Judges what is checked from now on by RFC 9989, or by RFC 7489.
    void setJudgeByRFC9989(bool isOn);

    /// Before quitting: cancels all checks, and returns once the history is saved; that it can't be becomes
    /// `problem`. Nothing is taken in afterwards.
    void finish();

signals:
    void sessionChanged();  ///< rows, or whether they are running
    void selectionChanged();
    void sheetChanged();
    void problemChanged();
    void progressChanged();  ///< also `busy`
    void historyChanged();   ///< its reports, its state, or what is unsaved
    void historyContentsRead(const quillmark::HistoryContents& contents);
    void historyCleared(const std::string& outcome);  ///< a few lines, also when it couldn't be done
    void settingsChanged();
    void removalsChanged(std::size_t removed);  ///< just now; 0 when what was removed came back, or is gone

private:
    /// A check under way.
    struct Running {
        UUID row = {};
        std::uint64_t number = 0;  ///< rises with every check
        std::stop_source stop = {};
        std::size_t readers = 0;             // jobs that take messages out of a mailbox
        std::size_t found = 0, refused = 0;  // messages
        std::string refusal = {};            // of the last of them, in a line
        std::size_t outer = 0;               // messages without those attached inside others
        bool isCut = false;                  // a process ended before the end of what it read
        std::shared_ptr<OpenMailbox> mailbox = {};
        std::uint64_t bytesRead = 0;
    };
    /// What came of a message of a check.
    struct Piece {
        UUID check = {};
        std::size_t number = 0;  // in a mailbox, from 1
        std::uint64_t bytesRead = 0;
        CheckOutcome outcome = {};
    };
    struct IntakeProblem {
        std::uint64_t number = 0;  ///< of the check
        std::string line = {};
    };
    /// What outcomes that are taken together lead to.
    struct Burst {
        Session::Changes changes = {};
        Session::Refusals refusals = {};
        std::map<UUID, std::vector<Row>> found = {};  // by the mailbox's row
        HistoryChange saved = {};
        std::vector<SharedReport> reports = {};
        IntakeProblem problem = {};
        bool hasReports = false;
        void tell(std::uint64_t number, const std::string& line) {
            if (number >= problem.number) problem = {number, line};
        }
    };
    /// What a removal took: rows, or reports of the history.
    struct Removal {
        RemovedRows rows = {};
        std::vector<SharedReport> reports = {};
        std::size_t size() const { return rows.rows.size() + reports.size(); }
    };
    void keepForUndo(Removal removal);
    UUID takeIn(std::vector<MessageSource> sources);
    /// A new check of a row, which counts from now on.
    std::stop_token begin(const UUID& id, const UUID& row);
    Workers::Job check(const UUID& id, MessageSource source, const std::stop_token& stop);
    /// Hands checks to the workers, once the welcome of the first start is dismissed.
    void start(std::vector<Workers::Job> checks);
    /// Takes messages out of a mailbox for a while, and then hands itself in again.
    Workers::Job read(const UUID& check, std::shared_ptr<OpenMailbox> mailbox, const std::stop_token& stop);
    void beginReading(const UUID& check, const std::shared_ptr<OpenMailbox>& mailbox);
    /// Begins with mailboxes that wait, as far as others have ended.
    void readWaiting();
    /// Hands what comes of a check's messages to the main thread.
    MessageChecker::Receiver receiver(const UUID& check, std::size_t number = 0, std::uint64_t bytesRead = 0);
    void takeOutcomes();
    void take(Piece& piece, Burst& burst);
    void takeReport(const Running& running, Piece& piece, Burst& burst);
    void endCheck(const UUID& check, Burst& burst);
    /// Cuts a check off, and gives what its row is from now on.
    std::optional<Row> end(UUID check);
    /// Counts what a mailbox that was stopped still holds.
    Workers::Job count(const UUID& row, std::shared_ptr<OpenMailbox> mailbox, const std::stop_token& stop);
    static std::optional<Row> withoutCheck(Row row);
    /// Changes rows or the selection, and tells of both.
    void change(const std::function<void(Session&)>& change);
    void change(const Session::Changes& changes);
    void showIntakeProblem(const IntakeProblem& problem);
    void choose(const AppSettings& settings);
    std::shared_ptr<DNSResolver> resolver() const;

    const std::shared_ptr<SettingsStore> m_store;
    const Reader m_reader;
    AppSettings m_settings;
    AppOptions m_options;
    const std::shared_ptr<RegistrySwitch> m_mayAskRegistry;
    const std::shared_ptr<DNSResolver> m_usualResolver;
    const std::function<std::shared_ptr<DNSResolver>(std::string_view)> m_otherResolver;
    const KeyBook m_keyBook;
    const std::shared_ptr<KeptKeys> m_keys;
    MessageChecker m_checker;
    Mailbox m_mailbox{};
    HistoryKeeper m_history;

    Session m_session{[this](const UUID& id) { return isInHistory(id); }};
    KeptMessages m_messages;
    std::deque<Removal> m_removals = {};  // the latest last
    std::optional<Sheet> m_sheet = {};
    std::optional<std::string> m_problem = {};
    std::uint64_t m_problemNumber = 0;  // of the check it comes from
    std::optional<std::filesystem::path> m_damagedHistory = {};
    std::uint64_t m_number = 0;  // of the latest check
    Progress m_progress = {};
    std::map<UUID, Running> m_running = {};  // by the identity of the report to be
    std::map<UUID, UUID> m_runningByRow = {};
    std::vector<Workers::Job> m_unstarted = {};  // until the welcome is dismissed
    std::set<UUID> m_reading = {};               // those of them that are mailboxes
    std::deque<std::pair<UUID, std::shared_ptr<OpenMailbox>>> m_waiting = {};  // to be
    std::stop_source m_counting = {};       // of mailboxes that were stopped
    std::vector<Piece> m_pieces = {};       // not yet taken
    std::vector<UUID> m_endedReaders = {};  // the same: the mailbox's check, for each
    bool m_isFinished = false;
    Workers m_workers;  // last: the others must outlive what they do
};

}  // namespace quillmark
