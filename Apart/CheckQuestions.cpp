#include "Apart/CheckQuestions.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

/// In bytes: of one answer that is kept, and of all.
constexpr std::size_t largestKept = 16'384, mostKept = 1'000'000;

DNSRecordType recordType(int code) {
    const auto type = dnsRecordType(code);
    if (!type) throw DecodingError("an unknown type of record");
    return *type;
}

}  // namespace

bool AskedNames::mayAsk(std::string_view name) {
    if (m_asked.contains(name)) return true;
    if (m_names == 0 || name.size() > m_bytes) {
        if (++m_refused > NameBounds::mostRefused) throw DecodingError("names that no message has");
        return false;
    }
    --m_names;
    m_bytes -= name.size();
    m_asked.emplace(name);
    return true;
}

bool ToldAnswers::forgets(const std::shared_ptr<DNSResolver>& resolver) {
    if (m_resolver == resolver && m_bytes < mostKept) return false;
    m_resolver = resolver;
    m_forgotten += m_answers.size();
    m_answers.clear();
    m_bytes = 0;
    return true;
}

std::optional<std::size_t> ToldAnswers::keep(Answer answer) {
    std::size_t size = sizeof answer + answer.question.size() + answer.source.size();
    for (const std::string& each : answer.answer.data()) size += sizeof(std::string) + each.size();
    if (size > largestKept || m_bytes >= mostKept) return std::nullopt;
    m_bytes += size;
    m_answers.push_back(std::move(answer));
    return m_forgotten + m_answers.size() - 1;
}

const ToldAnswers::Answer& ToldAnswers::at(std::size_t number) const {
    if (number < m_forgotten || number - m_forgotten >= m_answers.size())
        throw DecodingError("an answer that wasn't told");
    return m_answers[number - m_forgotten];
}

bool CheckQuestions::begin() {
    std::exchange(m_hasBegun, true) ? m_names.allow(NameBounds::mostAttached, NameBounds::bytesAttached)
                                    : m_names.allow(NameBounds::most, NameBounds::bytes);
    m_answers = std::make_shared<RecordedAnswers>();
    m_failures = std::make_shared<RecordedFailures>();
    m_asker = {};
    m_resolver = std::make_shared<RecordingResolver>(m_answerers.resolver, m_answers, m_failures);
    m_registry = nullptr;
    if (m_answerers.registry && m_answerers.mayAskRegistry->isOn())
        m_registry = std::make_shared<SwitchedRegistry>(
            std::make_shared<RecordingRegistry>(m_answerers.registry, m_answers, m_failures),
            m_answerers.mayAskRegistry);
    return m_told->forgets(m_answerers.resolver);
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
    // As with whoever would be asked; and nothing is taken down of a name that may be as long as a message.
    if (nameFault(name) == NameFault::unfit)
        return packed(sentAnswer(DNSAnswer::nxdomain(), {}), std::optional<std::size_t>());
    const std::string question = StaticResolver::key(name, type);
    if (!m_names.mayAsk(name)) m_failures->dns.keep(question, NameBounds::failure);
    try {
        const DNSAnswer answer = m_resolver->lookup(name, type, {m_stop, receivedTime(deadline), &m_asker});
        const std::string source = m_resolver->source(name, type);
        std::optional<std::size_t> number;
        if (m_answers->dns.find(question)) number = m_told->keep({question, answer, source});
        return packed(sentAnswer(answer, source), number);
    } catch (const DNSLookupError& error) {
        return packed(SentAnswer{.failure = error.what()}, std::optional<std::size_t>());
    }
}

std::string CheckQuestions::registration(std::string_view bytes) {
    const auto [domain, deadline] = unpacked<std::string_view, std::int64_t>(bytes);
    std::optional<std::string> failure;
    std::optional<Date> date;
    try {
        if (!m_registry) throw DecodingError("no registry is asked");
        if (!m_names.mayAsk(domain)) {
            if (nameFault(domain) == NameFault::unfit) throw RDAPError(NameBounds::failure);
            m_failures->registrations.keep(asciiLowered(domain), NameBounds::failure);
        }
        date = m_registry->registrationDate(domain, {m_stop, receivedTime(deadline)});
    } catch (const RDAPError& error) {
        failure = error.what();
    }
    return packed(failure, date);
}

void CheckQuestions::needed(std::string_view bytes) {
    const auto [number] = unpacked<std::size_t>(bytes);
    const ToldAnswers::Answer& told = m_told->at(number);
    if (m_answers) m_answers->dns.keep(told.question, told.answer, told.source);
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
