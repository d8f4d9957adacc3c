#include "QuillmarkKit/Recording.h"

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

DNSAnswer RecordingResolver::lookup(std::string_view name, DNSRecordType type, std::stop_token stop) {
    return lookupBefore(Clock::time_point::max(), name, type, std::move(stop));
}

DNSAnswer RecordingResolver::lookupBefore(Clock::time_point deadline, std::string_view name,
                                          DNSRecordType type, std::stop_token stop) {
    const std::string question = StaticResolver::key(name, type);
    if (const auto failure = m_failures->dns.find(question)) throw DNSLookupError(*failure);
    if (auto known = m_answers->dns.find(question)) return std::move(*known);
    try {
        DNSAnswer answer = m_resolver->lookupBefore(deadline, name, type, std::move(stop));
        if (answer == DNSAnswer::nxdomain() && !mayBeQueried(name)) return answer;
        return m_answers->dns.keep(question, std::move(answer), m_resolver->source(name, type));
    } catch (const DNSLookupError& error) {
        throw DNSLookupError(m_failures->dns.keep(question, error.what()));
    }
}

std::optional<Date> RecordingRegistry::registrationDate(std::string_view domain, std::stop_token stop) {
    const std::string question = asciiLowered(domain);
    if (const auto failure = m_failures->registrations.find(question)) throw RDAPError(*failure);
    if (const auto known = m_answers->registrations.find(question)) return *known;
    try {
        const auto date = m_registry->registrationDate(domain, std::move(stop));
        return m_answers->registrations.keep(question, date, m_registry->source(domain));
    } catch (const RDAPError& error) {
        throw RDAPError(m_failures->registrations.keep(question, error.what()));
    }
}

}  // namespace quillmark
