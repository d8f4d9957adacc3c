#include "QuillmarkKit/Lookups/RDAP.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "QuillmarkKit/Mail/IPAddress.h"
#include "QuillmarkKit/Support/Files.h"
#include "QuillmarkKit/Support/Serialization.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::size_t bootstrapLimit = 4 << 20, answerLimit = 1 << 20;  // bytes
constexpr std::chrono::hours cacheAge{7 * 24};
constexpr int mostRedirects = 3;

/// A JSON text as a value; null when it cannot be read.
JSON readJSON(std::string_view text, std::size_t limit) {
    try {
        return parsedJSON(text, limit);
    } catch (const DecodingError&) {
        return nullptr;
    }
}

/// The texts of a list; other elements are passed over.
std::vector<std::string> texts(const JSON& list) {
    std::vector<std::string> found;
    if (!list.is_array()) return found;
    for (const JSON& element : list) {
        if (element.is_string()) found.push_back(element.get<std::string>());
    }
    return found;
}

bool mayBeBase(const std::string& address) {
    return startsWithIgnoringCase(address, "https://") && address.find_first_of("@?#") == std::string::npos;
}

std::string withSlash(std::string address) {
    if (!address.ends_with('/')) address += '/';
    return address;
}

/// Nothing but names as registries know them goes into a path.
bool mayBeAsked(std::string_view domain) {
    const auto isPlain = [](char c) { return isASCIILetter(c) || isDigit(c) || c == '-' || c == '.'; };
    return std::ranges::all_of(domain, isPlain) && mayBeQueried(domain);
}

std::string noServer(std::string_view domain) {
    const std::string_view name = trimmed(domain, ".");
    return "no RDAP server for ." + std::string(name.substr(name.rfind('.') + 1)) + " in the IANA list";
}

}  // namespace

StaticRegistry::StaticRegistry(Entries entries) : m_entries(std::move(entries)) {}

std::optional<Date> StaticRegistry::registrationDate(std::string_view domain, const Patience&) {
    const auto entry = m_entries.find(asciiLowered(domain));
    if (entry == m_entries.end()) throw RDAPError("not in the test registry");
    if (const auto* failure = std::get_if<std::string>(&entry->second)) throw RDAPError(*failure);
    return std::get<std::optional<Date>>(entry->second);
}

std::optional<RDAPBootstrap> RDAPBootstrap::parse(std::string_view json) {
    const JSON document = readJSON(json, bootstrapLimit);
    if (!document.is_object() || !document.contains("services") || !document["services"].is_array()) {
        return std::nullopt;
    }
    RDAPBootstrap bootstrap;
    for (const JSON& element : document["services"]) {
        if (!element.is_array() || element.size() < 2 || !element[0].is_array() || !element[1].is_array())
            continue;
        Service service{texts(element[0]), texts(element[1])};
        for (std::string& domain : service.domains) domain = unicodeLowered(domain);
        std::erase_if(service.bases, [](const std::string& base) { return !mayBeBase(base); });
        bootstrap.services.push_back(std::move(service));
    }
    return bootstrap;
}

std::optional<std::string> RDAPBootstrap::base(std::string_view domain) const {
    std::string_view suffix = trimmed(domain, ".");
    while (suffix.find('.') != std::string_view::npos) {
        takePiece(suffix, '.');
        for (const Service& service : services) {
            if (!service.bases.empty() && std::ranges::count(service.domains, suffix) > 0) {
                return withSlash(service.bases.front());
            }
        }
    }
    return std::nullopt;
}

std::optional<Date> registrationDate(std::string_view json) {
    const JSON document = readJSON(json, answerLimit);
    if (!document.is_object() || !document.contains("events") || !document["events"].is_array())
        return std::nullopt;
    for (const JSON& event : document["events"]) {
        if (!event.is_object()) continue;
        const auto action = event.find("eventAction");
        if (action == event.end() || !action->is_string()) continue;
        if (!equalsIgnoringCase(action->get<std::string>(), "registration")) continue;
        const auto date = event.find("eventDate");
        return date != event.end() && date->is_string() ? parsedRFC3339(date->get<std::string>())
                                                        : std::nullopt;
    }
    return std::nullopt;
}

RDAPClient::RDAPClient(std::shared_ptr<HTTP> http, RDAPOptions options)
    : m_http(std::move(http)), m_options(std::move(options)) {}

