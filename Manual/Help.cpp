#include "Manual/Help.h"

#include <algorithm>

#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::size_t screenWidth = 80;

struct Row {
    std::string left, right;
};

/// Two columns: as wide on the left as its rows need, but for those that are wider than `widest`.
std::string columns(const std::vector<Row>& rows, std::size_t widest) {
    std::size_t width = 0;
    for (const Row& row : rows) {
        if (columnsOf(row.left) <= widest) width = std::max(width, columnsOf(row.left));
    }
    const std::size_t indent = width + 4;
    std::string text;
    for (const Row& row : rows) {
        text += "  " + row.left;
        const std::size_t end = columnsOf(row.left) + 2;
        if (end + 2 > indent && end + 2 + columnsOf(row.right) <= screenWidth) {
            text += "  " + row.right + '\n';
            continue;
        }
        std::string blanks =
            end + 2 > indent ? '\n' + std::string(indent, ' ') : std::string(indent - end, ' ');
        for (const std::string& line : wrapped(row.right, screenWidth - indent)) {
            text += blanks + line;
            blanks = '\n' + std::string(indent, ' ');
        }
        text += '\n';
    }
    return text;
}

std::string paragraph(std::string_view text, std::size_t width = screenWidth, const char* indent = "") {
    std::string lines;
    for (const std::string& line : wrapped(text, width)) lines += (lines.empty() ? "" : indent) + line + '\n';
    return lines;
}

std::string optionNames(const OptionEntry& option) {
    std::string names;
    for (const std::string& name : option.names) names += (names.empty() ? "" : ", ") + name;
    return option.value.empty() ? names : names + " " + option.value;
}

std::string options(const CommandTable& command, HelpExtent extent) {
    std::vector<Row> rows;
    rows.reserve(command.arguments.size() + command.options.size());
    for (const ArgumentEntry& each : command.arguments) rows.push_back({each.name, each.purpose});
    for (const OptionEntry& each : command.options) {
        if (extent == HelpExtent::all || !each.isSeldom) rows.push_back({optionNames(each), each.purpose});
    }
    return columns(rows, 22);
}

/// The commands, and what else there is: a `--help` they all have.
std::string commands(const CommandTable& command, HelpExtent extent) {
    std::vector<Row> rows;
    rows.reserve(command.commands.size());
    for (const CommandTable& each : command.commands) rows.push_back({each.name, each.purpose});
    for (const OptionEntry& each : command.options) {
        if (each.names.back() != "--help" && (extent == HelpExtent::all || !each.isSeldom))
            rows.push_back({optionNames(each), each.purpose});
    }
    return columns(rows, 22);
}

std::string examples(const CommandTable& command) {
    std::vector<Row> rows;
    rows.reserve(command.examples.size());
    for (const CommandTable::Example& each : command.examples) rows.push_back({each.command, each.purpose});
    return columns(rows, 46);
}

}  // namespace

std::vector<std::string> wrapped(std::string_view text, std::size_t width) {
    std::vector<std::string> lines = {""};
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(text.size(), word.size() + 1));
        std::size_t blank = 1;
        for (const std::string_view piece : piecesOf(word)) {
            std::string& line = lines.back();
            if (line.empty()) {
                line = piece;
            } else if (columnsOf(line) + blank + columnsOf(piece) <= width) {
                line.append(blank, ' ').append(piece);
            } else {
                lines.emplace_back(piece);
            }
            blank = 0;
        }
    }
    return lines;
}

std::string usage(const CommandTable& command, const std::string& path, const HelpWords& words) {
    std::string text = path;
    bool others = false;
    for (const OptionEntry& each : command.options) {
        if (each.required) text += " " + each.names.back() + " " + each.value;
        others = others || !each.required;
    }
    const std::string options = " [" + words.anyOptions + "]";
    if (!command.commands.empty()) return text + " " + words.anyCommand + options;
    if (others) text += options;
    for (const ArgumentEntry& each : command.arguments) {
        const std::string name = each.name + (each.several ? "..." : "");
        text += each.required ? " " + name : " [" + name + "]";
    }
    return text;
}

std::string helpText(const CommandTable& command, const std::string& path, const HelpWords& words,
                     HelpExtent extent) {
    const std::string begin = words.usage + ": ", indent(columnsOf(begin), ' ');
    std::string text = begin +
                       paragraph(usage(command, path, words), screenWidth - indent.size(), indent.c_str()) +
                       '\n' + paragraph(command.purpose);
    text += command.commands.empty() ? "\n" + words.options + ":\n" + options(command, extent)
                                     : "\n" + words.commands + ":\n" + commands(command, extent);
    if (!command.examples.empty()) text += "\n" + words.examples + ":\n" + examples(command);
    if (extent == HelpExtent::usual && std::ranges::any_of(command.options, &OptionEntry::isSeldom))
        return text + "\n" + words.more + ": " + path + " --help-all\n";
    if (!command.remarks.empty()) text += "\n" + paragraph(command.remarks);
    if (extent == HelpExtent::all) {
        for (const CommandTable& each : command.commands)
            text += "\n\n" + helpText(each, path + " " + each.name, words, extent);
    }
    return text;
}

}  // namespace quillmark
