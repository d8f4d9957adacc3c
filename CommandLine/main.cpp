#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "CommandLine/CheckCommand.h"
#include "CommandLine/HistoryCommand.h"
#include "CommandLine/Output.h"
#include "CommandLine/SignCommands.h"

namespace {

using quillmark::CheckCommand;
using quillmark::HistoryCommand;
using quillmark::KeygenCommand;
using quillmark::SealCommand;
using quillmark::SignCommand;
using quillmark::SigningArguments;

constexpr const char* description =
    "Tells who can be proven to have sent an email, and whether it changed on the way.\n"
    "Everything is checked on this computer; only DNS and registry lookups leave it.";

constexpr const char* footer =
    "Exit status: 0 every message was checked, whatever came of it; 1 some input could not be read or is no\n"
    "email, or the recording or the history could not be written; 2 wrong arguments or an unusable answers\n"
    "file; 130 after Ctrl-C.";

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
    command->add_flag("--save", check.save, "Add the reports to your history");
    command->add_flag("--pasted", check.pasted, "Read the input as text that was pasted, leniently");
    command->footer(footer);
}

constexpr const char* keygenFooter =
    "The record is to be published as TXT in the DNS, with your selector (any name) and domain in its name; "
    "in a\n"
    "zone file a value over 255 bytes stands in several pairs of quotes.\n"
    "Exit status: 0 there is a key; 1 it could not be written; 2 wrong arguments.";

constexpr const char* signingFooter =
    "Line ends become CR LF; every other byte stays as it was. Nothing is written when it can't be signed.\n"
    "Exit status: 0 signed; 1 the message could not be read, is no email or none that can be signed; 2 "
    "wrong\n"
    "arguments or an unusable key.";

void addKeygen(CLI::App& app, KeygenCommand& keygen) {
    CLI::App* command = app.add_subcommand("keygen", "Make a private key and print its DNS record");
    command->add_option("--type", keygen.type, "rsa or ed25519; default: rsa")
        ->check(CLI::IsMember({"rsa", "ed25519"}))
        ->type_name("TYPE");
    command->add_option("--bits", keygen.bits, "The size of an RSA key, 1024 to 16384; default: 2048")
        ->check(CLI::Range(1024, 16384))
        ->type_name("BITS");
    command->add_option("--out", keygen.out, "The new file for the private key (PEM, PKCS#8, for you alone)")
        ->required()
        ->type_name("KEY");
    command->footer(keygenFooter);
}

/// The options of both; the others of a command come before `--time`.
void addSigning(CLI::App& command, SigningArguments& arguments) {
    command.add_option("--domain", arguments.domain, "The domain that signs")
        ->required()
        ->type_name("DOMAIN");
    command.add_option("--selector", arguments.selector, "Which of the domain's keys it is")
        ->required()
        ->type_name("SELECTOR");
    command.add_option("--key", arguments.keyFile, "The file of the private key (PEM, PKCS#8 or PKCS#1)")
        ->required()
        ->type_name("KEY");
    command
        .add_option("--time", arguments.time,
                    "The time of signing (RFC 3339, or seconds since 1970); without it none is stated")
        ->type_name("TIME");
    command.add_option("FILE", arguments.file, "The message; \"-\" is standard input")->required();
    command.footer(signingFooter);
}

void addSign(CLI::App& app, SignCommand& sign) {
    CLI::App* command = app.add_subcommand("sign", "Print a message with a new DKIM-Signature on top");
    command
        ->add_option("--headers", sign.headers,
                     "The fields to sign, such as from:to:subject; default: all the usual ones there are")
        ->type_name("NAMES");
    command
        ->add_option("--canon", sign.canonicalization,
                     "How header/body are brought into canonical form; default: relaxed/relaxed")
        ->type_name("PAIR");
    command->add_option("--length", sign.length, "Sign only so many bytes of the canonical body")
        ->check(CLI::NonNegativeNumber)
        ->type_name("N");
    addSigning(*command, sign);
}

void addSeal(CLI::App& app, SealCommand& seal) {
    CLI::App* command = app.add_subcommand("seal", "Print a message with a new ARC set on top");
    command
        ->add_option("--results", seal.results,
                     "What your server found, such as \"mx.example; dkim=pass header.d=example.org\"")
        ->required()
        ->type_name("TEXT");
    command
        ->add_option("--chain", seal.chain,
                     "Whether the chain so far holds: none, pass or fail; default: none for the first set,\n"
                     "pass for later ones, unchecked")
        ->type_name("VALUE");
    addSigning(*command, seal);
}

constexpr const char* historyFooter =
    "The beginning of an ID will do when it means one report. The history lies in the folder Quillmark in\n"
    "$XDG_DATA_HOME (or ~/.local/share). Exit status: 0 done; 1 there is no such report, the history could\n"
    "not be opened or saved, or was not to be cleared; 2 wrong arguments.";

void addHistory(CLI::App& app, HistoryCommand& history) {
    CLI::App* command =
        app.add_subcommand("history", "Show or change the history: reports that were kept (check --save)");
    command->require_subcommand(1);
    command->footer(historyFooter);
    using Action = HistoryCommand::Action;
    const auto add = [&](const char* name, const char* purpose, Action action) {
        CLI::App* one = command->add_subcommand(name, purpose);
        one->callback([&history, action] { history.action = action; });
        return one;
    };
    add("list", "One line for each report, the oldest first", Action::list);
    CLI::App* show = add("show", "Show a report", Action::show);
    show->add_option("ID", history.ids, "Its ID")->required()->expected(1);
    show->add_flag("--json", history.json, "Write it as one line of JSON");
    add("remove", "Remove reports", Action::remove)->add_option("ID", history.ids, "Their IDs")->required();
    add("clear", "Remove all reports", Action::clear)
        ->add_flag("--yes", history.yes, "Don't ask whether you mean it");
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
    HistoryCommand history;
    KeygenCommand keygen;
    SignCommand sign;
    SealCommand seal;
    addCheck(app, check);
    addHistory(app, history);
    addKeygen(app, keygen);
    addSign(app, sign);
    addSeal(app, seal);
    try {
        app.parse(arguments(count, values));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // help or version
        quillmark::writeProblem(std::string(error.what()) + " (see quillmark --help)");
        return 2;
    }
    quillmark::endOnSignals();
    check.reader = history.reader = sign.reader = seal.reader = quillmark::Reader::ofEnvironment();
    if (quillmark::outputHasColours()) check.markers = history.markers = quillmark::Markers::coloured;
    if (app.got_subcommand("history")) return history.run();
    if (app.got_subcommand("keygen")) return keygen.run();
    if (app.got_subcommand("sign")) return sign.run();
    if (app.got_subcommand("seal")) return seal.run();
    return check.run();
}
