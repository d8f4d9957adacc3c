#include "CommandLine/RecordedRun.h"

#include <utility>

#include "QuillmarkKit/Version.h"

namespace quillmark {

RecordedRun::Check& RecordedRun::check(const std::string& sha256,
                                       const std::optional<std::string>& fileName) {
    const std::lock_guard lock(m_mutex);
    const auto [place, isNew] = m_checks.try_emplace(sha256);
    Check& check = place->second;
    if (fileName) check.files.insert(*fileName);
    if (const auto known = m_failures.find(sha256); isNew && known != m_failures.end()) {
        for (const auto& [question, why] : known->second.dns) check.failures->dns.keep(question, why);
        for (const auto& [domain, why] : known->second.registrations)
            check.failures->registrations.keep(domain, why);
    }
    return check;
}

Verification RecordedRun::verify(const std::string& sha256, const MailMessage& message,
                                 std::optional<std::string> fileName, Date now, IntakeFacts intake,
                                 const UUID& id) {
    Check& current = check(sha256, fileName);
    // The same message a second time meets the failures that the first met, or one record would not do for
    // both.
    const std::lock_guard lock(current.mutex);
    const auto resolver = std::make_shared<RecordingResolver>(m_resolver, m_answers, current.failures);
    std::shared_ptr<RegistrationLookup> registry;
    if (m_registry) registry = std::make_shared<RecordingRegistry>(m_registry, m_answers, current.failures);
    Verification verification = m_verifier.asking(resolver, registry)
                                    .examine(message, std::move(fileName), now, id, {}, std::move(intake));
    const std::lock_guard runLock(m_mutex);
    current.isDone = true;
    return verification;
}

std::string RecordedRun::json(const RecordingTimes& times) const {
    std::map<std::string, RecordedMessage> messages;
    const std::lock_guard lock(m_mutex);
    for (const auto& [digest, check] : m_checks) {
        if (check.isDone) messages[digest] = {check.files, check.failures};
    }
    return recordingJSON("Quillmark " QUILLMARK_VERSION, times, *m_answers,
                         m_registry ? Registrations::asked : Registrations::notAsked, messages);
}

}  // namespace quillmark
