#pragma once

#include "CommandLine/CheckCommand.h"
#include "CommandLine/HistoryCommand.h"
#include "CommandLine/SignCommands.h"
#include "Manual/CommandTable.h"

namespace CLI {
class App;
}

namespace quillmark {

/// What the arguments are read into.
struct Commands {
    CheckCommand check = {};
    HistoryCommand history = {};
    KeygenCommand keygen = {};
    RecordCommand record = {};
    SignCommand sign = {};
    SealCommand seal = {};
};

/// Defines every command and option, each with its help. `commands` must outlive `app`.
void addCommands(CLI::App& app, Commands& commands);

/// The same as a table, from which help, man page and completions are written.
CommandTable tableOf(const CLI::App& app);

}  // namespace quillmark
