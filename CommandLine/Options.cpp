#include "CommandLine/Options.h"

#include <CLI/CLI.hpp>
#include <array>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Manual/Help.h"
#include "QuillmarkKit/Version.h"

namespace quillmark {

namespace {

/// Marks a text of the help for the catalogues. Those that are arguments of `add…` are found by themselves.
constexpr const char* forHelp(const char* text) { return text; }

constexpr const char* description = forHelp(
    "Says who can be proven to have sent an email, and whether it was changed. Everything is checked on "
    "this computer; only DNS and registry lookups leave it.");

/// One for each thing that people do.
const std::vector<CommandTable::Example> examples = {
    {"quillmark check message.eml", forHelp("who sent it?")},
    {"quillmark check --pasted - < source.txt", forHelp("text copied from a mail program")},
    {"quillmark check --save *.eml", forHelp("many; and keep the reports")},
    {"quillmark check --summary Inbox.mbox", forHelp("a mailbox, as tables")},
    {"quillmark check --json message.eml", forHelp("for another program to read")},
    {"quillmark check --record now.json message.eml", forHelp("--dns now.json repeats it")},
    {"quillmark extract Inbox.mbox 3 > m.eml", forHelp("one message of it")},
    {"quillmark sign --domain a.org --selector k --key key.pem m.eml", forHelp("sign")},
};

const std::vector<CommandTable::Section> sections = {
    {"WHAT IS READ",
     {"The bytes of a FILE tell what it is, never its name: one message (.eml); a mailbox (mbox or MMDF), "
      "of which each message is checked by itself; a message with its length in front and a property list "
      "behind it; a message of a mail server's store (dbox); any of them as UTF-16; a file of Outlook's "
      "(.msg), of which the header lines are checked; all of them from a pipe as well. Messages that are "
      "attached to a message are checked after it.",
      "Of a folder each file is read, in the order of their names, and each of the folders in it; hidden "
      "ones are passed over. In a Maildir, which holds cur, new and tmp, only messages in cur and new are "
      "read, and its subfolders, hidden or not. What mail programs keep beside their mailboxes, such as "
      "indexes and empty files, is passed over; --summary counts it.",
      "Files that are compressed (gzip, bzip2, xz, Zstandard) and archives (zip, tar) are unpacked while "
      "they are read, three in each other, and nothing is written to disk; what in an archive is no "
      "message is passed over. How other archives are unpacked is said."}},
    {"ENVIRONMENT",
     {"LC_ALL, LC_MESSAGES and LANG choose the language of reports and help, of seventeen; else it is "
      "English. TZ is the time zone. With NO_COLOR set to anything, or where output is no terminal, "
      "nothing is coloured.",
      "https_proxy or, without it, all_proxy names a proxy for the lookups, no_proxy what to ask without it; "
      "in capitals, too. An empty variable counts as one that isn't set.",
      "XDG_DATA_HOME (default: ~/.local/share) holds the history, XDG_CONFIG_HOME (default: ~/.config) the "
      "settings, XDG_CACHE_HOME (default: ~/.cache) IANA's list of registries."}},
    {"FILES",
     {"~/.local/share/Quillmark/history.json holds the reports that were kept, and keys.db beside it the key "
      "book, for you alone. ~/.cache/quillmark holds what can be fetched again. "
      "~/.config/quillmark/quillmark.conf holds the settings of quillmark-desktop.",
      "Four of them hold for check as well: who is asked for DNS records, whether registries are asked "
      "how old domains are, whether the reports are kept in the history, and whether keys are remembered. "
      "--resolver, --domain-age, --no-domain-age, --save, --no-save, --key-book and --no-key-book go before "
      "them; the reports of a check with --dns are kept with --save alone, its keys never, and with --out "
      "neither. As long as there are no settings, the usual services and registries are asked and nothing "
      "is kept."}},
    {"WHAT LEAVES THE COMPUTER",
     {"Names of domains, never the text of a message: DNS is asked over HTTPS at cloudflare-dns.com and, "
      "when that gives no answer within two seconds, at dns.google; registries are asked for the age of the "
      "domains in From and Reply-To, unless the settings or --no-domain-age say not to. A sender's SPF "
      "record may ask for names that contain the envelope sender's address. With --dns nobody is asked, with "
      "--resolver, or the setting, whom you name; the reports name them. keys ask sends the name of a domain "
      "to the archive that you name, stamp the SHA-256 of a file to the authority."}},
    {"SANDBOX",
     {"Before it reads anything that somebody else may have written, each command gives up what it doesn't "
      "need: it may read its files and what the system keeps for all programs, write the files that "
      "options name, or the history and the key book, and where nobody is to be asked make no connection; "
      "it starts no program, and reaches no other. With --files-from it may read everything, since the list "
      "goes on while files are read. What is refused nevertheless is told like a file without permission; "
      "--no-sandbox leaves all of it out. Linux does it, by Landlock and seccomp: --version --verbose says "
      "what there is of them. docs/sandbox.md in the sources says more."}},
    {"SEE ALSO",
     {"quillmark-desktop(1) is the same in a window. quillmark-formats(5) says what is in the JSON, the CSV, "
      "the history, files with answers and recordings, and more of what is read."}},
};

constexpr const char* checkFooter = forHelp(
    "Exit status: 0 every message was checked, whatever came of it; 1 some input could not be read or is no "
    "email, or the recording, the history or the CSV file could not be written; 2 wrong arguments or an "
    "unusable answers file; 3 a verdict has the tone of --fail-on or a worse one; 130 after Ctrl-C, 143 "
    "after SIGTERM: what was checked by then is kept. From one to the next less is proven: good, caution, "
    "unknown, bad.");

/// Adds an option with a value, which is called `value` in the help.
template <typename Variable>
CLI::Option* add(CLI::App& command, const char* name, Variable& variable, const std::string& value,
                 const char* purpose) {
    return command.add_option(name, variable, purpose)->type_name(value);
}

/// The group of options that `--help-all` tells of, and `--help` doesn't.
constexpr const char* seldom = "seldom";

/// "--name" and "--no-name", of which one at most may be given; without either there is no value.
void addSwitch(CLI::App& command, const std::string& name, std::optional<bool>& variable,
               const char* purposeOfOn, const char* purposeOfOff, const char* group = "Options") {
    CLI::Option* const on =
        command.add_flag_callback("--" + name, [&variable] { variable = true; }, purposeOfOn)->group(group);
    command.add_flag_callback(
               "--no-" + name, [&variable] { variable = false; }, purposeOfOff)
        ->excludes(on)
        ->group(group);
}

/// What a value is called, with the likely ones for completions to offer; others may be taken, too.
std::string suggesting(const std::string& value, const char* choices) { return value + ":{" + choices + "}"; }

void addCheck(CLI::App& app, CheckCommand& check) {
    CLI::App& command = *app.add_subcommand("check", "Check messages and report on each");
    command.set_help_all_flag("--help-all", forHelp("Print help on every option"));
    command.add_option("FILE", check.files,
                       "Messages, mailboxes and folders to check; \"-\" is standard input");
    add(command, "--files-from", check.filesFrom, "LIST",
        "Check the files that are named in a list, a line for each, too; \"-\" is standard input")
        ->group(seldom);
    command
        .add_flag("-0,--null", check.areNamesZeroEnded,
                  "In that list a zero byte ends each name, as find -print0 writes them")
        ->group(seldom);
    command.callback([&check] {
        if (check.files.empty() && !check.filesFrom) throw CLI::RequiredError("FILE");
    });
    command.add_flag("--json", check.json, "Write each report as one line of JSON");
    command.add_flag(
        "--each", check.each,
        "Write one line for each message: tone, number of cautions, headline and name, with tabs "
        "between them");
    command
        .add_flag("--sha256", check.sha256,
                  "Add each message's SHA-256 to its report as JSON and its row of the table")
        ->group(seldom);
    CLI::Option* const answers =
        add(command, "--dns", check.dnsFiles, "FILE",
            "Take DNS answers from a file and ask nobody; of several files the first that knows an answer "
            "gives it, and where they differ is said")
            ->allow_extra_args(false)
            ->group(seldom);
    add(command, "--tsa-ca", check.tsaCA, "FILE",
        "Certificates of time-stamping authorities (PEM) that are trusted beside the system's, for a "
        "recording that was stamped")
        ->group(seldom);
    add(command, "--resolver", check.resolver, suggesting("URL", "usual,system"),
        "Ask this DNS service (DNS over HTTPS, RFC 8484); a URL that ends with {?dns} is asked by GET, any "
        "other by POST. usual: the usual two. system: the servers that this computer asks for everything "
        "else. Whoever it is sees the names, and with system so may others on the way; default: as in the "
        "settings of the window")
        ->excludes(answers)
        ->group(seldom);
    add(command, "--registrations", check.registrationsFile, "FILE",
        "Take registration dates of domains from a file")
        ->group(seldom);
    addSwitch(
        command, "domain-age", check.domainAge,
        forHelp("Ask registries how old the sender's domains are; default: as in the settings of the window"),
        forHelp("Ask no registry"), seldom);
    add(command, "--at", check.at, "TIME", "The time of the check (RFC 3339); default: now")->group(seldom);
    add(command, "--record", check.record, "FILE",
        "Write what the checks were told into a new file, for --dns, to repeat them later; \"-\" is standard "
        "output");
    addSwitch(command, "save", check.save,
              forHelp("Add the reports to your history; default: as in the settings of the window"),
              forHelp("Don't add them"));
    command
        .add_flag("--one-page", check.onePage,
                  "Write one page for whoever you turn to, such as your bank, in place of each report")
        ->group(seldom);
    addSwitch(command, "key-book", check.keyBook,
              forHelp("Add the keys that DNS gives to your key book, and look into it where one is gone; "
                      "default: add as in the settings of the window, look unless --dns is given"),
              forHelp("Leave the key book alone"), seldom);
    command.add_flag("--summary", check.summary,
                     "Write how often each verdict and signing domain came, in place of the reports");
    add(command, "--csv", check.csv, "FILE",
        "Write a table of the reports into a new file; \"-\" is standard output");
    add(command, "--html", check.html, "FILE",
        "Write a report on all of them into a new file, as a page that any browser shows; \"-\" is standard "
        "output");
    add(command, "--only", check.only, suggesting("TONES", "good,caution,unknown,bad"),
        "Write and keep the reports of these tones alone, such as bad,caution; caution means those with a "
        "caution beside the verdict, too");
    add(command, "--fail-on", check.failOn, "TONE",
        "Exit with 3 when a verdict has this tone or proves less: caution (or one beside it), unknown or bad")
        ->check(CLI::IsMember({"caution", "unknown", "bad"}))
        ->group(seldom);
    add(command, "--expect", check.expect, "DOMAIN", "Say whether it is from this domain or address");
    CLI::Option* const noUndo = command
                                    .add_flag("--no-undo", check.noUndo,
                                              "Don't look for what was changed where a signature is broken")
                                    ->group(seldom);
    add(command, "--dmarc", check.dmarc, "RFC",
        "Judge DMARC by RFC 7489, as most receivers do (the default), or by RFC 9989, which replaced it")
        ->check(CLI::IsMember({"7489", "9989"}))
        ->group(seldom);
    add(command, "--as-signed", check.asSigned, "FOLDER",
        "Write, of changed messages, what was signed into new files, each with a text that tells of it")
        ->excludes(noUndo)
        ->group(seldom);
    CLI::Option* const out = add(command, "--out", check.out, "FOLDER",
                                 "Write reports as lines of JSON into files in a folder, one for each "
                                 "large file and for each 1,000 small ones, with what the checks were told "
                                 "beside it; print their names. What is there already isn't made again: "
                                 "the same command goes on where it was stopped")
                                 ->group(seldom);
    for (const char* const other : {"--json", "--each", "--one-page", "--summary", "--csv", "--html",
                                    "--record", "--save", "--key-book", "--fail-on", "--as-signed"}) {
        out->excludes(command.get_option(other));
    }
    add(command, "--jobs", check.jobs, "N", "How many messages are checked at once; default: as suits")
        ->check(CLI::Range(1, 256))
        ->group(seldom);
    add(command, "--timeout", check.timeout, "SECONDS",
        "How long the lookups of one message may take; default: 60 for DNS")
        ->check(CLI::Range(1, 3600))
        ->group(seldom);
    command.add_flag("--pasted", check.pasted, "Read the input as text that was pasted, leniently");
    command.add_flag("--no-attached", check.noAttached, "Don't check messages that are attached to others")
        ->group(seldom);
    command.footer(checkFooter);
}

constexpr const char* explainFooter = forHelp(
    "Without a word it lists those that it knows. Exit status: 0 there it is; 1 there is no such word; 2 "
    "wrong arguments.");

void addExplain(CLI::App& app, ExplainCommand& explain) {
    CLI::App& command = *app.add_subcommand("explain", "Explain a technical word of the reports");
    command.add_option("WORD", explain.words, "The word, such as DKIM, selector or signing domain");
    command.footer(explainFooter);
}

constexpr const char* extractFooter = forHelp(
    "It is written byte for byte as it is checked: without what the mailbox puts around it, and with its "
    "\">From \" lines as the signatures have them; an attached one with CR LF line ends. Exit status: 0 "
    "there it is; 1 FILE could not be read or has no such message; 2 wrong arguments.");

void addExtract(CLI::App& app, ExtractCommand& extract) {
    CLI::App& command = *app.add_subcommand("extract", "Print one message of a mailbox");
    command.add_flag("--as-stored", extract.asStored,
                     "Leave its \">From \" lines as they stand in the mailbox");
    add(command, "--inside", extract.inside, "NAME",
        "Of an archive: the file in it, such as Mail/Inbox.mbox");
    command.add_option("FILE", extract.file, "The mailbox or message; \"-\" is standard input")->required();
    command
        .add_option(
            "NUMBER", extract.number,
            "Which message, as check numbers them: 3, or 3.2.1 for attached message 2.1 of message 3; a "
            "message that is alone in its file is 1")
        ->required();
    command.footer(extractFooter);
}

constexpr const char* keygenFooter = forHelp(
    "The record is to be published as TXT in the DNS, with your selector (any name) and domain in its "
    "name; in a zone file a value over 255 bytes stands in several pairs of quotes. Exit status: 0 there "
    "is a key; 1 it could not be written; 2 wrong arguments.");

constexpr const char* recordFooter = forHelp(
    "Exit status: 0 the record was printed; 1 it could not be; 2 wrong arguments or an unusable key.");

constexpr const char* signingFooter = forHelp(
    "Line ends become CR LF; every other byte stays as it was. Nothing is written when it can't be signed. "
    "Exit status: 0 signed; 1 the message could not be read, is no email or none that can be signed; 2 "
    "wrong arguments or an unusable key.");

void addKeygen(CLI::App& app, KeygenCommand& keygen) {
    CLI::App& command = *app.add_subcommand("keygen", "Make a private key and print its DNS record");
    add(command, "--type", keygen.type, "TYPE", "rsa or ed25519; default: rsa")
        ->check(CLI::IsMember({"rsa", "ed25519"}));
    add(command, "--bits", keygen.bits, "BITS", "The size of an RSA key, 1024 to 16384; default: 2048")
        ->check(CLI::Range(1024, 16384));
    add(command, "--out", keygen.out, "KEY",
        "The new file for the private key (PEM, PKCS#8, for you alone); \"-\" is standard output, which then "
        "gets the key and no record")
        ->required();
    command.footer(keygenFooter);
}

void addPassphrase(CLI::App& command, KeyFile& key) {
    add(command, "--passphrase-file", key.passphraseFile, "FILE",
        "Take the passphrase of an encrypted key from the first line of a file; without it the terminal is "
        "asked");
}

void addRecord(CLI::App& app, RecordCommand& record) {
    CLI::App& command = *app.add_subcommand("record", "Print the DNS record of a private key");
    addPassphrase(command, record.key);
    command
        .add_option("KEY", record.key.path,
                    "The file of the private key (PEM, PKCS#8 or PKCS#1); \"-\" is standard input")
        ->required();
    command.footer(recordFooter);
}

void addRecording(CLI::App& app, RecordingCommand& recording) {
    CLI::App* command = app.add_subcommand("recording", "Work with recordings, which check --record writes");
    command->require_subcommand(1);
    CLI::App* merge = command->add_subcommand("merge", "Make one recording of several");
    merge->add_option("OUT", recording.out, "The new recording; \"-\" is standard output")->required();
    merge
        ->add_option(
            "FILE", recording.files,
            "Recordings, of which the first that knows an answer gives it; where they differ is said")
        ->required();
    merge->footer(
        forHelp("Exit status: 0 it is there; 1 it could not be written; 2 wrong arguments, or a file is no "
                "recording."));
}

/// The options of both; the others of a command come before `--time`.
void addSigning(CLI::App& command, SigningArguments& arguments) {
    add(command, "--domain", arguments.domain, "DOMAIN", "The domain that signs")->required();
    add(command, "--selector", arguments.selector, "SELECTOR", "Which of the domain's keys it is")
        ->required();
    add(command, "--key", arguments.key.path, "KEY", "The file of the private key (PEM, PKCS#8 or PKCS#1)")
        ->required();
    addPassphrase(command, arguments.key);
    add(command, "--time", arguments.time, "TIME",
        "The time of signing (RFC 3339, or seconds since 1970), or none to state none; default: now");
    command.add_option("FILE", arguments.file, "The message; \"-\" is standard input")->required();
    command.footer(signingFooter);
}

void addSign(CLI::App& app, SignCommand& sign) {
    CLI::App& command = *app.add_subcommand("sign", "Print a message with a new DKIM-Signature on top");
    add(command, "--headers", sign.headers, "NAMES",
        "The fields to sign, such as from:to:subject; default: all the usual ones there are, and From, "
        "Subject, Date, To, Cc and Reply-To once more, so that none can be added");
    add(command, "--canon", sign.canonicalization,
        suggesting("PAIR", "relaxed/relaxed,relaxed/simple,simple/relaxed,simple/simple"),
        "How header/body are brought into canonical form; default: relaxed/relaxed");
    add(command, "--length", sign.length, "N", "Sign only so many bytes of the canonical body")
        ->check(CLI::NonNegativeNumber);
    addSigning(command, sign);
}

void addSeal(CLI::App& app, SealCommand& seal) {
    CLI::App& command = *app.add_subcommand("seal", "Print a message with a new ARC set on top");
    add(command, "--results", seal.results, "TEXT",
        "What your server found, such as \"mx.example; dkim=pass header.d=example.org\"")
        ->required();
    add(command, "--chain", seal.chain, "VALUE",
        "Whether the chain so far holds: none, pass or fail; default: none for the first set, pass for later "
        "ones, unchecked")
        ->check(CLI::IsMember({"none", "pass", "fail"}));
    addSigning(command, seal);
}

constexpr const char* keysFooter = forHelp(
    "The key book lies beside the history, in the folder Quillmark in $XDG_DATA_HOME (or ~/.local/share). "
    "A list is JSON, a recording, or TXT records as they stand in a zone file. What a file says is told as "
    "what it is, and proves nothing by itself. Exit status: 0 done; 1 there is nothing of the kind, or "
    "something could not be read or written; 2 wrong arguments, or a file is no list.");

void addKeys(CLI::App& app, KeysCommand& keys) {
    CLI::App* command =
        app.add_subcommand("keys", "Work with keys that DNS no longer has, and your key book");
    command->require_subcommand(1);
    command->footer(keysFooter);
    using Action = KeysCommand::Action;
    const auto one = [&](CLI::App* made, Action action) {
        made->callback([&keys, action] { keys.action = action; });
        return made;
    };
    CLI::App* list =
        one(command->add_subcommand("list", "One line for each key of your key book"), Action::list);
    list->add_option("PART", keys.name, "Only keys whose names contain this");
    CLI::App* show =
        one(command->add_subcommand("show", "Show keys whole, with their fingerprints"), Action::show);
    show->add_option("PART", keys.name, "A key's name, or a part of it")->required();
    show->add_flag("--json", keys.json, "Write them as an export has them");
    CLI::App* out =
        one(command->add_subcommand("export", "Write keys into a new file, for others"), Action::exportKeys);
    out->add_option("OUT", keys.out, "The new file; \"-\" is standard output")->required();
    out->add_option("PART", keys.name, "Only keys whose names contain this");
    CLI::App* in =
        one(command->add_subcommand("import", "Add the keys of files to your key book"), Action::import);
    in->add_option("FILE", keys.files, "Exports, lists, recordings or zone files")->required();
    CLI::App* forget =
        one(command->add_subcommand("forget", "Remove keys from your key book"), Action::forget);
    forget->add_option("NAME", keys.name, "Those of this name");
    add(*forget, "--file", keys.file, "NAME", "Those that this file says, by its name without folders");
    forget->add_flag("--all", keys.all, "All of them");
    CLI::App* derive =
        one(command->add_subcommand("derive",
                                    "Find the RSA keys that several signatures of messages have in common"),
            Action::derive);
    derive->add_option("FILE", keys.files, "Messages, mailboxes and folders; \"-\" is standard input")
        ->required();
    derive->add_flag("--json", keys.json, "Write the keys as a list");
    add(*derive, "--pairs", keys.pairs, "N",
        "How many pairs of signatures are tried; with 2,048 bits each may take half a minute; default: 100")
        ->check(CLI::Range(1, 1'000'000));
    CLI::App* compare =
        one(command->add_subcommand("compare", "Say which keys two lists have in common"), Action::compare);
    compare->add_option("LIST", keys.files, "Two lists")->required()->expected(2);
    CLI::App* ask =
        one(command->add_subcommand(
                "ask", "Ask an archive for the keys of a domain, which it learns by that, and add them"),
            Action::ask);
    add(*ask, "--archive", keys.archive, "URL",
        "The archive; {domain} in it stands for the domain, else ?domain= is put behind")
        ->required();
    ask->add_option("DOMAIN", keys.domain, "The domain")->required();
}

constexpr const char* stampFooter = forHelp(
    "Nothing but the SHA-256 of the file is sent. The reply is kept beside it, as FILE.tsr; check --dns "
    "looks at it, without asking anybody. Exit status: 0 it is there; 1 it isn't; 2 wrong arguments.");

void addStamp(CLI::App& app, StampCommand& stamp) {
    CLI::App& command = *app.add_subcommand("stamp", "Have an authority sign that a recording exists now");
    add(command, "--tsa", stamp.authority, "URL", "The time-stamping authority (RFC 3161)")->required();
    add(command, "--tsa-ca", stamp.trusted, "FILE",
        "Certificates of authorities (PEM) that are trusted beside the system's");
    command.add_option("FILE", stamp.file, "The recording, or any other file")->required();
    command.footer(stampFooter);
}

constexpr const char* historyFooter = forHelp(
    "The beginning of an ID will do when it means one report. The history lies in the folder Quillmark in "
    "$XDG_DATA_HOME (or ~/.local/share). Exit status: 0 done; 1 there is no such report, the history could "
    "not be opened or saved, or was not to be cleared, or some of a damaged file could not be read; 2 wrong "
    "arguments.");

void addHistory(CLI::App& app, HistoryCommand& history) {
    CLI::App* command =
        app.add_subcommand("history", "Show or change the history: reports kept with check --save");
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
    const auto addChange = [&](const char* name, const char* purpose, Action action) {
        CLI::App* one = add(name, purpose, action);
        one->add_option("--timeout", history.timeout,
                        "How many seconds to wait while another program changes the history, default: 120")
            ->type_name("SECONDS")
            ->check(CLI::Range(0, 86'400));
        return one;
    };
    addChange("remove", "Remove reports", Action::remove)
        ->add_option("ID", history.ids, "Their IDs")
        ->required();
    addChange("clear", "Remove all reports, and damaged histories that were set aside", Action::clear)
        ->add_flag("--yes", history.yes, "Don't ask whether you mean it");
    addChange("recover", "Give the reports of a damaged history back", Action::recover)
        ->add_option("FILE", history.damagedFile, "The file that was set aside; it stays as it is")
        ->required();
}

/// What values are called in the help.
[[maybe_unused]] constexpr std::array valueNames = {
    toTranslate("FILE"),   toTranslate("LIST"),    toTranslate("KEY"),    toTranslate("TIME"),
    toTranslate("TONE"),   toTranslate("TONES"),   toTranslate("TYPE"),   toTranslate("NAMES"),
    toTranslate("PAIR"),   toTranslate("VALUE"),   toTranslate("NUMBER"), toTranslate("NAME"),
    toTranslate("FOLDER"), toTranslate("SECONDS"), toTranslate("DOMAIN"), toTranslate("SELECTOR"),
    toTranslate("TEXT"),   toTranslate("BITS")};

/// An option's value and its choices, out of a name such as "TYPE:{rsa,ed25519}".
void describeValue(const CLI::Option& option, OptionEntry& entry) {
    if (option.get_expected_max() == 0 || option.get_type_size() == 0) return;
    const std::string type = option.get_type_name();
    entry.value = type.substr(0, type.find(':'));
    const auto brace = type.find('{');
    if (brace == std::string::npos) return;
    std::stringstream choices(type.substr(brace + 1, type.find('}') - brace - 1));
    for (std::string each; std::getline(choices, each, ',');) entry.choices.push_back(each);
}

OptionEntry entryOf(const CLI::Option& option) {
    OptionEntry entry{.purpose = option.get_description(),
                      .required = option.get_required(),
                      .isSeldom = option.get_group() == seldom};
    for (const std::string& name : option.get_snames()) entry.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) entry.names.push_back("--" + name);
    describeValue(option, entry);
    return entry;
}

/// The command of that name, or all of them without one.
void addNamed(CLI::App& app, Commands& commands, std::string_view only) {
    const auto add = [&](std::string_view name, const auto& addOne, auto& command) {
        if (only.empty() || only == name) addOne(app, command);
    };
    add("check", addCheck, commands.check);
    add("explain", addExplain, commands.explain);
    add("extract", addExtract, commands.extract);
    add("history", addHistory, commands.history);
    add("keygen", addKeygen, commands.keygen);
    add("keys", addKeys, commands.keys);
    add("record", addRecord, commands.record);
    add("recording", addRecording, commands.recording);
    add("sign", addSign, commands.sign);
    add("seal", addSeal, commands.seal);
    add("stamp", addStamp, commands.stamp);
}

}  // namespace

CommandTable tableOf(const CLI::App& app) {
    CommandTable table{.name = app.get_name(), .purpose = app.get_description(), .remarks = app.get_footer()};
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional()) {
            table.arguments.push_back({.name = option->get_name(true),
                                       .purpose = option->get_description(),
                                       .required = option->get_required(),
                                       .several = option->get_expected_max() > 1});
        } else {
            table.options.push_back(entryOf(*option));
        }
    }
    for (const CLI::App* each : app.get_subcommands({})) table.commands.push_back(tableOf(*each));
    if (app.get_parent() == nullptr) table.examples = examples, table.sections = sections;
    return table;
}

