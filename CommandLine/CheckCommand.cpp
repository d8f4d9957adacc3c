#include "CommandLine/CheckCommand.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "CommandLine/AsSignedFolder.h"
#include "CommandLine/CheckInputs.h"
#include "CommandLine/CheckOutput.h"
#include "CommandLine/CheckSources.h"
#include "CommandLine/CheckSummary.h"
#include "CommandLine/FixedAnswers.h"
#include "CommandLine/FolderWalk.h"
#include "CommandLine/InputParts.h"
#include "CommandLine/OrderedRun.h"
#include "CommandLine/Output.h"
#include "CommandLine/OutputFile.h"
#include "CommandLine/Restriction.h"
#include "CommandLine/ResultFolder.h"
#include "CommandLine/StampCommand.h"
#include "QuillmarkKit/CheckWalk.h"
#include "QuillmarkKit/ReportCSV.h"
#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/Crypto.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Verifier.h"
#include "Sandbox/ProgramSandbox.h"
#include "Settings/ChosenResolver.h"
#include "Settings/CurrentTime.h"
#include "Wording/Banner.h"
#include "Wording/Expected.h"
#include "Wording/Quoted.h"
#include "Wording/TextReport.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr std::size_t aheadPerWorker = 4;
constexpr std::size_t memoryInFlight = 256'000'000;  // bytes of messages and reports

constexpr std::size_t memoryPostponed = 256'000'000;  // bytes of messages

constexpr std::size_t longestWaiting = 1'000'000;  // bytes of a report's JSON

constexpr std::string_view standardInput = "-";

bool goesToOutput(const std::optional<std::string>& file) {
    return file && OutputFile::isStandardOutput(*file);
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

/// What a DNS service that rests might have answered for, to be checked again when all else is done. Safe
/// from many threads at once.
class Postponed {
public:
    /// False when there is no room for it.
    bool keep(std::size_t number, CheckInputs::Input input) {
        const std::lock_guard lock(m_mutex);
        const std::size_t bytes = std::get<FoundMessage>(input.found).bytes.size();
        if (m_bytes + bytes > memoryPostponed) return false;
        m_bytes += bytes;
        m_inputs.emplace(number, std::move(input));
        return true;
    }
    /// In their order; nothing at the end.
    std::optional<CheckInputs::Input> next() {
        const std::lock_guard lock(m_mutex);
        if (m_inputs.empty()) return std::nullopt;
        return std::move(m_inputs.extract(m_inputs.begin()).mapped());
    }

private:
    std::mutex m_mutex = {};
    std::map<std::size_t, CheckInputs::Input> m_inputs = {};
    std::size_t m_bytes = 0;
};

/// Tells whether a question failed that a DNS service which rests might have answered.
class RestWatch : public DNSResolver {
public:
    RestWatch(DNSResolver& resolver, bool& wentWithout) : m_resolver(resolver), m_wentWithout(wentWithout) {}
    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) override {
        try {
            return m_resolver.lookup(name, type, patience);
        } catch (const DNSServiceRests&) {
            m_wentWithout = true;
            throw;
        }
    }
    bool mayKnow(std::string_view name, DNSRecordType type) override {
        return m_resolver.mayKnow(name, type);
    }
    std::string source(std::string_view name, DNSRecordType type) override {
        return m_resolver.source(name, type);
    }

private:
    DNSResolver& m_resolver;
    bool& m_wentWithout;
};

/// Checks what was read, and turns it into what is written.
class Checker {
public:
    /// `part`: a digest of what the reports follow from, and so their identities; else these are random.
    /// Throws `OutputFileError`.
    Checker(const CheckCommand& command, const CheckSources& from, std::optional<std::string> part = {})
        : m_command(command), m_from(from), m_part(std::move(part)) {
        if (command.asSigned)
            m_asSigned = std::make_unique<AsSignedFolder>(*command.asSigned, command.reader);
    }

    /// What was written beside the reports, if anything was asked for.
    std::optional<std::string> summary() const { return m_asSigned ? m_asSigned->summary() : std::nullopt; }

