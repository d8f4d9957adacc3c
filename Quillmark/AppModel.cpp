#include "Quillmark/AppModel.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iterator>
#include <tuple>
#include <utility>
#include <variant>

#include "QuillmarkKit/Intake/PastedText.h"
#include "QuillmarkKit/Support/Text.h"
#include "Wording/HistoryWording.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr std::size_t checksAtOnce = 8;
/// How long a worker stays with a mailbox before others have their turn.
constexpr std::chrono::milliseconds turnOfReading{100};
/// What is read at most, in bytes, only to say how many messages a mailbox holds that was stopped.
constexpr std::uint64_t mostReadToCount = 1'000'000'000;

std::optional<std::string> nameOf(const Found& found) {
    return std::visit([](const auto& each) { return each.place.name(); }, found);
}

std::shared_ptr<MessageSupply> attachedTo(const CheckOutcome& outcome) {
    const auto* checked = std::get_if<CheckOutcome::Checked>(&outcome.value);
    return checked ? checked->attached : nullptr;
}

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
    connect(&m_history, &HistoryKeeper::madeUpFor, this, [this](const std::string& line) {
        if (m_problem == forDisplay(line)) dismissProblem();
    });
    connect(&m_history, &HistoryKeeper::recovered, this, &AppModel::showProblem);
    connect(&m_history, &HistoryKeeper::setAside, this, [this](const std::filesystem::path& damaged) {
        m_damagedHistory = damaged;
        emit problemChanged();
    });
    connect(&m_history, &HistoryKeeper::contentsRead, this, &AppModel::historyContentsRead);
    connect(&m_history, &HistoryKeeper::cleared, this, &AppModel::historyCleared);
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
    return kept && kept->bytes ? std::optional(*kept) : std::nullopt;
}

bool AppModel::canRecheck(const UUID& id) const {
    const Row* found = row(id);
    const auto* kept = m_messages.find(id);
    return found && !found->isRunning && kept && (kept->bytes || !kept->place.path.empty());
}

AppModel::Progress AppModel::progress() const {
    Progress progress = m_progress;
    for (const UUID& check : m_reading) {
        const Running& mailbox = m_running.at(check);
        if (mailbox.expectedBytes.value_or(0) == 0) continue;
        const double part =
            static_cast<double>(mailbox.bytesRead) / static_cast<double>(*mailbox.expectedBytes);
        progress.ofMailboxes += std::min(part, 1.0);
    }
    return progress;
}

// Intake

void AppModel::openFiles(std::vector<std::string> paths) {
    std::vector<MessageSource> sources;
    sources.reserve(paths.size());
    for (std::string& path : paths) {
        std::string name = lastComponent(path);
        sources.push_back({.place = {.path = std::move(path), .file = std::move(name)}});
    }
    takeIn(std::move(sources));
}

UUID AppModel::checkData(ByteBuffer bytes, std::optional<std::string> name) {
    if (name) name = repairedUTF8(*name);
    return takeIn({{.place = {.file = std::move(name)},
                    .bytes = std::make_shared<const ByteBuffer>(std::move(bytes))}});
}

UUID AppModel::paste(std::string_view text) {
    PastedText pasted = pastedText(text);
    return takeIn({{.bytes = std::make_shared<const ByteBuffer>(pasted.source),
                    .mode = ParseMode::lenient,
                    .facts = {.dropped = std::move(pasted.dropped)}}});
}

std::optional<std::string> AppModel::whyNotPasted(std::string_view text) const {
    const auto taken = MessageChecker::messageOf(pastedText(text).source, ParseMode::lenient);
    const auto* refusal = std::get_if<Refusal>(&taken);
    return refusal ? std::optional(forDisplay(problemLine(*refusal, {}, m_reader))) : std::nullopt;
}

void AppModel::refuse(std::string_view line) {
    showProblem(line);
    m_selection = std::nullopt;
    m_refusal = m_problem;
    emit selectionChanged();
}

UUID AppModel::takeIn(std::vector<MessageSource> sources) {
    dismissProblem();
    if (sources.empty() || m_isFinished) return {};
    m_selectedBefore = m_selection;
    ++m_intake;
    std::vector<Row> rows;
    rows.reserve(sources.size());
    for (const MessageSource& source : sources) {
        rows.push_back(
            {.id = UUID::random(), .name = source.place.file, .isRunning = true, .intake = m_intake});
    }
    m_session.insert(m_session.begin(), rows.begin(), rows.end());
    std::vector<Workers::Job> jobs;
    jobs.reserve(rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i)
        jobs.push_back(check(rows[i].id, rows[i].id, std::move(sources[i])));
    m_workers.add(std::move(jobs));
    m_selection = rows.front().id;
    m_refusal = std::nullopt;
    m_positions.clear();
    emit sessionChanged();
    emit selectionChanged();
    emit progressChanged();
    return rows.front().id;
}

