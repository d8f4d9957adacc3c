#include "QuillmarkKit/HistoryFile.h"

#include <cstdlib>
#include <functional>
#include <istream>
#include <system_error>
#include <utility>

#include "QuillmarkKit/Support/DecodingError.h"
#include "QuillmarkKit/Support/Files.h"

namespace quillmark {

namespace fs = std::filesystem;

namespace {

fs::path folderOf(const fs::path& file) { return file.has_parent_path() ? file.parent_path() : "."; }

/// Keeps the others that change the file waiting.
FileLock locked(const HistoryFile& file) {
    const fs::path folder = folderOf(file.url);
    makeFolders(folder);
    return FileLock(folder / ("." + file.url.filename().string() + ".lock"), file.patience);
}

/// Hands on the reports of the file, none when there is no file; gives the version. Throws `DecodingError`
/// and `HistoryFileError`, perhaps after many a report.
std::int64_t read(const fs::path& file, const std::function<void(ProofReport)>& report) {
    std::optional<FileInput> input;
    try {
        input.emplace(file);
    } catch (const fs::filesystem_error& error) {
        if (error.code() == std::errc::no_such_file_or_directory) return historyVersion;
        throw;
    }
    std::istream text(&*input);
    const std::int64_t version = readHistory(text, report);
    if (version > historyVersion) throw HistoryFileError(HistoryFileError::NewerVersion{version});
    return version;
}

History readAll(const fs::path& file) {
    History history;
    history.version = read(file, [&](ProofReport report) { history.reports.push_back(std::move(report)); });
    return history;
}

constexpr std::string_view damagedBegin = "history (damaged ", damagedEnd = ").json";

/// Moves a damaged file to the first name "history (damaged 2026-03-01T09-15-42Z 2).json" that is free.
HistoryFileError::Damaged setAside(const fs::path& file, Date now, const DecodingError& fault) {
    std::string stamp = iso8601(now);
    for (char& c : stamp) {
        if (c == ':') c = '-';  // which is not allowed in file names everywhere
    }
    for (int number = 1;; ++number) {
        const std::string count = number == 1 ? "" : " " + std::to_string(number);
        std::string name(damagedBegin);
        name.append(stamp).append(count).append(damagedEnd);
        const fs::path path = folderOf(file) / name;
        if (renameToUnused(file, path)) return {path, fault.what()};
    }
}

void removeSetAside(const fs::path& file) {
    for (const auto& entry : fs::directory_iterator(folderOf(file))) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(damagedBegin) && name.ends_with(damagedEnd)) fs::remove(entry.path());
    }
}

/// The file with the change; nothing is written when that is what it holds. Throws as `read` does.
void change(const fs::path& file, const HistoryChange& change) {
    FileReplacement replacement(file);
    HistoryWriter writer([&](std::string_view bytes) { replacement.write(bytes); });
    bool isChanged = !change.added().empty();
    read(file, [&](const ProofReport& report) {
        if (change.removes(report.id)) {
            isChanged = true;
        } else {
            writer.add(report);
        }
    });
    if (!isChanged) return;
    for (const ProofReport& report : change.added()) writer.add(report);
    writer.end();
    replacement.commit();
}

/// Puts what the change adds into a new file in place of a damaged one. That stays where it is until the new
/// one is written, so that it is heard of again when there is no room.
std::optional<HistoryFileError::Damaged> beginAnew(const fs::path& file, const HistoryChange& change,
                                                   Date now, const DecodingError& fault) {
    FileReplacement replacement(file);
    HistoryWriter writer([&](std::string_view bytes) { replacement.write(bytes); });
    for (const ProofReport& report : change.added()) writer.add(report);
    writer.end();
    if (change.removesAll()) {
        replacement.commit();
        return std::nullopt;
    }
    auto damaged = setAside(file, now, fault);
    if (!change.added().empty()) replacement.commit();
    return damaged;
}

}  // namespace

HistoryFileError::HistoryFileError(Damaged damaged)
    : std::runtime_error("the history is damaged: " + damaged.fault), value(std::move(damaged)) {}

HistoryFileError::HistoryFileError(NewerVersion newer)
    : std::runtime_error("the history has the newer version " + std::to_string(newer.version)),
      value(newer) {}

fs::path HistoryFile::defaultLocation(std::string_view folderName) {
    const auto folder = [](const char* variable) {
        const char* value = std::getenv(variable);
        return fs::path(value ? value : "");
    };
    fs::path data = folder("XDG_DATA_HOME");
    if (!data.is_absolute()) data = folder("HOME") / ".local" / "share";
    if (!data.is_absolute()) {
        throw fs::filesystem_error("no home folder",
                                   std::make_error_code(std::errc::no_such_file_or_directory));
    }
    makeFolders(data);
    return data / folderName / "history.json";
}

History HistoryFile::load(Date now) const {
    try {
        return readAll(url);
    } catch (const DecodingError&) {
        // Somebody else may have set it aside by now, and begun a new one.
    }
    const FileLock lock = locked(*this);
    try {
        return readAll(url);
    } catch (const DecodingError& fault) {
        throw HistoryFileError(setAside(url, now, fault));
    }
}

void HistoryFile::save(const History& history) const {
    const FileLock lock = locked(*this);
    FileReplacement::removeLeftovers(url);
    FileReplacement replacement(url);
    HistoryWriter writer([&](std::string_view bytes) { replacement.write(bytes); });
    for (const ProofReport& report : history.reports) writer.add(report);
    writer.end();
    replacement.commit();
}

std::optional<HistoryFileError::Damaged> HistoryFile::apply(const HistoryChange& steps, Date now,
                                                            const std::function<void()>& look) const {
    if (steps.isEmpty()) return std::nullopt;
    const FileLock lock = locked(*this);
    FileReplacement::removeLeftovers(url);
    look();
    std::optional<HistoryFileError::Damaged> damaged;
    try {
        change(url, steps);
    } catch (const DecodingError& fault) {
        damaged = beginAnew(url, steps, now, fault);
    }
    if (steps.removesAll()) removeSetAside(url);
    look();
    return damaged;
}

}  // namespace quillmark
