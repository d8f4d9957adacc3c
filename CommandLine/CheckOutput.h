#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CommandLine/CheckCommand.h"
#include "CommandLine/CheckSources.h"
#include "CommandLine/OrderedRun.h"
#include "CommandLine/OutputFile.h"
#include "CommandLine/Progress.h"
#include "CommandLine/UserHistory.h"
#include "Wording/MailboxReport.h"
#include "Wording/Totals.h"

namespace quillmark {

/// The files that options of a check name, opened before anything is read: standard output is none.
struct CheckFiles {
    /// Throws `OutputFileError` when one can't be written.
    explicit CheckFiles(const CheckCommand& command);
    std::vector<OutputFile*> all();

    std::optional<OutputFile> table = {}, recording = {}, page = {};
};

/// Writes what comes of the messages that are checked, in their order: reports, tables, the history, and what
/// the checks were told.
class CheckOutput {
public:
    /// `begun`: the run. `expectedBytes`: of all input, when that is known. Throws `OutputFileError` when a
    /// file can't be written. `command`, `from` and `files` must outlive this.
    CheckOutput(const CheckCommand& command, const CheckSources& from, CheckFiles& files, Date begun,
                std::optional<std::uint64_t> expectedBytes);

    /// Ends the process when nothing more can be written; what was checked until then is kept.
    void take(const OrderedRun::Outcome& outcome);
    /// How many outcomes there are. From any thread.
    void tellCount(std::size_t outcomes) { m_expectedOutcomes = static_cast<std::int64_t>(outcomes); }

    /// What is left when all are done. `passedOver`: how much of what was read was no message, as expected.
    /// The exit status.
    int finish(std::int64_t passedOver);
    /// What is left when the process is about to end before that: the same for the outcomes taken by now, and
    /// a line that says how many they are. From any thread; all others that come here wait for the end.
    void finishEarly() { finishEarly(Ending::stopped); }

private:
    enum class Ending {
        stopped,      ///< by somebody, who is told how far it came
        outputFailed  ///< perhaps its reader has gone: only what is kept is told of
    };
    void finishEarly(Ending ending);
    [[noreturn]] void giveUp(const OutputFileError& error);
    void keep(const OrderedRun::Message& message);
    void print(const OrderedRun::Message& message);
    /// Saves, and puts the files in their places. Says what can't be; then the exit status is 1.
    void complete();
    /// What comes when all else is written.
    void printRest();
    std::string recording() const;
    void writePage();
    bool isAnythingKept() const;
    std::string earlyLine() const;

    const CheckCommand& m_command;
    const CheckSources& m_from;
    const Date m_begun;
    const std::optional<std::uint64_t> m_expectedBytes;
    OutputFile m_output{"-"};
    std::optional<OutputFile>&m_table, &m_recording, &m_page;
    std::optional<Progress> m_progress = {};
    std::int64_t m_noEmails = 0;  // files of folders
    bool m_isFirst = true, m_isAnyCutOff = false;
    std::atomic<std::int64_t> m_expectedOutcomes = 0;

    std::mutex m_mutex = {};  // held for good by whoever ends the process early
    std::condition_variable m_printed = {};
    // Under the mutex:
    HistorySaver m_saver;
    Totals m_totals = {};
    std::optional<MailboxReport> m_pageContent = {};
    std::int64_t m_outcomes = 0, m_messages = 0;
    std::uint64_t m_bytesRead = 0;
    int m_status = 0;
    bool m_isPrinting = false, m_isComplete = false, m_isStopped = false;
};

}  // namespace quillmark
