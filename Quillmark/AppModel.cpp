#include "Quillmark/AppModel.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <variant>

#include "QuillmarkKit/Support/Text.h"
#include "Wording/HistoryWording.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr std::size_t checksAtOnce = 8;

/// The last component of a path, as text.
std::string lastComponent(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
    return repairedUTF8(path.substr(path.rfind('/') + 1));
}

}  // namespace

AppModel::AppModel(Surroundings surroundings, QObject* parent)
    : QObject(parent),
      m_store(std::move(surroundings.settings)),
      m_reader(surroundings.reader),
      m_settings(loadSettings(*m_store)),
      m_mayAskRegistry(std::make_shared<RegistrySwitch>(m_settings.checkDomainAge)),
      m_checker(std::move(surroundings.resolver), std::move(surroundings.registry), m_mayAskRegistry,
                surroundings.now),
      m_history(std::move(surroundings.historyFile), surroundings.now, m_reader, m_mailbox),
      m_messages(surroundings.keptBytes),
      m_workers(checksAtOnce) {
    if (!m_settings.onboardingDone) m_sheet = Sheet::welcome;
    connect(&m_mailbox, &Mailbox::emptied, this, &AppModel::takeOutcomes);
    connect(&m_history, &HistoryKeeper::changed, this, [this] {
        select(m_selection);  // which may have gone
        emit historyChanged();
    });
    connect(&m_history, &HistoryKeeper::failed, this, &AppModel::showProblem);
    m_history.setKept(m_settings.keepHistory);
}

AppModel::~AppModel() { finish(); }

std::size_t AppModel::HashOfID::operator()(const UUID& id) const {
    std::size_t hash = 0;
    std::memcpy(&hash, id.bytes.data(), sizeof hash);
    return hash;
}

const AppModel::Row* AppModel::row(const UUID& id) const {
    if (m_positions.empty()) {
        for (std::size_t i = 0; i < m_session.size(); ++i) m_positions.emplace(m_session[i].id, i);
    }
    const auto found = m_positions.find(id);
    return found != m_positions.end() ? &m_session[found->second] : nullptr;
}

SharedReport AppModel::report(const UUID& id) const {
    const Row* found = row(id);
    return found ? found->report : m_history.report(id);
}

std::optional<CheckedMessage> AppModel::message(const UUID& id) const {
    const auto* kept = m_messages.find(id);
    return kept && kept->message.bytes ? std::optional(kept->message) : std::nullopt;
}

bool AppModel::canRecheck(const UUID& id) const {
    const Row* found = row(id);
    const auto* kept = m_messages.find(id);
    return found && !found->isRunning && kept && (kept->message.bytes || !kept->path.empty());
}

// Intake

void AppModel::openFiles(std::vector<std::string> paths) {
    std::vector<MessageSource> sources;
    sources.reserve(paths.size());
    for (std::string& path : paths) {
        std::string name = lastComponent(path);
        sources.push_back({.path = std::move(path), .name = std::move(name)});
    }
    takeIn(std::move(sources));
}

UUID AppModel::checkData(ByteBuffer bytes, std::optional<std::string> name) {
    if (name) name = repairedUTF8(*name);
    return takeIn({{.bytes = std::make_shared<const ByteBuffer>(std::move(bytes)), .name = std::move(name)}});
}

UUID AppModel::paste(std::string_view text) {
    return takeIn({{.bytes = std::make_shared<const ByteBuffer>(text), .mode = ParseMode::lenient}});
}

UUID AppModel::takeIn(std::vector<MessageSource> sources) {
    dismissProblem();
    if (sources.empty() || m_isFinished) return {};
    m_selectedBefore = m_selection;
    ++m_intake;
    std::vector<Row> rows;
    rows.reserve(sources.size());
    for (const MessageSource& source : sources) {
        rows.push_back({.id = UUID::random(), .name = source.name, .isRunning = true, .intake = m_intake});
    }
    m_session.insert(m_session.begin(), rows.begin(), rows.end());
    std::vector<Workers::Job> jobs;
    jobs.reserve(rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i)
        jobs.push_back(check(rows[i].id, rows[i].id, std::move(sources[i])));
    m_workers.add(std::move(jobs));
    m_selection = rows.front().id;
    m_positions.clear();
    emit sessionChanged();
    emit selectionChanged();
    emit progressChanged();
    return rows.front().id;
}

