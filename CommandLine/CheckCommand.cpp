#include "CommandLine/CheckCommand.h"

#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "CommandLine/CheckInputs.h"
#include "CommandLine/CheckSummary.h"
#include "CommandLine/CurrentTime.h"
#include "CommandLine/FixedAnswers.h"
#include "CommandLine/OrderedRun.h"
#include "CommandLine/Output.h"
#include "CommandLine/Progress.h"
#include "CommandLine/RecordedRun.h"
#include "CommandLine/ReportCSV.h"
#include "CommandLine/UserHistory.h"
#include "QuillmarkKit/AttachedMessages.h"
#include "QuillmarkKit/DoHResolver.h"
#include "QuillmarkKit/Intake.h"
#include "QuillmarkKit/RDAP.h"
#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/Files.h"
#include "QuillmarkKit/Support/HTTP.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Verifier.h"
#include "Wording/TextReport.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr std::size_t networkWorkers = 64;  // nearly all of whom wait for answers
constexpr std::size_t aheadPerWorker = 4;
constexpr std::size_t memoryInFlight = 256'000'000;  // bytes of messages and reports

constexpr std::string_view standardInput = "-";
constexpr int mostJobs = 256;

/// No line of a report looks like this one.
constexpr std::string_view betweenReports =
    "\n================================================================================\n\n";

/// The value of the first of the variables that is set, else empty.
std::string environment(std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (const char* value = std::getenv(name)) return value;
    }
    return {};
}

/// HTTPS by way of the proxy that the environment names, if it names one.
std::shared_ptr<HTTP> network() {
    HTTPOptions options;
    options.proxy = environment({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"});
    options.noProxy = environment({"no_proxy", "NO_PROXY"});
    return std::make_shared<HTTPEngine>(std::move(options));
}

/// The user's folder for what can be fetched again (XDG base directories); nothing when the
/// environment names none.
std::optional<std::filesystem::path> cacheFolder() {
    const std::filesystem::path named = environment({"XDG_CACHE_HOME"}), home = environment({"HOME"});
    if (named.is_absolute()) return named / "quillmark";
    if (home.is_absolute()) return home / ".cache" / "quillmark";
    return std::nullopt;
}

/// How many processor cores this process may use, which can be fewer than the machine has.
std::size_t cores() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0)
        return std::max(1u, std::thread::hardware_concurrency());
    return static_cast<std::size_t>(CPU_COUNT(&allowed));
}

std::optional<Tone> toneNamed(std::string_view name) {
    for (const Tone tone : {Tone::good, Tone::caution, Tone::bad, Tone::unknown}) {
        if (name == nameOf(tone)) return tone;
    }
    return std::nullopt;
}

/// The tones in a list such as "bad,caution"; nothing when one has another name.
std::optional<std::set<Tone>> tonesNamed(std::string_view list) {
    std::set<Tone> tones;
    do {
        const auto tone = toneNamed(takePiece(list, ','));
        if (!tone) return std::nullopt;
        tones.insert(*tone);
    } while (!list.empty());
    return tones;
}

std::string unwritable(const std::string& path, const std::string& why) {
    return "“" + path + "” can’t be written: " + why;
}

/// What the options say a check is made with.
struct Sources {
    std::shared_ptr<DNSResolver> resolver = {};
    std::shared_ptr<RegistrationLookup> registry = {};
    std::unique_ptr<RecordedRun> recorded = {};  ///< when the checks are recorded, or were
    Date now = currentTime();
    std::size_t workers = cores();
};

/// Checks what was read, and turns it into what is written.
class Checker {
public:
    Checker(const CheckCommand& command, const Sources& from) : m_command(command), m_from(from) {}

