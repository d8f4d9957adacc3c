#include "Thunderbird/HostOptions.h"

namespace quillmark {

CommandTable hostTable() {
    CommandTable table{.name = "quillmark-thunderbird",
                       .purpose =
                           "Checks messages for Quillmark's add-on for Thunderbird, which starts it. "
                           "There is nothing to be done with it by hand."};
    table.options = {
        {.names = {"--version"}, .purpose = "Print the version"},
        {.names = {"--verbose"}, .purpose = "With --version: print, too, what confines this program"},
        {.names = {"--no-sandbox"}, .purpose = "Keep all rights while messages are read"}};
    table.sections = {
        {"PROTOCOL",
         {"Requests come from standard input and answers go to standard output, each a length (four bytes "
          "in the machine's order) and so many bytes of JSON. A request holds a message, and whether it is "
          "to be checked or handed to the window, quillmark-desktop. The program ends when its input ends, "
          "and with the exit status 1 when a request is longer than 70 MB or is none.",
          "It keeps no reports; the keys that DNS gives go into the key book, if the settings say so. Only "
          "names of domains leave the computer, as with quillmark(1)."}},
        {"ENVIRONMENT",
         {"TZ is the time zone; the language comes with each request. https_proxy or, without it, all_proxy "
          "names a proxy for the lookups, no_proxy what to ask without it. In XDG_RUNTIME_DIR a message lies "
          "on its way to the window, for its user alone, until that has read it."}},
        {"FILES",
         {"/usr/lib/mozilla/native-messaging-hosts/org.quillmark.thunderbird.json tells Thunderbird where "
          "the program lies, and which add-on may start it. ~/.config/quillmark/quillmark.conf holds the "
          "settings of quillmark-desktop, of which four hold here, too: who is asked for DNS records, "
          "whether registries are asked how old domains are, whether keys are remembered, and by which rules "
          "DMARC is judged. ~/.local/share/Quillmark/keys.db is the key book."}},
        {"SEE ALSO", {"quillmark(1), quillmark-desktop(1), thunderbird(1)."}},
    };
    return table;
}

}  // namespace quillmark
