#include "CommandLine/UsageProblem.h"

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <string_view>
#include <system_error>
#include <utility>

#include "Wording/Details.h"

namespace quillmark {

namespace {

constexpr std::size_t longestWord = 40;  // that is worth comparing
constexpr std::size_t mostMistakes = 2;

/// A command with what is typed to reach it.
struct Place {
    const CommandTable* command;
    std::string path;
};

Place placeOf(const CommandTable& program, const std::vector<std::string>& arguments) {
    Place place{&program, program.name};
    for (const std::string& argument : arguments) {
        const auto next = std::ranges::find(place.command->commands, argument, &CommandTable::name);
        if (next == place.command->commands.end()) continue;
        place = {&*next, place.path + " " + next->name};
    }
    return place;
}

std::string_view withoutDashes(std::string_view word) {
    word.remove_prefix(std::min(word.find_first_not_of('-'), word.size()));
    return word;
}

/// How many letters must be changed, put in or taken out to make one word of the other.
std::size_t mistakes(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t k = 0; k < other.size(); ++k) {
            const std::size_t changed = diagonal + (one[i] == other[k] ? 0 : 1);
            diagonal = row[k + 1];
            row[k + 1] = std::min({changed, row[k] + 1, diagonal + 1});
        }
    }
    return row.back();
}

/// What was probably meant by a word that means nothing; empty when nobody can tell.
std::string meant(std::string_view word, const CommandTable& command) {
    const std::string_view typed = withoutDashes(word.substr(0, word.find('=')));
    if (typed.empty() || typed.size() > longestWord) return {};
    std::string best;
    std::size_t least = std::min(mostMistakes, typed.size() / 2) + 1;
    const auto consider = [&](const std::string& name) {
        const std::size_t count = mistakes(typed, withoutDashes(name));
        if (count < least) least = count, best = name;
    };
    for (const OptionEntry& option : command.options) std::ranges::for_each(option.names, consider);
    for (const CommandTable& each : command.commands) consider(each.name);
    return best;
}

std::string aboutUnknown(const std::string& word, const Place& place, const Reader& reader) {
    const bool isCommand = !word.starts_with('-') && !place.command->commands.empty();
    std::error_code ignored;
    if (isCommand && std::filesystem::exists(word, ignored))
        return reader.translate("“%1” is no command; to check it: quillmark check %1", {word});
    const std::string suggestion = meant(word, *place.command);
    const std::string problem = word.starts_with('-') ? reader.translate("there is no option “%1”", {word})
                                : isCommand           ? reader.translate("there is no command “%1”", {word})
                                                      : reader.translate("“%1” was not expected", {word});
    return suggestion.empty() ? problem : reader.translate("%1; did you mean %2?", {problem, suggestion});
}

/// The parser's words in ours: some of its own show a value's type and all digits of a limit.
std::string inOurWords(const std::string& reason, const Place& place, const Reader& reader) {
    if (const auto found = captures(reason, "%1 is required")) {
        for (const ArgumentEntry& each : place.command->arguments) {
            if ((*found)[0] == each.name)
                return reader.translate("%1 is required: %2",
                                        {reader.translate(each.name), reader.translate(each.purpose)});
        }
        return reader.translate("%1 is required", {(*found)[0]});
    }
    if (const auto found = captures(reason, "%1: Value %2 not in range %3 to %4")) {
        const auto& [name, value, from, to] = *found;
        if (to.find('.') != std::string_view::npos)  // no limit but the machine's
            return reader.translate("%1 takes a number from 0 up, not “%2”", {name, value});
        return reader.translate("%1 takes a number from %2 to %3, not “%4”", {name, from, to, value});
    }
    if (const auto found = captures(reason, "%1: %2 not in {%3}"))
        return reader.translate("%1 takes one of these: %2; not “%3”",
                                {(*found)[0], (*found)[2], (*found)[1]});
    if (const auto found = captures(reason, "%1: %2 required %3 missing"))
        return reader.translate("%1 needs a value", {(*found)[0]});
    if (const auto found = captures(reason, "%1: At Most %2 required but received %3"))
        return reader.translate("%1 is given %2 times, and may be at most %3 times",
                                {(*found)[0], (*found)[2], (*found)[1]});
    return reason;
}

}  // namespace

std::string usageProblem(const CommandTable& program, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& unknown, const std::string& reason,
                         const Reader& reader) {
    const Place place = placeOf(program, arguments);
    std::string problem;
    if (!unknown.empty()) {
        problem = aboutUnknown(unknown.front(), place, reader);
    } else if (!place.command->commands.empty()) {
        std::string names;
        for (const CommandTable& each : place.command->commands) reader.addTo(names, each.name);
        problem = reader.translate("a command is missing; possible: %1", {names});
    } else {
        problem = inOurWords(reason, place, reader);
    }
    return reader.translate("%1 (see %2 --help)", {problem, place.path});
}

}  // namespace quillmark
