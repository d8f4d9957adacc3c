#include "CommandLine/UserHistory.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

#include "CommandLine/CurrentTime.h"
#include "CommandLine/Output.h"
#include "QuillmarkKit/HistoryFile.h"
#include "QuillmarkKit/ReportJSON.h"
#include "Wording/HistoryWording.h"

namespace quillmark {

namespace {

constexpr std::size_t savedTogether = 64'000'000;  // bytes of JSON
constexpr std::chrono::seconds longestWait{10};
constexpr int workPerSave = 10;  // how many times as long as a save the run must have been at work

using Clock = std::chrono::steady_clock;

HistoryFile userHistory() { return {HistoryFile::defaultLocation("Quillmark")}; }

/// In the system's words.
std::string reason(const std::exception& error) {
    const auto* fromSystem = dynamic_cast<const std::system_error*>(&error);
    return fromSystem ? fromSystem->code().message() : error.what();
}

}  // namespace

std::variant<History, std::string> loadUserHistory(const Reader& reader) {
    try {
        return userHistory().load(currentTime());
    } catch (const HistoryFileError& error) {
        return historyProblem(error, reader);
    } catch (const std::exception& error) {
        return historyNotOpened(reason(error), reader);
    }
}

HistoryOutcome changeUserHistory(const HistoryChange& change, const Reader& reader) {
    try {
        const Undisturbed whileSaving;
        const auto damaged = userHistory().apply(change, currentTime());
        return {true, damaged ? historyProblem(*damaged, reader) : ""};
    } catch (const HistoryFileError& error) {
        return {false, historyProblem(error, reader)};
    } catch (const std::exception& error) {
        return {false, historyNotSaved(reason(error), reader)};
    }
}

void HistorySaver::add(std::string_view json) {
    if (m_hasFailed) return;
    ProofReport report = reportFromJSON(json);
    const auto name = report.fileName;
    if (!m_change.add(std::move(report))) {
        writeProblem(historyNotKept(name, m_reader));
        m_isComplete = false;
        return;
    }
    const auto now = Clock::now();
    if (m_size == 0) m_since = now;
    m_size += json.size();
    const bool isLate = now - m_since > std::max<Clock::duration>(longestWait, workPerSave * m_lastSave);
    if (m_size > savedTogether || isLate) save();
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
