#include "Quillmark/AppModel.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <ranges>
#include <utility>
#include <variant>

#include "QuillmarkKit/Support/Files.h"
#include "QuillmarkKit/Support/Text.h"
#include "Settings/ChosenResolver.h"
#include "Wording/Direction.h"
#include "Wording/HistoryWording.h"
#include "Wording/KeyWording.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr std::size_t checksAtOnce = 8;
/// How long a worker stays with a mailbox before others have their turn.
constexpr std::chrono::milliseconds turnOfReading{100};
/// What is read at most, in bytes, only to say how many messages a mailbox holds that was stopped.
constexpr std::uint64_t mostReadToCount = 1'000'000'000;
/// Files of one drop that are read at the drop, all together, in bytes: so little takes no time.
constexpr std::uintmax_t mostReadAtDrop = 16'000'000;
constexpr std::size_t mailboxesAtOnce = 16;  // of each, a process reads
constexpr std::size_t mostRemovals = 100;    // that can be undone

}  // namespace

AppModel::AppModel(Surroundings surroundings, QObject* parent)
    : QObject(parent),
      m_store(std::move(surroundings.settings)),
      m_reader(surroundings.reader),
      m_settings(loadSettings(*m_store)),
      m_options(loadOptions(*m_store)),
      m_mayAskRegistry(std::make_shared<RegistrySwitch>(m_settings.checkDomainAge)),
      m_usualResolver(std::move(surroundings.resolver)),
      m_otherResolver(std::move(surroundings.otherResolver)),
      m_keyBook{surroundings.keyBook},
      m_keys(std::move(surroundings.keys)),
      m_checker(resolver(), std::move(surroundings.registry), m_mayAskRegistry, m_keys, surroundings.now,
                std::move(surroundings.processes)),
      m_history(std::move(surroundings.historyFile), surroundings.now, m_reader, m_mailbox),
      m_messages(surroundings.keptBytes),
      m_workers(checksAtOnce) {
    if (!m_settings.onboardingDone) m_sheet = Sheet::welcome;
    connect(&m_mailbox, &Mailbox::emptied, this, &AppModel::takeOutcomes);
    connect(&m_history, &HistoryKeeper::changed, this, [this] {
        select(selection());  // which may have gone
        emit historyChanged();
    });
    connect(&m_history, &HistoryKeeper::failed, this, &AppModel::showProblem);
    connect(&m_history, &HistoryKeeper::madeUpFor, this, [this](const std::string& line) {
        if (m_problem == inertLine(line, m_reader.language)) dismissProblem();
    });
    connect(&m_history, &HistoryKeeper::recovered, this, &AppModel::showProblem);
    connect(&m_history, &HistoryKeeper::setAside, this, [this](const std::filesystem::path& damaged) {
        m_damagedHistory = damaged;
        emit problemChanged();
    });
    connect(&m_history, &HistoryKeeper::contentsRead, this, &AppModel::historyContentsRead);
    connect(&m_history, &HistoryKeeper::cleared, this, &AppModel::historyCleared);
    m_history.setKept(m_settings.keepHistory);
    m_checker.setRules(m_options.rules());
    if (!m_keys) return;
    m_keys->setRemembers(m_options.rememberKeys);
    m_keys->setProblem([this](const std::exception& error) {
        m_mailbox.post([this, line = keyBookProblem(error, m_keyBook.url, m_reader)] { showProblem(line); });
    });
}

AppModel::~AppModel() { finish(); }

SharedReport AppModel::report(const UUID& id) const {
    const Row* found = row(id);
    return found ? found->report : m_history.report(id);
}

std::optional<CheckedMessage> AppModel::message(const UUID& id) const {
    const auto* kept = row(id) ? m_messages.find(id) : nullptr;
    return kept && kept->source.bytes ? std::optional(*kept) : std::nullopt;
}

bool AppModel::canRecheck(const UUID& id) const {
    const Row* found = row(id);
    const auto* kept = m_messages.find(id);
    return found && !found->isRunning && kept && (kept->source.bytes || !kept->source.place.path.empty());
}

