#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "QuillmarkKit/Support/Fields.h"

namespace quillmark {

/// The record types that a check asks for, by their DNS type code (RFC 1035, RFC 3596).
enum class DNSRecordType : int { a = 1, mx = 15, txt = 16, aaaa = 28 };

/// The type of a code; nothing for a code that is none of the four.
std::optional<DNSRecordType> dnsRecordType(int code);
/// "A", "MX", "TXT" or "AAAA".
std::string_view mnemonic(DNSRecordType type);

/// What a resolver answered.
struct DNSAnswer {
    /// The data of every record of the asked type, in the order they came: TXT unquoted and joined, MX as
    /// "10 mx.example.org.".
    struct Records {
        std::vector<std::string> data = {};
        bool operator==(const Records&) const = default;
    };
    /// The name exists but has no record of the asked type.
    struct NoData : Unit {};
    /// The name does not exist.
    struct NXDomain : Unit {};
    std::variant<Records, NoData, NXDomain> value = NoData{};
    bool isValidated = false;  ///< the service said that it validated the answer (DNSSEC, its AD flag)
    /// Compares what was answered alone.
    bool operator==(const DNSAnswer& other) const { return value == other.value; }

    static DNSAnswer records(std::vector<std::string> data) { return {Records{std::move(data)}}; }
    static DNSAnswer noData() { return {NoData{}}; }
    static DNSAnswer nxdomain() { return {NXDomain{}}; }

    /// The records' data; empty for the two other answers. Valid while the answer lives.
    std::span<const std::string> data() const;
};

/// Why no answer could be had, in plain words; the only error a resolver throws.
class DNSLookupError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A failure while a service wasn't asked because it gave no answers lately: soon the question may be
/// answered.
class DNSServiceRests : public DNSLookupError {
public:
    using DNSLookupError::DNSLookupError;
};

/// What a resolver remembers for the questions of one message, of which one is asked at a time: services by
/// their host.
struct DNSAsker {
    std::set<std::string, std::less<>> failed = {};  ///< gave no reply to one of its questions
    std::set<std::string, std::less<>> slow = {};    ///< kept one of its questions waiting: not asked again
};

/// How long somebody waits for an answer, and for whom.
struct Patience {
    using Clock = std::chrono::steady_clock;

    std::stop_token stop = {};
    Clock::time_point deadline = Clock::time_point::max();
    DNSAsker* asker = nullptr;  ///< lives longer than the lookup; without one a question stands alone

    /// Why nothing is waited for any more, if nothing is: "stopped" or "the check took too long".
    std::optional<std::string> end() const;
};

/// Where DNS facts come from.
class DNSResolver {
public:
    DNSResolver() = default;
    DNSResolver(const DNSResolver&) = delete;
    DNSResolver& operator=(const DNSResolver&) = delete;
    virtual ~DNSResolver() = default;

    /// Asks for the records of one type of a name without a trailing dot; case does not matter. Blocks until
    /// there is an answer. Throws `DNSLookupError`; when the patience ends, too, unless nobody has to be
    /// waited for. Safe from many threads at once.
    virtual DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) = 0;

    /// Whether anything is known of a question, or may be had: fixed answers hold only what they list, and
    /// that a name isn't among them does not say that it doesn't exist.
    virtual bool mayKnow(std::string_view, DNSRecordType) { return true; }

    /// Who answered a question that was answered before, such as the host name of a service; empty when that
    /// is not known.
    virtual std::string source(std::string_view, DNSRecordType) { return {}; }
};

/// Why nobody is asked for a name.
enum class NameFault {
    unfit,   ///< DNS cannot hold it (RFC 1035, section 2.3.4), not in its A-label form either
    nobodys  ///< it means something on one machine or network only, if anything: see `mayBeQueried`
};
/// What is wrong with a name, international or not; nothing when it can be asked for as `asciiDomain`.
std::optional<NameFault> nameFault(std::string_view name);

/// Whether a name may leave the machine at all: 1 to 253 bytes (and perhaps a dot at the end) of printable
/// ASCII in labels of 1 to 63 bytes, at least two of them once a leading "_dmarc" or
/// "<selector>._domainkey" is taken off. None of those that mean something on this machine or network only
/// (RFC 6761, RFC 7686: ".local", ".onion" and the like), no address, and of the names that stand for
/// addresses none but the whole ones of public addresses.
///
/// With `Network::own`, whether this computer's own DNS servers may be asked for it: those that mean
/// something on its network may, too, but for addresses and names that nobody owns anywhere.
enum class Network { everybodys, own };
bool mayBeQueried(std::string_view name, Network network = Network::everybodys);

/// Asks for international names in the form that DNS has for them. Those without one do not exist, and nobody
/// is asked. Stands in front of another resolver, which must outlive it.
class InternationalResolver : public DNSResolver {
public:
    explicit InternationalResolver(DNSResolver& resolver) : m_resolver(resolver) {}
    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) override;
    bool mayKnow(std::string_view name, DNSRecordType type) override;
    std::string source(std::string_view name, DNSRecordType type) override;

private:
    DNSResolver& m_resolver;
};

/// Fixed answers, for tests and for checks without a network.
class StaticResolver : public DNSResolver {
public:
    /// Keys are a lower-case name, "|" and a mnemonic: "example.org|TXT".
    using Answers = std::map<std::string, DNSAnswer, std::less<>>;
    using Texts = std::map<std::string, std::string, std::less<>>;
    static std::string key(std::string_view name, DNSRecordType type);

    /// `failing`: lower-case names whose every lookup fails with "no resolver answered". `errors`: keys like
    /// those of `answers` whose lookup fails with the given message. `missing`: the message of every lookup
    /// that the tables do not hold; without it they count as complete. `sources`: who gave the answers, as
    /// far as that is known, by the same keys.
    explicit StaticResolver(Answers answers, std::set<std::string, std::less<>> failing = {},
                            Texts errors = {}, std::optional<std::string> missing = {}, Texts sources = {});

    /// What the table holds; else no data when it holds another type of that name, else no such domain. With
    /// `missing`, only a name that `mayBeQueried` refuses does not exist though the table doesn't say so.
    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) override;
    bool mayKnow(std::string_view name, DNSRecordType type) override;
    std::string source(std::string_view name, DNSRecordType type) override;

private:
    const Answers m_answers;
    const std::set<std::string, std::less<>> m_failing;
    const Texts m_errors;
    const std::optional<std::string> m_missing;
    const Texts m_sources;
};

}  // namespace quillmark
