#include "CommandLine/RecordingCommand.h"

#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <variant>

#include "CommandLine/Output.h"
#include "CommandLine/OutputFile.h"
#include "CommandLine/Restriction.h"
#include "QuillmarkKit/Lookups/Evidence.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Version.h"
#include "Settings/CurrentTime.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

constexpr std::size_t mostContradictions = 10;  // of one file are told
constexpr std::size_t longestAnswer = 200;      // bytes of it

/// Of all files; throws `AnswersFileError` also where one is no recording.
FixedAnswers merged(const std::vector<std::string>& files, const Reader& reader) {
    std::optional<FixedAnswers> all;
    for (const std::string& file : files) {
        FixedAnswers one = FixedAnswers::read(file);
        // Whatever failed is told of the messages in one; anything else would be lost here.
        const bool hasFailures = !one.errors.empty() || !one.failing.empty();
        if (!one.messages || hasFailures) {
            throw AnswersFileError(reader.translate("“%1” is no recording as check --record writes them",
                                                    {quillmark::quoted(file)}));
        }
        if (!all) {
            all = std::move(one);
            continue;
        }
        const auto at = one.at;
        // cppcheck-suppress accessMoved; each file has its own
        for (const std::string& line : contradictionLines(all->add(std::move(one)), file, reader))
            writeProblem(line);
        if (at != all->at) {
            writeProblem(reader.translate(
                "“%1” was made for another time than “%2”, whose time counts from now on for all.",
                {quillmark::quoted(file), quillmark::quoted(files.front())}));
        }
    }
    return std::move(*all);
}

std::string recordingOf(const FixedAnswers& all) {
    const auto source = [](const auto& sources, const std::string& question) {
        const auto known = sources.find(question);
        return known != sources.end() ? known->second : std::string();
    };
    RecordedAnswers answers;
    for (const auto& [question, answer] : all.answers)
        answers.dns.keep(question, answer, source(all.sources, question));
    for (const auto& [domain, entry] : all.registrations.value_or(StaticRegistry::Entries())) {
        if (const auto* date = std::get_if<std::optional<Date>>(&entry))
            answers.registrations.keep(domain, *date, source(all.registrationSources, domain));
    }
    std::map<std::string, RecordedMessage> messages;
    for (const auto& [digest, message] : *all.messages) {
        const auto failures = std::make_shared<RecordedFailures>();
        for (const auto& [question, why] : message.dns) failures->dns.keep(question, why);
        for (const auto& [domain, why] : message.registrations) failures->registrations.keep(domain, why);
        messages[digest] = {message.files, failures};
    }
    const Date now = currentTime();
    return recordingJSON(
        "Quillmark " QUILLMARK_VERSION,
        {.at = all.at.value_or(now), .begun = all.begun.value_or(now), .ended = all.ended.value_or(now)},
        answers, all.registrations ? Registrations::asked : Registrations::notAsked, messages);
}

}  // namespace

std::vector<std::string> contradictionLines(const std::vector<FixedAnswers::Contradiction>& contradictions,
                                            const std::string& file, const Reader& reader) {
    std::vector<std::string> lines;
    for (const auto& [question, first, second] : contradictions) {
        if (lines.size() == mostContradictions) {
            const auto rest = static_cast<std::int64_t>(contradictions.size() - mostContradictions);
            lines.push_back(reader.translateCount("“%1” differs in %n answer more.",
                                                  "“%1” differs in %n answers more.", rest,
                                                  {quillmark::quoted(file)}));
            break;
        }
        lines.push_back(reader.translate(
            "For %1 the first answer counts, “%2”, not the one of “%3”, “%4”.",
            {forDisplay(question), quillmark::quoted(forDisplay(first, longestAnswer)),
             quillmark::quoted(file), quillmark::quoted(forDisplay(second, longestAnswer))}));
    }
    return lines;
}

int RecordingCommand::run() const {
    try {
        OutputFile output(out);
        restricted({.read = {files.begin(), files.end()}}, {&output});
        output.write(recordingOf(merged(files, reader)));
        output.commit();
        return 0;
    } catch (const AnswersFileError& error) {
        writeProblem(unusable(error, reader));
        return 2;
    } catch (const OutputFileError& error) {
        writeProblem(unwritable(error, reader));
        return 1;
    }
}

}  // namespace quillmark
