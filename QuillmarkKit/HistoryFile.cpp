#include "QuillmarkKit/HistoryFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <istream>
#include <iterator>
#include <set>
#include <system_error>
#include <utility>

#include "QuillmarkKit/Support/DecodingError.h"
#include "QuillmarkKit/Support/Files.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace fs = std::filesystem;

namespace {

fs::path folderOf(const fs::path& file) { return file.has_parent_path() ? file.parent_path() : "."; }

std::string wholeFile(const fs::path& file) {
    FileInput input(file);
    return {std::istreambuf_iterator<char>(&input), {}};
}

/// Does nothing when there is none.
void removeFile(const fs::path& file) {
    std::error_code error;
    fs::remove(file, error);
    if (error) throw fs::filesystem_error("cannot remove", file, error);
}

/// Where a history lies: a link is followed, so that who changes what it leads to changes the same.
struct Place {
    fs::path file;
    bool isLinked = false;
};
Place placeOf(const HistoryFile& history) {
    Place place{followed(history.url)};
    place.isLinked = place.file != history.url;
    return place;
}

/// Keeps the others that change the file waiting.
FileLock locked(const Place& place, const HistoryFile& history) {
    const fs::path folder = folderOf(place.file);
    makeFolders(folder);
    return FileLock(folder / ("." + place.file.filename().string() + ".lock"), history.patience,
                    history.waiting);
}

/// Hands on the reports of the file, none when there is no file; gives the history without them. Throws
/// `DecodingError` and `HistoryFileError`, perhaps after many a report.
History read(const fs::path& file, const std::function<void(ProofReport)>& report) {
    std::optional<FileInput> input;
    try {
        input.emplace(file);
    } catch (const fs::filesystem_error& error) {
        if (error.code() == std::errc::no_such_file_or_directory) return {};
        throw;
    }
    std::istream text(&*input);
    History history = readHistory(text, report);
    if (history.version > historyVersion)
        throw HistoryFileError(HistoryFileError::NewerVersion{history.version});
    return history;
}

History readAll(const fs::path& file) {
    std::vector<ProofReport> reports;
    History history = read(file, [&](ProofReport report) { reports.push_back(std::move(report)); });
    history.reports = std::move(reports);
    return history;
}

constexpr std::string_view damagedBegin = "history (damaged ", damagedEnd = ").json";

/// The time as it stands in the names of damaged files: "2026-03-01T09-15-42Z".
std::string stampOf(Date now) {
    std::string stamp = iso8601(now);
    for (char& c : stamp) {
        if (c == ':') c = '-';  // which is not allowed in file names everywhere
    }
    return stamp;
}

/// Moves a damaged file to the first name "history (damaged 2026-03-01T09-15-42Z 2).json" that is free.
HistoryFileError::Damaged setAside(const fs::path& file, Date now, const std::string& fault) {
    for (int number = 1;; ++number) {
        const std::string count = number == 1 ? "" : " " + std::to_string(number);
        std::string name(damagedBegin);
        name.append(stampOf(now)).append(count).append(damagedEnd);
        const fs::path path = folderOf(file) / name;
        if (renameToUnused(file, path)) return {path, fault};
    }
}

/// Whether a file has such a name, to the letter.
bool wasSetAside(const fs::path& file) {
    const std::string name = file.filename().string();
    if (!name.starts_with(damagedBegin) || !name.ends_with(damagedEnd)) return false;
    const std::string_view middle = std::string_view(name).substr(
        damagedBegin.size(), name.size() - damagedBegin.size() - damagedEnd.size());
    const std::string_view stamp = middle.substr(0, middle.find(' '));
    std::string_view count = middle.substr(stamp.size());
    std::string time(stamp);
    if (time.size() != 20) return false;
    time[13] = time[16] = ':';
    const auto date = parsedRFC3339(time);
    if (!date || stampOf(*date) != stamp) return false;
    if (count.empty()) return true;
    count.remove_prefix(1);
    return !count.empty() && count.front() != '0' && count != "1" && std::ranges::all_of(count, isDigit);
}

/// The bytes of a new file in the place of another, which is made once there are some, so that what turns out
/// to be nothing to write needs no room.
class Rewriting {
public:
    explicit Rewriting(fs::path file) : m_file(std::move(file)) {}
    HistoryWriter writer{[this](std::string_view bytes) {
        if (!m_replacement) {
            requireWritable(m_file);
            m_replacement.emplace(m_file);
        }
        m_replacement->write(bytes);
    }};
    /// Once the writer has ended.
    void commit() { m_replacement->commit(); }

private:
    const fs::path m_file;
    std::optional<FileReplacement> m_replacement = {};
};

/// On the disk, in the user's part of it, or in a file that may not grow.
bool isForWantOfRoom(const fs::filesystem_error& error) {
    const int reason = error.code().value();
    return reason == ENOSPC || reason == EDQUOT || reason == EFBIG;
}

/// Writes a history without reports. On a full disk the file goes, which says the same.
void writeEmpty(const fs::path& file, const UnknownMembers& unknown) {
    const auto write = [&] {
        Rewriting rewriting(file);
        rewriting.writer.end(unknown);
        rewriting.commit();
    };
    try {
        write();
    } catch (const fs::filesystem_error& error) {
        if (!isForWantOfRoom(error)) throw;
        removeFile(file);
        try {
            write();  // in the room that it took
        } catch (const fs::filesystem_error& again) {
            if (!isForWantOfRoom(again)) throw;
        }
    }
}

/// The file with the change; nothing is written when that is what it holds. Throws as `read` does.
void change(const fs::path& file, const HistoryChange& change) {
    Rewriting rewriting(file);
    bool isChanged = !change.added().empty(), isEmpty = change.added().empty();
    const History rest = read(file, [&](const ProofReport& report) {
        if (change.removes(report.id)) {
            isChanged = true;
        } else {
            isEmpty = false;
            rewriting.writer.add(report);
        }
    });
    if (!isChanged) return;
    if (isEmpty) {
        writeEmpty(file, rest.unknown);
        return;
    }
    for (const ProofReport& report : change.added()) rewriting.writer.add(report);
    rewriting.writer.end(rest.unknown);
    rewriting.commit();
}

/// Puts these reports into a new file in place of a damaged one. That stays where it is until the new one is
/// written, so that it is heard of again when there is no room. Without reports there is no new file, unless
/// a link would lead nowhere then.
HistoryFileError::Damaged beginAnew(const Place& place, const std::vector<ProofReport>& reports, Date now,
                                    const std::string& fault) {
    Rewriting rewriting(place.file);
    const bool isWritten = !reports.empty() || place.isLinked;
    for (const ProofReport& report : reports) rewriting.writer.add(report);
    if (isWritten) rewriting.writer.end();
    auto damaged = setAside(place.file, now, fault);
    if (isWritten) rewriting.commit();
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
    const Place place = placeOf(*this);
    try {
        return readAll(place.file);
    } catch (const DecodingError&) {  // NOLINT(bugprone-empty-catch)
        // Somebody else may have set it aside by now, and begun a new one.
    }
    const FileLock lock = locked(place, *this);
    try {
        return readAll(place.file);
    } catch (const DecodingError& fault) {
        throw HistoryFileError(beginAnew(place, {}, now, fault.what()));
    }
}

void HistoryFile::save(const History& history) const {
    const Place place = placeOf(*this);
    const FileLock lock = locked(place, *this);
    FileReplacement::removeLeftovers(place.file);
    Rewriting rewriting(place.file);
    for (const ProofReport& report : history.reports) rewriting.writer.add(report);
    rewriting.writer.end(history.unknown);
    rewriting.commit();
}

std::optional<HistoryFileError::Damaged> HistoryFile::apply(const HistoryChange& steps, Date now,
                                                            const std::function<void()>& look) const {
    if (steps.isEmpty()) return std::nullopt;
    const Place place = placeOf(*this);
    const FileLock lock = locked(place, *this);
    FileReplacement::removeLeftovers(place.file);
    look();
    std::optional<HistoryFileError::Damaged> damaged;
    try {
        change(place.file, steps);
    } catch (const DecodingError& fault) {
        damaged = beginAnew(place, steps.added(), now, fault.what());
    }
    look();
    return damaged;
}

HistoryContents HistoryFile::contents(Date now) const {
    HistoryContents contents;
    try {
        for (const ProofReport& report : load(now).reports) contents.reports.push_back(report.id);
    } catch (const HistoryFileError& error) {
        if (!std::holds_alternative<HistoryFileError::Damaged>(error.value)) throw;
    }
    std::error_code noFolder;
    for (const auto& entry : fs::directory_iterator(folderOf(placeOf(*this).file), noFolder)) {
        if (entry.symlink_status().type() == fs::file_type::regular && wasSetAside(entry.path()))
            contents.setAside.push_back(entry.path());
    }
    std::ranges::sort(contents.setAside);
    return contents;
}

std::optional<HistoryFileError::Damaged> HistoryFile::clear(const HistoryContents& contents, Date now,
                                                            const std::function<void()>& look) const {
    HistoryChange change;
    for (const UUID& id : contents.reports) change.remove(id);
    auto damaged = apply(change, now, look);
    for (const fs::path& file : contents.setAside) {
        if (wasSetAside(file)) removeFile(file);
    }
    return damaged;
}

HistoryRecovery HistoryFile::recover(const fs::path& damagedFile, Date now) const {
    const Place place = placeOf(*this);
    const FileLock lock = locked(place, *this);
    FileReplacement::removeLeftovers(place.file);
    HistoryRecovery recovery;
    std::set<UUID> ids;
    std::optional<std::string> fault;
    try {
        read(place.file, [&](const ProofReport& report) { ids.insert(report.id); });
    } catch (const DecodingError& error) {
        fault = error.what();
        ids.clear();
    }
    Rewriting rewriting(place.file);
    const std::string text = wholeFile(damagedFile);
    HistorySalvage salvage = salvageHistory(text, [&](const ProofReport& report) {
        if (ids.contains(report.id)) {
            ++recovery.known;
        } else {
            ++recovery.recovered;
            rewriting.writer.add(report);
        }
    });
    if (salvage.version > historyVersion)
        throw HistoryFileError(HistoryFileError::NewerVersion{salvage.version});
    recovery.unread = salvage.unread;
    recovery.faults = std::move(salvage.faults);
    const bool isWritten = recovery.recovered > 0 || (fault && place.isLinked);
    if (isWritten) {
        UnknownMembers unknown;
        if (!fault)
            unknown =
                read(place.file, [&](const ProofReport& report) { rewriting.writer.add(report); }).unknown;
        rewriting.writer.end(unknown);
    }
    if (fault) recovery.damaged = setAside(place.file, now, *fault);
    if (isWritten) rewriting.commit();
    return recovery;
}

}  // namespace quillmark
