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

constexpr const char* stopped = "stopped";

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
    Clock::time_point skippedUntil = Clock::time_point::min();
};

/// A question on its way, for those who wait for the one who asks it.
struct DoHResolver::Question {
    bool isOver = false;
    std::optional<std::string> failure = {};
    std::condition_variable_any over = {};
};

struct DoHResolver::Asker {
    std::stop_token stop = {};
    Clock::time_point deadline = {};

    /// What makes the asker give up, if anything does.
    std::optional<std::string> reasonToGiveUp() const {
        if (stop.stop_requested()) return stopped;
        if (Clock::now() >= deadline) return "the check took too long";
        return std::nullopt;
    }
};

/// An answer, a failure, or neither when the asker gave up.
struct DoHResolver::Outcome {
    std::optional<DNSAnswer> answer = {};
    std::optional<std::string> failure = {};
    std::string host = {};  // that answered
};

DoHResolver::DoHResolver(std::shared_ptr<HTTP> http, DoHOptions options)
    : m_http(std::move(http)), m_options(std::move(options)) {
    for (const auto& endpoint : m_options.endpoints) m_endpoints.push_back({.where = endpoint});
}

DoHResolver::~DoHResolver() = default;

DNSAnswer DoHResolver::lookup(std::string_view name, DNSRecordType type, std::stop_token stop) {
    return lookupBefore(Clock::time_point::max(), name, type, std::move(stop));
}

DNSAnswer DoHResolver::lookupBefore(Clock::time_point deadline, std::string_view name, DNSRecordType type,
                                    std::stop_token stop) {
    if (!mayBeQueried(name)) return DNSAnswer::nxdomain();
    const std::string key = StaticResolver::key(name, type);
    const Asker asker{std::move(stop), deadline};
    if (auto known = knownAnswer(key, asker)) return std::move(*known);

    Outcome outcome;
    try {
        outcome = ask(name, type, asker);
    } catch (...) {
        settle(key, outcome);  // or those who wait would wait for ever
        throw;
    }
    settle(key, outcome);
    if (outcome.answer) return std::move(*outcome.answer);
    if (outcome.failure) throw DNSLookupError(*outcome.failure);
    throw DNSLookupError(asker.reasonToGiveUp().value_or(stopped));
}

std::string DoHResolver::source(std::string_view name, DNSRecordType type) {
    const std::lock_guard lock(m_mutex);
    const auto known = m_answers.find(StaticResolver::key(name, type));
    return known != m_answers.end() ? known->second.host : std::string();
}

/// An answer that is there or that somebody else is about to get; nothing when it is the caller's turn to ask
/// and to `settle` the question.
std::optional<DNSAnswer> DoHResolver::knownAnswer(const std::string& key, const Asker& asker) {
    std::unique_lock lock(m_mutex);
    for (;;) {
        if (const auto reason = asker.reasonToGiveUp()) throw DNSLookupError(*reason);
        if (const auto known = m_answers.find(key); known != m_answers.end()) return known->second.answer;
        const auto [place, isFirst] = m_questions.try_emplace(key);
        if (isFirst) {
            place->second = std::make_shared<Question>();
            return std::nullopt;
        }
        const auto question = place->second;
        question->over.wait_until(lock, asker.stop, asker.deadline, [&] { return question->isOver; });
        if (question->failure) throw DNSLookupError(*question->failure);
        // It is answered; or whoever asked gave up, and the first to get here takes over.
    }
}

void DoHResolver::settle(const std::string& key, const Outcome& outcome) {
    const std::lock_guard lock(m_mutex);
    const auto place = m_questions.find(key);
    const auto question = std::move(place->second);
    m_questions.erase(place);
    if (outcome.answer) m_answers.emplace(key, Answered{*outcome.answer, outcome.host});
    question->failure = outcome.failure;
    question->isOver = true;
    question->over.notify_all();
}

DoHResolver::Outcome DoHResolver::ask(std::string_view name, DNSRecordType type, const Asker& asker) {
    std::string failures;
    const auto skipped = failuresOfSkipped();
    for (std::size_t i = 0; i < m_endpoints.size(); ++i) {
        Outcome outcome =
            skipped[i] ? Outcome{.failure = skipped[i]}
                       : askEndpoint(m_endpoints[i], urlOf(m_endpoints[i].where, name, type), type, asker);
        if (!outcome.failure) return outcome;
        if (!failures.empty()) failures += "; ";
        failures += m_endpoints[i].where.host + ": " + *outcome.failure;
    }
    return {.failure = std::move(failures)};
}

DoHResolver::Outcome DoHResolver::askEndpoint(Endpoint& endpoint, const std::string& url, DNSRecordType type,
                                              const Asker& asker) {
    if (asker.reasonToGiveUp()) return {};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(asker.deadline - Clock::now());
    const HTTPRequest request{.url = url,
                              .headers = {"Accept: application/dns-json"},
                              .timeOut = std::min(m_options.timeOut, left),
                              .bodyLimit = DoHReply::bodyLimit};
    HTTPResponse response;
    try {
        response = m_http->get(request, asker.stop);
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
    endpoint.skippedUntil = isSkipped ? m_options.clock() + skippedFor : Clock::time_point::min();
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
