#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "CommandLine/FixedAnswers.h"
#include "QuillmarkKit/Intake/MailboxReader.h"
#include "QuillmarkKit/Lookups/Evidence.h"
#include "QuillmarkKit/Lookups/KeyMemory.h"
#include "QuillmarkKit/Lookups/Recording.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Verifier.h"

namespace quillmark {

/// Checks of which it is taken down what they were told, and checks that are made again from such a record.
/// Safe from many threads at once.
class RecordedRun {
public:
    using Failures = std::map<std::string, FixedAnswers::Failures>;  // by message

    /// `failures`: what the checks could not find out when they were recorded. `lookupTime`
    /// `rules` and `keys`: as a verifier takes them.
    RecordedRun(std::shared_ptr<DNSResolver> resolver, std::shared_ptr<RegistrationLookup> registry,
                Failures failures = {}, std::optional<std::chrono::seconds> lookupTime = {},
                CheckRules rules = {}, std::shared_ptr<KeyMemory> keys = nullptr)
        : m_resolver(std::move(resolver)),
          m_registry(std::move(registry)),
          m_failures(std::move(failures)),
          m_verifier(m_resolver, m_registry, PublicSuffixList::shared(), lookupTime, rules, std::move(keys)) {
    }

    /// Checks the message whose file has this SHA-256. `id`: of the report.
    Verification verify(const std::string& sha256, const MailMessage& message,
                        std::optional<std::string> fileName, Date now, IntakeFacts intake = {},
                        const UUID& id = UUID::random());

    /// All that was taken down, as an answers file (docs/formats.md), but for messages whose check is not
    /// done.
    std::string json(const RecordingTimes& times) const;

private:
    struct Check {
        std::mutex mutex = {};  ///< held while the message is checked
        std::set<std::string> files = {};
        bool isDone = false;  ///< under the run's mutex
        std::shared_ptr<RecordedFailures> failures = std::make_shared<RecordedFailures>();
    };
    Check& check(const std::string& sha256, const std::optional<std::string>& fileName);

    const std::shared_ptr<DNSResolver> m_resolver;
    const std::shared_ptr<RegistrationLookup> m_registry;
    const Failures m_failures;
    const Verifier m_verifier;
    const std::shared_ptr<RecordedAnswers> m_answers = std::make_shared<RecordedAnswers>();
    mutable std::mutex m_mutex = {};
    std::map<std::string, Check> m_checks = {};  // by SHA-256
};

}  // namespace quillmark
