#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/HTTP.h"
#include "QuillmarkKit/Support/Once.h"

namespace quillmark {

/// Why a registration date could not be had, in plain words.
class RDAPError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Where the registration dates of domains come from.
class RegistrationLookup {
public:
    RegistrationLookup() = default;
    RegistrationLookup(const RegistrationLookup&) = delete;
    RegistrationLookup& operator=(const RegistrationLookup&) = delete;
    virtual ~RegistrationLookup() = default;

    /// When a domain was registered; nothing when its registry publishes no date. Blocks. Throws `RDAPError`;
    /// when the patience ends, too. Safe from many threads at once.
    virtual std::optional<Date> registrationDate(std::string_view domain, const Patience& patience = {}) = 0;

    /// Who answered for a domain that was answered for before, such as the address of a service; empty when
    /// that is not known.
    virtual std::string source(std::string_view) { return {}; }
};

/// Fixed dates, for tests and for checks without a network.
class StaticRegistry : public RegistrationLookup {
public:
    /// No date: the registry publishes none. Text: the lookup fails with it.
    using Entry = std::variant<std::optional<Date>, std::string>;
    /// Keys are lower-case domains.
    using Entries = std::map<std::string, Entry, std::less<>>;

    explicit StaticRegistry(Entries entries);
    /// Throws "not in the test registry" for any other domain.
    std::optional<Date> registrationDate(std::string_view domain, const Patience& patience = {}) override;

private:
    const Entries m_entries;
};

/// Which registry answers for which domains (RFC 9224): the services of IANA's list, in its order.
struct RDAPBootstrap {
    struct Service {
        std::vector<std::string> domains = {};  ///< "com", "co.uk": lower-case
        std::vector<std::string> bases = {};    ///< https addresses that end in "/"
    };
    std::vector<Service> services = {};

    /// From the published JSON. Elements of another shape are passed over; so are addresses that are not
    /// https or hold "@", "?" or "#". Nothing when it is no such list.
    static std::optional<RDAPBootstrap> parse(std::string_view json);
    /// The base address for a lower-case domain, by its longest proper suffix in the list.
    std::optional<std::string> base(std::string_view domain) const;
};

/// The registration date in a registry's answer about a domain (RFC 9083, section 4.5); nothing when there is
/// none.
std::optional<Date> registrationDate(std::string_view json);

struct RDAPOptions {
    /// Where IANA's list is kept for seven days ("rdap-dns.json"); without it the list is fetched each time.
    std::optional<std::filesystem::path> cacheDirectory = {};
    std::string bootstrapURL = "https://data.iana.org/rdap/dns.json";
    std::chrono::milliseconds timeOut{10'000};  ///< of one request, its redirects included
    std::function<std::filesystem::file_time_type()> clock = std::filesystem::file_time_type::clock::now;
    /// Is told once when what lies in the list's place is no ordinary file; it is neither read nor replaced.
    std::function<void(const std::filesystem::path&)> ignored = {};
};

/// Asks the registries over HTTPS. Dates are remembered as long as it lives, failures are not; however many
/// callers ask for the same domain at once, one request is made.
class RDAPClient : public RegistrationLookup {
public:
    explicit RDAPClient(std::shared_ptr<HTTP> http, RDAPOptions options = {});

    std::optional<Date> registrationDate(std::string_view domain, const Patience& patience = {}) override;
    /// The base address of the registry's service.
    std::string source(std::string_view domain) override;

    /// Why nobody is asked for this name in lower case, which no registry can know; nothing when somebody is.
    static std::optional<std::string> whyNotAsked(std::string_view domain);

private:
    struct Answer {
        std::optional<Date> date = {};
        std::string base = {};
        std::optional<std::string> failure = {};  // in place of both
    };
    using Table = std::optional<RDAPBootstrap>;  // nothing when it can't be read

    Once<Table>::Made makeTable(const Patience& patience);
    /// Nothing when there is none, or it is no ordinary file.
    std::optional<std::filesystem::path> cacheFile();
    Table cachedTable(const std::filesystem::path& file) const;
    Once<Answer>::Made makeAnswer(const std::string& domain, const Patience& patience);
    HTTPResponse get(std::string url, std::size_t bodyLimit, const Patience& patience);

    const std::shared_ptr<HTTP> m_http;
    const RDAPOptions m_options;
    Once<Table> m_tables;  // one, under no name
    Once<Answer> m_answers;
    std::once_flag m_ignored = {};
};

}  // namespace quillmark
