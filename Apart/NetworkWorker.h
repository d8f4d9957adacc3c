#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Lookups/RDAP.h"
#include "Sandbox/HelperProcess.h"
#include "Sandbox/Sandbox.h"

namespace quillmark {

/// Who answers, in the process that asks the network.
struct NetworkServices {
    /// Whom a choice means (`chosenResolver`); made once for each.
    std::function<std::shared_ptr<DNSResolver>(std::string_view choice)> resolver = {};
    std::shared_ptr<RegistrationLookup> registry = {};
    /// What its `RDAPOptions::ignored` was told, if anything; on any thread.
    std::function<std::string()> ignored = {};
};

/// Answers what comes through the channel (`NetworkProcess`), many questions at once, until it has gone; then
/// the process ends.
[[noreturn]] void serveNetwork(const Channel& channel, const NetworkServices& services);

/// The usual: over HTTPS and by the servers of this computer, as the environment says, with the person's
/// folder for what can be fetched again; and what that needs.
[[noreturn]] void serveUsualNetwork(const Channel& channel);
Sandbox sandboxOfUsualNetwork();

}  // namespace quillmark
