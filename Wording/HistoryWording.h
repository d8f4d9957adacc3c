#pragma once

#include <chrono>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "QuillmarkKit/HistoryFile.h"
#include "Wording/Reader.h"

/// The lines that tell of the saved history, and of other files of ours, in every program. Reasons are the
/// system's words.
namespace quillmark {

/// What the system says, and of which file: "/home/a/history.json: Permission denied".
std::string reasonOf(const std::exception& error, const Reader& reader);

/// The file was set aside, or comes from a newer version.
std::string historyProblem(const HistoryFileError& error, const Reader& reader);
std::string historyProblem(const HistoryFileError::Damaged& damaged, const Reader& reader);
std::string historyNotOpened(const std::string& reason, const Reader& reader);
std::string historyNotSaved(const std::string& reason, const Reader& reader);
std::string historyNotCleared(const std::string& reason, const Reader& reader);
/// How many reports, perhaps none, wait until they can be saved, or never will be. `why` is one of these
/// lines.
std::string historyNotYetSaved(std::size_t reports, const std::string& why, const Reader& reader);
std::string historyLeftUnsaved(std::size_t reports, const std::string& why, const Reader& reader);
std::string historyNotAllCleared(const std::string& reason, const Reader& reader);
std::string historyNotRecovered(const std::string& reason, const Reader& reader);
/// Whom a change waits for, and for how long.
std::string historyWaits(const LockHolder& holder, std::chrono::seconds patience, const Reader& reader);
/// A report is too large to be kept. `name` is that of its file; pasted text has none.
std::string historyNotKept(const std::optional<std::string>& name, const Reader& reader);

/// A file in a place of ours that is not opened.
std::string fileIgnored(const std::filesystem::path& file, const Reader& reader);

/// What came of giving the reports of a damaged file back, a few lines: how many came back, how many couldn't
/// be read, and what is wrong with the file, and where.
std::vector<std::string> historyRecovered(const HistoryRecovery& recovery, const std::filesystem::path& file,
                                          const Reader& reader);
/// Asks whether all of this shall go; the lines before the question name the files.
std::vector<std::string> historyClearQuestion(const HistoryContents& contents, const Reader& reader);
/// The same where the question stands beside it: how much goes, and which files.
std::vector<std::string> historyToClear(const HistoryContents& contents, const Reader& reader);
/// Tells what went.
std::vector<std::string> historyCleared(const HistoryContents& contents, const Reader& reader);

}  // namespace quillmark