void AppModel::recheck(UUID id) {
    dismissProblem();
    if (!canRecheck(id) || m_isFinished) return;
    const auto& [message, path] = *m_messages.find(id);
    Row again = *row(id);
    again.isRunning = true;
    m_workers.add(check(UUID::random(), id,
                        {.path = path, .bytes = message.bytes, .name = again.name, .mode = message.mode}));
    change({{id, std::move(again)}});
    emit progressChanged();
}

Workers::Job AppModel::check(const UUID& id, const UUID& row, MessageSource source) {
    if (m_running.empty()) m_progress = {};
    ++m_progress.all;
    Running running{.row = row, .path = source.path, .number = ++m_number};
    const std::stop_token stop = running.stop.get_token();
    m_runningByRow.emplace(row, id);
    m_running.emplace(id, std::move(running));
    return [this, id, source = std::move(source), stop] {
        m_mailbox.post([this, id, outcome = m_checker.check(source, id, stop)]() mutable {
            m_outcomes.emplace_back(id, std::move(outcome));
        });
    };
}

// Outcomes

void AppModel::takeOutcomes() {
    const auto outcomes = std::exchange(m_outcomes, {});
    RowChanges changes;
    HistoryChange saved;
    std::vector<SharedReport> reports;
    IntakeProblem problem;
    const auto tell = [&](std::uint64_t number, const std::string& line) {
        if (number > problem.number) problem = {number, line};
    };
    for (const auto& [check, outcome] : outcomes) {
        const auto running = m_running.extract(check);
        if (!running) continue;  // cancelled
        const Running& done = running.mapped();
        m_runningByRow.erase(done.row);
        ++m_progress.done;
        const Row before = *row(done.row);
        if (const auto* checked = std::get_if<CheckOutcome::Checked>(&outcome.value)) {
            Row after = before;
            after.id = check;
            after.report = checked->report;
            after.isRunning = false;
            changes.emplace(done.row, std::move(after));
            m_messages.drop(done.row);
            m_messages.keep(check, {checked->message, done.path});
            if (checked->saved) {
                saved.append(*checked->saved);
                reports.push_back(checked->report);
            } else if (m_settings.keepHistory) {
                tell(done.number, historyNotKept(before.name, m_reader));
            }
        } else {
            changes.emplace(done.row, withoutCheck(before));
            if (const auto* refusal = std::get_if<Refusal>(&outcome.value))
                tell(done.number, problemLine(*refusal, before.name, m_reader));
        }
    }
    if (changes.empty()) return;
    const auto selected = m_selection;
    apply(changes);
    m_history.add(std::move(reports), saved);  // before anybody is told, who might quit
    emit sessionChanged();
    if (m_selection != selected) emit selectionChanged();
    if (problem.number > 0) showIntakeProblem(problem);
    emit progressChanged();
}

std::optional<AppModel::Row> AppModel::withoutCheck(Row row) {
    if (!row.report) return std::nullopt;
    row.isRunning = false;
    return row;
}

void AppModel::change(const RowChanges& changes) {
    const auto selected = m_selection;
    apply(changes);
    emit sessionChanged();
    if (m_selection != selected) emit selectionChanged();
}

void AppModel::apply(const RowChanges& changes) {
    const auto selected = selectionAfter(changes);
    const auto before = m_selectedBefore ? changes.find(*m_selectedBefore) : changes.end();
    if (before != changes.end())
        m_selectedBefore = before->second ? std::optional(before->second->id) : std::nullopt;
    std::erase_if(m_session, [&](Row& row) {
        const auto found = changes.find(row.id);
        if (found == changes.end()) return false;
        if (found->second) row = *found->second;
        return !found->second;
    });
    m_positions.clear();
    m_selection = selectable(selected);
}

std::optional<UUID> AppModel::selectable(const std::optional<UUID>& id) const {
    return id && (row(*id) || m_history.report(*id)) ? id : std::nullopt;
}

