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

/// In the system's words.
std::string reason(const std::exception& error) {
    const auto* fromSystem = dynamic_cast<const std::system_error*>(&error);
    return fromSystem ? fromSystem->code().message() : error.what();
}

}  // namespace

HistoryKeeper::HistoryKeeper(std::function<HistoryFile()> file, std::function<Date()> now, Reader reader,
                             Mailbox& mailbox, QObject* parent)
    : QObject(parent), m_file(std::move(file)), m_now(std::move(now)), m_reader(reader), m_mailbox(mailbox) {
    m_soon.setSingleShot(true);
    connect(&m_soon, &QTimer::timeout, this, &HistoryKeeper::save);
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
        save();
        m_state = HistoryState::off;
        m_lock.clear();
        m_reports = std::make_shared<Reports>();
    }
    emit changed();
}

void HistoryKeeper::add(const std::vector<SharedReport>& reports, const HistoryChange& change) {
    if (change.isEmpty() || m_isFinished || m_state == HistoryState::off || m_state == HistoryState::locked)
        return;
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
    if (m_state == HistoryState::locked) emit failed(m_lock);
    return m_isFinished || m_state == HistoryState::locked;
}

void HistoryKeeper::refresh() {
    if (m_isFinished || m_loads > 0 || m_saving || m_state == HistoryState::off) return;
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
    if (m_state != HistoryState::locked && !m_pending.isEmpty()) take(saved(m_pending, m_stamp));
}

HistoryKeeper::Stamp HistoryKeeper::stampOf(const HistoryFile& file) {
    struct stat status = {};
    if (stat(file.url.c_str(), &status) != 0) return {};
    return {status.st_mtim.tv_sec, status.st_mtim.tv_nsec, status.st_ino};
}

HistoryKeeper::Loaded HistoryKeeper::loaded() const {
    Loaded loaded{.reports = std::make_shared<Reports>()};
    try {
        const HistoryFile file = m_file();
        loaded.stamp = stampOf(file);  // before it is read: what is written meanwhile is seen next time
        for (ProofReport& report : file.load(m_now()).reports)
            loaded.reports->add(std::make_shared<const ProofReport>(std::move(report)));
    } catch (const HistoryFileError& error) {
        loaded.problem = historyProblem(error, m_reader);
        loaded.locks = std::holds_alternative<HistoryFileError::NewerVersion>(error.value);
    } catch (const std::exception& error) {
        loaded.problem = historyNotOpened(reason(error), m_reader);
        loaded.locks = true;
    }
    return loaded;
}

HistoryKeeper::Saved HistoryKeeper::saved(const HistoryChange& change, const Stamp& known) const {
    Saved saved;
    try {
        const HistoryFile file = m_file();
        std::optional<Stamp> before;
        const auto look = [&] {
            saved.stamp = stampOf(file);
            if (!before) before = saved.stamp;
        };
        const auto damaged = file.apply(change, m_now(), look);
        if (damaged) saved.problem = historyProblem(*damaged, m_reader);
        saved.mustLoad = damaged || before != known;
    } catch (const HistoryFileError& error) {
        saved.problem = historyProblem(error, m_reader);
        saved.isDone = false;
        saved.locks = true;
    } catch (const std::exception& error) {
        saved.problem = historyNotSaved(reason(error), m_reader);
        saved.isDone = false;
    }
    return saved;
}

void HistoryKeeper::load() {
    ++m_loads;
    m_worker.add([this] { m_mailbox.post([this, loaded = loaded()] { take(loaded); }); });
}

void HistoryKeeper::take(const Loaded& loaded) {
    --m_loads;
    if (m_state != HistoryState::off) {
        if (loaded.locks) {
            lockWith(loaded.problem);
        } else {
            m_state = HistoryState::ready;
            m_lock.clear();
            m_stamp = loaded.stamp;
            m_reports = loaded.reports;
            if (m_saving) m_reports->apply(*m_saving);
            m_reports->apply(m_pending);
            if (!loaded.problem.empty()) emit failed(loaded.problem);
        }
        emit changed();
    }
    saveSoon();
}

void HistoryKeeper::saveSoon() {
    if (m_pending.isEmpty() || m_isFinished) return;
    if (!m_soon.isActive()) m_sinceFirst.start();
    m_soon.start(static_cast<int>(std::clamp<qint64>(longestWait - m_sinceFirst.elapsed(), 0, quietTime)));
}

void HistoryKeeper::save() {
    // Before the file has been read it isn't known whether it may be written; what ends comes back here.
    if (m_saving || m_loads > 0 || m_isFinished || m_pending.isEmpty()) return;
    m_soon.stop();
    m_saving = std::make_shared<const HistoryChange>(std::exchange(m_pending, {}));
    m_worker.add([this, change = m_saving, known = m_stamp] {
        m_mailbox.post([this, saved = saved(*change, known)] { take(saved); });
    });
}

void HistoryKeeper::take(const Saved& saved) {
    const auto change = std::exchange(m_saving, {});
    if (saved.isDone) {
        m_stamp = saved.stamp;
        if (saved.mustLoad && !m_isFinished && m_state != HistoryState::off) load();
        saveSoon();
    } else if (saved.locks && m_state != HistoryState::off) {
        lockWith(saved.problem);
        emit changed();
        return;
    } else if (!saved.locks && change) {
        HistoryChange both = *change;
        both.append(m_pending);
        m_pending = std::move(both);  // for the next time
    }
    if (!saved.problem.empty()) emit failed(saved.problem);
}

void HistoryKeeper::lockWith(const std::string& line) {
    const bool isNew = m_lock != line;
    m_state = HistoryState::locked;
    m_lock = line;
    m_pending = {};
    if (isNew) emit failed(line);
}

}  // namespace quillmark
