#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>

#include "CommandLine/CheckCommand.h"
#include "CommandLine/RecordedRun.h"
#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Lookups/DoHResolver.h"
#include "QuillmarkKit/Lookups/KeyBook.h"
#include "QuillmarkKit/Lookups/RDAP.h"
#include "QuillmarkKit/Support/Date.h"

namespace quillmark {

/// What the options say that checks are made with: the network, or what was read from files.
struct CheckSources {
    /// The options must be without fault. Throws `AnswersFileError`.
    explicit CheckSources(const CheckCommand& command);

    std::shared_ptr<DNSResolver> resolver = {};
    std::shared_ptr<RegistrationLookup> registry = {};  ///< none when nobody is to be asked
    std::shared_ptr<KeptKeys> keys = {};                ///< none when the key book is left alone
    std::unique_ptr<RecordedRun> recorded = {};         ///< when the checks are recorded, or were
    Date now;
    std::size_t workers;                                  ///< how many messages are checked at once
    std::shared_ptr<DoHResolver> services = {};           ///< that `resolver` asks over HTTPS, if it does
    std::optional<std::chrono::seconds> lookupTime = {};  ///< of one message, when it was given
};

}  // namespace quillmark
