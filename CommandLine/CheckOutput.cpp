#include "CommandLine/CheckOutput.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <new>
#include <string>
#include <utility>

#include "CommandLine/CheckSummary.h"
#include "CommandLine/Output.h"
#include "QuillmarkKit/ReportCSV.h"
#include "Settings/ChosenResolver.h"
#include "Settings/CurrentTime.h"
#include "Wording/Details.h"
#include "Wording/HistoryWording.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

/// No line of a report looks like this one.
constexpr std::string_view betweenReports =
    "\n================================================================================\n\n";

/// Files of folders that are told one by one to be no email. There may be thousands of photos.
constexpr std::int64_t mostNoEmails = 10;

/// Every recording begins so. It is written first: a full disk is met before the checks are made.
constexpr std::string_view recordingBegin = "{";

}  // namespace

CheckFiles::CheckFiles(const CheckCommand& command) {
    if (command.csv) table.emplace(*command.csv);
    if (command.record) recording.emplace(*command.record);
    if (command.html) page.emplace(*command.html);
}

std::vector<OutputFile*> CheckFiles::all() {
    std::vector<OutputFile*> files;
    for (auto* each : {&table, &recording, &page}) {
        if (*each) files.push_back(&**each);
    }
    return files;
}

CheckOutput::CheckOutput(const CheckCommand& command, const CheckSources& from, CheckFiles& files, Date begun,
                         std::optional<std::uint64_t> expectedBytes)
    : m_command(command),
      m_from(from),
      m_begun(begun),
      m_expectedBytes(expectedBytes),
      m_table(files.table),
      m_recording(files.recording),
      m_page(files.page),
      m_saver(command.reader) {
    if (m_table) m_table->write(csvHeader(command.sha256 ? Digests::asked : Digests::leftOut));
    if (m_recording && !m_recording->isStream()) m_recording->write(recordingBegin);
    if (m_page) m_pageContent.emplace(command.reader);
    const bool isTyped = std::ranges::count(command.files, "-") > 0 && isatty(STDIN_FILENO) == 1;
    if (canShowProgress() && !isTyped) m_progress.emplace(command.reader, expectedBytes);
}

// What is kept comes first. Printing may take for ever, when nobody reads, and yet a signal ends the process
// with all that is kept.
void CheckOutput::take(const OrderedRun::Outcome& outcome) {
    try {
        {
            const std::lock_guard lock(m_mutex);
            if (!outcome.messages.empty()) ++m_outcomes;  // else it was postponed
            m_messages += static_cast<std::int64_t>(outcome.messages.size());
            m_bytesRead = outcome.bytesRead;
            for (const OrderedRun::Message& message : outcome.messages) keep(message);
            m_isPrinting = true;
        }
        for (const OrderedRun::Message& message : outcome.messages) print(message);
    } catch (const OutputFileError& error) {
        giveUp(error);
    }
    if (m_progress) m_progress->update(m_messages, outcome.bytesRead);
    const std::lock_guard lock(m_mutex);
    m_isPrinting = false;
    m_printed.notify_all();
}

void CheckOutput::keep(const OrderedRun::Message& message) {
    if (!message.problem.empty()) {
        ++m_totals.problems;
        m_status = 1;
        if (m_pageContent) m_pageContent->addProblem(message.problem);
        return;
    }
    if (message.entry) m_pageContent->add(*message.entry);
    m_totals.add(message.counted);
    try {
        if (!message.kept.empty()) m_saver.add(message.kept);
        if (message.longKept) m_saver.add(*message.longKept);
    } catch (const std::bad_alloc& error) {
        m_saver.leaveOut(historyNotSaved(reasonOf(error, m_command.reader), m_command.reader));
    }
    if (!message.row.empty() && !m_table->isStream()) m_table->write(message.row);
}

void CheckOutput::print(const OrderedRun::Message& message) {
    if (!message.hint.empty()) writeProblem(message.hint);
    const bool isTold = !message.isOfFolder || ++m_noEmails <= mostNoEmails;
    if (!message.problem.empty() && isTold) writeProblem(message.problem);
    if (!message.row.empty() && m_table->isStream()) m_table->write(message.row);
    if (message.longReport) {
        const Undisturbed whole;
        const auto problem = message.longReport([this](std::string_view piece) { m_output.write(piece); });
        if (!problem.empty()) writeProblem(problem);
        m_isAnyCutOff |= !problem.empty();
    }
    if (message.report.empty()) return;
    const bool isLine = m_command.json || m_command.each;
    if (!isLine && !std::exchange(m_isFirst, false)) m_output.write(betweenReports);
    m_output.write(message.report);
}

int CheckOutput::finish(std::int64_t passedOver) {
    m_progress.reset();
    clearProgress();
    {
        const std::lock_guard lock(m_mutex);
        m_totals.passedOver += passedOver;
        complete();
        m_isPrinting = true;
    }
    try {
        printRest();
    } catch (const OutputFileError& error) {
        giveUp(error);
    }
    const std::lock_guard lock(m_mutex);
    m_isPrinting = false;
    m_printed.notify_all();
    const bool isFailure = m_command.failOn && isAnyAsBadAs(m_totals, *toneNamed(*m_command.failOn));
    return isFailure ? 3 : m_isAnyCutOff ? 1 : m_status;
}

