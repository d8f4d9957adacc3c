#include "Apart/CheckQuestions.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace quillmark {

namespace {

class BoundedResolver : public DNSResolver {
public:
    BoundedResolver(std::shared_ptr<DNSResolver> resolver, std::shared_ptr<AskedNames> names)
        : m_resolver(std::move(resolver)), m_names(std::move(names)) {}

    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience) override {
        if (!m_names->mayAsk(name)) throw DNSLookupError(NameBounds::failure);
        return m_resolver->lookup(name, type, patience);
    }
    bool mayKnow(std::string_view name, DNSRecordType type) override {
        return m_resolver->mayKnow(name, type);
    }
    std::string source(std::string_view name, DNSRecordType type) override {
        return m_resolver->source(name, type);
    }

private:
    const std::shared_ptr<DNSResolver> m_resolver;
    const std::shared_ptr<AskedNames> m_names;
};

class BoundedRegistry : public RegistrationLookup {
public:
    BoundedRegistry(std::shared_ptr<RegistrationLookup> registry, std::shared_ptr<AskedNames> names)
        : m_registry(std::move(registry)), m_names(std::move(names)) {}

    std::optional<Date> registrationDate(std::string_view domain, const Patience& patience) override {
        if (!m_names->mayAsk(domain)) throw RDAPError(NameBounds::failure);
        return m_registry->registrationDate(domain, patience);
    }
    std::string source(std::string_view domain) override { return m_registry->source(domain); }

private:
    const std::shared_ptr<RegistrationLookup> m_registry;
    const std::shared_ptr<AskedNames> m_names;
};

DNSRecordType recordType(int code) {
    const auto type = dnsRecordType(code);
    if (!type) throw DecodingError("an unknown type of record");
    return *type;
}

}  // namespace

bool AskedNames::mayAsk(std::string_view name) {
    if (m_asked.contains(name)) return true;
    if (m_names == 0 || name.size() > m_bytes) return false;
    --m_names;
    m_bytes -= name.size();
    m_asked.emplace(name);
    return true;
}

void CheckQuestions::begin() {
    std::exchange(m_hasBegun, true) ? m_names->allow(NameBounds::mostAttached, NameBounds::bytesAttached)
                                    : m_names->allow(NameBounds::most, NameBounds::bytes);
    m_answers = std::make_shared<RecordedAnswers>();
    m_failures = std::make_shared<RecordedFailures>();
    m_asker = {};
    m_resolver = std::make_shared<RecordingResolver>(
        std::make_shared<BoundedResolver>(m_answerers.resolver, m_names), m_answers, m_failures);
    m_registry = nullptr;
    if (!m_answerers.registry || !m_answerers.mayAskRegistry->isOn()) return;
    auto bounded = std::make_shared<BoundedRegistry>(m_answerers.registry, m_names);
    m_registry = std::make_shared<SwitchedRegistry>(
        std::make_shared<RecordingRegistry>(std::move(bounded), m_answers, m_failures),
        m_answerers.mayAskRegistry);
}

std::string CheckQuestions::answer(TalkKind kind, std::string_view bytes) {
    if (!m_resolver) throw DecodingError("a question before a message");
    switch (kind) {
        case TalkKind::lookup:
            return lookup(bytes);
        case TalkKind::registration:
            return registration(bytes);
        case TalkKind::mayKnow: {
            const auto [name, type] = unpacked<std::string_view, int>(bytes);
            return packed(m_resolver->mayKnow(name, recordType(type)));
        }
        case TalkKind::keysOf: {
            const auto [name] = unpacked<std::string_view>(bytes);
            return packed(m_answerers.keys ? m_answerers.keys->keysOf(name) : std::vector<KnownKey>());
        }
        default:
            throw DecodingError("no question");
    }
}

std::string CheckQuestions::lookup(std::string_view bytes) {
    const auto [name, code, deadline] = unpacked<std::string_view, int, std::int64_t>(bytes);
    const DNSRecordType type = recordType(code);
    try {
        const DNSAnswer answer = m_resolver->lookup(name, type, {m_stop, receivedTime(deadline), &m_asker});
        return packed(sentAnswer(answer, m_resolver->source(name, type)));
    } catch (const DNSLookupError& error) {
        return packed(SentAnswer{.failure = error.what()});
    }
}

std::string CheckQuestions::registration(std::string_view bytes) {
    const auto [domain, deadline] = unpacked<std::string_view, std::int64_t>(bytes);
    std::optional<std::string> failure;
    std::optional<Date> date;
    try {
        if (!m_registry) throw DecodingError("no registry is asked");
        date = m_registry->registrationDate(domain, {m_stop, receivedTime(deadline)});
    } catch (const RDAPError& error) {
        failure = error.what();
    }
    return packed(failure, date);
}

void CheckQuestions::saw(std::string_view bytes) {
    const auto [name, records] = unpacked<std::string_view, std::vector<std::string_view>>(bytes);
    if (!m_answerers.keys || !m_answers) return;
    const auto answer = m_answers->dns.find(StaticResolver::key(name, DNSRecordType::txt));
    if (!answer) return;
    std::vector<std::string> seen;
    for (const std::string_view record : records) {
        if (std::ranges::find(answer->data(), record) != answer->data().end()) seen.emplace_back(record);
    }
    if (!seen.empty())
        m_answerers.keys->saw(name, seen, m_resolver->source(name, DNSRecordType::txt), answer->isValidated);
}

}  // namespace quillmark