    /// A message and those attached inside it; nothing when it was postponed. Never throws.
    std::vector<OrderedRun::Message> checked(CheckInputs::Input input, std::size_t number,
                                             Postponed* postponed) {
        // A service may begin to rest in the middle of a check. A recording tells of one check of each
        // message.
        auto again =
            postponed && m_from.services && !m_from.recorded && !m_asSigned ? copyOf(input) : std::nullopt;
        bool wentWithout = false;
        auto all = checked(std::move(input), number, wentWithout);
        if (m_from.services && m_from.services->doAllRest() && !m_hasSaidThatAllRest.exchange(true)) {
            writeProblem(m_command.reader.translate(
                "No DNS service answers, so what would have to be asked for stays open. If one answers again "
                "before the end, it is asked for then."));
        }
        if (wentWithout && again && postponed->keep(number, std::move(*again))) return {};
        return all;
    }

private:
    /// Of a message; nothing when there is none, or no memory for it.
    static std::optional<CheckInputs::Input> copyOf(const CheckInputs::Input& input) {
        const auto* found = std::get_if<FoundMessage>(&input.found);
        if (!found) return std::nullopt;
        try {
            return CheckInputs::Input{FoundMessage{ByteBuffer(found->bytes.view()), found->place, found->mode,
                                                   found->facts, found->apart},
                                      input.hasLinesBefore, input.isOfFolder};
        } catch (const std::bad_alloc&) {
            return std::nullopt;
        }
    }

    /// A new one, or that of one message of a part: which it is in the input, and which of those attached.
    UUID identity(std::size_t number, std::size_t attached) const {
        if (!m_part) return UUID::random();
        const std::string digest = hash(
            HashAlgorithm::sha256, *m_part + " " + std::to_string(number) + " " + std::to_string(attached));
        UUID id;
        std::copy_n(digest.begin(), id.bytes.size(), id.bytes.begin());
        id.bytes[6] = static_cast<std::uint8_t>((id.bytes[6] & 0x0F) | 0x80);  // version 8: made otherwise
        id.bytes[8] = static_cast<std::uint8_t>((id.bytes[8] & 0x3F) | 0x80);  // RFC 9562, section 4.1
        return id;
    }

    std::vector<OrderedRun::Message> checked(CheckInputs::Input input, std::size_t number,
                                             bool& wentWithout) const {
        const bool isOfFolder = input.isOfFolder;
        const auto hint = input.hasLinesBefore ? lineOfLinesBefore(placeOf(input.found)) : std::string();
        // Of the message that was checked last: what is left to be told of it, and its digest.
        std::string unwritten;
        std::optional<std::string> digest;
        std::size_t checkedSoFar = 0;
        const auto verify = [&](const MailMessage& message, const FoundMessage& found) {
            Verification verification =
                verified(message, found, identity(number, checkedSoFar++), wentWithout);
            if (m_asSigned) unwritten = writeAsSigned(found.place, message, verification);
            if (m_command.sha256 || m_command.onePage) digest = sha256(found.bytes.view());
            return std::move(verification.report);
        };
        CheckWalk walk(std::move(input.found), verify,
                       {.keepsBytes = m_from.recorded != nullptr || m_command.sha256 || m_command.onePage,
                        .goesInside = !m_command.noAttached});
        std::vector<OrderedRun::Message> all;
        while (auto outcome = walk.next()) {
            const auto* refusal = std::get_if<Refusal>(&outcome->value);
            const bool isNoEmail = refusal && *refusal == Refusal{Refusal::NotAnEmail{}};
            all.push_back(written(*std::move(outcome), digest));
            all.back().isOfFolder = isOfFolder && isNoEmail;
            if (!unwritten.empty()) all.push_back({.problem = std::exchange(unwritten, {})});
        }
        all.front().hint = hint;
        return all;
    }

    OrderedRun::Message refused(const FoundProblem& problem) const {
        const auto path = problem.place.pathName();
        const auto name = path ? path : problem.place.name();
        return {.problem = problemLine(problem.refusal, name, m_command.reader)};
    }

    std::string lineOfLinesBefore(const MessagePlace& place) const {
        if (const auto path = place.pathName()) {
            return m_command.reader.translate(
                "In “%1” lines stand before what looks like a message’s source. They were taken for the "
                "message itself; to check what stands below them, put it into a file of its own.",
                {quillmark::quoted(*path)});
        }
        return m_command.reader.translate(
            "Lines stand before what looks like a message’s source. They were taken for the message itself; "
            "to check what stands below them, paste that alone.");
    }

    /// One line when that can't be done.
    std::string writeAsSigned(const MessagePlace& place, const MailMessage& message,
                              const Verification& verification) const {
        try {
            m_asSigned->write(place.pathName(), message, verification);
        } catch (const OutputFileError& error) {
            return unwritable(error, m_command.reader);
        }
        return {};
    }