CommandTable translated(CommandTable table, const Reader& reader) {
    const auto translate = [&](std::string& text) {
        if (!text.empty()) text = reader.translate(text);
    };
    for (std::string* each : {&table.purpose, &table.remarks}) translate(*each);
    for (OptionEntry& each : table.options) {
        translate(each.purpose);
        translate(each.value);
    }
    for (ArgumentEntry& each : table.arguments) {
        translate(each.purpose);
        translate(each.name);
    }
    for (CommandTable::Example& each : table.examples) translate(each.purpose);
    for (CommandTable& each : table.commands) each = translated(std::move(each), reader);
    return table;
}

HelpWords helpWords(const Reader& reader) {
    return {.usage = reader.translate("Usage"),
            .options = reader.translate("Options"),
            .examples = reader.translate("Examples"),
            .commands = reader.translate("Commands, each with a --help of its own"),
            .anyCommand = reader.translate("COMMAND"),
            .anyOptions = reader.translate("OPTIONS"),
            .more = reader.translate("All options and exit statuses")};
}

void addCommands(CLI::App& app, Commands& commands, const Reader& reader, std::string_view only) {
    app.name("quillmark");
    app.description(description);
    // Before there are commands, which take it over.
    app.formatter_fn([reader](const CLI::App* one, const std::string& path, CLI::AppFormatMode mode) {
        return helpText(translated(tableOf(*one), reader), path, helpWords(reader),
                        mode == CLI::AppFormatMode::All ? HelpExtent::all : HelpExtent::usual);
    });
    app.set_help_flag("-h,--help", "Print this help");
    app.set_version_flag("--version", "quillmark " QUILLMARK_VERSION, "Print the version");
    app.add_flag("--verbose", commands.verbose, "With --version: print, too, what confines this program")
        ->group(seldom);
    // Also behind a command.
    app.fallthrough();
    app.add_flag("--no-sandbox", commands.noSandbox, "Keep all rights while messages are read")
        ->group(seldom);
    app.require_subcommand(1);
    addNamed(app, commands, only);
    if (app.get_subcommands({}).empty()) addNamed(app, commands, {});
    app.set_help_all_flag("--help-all",
                          forHelp("Print help on every option"))
        ->group(seldom);  // each command has its own, or none
}

}  // namespace quillmark