AppModel::Progress AppModel::progress() const {
    Progress progress = m_progress;
    for (const UUID& check : m_reading) {
        const Running& mailbox = m_running.at(check);
        const std::uint64_t expected = mailbox.mailbox->expectedBytes.value_or(0);
        if (expected == 0) continue;
        const double part = static_cast<double>(mailbox.bytesRead) / static_cast<double>(expected);
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

void AppModel::openDropped(const std::vector<std::string>& paths) {
    namespace fs = std::filesystem;
    std::error_code error;
    std::uintmax_t size = 0;
    for (const std::string& path : paths) {
        if (fs::is_regular_file(path, error))
            size += std::min(fs::file_size(path, error), mostReadAtDrop + 1);
        if (size > mostReadAtDrop) return openFiles(paths);
    }
    std::vector<std::string> others;  // folders, devices, files of other forms, and what cannot be read
    std::vector<std::pair<std::string, ByteBuffer>> read;
    for (const std::string& path : paths) {
        auto bytes = fs::is_regular_file(path, error) ? readFile(path) : Refusal{};
        auto* buffer = std::get_if<ByteBuffer>(&bytes);
        if (buffer && m_checker.isMessageAlone(buffer->view())) {
            read.emplace_back(lastComponent(path), std::move(*buffer));
        } else {
            others.push_back(path);
        }
    }
    if (!others.empty()) openFiles(std::move(others));
    // The newest intake stands on top: the first file comes last.
    for (auto& [name, bytes] : std::views::reverse(read)) checkData(std::move(bytes), std::move(name));
}

UUID AppModel::checkData(ByteBuffer bytes, std::optional<std::string> name) {
    if (name) name = repairedUTF8(*name);
    return takeIn({{.place = {.file = std::move(name)},
                    .bytes = std::make_shared<const ByteBuffer>(std::move(bytes))}});
}

UUID AppModel::paste(std::string_view text) {
    auto pasted = m_checker.pasted(text);
    return takeIn({{.bytes = std::make_shared<const ByteBuffer>(std::move(pasted.source)),
                    .mode = ParseMode::lenient,
                    .facts = {.dropped = std::move(pasted.dropped)}}});
}

std::optional<std::string> AppModel::whyNotPasted(std::string_view text) const {
    const auto refusal = m_checker.pasted(text).refusal;
    return refusal ? std::optional(inertLine(problemLine(*refusal, {}, m_reader), m_reader.language))
                   : std::nullopt;
}

void AppModel::refuse(std::string_view line) {
    showProblem(line);
    m_session.refuse(*m_problem);
    emit selectionChanged();
}

UUID AppModel::takeIn(std::vector<MessageSource> sources) {
    dismissProblem();
    if (sources.empty() || m_isFinished) return {};
    std::vector<Row> rows;
    std::vector<Workers::Job> jobs;
    for (MessageSource& source : sources) {
        const UUID id = UUID::random();
        rows.push_back({.id = id, .name = source.place.file, .isRunning = true});
        jobs.push_back(check(id, std::move(source), begin(id, id)));
    }
    const UUID first = rows.front().id;
    m_session.takeIn(std::move(rows));
    start(std::move(jobs));
    emit sessionChanged();
    emit selectionChanged();
    emit progressChanged();
    return first;
}

void AppModel::recheck(UUID id) {
    dismissProblem();
    if (!canRecheck(id) || m_isFinished) return;
    Row again = *row(id);
    again.isRunning = true;
    const UUID check = UUID::random();
    const std::stop_token stop = begin(check, id);
    start({[this, check, source = m_messages.find(id)->source, stop] {
        m_checker.checkAgain(source, check, stop, receiver(check));
    }});
    change(Session::Changes{{id, std::move(again)}});
    emit progressChanged();
}

std::stop_token AppModel::begin(const UUID& id, const UUID& row) {
    if (m_running.empty()) {
        m_progress = {};
        m_checker.renew();
    }
    ++m_progress.all;
    Running running{.row = row, .number = ++m_number};
    std::stop_token stop = running.stop.get_token();
    m_runningByRow.emplace(row, id);
    m_running.emplace(id, std::move(running));
    return stop;
}

Workers::Job AppModel::check(const UUID& id, MessageSource source, const std::stop_token& stop) {
    return [this, id, source = std::move(source), stop] {
        const auto mailbox = m_checker.check(source, id, stop, receiver(id));
        if (mailbox) m_mailbox.post([this, id, mailbox] { beginReading(id, mailbox); });
    };
}

void AppModel::start(std::vector<Workers::Job> checks) {
    std::ranges::move(checks, std::back_inserter(m_unstarted));
    if (m_settings.onboardingDone) m_workers.add(std::exchange(m_unstarted, {}));
}

MessageChecker::Receiver AppModel::receiver(const UUID& check, std::size_t number, std::uint64_t bytesRead) {
    return [=, this](CheckOutcome outcome) {
        m_mailbox.post([this, piece = Piece{check, number, bytesRead, std::move(outcome)}]() mutable {
            m_pieces.push_back(std::move(piece));
        });
    };
}

// Mailboxes

void AppModel::beginReading(const UUID& check, const std::shared_ptr<OpenMailbox>& mailbox) {
    m_waiting.emplace_back(check, mailbox);
    readWaiting();
}

void AppModel::readWaiting() {
    while (!m_waiting.empty() && m_reading.size() < mailboxesAtOnce) {
        const auto [check, mailbox] = std::move(m_waiting.front());
        m_waiting.pop_front();
        const auto found = m_running.find(check);
        if (found == m_running.end()) continue;  // cancelled
        Running& running = found->second;
        running.readers = checksAtOnce;
        running.mailbox = mailbox;
        m_reading.insert(check);
        std::vector<Workers::Job> jobs;
        jobs.reserve(checksAtOnce);
        for (std::size_t i = 0; i < checksAtOnce; ++i)
            jobs.push_back(read(check, mailbox, running.stop.get_token()));
        m_workers.add(std::move(jobs));
    }
}

Workers::Job AppModel::read(const UUID& check, std::shared_ptr<OpenMailbox> mailbox,
                            const std::stop_token& stop) {
    return [this, check, mailbox = std::move(mailbox), stop] {
        const auto until = std::chrono::steady_clock::now() + turnOfReading;
        do {
            auto next = m_checker.next(*mailbox, stop);
            if (!next) return m_mailbox.post([this, check] { m_endedReaders.push_back(check); });
            m_checker.check(std::move(next->found), stop, receiver(check, next->number, next->bytesRead));
        } while (std::chrono::steady_clock::now() < until);
        m_mailbox.post([this, check, mailbox, stop] { m_workers.add(read(check, mailbox, stop)); });
    };
}

// Outcomes

void AppModel::takeOutcomes() {
    Burst burst;
    for (Piece& piece : std::exchange(m_pieces, {})) take(piece, burst);
    for (const UUID& check : std::exchange(m_endedReaders, {})) {
        const auto found = m_running.find(check);
        if (found != m_running.end() && --found->second.readers == 0) endCheck(check, burst);
    }
    readWaiting();
    if (burst.changes.empty() && !burst.hasReports && burst.problem.number == 0) return;
    change([&](Session& session) {
        for (auto& [mailbox, rows] : burst.found) session.insert(mailbox, std::move(rows));
        session.apply(burst.changes, burst.refusals);
        m_history.add(burst.reports, burst.saved);  // before anybody is told, who might quit
    });
    if (burst.problem.number > 0) showIntakeProblem(burst.problem);
    emit progressChanged();
}

void AppModel::take(Piece& piece, Burst& burst) {
    const auto found = m_running.find(piece.check);
    if (found == m_running.end()) return;  // cancelled
    Running& running = found->second;
    running.bytesRead = std::max(running.bytesRead, piece.bytesRead);
    const auto* refusal = std::get_if<Refusal>(&piece.outcome.value);
    const bool isCut = refusal && (std::holds_alternative<Refusal::Ended>(refusal->value) ||
                                   std::holds_alternative<Refusal::Moved>(refusal->value));
    if (isCut) running.isCut = true;
    if (piece.outcome.isOutermost && !isCut) ++running.outer;
    if (refusal) {
        ++running.refused;
        running.refusal = problemLine(*refusal, piece.outcome.place.name(), m_reader);
        burst.tell(running.number, running.refusal);
    } else {
        ++running.found;
        takeReport(running, piece, burst);
    }
    if (piece.number == 0 && piece.outcome.isLast) endCheck(piece.check, burst);
}

void AppModel::takeReport(const Running& running, Piece& piece, Burst& burst) {
    auto& checked = std::get<CheckOutcome::Checked>(piece.outcome.value);
    const auto name = piece.outcome.place.name();
    const UUID id = checked.report->id;
    burst.hasReports = true;
    if (checked.saved) {
        burst.saved.append(*checked.saved);
        burst.reports.push_back(checked.report);
    } else if (m_settings.keepHistory) {
        burst.tell(running.number, historyNotKept(name, m_reader));
    }
    if (piece.number == 0 && piece.outcome.isOutermost) {
        m_session.setReport(running.row, checked.report);
        if (running.row != id) m_messages.drop(running.row);
    } else {
        ++m_progress.found;
        std::vector<std::size_t> position = std::move(piece.outcome.place.attached);
        position.insert(position.begin(), piece.number);
        burst.found[running.row].push_back(
            {.id = id, .name = name, .report = checked.report, .position = std::move(position)});
    }
    m_messages.keep(id, std::move(checked.message));
}

void AppModel::endCheck(const UUID& check, Burst& burst) {
    const Running done = m_running.extract(check).mapped();
    m_runningByRow.erase(done.row);
    const bool wasMailbox = m_reading.erase(check) > 0;
    ++m_progress.done;
    Row own = *row(done.row);
    if (done.found == 0) {
        const bool isTold = done.refused == 1;  // the one that was refused has its own line already
        const std::string line = isTold ? done.refusal : noMessageLine(own.name.value_or(""), m_reader);
        if (!isTold) burst.tell(done.number, line);
        burst.refusals.emplace(done.row, inertLine(line, m_reader.language));
    } else {
        own.id = check;  // which has a report now
    }
    const auto found = burst.found.find(done.row);  // which its row does not count yet
    if (found != burst.found.end()) own.found += found->second.size();
    own.isDone = wasMailbox && own.found > 1 && !done.isCut;
    if (wasMailbox && own.found > 0 && done.isCut) own.stopped = {.checked = done.outer};
    burst.changes.emplace(done.row, withoutCheck(std::move(own)));
}

// Rows

std::optional<AppModel::Row> AppModel::withoutCheck(Row row) {
    if (!row.report && !row.isDone && !row.stopped) return std::nullopt;
    row.isRunning = false;
    return row;
}

void AppModel::change(const std::function<void(Session&)>& change) {
    const auto selected = selection();
    change(m_session);
    emit sessionChanged();
    if (selection() != selected) emit selectionChanged();
}

void AppModel::change(const Session::Changes& changes) {
    change([&](Session& session) { session.apply(changes); });
}

// Commands

void AppModel::cancel(UUID id) {
    const auto check = m_runningByRow.find(id);
    if (check == m_runningByRow.end()) return;
    change(Session::Changes{{id, end(check->second)}});
    readWaiting();
    emit progressChanged();
}

void AppModel::cancelAll() {
    if (m_running.empty()) return;
    m_waiting.clear();
    Session::Changes changes;
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
    const auto expected = ended.mailbox->expectedBytes;
    const bool canBeCounted = expected && *expected <= ended.bytesRead + mostReadToCount && !m_isFinished;
    if (canBeCounted) m_workers.add(count(own.id, std::move(ended.mailbox), m_counting.get_token()));
    return own;
}

Workers::Job AppModel::count(const UUID& row, std::shared_ptr<OpenMailbox> mailbox,
                             const std::stop_token& stop) {
    return [this, row, mailbox = std::move(mailbox), stop] {
        const auto until = std::chrono::steady_clock::now() + turnOfReading;
        std::size_t all = m_checker.given(*mailbox);
        while (const auto message = m_checker.next(*mailbox, stop)) {
            all = message->number;
            if (std::chrono::steady_clock::now() >= until)
                return m_mailbox.post([=, this] { m_workers.add(count(row, mailbox, stop)); });
        }
        if (stop.stop_requested()) return;
        m_mailbox.post([this, row, all] {
            const Row* own = this->row(row);
            if (!own) return;  // removed meanwhile
            Row counted = *own;
            counted.stopped->all = all;
            change(Session::Changes{{row, std::move(counted)}});
        });
    };
}

void AppModel::removeFromList(const std::set<UUID>& ids) {
    for (const UUID& id : ids) cancel(id);
    Removal removal;
    change([&](Session& session) { removal.rows = session.remove(ids); });
    keepForUndo(std::move(removal));
}

void AppModel::removeFromHistory(const std::set<UUID>& ids) {
    keepForUndo({.reports = m_history.remove(ids)});
}

// The messages of rows that went are kept like any others: until there are too many.
void AppModel::keepForUndo(Removal removal) {
    if (removal.size() == 0) return;
    const std::size_t count = removal.size();
    m_removals.push_back(std::move(removal));
    if (m_removals.size() > mostRemovals) m_removals.pop_front();
    emit removalsChanged(count);
}

void AppModel::undoRemoval() {
    if (m_removals.empty() || m_isFinished) return;
    const Removal removal = std::move(m_removals.back());
    m_removals.pop_back();
    HistoryChange again;
    std::vector<SharedReport> reports;
    for (const SharedReport& report : removal.reports) {
        if (again.add(*report)) reports.push_back(report);
    }
    m_history.add(reports, again);
    change([&](Session& session) { session.restore(removal.rows); });
    if (!removal.rows.rows.empty()) select(removal.rows.rows.front().first.id);
    if (!reports.empty()) select(reports.front()->id);
    emit removalsChanged(0);
}

void AppModel::readHistoryContents() { m_history.readContents(); }

void AppModel::clearHistory(const HistoryContents& contents) {
    for (Removal& each : m_removals) each.reports.clear();  // they go for good, too
    std::erase_if(m_removals, [](const Removal& each) { return each.size() == 0; });
    emit removalsChanged(0);
    m_history.clear(contents);
}

void AppModel::recoverHistory(const std::filesystem::path& damaged) { m_history.recover(damaged); }

void AppModel::refreshHistory() { m_history.refresh(); }

void AppModel::select(std::optional<UUID> id) {
    const auto selected = selection();
    m_session.select(id);
    if (selection() != selected) emit selectionChanged();
}

void AppModel::showSheet(Sheet sheet) {
    if (!m_settings.onboardingDone) return;
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
        start({});
    }
}

void AppModel::showProblem(std::string_view line) {
    m_problem = inertLine(line, m_reader.language);
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

void AppModel::setResolver(const std::string& choice) {
    if (m_options.resolver == choice) return;
    m_options.resolver = choice;
    saveOptions(m_options, *m_store);
    m_checker.setResolver(resolver());
}

std::shared_ptr<DNSResolver> AppModel::resolver() const {
    return m_otherResolver && m_options.resolver != usualResolver ? m_otherResolver(m_options.resolver)
                                                                  : m_usualResolver;
}

void AppModel::setRememberKeys(bool isOn) {
    if (m_options.rememberKeys == isOn) return;
    m_options.rememberKeys = isOn;
    saveOptions(m_options, *m_store);
    if (m_keys) m_keys->setRemembers(isOn);
}

void AppModel::setJudgeByRFC9989(bool isOn) {
    if (m_options.judgeByRFC9989 == isOn) return;
    m_options.judgeByRFC9989 = isOn;
    saveOptions(m_options, *m_store);
    m_checker.setRules(m_options.rules());
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
    if (m_keys) {
        m_keys->save();
        m_keys->setProblem([](const std::exception&) {});
    }
    m_mailbox.empty();  // what was done in time is saved
    cancelAll();
    m_history.finish();
}

}  // namespace quillmark
