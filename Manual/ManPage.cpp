#include "Manual/ManPage.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "Manual/Help.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

/// What must stand before a line so that it is no request.
std::string noRequest(std::string_view line) {
    return line.starts_with('.') || line.starts_with('\'') ? "\\&" : "";
}

/// As it shall be read, and a dash can be copied into a shell.
void addEscaped(char c, std::string& out) {
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

std::string escaped(std::string_view text) {
    std::string out = noRequest(text);
    for (const char c : text) addEscaped(c, out);
    return out;
}

/// Whether it has letters as wide as two others, as Chinese and Japanese have.
bool isWide(std::string_view text) {
    while (!text.empty())
        if (columnsOf(takeScalar(text)) == 2) return true;
    return false;
}

/// In one line of its source, whose end would become a blank; a line of the page may end between the letters.
std::string wideSentence(std::string_view text) {
    std::string out = noRequest(text);
    while (!text.empty()) {
        const std::string_view word = takePiece(text, ' ');
        bool isFirst = true;
        for (const std::string_view piece : piecesOf(word)) {
            if (!std::exchange(isFirst, false)) out += "\\:";
            for (const char c : piece) addEscaped(c, out);
        }
        if (!text.empty()) out += ' ';
    }
    return out + "\n";
}

/// A sentence over lines of its source, none of which is a request.
std::string sentence(std::string_view text) {
    if (isWide(text)) return wideSentence(text);
    std::string out;
    for (const std::string& line : wrapped(text, 76)) out += escaped(line) + "\n";
    return out;
}

/// The same for what stands without its full stop.
std::string closed(const std::string& text) { return sentence(text + (isWide(text) ? "。" : ".")); }

/// A macro's one argument.
std::string quoted(std::string_view text) {
    std::string out = "\"";
    for (const char c : escaped(text)) out += c == '"' ? std::string("\\(dq") : std::string(1, c);
    return out + '"';
}

/// The names of the page and its version, in its first line.
std::string title(const std::string& name, const char* section, const std::string& version,
                  const std::string& date) {
    std::string capitals = name;
    for (char& c : capitals) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    return ".TH " + quoted(capitals) + " " + section + " " + date + " " + quoted("Quillmark " + version) +
           "\n";
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
        text += ".TP\n\\fI" + escaped(each.name) + "\\fR\n" + closed(each.purpose);
    for (const OptionEntry& each : command.options) {
        const bool isHelp = each.names.back() == "--help";  // of commands, too: said once is enough
        if (!isHelp || !command.sections.empty())
            text += ".TP\n" + optionTerm(each) + "\n" + closed(each.purpose);
    }
    return text;
}

/// A heading for each command that does something, in the order they were defined.
std::string commands(const CommandTable& command, const std::string& path, const HelpWords& words) {
    std::string text;
    for (const CommandTable& each : command.commands) {
        const std::string name = path + " " + each.name;
        text += ".SS " + quoted(usage(each, name, words)) + "\n" + closed(each.purpose);
        if (each.commands.empty()) text += described(each);
        if (!each.remarks.empty() && each.remarks != command.remarks)
            text += ".PP\n" + sentence(each.remarks);
        text += commands(each, name, words);
    }
    return text;
}

// Markdown

/// "text" for "[text](file.md)".
std::string withoutLinks(std::string_view text) {
    std::string out;
    for (;;) {
        const auto middle = std::min(text.find("]("), text.size());
        const auto begin = text.rfind('[', middle), end = text.find(')', middle);
        if (begin == std::string_view::npos || end == std::string_view::npos) return out.append(text);
        out.append(text.substr(0, begin)).append(text.substr(begin + 1, middle - begin - 1));
        text.remove_prefix(end + 1);
    }
}

/// With `code` and **strong** words in bold.
std::string inlineText(std::string_view markdown) {
    const std::string text = withoutLinks(markdown);
    std::string out;
    bool isCode = false, isStrong = false;
    for (std::string_view rest = text; !rest.empty(); rest.remove_prefix(1)) {
        if (rest.front() == '`') {
            isCode = !isCode;
            out += isCode ? "\\fB" : "\\fR";
        } else if (!isCode && rest.starts_with("**")) {
            isStrong = !isStrong;
            out += isStrong ? "\\fB" : "\\fR";
            rest.remove_prefix(1);
        } else {
            addEscaped(rest.front(), out);
            if (isCode && rest.front() == ',') out += "\\:";  // where long JSON may go on in another line
        }
    }
    if (isCode || isStrong) throw std::invalid_argument("` or ** without an end");
    return out;
}

std::string paragraph(std::string_view markdown) {
    std::string out;
    for (const std::string& line : wrapped(inlineText(markdown), 76)) out += noRequest(line) + line + "\n";
    return out;
}

/// The cells of a table's row; what stands between them may stand in `code`, too.
std::vector<std::string> cells(std::string_view row) {
    std::vector<std::string> list = {""};
    bool isCode = false;
    for (const char c : row.substr(1)) {
        if (c == '`') isCode = !isCode;
        if (c == '|' && !isCode) {
            while (list.back().ends_with(' ')) list.back().pop_back();
            list.emplace_back();
        } else if (c != ' ' || !list.back().empty()) {
            list.back() += c;
        }
    }
    list.pop_back();
    return list;
}

/// Turns a chapter into the page's source, line by line.
class Chapter {
public:
    void add(std::string_view line) {
        const bool isItem = line.starts_with("- ");
        if (line.empty() || isItem || line.starts_with('#')) end();
        if (line.empty()) return;
        if (line.starts_with("## ")) {
            std::string heading(line.substr(3));
            std::erase(heading, '`');
            m_text += ".SH " + quoted(heading) + "\n";
        } else if (line.starts_with("# ")) {
            m_text += ".SH DESCRIPTION\n";
        } else if (line.starts_with('|')) {
            addRow(line);
        } else if (m_block == Block::paragraph || m_block == Block::item) {
            m_gathered.append(" ").append(line.substr(std::min(line.find_first_not_of(' '), line.size())));
        } else if (line.starts_with("    ")) {
            m_block = Block::code;
            m_gathered += escaped(line.substr(4)) + "\n";
        } else {
            for (const char* const other : {" ", "#", "* ", "> ", "![", "```"}) {
                if (line.starts_with(other)) throw std::invalid_argument("unknown Markdown");
            }
            m_block = isItem ? Block::item : Block::paragraph;
            m_gathered = line.substr(isItem ? 2 : 0);
        }
    }

    std::string text() {
        end();
        return std::move(m_text);
    }

private:
    enum class Block { none, paragraph, item, code, table };

    void end() {
        if (m_block == Block::paragraph) m_text += ".PP\n" + paragraph(m_gathered);
        if (m_block == Block::item) m_text += ".IP \\(bu 2\n" + paragraph(m_gathered);
        if (m_block == Block::code) m_text += ".PP\n.RS 4\n.nf\n" + m_gathered + ".fi\n.RE\n";
        m_block = Block::none;
        m_gathered.clear();
    }

    void addRow(std::string_view row) {
        if (row.find_first_not_of("|-") == std::string_view::npos) return;
        const std::vector<std::string> list = cells(row);
        if (list.size() != 2) throw std::invalid_argument("a table of other than two columns");
        const bool isHead = m_block != Block::table;
        m_block = Block::table;
        const std::string term = inlineText(list[0]);
        m_text +=
            ".TP\n" + noRequest(term) + (isHead ? "\\fI" + term + "\\fR" : term) + "\n" + paragraph(list[1]);
    }

    Block m_block = Block::none;
    std::string m_gathered = {}, m_text = {};
};

}  // namespace