    /// A message and those attached inside it. Never throws.
    std::vector<OrderedRun::Message> checked(CheckInputs::Input input) const {
        std::vector<OrderedRun::Message> all;
        if (const auto* problem = std::get_if<FoundProblem>(&input.found)) return {refused(*problem)};
        auto& found = std::get<FoundMessage>(input.found);
        const MessagePlace place = found.place;
        const auto refuse = [&](std::string reason) {
            all.push_back(refused({{Refusal::Unreadable{std::move(reason)}}, place}));
        };
        try {
            const auto message = check(std::move(found), input.mode, all);
            if (input.hasLinesBefore) all.back().hint = lineOfLinesBefore();
            if (message) checkAttached(*message, place, all);
        } catch (const std::bad_alloc&) {
            refuse(std::generic_category().message(ENOMEM));
        } catch (const std::exception& error) {
            refuse(error.what());
        }
        return all;
    }

private:
    OrderedRun::Message refused(const FoundProblem& problem) const {
        return {.problem = problemLine(problem.refusal, problem.place.name(), m_command.reader)};
    }

    std::string lineOfLinesBefore() const {
        return m_command.reader.translate(
            "Lines stand before what looks like a message’s source. They were taken for the message itself; "
            "to check what stands below them, paste that alone.");
    }

    std::optional<MailMessage> check(FoundMessage found, ParseMode mode,
                                     std::vector<OrderedRun::Message>& all) const {
        const auto name = found.place.name();
        const std::string digest = m_from.recorded ? sha256(found.bytes.view()) : std::string();
        auto taken = messageIn(std::move(found.bytes), mode);
        if (auto* refusal = std::get_if<Refusal>(&taken)) {
            all.push_back(refused({std::move(*refusal), found.place}));
            return std::nullopt;
        }
        auto& message = std::get<MailMessage>(taken);
        ProofReport report =
            m_from.recorded ? m_from.recorded->verify(digest, message, name, m_from.now)
                            : Verifier(m_from.resolver, m_from.registry).verify(message, name, m_from.now);
        if (found.note) report.notes.push_back(std::move(*found.note));
        all.push_back(written(report));
        return std::move(message);
    }

    void checkAttached(const MailMessage& message, const MessagePlace& place,
                       std::vector<OrderedRun::Message>& all) const {
        AttachedMessages attached(message);
        FoundMessage found{.place = place};
        while (auto next = attached.next()) {
            found.bytes = std::move(next->bytes);
            found.place.attached = std::move(next->position);
            check(std::move(found), ParseMode::strict, all);
            found = {.place = place};
        }
        if (attached.isAnyLeftOut()) all.push_back(refused({{Refusal::AttachedLeftOut{}}, place}));
    }

    OrderedRun::Message written(const ProofReport& report) const {
        OrderedRun::Message message{.verdict = report.verdict};
        if (m_only && !m_only->contains(report.verdict.tone)) return message;
        // Of a hostile message it takes several hundred megabytes, so nothing is copied without need.
        if (m_command.json) message.report = compactJSON(report);
        if (m_command.save) message.kept = m_command.json ? message.report : compactJSON(report);
        if (m_command.csv) message.row = csvRow(report);
        if (!m_command.json && !m_command.summary)
            message.report = textReport(report, m_command.reader, m_command.markers);
        if (!message.report.empty()) message.report += '\n';
        return message;
    }

    const CheckCommand& m_command;
    const Sources& m_from;
    const std::optional<std::set<Tone>> m_only = m_command.only ? tonesNamed(*m_command.only) : std::nullopt;
};

/// Writes what comes of the messages, in their order.
class CheckOutput {
public:
    CheckOutput(const CheckCommand& command, const CheckInputs& inputs)
        : m_command(command), m_saver(command.reader) {
        if (command.csv) {
            m_csv.emplace(*command.csv);
            m_csv->write(csvHeader());
        }
        if (canShowProgress()) m_progress.emplace(command.reader, inputs.expectedBytes());
    }

