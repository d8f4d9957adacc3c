#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "CommandLine/CheckCommand.h"
#include "CommandLine/Output.h"

namespace {

using quillmark::CheckCommand;

constexpr const char* description =
    "Tells who can be proven to have sent an email, and whether it changed on the way.\n"
    "Everything is checked on this computer; only DNS and registry lookups leave it.";

constexpr const char* footer =
    "Exit status: 0 every message was checked, whatever came of it; 1 some input could not be read or is no\n"
    "email, or the recording could not be written; 2 wrong arguments or an unusable answers file; 130 after\n"
    "Ctrl-C.";

void addCheck(CLI::App& app, CheckCommand& check) {
    CLI::App* command = app.add_subcommand("check", "Check messages and report on each");
    command->add_option("FILE", check.files, "Messages to check; \"-\" is standard input")->required();
    command->add_flag("--json", check.json, "Write each report as one line of JSON");
    command->add_option("--dns", check.dnsFile, "Take DNS answers from a file and ask nobody")
        ->type_name("FILE");
    command
        ->add_option("--registrations", check.registrationsFile,
                     "Take registration dates of domains from a file")
        ->type_name("FILE");
    command->add_flag("!--no-domain-age", check.domainAge, "Ask no registry how old the sender's domain is");
    command->add_option("--at", check.at, "The time of the check (RFC 3339); default: now")
        ->type_name("TIME");
    command
        ->add_option("--record", check.record,
                     "Write what the checks were told into a new file, for --dns, to repeat them later")
        ->type_name("FILE");
    command->add_flag("--pasted", check.pasted, "Read the input as text that was pasted, leniently");
    command->footer(footer);
}

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
    CLI::App app(description, "quillmark");
    app.set_version_flag("--version", "quillmark " QUILLMARK_VERSION);
    app.require_subcommand(1);
    CheckCommand check;
    addCheck(app, check);
    try {
        app.parse(arguments(count, values));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // help or version
        quillmark::writeProblem(std::string(error.what()) + " (see quillmark --help)");
        return 2;
    }
    quillmark::endOnSignals();
    check.reader = quillmark::Reader::ofEnvironment();
    return check.run();
}
