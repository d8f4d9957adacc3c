// The host of the add-on with recorded answers, which the one that is installed has no way to take:
//   QUILLMARK_TEST_ANSWERS   an answers file
//   QUILLMARK_TEST_WINDOW    the program that messages are handed to

#include <unistd.h>

#include <cstdlib>

#include "Apart/CheckWorker.h"
#include "CommandLine/FixedAnswers.h"
#include "Settings/UserFolders.h"
#include "Thunderbird/Host.h"

int main() {
    using namespace quillmark;
    FixedAnswers fixed = FixedAnswers::read(std::getenv("QUILLMARK_TEST_ANSWERS"));
    HostSurroundings surroundings;
    surroundings.processes = std::make_shared<CheckProcesses>(serveChecks);
    surroundings.resolver = std::make_shared<StaticResolver>(std::move(fixed.answers));
    surroundings.registry = std::make_shared<StaticRegistry>(std::move(*fixed.registrations));
    surroundings.now = [at = *fixed.at] { return at; };
    surroundings.window =
        std::make_shared<WindowOpener>(std::getenv("QUILLMARK_TEST_WINDOW"), sessionFolder());
    surroundings.sandbox = Sandbox{.usesChannels = true};
    surroundings.reader = Reader::ofEnvironment();
    return serveAddon(surroundings, STDIN_FILENO, STDOUT_FILENO);
}
