#include "QuillmarkKit/Lookups/Recording.h"

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

DNSAnswer RecordingResolver::lookup(std::string_view name, DNSRecordType type, const Patience& patience) {
    const std::string question = StaticResolver::key(name, type);
    if (const auto failure = m_failures->dns.find(question)) throw DNSLookupError(*failure);
    if (auto known = m_answers->dns.find(question)) return std::move(*known);
    try {
        DNSAnswer answer = m_resolver->lookup(name, type, patience);
        if (answer == DNSAnswer::nxdomain() && !mayBeQueried(name)) return answer;
        return m_answers->dns.keep(question, std::move(answer), m_resolver->source(name, type));
    } catch (const DNSLookupError& error) {
        throw DNSLookupError(m_failures->dns.keep(question, error.what()));
    }
}

std::optional<Date> RecordingRegistry::registrationDate(std::string_view domain, const Patience& patience) {
    const std::string question = asciiLowered(domain);
    if (const auto failure = m_failures->registrations.find(question)) throw RDAPError(*failure);
    if (const auto known = m_answers->registrations.find(question)) return *known;
    try {
        const auto date = m_registry->registrationDate(domain, patience);
        return m_answers->registrations.keep(question, date, m_registry->source(domain));
    } catch (const RDAPError& error) {
        throw RDAPError(m_failures->registrations.keep(question, error.what()));
    }
}

}  // namespace quillmark
