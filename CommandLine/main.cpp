#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "CommandLine/Options.h"
#include "CommandLine/Output.h"

namespace {

/// The arguments after the program's name, in the reverse order that the parser wants. It would take "[a,b]"
/// for a list (as the value in "--option=[a,b]" in some of its versions only) and "++" for the end of the
/// command, and allows "--" in few places; the same file under a name that begins with "./" is beyond doubt.
std::vector<std::string> arguments(int count, char** values) {
    std::vector<std::string> list;
    bool optionsEnded = false;
    for (int i = 1; i < count; ++i) {
        std::string argument = values[i];
        if (argument == "--" && !optionsEnded) {
            optionsEnded = true;
            continue;
        }
        const bool isOption = !optionsEnded && argument.starts_with("--");
        const auto value = isOption ? argument.find('=') + 1 : 0;  // where it begins; 0 without one, too
        const bool looksLikeEnd = argument == "++";
        const bool looksLikeList = argument.substr(value).starts_with('[') && argument.ends_with(']');
        const bool looksLikeOption = optionsEnded && argument.starts_with('-') && argument != "-";
        if (looksLikeEnd || looksLikeList || looksLikeOption) argument.insert(value, "./");
        list.push_back(std::move(argument));
    }
    std::ranges::reverse(list);
    return list;
}

}  // namespace

int main(int count, char** values) {
    quillmark::occupyStandardDescriptors();
    CLI::App app;
    quillmark::Commands commands;
    quillmark::addCommands(app, commands);
    try {
        app.parse(arguments(count, values));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // help or version
        quillmark::writeProblem(std::string(error.what()) + " (see quillmark --help)");
        return 2;
    }
    quillmark::endOnSignals();
    auto& [check, history, keygen, sign, seal] = commands;
    check.reader = history.reader = sign.reader = seal.reader = quillmark::Reader::ofEnvironment();
    if (quillmark::outputHasColours()) check.markers = history.markers = quillmark::Markers::coloured;
    if (app.got_subcommand("history")) return history.run();
    if (app.got_subcommand("keygen")) return keygen.run();
    if (app.got_subcommand("sign")) return sign.run();
    if (app.got_subcommand("seal")) return seal.run();
    return check.run();
}
