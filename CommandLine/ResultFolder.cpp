#include "CommandLine/ResultFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <system_error>

#include "CommandLine/Output.h"
#include "QuillmarkKit/Lookups/Evidence.h"
#include "QuillmarkKit/Support/Crypto.h"
#include "QuillmarkKit/Support/Files.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Version.h"
#include "Settings/CurrentTime.h"
#include "Wording/Direction.h"
#include "Wording/Quoted.h"
#include "Wording/Reader.h"

namespace quillmark {

namespace {

constexpr std::size_t longestLabel = 40;
constexpr std::size_t digitsShown = 32;
constexpr std::chrono::hours freshFor{24};
constexpr std::uintmax_t mostRead = 256'000'000;  // bytes of earlier recordings

std::string digestOfFile(const std::string& path, const Reader& reader) {
    std::ifstream file(path, std::ios::binary);
    Hasher hasher(HashAlgorithm::sha256);
    std::array<char, 65'536> piece{};
    while (file.read(piece.data(), piece.size()) || file.gcount() > 0)
        hasher.add({piece.data(), static_cast<std::size_t>(file.gcount())});
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        throw AnswersFileError(path, std::generic_category().message(errno));
    // Of a pipe the answers themselves would find nothing any more.
    if (!file.is_open() || !S_ISREG(status.st_mode)) {
        throw AnswersFileError(
            reader.translate("“%1” can’t be used with --out: it is no file that can be read twice",
                             {quillmark::quoted(path)}));
    }
    return hasher.digest();
}

/// Of all that reports follow from but the messages.
std::string digestOfWays(const CheckCommand& command) {
    // What is asked of the network isn't told by the options alone, but by when it is asked.
    std::string text = "Quillmark " QUILLMARK_VERSION "\n";
    const auto add = [&text](std::string_view name, std::string_view value) {
        text.append(name).append(" ").append(std::to_string(value.size())).append(" ").append(value) += '\n';
    };
    const auto addFlag = [&add](std::string_view name, bool value) { add(name, value ? "1" : "0"); };
    addFlag("sha256", command.sha256);
    addFlag("pasted", command.pasted);
    addFlag("attached", !command.noAttached);
    addFlag("undo", !command.noUndo);
    add("dmarc", command.dmarc);
    addFlag("registries", command.dnsFiles.empty() ? command.asksRegistries() : command.domainAge != false);
    add("resolver", command.resolver.value_or(command.options.resolver));
    add("at", command.at.value_or(""));
    add("only", command.only.value_or(""));
    add("timeout", std::to_string(command.timeout));
    for (const std::string& file : command.dnsFiles) add("dns", digestOfFile(file, command.reader));
    if (command.registrationsFile)
        add("registrations", digestOfFile(*command.registrationsFile, command.reader));
    return text;
}

/// The beginning of a name by which a person finds it: what the first file is called.
std::string labelOf(const InputPart& part) {
    std::string label = lastComponent(part.files.front()).substr(0, longestLabel);
    for (char& c : label) {
        const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (!isPlain && c != '.' && c != '-') c = '_';
    }
    if (label.starts_with('.') || label.starts_with('-')) label.front() = '_';
    return label;
}

/// See `EarlierAnswers::before`.
class EarlierDates : public RegistrationLookup {
public:
    EarlierDates(const StaticRegistry::Entries& known,
                 const std::map<std::string, std::string, std::less<>>& sources,
                 std::shared_ptr<RegistrationLookup> registry)
        : m_known(known), m_sources(sources), m_registry(std::move(registry)) {}
    std::optional<Date> registrationDate(std::string_view domain, const Patience& patience) override {
        const auto found = m_known.find(asciiLowered(domain));
        if (found != m_known.end()) {
            if (const auto* date = std::get_if<std::optional<Date>>(&found->second)) return *date;
        }
        return m_registry->registrationDate(domain, patience);
    }
    std::string source(std::string_view domain) override {
        const auto found = m_sources.find(asciiLowered(domain));
        return found != m_sources.end() ? found->second : m_registry->source(domain);
    }

private:
    const StaticRegistry::Entries& m_known;
    const std::map<std::string, std::string, std::less<>>& m_sources;
    const std::shared_ptr<RegistrationLookup> m_registry;
};

}  // namespace

ResultFolder::ResultFolder(const CheckCommand& command)
    : m_folder(*command.out), m_ways(digestOfWays(command)) {}

void ResultFolder::make(const std::string& folder) {
    onFile(folder, [&] { makeFolders(folder); });
}

ResultFolder::Place ResultFolder::placeOf(const InputPart& part) const {
    Place place{.digest = sha256(m_ways + part.state).substr(0, digitsShown)};
    const std::string begin = (m_folder / (labelOf(part) + "-" + place.digest)).string();
    place.result = begin + ".jsonl";
    place.problems = begin + ".problems.txt";
    place.recording = begin + ".recording.json";
    return place;
}

bool ResultFolder::Place::isDone() const {
    std::error_code error;
    return std::filesystem::is_regular_file(result, error);
}

std::vector<std::string> ResultFolder::Place::problemLines() const {
    std::ifstream file(problems);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

ResultFile::ResultFile(ResultFolder::Place place, const Reader& reader)
    : m_place(std::move(place)), m_reader(reader) {
    onFile(m_place.result, [this] { FileReplacement::removeLeftovers(m_place.result); });
    m_file.emplace(m_place.result);
}

void ResultFile::take(const OrderedRun::Outcome& outcome) {
    try {
        for (const OrderedRun::Message& message : outcome.messages) {
            for (const std::string& line : {message.hint, message.problem}) {
                if (line.empty()) continue;
                m_problems.push_back(line);
            }
            m_file->write(message.report);
            if (!message.longReport) continue;
            const auto problem = message.longReport([this](std::string_view piece) { m_file->write(piece); });
            if (!problem.empty()) throw OutputFileError(m_place.result, ENOMEM);
        }
    } catch (const OutputFileError& error) {
        m_file.reset();
        writeProblem(unwritable(error, m_reader));
        _exit(1);
    }
}

void ResultFile::sayProblems() const {
    for (const std::string& line : m_problems) writeProblem(line);
}

void ResultFile::commit(const std::optional<std::string>& recording) {
    onFile(m_place.recording, [&] {
        if (recording) replaceFile(m_place.recording, *recording);
    });
    onFile(m_place.problems, [&] {
        std::string lines;
        for (const std::string& line : m_problems)
            lines += inertLine(line, Reader::ofEnvironment().language) + '\n';
        // Of a run that ended before its result was in place there may be others.
        lines.empty() ? void(std::filesystem::remove(m_place.problems))
                      : replaceFile(m_place.problems, lines);
    });
    try {
        m_file->commit();
    } catch (const OutputFileError& error) {
        if (error.error != EEXIST) throw;  // somebody else made the same meanwhile
    }
}

void EarlierAnswers::begin() {
    m_wentWithout = false;
    std::uintmax_t read = 0;
    for (const std::string& path : m_unread) {
        std::error_code error;
        const auto age =
            std::filesystem::file_time_type::clock::now() - std::filesystem::last_write_time(path, error);
        if (error || age > freshFor) continue;
        read += std::filesystem::file_size(path, error);
        if (error || read > mostRead) break;
        try {
            m_known.add(FixedAnswers::read(path));
        } catch (const AnswersFileError&) {  // NOLINT(bugprone-empty-catch)
        }
    }
    m_unread.clear();
}

DNSAnswer EarlierAnswers::lookup(std::string_view name, DNSRecordType type, const Patience& patience) {
    const auto found = m_known.answers.find(StaticResolver::key(name, type));
    if (found != m_known.answers.end()) return found->second;
    try {
        return m_resolver->lookup(name, type, patience);
    } catch (const DNSServiceRests&) {
        m_wentWithout = true;
        throw;
    }
}

bool EarlierAnswers::mayKnow(std::string_view name, DNSRecordType type) {
    return m_known.answers.contains(StaticResolver::key(name, type)) || m_resolver->mayKnow(name, type);
}

std::string EarlierAnswers::source(std::string_view name, DNSRecordType type) {
    const std::string question = StaticResolver::key(name, type);
    if (!m_known.answers.contains(question)) return m_resolver->source(name, type);
    const auto found = m_known.sources.find(question);
    return found != m_known.sources.end() ? found->second : "";
}

std::shared_ptr<RegistrationLookup> EarlierAnswers::before(
    std::shared_ptr<RegistrationLookup> registry) const {
    return std::make_shared<EarlierDates>(*m_known.registrations, m_known.registrationSources,
                                          std::move(registry));
}

}  // namespace quillmark
