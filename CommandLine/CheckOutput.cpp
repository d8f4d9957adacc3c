#include "CommandLine/CheckOutput.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "CommandLine/Output.h"
#include "CommandLine/ReportCSV.h"

namespace quillmark {

namespace {

/// No line of a report looks like this one.
constexpr std::string_view betweenReports =
    "\n================================================================================\n\n";

/// Without waiting for checks whose reports nobody can have.
[[noreturn]] void giveUp(const std::string& problem) {
    writeProblem(problem);
    _exit(1);
}

}  // namespace

CheckOutput::CheckOutput(const CheckCommand& command, std::optional<std::uint64_t> expectedBytes)
    : m_command(command), m_saver(command.reader) {
    if (command.csv) {
        m_csv.emplace(*command.csv);
        m_csv->write(csvHeader());
    }
    if (canShowProgress()) m_progress.emplace(command.reader, expectedBytes);
}

void CheckOutput::take(const OrderedRun::Outcome& outcome) {
    for (const OrderedRun::Message& message : outcome.messages) write(message);
    m_count += static_cast<std::int64_t>(outcome.messages.size());
    if (m_progress) m_progress->update(m_count, outcome.bytesRead);
}

int CheckOutput::finish() {
    clearProgress();
    if (m_command.summary) print(m_summary.text(m_command.reader));
    if (!isSaved()) m_status = 1;
    try {
        const Undisturbed whileWriting;
        if (m_csv) m_csv->commitAsNew();
    } catch (const std::filesystem::filesystem_error& error) {
        writeProblem(unwritable(*m_command.csv, error.code().message()));
        m_status = 1;
    }
    const bool isFailure = m_command.failOn && m_summary.isAnyAsBadAs(*toneNamed(*m_command.failOn));
    return isFailure ? 3 : m_status;
}

void CheckOutput::write(const OrderedRun::Message& message) {
    if (!message.hint.empty()) writeProblem(message.hint);
    if (!message.problem.empty()) {
        writeProblem(message.problem);
        m_summary.addProblem();
        m_status = 1;
        return;
    }
    m_summary.add(message.verdict);
    if (!message.kept.empty()) m_saver.add(message.kept);
    if (!message.report.empty()) {
        if (!m_command.json && !std::exchange(m_isFirst, false)) print(betweenReports);
        print(message.report);
    }
    try {
        if (!message.row.empty()) m_csv->write(message.row);
    } catch (const std::filesystem::filesystem_error& error) {
        isSaved();
        giveUp(unwritable(*m_command.csv, error.code().message()));
    }
}

void CheckOutput::print(std::string_view text) {
    if (writeOutput(text, [this] { isSaved(); })) return;
    giveUp(m_command.reader.translate("The reports couldn’t be written: %1",
                                      {std::generic_category().message(errno)}));
}

bool CheckOutput::isSaved() { return !m_command.save || m_saver.finish(); }

}  // namespace quillmark
