#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "Apart/CheckProcesses.h"
#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Lookups/KeyMemory.h"
#include "QuillmarkKit/Lookups/RDAP.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Verifier.h"
#include "Sandbox/Sandbox.h"
#include "Thunderbird/WindowOpener.h"
#include "Wording/Reader.h"

namespace quillmark {

/// What the host of the add-on stands on. `now` is called on any thread.
struct HostSurroundings {
    std::shared_ptr<DNSResolver> resolver = {};
    std::shared_ptr<RegistrationLookup> registry = {};  ///< none when nobody is to be asked
    CheckRules rules = {};                              ///< that checks judge by
    std::shared_ptr<KeyMemory> keys = {};               ///< that were seen in DNS; may be none
    std::function<Date()> now = {};
    std::shared_ptr<CheckProcesses> processes = {};  ///< that read messages; none: this one does
    std::shared_ptr<WindowOpener> window = {};  ///< for requests to hand a message to it; else there are none
    std::optional<Sandbox> sandbox = {};        ///< the process is restricted to, before it reads a request
    Reader reader = {};  ///< whom problems of the protocol are for, and whose time zone it is
};

/// Reads requests and writes answers, each as soon as it is there, until the add-on closes its end. Gives the
/// exit status: 0, or 1 when the add-on doesn't keep to the protocol, of which standard error tells then.
int serveAddon(const HostSurroundings& surroundings, int input, int output);

}  // namespace quillmark
