#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "Apart/MessageCheck.h"
#include "QuillmarkKit/HistoryFile.h"
#include "QuillmarkKit/Support/Workers.h"
#include "Wording/Reader.h"

namespace quillmark {

class Mailbox;

enum class HistoryState {
    off,      ///< none is kept; what the file holds stays there, and is not shown
    loading,  ///< for the first time
    ready,
    locked,  ///< the file can't be read, or is a newer version's, and isn't written over
};

/// The saved history as the model shows it. The file is read and written on a thread of its own; what changes
/// in a burst is saved together. What could not be saved is tried again, now and then and with the next
/// change.
class HistoryKeeper : public QObject {
    Q_OBJECT
public:
    /// `file` is called on another thread and may throw. `mailbox` must outlive the keeper.
    HistoryKeeper(std::function<HistoryFile()> file, std::function<Date()> now, Reader reader,
                  Mailbox& mailbox, QObject* parent = nullptr);
    /// As `finish`.
    ~HistoryKeeper() override;

    HistoryState state() const { return m_state; }
    /// Why it is locked, in one line; else empty.
    std::string lock() const { return m_state == HistoryState::locked ? m_failure : std::string(); }
    /// That changes are not saved because the file can't be written, and why, in one line; else empty.
    std::string unsaved() const;
    /// The oldest first.
    const std::vector<SharedReport>& reports() const { return m_reports->inOrder; }
    /// Null when there is none.
    SharedReport report(const UUID& id) const;

    void setKept(bool isKept);
    /// `change` is what adds the reports. Nothing is added while no history is kept.
    void add(const std::vector<SharedReport>& reports, const HistoryChange& change);
    /// Gives the reports that go; none when nothing can be changed.
    std::vector<SharedReport> remove(const std::set<UUID>& ids);
    /// What there is to clear, also while none is kept; `contentsRead` or `cleared` follows.
    void readContents();
    /// Removes that and nothing that came since, at once or not at all; `cleared` follows.
    void clear(const HistoryContents& contents);
    /// Puts the good reports of a damaged file back; `recovered` follows.
    void recover(const std::filesystem::path& damaged);
    /// Reads the file again if somebody else has changed it, and saves what could not be saved before.
    void refresh();
    /// Waits until everything is saved that can be, and tells what can't. The keeper does nothing afterwards.
    void finish();

signals:
    void changed();  ///< the reports, the state, or what is unsaved
    void failed(const std::string& line);
    void madeUpFor(const std::string& line);              ///< what `failed` said holds no more
    void setAside(const std::filesystem::path& damaged);  ///< the history was; `failed` says so
    void contentsRead(const HistoryContents& contents);
    void cleared(const std::string& outcome);  ///< in a few lines, whether it could be done or not
    void recovered(const std::string& outcome);

private:
    /// The reports, and where they are found.
    struct Reports {
        std::vector<SharedReport> inOrder = {};
        std::map<UUID, SharedReport> byID = {};
        void add(const SharedReport& report);
        void apply(const HistoryChange& change);
    };
    /// By which a file is known again: when it was written, and which it is.
    struct Stamp {
        std::int64_t seconds = 0, nanoseconds = 0;
        std::uint64_t number = 0;
        bool operator==(const Stamp&) const = default;
    };
    struct Loaded {
        std::shared_ptr<Reports> reports = {};
        Stamp stamp = {};
        std::string problem = {};  ///< one line; empty when there is none
        std::filesystem::path setAside = {};
        bool locks = false;
        std::chrono::milliseconds rest = {};  ///< until it may be tried again
    };
    struct Saved {
        Stamp stamp = {};
        std::string problem = {};
        std::filesystem::path setAside = {};
        bool isDone = true, locks = false;
        bool mustLoad = false;                ///< the file holds something else than we believe
        std::chrono::milliseconds rest = {};  ///< as in `Loaded`
    };
    struct Cleared {
        HistoryContents gone = {};
        std::string problem = {};
    };
    static Stamp stampOf(const HistoryFile& file);
    Loaded loaded() const;
    Saved saved(const HistoryChange& change, const Stamp& known) const;
    std::variant<HistoryContents, std::string> contents() const;
    Cleared clearedOf(const HistoryContents& contents) const;
    std::string recoveredFrom(const std::filesystem::path& damaged) const;

    void load();
    void take(const Loaded& loaded);
    void takeReports(const Loaded& loaded);
    void save();
    void saveSoon();
    void tryAgain();
    void tryAgainAfter(std::chrono::milliseconds rest);
    void take(const Saved& saved);
    void take(const Cleared& cleared);
    void addPending(HistoryContents& contents) const;
    void tellOfDamage(const std::string& line, const std::filesystem::path& setAside);
    void fail(const std::string& line);
    bool endFailure();
    std::size_t unsavedReports() const;
    bool refuses();

    const std::function<HistoryFile()> m_file;
    const std::function<Date()> m_now;
    const Reader m_reader;
    Mailbox& m_mailbox;

    HistoryState m_state = HistoryState::off;
    std::string m_failure = {};  // of the latest use of the file, in one line; empty when it went well
    std::shared_ptr<Reports> m_reports = std::make_shared<Reports>();
    Stamp m_stamp = {};                            // of the file that `m_reports` are
    int m_loads = 0;                               // under way
    std::shared_ptr<HistoryChange> m_saving = {};  // meanwhile only read
    HistoryChange m_pending = {};                  // after `m_saving`
    QTimer m_soon{this};
    QElapsedTimer m_sinceFirst = {};  // of what is pending
    bool m_isFinished = false;
    Workers m_worker{1};
};

}  // namespace quillmark
