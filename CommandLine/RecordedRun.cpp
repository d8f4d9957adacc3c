#include "CommandLine/RecordedRun.h"

#include <nlohmann/json.hpp>
#include <utility>
#include <variant>

#include "QuillmarkKit/Support/Crypto.h"
#include "QuillmarkKit/Verifier.h"

namespace quillmark {

namespace {

using JSON = nlohmann::json;

JSON value(const DNSAnswer& answer) {
    if (std::holds_alternative<DNSAnswer::NXDomain>(answer.value)) return "nxdomain";
    if (std::holds_alternative<DNSAnswer::NoData>(answer.value)) return "noData";
    return std::get<DNSAnswer::Records>(answer.value).data;
}

JSON value(const std::optional<Date>& registered) {
    return registered ? JSON(rfc3339(*registered)) : JSON(nullptr);
}

JSON value(const std::string& failure) { return failure; }

template <typename Value>
JSON values(const Record<Value>& record) {
    JSON object = JSON::object();
    for (const auto& [question, entry] : record.entries()) object[question] = value(entry.value);
    return object;
}

template <typename Value>
JSON sources(const Record<Value>& record) {
    JSON object = JSON::object();
    for (const auto& [question, entry] : record.entries()) {
        if (!entry.source.empty()) object[question] = entry.source;
    }
    return object;
}

}  // namespace

std::string sha256(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char c : hash(HashAlgorithm::sha256, bytes)) {
        const auto byte = static_cast<unsigned char>(c);
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

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

ProofReport RecordedRun::verify(const std::string& sha256, const MailMessage& message,
                                std::optional<std::string> fileName, Date now) {
    Check& current = check(sha256, fileName);
    // The same message a second time meets the failures that the first met, or one record would not do for
    // both.
    const std::lock_guard lock(current.mutex);
    const auto resolver = std::make_shared<RecordingResolver>(m_resolver, m_answers, current.failures);
    std::shared_ptr<RegistrationLookup> registry;
    if (m_registry) registry = std::make_shared<RecordingRegistry>(m_registry, m_answers, current.failures);
    return Verifier(resolver, registry).verify(message, std::move(fileName), now);
}

std::string RecordedRun::json(const Times& times) const {
    JSON document;
    document["at"] = rfc3339(times.at);
    document["answers"] = values(m_answers->dns);
    if (m_registry) document["registrations"] = values(m_answers->registrations);
    document["sources"] = {{"answers", sources(m_answers->dns)},
                           {"registrations", sources(m_answers->registrations)}};
    document["recorded"] = {{"by", "Quillmark " QUILLMARK_VERSION},
                            {"begun", rfc3339(times.begun)},
                            {"ended", rfc3339(times.ended)}};
    JSON& messages = document["messages"] = JSON::object();
    const std::lock_guard lock(m_mutex);
    for (const auto& [sha256, check] : m_checks) {
        JSON& message = messages[sha256] = {{"files", check.files}};
        if (JSON errors = values(check.failures->dns); !errors.empty()) message["errors"] = std::move(errors);
        if (JSON errors = values(check.failures->registrations); !errors.empty())
            message["registrationErrors"] = std::move(errors);
    }
    // In ASCII: it is looked at in terminals, and nothing in it may play tricks there.
    constexpr int indent = 2;
    return document.dump(indent, ' ', true, JSON::error_handler_t::replace) + "\n";
}

}  // namespace quillmark