    Verification verified(const MailMessage& message, const FoundMessage& found, const UUID& id,
                          bool& wentWithout) const {
        if (m_from.recorded) {
            return m_from.recorded->verify(sha256(found.bytes.view()), message, found.place.name(),
                                           m_from.now, found.facts, id);
        }
        const auto resolver = std::make_shared<RestWatch>(*m_from.resolver, wentWithout);
        return m_verifier.asking(resolver, m_from.registry)
            .examine(message, found.place.name(), m_from.now, id, {}, found.facts);
    }

    /// Tone, how many cautions stand beside the headline, headline and place, with tabs between them.
    std::string line(const ProofReport& report, const std::optional<std::string>& path) const {
        const Banner banner = bannerOf(report, m_command.reader);
        std::string line(marker(banner.tone));
        line += '\t' + std::to_string(banner.cautions.size() + banner.more) + '\t' + banner.headline;
        return line + '\t' + forDisplay(path ? *path : report.fileName.value_or("-"));
    }

    OrderedRun::Message written(CheckWalk::Outcome outcome, const std::optional<std::string>& digest) const {
        if (const auto* refusal = std::get_if<Refusal>(&outcome.value))
            return refused({*refusal, outcome.place});
        try {
            return written(std::get<ProofReport>(std::move(outcome.value)), outcome.place.pathName(), digest);
        } catch (const std::exception& error) {
            return refused({unreadable(error), outcome.place});
        }
    }

    OrderedRun::Message written(ProofReport report, const std::optional<std::string>& path,
                                const std::optional<std::string>& digest) const {
        OrderedRun::Message message;
        // Only those who ask see the rest.
        message.counted = m_areCautionsAsked ? countedOf(report) : countedOf(report.verdict);
        const bool isWanted = !m_only || m_only->contains(report.verdict.tone) ||
                              (message.counted.hasCautions && m_only->contains(Tone::caution));
        if (!isWanted) return message;
        const auto named = m_command.sha256 ? digest : std::nullopt;
        if (m_command.csv) message.row = csvRow(report, path.value_or(""), named);
        if (m_command.each) message.report = line(report, path);
        if (m_command.html) {
            const bool mayBeWhole = m_written.fetch_add(1) < MailboxReport::mostReports;
            message.entry = mailboxEntry(report, mayBeWhole ? WholeReport::included : WholeReport::leftOut,
                                         m_command.reader);
        }
        if (m_isTextPrinted) {
            const std::string expected = m_command.expect.value_or(std::string());
            message.report = m_command.onePage
                                 ? textPage(report, m_command.reader, m_command.layout, expected, digest)
                                 : textReport(report, m_command.reader, m_command.layout, expected);
        }
        addJSON(message, std::move(report), path, named);
        if (!message.report.empty()) message.report += '\n';
        return message;
    }

    /// For the output and for the history. Of a hostile message the text may have a gigabyte, and the report
    /// some hundred megabytes.
    void addJSON(OrderedRun::Message& message, ProofReport report, const std::optional<std::string>& path,
                 const std::optional<std::string>& sha256) const {
        const bool isPrinted = m_command.json || m_command.out, isKept = m_command.keepsReports();
        auto printed = isPrinted ? compactJSONWithin(longestWaiting, report, path, sha256) : std::nullopt;
        auto kept = isKept ? compactJSONWithin(longestWaiting, report) : std::nullopt;
        if (printed) message.report = std::move(*printed);
        if (kept) message.kept = std::move(*kept);
        if (isPrinted == printed.has_value() && isKept == kept.has_value()) return;
        const auto name = path ? path : report.fileName;
        const std::string cutOff = problemLine(unreadable(ENOMEM), name, m_command.reader);
        const auto whole = std::make_shared<const ProofReport>(std::move(report));
        if (isKept && !kept) message.longKept = whole;
        if (!isPrinted || printed) return;
        message.longReport = [whole, path, sha256, cutOff](const OrderedRun::Sink& sink) {
            std::string problem;
            try {
                writeCompactJSON(sink, *whole, path, sha256);
            } catch (const std::bad_alloc&) {
                problem = cutOff;
            }
            sink("\n");
            return problem;
        };
    }

