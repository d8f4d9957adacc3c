#include "CommandLine/UsageProblem.h"

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <string_view>
#include <system_error>
#include <utility>

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

std::string aboutUnknown(const std::string& word, const Place& place) {
    const bool isCommand = !word.starts_with('-') && !place.command->commands.empty();
    std::error_code ignored;
    if (isCommand && std::filesystem::exists(word, ignored))
        return "“" + word + "” is no command; to check it: quillmark check " + word;
    const std::string suggestion = meant(word, *place.command);
    return (word.starts_with('-') ? "there is no option “" + word + "”"
            : isCommand           ? "there is no command “" + word + "”"
                                  : "“" + word + "” was not expected") +
           (suggestion.empty() ? "" : "; did you mean " + suggestion + "?");
}

}  // namespace

std::string usageProblem(const CommandTable& program, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& unknown, const std::string& reason) {
    const Place place = placeOf(program, arguments);
    std::string problem = reason;
    if (!unknown.empty()) {
        problem = aboutUnknown(unknown.front(), place);
    } else if (!place.command->commands.empty()) {
        problem = "what shall be done?";
        for (const CommandTable& each : place.command->commands)
            problem += (&each == &place.command->commands.front() ? " One of " : ", ") + each.name;
    }
    for (const ArgumentEntry& each : place.command->arguments) {
        if (problem == each.name + " is required") problem += ": " + each.purpose;
    }
    return problem + " (see " + place.path + " --help)";
}

}  // namespace quillmark
