#include "CommandLine/HistoryCommand.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <iostream>
#include <iterator>
#include <utility>
#include <variant>

#include "CommandLine/Output.h"
#include "CommandLine/Restriction.h"
#include "CommandLine/UserHistory.h"
#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "Sandbox/ProgramSandbox.h"
#include "Wording/Details.h"
#include "Wording/Direction.h"
#include "Wording/HistoryWording.h"
#include "Wording/Quoted.h"
#include "Wording/Wording.h"
#include "Wording/Wrapped.h"

namespace quillmark {

namespace {

/// Why a command ends early: the line that says so, and the exit status.
struct Problem {
    std::string line;
    int status = 1;
};

History loaded(const Reader& reader) {
    auto loaded = loadUserHistory(reader);
    if (const auto* problem = std::get_if<std::string>(&loaded)) throw Problem{*problem};
    return std::get<History>(std::move(loaded));
}

std::chrono::seconds patience(const HistoryCommand& command) { return std::chrono::seconds(command.timeout); }

void require(const HistoryOutcome& outcome) {
    if (!outcome.problem.empty()) throw Problem{outcome.problem};
}

/// The reports that are meant, each by its id or the beginning of it. Should several have one id, all of
/// them.
std::vector<ProofReport> meant(const HistoryCommand& command) {
    const History history = loaded(command.reader);
    std::vector<ProofReport> reports;
    for (const std::string& id : command.ids) {
        const std::string shown = quillmark::quoted(id);
        const auto isPart = [](char c) { return c == '-' || hexValue(c) >= 0; };
        if (id.empty() || !std::ranges::all_of(id, isPart))
            throw Problem{command.reader.translate("“%1” is not the ID of a report", {shown}), 2};
        const auto isMeant = [&](const ProofReport& report) {
            return startsWithIgnoringCase(report.id.text(), id);
        };
        const std::size_t before = reports.size();
        std::ranges::copy_if(history.reports, std::back_inserter(reports), isMeant);
        if (reports.size() == before)
            throw Problem{command.reader.translate("The history has no report “%1”.", {shown})};
        const UUID& first = reports[before].id;
        if (std::any_of(reports.begin() + static_cast<std::ptrdiff_t>(before), reports.end(),
                        [&](const ProofReport& report) { return report.id != first; })) {
            throw Problem{command.reader.translate(
                "The history has several reports whose ID begins with “%1”.", {shown})};
        }
    }
    return reports;
}

/// One line, what the message says of itself at its end, so that nothing in it can pass for our words.
std::string line(const ProofReport& report, const Reader& reader) {
    const auto& from = report.summary.from;
    return report.id.text() + "  " + iso8601(report.checkedAt) + "  " +
           std::string(marker(report.verdict.tone)) + " " +
           isolated(headline(report.verdict, reader), reader.language) + "  <" +
           (from.empty() ? "" : forDisplay(cutInside(from.front().address, 100))) + ">  " +
           reader.translate("“%1”", {forDisplay(report.summary.subject, 100)});
}

void write(const std::string& text, const Reader& reader) {
    if (writeOutput(text)) return;
    throw Problem{reader.translate("The reports couldn’t be written: %1", {systemErrorText(errno, reader)})};
}

void write(const std::vector<std::string>& lines, const Reader& reader) {
    for (const std::string& line : lines) write(inertLine(line, reader.language) + "\n", reader);
}

/// Whether the user, who is asked, says yes.
bool isConfirmed(const HistoryContents& contents, const Reader& reader) {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0) {
        throw Problem{reader.translate("--yes is needed to clear the history, as there is nobody to ask"), 2};
    }
    std::string question;
    for (const std::string& line : historyClearQuestion(contents, reader))
        question += (question.empty() ? "" : "\n") + inertLine(line, reader.language);
    std::cerr << question << ' ' << reader.translate("[y/N]") << ' ' << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    // For translators: the letter of "[y/N]" that says yes.
    const std::string letter = reader.translate("y");
    // For translators: the word that says yes to "[y/N]".
    const std::string word = reader.translate("yes");
    const auto isAnswer = [answer = unicodeLowered(answer)](std::string_view yes) {
        return answer == unicodeLowered(yes);
    };
    return std::ranges::any_of(std::array<std::string_view, 4>{"y", "yes", letter, word}, isAnswer);
}

void list(const HistoryCommand& command) {
    for (const ProofReport& report : loaded(command.reader).reports)
        write(wrapped(line(report, command.reader), 0, command.layout.width) + "\n", command.reader);
}

void show(const HistoryCommand& command) {
    for (const ProofReport& report : meant(command)) {
        write(
            (command.json ? compactJSON(report) : textReport(report, command.reader, command.layout)) + "\n",
            command.reader);
    }
}

void remove(const HistoryCommand& command) {
    HistoryChange change;
    for (const ProofReport& report : meant(command)) change.remove(report.id);
    require(changeUserHistory(change, command.reader, patience(command)));
}

void clear(const HistoryCommand& command) {
    const auto found = userHistoryContents(command.reader, patience(command));
    if (const auto* problem = std::get_if<std::string>(&found)) throw Problem{*problem};
    const auto& contents = std::get<HistoryContents>(found);
    if (!contents.isEmpty()) {
        if (!command.yes && !isConfirmed(contents, command.reader))
            throw Problem{command.reader.translate("Nothing was removed.")};
        require(clearUserHistory(contents, command.reader, patience(command)));
    }
    write(historyCleared(contents, command.reader), command.reader);
}

/// Returns the exit status.
int recover(const HistoryCommand& command) {
    const auto outcome = recoverUserHistory(command.damagedFile, command.reader, patience(command));
    if (const auto* problem = std::get_if<std::string>(&outcome)) throw Problem{*problem};
    const auto& recovery = std::get<HistoryRecovery>(outcome);
    write(historyRecovered(recovery, command.damagedFile, command.reader), command.reader);
    return recovery.unread > 0 || recovery.recovered + recovery.known == 0 ? 1 : 0;
}

}  // namespace

int HistoryCommand::run() const {
    Sandbox sandbox{.read = {damagedFile}};
    allowUserData(sandbox, action == Action::recover ? UserData::made : UserData::asItIs);
    restricted(sandbox);
    try {
        switch (action) {
            case Action::list:
                list(*this);
                break;
            case Action::show:
                show(*this);
                break;
            case Action::remove:
                remove(*this);
                break;
            case Action::clear:
                clear(*this);
                break;
            case Action::recover:
                return recover(*this);
        }
        return 0;
    } catch (const Problem& problem) {
        writeProblem(problem.line);
        return problem.status;
    }
}

}  // namespace quillmark
