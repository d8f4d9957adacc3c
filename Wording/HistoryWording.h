#pragma once

#include <optional>
#include <string>

#include "QuillmarkKit/HistoryFile.h"
#include "Wording/Reader.h"

/// The lines that tell of the saved history, in every program. Reasons are the system's words.
namespace quillmark {

/// The file was set aside, or comes from a newer version.
std::string historyProblem(const HistoryFileError& error, const Reader& reader);
std::string historyProblem(const HistoryFileError::Damaged& damaged, const Reader& reader);
std::string historyNotOpened(const std::string& reason, const Reader& reader);
std::string historyNotSaved(const std::string& reason, const Reader& reader);
std::string historyNotCleared(const std::string& reason, const Reader& reader);
/// How many reports, perhaps none, wait until they can be saved, or never will be. `why` is one of these lines.
std::string historyNotYetSaved(std::size_t reports, const std::string& why, const Reader& reader);
std::string historyLeftUnsaved(std::size_t reports, const std::string& why, const Reader& reader);
/// A report is too large to be kept. `name` is that of its file; pasted text has none.
std::string historyNotKept(const std::optional<std::string>& name, const Reader& reader);

}  // namespace quillmark
