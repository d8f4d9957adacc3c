#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>

#include "QuillmarkKit/History.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Files.h"

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

/// A history on disk. Its file is only ever replaced as a whole (0600, in a folder 0700): a process that is
/// killed, a full disk or a loss of power leaves the old one or the new one. What changes it holds a lock, a
/// file beside it, so that several threads and processes lose nothing of each other's. Safe from many
/// threads.
///
/// Besides what is said, each function throws `std::filesystem::filesystem_error` when the system refuses
/// something; then the file is as it was.
struct HistoryFile {
    std::filesystem::path url = {};
    /// How long a change waits for others that change the file.
    std::chrono::milliseconds patience = FileLock::usualPatience;

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
    /// else can change the file: before it is read, and again once it is changed. A change that removes all
    /// also removes what was set aside before, and a damaged file as if it could be read.
    std::optional<HistoryFileError::Damaged> apply(
        const HistoryChange& change, Date now, const std::function<void()>& look = [] {}) const;
};

}  // namespace quillmark