HTTPResponse RDAPClient::get(std::string url, std::size_t bodyLimit, const Patience& patience) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(patience.deadline - Patience::Clock::now());
    if (left <= left.zero()) throw HTTPError(HTTPFailure::timedOut);
    HTTPRequest request{.url = std::move(url),
                        .headers = {"Accept: application/rdap+json, application/json"},
                        .timeOut = std::min(m_options.timeOut, left),
                        .bodyLimit = bodyLimit};
    request.redirects.most = mostRedirects;
    request.redirects.mayReach = [](std::string_view address) {
        const auto parsed = IPAddress::parse(address);
        return parsed && parsed->isPublic();
    };
    return m_http->get(request, patience.stop);
}

std::optional<std::filesystem::path> RDAPClient::cacheFile() {
    if (!m_options.cacheDirectory) return std::nullopt;
    auto file = *m_options.cacheDirectory / "rdap-dns.json";
    std::error_code error;
    const auto status = std::filesystem::status(file, error);
    if (!std::filesystem::exists(status) || std::filesystem::is_regular_file(status)) return file;
    std::call_once(m_ignored, [&] {
        if (m_options.ignored) m_options.ignored(file);
    });
    return std::nullopt;
}

RDAPClient::Table RDAPClient::cachedTable(const std::filesystem::path& file) const {
    std::error_code error;
    const auto written = std::filesystem::last_write_time(file, error);
    if (error) return std::nullopt;
    const auto age = m_options.clock() - written;
    if (age < age.zero() || age >= cacheAge) return std::nullopt;  // one from the future would never grow old
    const auto json = fileContents(file, bootstrapLimit);
    return json ? RDAPBootstrap::parse(*json) : std::nullopt;
}

Once<RDAPClient::Table>::Made RDAPClient::makeTable(const Patience& patience) {
    using For = Once<Table>::For;
    const auto file = cacheFile();
    if (auto cached = file ? cachedTable(*file) : std::nullopt) return {std::move(cached)};
    Once<Table>::Made unreadable{{}, For::thoseWhoWait};
    HTTPResponse response;
    try {
        response = get(m_options.bootstrapURL, bootstrapLimit, patience);
    } catch (const HTTPError&) {
        return patience.end() ? Once<Table>::Made{{}, For::maker} : unreadable;
    }
    auto parsed = response.status == 200 ? RDAPBootstrap::parse(response.body) : std::nullopt;
    if (!parsed) return unreadable;
    if (file) {
        try {
            replaceFile(*file, response.body);
        } catch (const std::filesystem::filesystem_error&) {  // NOLINT(bugprone-empty-catch)
            // The list is at hand; the next run fetches it again.
        }
    }
    return {std::move(parsed)};
}

Once<RDAPClient::Answer>::Made RDAPClient::makeAnswer(const std::string& domain, const Patience& patience) {
    const auto failed = [&](std::string why) -> Once<Answer>::Made {
        using For = Once<Answer>::For;
        return {{.failure = std::move(why)}, patience.end() ? For::maker : For::thoseWhoWait};
    };
    const auto table =
        m_tables.get({}, patience.stop, patience.deadline, [&] { return makeTable(patience); });
    if (!table || !*table) return failed("the IANA RDAP list couldn't be read");
    const auto base = (*table)->base(domain);
    if (!base) return failed(noServer(domain));
    try {
        const HTTPResponse response = get(*base + "domain/" + domain, answerLimit, patience);
        if (response.status != 200)
            return failed("the registry answered HTTP " + std::to_string(response.status));
        return {{.date = quillmark::registrationDate(response.body), .base = *base}};
    } catch (const HTTPError& error) {
        return failed(error.what());
    }
}

std::optional<Date> RDAPClient::registrationDate(std::string_view domain, const Patience& patience) {
    const std::string name = unicodeLowered(domain);
    if (const auto why = whyNotAsked(name)) throw RDAPError(*why);
    const auto answer =
        m_answers.get(name, patience.stop, patience.deadline, [&] { return makeAnswer(name, patience); });
    if (!answer || (answer->failure && patience.end())) throw RDAPError(patience.end().value_or("stopped"));
    if (answer->failure) throw RDAPError(*answer->failure);
    return answer->date;
}

std::optional<std::string> RDAPClient::whyNotAsked(std::string_view domain) {
    return mayBeAsked(domain) ? std::nullopt : std::optional(noServer(domain));
}

std::string RDAPClient::source(std::string_view domain) {
    const auto answer = m_answers.kept(unicodeLowered(domain));
    return answer ? answer->base : std::string();
}

}  // namespace quillmark
