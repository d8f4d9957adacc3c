#include "Manual/Completions.h"

#include <string_view>
#include <vector>

namespace quillmark {

namespace {

/// A command with the names that lead to it, as "quillmark/history/list".
struct Place {
    std::string path;
    const CommandTable* command;
};

void addPlaces(const CommandTable& command, const std::string& path, std::vector<Place>& places) {
    places.push_back({path, &command});
    for (const CommandTable& each : command.commands) addPlaces(each, path + "/" + each.name, places);
}

std::vector<Place> places(const CommandTable& program) {
    std::vector<Place> all;
    addPlaces(program, program.name, all);
    return all;
}

bool takesFiles(const CommandTable& command) {
    for (const ArgumentEntry& each : command.arguments) {
        if (each.isFile()) return true;
    }
    return false;
}

std::string joined(const std::vector<std::string>& words, std::string_view separator) {
    std::string text;
    for (const std::string& word : words) {
        if (!text.empty()) text += separator;
        text += word;
    }
    return text;
}

/// "quillmark-desktop" as a shell function's name.
std::string functionName(std::string_view path) {
    std::string name = "_";
    for (const char c : path) name += c == '/' || c == '-' ? '_' : c;
    return name;
}

std::string replaced(std::string_view text, std::string_view characters, std::string_view before) {
    std::string out;
    for (const char c : text) {
        if (characters.find(c) != std::string_view::npos) out += before;
        out += c;
    }
    return out;
}

/// Text inside single quotes, where a quote itself can't stand.
std::string inQuotes(std::string_view text) {
    std::string out;
    for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out;
}

/// The words that may follow the last one when it is an option that takes a value.
std::string bashValues(const Place& place) {
    std::string text;
    for (const OptionEntry& option : place.command->options) {
        if (option.value.empty()) continue;
        for (const std::string& name : option.names) {
            text += "        '" + place.path + " " + name + "') words='" + joined(option.choices, " ") +
                    "' files=" + (option.takesFile() ? "yes" : "") + " ;;\n";
        }
    }
    return text;
}

std::string bashWords(const Place& place) {
    std::vector<std::string> words;
    words.reserve(place.command->commands.size());
    for (const CommandTable& each : place.command->commands) words.push_back(each.name);
    for (const OptionEntry& each : place.command->options)
        words.insert(words.end(), each.names.begin(), each.names.end());
    return "        " + place.path + ") words='" + joined(words, " ") + "'" +
           (takesFiles(*place.command) ? " files=yes" : "") + " ;;\n";
}

/// What `_arguments` of zsh takes for an option.
std::string zshOption(const OptionEntry& option) {
    std::string text;
    for (const std::string& name : option.names) {
        text += "        '" + name +
                (option.value.empty()     ? ""
                 : name.starts_with("--") ? "="
                                          : "+") +
                "[" + inQuotes(replaced(option.purpose, "[]:\\", "\\")) + "]";
        if (!option.value.empty()) {
            text += ":" + option.value + ":";
            if (option.takesFile()) text += "_files";
            if (!option.choices.empty()) text += "(" + joined(option.choices, " ") + ")";
        }
        text += "' \\\n";
    }
    return text;
}

std::string zshFunction(const Place& place) {
    const CommandTable& command = *place.command;
    std::string text = functionName(place.path) + "() {\n    local state line\n    _arguments -C -s -S \\\n";
    for (const OptionEntry& option : command.options) text += zshOption(option);
    for (const ArgumentEntry& each : command.arguments)
        text += "        '" + std::string(each.several ? "*:" : ":") + each.name + ":" +
                (each.isFile() ? "_files" : "") + "' \\\n";
    if (command.commands.empty()) return text + "        && return\n}\n";
    text += "        '1:command:->command' '*::argument:->arguments'\n    case $state in\n    command)\n";
    text += "        local -a commands=(\n";
    for (const CommandTable& each : command.commands)
        text += "            '" + each.name + ":" + inQuotes(replaced(each.purpose, ":\\", "\\")) + "'\n";
    text += "        )\n        _describe command commands ;;\n    arguments)\n        case $line[1] in\n";
    for (const CommandTable& each : command.commands)
        text += "        " + each.name + ") " + functionName(place.path + "/" + each.name) + " ;;\n";
    return text + "        esac ;;\n    esac\n}\n";
}

/// When fish is to offer what belongs to this command: its names were typed, and none of its own commands.
std::string fishCondition(const Place& place) {
    std::string condition;
    std::string_view rest = place.path;
    while (rest.find('/') != std::string_view::npos) {
        rest.remove_prefix(rest.find('/') + 1);
        condition += (condition.empty() ? "" : "; and ") + std::string("__fish_seen_subcommand_from ") +
                     std::string(rest.substr(0, rest.find('/')));
    }
    std::string below;
    for (const CommandTable& each : place.command->commands) below += " " + each.name;
    if (below.empty()) return condition;
    return condition + (condition.empty() ? "" : "; and ") + "not __fish_seen_subcommand_from" + below;
}

std::string fishPlace(const Place& place, const std::string& program) {
    const std::string condition = fishCondition(place);
    const std::string begin = "complete -c " + program + (condition.empty() ? "" : " -n '" + condition + "'");
    const auto about = [](std::string_view purpose) {
        return " -d '" + replaced(purpose, "'\\", "\\") + "'\n";
    };
    std::string text;
    for (const CommandTable& each : place.command->commands)
        text += begin + " -a " + each.name + about(each.purpose);
    for (const OptionEntry& option : place.command->options) {
        text += begin;
        for (const std::string& name : option.names)
            text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
        if (!option.value.empty()) text += option.takesFile() ? " -r -F" : " -x";
        if (!option.choices.empty()) text += " -a '" + joined(option.choices, " ") + "'";
        text += about(option.purpose);
    }
    return takesFiles(*place.command) ? text + begin + " -F\n" : text;
}

}  // namespace

std::string bashCompletion(const CommandTable& program) {
    const std::vector<Place> all = places(program);
    std::vector<std::string> paths;
    std::string values, words;
    for (const Place& place : all) {
        if (place.path != program.name) paths.push_back(place.path);
        values += bashValues(place);
        words += bashWords(place);
    }
    const std::string function = functionName(program.name);
    std::string text = "# " + program.name + " in bash; made from the table of its options.\n" + function +
                       "() {\n"
                       "    local path=" +
                       program.name +
                       " words= files= i\n"
                       "    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}\n"
                       "    # \"--option=value\" comes as three words\n"
                       "    if [[ $word == = ]]; then word=; "
                       "elif [[ $previous == = ]]; then previous=${COMP_WORDS[COMP_CWORD - 2]}; fi\n";
    if (!paths.empty()) {
        text +=
            "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
            "        case $path/${COMP_WORDS[i]} in\n"
            "        " +
            joined(paths, " | ") +
            ") path=$path/${COMP_WORDS[i]} ;;\n"
            "        esac\n    done\n";
    }
    text += "    case $path in\n" + words + "    esac\n";
    if (!values.empty()) text += "    case \"$path $previous\" in\n" + values + "    esac\n";
    text +=
        "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
        "    if [[ $files && $word != -* ]]; then\n"
        "        compopt -o filenames 2>/dev/null\n"
        "        mapfile -t COMPREPLY < <(compgen -f -- \"$word\")\n"
        "    fi\n}\ncomplete -F " +
        function + " " + program.name + "\n";
    return text;
}

std::string zshCompletion(const CommandTable& program) {
    std::string text = "#compdef " + program.name + "\n# Made from the table of its options.\n";
    for (const Place& place : places(program)) text += zshFunction(place);
    return text + functionName(program.name) + " \"$@\"\n";
}

std::string fishCompletion(const CommandTable& program) {
    std::string text = "# " + program.name + " in fish; made from the table of its options.\n";
    text += "complete -c " + program.name + " -f\n";
    for (const Place& place : places(program)) text += fishPlace(place, program.name);
    return text;
}

}  // namespace quillmark
