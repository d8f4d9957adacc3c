#include "Wording/HistoryWording.h"

#include "Wording/Quoted.h"
#include "Wording/Wording.h"

namespace quillmark {

// The standard library has a function `quoted`, too, which is found by its arguments.

std::string historyProblem(const HistoryFileError& error, const Reader& reader) {
    if (const auto* damaged = std::get_if<HistoryFileError::Damaged>(&error.value))
        return historyProblem(*damaged, reader);
    return reader.translate(
        "Your history was saved by a newer version of Quillmark. Update Quillmark to open it; nothing was "
        "changed.");
}

std::string historyProblem(const HistoryFileError::Damaged& damaged, const Reader& reader) {
    return reader.translate(
        "Your saved history couldn’t be read, so Quillmark started a new one. The old file was kept as “%1” "
        "in the same folder.",
        {quillmark::quoted(damaged.movedTo.filename().string())});
}

std::string historyNotOpened(const std::string& reason, const Reader& reader) {
    return reader.translate("Your history couldn’t be opened: %1", {quillmark::quoted(reason)});
}

std::string historyNotSaved(const std::string& reason, const Reader& reader) {
    return reader.translate("Quillmark couldn’t save your history: %1", {quillmark::quoted(reason)});
}

std::string historyNotCleared(const std::string& reason, const Reader& reader) {
    return reader.translate("Your history couldn’t be cleared: %1", {quillmark::quoted(reason)});
}

std::string historyNotYetSaved(std::size_t reports, const std::string& why, const Reader& reader) {
    if (reports == 0) return why;
    return reader.translateCount("%n report isn’t saved yet. %1", "%n reports aren’t saved yet. %1",
                                 static_cast<std::int64_t>(reports), {why});
}

std::string historyLeftUnsaved(std::size_t reports, const std::string& why, const Reader& reader) {
    if (reports == 0) return why;
    return reader.translateCount("%n report wasn’t saved. %1", "%n reports weren’t saved. %1",
                                 static_cast<std::int64_t>(reports), {why});
}

std::string historyNotKept(const std::optional<std::string>& name, const Reader& reader) {
    if (!name) return reader.translate("The report is too large to be kept in the history.");
    return reader.translate("The report on “%1” is too large to be kept in the history.",
                            {quillmark::quoted(placeName(*name, reader))});
}

}  // namespace quillmark
