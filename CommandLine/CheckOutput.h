#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "CommandLine/CheckCommand.h"
#include "CommandLine/CheckSummary.h"
#include "CommandLine/OrderedRun.h"
#include "CommandLine/Progress.h"
#include "CommandLine/UserHistory.h"
#include "QuillmarkKit/Support/Files.h"

namespace quillmark {

/// Writes what comes of the messages that are checked, in their order: reports, tables, the history.
class CheckOutput {
public:
    /// `expectedBytes`: of all input, when that is known. Throws `filesystem_error` when the CSV file can't
    /// be made. `command` must outlive this.
    CheckOutput(const CheckCommand& command, std::optional<std::uint64_t> expectedBytes);

    /// Ends the process when nothing more can be written; what was checked until then is kept.
    void take(const OrderedRun::Outcome& outcome);

    /// What is left when all are done. The exit status.
    int finish();

private:
    void write(const OrderedRun::Message& message);
    void print(std::string_view text);
    /// Whether the history has all that it was to keep by now.
    bool isSaved();

    const CheckCommand& m_command;
    HistorySaver m_saver;
    CheckSummary m_summary = {};
    std::optional<FileReplacement> m_csv = {};
    std::optional<Progress> m_progress = {};
    std::int64_t m_count = 0;
    int m_status = 0;
    bool m_isFirst = true;
};

}  // namespace quillmark
