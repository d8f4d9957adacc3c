#include "Wording/HistoryWording.h"

#include <cerrno>
#include <cstdint>
#include <new>
#include <system_error>

#include "Wording/Details.h"
#include "Wording/Quoted.h"
#include "Wording/Wording.h"

namespace quillmark {

// The standard library has a function `quoted`, too, which is found by its arguments.

namespace {

std::int64_t number(std::size_t count) { return static_cast<std::int64_t>(count); }

}  // namespace

std::string reasonOf(const std::exception& error, const Reader& reader) {
    if (dynamic_cast<const std::bad_alloc*>(&error)) return systemErrorText(ENOMEM, reader);
    const auto* fromSystem = dynamic_cast<const std::system_error*>(&error);
    std::string words =
        fromSystem ? systemErrorText(fromSystem->code().message(), reader) : detailText(error.what(), reader);
    const auto* ofFile = dynamic_cast<const std::filesystem::filesystem_error*>(&error);
    if (!ofFile || ofFile->path1().empty()) return words;
    return reader.translate("%1: %2", {ofFile->path1().string(), words});
}

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

std::string historyWaits(const LockHolder& holder, std::chrono::seconds patience, const Reader& reader) {
    if (holder.program.empty()) {
        return reader.translateCount(
            "Another program is changing your history. Waiting for it, for %n second at most.",
            "Another program is changing your history. Waiting for it, for %n seconds at most.",
            patience.count(), {});
    }
    return reader.translateCount(
        "“%1” (process %2) is changing your history. Waiting for it, for %n second at most.",
        "“%1” (process %2) is changing your history. Waiting for it, for %n seconds at most.",
        patience.count(), {quillmark::quoted(holder.program), std::to_string(holder.process)});
}

std::string historyNotAllCleared(const std::string& reason, const Reader& reader) {
    return reader.translate("Not everything could be removed: %1", {quillmark::quoted(reason)});
}

std::string historyNotRecovered(const std::string& reason, const Reader& reader) {
    return reader.translate("The reports couldn’t be put back: %1", {quillmark::quoted(reason)});
}

std::string historyNotKept(const std::optional<std::string>& name, const Reader& reader) {
    if (!name) return reader.translate("The report is too large to be kept in the history.");
    return reader.translate("The report on “%1” is too large to be kept in the history.",
                            {quillmark::quoted(placeName(*name, reader))});
}

std::string fileIgnored(const std::filesystem::path& file, const Reader& reader) {
    return reader.translate("“%1” is ignored, as it is no ordinary file or too large.",
                            {quillmark::quoted(file.string())});
}

std::vector<std::string> historyRecovered(const HistoryRecovery& recovery, const std::filesystem::path& file,
                                          const Reader& reader) {
    const std::string name = quillmark::quoted(file.string());
    std::vector<std::string> lines;
    if (recovery.recovered > 0) {
        lines.push_back(reader.translateCount("%n report was put back into your history.",
                                              "%n reports were put back into your history.",
                                              number(recovery.recovered)));
    }
    if (recovery.known > 0) {
        lines.push_back(reader.translateCount("%n report of “%1” is in your history already.",
                                              "%n reports of “%1” are in your history already.",
                                              number(recovery.known), {name}));
    }
    if (recovery.unread > 0) {
        lines.push_back(reader.translateCount("%n report couldn’t be read. It stays in “%1”.",
                                              "%n reports couldn’t be read. They stay in “%1”.",
                                              number(recovery.unread), {name}));
    }
    if (recovery.recovered + recovery.known + recovery.unread == 0)
        lines.push_back(reader.translate("“%1” holds no report.", {name}));
    for (const std::string& fault : recovery.faults)
        lines.push_back(reader.translate("What is wrong with the file: %1", {quillmark::quoted(fault)}));
    if (recovery.damaged) lines.push_back(historyProblem(*recovery.damaged, reader));
    return lines;
}

std::vector<std::string> historyClearQuestion(const HistoryContents& contents, const Reader& reader) {
    std::vector<std::string> lines;
    for (const std::filesystem::path& file : contents.setAside) {
        lines.push_back(reader.translate("A damaged history that was set aside goes, too: “%1”",
                                         {quillmark::quoted(file.string())}));
    }
    lines.push_back(contents.reports.empty()
                        ? reader.translate("Your history holds no reports. Remove the files?")
                        : reader.translateCount("Remove the only report from the history?",
                                                "Remove all %n reports from the history?",
                                                number(contents.reports.size())));
    return lines;
}

std::vector<std::string> historyToClear(const HistoryContents& contents, const Reader& reader) {
    std::vector<std::string> lines{reader.translateCount(
        "The history holds %n report.", "The history holds %n reports.", number(contents.reports.size()))};
    if (contents.setAside.empty()) return lines;
    std::string names;
    for (const std::filesystem::path& file : contents.setAside)
        reader.addTo(names, reader.translate("“%1”", {quillmark::quoted(file.filename().string())}));
    lines.push_back(reader.translateCount("%n damaged history that was set aside goes, too: %1",
                                          "%n damaged histories that were set aside go, too: %1",
                                          number(contents.setAside.size()), {names}));
    return lines;
}

std::vector<std::string> historyCleared(const HistoryContents& contents, const Reader& reader) {
    std::vector<std::string> lines;
    if (!contents.reports.empty()) {
        lines.push_back(reader.translateCount("%n report was removed from the history.",
                                              "%n reports were removed from the history.",
                                              number(contents.reports.size())));
    }
    for (const std::filesystem::path& file : contents.setAside)
        lines.push_back(reader.translate("“%1” was removed.", {quillmark::quoted(file.string())}));
    if (lines.empty()) lines.push_back(reader.translate("There was nothing to remove."));
    return lines;
}

}  // namespace quillmark
