#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Lookups/RDAP.h"

/// Taking down what checks were told, so that they can be made again without a network.
namespace quillmark {

/// Outcomes by question, of which the first stays. Safe from many threads at once.
template <typename Value>
class Record {
public:
    struct Entry {
        Value value = {};
        std::string source = {};  ///< who said so, as far as that is known
    };
    using Entries = std::map<std::string, Entry, std::less<>>;

    std::optional<Value> find(std::string_view question) const {
        const std::lock_guard lock(m_mutex);
        const auto found = m_entries.find(question);
        return found != m_entries.end() ? std::optional<Value>(found->second.value) : std::nullopt;
    }
    /// Takes an outcome down, and gives the one that counts from now on.
    Value keep(const std::string& question, Value value, std::string source = {}) {
        const std::lock_guard lock(m_mutex);
        return m_entries.try_emplace(question, Entry{std::move(value), std::move(source)})
            .first->second.value;
    }
    Entries entries() const {
        const std::lock_guard lock(m_mutex);
        return m_entries;
    }

private:
    mutable std::mutex m_mutex = {};
    Entries m_entries = {};
};

/// What all checks of a run were told. Questions are the keys of `StaticResolver` and lower-case domains.
struct RecordedAnswers {
    Record<DNSAnswer> dns = {};
    Record<std::optional<Date>> registrations = {};
};

/// What one check could not find out, and why. Another check may have been told: a lookup that timed out for
/// one may succeed for the next.
struct RecordedFailures {
    Record<std::string> dns = {}, registrations = {};
};

/// Stands before a resolver for one check and takes down what comes of each question. A question that failed
/// fails again; one that was answered, for whatever check, has that answer. A name that does not exist
/// because `mayBeQueried` refuses it is not taken down: nobody was asked.
class RecordingResolver : public DNSResolver {
public:
    /// Failures may be there already: those of a check that is made again.
    RecordingResolver(std::shared_ptr<DNSResolver> resolver, std::shared_ptr<RecordedAnswers> answers,
                      std::shared_ptr<RecordedFailures> failures)
        : m_resolver(std::move(resolver)), m_answers(std::move(answers)), m_failures(std::move(failures)) {}

    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) override;
    bool mayKnow(std::string_view name, DNSRecordType type) override {
        return m_resolver->mayKnow(name, type);
    }
    std::string source(std::string_view name, DNSRecordType type) override {
        return m_resolver->source(name, type);
    }

private:
    const std::shared_ptr<DNSResolver> m_resolver;
    const std::shared_ptr<RecordedAnswers> m_answers;
    const std::shared_ptr<RecordedFailures> m_failures;
};

/// The same for the registration dates of domains.
class RecordingRegistry : public RegistrationLookup {
public:
    RecordingRegistry(std::shared_ptr<RegistrationLookup> registry, std::shared_ptr<RecordedAnswers> answers,
                      std::shared_ptr<RecordedFailures> failures)
        : m_registry(std::move(registry)), m_answers(std::move(answers)), m_failures(std::move(failures)) {}

    std::optional<Date> registrationDate(std::string_view domain, const Patience& patience = {}) override;
    std::string source(std::string_view domain) override { return m_registry->source(domain); }

private:
    const std::shared_ptr<RegistrationLookup> m_registry;
    const std::shared_ptr<RecordedAnswers> m_answers;
    const std::shared_ptr<RecordedFailures> m_failures;
};

}  // namespace quillmark
