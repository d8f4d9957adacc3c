// Writes a program's man page, in each language, and completions into a folder, or the page about formats;
// part of the build.
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string_view>

#include "CommandLine/Options.h"
#include "Manual/Completions.h"
#include "Manual/ManPage.h"
#include "Quillmark/DesktopOptions.h"
#include "QuillmarkKit/Version.h"
#include "Thunderbird/HostOptions.h"
#include "Wording/Reader.h"

namespace {

using namespace quillmark;

CommandTable commandLineTable() {
    CLI::App app;
    Commands commands;
    addCommands(app, commands);
    return tableOf(app);
}

bool write(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text << std::flush;
    if (!file) std::cerr << path << " could not be written\n";
    return file.good();
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): what a tool of the build throws ends the build
int main(int count, char** values) {
    if (count != 4 && (count != 5 || values[1] != std::string_view("quillmark-formats"))) {
        std::cerr << "Usage: quillmark-manual quillmark|quillmark-desktop|quillmark-thunderbird FOLDER DATE\n"
                     "       quillmark-manual quillmark-formats FOLDER DATE MARKDOWN\n";
        return 2;
    }
    const std::string program = values[1], folder = values[2];
    if (count == 5) {
        std::ostringstream chapter;
        chapter << std::ifstream(values[4], std::ios::binary).rdbuf();
        const std::string page = formatsPage(chapter.str(), QUILLMARK_VERSION, values[3]);
        return write(folder + "/" + program + ".5", page) ? 0 : 1;
    }
    const bool isTyped = program != "quillmark-thunderbird";  // by a person, who wants completions
    const CommandTable table = program == "quillmark" ? commandLineTable()
                               : isTyped              ? desktopTable()
                                                      : hostTable();
    if (!write(folder + "/" + program + ".1", manPage(table, QUILLMARK_VERSION, values[3]))) return 1;
    if (!isTyped) return 0;
    for (const Language language : allLanguages()) {
        if (language == Language::english) continue;
        const Reader reader{.language = language};
        ManPageWords words{.summary = reader.translate("Find out who can be proven to have sent an email."),
                           .usage = helpWords(reader)};
        for (const std::string_view stop : {".", "。"}) {
            if (words.summary.ends_with(stop)) words.summary.resize(words.summary.size() - stop.size());
        }
        const std::string page = manPage(translated(table, reader), QUILLMARK_VERSION, values[3], words);
        if (!write(folder + "/" + program + "." + std::string(factsOf(language).code) + ".1", page)) return 1;
    }
    const bool written = write(folder + "/" + program + ".bash", bashCompletion(table)) &&
                         write(folder + "/_" + program, zshCompletion(table)) &&
                         write(folder + "/" + program + ".fish", fishCompletion(table));
    return written ? 0 : 1;
}
