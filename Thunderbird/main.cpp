#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "Apart/CheckWorker.h"
#include "Apart/NetworkProcess.h"
#include "Apart/NetworkWorker.h"
#include "QuillmarkKit/HistoryFile.h"
#include "QuillmarkKit/Lookups/KeyBook.h"
#include "QuillmarkKit/Lookups/RDAP.h"
#include "QuillmarkKit/Support/HTTP.h"
#include "QuillmarkKit/Version.h"
#include "Sandbox/ProgramSandbox.h"
#include "Settings/ChosenResolver.h"
#include "Settings/CurrentTime.h"
#include "Settings/StoredSettings.h"
#include "Settings/UserFolders.h"
#include "Thunderbird/Host.h"

// Thunderbird starts it, with the path of its manifest and the add-on's name as arguments.
// NOLINTNEXTLINE(bugprone-exception-escape): want of memory is left, and ends the program
int main(int count, char** arguments) {
    using namespace quillmark;
    const auto has = [&](std::string_view option) {
        return std::find(arguments + 1, arguments + count, option) < arguments + count;
    };
    const Reader reader = Reader::ofEnvironment();
    const bool isSandboxed = !has("--no-sandbox");
    if (has("--version")) {
        std::cout << "quillmark-thunderbird " QUILLMARK_VERSION "\n";
        if (!has("--verbose")) return 0;
        for (const std::string& line :
             isSandboxed ? linesOfSandbox(reader)
                         : std::vector{reader.translate("Sandbox: none, as --no-sandbox asks")})
            std::cout << line << '\n';
        return 0;
    }
    HostSurroundings surroundings;
    std::shared_ptr<NetworkProcess> network;
    if (isSandboxed) {  // while there is one thread
        network = std::make_shared<NetworkProcess>(serveUsualNetwork, sandboxOfUsualNetwork());
        surroundings.processes = std::make_shared<CheckProcesses>(serveChecks);
    }
    surroundings.window = std::make_shared<WindowOpener>(QUILLMARK_WINDOW, sessionFolder());
    const auto file = settingsFile();
    const bool isFit = file && isFitForSettings(*file);
    const auto settings = isFit ? storedSettings(*file) : std::nullopt;
    const AppOptions options = isFit ? storedOptions(*file) : AppOptions();
    const bool asksRegistry = settings.value_or(AppSettings()).checkDomainAge;
    if (network) {
        surroundings.resolver = std::make_shared<ApartResolver>(network, options.resolver);
        if (asksRegistry) surroundings.registry = std::make_shared<ApartRegistry>(network);
    } else {
        const auto http = std::make_shared<HTTPEngine>(HTTPOptions::ofEnvironment());
        surroundings.resolver = chosenResolver(options.resolver, http);
        if (asksRegistry)
            surroundings.registry =
                std::make_shared<RDAPClient>(http, RDAPOptions{.cacheDirectory = cacheFolder()});
    }
    surroundings.rules = options.rules();
    surroundings.now = currentTime;
    try {
        surroundings.keys = std::make_shared<KeptKeys>(
            KeyBook{KeyBook::besideHistory(HistoryFile::defaultLocation(dataFolderName))},
            KeptKeys::Options{.remembers = settings && options.rememberKeys, .now = currentTime});
    } catch (const std::filesystem::filesystem_error&) {  // NOLINT(bugprone-empty-catch)
        // Without a folder for it there is no book.
    }
    if (isSandboxed) {
        surroundings.sandbox = Sandbox{.usesChannels = true};
        const bool remembers = settings && options.rememberKeys;
        allowUserData(*surroundings.sandbox, remembers ? UserData::made : UserData::asItIs);
    }
    surroundings.reader = reader;
    return serveAddon(surroundings, STDIN_FILENO, STDOUT_FILENO);
}