std::string manPage(const CommandTable& program, const std::string& version, const std::string& date,
                    const ManPageWords& words) {
    std::string text = title(program.name, "1", version, date);
    if (isWide(words.summary)) text += ".ad l\n";  // hardly a line has blanks that could become wider
    text += ".SH NAME\n" + escaped(program.name) + " \\- " + escaped(words.summary) + "\n";
    text += ".SH SYNOPSIS\n\\fB" + escaped(usage(program, program.name, words.usage)) + "\\fR\n";
    text += ".SH DESCRIPTION\n" + sentence(program.purpose);
    text += ".SH OPTIONS\n" + described(program);
    if (!program.commands.empty()) text += ".SH COMMANDS\n" + commands(program, program.name, words.usage);
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

std::string formatsPage(std::string_view markdown, const std::string& version, const std::string& date) {
    const std::string name = "quillmark-formats";
    Chapter chapter;
    for (std::size_t number = 1; !markdown.empty(); ++number) {
        const std::string_view line = markdown.substr(0, markdown.find('\n'));
        if (line == "---") break;
        try {
            chapter.add(line);
        } catch (const std::invalid_argument& fault) {
            throw std::invalid_argument("line " + std::to_string(number) + ": " + fault.what());
        }
        markdown.remove_prefix(std::min(line.size() + 1, markdown.size()));
    }
    // What is in bold can be copied; no hyphen may come into it.
    return title(name, "5", version, date) + ".nr HY 0\n.nh\n.SH NAME\n" + escaped(name) +
           " \\- what Quillmark reads and writes\n" + chapter.text();
}

}  // namespace quillmark
