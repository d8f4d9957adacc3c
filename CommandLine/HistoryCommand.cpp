#include "CommandLine/HistoryCommand.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <iostream>
#include <system_error>
#include <utility>
#include <variant>

#include "CommandLine/Output.h"
#include "CommandLine/UserHistory.h"
#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/Text.h"
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

void apply(const HistoryChange& change, const Reader& reader) {
    const HistoryOutcome outcome = changeUserHistory(change, reader);
    if (!outcome.problem.empty()) throw Problem{outcome.problem};
}

/// The reports that are meant, each by its id or the beginning of it.
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
        const auto found = std::ranges::find_if(history.reports, isMeant);
        if (found == history.reports.end())
            throw Problem{command.reader.translate("The history has no report “%1”.", {shown})};
        if (std::find_if(found + 1, history.reports.end(), isMeant) != history.reports.end()) {
            throw Problem{command.reader.translate(
                "The history has several reports whose ID begins with “%1”.", {shown})};
        }
        reports.push_back(*found);
    }
    return reports;
}

/// One line, what the message says of itself at its end, so that nothing in it can pass for our words.
std::string line(const ProofReport& report, const Reader& reader) {
    const auto& from = report.summary.from;
    return report.id.text() + "  " + iso8601(report.checkedAt) + "  " +
           std::string(marker(report.verdict.tone)) + " " + headline(report.verdict, reader) + "  <" +
           (from.empty() ? "" : forDisplay(cutInside(from.front().address, 100))) + ">  “" +
           forDisplay(report.summary.subject, 100) + "”";
}

void write(const std::string& text, const Reader& reader) {
    if (writeOutput(text)) return;
    throw Problem{
        reader.translate("The reports couldn’t be written: %1", {std::generic_category().message(errno)})};
}

/// Whether the user, who is asked, says yes.
bool isConfirmed(std::size_t count, const Reader& reader) {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0) {
        throw Problem{reader.translate("--yes is needed to clear the history, as there is nobody to ask"), 2};
    }
    std::cerr << reader.translateCount("Remove the only report from the history? [y/N]",
                                       "Remove all %n reports from the history? [y/N]",
                                       static_cast<std::int64_t>(count))
              << ' ' << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    return std::ranges::any_of(std::array{"y", "yes", "j", "ja"},
                               [&](const char* yes) { return equalsIgnoringCase(answer, yes); });
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
    apply(change, command.reader);
}

void clear(const HistoryCommand& command) {
    if (!command.yes) {
        const std::size_t count = loaded(command.reader).reports.size();
        if (count == 0) return;
        if (!isConfirmed(count, command.reader))
            throw Problem{command.reader.translate("Nothing was removed.")};
    }
    HistoryChange change;
    change.removeAll();
    apply(change, command.reader);
}

}  // namespace

int HistoryCommand::run() const {
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
        }
        return 0;
    } catch (const Problem& problem) {
        writeProblem(problem.line);
        return problem.status;
    }
}

}  // namespace quillmark
