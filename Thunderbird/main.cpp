#include <unistd.h>

#include <iostream>
#include <string_view>

#include "QuillmarkKit/HistoryFile.h"
#include "QuillmarkKit/Lookups/KeyBook.h"
#include "QuillmarkKit/Lookups/RDAP.h"
#include "QuillmarkKit/Support/HTTP.h"
#include "QuillmarkKit/Version.h"
#include "Settings/ChosenResolver.h"
#include "Settings/CurrentTime.h"
#include "Settings/StoredSettings.h"
#include "Settings/UserFolders.h"
#include "Thunderbird/Host.h"

// Thunderbird starts it, with the path of its manifest and the add-on's name as arguments.
// NOLINTNEXTLINE(bugprone-exception-escape): want of memory is left, and ends the program
int main(int count, char** arguments) {
    using namespace quillmark;
    if (count == 2 && std::string_view(arguments[1]) == "--version") {
        std::cout << "quillmark-thunderbird " QUILLMARK_VERSION "\n";
        return 0;
    }
    const auto http = std::make_shared<HTTPEngine>(HTTPOptions::ofEnvironment());
    HostSurroundings surroundings;
    const auto file = settingsFile();
    const bool isFit = file && isFitForSettings(*file);
    const auto settings = isFit ? storedSettings(*file) : std::nullopt;
    const AppOptions options = isFit ? storedOptions(*file) : AppOptions();
    surroundings.resolver = chosenResolver(options.resolver, http);
    if (settings.value_or(AppSettings()).checkDomainAge)
        surroundings.registry =
            std::make_shared<RDAPClient>(http, RDAPOptions{.cacheDirectory = cacheFolder()});
    surroundings.now = currentTime;
    try {
        surroundings.keys = std::make_shared<KeptKeys>(
            KeyBook{KeyBook::besideHistory(HistoryFile::defaultLocation(dataFolderName))},
            KeptKeys::Options{.remembers = settings && options.rememberKeys, .now = currentTime});
    } catch (const std::filesystem::filesystem_error&) {  // NOLINT(bugprone-empty-catch)
        // Without a folder for it there is no book.
    }
    surroundings.window = QUILLMARK_WINDOW;
    surroundings.sessionFolder = sessionFolder();
    surroundings.reader = Reader::ofEnvironment();
    return serveAddon(surroundings, STDIN_FILENO, STDOUT_FILENO);
}
