#include "CommandLine/UserHistory.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <utility>

#include "CommandLine/Output.h"
#include "QuillmarkKit/ReportJSON.h"
#include "Settings/CurrentTime.h"
#include "Settings/UserFolders.h"
#include "Wording/HistoryWording.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

constexpr std::size_t savedTogether = 64'000'000;  // bytes of JSON
constexpr std::chrono::seconds longestWait{10};
constexpr int workPerSave = 10;  // how many times as long as a save the run must have been at work

using Clock = std::chrono::steady_clock;

HistoryFile userHistory(const Reader& reader, std::chrono::seconds patience = FileLock::usualPatience) {
    return {HistoryFile::defaultLocation(dataFolderName), patience,
            [=](const LockHolder& holder) { writeProblem(historyWaits(holder, patience, reader)); }};
}

/// What became of a damaged history, and how its reports come back.
std::string problemOf(const HistoryFileError::Damaged& damaged, const Reader& reader) {
    const std::string command =
        "quillmark history recover '" + quillmark::quoted(damaged.movedTo.string()) + "'";
    return sentences(
        {historyProblem(damaged, reader), reader.translate("To get its reports back: %1", {command})});
}

std::string problemOf(const HistoryFileError& error, const Reader& reader) {
    const auto* damaged = std::get_if<HistoryFileError::Damaged>(&error.value);
    return damaged ? problemOf(*damaged, reader) : historyProblem(error, reader);
}

/// What `read` gives, or the line that says why nothing: `problem`, of the reason.
template <typename Read>
auto readOrProblem(const Reader& reader, std::chrono::seconds patience, Read read,
                   std::string problem(const std::string&, const Reader&) = historyNotOpened)
    -> std::variant<decltype(read(HistoryFile())), std::string> {
    try {
        return read(userHistory(reader, patience));
    } catch (const HistoryFileError& error) {
        return problemOf(error, reader);
    } catch (const std::exception& error) {
        return problem(reasonOf(error, reader), reader);
    }
}

/// Makes a change, which calls its second argument once nobody else can change the file.
template <typename Change>
HistoryOutcome changed(const Reader& reader, std::chrono::seconds patience, Change change) {
    std::optional<Undisturbed> whileSaving;
    try {
        const std::optional<HistoryFileError::Damaged> damaged = change(userHistory(reader, patience), [&] {
            if (!whileSaving) whileSaving.emplace();
        });
        return {true, damaged ? problemOf(*damaged, reader) : ""};
    } catch (const HistoryFileError& error) {
        return {false, problemOf(error, reader)};
    } catch (const std::exception& error) {
        return {false, historyNotSaved(reasonOf(error, reader), reader)};
    }
}

}  // namespace

std::variant<History, std::string> loadUserHistory(const Reader& reader) {
    return readOrProblem(reader, FileLock::usualPatience,
                         [](const HistoryFile& file) { return file.load(currentTime()); });
}

HistoryOutcome changeUserHistory(const HistoryChange& change, const Reader& reader,
                                 std::chrono::seconds patience) {
    return changed(reader, patience, [&](const HistoryFile& file, const auto& look) {
        return file.apply(change, currentTime(), look);
    });
}

std::variant<HistoryContents, std::string> userHistoryContents(const Reader& reader,
                                                               std::chrono::seconds patience) {
    return readOrProblem(reader, patience,
                         [](const HistoryFile& file) { return file.contents(currentTime()); });
}

HistoryOutcome clearUserHistory(const HistoryContents& contents, const Reader& reader,
                                std::chrono::seconds patience) {
    return changed(reader, patience, [&](const HistoryFile& file, const auto& look) {
        return file.clear(contents, currentTime(), look);
    });
}

std::variant<HistoryRecovery, std::string> recoverUserHistory(const std::filesystem::path& damagedFile,
                                                              const Reader& reader,
                                                              std::chrono::seconds patience) {
    return readOrProblem(
        reader, patience, [&](const HistoryFile& file) { return file.recover(damagedFile, currentTime()); },
        historyNotRecovered);
}

void HistorySaver::add(std::string_view json) {
    if (!m_hasFailed) add(reportFromJSON(json), json.size());
}

void HistorySaver::add(const ProofReport& report) {
    if (m_hasFailed) return;
    // Where it is sure that it is too large without what the history doesn't keep of it, it isn't copied.
    const auto json = compactJSONWithin(2 * largestKeptReport, report);
    json ? add(report, json->size()) : leaveOut(historyNotKept(report.fileName, m_reader));
}

void HistorySaver::add(ProofReport report, std::size_t size) {
    const auto name = report.fileName;
    if (!m_change.add(std::move(report))) return leaveOut(historyNotKept(name, m_reader));
    const auto now = Clock::now();
    if (m_size == 0) m_since = now;
    m_size += size;
    const bool isLate = now - m_since > std::max<Clock::duration>(longestWait, workPerSave * m_lastSave);
    if (m_size > savedTogether || isLate) save();
}

void HistorySaver::leaveOut(std::string_view problem) {
    writeProblem(problem);
    m_isComplete = false;
}

bool HistorySaver::finish() {
    if (!m_hasFailed) save();
    return m_isComplete && !m_hasFailed;
}

void HistorySaver::save() {
    const auto begin = Clock::now();
    const HistoryOutcome outcome = changeUserHistory(m_change, m_reader);
    if (!outcome.problem.empty()) writeProblem(outcome.problem);
    m_hasFailed = !outcome.isDone;
    m_change = {};
    m_size = 0;
    m_lastSave = Clock::now() - begin;
}

}  // namespace quillmark