void AppModel::recheck(UUID id) {
    dismissProblem();
    if (!canRecheck(id) || m_isFinished) return;
    const CheckedMessage& message = *m_messages.find(id);
    Row again = *row(id);
    again.isRunning = true;
    m_workers.add(check(UUID::random(), id,
                        {.place = message.place,
                         .bytes = message.bytes,
                         .mode = message.mode,
                         .facts = message.facts,
                         .digest = message.digest,
                         .isAgain = true}));
    change({{id, std::move(again)}});
    emit progressChanged();
}

Workers::Job AppModel::check(const UUID& id, const UUID& row, MessageSource source) {
    if (m_running.empty()) m_progress = {};
    ++m_progress.all;
    Running running{.row = row, .number = ++m_number};
    const std::stop_token stop = running.stop.get_token();
    m_runningByRow.emplace(row, id);
    m_running.emplace(id, std::move(running));
    return [this, id, source = std::move(source), stop] {
        CheckOutcome outcome = m_checker.check(source, id, stop);
        const Read outer{0, attachedTo(outcome)};
        m_mailbox.post([this, id, outcome = std::move(outcome)]() mutable {
            m_outcomes.emplace_back(id, std::move(outcome));
        });
        if (!outer.attached) return;
        checkAttached(id, outer, stop);
        m_mailbox.post([this, id] { m_endedReaders.push_back(id); });
    };
}

// Outcomes

void AppModel::takeOutcomes() {
    Burst burst;
    const auto outcomes = std::exchange(m_outcomes, {});
    for (const auto& [check, outcome] : outcomes) take(check, outcome, burst);
    for (Piece& piece : std::exchange(m_pieces, {})) {
        take(piece, burst);
        burst.hasRows = true;
    }
    for (const UUID& check : std::exchange(m_endedReaders, {})) endReading(check, burst);
    if (burst.changes.empty() && !burst.hasRows) return;
    const auto selected = m_selection;
    for (auto& [mailbox, rows] : burst.found) insertRows(mailbox, std::move(rows));
    apply(burst.changes, burst.refusals);
    m_history.add(burst.reports, burst.saved);  // before anybody is told, who might quit
    emit sessionChanged();
    if (m_selection != selected) emit selectionChanged();
    if (burst.problem.number > 0) showIntakeProblem(burst.problem);
    emit progressChanged();
}

void AppModel::take(const UUID& check, const CheckOutcome& outcome, Burst& burst) {
    if (!m_running.contains(check)) return;  // cancelled
    const auto* checked = std::get_if<CheckOutcome::Checked>(&outcome.value);
    if (const auto* several = std::get_if<CheckOutcome::Several>(&outcome.value))
        return beginReading(check, *several);
    if (checked && checked->attached) return takeOuter(check, *checked, burst);
    const Running done = m_running.extract(check).mapped();
    m_runningByRow.erase(done.row);
    ++m_progress.done;
    const Row before = *row(done.row);
    if (checked) {
        Row after = before;
        after.id = check;
        after.report = checked->report;
        after.isRunning = false;
        burst.changes.emplace(done.row, std::move(after));
        m_messages.drop(done.row);
        keep(check, *checked, done, before.name, burst);
    } else {
        burst.changes.emplace(done.row, withoutCheck(before));
        if (const auto* refusal = std::get_if<Refusal>(&outcome.value)) {
            const std::string line = problemLine(*refusal, before.name, m_reader);
            burst.tell(done.number, line);
            burst.refusals.emplace(done.row, line);
        }
    }
}

void AppModel::takeOuter(const UUID& check, const CheckOutcome::Checked& checked, Burst& burst) {
    Running& running = m_running.at(check);
    running.readers = 1;
    running.found = 1;
    Row& own = m_session[static_cast<std::size_t>(row(running.row) - m_session.data())];
    own.report = checked.report;
    keep(check, checked, running, own.name, burst);
    burst.hasRows = true;
}

void AppModel::keep(const UUID& id, const CheckOutcome::Checked& checked, const Running& running,
                    const std::optional<std::string>& name, Burst& burst) {
    m_messages.keep(id, checked.message);
    if (checked.saved) {
        burst.saved.append(*checked.saved);
        burst.reports.push_back(checked.report);
    } else if (m_settings.keepHistory) {
        burst.tell(running.number, historyNotKept(name, m_reader));
    }
}

// Mailboxes

