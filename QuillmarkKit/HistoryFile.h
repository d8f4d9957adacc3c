#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "QuillmarkKit/History.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Files.h"
#include "QuillmarkKit/Support/UUID.h"

namespace quillmark {

/// Why a file gave no history.
class HistoryFileError : public std::runtime_error {
public:
    /// It could not be decoded and was set aside; nothing has its name now.
    struct Damaged {
        std::filesystem::path movedTo = {};
        std::string fault = {};  ///< what and where: "reports[3].dkim[0].status: …"
    };
    /// A newer program wrote it; it was left alone.
    struct NewerVersion {
        std::int64_t version = 0;
    };
    std::variant<Damaged, NewerVersion> value;

    explicit HistoryFileError(Damaged damaged);
    explicit HistoryFileError(NewerVersion newer);
};

/// What a history consists of, so that it can be said what goes before it goes.
struct HistoryContents {
    std::vector<UUID> reports = {};                    ///< the oldest first
    std::vector<std::filesystem::path> setAside = {};  ///< damaged files beside it, by name
    bool isEmpty() const { return reports.empty() && setAside.empty(); }
};

/// What came of `HistoryFile::recover`.
struct HistoryRecovery {
    std::size_t recovered = 0;             ///< reports that the history has now and had not before
    std::size_t known = 0;                 ///< reports that it had
    std::size_t unread = 0;                ///< reports that can't be read; they are in the damaged file alone
    std::vector<std::string> faults = {};  ///< what is wrong with the damaged file, and where; the first ten
    /// The history could not be read, either, and was set aside.
    std::optional<HistoryFileError::Damaged> damaged = {};
};

/// A history on disk. Its file is only ever replaced as a whole (0600, in a folder 0700): a process that is
/// killed, a full disk or a loss of power leaves the old one or the new one. What changes it holds a lock, a
/// file beside it, so that several threads and processes lose nothing of each other's. Safe from many
/// threads.
///
/// A symbolic link is followed, and what it leads to is replaced; one that leads nowhere is an error, since a
/// disk may be away. So is a file that is read-only: it isn't replaced.
///
/// Besides what is said, each function throws `std::filesystem::filesystem_error` when the system refuses
/// something; then the file is as it was.
struct HistoryFile {
    std::filesystem::path url = {};
    /// How long a change waits for others that change the file.
    std::chrono::milliseconds patience = FileLock::usualPatience;
    /// Is told once whom a change waits for, if it has to wait for long.
    std::function<void(const LockHolder&)> waiting = {};

    /// "history.json" in the folder of this name in the user's folder for data (XDG Base Directory:
    /// $XDG_DATA_HOME, else ~/.local/share), which is made if it is missing.
    static std::filesystem::path defaultLocation(std::string_view folderName);

    /// The history; an empty one when there is no file. Throws `HistoryFileError`: a file that cannot be
    /// decoded is set aside beside it under a name with the time, `now`, which replaces no other file.
    History load(Date now) const;

    /// Replaces the file with this history, whatever it held. To change what others may change, too, `apply`.
    void save(const History& history) const;

    /// Changes what is on disk at this moment. The reports pass through memory one at a time. When the file
    /// cannot be decoded it is set aside, which is what comes back, and a new one is begun. Throws
    /// `HistoryFileError` (of a newer version only); then nothing was changed. `look` is called while nobody
    /// else can change the file: before it is read, and again once it is changed. Needs no room on the disk
    /// when no report stays.
    std::optional<HistoryFileError::Damaged> apply(
        const HistoryChange& change, Date now, const std::function<void()>& look = [] {}) const;

    /// What there is to clear: the reports, and the damaged files that were set aside beside the history, of
    /// which a history that cannot be decoded becomes one. Throws `HistoryFileError` (of a newer version
    /// only).
    HistoryContents contents(Date now) const;
    /// Removes these reports and these files, and nothing that has come since. As `apply`.
    std::optional<HistoryFileError::Damaged> clear(
        const HistoryContents& contents, Date now, const std::function<void()>& look = [] {}) const;

    /// Puts those reports of a damaged file that are whole into the history, in front of what it holds; those
    /// that it has stay as they are. The damaged file stays, too, with all that it holds; it may be the
    /// history itself, which is set aside then. Takes memory for the damaged file. Throws `HistoryFileError`
    /// (of a newer version only); then nothing was changed.
    HistoryRecovery recover(const std::filesystem::path& damagedFile, Date now) const;
};

}  // namespace quillmark