    const CheckCommand& m_command;
    const CheckSources& m_from;
    const Verifier m_verifier{m_from.resolver,   m_from.registry,   PublicSuffixList::shared(),
                              m_from.lookupTime, m_command.rules(), m_from.keys};
    const std::optional<std::string> m_part;
    std::unique_ptr<AsSignedFolder> m_asSigned;
    const bool m_isTextPrinted = !m_command.json && !m_command.out && !m_command.each && !m_command.summary &&
                                 !goesToOutput(m_command.csv) && !goesToOutput(m_command.html) &&
                                 !goesToOutput(m_command.record);
    const bool m_areCautionsAsked = m_command.summary || m_command.html || m_command.only || m_command.failOn;
    const std::optional<std::set<Tone>> m_only = m_command.only ? tonesNamed(*m_command.only) : std::nullopt;
    std::atomic<bool> m_hasSaidThatAllRest = false;
    mutable std::atomic<std::size_t> m_written = 0;
};

/// Whether results would be among what is read of these names, which takes them for messages the next time.
bool liesIn(const std::string& folder, const std::string& name) {
    namespace fs = std::filesystem;
    std::error_code error;
    if (!fs::is_directory(name, error)) return false;
    bool isReached = false;
    const fs::path inner = fs::weakly_canonical(folder, error);
    walkFolder(name, {.enter = [&](const fs::path& visited) {
                   std::error_code none;
                   const fs::path outer = fs::canonical(visited, none);
                   isReached = !none && std::ranges::mismatch(outer, inner).in1 == outer.end();
                   return !isReached;
               }});
    return !error && isReached;
}

/// The fault that this is; nothing without it.
std::optional<std::string> faultOfResultsIn(const std::string& name, const CheckCommand& command) {
    if (!command.out || !liesIn(*command.out, name)) return std::nullopt;
    return command.reader.translate(
        "“%1” is to be checked, and --out “%2” lies in it: name a folder beside it",
        {quillmark::quoted(name), quillmark::quoted(*command.out)});
}

/// A fault in the arguments that their parser cannot see, or nothing.
std::optional<std::string> usageFault(const CheckCommand& command) {
    if (std::ranges::count(command.files, standardInput) + (command.filesFrom == standardInput ? 1 : 0) > 1)
        return command.reader.translate("standard input (-) can be read only once");
    if (command.only && !tonesNamed(*command.only)) {
        return command.reader.translate("--only takes good, caution, unknown and bad, not “%1”",
                                        {quillmark::quoted(*command.only)});
    }
    if (command.expect) {
        const ExpectedAnswer answer = expectedAnswer({}, *command.expect, command.reader);
        if (answer.kind == ExpectedAnswer::Kind::unread) return answer.text;
    }
    if (command.json + command.each + command.onePage + command.summary + goesToOutput(command.csv) +
            goesToOutput(command.html) + goesToOutput(command.record) >
        1) {
        return command.reader.translate(
            "only one of --json, --each, --one-page, --summary, --csv -, --html - and --record - can go to "
            "standard output");
    }
    if (command.out && std::ranges::count(command.files, standardInput) > 0) {
        return command.reader.translate(
            "with --out messages come from files, not from standard input (-), which can’t be read again");
    }
    for (const std::string& file : command.files) {
        if (auto fault = faultOfResultsIn(file, command)) return fault;
    }
    if (command.at && !parsedRFC3339(*command.at)) {
        return command.reader.translate("--at takes a time such as 2026-11-21T10:00:00Z, not “%1”",
                                        {quillmark::quoted(*command.at)});
    }
    if (command.resolver && !isResolverChoice(*command.resolver)) {
        return command.reader.translate(
            "--resolver takes usual, system or an address such as https://dns.example.org/dns-query, not "
            "“%1”",
            {quillmark::quoted(*command.resolver)});
    }
    return std::nullopt;
}