    void take(const OrderedRun::Outcome& outcome) {
        for (const OrderedRun::Message& message : outcome.messages) write(message);
        m_count += static_cast<std::int64_t>(outcome.messages.size());
        if (m_progress) m_progress->update(m_count, outcome.bytesRead);
    }

    /// What is left when all are done. The exit status.
    int finish() {
        clearProgress();
        if (m_command.summary) print(m_summary.text(m_command.reader));
        if (m_command.save && !m_saver.finish()) m_status = 1;
        try {
            const Undisturbed whileWriting;
            if (m_csv) m_csv->commitAsNew();
        } catch (const std::filesystem::filesystem_error& error) {
            writeProblem(unwritable(*m_command.csv, error.code().message()));
            m_status = 1;
        }
        const bool isFailure = m_command.failOn && m_summary.isAnyAsBadAs(*toneNamed(*m_command.failOn));
        return isFailure ? 3 : m_status;
    }

private:
    void write(const OrderedRun::Message& message) {
        if (!message.hint.empty()) writeProblem(message.hint);
        if (!message.problem.empty()) {
            writeProblem(message.problem);
            m_summary.addProblem();
            m_status = 1;
            return;
        }
        m_summary.add(message.verdict);
        if (!message.report.empty()) {
            if (!m_command.json && !std::exchange(m_isFirst, false)) print(betweenReports);
            print(message.report);
        }
        if (!message.kept.empty()) m_saver.add(message.kept);
        try {
            if (!message.row.empty()) m_csv->write(message.row);
        } catch (const std::filesystem::filesystem_error& error) {
            giveUp(unwritable(*m_command.csv, error.code().message()));
        }
    }

    void print(std::string_view text) {
        if (!writeOutput(text))
            giveUp("The reports couldn’t be written: " + std::generic_category().message(errno));
    }

    /// Without waiting for checks whose reports nobody can have.
    [[noreturn]] static void giveUp(const std::string& problem) {
        writeProblem(problem);
        _exit(1);
    }

    const CheckCommand& m_command;
    HistorySaver m_saver;
    CheckSummary m_summary = {};
    std::optional<FileReplacement> m_csv = {};
    std::optional<Progress> m_progress = {};
    std::int64_t m_count = 0;
    int m_status = 0;
    bool m_isFirst = true;
};

Sources sources(const CheckCommand& command) {
    Sources sources;
    std::optional<RecordedRun::Failures> failures;
    if (command.dnsFile) {
        FixedAnswers fixed = FixedAnswers::read(*command.dnsFile);
        if (fixed.at) sources.now = *fixed.at;
        if (fixed.registrations && command.domainAge) {
            sources.registry = std::make_shared<StaticRegistry>(std::move(*fixed.registrations));
        }
        failures = std::move(fixed.messages);
        sources.resolver = std::make_shared<StaticResolver>(
            std::move(fixed.answers), std::move(fixed.failing), std::move(fixed.errors),
            failures ? std::optional("not in the recorded answers") : std::nullopt);
    } else {
        const auto http = network();
        sources.resolver = std::make_shared<DoHResolver>(http);
        if (command.domainAge) {
            sources.registry =
                std::make_shared<RDAPClient>(http, RDAPOptions{.cacheDirectory = cacheFolder()});
        }
        sources.workers = networkWorkers;
    }
    if (command.registrationsFile && command.domainAge) {
        sources.registry =
            std::make_shared<StaticRegistry>(FixedAnswers::readRegistrations(*command.registrationsFile));
    }
    if (command.at) sources.now = *parsedRFC3339(*command.at);
    if (command.record || failures) {
        sources.recorded = std::make_unique<RecordedRun>(
            sources.resolver, sources.registry, std::move(failures).value_or(RecordedRun::Failures()));
    }
    return sources;
}

