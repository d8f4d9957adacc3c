#pragma once

#include <string_view>

#include "CommandLine/CheckCommand.h"
#include "CommandLine/ExplainCommand.h"
#include "CommandLine/ExtractCommand.h"
#include "CommandLine/HistoryCommand.h"
#include "CommandLine/KeysCommand.h"
#include "CommandLine/RecordingCommand.h"
#include "CommandLine/SignCommands.h"
#include "CommandLine/StampCommand.h"
#include "Manual/CommandTable.h"
#include "Manual/Help.h"

namespace CLI {
class App;
}

namespace quillmark {

/// What the arguments are read into.
struct Commands {
    CheckCommand check = {};
    ExplainCommand explain = {};
    ExtractCommand extract = {};
    HistoryCommand history = {};
    KeygenCommand keygen = {};
    KeysCommand keys = {};
    RecordCommand record = {};
    RecordingCommand recording = {};
    SignCommand sign = {};
    SealCommand seal = {};
    StampCommand stamp = {};
    bool verbose = false, noSandbox = false;
};

/// Defines every command and option, each with its help, which is in the reader's language; `only` the one
/// command that has this name, if one has, as all of them cost more than the check of a small message.
/// `commands` must outlive `app`.
void addCommands(CLI::App& app, Commands& commands, const Reader& reader = {}, std::string_view only = {});

/// The same as a table, from which help, man page and completions are written.
CommandTable tableOf(const CLI::App& app);

/// Its texts in the reader's language, for `--help`.
CommandTable translated(CommandTable table, const Reader& reader);
/// What `--help` says besides.
HelpWords helpWords(const Reader& reader);

}  // namespace quillmark
