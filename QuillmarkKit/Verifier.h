#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "QuillmarkKit/Checks/DMARCTreeWalk.h"
#include "QuillmarkKit/Intake/MailboxReader.h"
#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Lookups/KeyMemory.h"
#include "QuillmarkKit/Lookups/RDAP.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "QuillmarkKit/Report.h"

namespace quillmark {

/// Whether a check also looks for what was changed where a signature is broken: most of what a check of such
/// a message costs.
enum class Undoing { on, off };

/// What of a check a person may choose.
struct CheckRules {
    Undoing undoing = Undoing::on;
    DMARCRules dmarc = DMARCRules::rfc7489;
};

/// A report, and the messages as they were signed of which its notes tell that a signature holds again.
struct Verification {
    ProofReport report = {};
    /// In the order of those notes.
    std::vector<MailMessage> asSigned = {};
};

/// The library's main entry: one message in, one report out. One verifier may check many messages from many
/// threads at once. It keeps what it worked out of public keys, by their bytes (`ParsedKeys`, 4 MB at most,
/// for as long as a copy of it lives), so many messages are checked faster by one verifier and its copies
/// than by one each; no report depends on it.
class Verifier {
public:
    /// Without a registry the domain's age is not asked for. `suffixes` must outlive the verifier.
    /// `lookupTime`: how long the questions of one check may take, to registries as well; without it those to
    /// DNS have a minute. `keys` is told of each key that DNS gives, and asked where one is gone.
    explicit Verifier(std::shared_ptr<DNSResolver> resolver,
                      std::shared_ptr<RegistrationLookup> registry = nullptr,
                      const PublicSuffixList& suffixes = PublicSuffixList::shared(),
                      std::optional<std::chrono::seconds> lookupTime = {}, CheckRules rules = {},
                      std::shared_ptr<KeyMemory> keys = nullptr);

    /// A verifier that is the same but for whom it asks.
    Verifier asking(std::shared_ptr<DNSResolver> resolver,
                    std::shared_ptr<RegistrationLookup> registry) const;

    /// Runs every check, strictly in order, and blocks until the last is done. Never throws but for want of
    /// memory: a failure inside a check becomes its status. After `stop` is requested the report is complete
    /// still, but what was not yet asked says so. `now` is the time of the check.
    ProofReport verify(const MailMessage& message, std::optional<std::string> fileName, Date now,
                       const std::stop_token& stop = {}) const;
    /// The same under a given identity, of a message of which more is known than its bytes say.
    ProofReport verify(const MailMessage& message, std::optional<std::string> fileName, Date now, UUID id,
                       const std::stop_token& stop = {}, IntakeFacts intake = {}) const;
    /// The same, with more than the report can hold.
    Verification examine(const MailMessage& message, std::optional<std::string> fileName, Date now, UUID id,
                         const std::stop_token& stop = {}, IntakeFacts intake = {}) const;

private:
    std::shared_ptr<DNSResolver> m_resolver;
    std::shared_ptr<RegistrationLookup> m_registry;
    std::reference_wrapper<const PublicSuffixList> m_suffixes;
    std::optional<std::chrono::seconds> m_lookupTime;
    CheckRules m_rules;
    std::shared_ptr<KeyMemory> m_keys;
    std::shared_ptr<ParsedKeys> m_parsedKeys;
};

}  // namespace quillmark
