#include "CommandLine/CheckCommand.h"

#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "CommandLine/CurrentTime.h"
#include "CommandLine/FixedAnswers.h"
#include "CommandLine/OrderedRun.h"
#include "CommandLine/Output.h"
#include "CommandLine/RecordedRun.h"
#include "CommandLine/UserHistory.h"
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

/// The user's folder for what can be fetched again (XDG Base Directory Specification); nothing when the
/// environment names none.
std::optional<std::filesystem::path> cacheFolder() {
    const std::filesystem::path named = environment({"XDG_CACHE_HOME"}), home = environment({"HOME"});
    if (named.is_absolute()) return named / "quillmark";
    if (home.is_absolute()) return home / ".cache" / "quillmark";
    return std::nullopt;
}

/// What a file is called in its report: the last component of its path. Standard input and pasted text have
/// no name.
std::optional<std::string> reportName(const CheckCommand& command, std::string_view file) {
    if (command.pasted || file == standardInput) return std::nullopt;
    while (file.size() > 1 && file.ends_with('/')) file.remove_suffix(1);
    return repairedUTF8(file.substr(file.rfind('/') + 1));
}

/// The bytes that reading a file will take; the most there can be when only reading can tell.
std::size_t expectedSize(const std::string& file) {
    struct stat status = {};
    if (file == standardInput || stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return largestMessage;
    return std::min(static_cast<std::size_t>(status.st_size), largestMessage);
}

/// How many processor cores this process may use, which can be fewer than the machine has.
std::size_t cores() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0)
        return std::max(1u, std::thread::hardware_concurrency());
    return static_cast<std::size_t>(CPU_COUNT(&allowed));
}

/// What the options say a check is made with.
struct Sources {
    std::shared_ptr<DNSResolver> resolver = {};
    std::shared_ptr<RegistrationLookup> registry = {};
    std::unique_ptr<RecordedRun> recorded = {};  ///< when the checks are recorded, or were
    Date now = currentTime();
    std::size_t workers = cores();
};

/// One file from bytes to what is printed for it.
OrderedRun::Outcome checked(const CheckCommand& command, const Sources& from, const std::string& file) {
    const auto name = reportName(command, file);
    auto bytes = file == standardInput ? readDescriptor(STDIN_FILENO) : readFile(file);
    if (const auto* refusal = std::get_if<Refusal>(&bytes))
        return {.problem = problemLine(*refusal, name, command.reader)};
    auto& buffer = std::get<ByteBuffer>(bytes);
    const std::string digest = from.recorded ? sha256(buffer.view()) : std::string();
    const auto message =
        messageIn(std::move(buffer), command.pasted ? ParseMode::lenient : ParseMode::strict);
    if (const auto* refusal = std::get_if<Refusal>(&message))
        return {.problem = problemLine(*refusal, name, command.reader)};
    const auto& mail = std::get<MailMessage>(message);
    const ProofReport report = from.recorded
                                   ? from.recorded->verify(digest, mail, name, from.now)
                                   : Verifier(from.resolver, from.registry).verify(mail, name, from.now);
    // Of a hostile message it takes several hundred megabytes, so nothing is copied without need.
    OrderedRun::Outcome outcome;
    outcome.report = command.json ? compactJSON(report) : textReport(report, command.reader, command.markers);
    if (command.save) outcome.kept = command.json ? outcome.report : compactJSON(report);
    outcome.report += '\n';
    return outcome;
}

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
    if (command.at && !parsedRFC3339(*command.at)) {
        return "--at takes a time such as 2026-11-21T10:00:00Z, not “" + *command.at + "”";
    }
    return std::nullopt;
}

/// Why the recording could not be written, which nobody wants to learn after a long check; or nothing.
std::optional<std::string> recordingFault(const std::string& path) {
    const auto unwritable = [&](const std::string& why) { return "“" + path + "” can’t be written: " + why; };
    const std::filesystem::path file = path, folder = file.parent_path();
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0) return unwritable("it is there already");
    if (file.filename().empty()) return unwritable(std::generic_category().message(EISDIR));
    if (access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) != 0)
        return unwritable(std::generic_category().message(errno));
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
        writeProblem("“" + path + "” can’t be written: " + error.code().message());
        return false;
    }
}

}  // namespace

int CheckCommand::run() const {
    const Date begun = currentTime();
    auto fault = usageFault(*this);
    if (!fault && record) fault = recordingFault(*record);
    if (fault) {
        writeProblem(*fault);
        return 2;
    }
    Sources from;
    try {
        from = sources(*this);
    } catch (const AnswersFileError& error) {
        writeProblem(error.what());
        return 2;
    }
    int status = 0;
    bool first = true;
    HistorySaver saver(reader);
    const auto write = [&](const OrderedRun::Outcome& outcome) {
        if (!outcome.problem.empty()) {
            writeProblem(outcome.problem);
            status = 1;
            return;
        }
        const bool isSeparate = json || std::exchange(first, false) || writeOutput(betweenReports);
        if (!isSeparate || !writeOutput(outcome.report)) {
            writeProblem("The reports couldn’t be written: " + std::generic_category().message(errno));
            _exit(1);  // without waiting for checks whose reports nobody can have
        }
        if (save) saver.add(outcome.kept);
    };
    const std::size_t workers = std::min(from.workers, files.size());
    OrderedRun run(files.size(), workers * aheadPerWorker, memoryInFlight, write);
    const auto work = [&] {
        while (const auto number = run.take()) {
            const std::string& file = files[*number];
            const auto refuse = [&](std::string reason) {
                const Refusal refusal{Refusal::Unreadable{std::move(reason)}};
                run.finish(*number, {.problem = problemLine(refusal, reportName(*this, file), reader)});
            };
            try {
                run.reserve(*number, expectedSize(file));
                run.finish(*number, checked(*this, from, file));
            } catch (const std::bad_alloc&) {
                refuse(std::generic_category().message(ENOMEM));
            } catch (const std::exception& error) {
                refuse(error.what());
            }
        }
    };
    std::vector<std::jthread> others;
    try {
        while (others.size() + 1 < workers) others.emplace_back(work);
    } catch (const std::system_error&) {
        // Fewer will do, where the system allows no more.
    }
    work();
    others.clear();
    if (save && !saver.finish()) status = 1;
    if (record && !wroteRecording(*record, from, begun)) return 1;
    return status;
}

}  // namespace quillmark