void AppModel::beginReading(const UUID& check, const CheckOutcome::Several& several) {
    Running& running = m_running.at(check);
    running.readers = checksAtOnce;
    running.expectedBytes = several.expectedBytes;
    running.supply = several.supply;
    m_reading.insert(check);
    std::vector<Workers::Job> jobs;
    jobs.reserve(checksAtOnce);
    for (std::size_t i = 0; i < checksAtOnce; ++i)
        jobs.push_back(read(check, several.supply, running.stop.get_token()));
    m_workers.add(std::move(jobs));
}

Workers::Job AppModel::read(const UUID& check, std::shared_ptr<MessageSupply> supply,
                            const std::stop_token& stop) {
    return [this, check, supply = std::move(supply), stop] {
        const auto until = std::chrono::steady_clock::now() + turnOfReading;
        do {
            const auto outer = checkNext(check, *supply, 0, stop);
            if (!outer) return m_mailbox.post([this, check] { m_endedReaders.push_back(check); });
            checkAttached(check, *outer, stop);
        } while (std::chrono::steady_clock::now() < until);
        m_mailbox.post([this, check, supply, stop] { m_workers.add(read(check, supply, stop)); });
    };
}

std::optional<AppModel::Read> AppModel::checkNext(const UUID& check, MessageSupply& supply, std::size_t outer,
                                                  const std::stop_token& stop) {
    auto message = m_checker.next(supply, stop);
    if (!message) return std::nullopt;
    Piece piece{check, UUID::random(), message->number, 0, message->bytesRead, nameOf(message->found), {}};
    if (outer > 0) std::tie(piece.number, piece.attached) = std::pair(outer, message->number);
    piece.outcome = m_checker.check(std::move(*message), piece.id, stop);
    Read read{piece.number, attachedTo(piece.outcome)};
    m_mailbox.post([this, piece = std::move(piece)]() mutable { m_pieces.push_back(std::move(piece)); });
    return read;
}

void AppModel::checkAttached(const UUID& check, const Read& outer, const std::stop_token& stop) {
    while (outer.attached && checkNext(check, *outer.attached, outer.number, stop)) continue;
}

void AppModel::take(Piece& piece, Burst& burst) {
    const auto found = m_running.find(piece.check);
    if (found == m_running.end()) return;  // cancelled
    Running& mailbox = found->second;
    mailbox.bytesRead = std::max(mailbox.bytesRead, piece.bytesRead);
    if (piece.attached == 0) ++mailbox.outer;
    if (const auto* checked = std::get_if<CheckOutcome::Checked>(&piece.outcome.value)) {
        ++mailbox.found;
        ++m_progress.found;
        keep(piece.id, *checked, mailbox, piece.name, burst);
        burst.found[mailbox.row].push_back({.id = piece.id,
                                            .name = std::move(piece.name),
                                            .report = checked->report,
                                            .intake = row(mailbox.row)->intake,
                                            .mailbox = mailbox.row,
                                            .number = piece.number,
                                            .attached = piece.attached});
    } else if (const auto* refusal = std::get_if<Refusal>(&piece.outcome.value)) {
        ++mailbox.refused;
        mailbox.refusal = problemLine(*refusal, piece.name, m_reader);
        burst.tell(mailbox.number, mailbox.refusal);
    }
}

void AppModel::endReading(const UUID& check, Burst& burst) {
    const auto found = m_running.find(check);
    if (found == m_running.end() || --found->second.readers > 0) return;
    const Running done = m_running.extract(found).mapped();
    m_runningByRow.erase(done.row);
    m_reading.erase(check);
    ++m_progress.done;
    const Row before = *row(done.row);
    if (done.found == 0) {
        const bool isTold = done.refused == 1;  // the one that was refused has its own line already
        const std::string line = isTold ? done.refusal : noMessageLine(before.name.value_or(""), m_reader);
        if (!isTold) burst.tell(done.number, line);
        burst.refusals.emplace(done.row, line);
    }
    burst.changes.emplace(done.row, withoutCheck(before));
}

void AppModel::insertRows(const UUID& mailbox, std::vector<Row> rows) {
    const auto byNumber = [](const Row& a, const Row& b) {
        return std::pair(a.number, a.attached) < std::pair(b.number, b.attached);
    };
    std::ranges::sort(rows, byNumber);
    const auto own = m_session.begin() + (row(mailbox) - m_session.data());
    own->found += rows.size();
    const auto end =
        std::find_if(own + 1, m_session.end(), [&](const Row& each) { return each.mailbox != mailbox; });
    const auto first = own + 1 - m_session.begin(), count = end - (own + 1);
    const auto added = static_cast<std::ptrdiff_t>(rows.size());
    m_session.insert(end, std::make_move_iterator(rows.begin()), std::make_move_iterator(rows.end()));
    const auto begin = m_session.begin() + first;
    std::inplace_merge(begin, begin + count, begin + count + added, byNumber);
    m_positions.clear();
}