/// Makes folders that it needs: none can be made later.
Sandbox sandboxOf(const CheckCommand& command) {
    Sandbox sandbox{.read = readable(command.files), .isNetworked = command.dnsFiles.empty()};
    // Its files are known only as they come: a list may be that of a program that looks for them for hours.
    if (command.filesFrom) sandbox.read.emplace_back("/");
    for (const std::string& file : command.dnsFiles) {
        sandbox.read.emplace_back(file);
        sandbox.read.emplace_back(stampFileOf(file));
    }
    for (const auto& file : {command.tsaCA, command.registrationsFile}) {
        if (file) sandbox.read.emplace_back(*file);
    }
    if (command.asSigned) {
        AsSignedFolder::make(*command.asSigned);
        sandbox.write.emplace_back(*command.asSigned);
    }
    if (command.out) {
        ResultFolder::make(*command.out);
        sandbox.write.emplace_back(*command.out);
    }
    const bool isKept = command.keepsReports() || command.remembersKeys();
    if (isKept || command.usesKeyBook()) allowUserData(sandbox, isKept ? UserData::made : UserData::asItIs);
    if (sandbox.isNetworked && command.asksRegistries()) allowCache(sandbox);
    return sandbox;
}

/// One thread takes the next input and goes on to check it, while the next takes: as many as can. What comes
/// of them goes to `output`.
template <typename Output>
void checkAll(const std::function<std::optional<CheckInputs::Input>()>& next,
              const std::function<std::uint64_t()>& readSoFar, Checker& checker, Postponed* postponed,
              Output& output, std::size_t mostWorkers) {
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
            auto input = next();
            if (!input) {
                hasEnded = true;
                if (postponed) output.tellCount(number);
                return;
            }
            const auto* message = std::get_if<FoundMessage>(&input->found);
            run.reserve(number, message ? message->bytes.size() : 0);
            const std::uint64_t bytesRead = readSoFar();
            try {
                if (others.size() + 1 < mostWorkers) others.emplace_back(work);
            } catch (const std::system_error&) {
                mostWorkers = others.size() + 1;  // fewer will do, where the system allows no more
            }
            turn.unlock();
            run.finish(number, {checker.checked(std::move(*input), number, postponed), bytesRead});
        }
    };
    work();
    others.clear();
}

/// Checks everything, and at the end what was postponed until then.
void checkAll(CheckInputs& inputs, const CheckSources& from, Checker& checker, CheckOutput& output) {
    Postponed postponed;
    const auto readSoFar = [&] { return inputs.bytesRead(); };
    checkAll([&] { return inputs.next(); }, readSoFar, checker, &postponed, output, from.workers);
    auto first = postponed.next();
    if (!first) return;
    // The first of them finds out whether the services are back; if not, the others needn't wait for them.
    from.services->tryAgain();
    output.take({checker.checked(std::move(*first), 0, nullptr), readSoFar()});
    checkAll([&] { return postponed.next(); }, readSoFar, checker, nullptr, output, from.workers);
}

/// Makes a result file for each part of the input, but for those that are there.
class PartsRun {
public:
    /// Throws `AnswersFileError` and `OutputFileError`.
    explicit PartsRun(const CheckCommand& command)
        : m_command(command),
          m_folder(command),
          m_from(command),
          m_isAnybodyAsked(command.dnsFiles.empty()),
          m_earlier(std::make_shared<EarlierAnswers>(m_from.resolver)),
          m_registry(m_from.registry && m_isAnybodyAsked ? m_earlier->before(m_from.registry)
                                                         : m_from.registry) {}

    /// The exit status. Throws `OutputFileError`.
    int run(std::optional<FileList> list) {
        const std::string listName = list ? list->path() : "";
        InputParts parts(m_command.files, std::move(list));
        try {
            while (const auto part = parts.next()) {
                for (const std::string& name : part->files) {
                    const auto fault = m_command.filesFrom ? faultOfResultsIn(name, m_command) : std::nullopt;
                    if (!fault) continue;
                    writeProblem(*fault);
                    return 2;
                }
                const ResultFolder::Place place = m_folder.placeOf(*part);
                if (place.isDone()) {
                    tellDone(place);
                } else if (!isMade(*part, place)) {
                    if (m_isCutOff) return 1;
                    continue;
                }
                if (!writeOutput(place.result + "\n")) throw OutputFileError("-", errno);
            }
        } catch (const std::system_error& error) {  // of the list
            problem(problemLine(unreadable(error.code().value()), listName, m_command.reader));
        }
        return m_status;
    }

private:
    static constexpr int mostTries = 3;  // of a part for which a DNS service that rests wasn't asked

    void problem(std::string_view line) {
        writeProblem(line);
        m_status = 1;
    }

    void tellDone(const ResultFolder::Place& place) {
        if (m_isAnybodyAsked) m_earlier->addRecording(place.recording);
        for (const std::string& line : place.problemLines()) problem(line);
    }

