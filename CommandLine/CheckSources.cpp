#include "CommandLine/CheckSources.h"

#include <sched.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <thread>
#include <utility>

#include "CommandLine/FixedAnswers.h"
#include "CommandLine/Output.h"
#include "CommandLine/RecordingCommand.h"
#include "CommandLine/StampCommand.h"
#include "CommandLine/UserKeyBook.h"
#include "QuillmarkKit/Support/HTTP.h"
#include "Settings/ChosenResolver.h"
#include "Settings/CurrentTime.h"
#include "Settings/UserFolders.h"
#include "Wording/HistoryWording.h"

namespace quillmark {

namespace {

constexpr std::size_t networkWorkers = 64;  // nearly all of whom wait for answers

/// How many processor cores this process may use, which can be fewer than the machine has.
std::size_t cores() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0)
        return std::max(1u, std::thread::hardware_concurrency());
    return static_cast<std::size_t>(CPU_COUNT(&allowed));
}

/// Of all files that were named; says where they differ.
FixedAnswers allAnswers(const CheckCommand& command) {
    FixedAnswers fixed = FixedAnswers::read(command.dnsFiles.front());
    for (auto file = command.dnsFiles.begin() + 1; file != command.dnsFiles.end(); ++file) {
        for (const std::string& line :
             contradictionLines(fixed.add(FixedAnswers::read(*file)), *file, command.reader)) {
            writeProblem(line);
        }
    }
    return fixed;
}

}  // namespace

CheckSources::CheckSources(const CheckCommand& command) : now(currentTime()), workers(cores()) {
    std::optional<RecordedRun::Failures> failures;
    if (!command.dnsFiles.empty()) {
        for (const std::string& file : command.dnsFiles) {
            if (const auto line = stampLine(file, command.tsaCA, command.reader)) writeProblem(*line);
        }
        FixedAnswers fixed = allAnswers(command);
        if (fixed.at) now = *fixed.at;
        if (fixed.registrations && command.domainAge.value_or(true))  // nobody is asked
            registry = std::make_shared<StaticRegistry>(std::move(*fixed.registrations));
        failures = std::move(fixed.messages);
        resolver = std::make_shared<StaticResolver>(
            std::move(fixed.answers), std::move(fixed.failing), std::move(fixed.errors),
            failures ? std::optional("not in the recorded answers") : std::nullopt, std::move(fixed.sources));
    } else {
        const auto http = std::make_shared<HTTPEngine>(HTTPOptions::ofEnvironment());
        resolver = chosenResolver(command.resolver.value_or(command.options.resolver), http);
        services = std::dynamic_pointer_cast<DoHResolver>(resolver);
        if (command.asksRegistries()) {
            const auto ignored = [reader = command.reader](const std::filesystem::path& file) {
                writeProblem(fileIgnored(file, reader));
            };
            registry = std::make_shared<RDAPClient>(
                http, RDAPOptions{.cacheDirectory = cacheFolder(), .ignored = ignored});
        }
        workers = networkWorkers;
    }
    if (command.registrationsFile && command.domainAge.value_or(true)) {
        registry =
            std::make_shared<StaticRegistry>(FixedAnswers::readRegistrations(*command.registrationsFile));
    }
    if (command.jobs > 0) workers = static_cast<std::size_t>(command.jobs);
    if (command.timeout > 0) lookupTime = std::chrono::seconds(command.timeout);
    if (command.at) now = *parsedRFC3339(*command.at);
    if (command.usesKeyBook()) keys = userKeptKeys(command.remembersKeys(), command.reader);
    if (command.record || failures) {
        recorded = std::make_unique<RecordedRun>(resolver, registry,
                                                 std::move(failures).value_or(RecordedRun::Failures()),
                                                 lookupTime, command.rules(), keys);
    }
}

}  // namespace quillmark
