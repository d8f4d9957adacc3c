// What a person reads: help and man page.

#include <CLI/CLI.hpp>

#include "CommandLine/Options.h"
#include "Manual/Help.h"
#include "Manual/ManPage.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

CommandTable table() {
    CLI::App app;
    Commands commands;
    addCommands(app, commands);
    return tableOf(app);
}

/// Every command with what has to be typed to reach it.
void collect(const CommandTable& command, const std::string& path,
             std::vector<std::pair<std::string, CommandTable>>& all) {
    all.emplace_back(path, command);
    for (const CommandTable& each : command.commands) collect(each, path + " " + each.name, all);
}

std::vector<std::pair<std::string, CommandTable>> commands() {
    std::vector<std::pair<std::string, CommandTable>> all;
    collect(table(), "quillmark", all);
    return all;
}

TEST(Help, isNarrowAndShort) {
    for (const Language language : allLanguages()) {
        Reader reader;
        reader.language = language;
        for (const auto& [path, command] : commands()) {
            SCOPED_TRACE(std::string(factsOf(language).code) + ": " + path);
            const CommandTable table = translated(command, reader);
            std::istringstream all(helpText(table, path, {}, HelpExtent::all));
            for (std::string line; std::getline(all, line);) EXPECT_LE(columnsOf(line), 80u) << line;
            const std::string usual = helpText(table, path);
            EXPECT_LE(std::ranges::count(usual, '\n'), language == Language::english ? 30 : 37) << usual;
        }
    }
}

/// A name that a formatter shows differently from a word in a sentence.
std::string inRoff(std::string_view text) {
    std::string out;
    for (const char c : text) out += c == '-' ? std::string("\\-") : std::string(1, c);
    return out;
}

TEST(ManPage, namesEveryCommandAndOption) {
    const std::string page = manPage(table(), "1.2.3", "2026-11-21");
    EXPECT_TRUE(page.starts_with(".TH \"QUILLMARK\" 1 2026-11-21 \"Quillmark 1.2.3\"\n"));
    for (const auto& [path, command] : commands()) {
        EXPECT_TRUE(command.name == "quillmark" || page.find(".SS \"" + path) != std::string::npos) << path;
        for (const OptionEntry& option : command.options)
            EXPECT_NE(page.find("\\fB" + inRoff(option.names.back()) + "\\fR"), std::string::npos);
    }
    const CommandTable hostile{.name = "p", .remarks = "", .sections = {{"S", {".de x", "'x \\fB \\e"}}}};
    const std::string escaped = manPage(hostile, "1", "2026-11-21");
    EXPECT_NE(escaped.find("\n\\&.de x\n"), std::string::npos);
    EXPECT_NE(escaped.find("\n\\&'x \\efB \\ee\n"), std::string::npos);
}

TEST(ManPage, takesAChapter) {
    const std::string page = formatsPage(
        "# Title\n\nA `co-de` and\n**strong** [link](a.md).\n\n## Form (`x --y`)\n\n    {\"a\": 1}\n    "
        ".b\n\n- one\n  and on\n- "
        "'two\n\n| key | value |\n|---|---|\n| `a|b,c` | c |\n\n---\n[next](b.md)\n",
        "1.2.3", "2026-11-21");
    EXPECT_EQ(page,
              ".TH \"QUILLMARK\\-FORMATS\" 5 2026-11-21 \"Quillmark 1.2.3\"\n"
              ".nr HY 0\n.nh\n.SH NAME\nquillmark\\-formats \\- what Quillmark reads and writes\n"
              ".SH DESCRIPTION\n.PP\nA \\fBco\\-de\\fR and \\fBstrong\\fR link.\n"
              ".SH \"Form (x \\-\\-y)\"\n.PP\n.RS 4\n.nf\n{\"a\": 1}\n\\&.b\n.fi\n.RE\n"
              ".IP \\(bu 2\none and on\n.IP \\(bu 2\n\\&'two\n"
              ".TP\n\\fIkey\\fR\nvalue\n.TP\n\\fBa|b,\\:c\\fR\nc\n");
    for (const char* const other : {"### a", "* a", "an `a", "  a", "| a |", "![a](b)"})
        EXPECT_THROW(formatsPage(other, "1", "2026-11-21"), std::invalid_argument) << other;
}

}  // namespace
}  // namespace quillmark
