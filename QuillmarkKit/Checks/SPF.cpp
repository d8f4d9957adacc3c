#include "QuillmarkKit/Checks/SPF.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <set>
#include <utility>
#include <vector>

#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

using Outcome = SPFEvaluator::Outcome;
using Decision = std::optional<Outcome>;  // nothing: the term did not match, the next one is looked at

constexpr int deepestRecord = 11;
constexpr int mostLookups = 10;
constexpr int mostVoidLookups = 2;
constexpr std::size_t mostMXHosts = 10;
// In bytes, of a domain before and after its macros are replaced, and of a macro's value before it is cut:
// longer than any name, and short enough that a record full of macros stays cheap.
constexpr std::size_t longestExpansion = 4096;

Outcome permerror(std::string detail) {
    return {SPFResult::permerror, std::nullopt, std::move(detail), std::nullopt};
}

/// No organization has as many addresses as fit so few bits.
bool isAlmostAny(const IPAddress& address, int prefixLength) {
    return prefixLength < (address.isIPv4() ? 8 : 16);
}

/// One mechanism of a record: [qualifier] name [argument]. A view of the record.
struct Mechanism {
    std::string_view term;  ///< as written
    SPFResult qualifier = SPFResult::pass;
    std::string name;           ///< lower-case
    std::string_view argument;  ///< from the ":" or "/" on

    /// `written` is not empty.
    explicit Mechanism(std::string_view written) : term(written) {
        constexpr std::pair<char, SPFResult> qualifiers[] = {{'+', SPFResult::pass},
                                                             {'-', SPFResult::fail},
                                                             {'~', SPFResult::softfail},
                                                             {'?', SPFResult::neutral}};
        for (const auto& [character, result] : qualifiers) {
            if (term.front() != character) continue;
            qualifier = result;
            written.remove_prefix(1);
        }
        name = asciiLowered(written.substr(0, written.find_first_of(":/")));
        argument = written.substr(name.size());
    }

    Outcome match(const std::string& domain, bool fitsAlmostAny = false) const {
        std::string matched = std::string(term) + " in " + domain;
        return {qualifier, matched, std::nullopt, SPFEvaluator::Decider{matched, fitsAlmostAny}};
    }
    Outcome bad() const { return permerror("bad " + std::string(term)); }
};

std::optional<int> parsedPrefixLength(std::string_view digits, int longest) {
    const auto length = decimal(digits);
    if (!length || *length > longest) return std::nullopt;
    return static_cast<int>(*length);
}

/// How much of an address counts: ["/" IPv4 length] ["//" IPv6 length]
struct PrefixLengths {
    int ipv4 = 32, ipv6 = 128;

    static std::optional<PrefixLengths> parse(std::string_view text) {
        PrefixLengths lengths;
        if (text.starts_with('/') && !text.starts_with("//")) {
            const auto end = std::min(text.find("//"), text.size());
            const auto length = parsedPrefixLength(text.substr(1, end - 1), lengths.ipv4);
            if (!length) return std::nullopt;
            lengths.ipv4 = *length;
            text.remove_prefix(end);
        }
        if (text.empty()) return lengths;
        if (!text.starts_with("//")) return std::nullopt;
        const auto length = parsedPrefixLength(text.substr(2), lengths.ipv6);
        if (!length) return std::nullopt;
        lengths.ipv6 = *length;
        return lengths;
    }
};

