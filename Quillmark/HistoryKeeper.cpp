#include "Quillmark/HistoryKeeper.h"

#include <sys/stat.h>

#include <algorithm>
#include <exception>
#include <optional>
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

void HistoryKeeper::remove(const UUID& id) {
    if (refuses()) return;
    HistoryChange change;
    change.remove(id);
    m_reports->apply(change);
    m_pending.append(change);
    saveSoon();
    emit changed();
}

void HistoryKeeper::removeAll() {
    if (refuses()) return;
    m_pending.removeAll();
    m_reports = std::make_shared<Reports>();
    save();
    emit changed();
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
        if (damaged) saved.problem = historyProblem(*damaged, m_reader);
        saved.mustLoad = damaged || before != known;
        return saved;
    } catch (const HistoryFileError& error) {
        saved.problem = historyProblem(error, m_reader);
        saved.notCleared = saved.problem;
        saved.locks = true;
        saved.rest = restAfter(begin);
    } catch (const std::exception& error) {
        saved.problem = historyNotSaved(reasonOf(error, m_reader), m_reader);
        saved.notCleared = historyNotCleared(reasonOf(error, m_reader), m_reader);
        if (!isBusy(error)) saved.rest = restAfter(begin);  // else it has only waited
    }
    saved.isDone = false;
    return saved;
}

void HistoryKeeper::load() {
    ++m_loads;
    m_worker.add([this] { m_mailbox.post([this, loaded = loaded()] { take(loaded); }); });
}

void HistoryKeeper::take(const Loaded& loaded) {
    --m_loads;
    if (m_state != HistoryState::off && loaded.locks) {
        m_state = HistoryState::locked;
        m_pending.keepOthers();
        fail(loaded.problem);
        tryAgainAfter(loaded.rest);
    } else {
        if (m_state != HistoryState::off) takeReports(loaded);
        saveSoon();
    }
    emit changed();
}

void HistoryKeeper::takeReports(const Loaded& loaded) {
    if (m_pending.isEmpty()) m_failure.clear();  // else the next save tells
    m_state = HistoryState::ready;
    m_stamp = loaded.stamp;
    m_reports = loaded.reports;
    if (m_saving) m_reports->apply(*m_saving);
    m_reports->apply(m_pending);
    if (!loaded.problem.empty()) emit failed(loaded.problem);
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
    if (!saved.isDone) return takeFailure(saved, std::move(*change));
    const bool hadFailed = !std::exchange(m_failure, {}).empty();
    m_stamp = saved.stamp;
    if (saved.mustLoad && !m_isFinished && m_state != HistoryState::off) load();
    saveSoon();
    if (!saved.problem.empty()) emit failed(saved.problem);
    if (hadFailed) emit changed();
}

void HistoryKeeper::takeFailure(const Saved& saved, HistoryChange change) {
    const bool wasClearing = change.removesAll();
    change.keepOthers();
    change.append(m_pending);
    m_pending = std::move(change);
    if (saved.locks && m_state != HistoryState::off) {
        m_state = HistoryState::locked;
        m_pending.keepOthers();
    }
    if (!m_pending.isEmpty() || saved.locks) fail(saved.problem);
    if (wasClearing) emit failed(saved.notCleared);
    if (m_isFinished) return;
    if (wasClearing && m_state == HistoryState::ready) load();  // what is still there is shown again
    if (m_pending.removesAll()) {
        save();  // asked for meanwhile
    } else {
        tryAgainAfter(saved.rest);
    }
}

void HistoryKeeper::fail(const std::string& line) {
    if (line == m_failure) return;
    m_failure = line;
    if (!m_isFinished) emit failed(line);
    emit changed();
}

std::size_t HistoryKeeper::unsavedReports() const {
    return m_pending.added().size() + (m_saving ? m_saving->added().size() : 0);
}

std::string HistoryKeeper::unsaved() const {
    if (m_failure.empty() || (m_pending.isEmpty() && !m_saving)) return {};
    return historyNotYetSaved(unsavedReports(), m_failure, m_reader);
}

}  // namespace quillmark
