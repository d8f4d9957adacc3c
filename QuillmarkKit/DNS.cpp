#include "QuillmarkKit/DNS.h"

#include <utility>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

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

StaticResolver::StaticResolver(Answers answers, std::set<std::string, std::less<>> failing,
                               std::map<std::string, std::string, std::less<>> errors)
    : m_answers(std::move(answers)), m_failing(std::move(failing)), m_errors(std::move(errors)) {}

DNSAnswer StaticResolver::lookup(std::string_view name, DNSRecordType type, std::stop_token) {
    std::string key = asciiLowered(name);
    if (m_failing.contains(key)) throw DNSLookupError("no resolver answered");
    key += '|';
    const std::size_t prefix = key.size();
    key += mnemonic(type);
    if (const auto error = m_errors.find(key); error != m_errors.end()) throw DNSLookupError(error->second);
    if (const auto answer = m_answers.find(key); answer != m_answers.end()) return answer->second;
    key.resize(prefix);
    const auto next = m_answers.lower_bound(key);
    const bool hasOtherType = next != m_answers.end() && next->first.starts_with(key);
    return hasOtherType ? DNSAnswer::noData() : DNSAnswer::nxdomain();
}

}  // namespace quillmark