void CheckOutput::finishEarly(Ending ending) {
    std::unique_lock lock(m_mutex);
    const bool isPrinted = m_printed.wait_for(lock, timeToFinish, [this] { return !m_isPrinting; });
    lock.release();
    if (m_isComplete) return;
    m_isStopped = true;
    if (m_outcomes > 0) {
        complete();
        try {
            if (isPrinted && ending == Ending::stopped) printRest();
        } catch (const OutputFileError&) {
            ending = Ending::outputFailed;
        }
        if (ending == Ending::stopped || isAnythingKept()) writeProblem(earlyLine());
    }
    if (!isPrinted) return;
    m_table.reset();  // a file that has a temporary name is removed
    m_recording.reset();
    m_page.reset();
}

void CheckOutput::giveUp(const OutputFileError& error) {
    const bool isOutput = OutputFile::isStandardOutput(error.path);
    const bool hasReaderGone = isOutput && error.error == EPIPE;
    if (!hasReaderGone) {
        writeProblem(isOutput ? m_command.reader.translate("The reports couldn’t be written: %1",
                                                           {systemErrorText(error.error, m_command.reader)})
                              : unwritable(error, m_command.reader));
    }
    {
        const std::lock_guard lock(m_mutex);
        m_isPrinting = false;
        if (m_table && error.path == m_command.csv) m_table.reset();  // its last row is in pieces
    }
    finishEarly(Ending::outputFailed);
    _exit(hasReaderGone ? readerHasGone : 1);
}

void CheckOutput::complete() {
    const auto complete = [this](std::optional<OutputFile>& file, const auto& writeRest) {
        if (!file || file->isStream()) return;
        try {
            writeRest();
            file->commit();
        } catch (const OutputFileError& error) {
            writeProblem(unwritable(error, m_command.reader));
            m_status = 1;
        }
    };
    m_isComplete = true;
    if (m_command.keepsReports() && !m_saver.finish()) m_status = 1;
    complete(m_table, [] {});
    complete(m_page, [this] { writePage(); });
    complete(m_recording,
             [this] { m_recording->write(std::string_view(recording()).substr(recordingBegin.size())); });
}

void CheckOutput::printRest() {
    if (m_noEmails > mostNoEmails) {
        writeProblem(m_command.reader.translateCount("%n more file in a folder isn’t an email.",
                                                     "%n more files in folders aren’t emails.",
                                                     m_noEmails - mostNoEmails));
    }
    if (m_command.summary) m_output.write(summaryText(m_totals, m_command.reader, m_command.layout.width));
    if (m_recording && m_recording->isStream()) m_recording->write(recording());
    if (m_page && m_page->isStream()) writePage();
}

std::string CheckOutput::recording() const {
    return m_from.recorded->json({.at = m_from.now, .begun = m_begun, .ended = currentTime()});
}

void CheckOutput::writePage() {
    const Reader& reader = m_command.reader;
    MailboxReportHead head{
        .inputs = m_command.files, .begun = m_begun, .ended = currentTime(), .isWhole = !m_isStopped};
    if (m_command.filesFrom)
        head.inputs.push_back(reader.translate("the files named in %1", {inert(*m_command.filesFrom)}));
    head.facts.emplace_back(reader.translate("Time of the check"), reader.time(m_from.now));
    std::string answers;
    for (const std::string& file : m_command.dnsFiles) reader.addTo(answers, inert(file));
    if (!m_command.dnsFiles.empty()) {
        answers = reader.translate("from %1; nobody was asked", {answers});
    } else if (!m_from.services) {
        answers = reader.translate("from the servers that this computer asks for everything else");
    } else {
        for (const DoHEndpoint& endpoint : m_from.services->endpoints()) reader.addTo(answers, endpoint.host);
    }
    head.facts.emplace_back(reader.translate("DNS answers"), answers);
    head.facts.emplace_back(reader.translate("Age of domains"), m_from.registry
                                                                    ? reader.translate("asked for")
                                                                    : reader.translate("not asked for"));
    if (m_command.csv && m_table) {
        const std::filesystem::path folder = std::filesystem::path(*m_command.html).parent_path();
        head.table = std::filesystem::path(*m_command.csv)
                         .lexically_proximate(folder.empty() ? std::filesystem::path(".") : folder)
                         .string();
    }
    m_pageContent->write(head, m_totals, [this](std::string_view piece) { m_page->write(piece); });
}

bool CheckOutput::isAnythingKept() const {
    return m_command.keepsReports() || (m_table && !m_table->isStream()) ||
           (m_recording && !m_recording->isStream()) || (m_page && !m_page->isStream());
}

std::string CheckOutput::earlyLine() const {
    const Reader& reader = m_command.reader;
    if (m_expectedOutcomes > 0) {
        return reader.translateCount("Stopped after %n of %1 messages.", "Stopped after %n of %1 messages.",
                                     m_outcomes, {reader.number(m_expectedOutcomes)});
    }
    const std::uint64_t hundredth = m_expectedBytes.value_or(0) / 100;
    const std::uint64_t percent = hundredth > 0 ? std::min<std::uint64_t>(m_bytesRead / hundredth, 99) : 0;
    if (percent == 0)
        return reader.translateCount("Stopped after %n message.", "Stopped after %n messages.", m_outcomes);
    return reader.translateCount("Stopped after %n message, about %1 % of the input.",
                                 "Stopped after %n messages, about %1 % of the input.", m_outcomes,
                                 {std::to_string(percent)});
}

}  // namespace quillmark
