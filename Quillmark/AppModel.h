#pragma once

#include <QObject>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Quillmark/AppSettings.h"
#include "QuillmarkKit/DNS.h"
#include "QuillmarkKit/HistoryFile.h"
#include "QuillmarkKit/Message.h"
#include "QuillmarkKit/RDAP.h"
#include "QuillmarkKit/Recording.h"
#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"

namespace quillmark {

using SharedReport = std::shared_ptr<const ProofReport>;

/// What one check of this run was made from, and what it was told. Shared: copies are cheap.
struct CheckedMessage {
    std::shared_ptr<const ByteBuffer> bytes = {};  ///< as they were read or pasted
    ParseMode mode = ParseMode::strict;            ///< how they were parsed, and are to be again
    std::shared_ptr<const RecordedAnswers> answers = {};
    std::shared_ptr<const RecordedFailures> failures = {};
    Date begun = {}, ended = {};
};

/// The application without its window: takes messages in, has them checked, keeps the reports. It is
/// confined to the thread that made it (the main thread), needs that thread's event loop, and never waits
/// but in `finish`. Every signal comes after the state has changed; texts are UTF-8.
///
/// What goes wrong becomes `problem`, one line whatever a file is called; nothing is modal.
class AppModel : public QObject {
    Q_OBJECT
public:
    enum class Sheet { welcome, paste };

    /// A message that was taken in during this run.
    struct Row {
        /// That of its report, and before there is one, that of the check under way. A check that is made
        /// again has a new one, which replaces this when it is done; the selection goes along.
        UUID id = {};
        std::optional<std::string> name = {};  ///< the file's; may hold anything; none for pasted text
        SharedReport report = {};              ///< none while it is first checked
        bool isRunning = false;                ///< "Checking…"; may be cancelled
        bool operator==(const Row&) const = default;
    };

    /// The checks since the model was last idle.
    struct Progress {
        std::size_t done = 0, all = 0;
        bool operator==(const Progress&) const = default;
    };

    enum class HistoryState {
        off,      ///< none is kept; what the file holds stays there, and is not shown
        loading,  ///< for the first time
        ready,
        locked,  ///< the file must not be written over: `historyLock` says why
    };

    /// What the model stands on. `now` is called on any thread.
    struct Surroundings {
        std::shared_ptr<DNSResolver> resolver = {};
        std::shared_ptr<RegistrationLookup> registry = {};  ///< may be none
        /// Called on another thread; may throw `std::filesystem::filesystem_error`.
        std::function<HistoryFile()> historyFile = {};
        std::shared_ptr<SettingsStore> settings = {};
        std::function<Date()> now = {};
        Reader reader = {};
    };

    explicit AppModel(Surroundings surroundings, QObject* parent = nullptr);
    /// As `finish`.
    ~AppModel() override;

    /// The newest intake first; the files of one intake in the order they were given.
    const std::vector<Row>& session() const { return m_session; }
    /// A row or a saved report.
    const std::optional<UUID>& selection() const { return m_selection; }
    const std::optional<Sheet>& sheet() const { return m_sheet; }
    const std::optional<std::string>& problem() const { return m_problem; }
    bool busy() const { return m_progress.done < m_progress.all; }
    Progress progress() const { return m_progress; }
    /// The saved reports, the oldest first; those of this run are among them.
    const std::vector<SharedReport>& history() const;
    HistoryState historyState() const;
    /// Why nothing is saved, in one line; empty unless the history is locked.
    std::string historyLock() const;
    const AppSettings& settings() const { return m_settings; }

    /// The row of this identity; null when there is none. Valid until the next change.
    const Row* row(const UUID& id) const;
    /// The report of a row, else the saved one; null when there is none.
    SharedReport report(const UUID& id) const;
    /// What a report of this run was made from. Nothing for one of an earlier run, or when so much has been
    /// checked since that the bytes were let go.
    std::optional<CheckedMessage> message(const UUID& id) const;
    /// Whether its message, or the file it came from, is at hand, and no check of it is under way.
    bool canRecheck(const UUID& id) const;

    /// Each file becomes a row at once, and is read when its turn comes; the first of them is selected.
    /// Paths are bytes for the system.
    void openFiles(std::vector<std::string> paths);
    /// The bytes of one message, as a mail program gives them, perhaps with a name for it. Gives the identity
    /// of its row.
    UUID checkData(std::string bytes, std::optional<std::string> name = {});
    /// The source of a message, or only its headers.
    UUID paste(std::string text);

    /// Checks a message of this run again. The history keeps both reports.
    void recheck(const UUID& id);
    /// Ends the check of a row: the row goes, or has its former report again.
    void cancel(const UUID& id);
    void cancelAll();
    /// Takes a row away, and cancels its check; the history keeps its report.
    void removeFromList(const UUID& id);
    void removeFromHistory(const UUID& id);
    /// Removes every saved report for good, also when no history is kept.
    void clearHistory();
    /// Looks whether another program has changed the history meanwhile, as when the window comes to the
    /// front, and then reads it again.
    void refreshHistory();

    /// Nothing, or the identity of a row or a saved report; another one is none.
    void select(const std::optional<UUID>& id);
    void showSheet(Sheet sheet);
    /// Once the welcome sheet has been dismissed it does not come again by itself.
    void dismissSheet();
    /// For what others have to tell, such as that a report could not be exported.
    void showProblem(std::string_view line);
    void dismissProblem();

    /// No registry is asked from then on, not even for checks under way, or again.
    void setCheckDomainAge(bool isOn);
    void setKeepHistory(bool isOn);

    /// Before quitting: cancels all checks, and returns once the history is saved. Nothing is taken in
    /// afterwards.
    void finish();

signals:
    void sessionChanged();  ///< rows, or whether they are running
    void selectionChanged();
    void sheetChanged();
    void problemChanged();
    void progressChanged();  ///< also `busy`
    void historyChanged();   ///< its reports or its state
    void settingsChanged();

private:
    std::vector<Row> m_session = {};
    std::optional<UUID> m_selection = {};
    std::optional<Sheet> m_sheet = {};
    std::optional<std::string> m_problem = {};
    Progress m_progress = {};
    AppSettings m_settings = {};
};

}  // namespace quillmark
