#include "QuillmarkKit/DNS.h"

#include <algorithm>
#include <array>
#include <utility>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::size_t longestName = 253, longestLabel = 63;

/// Names that no public server knows.
constexpr std::array localDomains{"local", "internal", "lan",     "home.arpa",
                                  "onion", "test",     "invalid", "localhost"};

bool isLocal(std::string_view name) {
    return std::ranges::any_of(localDomains, [&](std::string_view domain) {
        if (name.size() < domain.size()) return false;
        const auto rest = name.size() - domain.size();
        return equalsIgnoringCase(name.substr(rest), domain) && (rest == 0 || name[rest - 1] == '.');
    });
}

}  // namespace

std::optional<DNSRecordType> dnsRecordType(int code) {
    for (const auto type : {DNSRecordType::a, DNSRecordType::mx, DNSRecordType::txt, DNSRecordType::aaaa}) {
        if (static_cast<int>(type) == code) return type;
    }
    return std::nullopt;
}

std::string_view mnemonic(DNSRecordType type) {
    switch (type) {
        case DNSRecordType::a:
            return "A";
        case DNSRecordType::mx:
            return "MX";
        case DNSRecordType::txt:
            return "TXT";
        case DNSRecordType::aaaa:
            break;
    }
    return "AAAA";
}

std::span<const std::string> DNSAnswer::data() const {
    const auto* records = std::get_if<Records>(&value);
    return records ? std::span<const std::string>(records->data) : std::span<const std::string>();
}

std::string StaticResolver::key(std::string_view name, DNSRecordType type) {
    return asciiLowered(name) + "|" + std::string(mnemonic(type));
}

StaticResolver::StaticResolver(Answers answers, std::set<std::string, std::less<>> failing,
                               std::map<std::string, std::string, std::less<>> errors,
                               std::optional<std::string> missing)
    : m_answers(std::move(answers)),
      m_failing(std::move(failing)),
      m_errors(std::move(errors)),
      m_missing(std::move(missing)) {}

DNSAnswer StaticResolver::lookup(std::string_view name, DNSRecordType type, std::stop_token) {
    std::string question = key(name, type);
    if (m_failing.contains(std::string_view(question).substr(0, name.size())))
        throw DNSLookupError("no resolver answered");
    if (const auto error = m_errors.find(question); error != m_errors.end())
        throw DNSLookupError(error->second);
    if (const auto answer = m_answers.find(question); answer != m_answers.end()) return answer->second;
    if (m_missing && mayBeQueried(name)) throw DNSLookupError(*m_missing);
    question.resize(name.size() + 1);  // without the type
    const auto next = m_answers.lower_bound(question);
    const bool hasOtherType = next != m_answers.end() && next->first.starts_with(question);
    return hasOtherType ? DNSAnswer::noData() : DNSAnswer::nxdomain();
}

bool mayBeQueried(std::string_view name) {
    if (name.ends_with('.')) name.remove_suffix(1);
    if (name.empty() || name.size() > longestName || isLocal(name)) return false;
    if (!std::ranges::all_of(name, [](char c) { return c > ' ' && c < 0x7F; })) return false;
    std::size_t labels = 0;  // of the domain itself, so far
    for (std::string_view rest = name; !rest.empty();) {
        const bool isLast = rest.find('.') == std::string_view::npos;
        const std::string_view label = takePiece(rest, '.');
        if (label.empty() || label.size() > longestLabel || (!isLast && rest.empty())) return false;
        const bool isFirst = label.data() == name.data();
        const bool endsPrefix =
            isFirst ? equalsIgnoringCase(label, "_dmarc") : equalsIgnoringCase(label, "_domainkey");
        labels = endsPrefix ? 0 : labels + 1;
    }
    return labels >= 2;
}

DeadlineResolver::DeadlineResolver(DNSResolver& resolver, Clock::duration time)
    : m_resolver(resolver), m_time(time) {}

DNSAnswer DeadlineResolver::lookup(std::string_view name, DNSRecordType type, std::stop_token stop) {
    std::call_once(m_hasBegun, [&] { m_deadline = Clock::now() + m_time; });
    return m_resolver.lookupBefore(m_deadline, name, type, std::move(stop));
}

}  // namespace quillmark