std::optional<UUID> AppModel::selectionAfter(const RowChanges& changes) const {
    const auto isGone = [&](const Row& row) {
        const auto found = changes.find(row.id);
        return found != changes.end() && !found->second;
    };
    const Row* selected = m_selection ? row(*m_selection) : nullptr;
    if (!selected) return m_selection;
    const Row* end = m_session.data() + m_session.size();
    const Row* next = std::find_if_not(selected, end, isGone);
    // Of several files the next one; else what was looked at before they came.
    if (next == end || next->intake != selected->intake) return m_selectedBefore;
    const auto found = changes.find(next->id);
    return found != changes.end() ? found->second->id : next->id;
}

// Commands

void AppModel::cancel(UUID id) {
    const auto check = m_runningByRow.find(id);
    if (check == m_runningByRow.end()) return;
    end(check->second);
    change({{id, withoutCheck(*row(id))}});
    emit progressChanged();
}

void AppModel::cancelAll() {
    if (m_running.empty()) return;
    RowChanges changes;
    while (!m_running.empty()) {
        const auto& [check, running] = *m_running.begin();
        changes.emplace(running.row, withoutCheck(*row(running.row)));
        end(check);
    }
    change(changes);
    emit progressChanged();
}

void AppModel::end(UUID check) {
    auto running = m_running.extract(check);
    running.mapped().stop.request_stop();
    m_runningByRow.erase(running.mapped().row);
    ++m_progress.done;
}

void AppModel::removeFromList(UUID id) {
    const Row* gone = row(id);
    if (!gone) return;
    if (m_selection == id) {
        const Row* neighbour = gone == &m_session.back() ? gone - 1 : gone + 1;
        select(m_session.size() > 1 ? std::optional(neighbour->id) : std::nullopt);
    }
    cancel(id);
    m_messages.drop(id);
    if (row(id)) change({{id, std::nullopt}});
}

void AppModel::removeFromHistory(UUID id) {
    const auto& saved = m_history.reports();
    const auto gone = std::ranges::find(saved, id, [](const SharedReport& report) { return report->id; });
    if (gone == saved.end()) return;
    if (m_selection == id && !row(id)) {
        std::optional<UUID> next;  // the next older, as they are listed
        if (saved.size() > 1) next = (gone == saved.begin() ? *(gone + 1) : *(gone - 1))->id;
        select(next);
    }
    m_history.remove(id);
}

void AppModel::clearHistory() { m_history.removeAll(); }

void AppModel::refreshHistory() { m_history.refresh(); }

void AppModel::select(std::optional<UUID> id) {
    const auto selected = selectable(id);
    if (m_selection == selected) return;
    m_selection = selected;
    emit selectionChanged();
}

void AppModel::showSheet(Sheet sheet) {
    m_sheet = sheet;
    emit sheetChanged();
}

void AppModel::dismissSheet() {
    const auto dismissed = std::exchange(m_sheet, std::nullopt);
    if (!dismissed) return;
    emit sheetChanged();
    if (dismissed == Sheet::welcome) {
        AppSettings settings = m_settings;
        settings.onboardingDone = true;
        choose(settings);
    }
}

void AppModel::showProblem(std::string_view line) {
    m_problem = forDisplay(line);
    m_problemNumber = 0;
    emit problemChanged();
}

void AppModel::showIntakeProblem(const IntakeProblem& problem) {
    if (m_problem && m_problemNumber > problem.number) return;  // that of a later file
    showProblem(problem.line);
    m_problemNumber = problem.number;
}

void AppModel::dismissProblem() {
    if (!m_problem) return;
    m_problem = std::nullopt;
    emit problemChanged();
}

void AppModel::setCheckDomainAge(bool isOn) {
    AppSettings settings = m_settings;
    settings.checkDomainAge = isOn;
    choose(settings);
}

void AppModel::setKeepHistory(bool isOn) {
    AppSettings settings = m_settings;
    settings.keepHistory = isOn;
    choose(settings);
}

void AppModel::choose(const AppSettings& settings) {
    if (m_settings == settings) return;
    m_settings = settings;
    m_mayAskRegistry->set(settings.checkDomainAge);
    saveSettings(settings, *m_store);
    m_history.setKept(settings.keepHistory);
    emit settingsChanged();
}

void AppModel::finish() {
    if (std::exchange(m_isFinished, true)) return;
    m_workers.drop();  // else a worker that is stopped would begin the next
    for (auto& [check, running] : m_running) running.stop.request_stop();
    m_workers.stop();
    m_mailbox.empty();  // what was done in time is saved
    cancelAll();
    m_history.finish();
}

}  // namespace quillmark