/// The pieces of `text` between the characters of `delimiters`, empty ones included.
std::vector<std::string_view> split(std::string_view text, std::string_view delimiters) {
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t position = text.size() - rest.size();
        takeScalar(rest);
        const std::size_t end = text.size() - rest.size();
        if (delimiters.find(text.substr(position, end - position)) == std::string_view::npos) continue;
        pieces.push_back(text.substr(start, position - start));
        start = end;
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

/// What stands behind a macro's letter (RFC 7208, section 7.3): [digits] ["r"] [delimiters]
std::string transformed(std::string_view value, std::string_view transformers) {
    const auto digitCount = std::min(transformers.find_first_not_of("0123456789"), transformers.size());
    const std::string_view digits = transformers.substr(0, digitCount);
    transformers.remove_prefix(digitCount);
    const bool reversed = startsWithIgnoringCase(transformers, "r");
    if (reversed) transformers.remove_prefix(1);

    auto parts = split(value, transformers.empty() ? "." : transformers);
    if (reversed) std::ranges::reverse(parts);
    const auto count = static_cast<std::int64_t>(parts.size());
    const auto kept = digits.empty() ? 0 : decimal(digits).value_or(count);  // too large to read keeps all
    const auto first = kept > 0 && kept < count ? count - kept : 0;
    std::string text;
    for (auto part = parts.begin() + first; part != parts.end(); ++part) {
        if (part != parts.begin() + first) text += '.';
        text += *part;
    }
    return text;
}

/// One message's evaluation: what stays the same whichever record is read, and the limits.
class Evaluation {
public:
    Evaluation(DNSResolver& resolver, const IPAddress& address, std::string_view sender,
               std::string_view helo, std::stop_token stop)
        : m_resolver(resolver), m_address(address), m_sender(sender), m_helo(helo), m_stop(std::move(stop)) {
        std::string_view rest = sender;
        // cppcheck-suppress useInitializationList; it takes from a local variable
        m_localPart = takeWord(rest, "@");
        for (auto piece = m_localPart; !piece.empty(); piece = takeWord(rest, "@")) m_senderDomain = piece;
    }

    /// Reads the record of a lower-case domain. Throws DNSLookupError, which ends the whole evaluation.
    Outcome check(const std::string& domain, int depth);

private:
    Outcome walk(std::string_view record, const std::string& domain, int depth);
    Decision decide(const Mechanism& mechanism, const std::string& domain, int depth);
    Decision decideNetwork(const Mechanism& mechanism, const std::string& domain) const;
    Decision decideHosts(const Mechanism& mechanism, const std::string& domain);
    Decision decideInclude(const Mechanism& mechanism, const std::string& domain, int depth);
    Decision decideExists(const Mechanism& mechanism, const std::string& domain);
    Outcome redirect(std::string_view target, const std::string& domain, int depth);

    Decision countLookup() {
        if (++m_lookups <= mostLookups) return std::nullopt;
        return permerror("more than 10 DNS lookups");
    }
    Decision countVoidLookup() {
        if (++m_voids <= mostVoidLookups) return std::nullopt;
        return permerror("more than 2 empty lookups");
    }
    DNSAnswer lookup(const std::string& name, DNSRecordType type) {
        if (m_unanswerable.contains(name)) return DNSAnswer::nxdomain();
        return m_resolver.lookup(name, type, {m_stop});
    }

    std::optional<std::string> expanded(std::string_view text, const std::string& domain);
    std::optional<std::string> expandedMacro(std::string_view macro, const std::string& domain) const;

    DNSResolver& m_resolver;
    const IPAddress m_address;
    const std::string_view m_sender, m_helo;
    std::string_view m_localPart, m_senderDomain;  // the first and the last piece of the sender between "@"
    const std::stop_token m_stop;
    int m_lookups = 0;  // terms that cost a lookup, included and redirected records counted in
    int m_voids = 0;    // lookups that came back empty
    /// Names that hold the local part of an international address, which is no label of DNS: they match
    /// nothing (RFC 8616, section 4).
    std::set<std::string, std::less<>> m_unanswerable = {};
};

bool isRecord(std::string_view text) {
    constexpr std::string_view version = "v=spf1";
    return startsWithIgnoringCase(text, version) &&
           (text.size() == version.size() || text[version.size()] == ' ');
}

Outcome Evaluation::check(const std::string& domain, int depth) {
    if (depth > deepestRecord) return permerror("include loop");
    const DNSAnswer answer = lookup(domain, DNSRecordType::txt);
    const auto texts = answer.data();
    const auto count = std::ranges::count_if(texts, isRecord);
    if (count == 0) return {SPFResult::none, std::nullopt, domain + " publishes no SPF record", std::nullopt};
    if (count > 1) return permerror(domain + " publishes " + std::to_string(count) + " SPF records");
    return walk(*std::ranges::find_if(texts, isRecord), domain, depth);
}

Outcome Evaluation::walk(std::string_view record, const std::string& domain, int depth) {
    std::optional<std::string_view> redirectTarget;
    takeWord(record, " ");  // the version
    for (auto term = takeWord(record, " "); !term.empty(); term = takeWord(record, " ")) {
        const auto equals = term.find('=');
        if (equals != std::string_view::npos && term.find(':') > equals) {  // a modifier
            if (equalsIgnoringCase(term.substr(0, equals), "redirect"))
                redirectTarget = term.substr(equals + 1);
            continue;
        }
        if (auto decision = decide(Mechanism(term), domain, depth)) return *std::move(decision);
    }
    if (redirectTarget) return redirect(*redirectTarget, domain, depth);
    return {SPFResult::neutral, std::nullopt, "nothing in " + domain + "'s record matched", std::nullopt};
}

Decision Evaluation::decide(const Mechanism& mechanism, const std::string& domain, int depth) {
    const std::string& name = mechanism.name;
    if (name == "all") return mechanism.match(domain, true);
    if (name == "ip4" || name == "ip6") return decideNetwork(mechanism, domain);
    if (name == "a" || name == "mx") return decideHosts(mechanism, domain);
    if (name == "include") return decideInclude(mechanism, domain, depth);
    if (name == "exists") return decideExists(mechanism, domain);
    if (name == "ptr") {
        ++m_lookups;  // a later term meets the limit
        return std::nullopt;
    }
    return permerror("unknown mechanism " + std::string(mechanism.term));
}

Decision Evaluation::decideNetwork(const Mechanism& mechanism, const std::string& domain) const {
    std::string_view argument = mechanism.argument;
    if (!argument.starts_with(':')) return mechanism.bad();
    argument.remove_prefix(1);
    const auto slash = argument.find('/');
    const auto network = IPAddress::parse(argument.substr(0, slash));
    if (!network || network->isIPv4() != (mechanism.name == "ip4")) return mechanism.bad();
    int length = network->isIPv4() ? 32 : 128;
    if (slash != std::string_view::npos) {
        const auto given = parsedPrefixLength(argument.substr(slash + 1), length);
        if (!given) return mechanism.bad();
        length = *given;
    }
    if (!m_address.matches(*network, length)) return std::nullopt;
    return mechanism.match(domain, isAlmostAny(m_address, length));
}

/// `a` and `mx`: whether one of the hosts has the address.
Decision Evaluation::decideHosts(const Mechanism& mechanism, const std::string& domain) {
    std::string_view argument = mechanism.argument;
    std::optional<std::string> target = domain;
    if (argument.starts_with(':')) {
        const auto end = std::min(argument.find('/'), argument.size());
        target = expanded(argument.substr(1, end - 1), domain);
        argument.remove_prefix(end);
    }
    const auto lengths = PrefixLengths::parse(argument);
    if (!target || !lengths) return mechanism.bad();
    if (auto limit = countLookup()) return limit;

    const bool isMX = mechanism.name == "mx";
    std::vector<std::string> hosts;
    if (isMX) {
        const DNSAnswer answer = lookup(*target, DNSRecordType::mx);
        for (std::string_view rest : answer.data()) {
            std::string_view host;
            for (auto word = takeWord(rest, " "); !word.empty(); word = takeWord(rest, " ")) host = word;
            if (!host.empty()) hosts.push_back(asciiLowered(trimmed(host, ".")));
        }
        if (hosts.empty()) return countVoidLookup();
        if (hosts.size() > mostMXHosts) return permerror("more than 10 MX hosts");
    } else {
        hosts.push_back(*target);
    }
    const int length = m_address.isIPv4() ? lengths->ipv4 : lengths->ipv6;
    for (const std::string& host : hosts) {
        const DNSAnswer answer = lookup(host, m_address.isIPv4() ? DNSRecordType::a : DNSRecordType::aaaa);
        for (const std::string& text : answer.data()) {
            const auto address = IPAddress::parse(text);
            if (address && m_address.matches(*address, length))
                return mechanism.match(domain, isAlmostAny(m_address, length));
        }
        if (!isMX && answer.data().empty()) return countVoidLookup();
    }
    return std::nullopt;
}

Decision Evaluation::decideInclude(const Mechanism& mechanism, const std::string& domain, int depth) {
    if (!mechanism.argument.starts_with(':')) return mechanism.bad();
    const auto target = expanded(mechanism.argument.substr(1), domain);
    if (!target) return mechanism.bad();
    if (auto limit = countLookup()) return limit;
    Outcome nested = check(*target, depth + 1);
    switch (nested.result) {
        case SPFResult::pass: {
            Outcome outcome = mechanism.match(domain);
            outcome.decider = std::move(nested.decider);
            return outcome;
        }
        case SPFResult::fail:
        case SPFResult::softfail:
        case SPFResult::neutral:
            return std::nullopt;
        case SPFResult::none:
            return permerror(*nested.detail);
        case SPFResult::permerror:
        case SPFResult::temperror:
            break;
    }
    return nested;
}

Decision Evaluation::decideExists(const Mechanism& mechanism, const std::string& domain) {
    if (!mechanism.argument.starts_with(':')) return mechanism.bad();
    const auto target = expanded(mechanism.argument.substr(1), domain);
    if (!target) return mechanism.bad();
    if (auto limit = countLookup()) return limit;
    if (lookup(*target, DNSRecordType::a).data().empty()) return countVoidLookup();
    // A name without the server's address in it exists for every server.
    const bool asksForServer = asciiLowered(mechanism.argument).find("%{i") != std::string::npos;
    return mechanism.match(domain, !asksForServer);
}

Outcome Evaluation::redirect(std::string_view text, const std::string& domain, int depth) {
    const auto target = expanded(text, domain);
    if (!target) return permerror("bad redirect");
    if (auto limit = countLookup()) return *std::move(limit);
    Outcome outcome = check(*target, depth + 1);
    if (outcome.result == SPFResult::none) return permerror("redirect=" + *target + " has no SPF record");
    return outcome;
}

/// A domain with its macros replaced (RFC 7208, section 7.1), lower-cased and without "." at both ends.
/// Nothing when a macro is not valid, or the result is empty or too long.
std::optional<std::string> Evaluation::expanded(std::string_view text, const std::string& domain) {
    if (text.size() > longestExpansion) return std::nullopt;
    std::string result;
    bool hasLocalPart = false;
    while (!text.empty()) {
        if (result.size() > longestExpansion) return std::nullopt;
        const std::string_view plain = text.substr(0, text.find('%'));
        result += plain;
        text.remove_prefix(plain.size());
        if (text.empty()) break;
        const char kind = text.size() > 1 ? text[1] : '\0';
        text.remove_prefix(std::min<std::size_t>(text.size(), 2));
        if (kind == '%') {
            result += '%';
        } else if (kind == '_') {
            result += ' ';
        } else if (kind == '-') {
            result += "%20";
        } else {
            const auto end = text.find('}');
            if (kind != '{' || end == std::string_view::npos) return std::nullopt;
            const auto value = expandedMacro(text.substr(0, end), domain);
            if (!value) return std::nullopt;
            hasLocalPart =
                hasLocalPart || startsWithIgnoringCase(text, "l") || startsWithIgnoringCase(text, "s");
            result += *value;
            text.remove_prefix(end + 1);
        }
    }
    const std::string_view name = trimmed(result, ".");
    if (name.empty() || result.size() > longestExpansion) return std::nullopt;
    std::string lowered = asciiLowered(name);
    if (hasLocalPart && !isASCII(m_localPart)) m_unanswerable.insert(lowered);
    return lowered;
}

/// The value of a macro, given without its "%{" and "}".
std::optional<std::string> Evaluation::expandedMacro(std::string_view macro,
                                                     const std::string& domain) const {
    if (macro.empty()) return std::nullopt;
    std::string value;
    switch (asciiLowered(macro.front())) {
        case 's':
            value = m_sender;
            break;
        case 'l':
            value = m_localPart.empty() ? "postmaster" : m_localPart;
            break;
        case 'o':
            value = m_senderDomain.empty() ? domain : m_senderDomain;
            break;
        case 'd':
            value = domain;
            break;
        case 'i':
            value = m_address.dottedNibbles();
            break;
        case 'h':
            value = m_helo;
            break;
        case 'v':
            value = m_address.isIPv4() ? "in-addr" : "ip6";
            break;
        default:
            return std::nullopt;
    }
    if (value.size() > longestExpansion) return std::nullopt;
    return transformed(value, macro.substr(1));
}

}  // namespace

Outcome SPFEvaluator::evaluate(const IPAddress& address, std::string_view domain, std::string_view sender,
                               std::optional<std::string_view> helo, std::stop_token stop) const {
    try {
        return Evaluation(resolver, address, sender, helo.value_or("unknown"), std::move(stop))
            .check(asciiLowered(domain), 0);
    } catch (const DNSLookupError& error) {
        return {SPFResult::temperror, std::nullopt, error.what(), std::nullopt};
    }
}

}  // namespace quillmark
