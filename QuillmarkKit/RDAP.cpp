#include "QuillmarkKit/RDAP.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <utility>

#include "QuillmarkKit/DNS.h"
#include "QuillmarkKit/IPAddress.h"
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

std::optional<Date> StaticRegistry::registrationDate(std::string_view domain, std::stop_token) {
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

/// Values by name of which each is made once: who asks while one is being made waits for it, and shares its
/// failure. When the maker is stopped, or throws anything but an `RDAPError`, somebody who waits takes its
/// place.
template <typename Value>
class RDAPClient::Shared {
public:
    template <typename Make>
    Value get(const std::string& name, const std::stop_token& stop, Make make) {
        std::unique_lock lock(m_mutex);
        for (;;) {
            if (const auto known = m_known.find(name); known != m_known.end()) return known->second;
            const auto found = m_asked.find(name);
            if (found == m_asked.end()) break;
            const std::shared_ptr<Question> question = found->second;
            if (!m_settled.wait(lock, stop, [&] { return question->isSettled; })) throw RDAPError("stopped");
            if (question->failure) throw RDAPError(*question->failure);
        }
        const auto question = m_asked.emplace(name, std::make_shared<Question>()).first->second;
        lock.unlock();
        std::optional<Value> value;
        std::optional<std::string> failure;
        std::exception_ptr thrown;
        try {
            value = make();
        } catch (const RDAPError& error) {
            failure = error.what();
            thrown = std::current_exception();
        } catch (...) {
            thrown = std::current_exception();  // those who wait must not wait for ever
        }
        lock.lock();
        m_asked.erase(name);
        question->isSettled = true;
        if (value) m_known.emplace(name, *value);
        if (!stop.stop_requested()) question->failure = failure;
        m_settled.notify_all();
        if (thrown) std::rethrow_exception(thrown);
        return *value;
    }

    std::optional<Value> known(const std::string& name) {
        const std::lock_guard lock(m_mutex);
        const auto known = m_known.find(name);
        return known != m_known.end() ? std::optional(known->second) : std::nullopt;
    }

private:
    struct Question {
        bool isSettled = false;
        std::optional<std::string> failure = {};
    };
    std::mutex m_mutex = {};
    std::condition_variable_any m_settled = {};
    std::map<std::string, Value> m_known = {};
    std::map<std::string, std::shared_ptr<Question>> m_asked = {};
};

RDAPClient::RDAPClient(std::shared_ptr<HTTP> http, RDAPOptions options)
    : m_http(std::move(http)),
      m_options(std::move(options)),
      m_tables(std::make_unique<Shared<Table>>()),
      m_answers(std::make_unique<Shared<Answer>>()) {}

RDAPClient::~RDAPClient() = default;

HTTPResponse RDAPClient::get(std::string url, std::size_t bodyLimit, const std::stop_token& stop) {
    HTTPRequest request{.url = std::move(url),
                        .headers = {"Accept: application/rdap+json, application/json"},
                        .timeOut = m_options.timeOut,
                        .bodyLimit = bodyLimit};
    request.redirects.most = mostRedirects;
    request.redirects.mayReach = [](std::string_view address) {
        const auto parsed = IPAddress::parse(address);
        return parsed && parsed->isPublic();
    };
    return m_http->get(request, stop);
}

RDAPClient::Table RDAPClient::cachedTable() const {
    if (!m_options.cacheDirectory) return nullptr;
    const auto file = *m_options.cacheDirectory / "rdap-dns.json";
    std::error_code error;
    const auto written = std::filesystem::last_write_time(file, error);
    if (error) return nullptr;
    const auto age = m_options.clock() - written;
    if (age < age.zero() || age >= cacheAge) return nullptr;  // a file from the future would never grow old
    const auto json = fileContents(file, bootstrapLimit);
    auto parsed = json ? RDAPBootstrap::parse(*json) : std::nullopt;
    return parsed ? std::make_shared<const RDAPBootstrap>(std::move(*parsed)) : nullptr;
}

RDAPClient::Table RDAPClient::table(const std::stop_token& stop) {
    return m_tables->get("", stop, [&]() -> Table {
        if (auto cached = cachedTable()) return cached;
        const RDAPError unreadable("the IANA RDAP list couldn't be read");
        HTTPResponse response;
        try {
            response = get(m_options.bootstrapURL, bootstrapLimit, stop);
        } catch (const HTTPError&) {
            throw unreadable;
        }
        auto parsed = response.status == 200 ? RDAPBootstrap::parse(response.body) : std::nullopt;
        if (!parsed) throw unreadable;
        if (m_options.cacheDirectory) {
            try {
                replaceFile(*m_options.cacheDirectory / "rdap-dns.json", response.body);
            } catch (const std::filesystem::filesystem_error&) {  // NOLINT(bugprone-empty-catch)
                // The list is at hand; the next run fetches it again.
            }
        }
        return std::make_shared<const RDAPBootstrap>(std::move(*parsed));
    });
}

std::optional<Date> RDAPClient::registrationDate(std::string_view domain, std::stop_token stop) {
    const std::string name = unicodeLowered(domain);
    if (!mayBeAsked(name)) throw RDAPError(noServer(name));
    const Answer answer = m_answers->get(name, stop, [&]() -> Answer {
        const auto base = table(stop)->base(name);
        if (!base) throw RDAPError(noServer(name));
        try {
            const HTTPResponse response = get(*base + "domain/" + name, answerLimit, stop);
            if (response.status != 200) {
                throw RDAPError("the registry answered HTTP " + std::to_string(response.status));
            }
            return {quillmark::registrationDate(response.body), *base};
        } catch (const HTTPError& error) {
            throw RDAPError(error.what());
        }
    });
    return answer.date;
}

std::string RDAPClient::source(std::string_view domain) {
    const auto answer = m_answers->known(unicodeLowered(domain));
    return answer ? answer->base : std::string();
}

}  // namespace quillmark
