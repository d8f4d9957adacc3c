#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "CommandLine/OutputFile.h"
#include "Sandbox/Sandbox.h"
#include "Wording/Reader.h"

/// The sandbox of the commands, all of which read what others may have written.
namespace quillmark {

/// From now on `restricted` restricts nothing, as the person asks; standard error says so.
void leaveOutSandbox(const Reader& reader);

/// Each command calls this once: as soon as it has opened the files that it makes, which are named here, and
/// before it reads or starts a thread. From then on it can do no more than this, and signals end it
/// (`endOnSignals`). Throws `OutputFileError` when the files couldn't be completed.
void restricted(const Sandbox& sandbox, std::vector<OutputFile*> made = {});

/// What to allow reading for inputs with these names: of folders also what links lead to from there. "-" is
/// none.
std::vector<std::filesystem::path> readable(const std::vector<std::string>& files);

/// What holds on this system, line by line. Restricts the process to find out, unless it goes without.
std::vector<std::string> sandboxLines(const Reader& reader);

}  // namespace quillmark
