#include "QuillmarkKit/Lookups/DNS.h"

#include <algorithm>
#include <array>
#include <utility>

#include "QuillmarkKit/Mail/IPAddress.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::size_t longestName = 253, longestLabel = 63;

/// Names that no public server knows, but perhaps one of this computer's network.
constexpr std::array localDomains{"local", "internal", "lan",      "home.arpa", "corp",
                                  "home",  "mail",     "intranet", "private",   "test"};
/// Names that no DNS server knows.
constexpr std::array noDomains{"onion", "invalid", "localhost"};

/// What stands before a domain and its dot in a name of it; nothing in any other name.
std::optional<std::string_view> labelsBefore(std::string_view name, std::string_view domain) {
    if (name.size() < domain.size()) return std::nullopt;
    const auto rest = name.size() - domain.size();
    if (!equalsIgnoringCase(name.substr(rest), domain)) return std::nullopt;
    if (rest == 0) return "";
    if (name[rest - 1] != '.') return std::nullopt;
    return name.substr(0, rest - 1);
}

bool isWithin(std::string_view name, std::span<const char* const> domains) {
    return std::ranges::any_of(
        domains, [&](std::string_view domain) { return labelsBefore(name, domain).has_value(); });
}

/// An address, or the end of one: no top-level domain is a number (RFC 3696, section 2).
bool isAddress(std::string_view name) {
    const std::string_view last = name.substr(name.rfind('.') + 1);
    return name.find_first_of("[]") != std::string_view::npos || std::ranges::all_of(last, isDigit);
}

/// A name that stands for addresses (RFC 1035, section 3.5; RFC 3596, section 2.5), but not for one public
/// address: it belongs to a network, or to nobody.
bool isReverseOfNoPublicAddress(std::string_view name) {
    const auto isPublic = [](std::string_view labels, std::size_t most, std::size_t inGroup, char separator) {
        std::string address;
        std::size_t count = 0;
        for (; !labels.empty() && count < most; ++count) {
            const auto dot = labels.rfind('.');
            const std::string_view label = labels.substr(dot + 1);
            if (inGroup > 1 && label.size() != 1) return false;
            if (!std::ranges::all_of(label, [](char c) { return hexValue(c) >= 0; })) return false;
            if (count > 0 && count % inGroup == 0) address += separator;
            address += label;
            labels = labels.substr(0, dot == std::string_view::npos ? 0 : dot);
        }
        const auto parsed = IPAddress::parse(address);
        return labels.empty() && count == most && parsed && parsed->isPublic();
    };
    if (const auto labels = labelsBefore(name, "in-addr.arpa")) return !isPublic(*labels, 4, 1, '.');
    if (const auto labels = labelsBefore(name, "ip6.arpa")) return !isPublic(*labels, 32, 4, ':');
    return false;
}

/// Without its dot at the end.
std::string_view withoutRoot(std::string_view name) {
    if (name.ends_with('.')) name.remove_suffix(1);
    return name;
}

/// Whether DNS can hold a name that is ASCII, as long as it has no blanks and no control bytes.
bool fitsDNS(std::string_view name) {
    if (name.empty() || name.size() > longestName) return false;
    if (!std::ranges::all_of(name, [](char c) { return c > ' ' && c < 0x7F; })) return false;
    for (std::string_view rest = name; !rest.empty();) {
        const bool isLast = rest.find('.') == std::string_view::npos;
        const std::string_view label = takePiece(rest, '.');
        if (label.empty() || label.size() > longestLabel || (!isLast && rest.empty())) return false;
    }
    return true;
}

/// How many labels the domain itself has, of a name that `fitsDNS`.
std::size_t domainLabels(std::string_view name) {
    std::size_t labels = 0;
    for (std::string_view rest = name; !rest.empty();) {
        const std::string_view label = takePiece(rest, '.');
        const bool isFirst = label.data() == name.data();
        const bool endsPrefix =
            isFirst ? equalsIgnoringCase(label, "_dmarc") : equalsIgnoringCase(label, "_domainkey");
        labels = endsPrefix ? 0 : labels + 1;
    }
    return labels;
}

bool isNobodys(std::string_view name) { return isWithin(name, noDomains) || isAddress(name); }

bool isOfOneNetwork(std::string_view name) {
    return domainLabels(name) < 2 || isWithin(name, localDomains) || isReverseOfNoPublicAddress(name);
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

std::optional<std::string> Patience::end() const {
    if (stop.stop_requested()) return "stopped";
    if (Clock::now() >= deadline) return "the check took too long";
    return std::nullopt;
}

std::string StaticResolver::key(std::string_view name, DNSRecordType type) {
    return asciiLowered(name) + "|" + std::string(mnemonic(type));
}

StaticResolver::StaticResolver(Answers answers, std::set<std::string, std::less<>> failing, Texts errors,
                               std::optional<std::string> missing, Texts sources)
    : m_answers(std::move(answers)),
      m_failing(std::move(failing)),
      m_errors(std::move(errors)),
      m_missing(std::move(missing)),
      m_sources(std::move(sources)) {}

DNSAnswer StaticResolver::lookup(std::string_view name, DNSRecordType type, const Patience&) {
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

bool StaticResolver::mayKnow(std::string_view name, DNSRecordType type) {
    const std::string question = key(name, type);
    return m_answers.contains(question) || m_errors.contains(question) ||
           m_failing.contains(std::string_view(question).substr(0, name.size()));
}

std::string StaticResolver::source(std::string_view name, DNSRecordType type) {
    if (m_sources.empty()) return {};
    const auto found = m_sources.find(key(name, type));
    return found != m_sources.end() ? found->second : std::string();
}

std::optional<NameFault> nameFault(std::string_view name) {
    const auto ascii = asciiDomain(withoutRoot(name));
    if (!ascii || !fitsDNS(*ascii)) return NameFault::unfit;
    return isNobodys(*ascii) || isOfOneNetwork(*ascii) ? std::optional(NameFault::nobodys) : std::nullopt;
}

bool mayBeQueried(std::string_view name, Network network) {
    name = withoutRoot(name);
    return fitsDNS(name) && !isNobodys(name) && (network == Network::own || !isOfOneNetwork(name));
}

DNSAnswer InternationalResolver::lookup(std::string_view name, DNSRecordType type, const Patience& patience) {
    const auto ascii = asciiDomain(name);
    return ascii ? m_resolver.lookup(*ascii, type, patience) : DNSAnswer::nxdomain();
}

bool InternationalResolver::mayKnow(std::string_view name, DNSRecordType type) {
    const auto ascii = asciiDomain(name);
    return !ascii || m_resolver.mayKnow(*ascii, type);
}

std::string InternationalResolver::source(std::string_view name, DNSRecordType type) {
    const auto ascii = asciiDomain(name);
    return ascii ? m_resolver.source(*ascii, type) : std::string();
}

}  // namespace quillmark
