#include "Manual/ManPage.h"

#include <string_view>

#include "Manual/Help.h"

namespace quillmark {

namespace {

/// As it shall be read: nothing of it is a request, and a dash can be copied into a shell.
std::string escaped(std::string_view text) {
    std::string out;
    if (text.starts_with('.') || text.starts_with('\'')) out = "\\&";
    for (const char c : text) {
        if (c == '\\') {
            out += "\\e";
        } else if (c == '-') {
            out += "\\-";
        } else if (c == '~') {
            out += "\\(ti";
        } else {
            out += c;
        }
    }
    return out;
}

/// A sentence over lines of its source, none of which is a request.
std::string sentence(std::string_view text) {
    std::string out;
    for (const std::string& line : wrapped(text, 76)) out += escaped(line) + "\n";
    return out;
}

/// A macro's one argument.
std::string quoted(std::string_view text) {
    std::string out = "\"";
    for (const char c : escaped(text)) out += c == '"' ? std::string("\\(dq") : std::string(1, c);
    return out + '"';
}

std::string optionTerm(const OptionEntry& option) {
    std::string term;
    for (const std::string& name : option.names) {
        if (!term.empty()) term += ", ";
        term += "\\fB" + escaped(name) + "\\fR";
    }
    return option.value.empty() ? term : term + " \\fI" + escaped(option.value) + "\\fR";
}

std::string described(const CommandTable& command) {
    std::string text;
    for (const ArgumentEntry& each : command.arguments)
        text += ".TP\n\\fI" + escaped(each.name) + "\\fR\n" + sentence(each.purpose + ".");
    for (const OptionEntry& each : command.options) {
        const bool isHelp = each.names.back() == "--help";  // of commands, too: said once is enough
        if (!isHelp || !command.sections.empty())
            text += ".TP\n" + optionTerm(each) + "\n" + sentence(each.purpose + ".");
    }
    return text;
}

/// A heading for each command that does something, in the order they were defined.
std::string commands(const CommandTable& command, const std::string& path) {
    std::string text;
    for (const CommandTable& each : command.commands) {
        const std::string name = path + " " + each.name;
        text += ".SS " + quoted(usage(each, name)) + "\n" + sentence(each.purpose + ".");
        if (each.commands.empty()) text += described(each);
        if (!each.remarks.empty() && each.remarks != command.remarks)
            text += ".PP\n" + sentence(each.remarks);
        text += commands(each, name);
    }
    return text;
}

}  // namespace

std::string manPage(const CommandTable& program, const std::string& version, const std::string& date) {
    std::string capitals = program.name;
    for (char& c : capitals) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    std::string text = ".TH " + quoted(capitals) + " 1 " + date + " " + quoted("Quillmark " + version) + "\n";
    text += ".SH NAME\n" + escaped(program.name) + " \\- find out who can be proven to have sent an email\n";
    text += ".SH SYNOPSIS\n\\fB" + escaped(usage(program, program.name)) + "\\fR\n";
    text += ".SH DESCRIPTION\n" + sentence(program.purpose);
    text += ".SH OPTIONS\n" + described(program);
    if (!program.commands.empty()) text += ".SH COMMANDS\n" + commands(program, program.name);
    if (!program.examples.empty()) text += ".SH EXAMPLES\n";
    for (const CommandTable::Example& each : program.examples)
        text += ".TP\n\\fB" + escaped(each.command) + "\\fR\n" + sentence(each.purpose);
    for (const CommandTable::Section& section : program.sections) {
        text += ".SH " + quoted(section.title) + "\n";
        for (std::size_t i = 0; i < section.paragraphs.size(); ++i)
            text += (i > 0 ? ".PP\n" : "") + sentence(section.paragraphs[i]);
    }
    return text;
}

}  // namespace quillmark