    /// False when it is left to do, which is said.
    bool isMade(const InputPart& part, const ResultFolder::Place& place) {
        for (int tries = 1;; ++tries) {
            const Date begun = currentTime();
            if (m_isAnybodyAsked) prepareToAsk(begun);
            ResultFile result(place, m_command.reader);
            CheckInputs inputs(part.files, m_command.pasted);
            Checker checker(m_command, m_from, place.digest);
            checkAll([&] { return inputs.next(); }, [&] { return inputs.bytesRead(); }, checker, nullptr,
                     result, m_from.workers);
            if (m_earlier->wentWithout()) {
                m_from.services->tryAgain();
                if (tries < mostTries) continue;
                m_isCutOff = m_from.services->doAllRest();
            }
            if (m_isCutOff) {
                problem(
                    m_command.reader.translate("No DNS service answers, so this ends here. The same command "
                                               "goes on with what is left."));
                return false;
            }
            result.sayProblems();
            if (stateOf(part.files) != part.state) {
                problem(m_command.reader.translate(
                    "Files changed or went away while they were checked, “%1” or one behind it. The same "
                    "command checks them again.",
                    {quillmark::quoted(part.files.front())}));
                return false;
            }
            if (result.hasProblems()) m_status = 1;
            result.commit(m_isAnybodyAsked ? std::optional(m_from.recorded->json(
                                                 {.at = m_from.now, .begun = begun, .ended = currentTime()}))
                                           : std::nullopt);
            return true;
        }
    }

    void prepareToAsk(Date begun) {
        m_earlier->begin();
        m_from.recorded = std::make_unique<RecordedRun>(m_earlier, m_registry, RecordedRun::Failures(),
                                                        m_from.lookupTime, m_command.rules());
        if (!m_command.at) m_from.now = begun;
    }

    const CheckCommand& m_command;
    const ResultFolder m_folder;
    CheckSources m_from;
    const bool m_isAnybodyAsked;
    const std::shared_ptr<EarlierAnswers> m_earlier;
    const std::shared_ptr<RegistrationLookup> m_registry;
    int m_status = 0;
    bool m_isCutOff = false;
};

}  // namespace

bool CheckCommand::asksRegistries() const {
    return domainAge.value_or(settings.value_or(AppSettings()).checkDomainAge);
}

bool CheckCommand::keepsReports() const {
    return !out && save.value_or(settings && settings->keepHistory && dnsFiles.empty());
}

bool CheckCommand::usesKeyBook() const { return !out && keyBook.value_or(dnsFiles.empty()); }

bool CheckCommand::remembersKeys() const {
    return !out && keyBook.value_or(settings && options.rememberKeys) && dnsFiles.empty();
}

int CheckCommand::run() const {
    const Date begun = currentTime();
    if (const auto fault = usageFault(*this)) {
        writeProblem(*fault);
        return 2;
    }
    try {
        CheckFiles named(*this);
        restricted(sandboxOf(*this), named.all());
        std::optional<FileList> list;
        if (filesFrom)
            list.emplace(*filesFrom, areNamesZeroEnded ? FileList::Ends::zeroBytes : FileList::Ends::lines);
        if (out) {
            const BeforeEnd whenStopped([this] {
                writeProblem(reader.translate("Stopped. The same command goes on with what is left."));
            });
            return PartsRun(*this).run(std::move(list));
        }
        const CheckSources from(*this);
        CheckInputs inputs(files, pasted, std::move(list));
        CheckOutput output(*this, from, named, begun, inputs.expectedBytes());
        if (std::ranges::count(files, standardInput) > 0 && isatty(STDIN_FILENO) == 1) {
            writeProblem(reader.translate(
                "Paste the message’s source, then press Enter and Ctrl-D. A terminal cuts off very long "
                "lines; a saved file is safer."));
        }
        const BeforeEnd whenStopped([&] {
            if (from.keys) from.keys->save();
            output.finishEarly();
        });
        Checker checker(*this, from);
        checkAll(inputs, from, checker, output);
        const int status = output.finish(inputs.passedOver());
        if (const auto written = checker.summary()) writeProblem(*written);
        return status;
    } catch (const AnswersFileError& error) {
        writeProblem(unusable(error, reader));
        return 2;
    } catch (const OutputFileError& error) {
        writeProblem(unwritable(error, reader));
        return out ? 1 : 2;
    }
}

}  // namespace quillmark
