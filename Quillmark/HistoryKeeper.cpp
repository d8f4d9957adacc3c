#include "Quillmark/HistoryKeeper.h"

#include <sys/stat.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <optional>
#include <set>
#include <system_error>
#include <utility>
#include <variant>

#include "Quillmark/Mailbox.h"
#include "Wording/HistoryWording.h"

namespace quillmark {

namespace {

// Each save writes the whole file, which may be large: once the burst is over, and now and then in a long
// one.
constexpr qint64 quietTime = 500, longestWait = 10'000;  // milliseconds

// A save that failed may have written much, as on a full disk: it is tried again after so many times as long
// as it took.
constexpr int restAfterFailure = 10;
constexpr std::chrono::milliseconds leastRest{2'000}, longestRest{60'000};

// Whoever changes the file, too, has done so by then, or is stopped; and nobody sees that quitting waits.
constexpr std::chrono::milliseconds patience{2'000};

using Clock = std::chrono::steady_clock;

std::chrono::milliseconds restAfter(Clock::time_point begin) {
    const auto taken = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
    return std::clamp(restAfterFailure * taken, leastRest, longestRest);
}

bool isBusy(const std::exception& error) {
    const auto* fromSystem = dynamic_cast<const std::system_error*>(&error);
    return fromSystem && fromSystem->code() == std::errc::device_or_resource_busy;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += (text.empty() ? "" : "\n") + line;
    return text;
}

}  // namespace

HistoryKeeper::HistoryKeeper(std::function<HistoryFile()> file, std::function<Date()> now, Reader reader,
                             Mailbox& mailbox, QObject* parent)
    : QObject(parent), m_file(std::move(file)), m_now(std::move(now)), m_reader(reader), m_mailbox(mailbox) {
    m_soon.setSingleShot(true);
    connect(&m_soon, &QTimer::timeout, this, &HistoryKeeper::tryAgain);
}

HistoryKeeper::~HistoryKeeper() { finish(); }

void HistoryKeeper::Reports::add(const SharedReport& report) {
    if (byID.emplace(report->id, report).second) inOrder.push_back(report);
}

void HistoryKeeper::Reports::apply(const HistoryChange& change) {
    const auto goes = [&](const SharedReport& report) { return change.removes(report->id); };
    if (std::ranges::any_of(inOrder, goes)) {
        std::erase_if(inOrder, goes);
        std::erase_if(byID, [&](const auto& entry) { return change.removes(entry.first); });
    }
    for (const ProofReport& report : change.added()) add(std::make_shared<const ProofReport>(report));
}

SharedReport HistoryKeeper::report(const UUID& id) const {
    const auto found = m_reports->byID.find(id);
    return found != m_reports->byID.end() ? found->second : nullptr;
}

void HistoryKeeper::setKept(bool isKept) {
    if (m_isFinished || isKept == (m_state != HistoryState::off)) return;
    if (isKept) {
        m_state = HistoryState::loading;
        load();
    } else {
        m_state = HistoryState::off;
        m_failure.clear();
        m_reports = std::make_shared<Reports>();
        save();  // what was checked until now
    }
    emit changed();
}

void HistoryKeeper::add(const std::vector<SharedReport>& reports, const HistoryChange& change) {
    if (change.isEmpty() || m_isFinished || m_state == HistoryState::off) return;
    for (const SharedReport& report : reports) m_reports->add(report);
    m_pending.append(change);
    saveSoon();
    emit changed();
}

std::vector<SharedReport> HistoryKeeper::remove(const std::set<UUID>& ids) {
    std::vector<SharedReport> removed;
    if (refuses()) return removed;
    HistoryChange change;
    for (const UUID& id : ids) {
        const SharedReport own = report(id);
        if (!own) continue;
        removed.push_back(own);
        change.remove(id);
    }
    if (removed.empty()) return removed;
    m_reports->apply(change);
    m_pending.append(change);
    saveSoon();
    emit changed();
    return removed;
}

void HistoryKeeper::readContents() {
    if (m_isFinished) return;
    refresh();  // else it would not be told that somebody else has damaged it
    m_worker.add([this] {
        m_mailbox.post([this, contents = contents()]() mutable {
            if (const auto* problem = std::get_if<std::string>(&contents)) {
                emit cleared(*problem);
            } else {
                addPending(std::get<HistoryContents>(contents));
                emit contentsRead(std::get<HistoryContents>(contents));
            }
        });
    });
}

/// What waits to be saved is to be cleared, too.
void HistoryKeeper::addPending(HistoryContents& contents) const {
    const std::set<UUID> saved(contents.reports.begin(), contents.reports.end());
    for (const ProofReport& report : m_pending.added()) {
        if (!saved.contains(report.id)) contents.reports.push_back(report.id);
    }
}

void HistoryKeeper::clear(const HistoryContents& contents) {
    if (m_isFinished) return;
    ++m_loads;  // nothing else is saved until the file has been read again
    m_worker.add(
        [this, contents] { m_mailbox.post([this, cleared = clearedOf(contents)] { take(cleared); }); });
}

void HistoryKeeper::recover(const std::filesystem::path& damaged) {
    if (refuses()) return;
    m_worker.add([this, damaged] {
        m_mailbox.post([this, outcome = recoveredFrom(damaged)] {
            if (m_state != HistoryState::off && !m_isFinished) load();
            emit recovered(outcome);
        });
    });
}

bool HistoryKeeper::refuses() {
    if (m_state == HistoryState::locked) emit failed(m_failure);
    return m_isFinished || m_state == HistoryState::locked;
}

void HistoryKeeper::refresh() {
    if (m_isFinished || m_loads > 0 || m_saving) return;
    if (!m_pending.isEmpty()) return tryAgain();
    if (m_state == HistoryState::off) return;
    try {
        if (m_state != HistoryState::locked && stampOf(m_file()) == m_stamp) return;
    } catch (const std::exception&) {
        return;  // the next save will say so
    }
    load();
}

void HistoryKeeper::finish() {
    if (m_isFinished) return;
    m_isFinished = true;
    m_soon.stop();
    m_worker.finish();
    m_mailbox.empty();
    if (!m_pending.isEmpty()) {
        m_saving = std::make_shared<HistoryChange>(std::exchange(m_pending, {}));
        take(saved(*m_saving, m_stamp));
    }
    if (!m_pending.isEmpty()) emit failed(historyLeftUnsaved(unsavedReports(), m_failure, m_reader));
}

HistoryKeeper::Stamp HistoryKeeper::stampOf(const HistoryFile& file) {
    struct stat status = {};
    if (stat(file.url.c_str(), &status) != 0) return {};
    return {status.st_mtim.tv_sec, status.st_mtim.tv_nsec, status.st_ino};
}

HistoryKeeper::Loaded HistoryKeeper::loaded() const {
    Loaded loaded{.reports = std::make_shared<Reports>()};
    const auto begin = Clock::now();
    try {
        const HistoryFile file = m_file();
        loaded.stamp = stampOf(file);  // before it is read: what is written meanwhile is seen next time
        for (ProofReport& report : file.load(m_now()).reports)
            loaded.reports->add(std::make_shared<const ProofReport>(std::move(report)));
    } catch (const HistoryFileError& error) {
        loaded.problem = historyProblem(error, m_reader);
        loaded.locks = std::holds_alternative<HistoryFileError::NewerVersion>(error.value);
        if (const auto* damaged = std::get_if<HistoryFileError::Damaged>(&error.value))
            loaded.setAside = damaged->movedTo;
    } catch (const std::exception& error) {
        loaded.problem = historyNotOpened(reasonOf(error, m_reader), m_reader);
        loaded.locks = true;
    }
    loaded.rest = restAfter(begin);
    return loaded;
}

HistoryKeeper::Saved HistoryKeeper::saved(const HistoryChange& change, const Stamp& known) const {
    const auto begin = Clock::now();
    Saved saved{.rest = leastRest};
    try {
        HistoryFile file = m_file();
        file.patience = patience;
        std::optional<Stamp> before;
        const auto look = [&] {
            saved.stamp = stampOf(file);
            if (!before) before = saved.stamp;
        };
        const auto damaged = file.apply(change, m_now(), look);
        if (damaged) {
            saved.problem = historyProblem(*damaged, m_reader);
            saved.setAside = damaged->movedTo;
        }
        saved.mustLoad = damaged || before != known;
        return saved;
    } catch (const HistoryFileError& error) {
        saved.problem = historyProblem(error, m_reader);
        saved.locks = true;
        saved.rest = restAfter(begin);
    } catch (const std::exception& error) {
        saved.problem = historyNotSaved(reasonOf(error, m_reader), m_reader);
        if (!isBusy(error)) saved.rest = restAfter(begin);  // else it has only waited
    }
    saved.isDone = false;
    return saved;
}

std::variant<HistoryContents, std::string> HistoryKeeper::contents() const {
    try {
        HistoryFile file = m_file();
        file.patience = patience;
        return file.contents(m_now());
    } catch (const HistoryFileError& error) {
        return historyProblem(error, m_reader);
    } catch (const std::exception& error) {
        return historyNotOpened(reasonOf(error, m_reader), m_reader);
    }
}

HistoryKeeper::Cleared HistoryKeeper::clearedOf(const HistoryContents& contents) const {
    Cleared cleared;
    int looks = 0;  // the second comes once the reports are gone
    std::string why;
    try {
        HistoryFile file = m_file();
        file.patience = patience;
        const auto damaged = file.clear(contents, m_now(), [&] { ++looks; });
        if (damaged) cleared.problem = historyProblem(*damaged, m_reader);
    } catch (const HistoryFileError& error) {
        cleared.problem = historyProblem(error, m_reader);
    } catch (const std::exception& error) {
        why = reasonOf(error, m_reader);
    }
    if (looks > 1) cleared.gone.reports = contents.reports;
    std::error_code ignored;
    std::ranges::copy_if(contents.setAside, std::back_inserter(cleared.gone.setAside),
                         [&](const auto& file) { return !exists(symlink_status(file, ignored)); });
    if (!why.empty())
        cleared.problem = looks > 1 ? historyNotAllCleared(why, m_reader) : historyNotCleared(why, m_reader);
    return cleared;
}

std::string HistoryKeeper::recoveredFrom(const std::filesystem::path& damaged) const {
    try {
        HistoryFile file = m_file();
        file.patience = patience;
        HistoryRecovery recovery = file.recover(damaged, m_now());
        recovery.faults.resize(std::min<std::size_t>(recovery.faults.size(), 1));  // the line is long enough
        return joined(historyRecovered(recovery, damaged, m_reader));
    } catch (const HistoryFileError& error) {
        return historyProblem(error, m_reader);
    } catch (const std::exception& error) {
        return historyNotRecovered(reasonOf(error, m_reader), m_reader);
    }
}

void HistoryKeeper::load() {
    ++m_loads;
    m_worker.add([this] { m_mailbox.post([this, loaded = loaded()] { take(loaded); }); });
}

void HistoryKeeper::take(const Loaded& loaded) {
    --m_loads;
    if (m_state != HistoryState::off && loaded.locks) {
        m_state = HistoryState::locked;
        fail(loaded.problem);
        tryAgainAfter(loaded.rest);
    } else {
        if (m_state != HistoryState::off) takeReports(loaded);
        saveSoon();
    }
    emit changed();
}

void HistoryKeeper::takeReports(const Loaded& loaded) {
    if (m_pending.isEmpty()) endFailure();  // else the next save tells
    m_state = HistoryState::ready;
    m_stamp = loaded.stamp;
    m_reports = loaded.reports;
    if (m_saving) m_reports->apply(*m_saving);
    m_reports->apply(m_pending);
    tellOfDamage(loaded.problem, loaded.setAside);
}

void HistoryKeeper::saveSoon() {
    if (m_pending.isEmpty() || m_isFinished) return;
    if (!m_soon.isActive()) m_sinceFirst.start();
    m_soon.start(static_cast<int>(std::clamp<qint64>(longestWait - m_sinceFirst.elapsed(), 0, quietTime)));
}

void HistoryKeeper::tryAgainAfter(std::chrono::milliseconds rest) {
    if (m_pending.isEmpty() || m_isFinished) return;
    m_sinceFirst.start();
    m_soon.start(rest);
}

void HistoryKeeper::tryAgain() {
    if (m_state != HistoryState::locked) {
        save();
    } else if (m_loads == 0) {
        load();
    }
}

void HistoryKeeper::save() {
    // Before the file has been read it isn't known whether it may be written; what ends comes back here.
    if (m_saving || m_loads > 0 || m_isFinished || m_pending.isEmpty()) return;
    m_soon.stop();
    m_saving = std::make_shared<HistoryChange>(std::exchange(m_pending, {}));
    m_worker.add([this, change = m_saving, known = m_stamp] {
        m_mailbox.post([this, saved = saved(*change, known)] { take(saved); });
    });
}

void HistoryKeeper::take(const Saved& saved) {
    const auto change = std::exchange(m_saving, {});
    if (saved.isDone) {
        const bool hadFailed = endFailure();
        m_stamp = saved.stamp;
        if (saved.mustLoad && !m_isFinished && m_state != HistoryState::off) load();
        saveSoon();
        tellOfDamage(saved.problem, saved.setAside);
        if (hadFailed) emit changed();
    } else {
        change->append(m_pending);
        m_pending = std::move(*change);  // for the next time
        if (saved.locks && m_state != HistoryState::off) m_state = HistoryState::locked;
        fail(saved.problem);
        tryAgainAfter(saved.rest);
    }
}

void HistoryKeeper::take(const Cleared& cleared) {
    --m_loads;
    for (const UUID& id : cleared.gone.reports) m_pending.remove(id);  // what could not be saved before
    if (m_state != HistoryState::off && !m_isFinished) {
        load();
    } else {
        saveSoon();
    }
    std::vector<std::string> lines;
    if (!cleared.gone.isEmpty() || cleared.problem.empty()) lines = historyCleared(cleared.gone, m_reader);
    if (!cleared.problem.empty()) lines.push_back(cleared.problem);
    emit this->cleared(joined(lines));
}

void HistoryKeeper::tellOfDamage(const std::string& line, const std::filesystem::path& setAside) {
    if (line.empty()) return;
    emit failed(line);
    emit this->setAside(setAside);
}

void HistoryKeeper::fail(const std::string& line) {
    if (line == m_failure) return;
    m_failure = line;
    if (!m_isFinished) emit failed(line);
    emit changed();
}

bool HistoryKeeper::endFailure() {
    const std::string ended = std::exchange(m_failure, {});
    if (!ended.empty()) emit madeUpFor(ended);
    return !ended.empty();
}

std::size_t HistoryKeeper::unsavedReports() const {
    return m_pending.added().size() + (m_saving ? m_saving->added().size() : 0);
}

std::string HistoryKeeper::unsaved() const {
    if (m_failure.empty() || (m_pending.isEmpty() && !m_saving)) return {};
    return historyNotYetSaved(unsavedReports(), m_failure, m_reader);
}

}  // namespace quillmark
