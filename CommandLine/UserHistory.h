#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "QuillmarkKit/HistoryFile.h"
#include "Wording/Reader.h"

/// The history of the user, which the desktop application shows, too.
namespace quillmark {

/// The history, or the line that says why there is none.
std::variant<History, std::string> loadUserHistory(const Reader& reader);

/// What came of a change: a line for the user, if there is something to tell, and whether it was made.
struct HistoryOutcome {
    bool isDone = true;
    std::string problem = {};
};
/// `patience`: how long it waits for another program that changes the history, which a line tells.
HistoryOutcome changeUserHistory(const HistoryChange& change, const Reader& reader,
                                 std::chrono::seconds patience = FileLock::usualPatience);

/// What there is to clear, or the line that says why that can't be told.
std::variant<HistoryContents, std::string> userHistoryContents(const Reader& reader,
                                                               std::chrono::seconds patience);
HistoryOutcome clearUserHistory(const HistoryContents& contents, const Reader& reader,
                                std::chrono::seconds patience);
/// Gives the reports of a damaged file back.
std::variant<HistoryRecovery, std::string> recoverUserHistory(const std::filesystem::path& damagedFile,
                                                              const Reader& reader,
                                                              std::chrono::seconds patience);

/// Puts the reports of a long run into the history, many at a time, since each time the whole file is
/// written; yet now and then, so that a run that is ended has lost only the latest.
class HistorySaver {
public:
    explicit HistorySaver(Reader reader) : m_reader(reader) {}

    /// Keeps a report, given as compact JSON or as it is, for the history; tells of one that is too large.
    /// Throws `std::bad_alloc`; then it isn't kept.
    void add(std::string_view json);
    void add(const ProofReport& report);
    /// One report isn't kept, which `problem` tells.
    void leaveOut(std::string_view problem);
    /// Saves what is left. False when not every report was saved; problem lines have said why.
    bool finish();

private:
    void add(ProofReport report, std::size_t size);
    void save();

    const Reader m_reader;
    HistoryChange m_change = {};
    std::size_t m_size = 0;                               // of its reports, bytes of JSON
    std::chrono::steady_clock::time_point m_since = {};   // when the first of them came
    std::chrono::steady_clock::duration m_lastSave = {};  // how long it took
    bool m_isComplete = true, m_hasFailed = false;
};

}  // namespace quillmark
