#include "QuillmarkKit/DoHResolver.h"

#include <algorithm>
#include <utility>

#include "QuillmarkKit/DoHReply.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr int failuresUntilSkipped = 3;
constexpr std::chrono::seconds skippedFor{60};
constexpr int okStatus = 200, httpsPort = 443;

std::string percentEncoded(std::string_view name) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : name) {
        if (isDigit(c) || isASCIILetter(c) || c == '.' || c == '-' || c == '_') {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded += {'%', digits[byte >> 4], digits[byte & 15]};
        }
    }
    return encoded;
}

std::string urlOf(const DoHEndpoint& endpoint, std::string_view name, DNSRecordType type) {
    const std::string port = endpoint.port == httpsPort ? "" : ":" + std::to_string(endpoint.port);
    return "https://" + endpoint.host + port + endpoint.path + "?name=" + percentEncoded(name) +
           "&type=" + std::string(mnemonic(type));
}

}  // namespace

struct DoHResolver::Endpoint {
    DoHEndpoint where = {};
    int failures = 0;  // transfers that failed in a row
    std::string lastFailure = {};
    Patience::Clock::time_point skippedUntil = Patience::Clock::time_point::min();
};

DoHResolver::DoHResolver(std::shared_ptr<HTTP> http, DoHOptions options)
    : m_http(std::move(http)), m_options(std::move(options)) {
    for (const auto& endpoint : m_options.endpoints) m_endpoints.push_back({.where = endpoint});
}

DoHResolver::~DoHResolver() = default;

DNSAnswer DoHResolver::lookup(std::string_view name, DNSRecordType type, const Patience& patience) {
    if (!mayBeQueried(name)) return DNSAnswer::nxdomain();
    if (const auto end = patience.end()) throw DNSLookupError(*end);
    const auto outcome = m_answers.get(StaticResolver::key(name, type), patience.stop, patience.deadline,
                                       [&] { return ask(name, type, patience); });
    if (outcome && outcome->answer) return *outcome->answer;
    if (outcome && outcome->failure) throw DNSLookupError(*outcome->failure);
    throw DNSLookupError(patience.end().value_or("stopped"));
}

std::string DoHResolver::source(std::string_view name, DNSRecordType type) {
    const auto known = m_answers.kept(StaticResolver::key(name, type));
    return known ? known->host : std::string();
}

Once<DoHResolver::Outcome>::Made DoHResolver::ask(std::string_view name, DNSRecordType type,
                                                  const Patience& patience) {
    using For = Once<Outcome>::For;
    std::string failures;
    const auto skipped = failuresOfSkipped();
    for (std::size_t i = 0; i < m_endpoints.size(); ++i) {
        Outcome outcome =
            skipped[i] ? Outcome{.failure = skipped[i]}
                       : askEndpoint(m_endpoints[i], urlOf(m_endpoints[i].where, name, type), type, patience);
        if (outcome.answer) return {std::move(outcome), For::everybody};
        if (!outcome.failure) return {{}, For::maker};
        if (!failures.empty()) failures += "; ";
        failures += m_endpoints[i].where.host + ": " + *outcome.failure;
    }
    return {{.failure = std::move(failures)}, For::thoseWhoWait};
}

DoHResolver::Outcome DoHResolver::askEndpoint(Endpoint& endpoint, const std::string& url, DNSRecordType type,
                                              const Patience& patience) {
    if (patience.end()) return {};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(patience.deadline - Patience::Clock::now());
    const HTTPRequest request{.url = url,
                              .headers = {"Accept: application/dns-json"},
                              .timeOut = std::min(m_options.timeOut, left),
                              .bodyLimit = DoHReply::bodyLimit};
    HTTPResponse response;
    try {
        response = m_http->get(request, patience.stop);
    } catch (const HTTPError& error) {
        const bool isCut = error.failure() == HTTPFailure::timedOut && left < m_options.timeOut;
        if (isCut || error.failure() == HTTPFailure::stopped) return {};
        note(endpoint, error.what());
        return {.failure = error.what()};
    }
    note(endpoint, std::nullopt);
    if (response.status != okStatus) return {.failure = "HTTP " + std::to_string(response.status)};
    try {
        auto reply = DoHReply::parse(response.body, type);
        if (auto* answer = std::get_if<DNSAnswer>(&reply.value))
            return {.answer = std::move(*answer), .host = endpoint.where.host};
        return {.failure = "SERVFAIL"};
    } catch (const DNSLookupError& error) {
        return {.failure = error.what()};
    }
}

/// Notes how a transfer ended: with nothing, or with its failure.
void DoHResolver::note(Endpoint& endpoint, std::optional<std::string> failure) {
    const std::lock_guard lock(m_mutex);
    endpoint.failures = failure ? endpoint.failures + 1 : 0;
    endpoint.lastFailure = std::move(failure).value_or("");
    const bool isSkipped = endpoint.failures >= failuresUntilSkipped;
    endpoint.skippedUntil = isSkipped ? m_options.clock() + skippedFor : Patience::Clock::time_point::min();
}

/// For each endpoint the last failure if it is not to be asked now; for none if that were all.
std::vector<std::optional<std::string>> DoHResolver::failuresOfSkipped() {
    const std::lock_guard lock(m_mutex);
    const auto now = m_options.clock();
    std::vector<std::optional<std::string>> failures;
    failures.reserve(m_endpoints.size());
    for (const auto& endpoint : m_endpoints) {
        failures.push_back(now < endpoint.skippedUntil ? std::optional(endpoint.lastFailure) : std::nullopt);
    }
    const bool isAll = std::ranges::all_of(failures, [](const auto& failure) { return failure.has_value(); });
    if (isAll) failures.assign(failures.size(), std::nullopt);
    return failures;
}

}  // namespace quillmark
