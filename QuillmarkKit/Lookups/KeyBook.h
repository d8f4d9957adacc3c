#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Lookups/KeyMemory.h"
#include "QuillmarkKit/Support/Date.h"

/// A person's own memory of keys.
namespace quillmark {

/// Why a key book can't be used; files that can't be opened throw `std::filesystem::filesystem_error`.
class KeyBookError : public std::runtime_error {
public:
    enum class Kind {
        damaged,
        foreign,       ///< a file of another kind
        newerVersion,  ///< of a newer program
        failed,        ///< the disk is full, others keep it locked …
    };
    KeyBookError(Kind kindOfError, const std::string& what) : std::runtime_error(what), kind(kindOfError) {}
    Kind kind;
};

/// Keys on disk, in a database for the user alone (0600, in a folder 0700) that outlasts a process that is
/// killed. A link is followed; nothing is written into a file that is read-only, damaged or not a key book.
/// A small value: the file is open only during a call. Safe from many threads and processes. All but the two
/// static functions throw.
struct KeyBook {
    std::filesystem::path url;

    /// "keys.db" beside that history.
    static std::filesystem::path besideHistory(const std::filesystem::path& history);

    /// As `KeyMemory::keysOf`; nothing when there is no file.
    std::vector<KnownKey> keysOf(std::string_view name) const;
    /// Calls back for each key of the names that contain `part` (all, if that is empty), by name; for `most`
    /// at most.
    void forEach(std::string_view part, const std::function<void(const KnownKey&)>& each,
                 std::size_t most = all) const;
    static constexpr std::size_t all = 1'000'000'000;
    /// Adds what isn't there, and widens the times of what is, all or nothing. How many are new.
    std::size_t add(std::span<const KnownKey> keys) const;
    /// Which keys are meant: those of a name, of a file, or all.
    struct Selection {
        std::optional<std::string> name = {}, file = {};
    };
    /// Removes them for good. How many there were.
    std::size_t remove(const Selection& selection) const;
    /// This one, as whoever says so says it.
    void remove(const KnownKey& key) const;

    /// A name as books have it; nothing for one that DNS can't hold.
    static std::optional<std::string> keyName(std::string_view name);
    /// Longer ones (in bytes) aren't kept.
    static constexpr std::size_t longestRecord = 10'000;
};

/// The book of a person while checks are made. What goes wrong is told once, and then the book is left alone.
class KeptKeys : public KeyMemory {
public:
    struct Options {
        bool remembers = true;           ///< whether keys that are seen are kept
        std::function<Date()> now = {};  ///< by this computer's clock
        std::function<void(const std::exception&)> problem = [](const std::exception&) {};
    };
    KeptKeys(KeyBook book, Options options) : m_book(std::move(book)), m_options(std::move(options)) {}
    /// Saves what is left.
    ~KeptKeys() override;

    std::vector<KnownKey> keysOf(std::string_view name) override;
    /// They are saved together now and then.
    void saw(std::string_view name, std::span<const std::string> records, const std::string& service,
             bool isValidated) override;
    /// Now.
    void save();
    void setRemembers(bool remembers);
    /// Who is told from now on, on any thread.
    void setProblem(std::function<void(const std::exception&)> problem);

private:
    void saveLocked();
    void fail(const std::exception& error);

    const KeyBook m_book;
    Options m_options;
    std::mutex m_mutex = {};  // for all that follows, and the options
    std::map<std::pair<std::string, std::string>, KnownKey> m_unsaved = {};  // by name and record
    std::map<std::pair<std::string, std::string>, std::chrono::steady_clock::time_point> m_saved = {};
    std::chrono::steady_clock::time_point m_lastSave = {};
    bool m_hasFailed = false;
};

}  // namespace quillmark