// Rows

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

void AppModel::apply(const RowChanges& changes, const Refusals& refusals) {
    const auto refused = m_selection ? refusals.find(*m_selection) : refusals.end();
    const auto selected = selectionAfter(changes, refusals);
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
    if (refused != refusals.end() && !m_selection) m_refusal = forDisplay(refused->second);
}

std::optional<UUID> AppModel::selectable(const std::optional<UUID>& id) const {
    return id && (row(*id) || m_history.report(*id)) ? id : std::nullopt;
}

std::optional<UUID> AppModel::selectionAfter(const RowChanges& changes, const Refusals& refusals) const {
    const auto isGone = [&](const Row& row) {
        const auto found = changes.find(row.id);
        return found != changes.end() && !found->second;
    };
    const Row* selected = m_selection ? row(*m_selection) : nullptr;
    if (!selected) return m_selection;
    const Row* end = m_session.data() + m_session.size();
    const Row* next = std::find_if_not(selected, end, isGone);
    // Of several files the next one. Else what was looked at before they came, but not beneath a refusal.
    if (next == end || next->intake != selected->intake)
        return refusals.contains(selected->id) ? std::nullopt : m_selectedBefore;
    const auto found = changes.find(next->id);
    return found != changes.end() ? found->second->id : next->id;
}

// Commands

void AppModel::cancel(UUID id) {
    const auto check = m_runningByRow.find(id);
    if (check == m_runningByRow.end()) return;
    change({{id, end(check->second)}});
    emit progressChanged();
}

void AppModel::cancelAll() {
    if (m_running.empty()) return;
    RowChanges changes;
    while (!m_running.empty()) {
        const UUID check = m_running.begin()->first, row = m_running.begin()->second.row;
        changes.emplace(row, end(check));
    }
    change(changes);
    emit progressChanged();
}

std::optional<AppModel::Row> AppModel::end(UUID check) {
    Running ended = m_running.extract(check).mapped();
    ended.stop.request_stop();
    m_runningByRow.erase(ended.row);
    ++m_progress.done;
    Row own = *row(ended.row);
    if (m_reading.erase(check) == 0) return withoutCheck(std::move(own));
    own.isRunning = false;
    own.stopped = {.checked = ended.outer};
    const bool canBeCounted =
        ended.expectedBytes && *ended.expectedBytes <= ended.bytesRead + mostReadToCount && !m_isFinished;
    if (canBeCounted) m_workers.add(count(own.id, std::move(ended.supply), m_counting.get_token()));
    return own;
}

Workers::Job AppModel::count(const UUID& row, std::shared_ptr<MessageSupply> supply,
                             const std::stop_token& stop) {
    return [this, row, supply = std::move(supply), stop] {
        const auto until = std::chrono::steady_clock::now() + turnOfReading;
        std::size_t all = m_checker.given(*supply);
        while (const auto message = m_checker.next(*supply, stop)) {
            all = message->number;
            if (std::chrono::steady_clock::now() >= until)
                return m_mailbox.post([=, this] { m_workers.add(count(row, supply, stop)); });
        }
        if (stop.stop_requested()) return;
        m_mailbox.post([this, row, all] {
            const Row* own = this->row(row);
            if (!own) return;  // removed meanwhile
            Row counted = *own;
            counted.stopped->all = all;
            change({{row, std::move(counted)}});
        });
    };
}

void AppModel::removeFromList(UUID id) {
    if (!row(id)) return;
    cancel(id);
    m_messages.drop(id);
    if (!row(id)) return;
    m_removed.insert(id);
    change({{id, std::nullopt}});
}

void AppModel::removeFromHistory(UUID id) {
    if (m_history.report(id)) m_history.remove(id);
}

void AppModel::readHistoryContents() { m_history.readContents(); }

void AppModel::clearHistory(const HistoryContents& contents) { m_history.clear(contents); }

void AppModel::recoverHistory(const std::filesystem::path& damaged) { m_history.recover(damaged); }

void AppModel::refreshHistory() { m_history.refresh(); }

void AppModel::select(std::optional<UUID> id) {
    const auto selected = selectable(id);
    if (m_selection == selected) return;
    m_selection = selected;
    m_refusal = std::nullopt;
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
    m_damagedHistory = std::nullopt;
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
    m_damagedHistory = std::nullopt;
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
    m_counting.request_stop();
    m_workers.stop();
    m_mailbox.empty();  // what was done in time is saved
    cancelAll();
    m_history.finish();
}

}  // namespace quillmark
