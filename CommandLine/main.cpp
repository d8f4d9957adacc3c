#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CommandLine/Options.h"
#include "CommandLine/Output.h"
#include "CommandLine/Restriction.h"
#include "CommandLine/UsageProblem.h"
#include "Wording/HistoryWording.h"

namespace {

using namespace quillmark;

/// What names the command, if anything does: no option before it takes a value.
std::string_view firstWord(const std::vector<std::string>& arguments) {
    const auto word = std::ranges::find_if_not(
        arguments, [](const std::string& argument) { return argument.starts_with('-'); });
    return word == arguments.end() ? std::string_view() : std::string_view(*word);
}

/// The names of all options that take a value.
void collectValued(const CommandTable& command, std::set<std::string>& names) {
    for (const OptionEntry& option : command.options) {
        if (!option.value.empty()) names.insert(option.names.begin(), option.names.end());
    }
    for (const CommandTable& each : command.commands) collectValued(each, names);
}

/// The arguments in the reverse order that the parser wants. It would take a file called "[a,b]" for a list
/// and one called "++" for the end of the command, and allows "--" in few places; the same file under a name
/// that begins with "./" is beyond doubt.
std::vector<std::string> forParser(const std::vector<std::string>& arguments, const CommandTable& table) {
    std::set<std::string> valued;
    collectValued(table, valued);
    std::vector<std::string> list;
    bool optionsEnded = false, isValue = false;
    for (std::string argument : arguments) {
        const bool isBeforeValue = !isValue && !optionsEnded && valued.contains(argument);
        if (argument == "--" && !optionsEnded && !isValue) {
            optionsEnded = true;
            continue;
        }
        const bool looksLikeEnd = argument == "++";
        const bool looksLikeList = argument.starts_with('[') && argument.ends_with(']');
        const bool looksLikeOption = optionsEnded && argument.starts_with('-') && argument != "-";
        if (!isValue && (looksLikeEnd || looksLikeList || looksLikeOption)) argument.insert(0, "./");
        list.push_back(std::move(argument));
        isValue = isBeforeValue;
    }
    std::ranges::reverse(list);
    return list;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): want of memory is left, and ends the program
int main(int count, char** values) {
    occupyStandardDescriptors();
    std::vector<std::string> arguments(values + 1, values + count);
    if (!arguments.empty() && arguments.front() == "help") {  // "help check" is "check --help"
        std::ranges::rotate(arguments, arguments.begin() + 1);
        arguments.back() = "--help";
    }
    CLI::App app;
    Commands commands;
    const Reader reader = Reader::ofEnvironment();
    addCommands(app, commands, reader, firstWord(arguments));
    const CommandTable table = tableOf(app);
    if (arguments.empty()) {
        std::cerr << app.help();
        return 2;
    }
    try {
        app.parse(forParser(arguments, table));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {  // help or version
            std::ostringstream text;
            app.exit(error, text, text);
            if (dynamic_cast<const CLI::CallForVersion*>(&error) && app.count("--verbose") > 0) {
                if (app.count("--no-sandbox") > 0) leaveOutSandbox(reader);
                for (const std::string& line : sandboxLines(reader)) text << line << '\n';
            }
            return writeWhole(text.str(), reader);
        }
        writeProblem(usageProblem(table, arguments, app.remaining(true), error.what(), reader));
        return 2;
    }
    ignoreSignalsOfWriting();
    if (commands.noSandbox) leaveOutSandbox(reader);
    auto& [check, explain, extract, history, keygen, keys, record, recording, sign, seal, stamp, verbose,
           noSandbox] = commands;
    check.reader = explain.reader = extract.reader = history.reader = keygen.reader = keys.reader =
        record.reader = stamp.reader = recording.reader = sign.reader = seal.reader = reader;
    if (outputHasColours()) check.layout.markers = Markers::coloured;
    check.layout.width = outputWidth();
    history.layout = check.layout;
    explain.width = check.layout.width;
    const std::string command = app.get_subcommands().front()->get_name();
    if (command == "explain") return explain.run();
    if (command == "extract") return extract.run();
    if (command == "history") return history.run();
    if (command == "keygen") return keygen.run();
    if (command == "keys") return keys.run();
    if (command == "record") return record.run();
    if (command == "recording") return recording.run();
    if (command == "sign") return sign.run();
    if (command == "seal") return seal.run();
    if (command == "stamp") return stamp.run();
    if (const auto file = settingsFile()) {
        check.settings = storedSettings(*file);
        check.options = storedOptions(*file);
        if (!isFitForSettings(*file)) writeProblem(fileIgnored(*file, reader));
    }
    return check.run();
}
