#include "Quillmark/DesktopOptions.h"

#include <string>

#include "Wording/Reader.h"

namespace quillmark {

CommandTable desktopTable() {
    CommandTable table{
        .name = "quillmark-desktop",
        .purpose = std::string(toTranslate("Find out who can be proven to have sent an email."))};
    table.options = {
        {.names = {"-h", "--help"}, .purpose = std::string(toTranslate("Print this help"))},
        {.names = {"-v", "--version"}, .purpose = std::string(toTranslate("Print the version"))},
        {.names = {"--verbose"},
         .purpose = std::string(toTranslate("With --version: print, too, what confines this program"))},
        {.names = {"--no-sandbox"},
         .purpose = std::string(toTranslate("Keep all rights while messages are read"))}};
    table.arguments = {
        {.name = "FILE", .purpose = std::string(toTranslate("saved emails to check")), .several = true}};
    table.sections = {
        {"WINDOW",
         {"Drop messages on the window, open them, or paste their source. Help in the menu says the rest. A "
          "second start hands its files to the window that is open.",
          "The options of Qt are taken, too: -platform offscreen needs no screen."}},
        {"ENVIRONMENT",
         {"LC_ALL, LC_MESSAGES and LANG choose the language, of seventeen; else it is English. https_proxy "
          "or, without it, all_proxy names a proxy for the lookups, no_proxy what to ask without it."}},
        {"FILES",
         {"~/.local/share/Quillmark/history.json holds the reports, and keys.db beside it the keys of "
          "senders, which are kept unless the settings say not to; ~/.config/quillmark holds the settings, "
          "~/.cache/quillmark what can be fetched again."}},
        {"SEE ALSO", {"quillmark(1) is the same for a terminal."}},
    };
    return table;
}

}  // namespace quillmark