/// A fault in the arguments that their parser cannot see, or nothing.
std::optional<std::string> usageFault(const CheckCommand& command) {
    if (std::ranges::count(command.files, standardInput) > 1)
        return "standard input (-) can be read only once";
    if (command.only && !tonesNamed(*command.only))
        return "--only takes good, caution, unknown and bad, not “" + *command.only + "”";
    if (command.failOn && (!toneNamed(*command.failOn) || *command.failOn == "good"))
        return "--fail-on takes caution, unknown or bad, not “" + *command.failOn + "”";
    if (command.jobs < 0 || command.jobs > mostJobs) return "--jobs takes a number from 1 to 256";
    if (command.json && command.summary) return "--json and --summary exclude each other";
    if (command.at && !parsedRFC3339(*command.at)) {
        return "--at takes a time such as 2026-11-21T10:00:00Z, not “" + *command.at + "”";
    }
    return std::nullopt;
}

/// Why a new file could not be written, which nobody wants to learn after a long check; or nothing.
std::optional<std::string> newFileFault(const std::string& path) {
    const std::filesystem::path file = path, folder = file.parent_path();
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0) return unwritable(path, "it is there already");
    if (file.filename().empty()) return unwritable(path, std::generic_category().message(EISDIR));
    if (access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) != 0)
        return unwritable(path, std::generic_category().message(errno));
    return std::nullopt;
}

/// Writes down what the checks were told. False when it could not be, of which it says why.
bool wroteRecording(const std::string& path, const Sources& from, Date begun) {
    try {
        const std::string json =
            from.recorded->json({.at = from.now, .begun = begun, .ended = currentTime()});
        const Undisturbed whileWriting;
        createFile(path, json);
        return true;
    } catch (const std::filesystem::filesystem_error& error) {
        writeProblem(unwritable(path, error.code().message()));
        return false;
    }
}

/// One thread reads and goes on to check what it read, while the next reads: as many as can.
void checkAll(CheckInputs& inputs, const Checker& checker, CheckOutput& output, std::size_t mostWorkers) {
    OrderedRun run(mostWorkers * aheadPerWorker, memoryInFlight,
                   [&](const OrderedRun::Outcome& outcome) { output.take(outcome); });
    std::mutex reading;
    bool hasEnded = false;
    std::vector<std::jthread> others;
    const std::function<void()> work = [&] {
        for (;;) {
            std::unique_lock turn(reading);
            if (hasEnded) return;
            const std::size_t number = run.take();
            auto input = inputs.next();
            if (!input) {
                hasEnded = true;
                return;
            }
            const auto* message = std::get_if<FoundMessage>(&input->found);
            run.reserve(number, message ? message->bytes.size() : 0);
            const std::uint64_t bytesRead = inputs.bytesRead();
            try {
                if (others.size() + 1 < mostWorkers) others.emplace_back(work);
            } catch (const std::system_error&) {
                mostWorkers = others.size() + 1;  // fewer will do, where the system allows no more
            }
            turn.unlock();
            run.finish(number, {checker.checked(std::move(*input)), bytesRead});
        }
    };
    work();
    others.clear();
}

}  // namespace

int CheckCommand::run() const {
    const Date begun = currentTime();
    auto fault = usageFault(*this);
    if (!fault && record) fault = newFileFault(*record);
    if (!fault && csv) fault = newFileFault(*csv);
    if (fault) {
        writeProblem(*fault);
        return 2;
    }
    try {
        const Sources from = sources(*this);
        CheckInputs inputs(files, pasted);
        CheckOutput output(*this, inputs);
        const std::size_t workers = jobs > 0 ? static_cast<std::size_t>(jobs) : from.workers;
        checkAll(inputs, Checker(*this, from), output, workers);
        const int status = output.finish();
        if (record && !wroteRecording(*record, from, begun)) return 1;
        return status;
    } catch (const AnswersFileError& error) {
        writeProblem(error.what());
        return 2;
    } catch (const std::filesystem::filesystem_error& error) {
        writeProblem(unwritable(csv.value_or(""), error.code().message()));
        return 2;
    }
}

}  // namespace quillmark
