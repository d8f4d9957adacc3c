#include "QuillmarkKit/Lookups/DoHResolver.h"

#include <algorithm>
#include <utility>

#include "QuillmarkKit/Lookups/DNSMessage.h"
#include "QuillmarkKit/Lookups/DoHReply.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr int messagesUntilRest = 2;
constexpr std::chrono::seconds betweenTries{5};
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

/// In the form for URLs (RFC 4648, section 5), without padding.
std::string urlBase64(std::string_view bytes) {
    std::string text = encodedBase64(bytes);
    text.resize(text.find_last_not_of('=') + 1);
    std::ranges::replace(text, '+', '-');
    std::ranges::replace(text, '/', '_');
    return text;
}

/// Messages have the identity 0, so that services can keep their answers (RFC 8484, section 4.1).
HTTPRequest requestTo(const DoHEndpoint& endpoint, std::string_view name, DNSRecordType type) {
    using Form = DoHEndpoint::Form;
    const std::string port = endpoint.port == httpsPort ? "" : ":" + std::to_string(endpoint.port);
    HTTPRequest request{.url = "https://" + endpoint.host + port + endpoint.path,
                        .headers = {"Accept: application/dns-message"},
                        .bodyLimit = DoHReply::bodyLimit};
    switch (endpoint.form) {
        case Form::json:
            request.url += "?name=" + percentEncoded(name) + "&type=" + std::string(mnemonic(type));
            request.headers = {"Accept: application/dns-json"};
            break;
        case Form::messageByGET:
            request.url += "?dns=" + urlBase64(dnsQuestion(name, type, 0));
            break;
        case Form::messageByPOST:
            request.headers.emplace_back("Content-Type: application/dns-message");
            request.body = dnsQuestion(name, type, 0);
            break;
    }
    return request;
}

/// The answer in what a service replied, or why there is none.
std::variant<DNSAnswer, std::string> readReply(const HTTPOutcome& reply, DoHEndpoint::Form form,
                                               std::string_view name, DNSRecordType type) {
    if (const auto* failure = std::get_if<HTTPFailure>(&reply)) return HTTPError(*failure).what();
    const auto& response = std::get<HTTPResponse>(reply);
    if (response.status != okStatus) return "HTTP " + std::to_string(response.status);
    try {
        auto read = form == DoHEndpoint::Form::json ? DoHReply::parse(response.body, type)
                                                    : parseDNSMessage(response.body, name, type);
        if (auto* answer = std::get_if<DNSAnswer>(&read.value)) return std::move(*answer);
        return "SERVFAIL";
    } catch (const DNSLookupError& error) {
        return error.what();
    }
}

}  // namespace

std::vector<DoHEndpoint> DoHEndpoint::usual() {
    return {{"cloudflare-dns.com", "/dns-query"}, {"dns.google", "/resolve"}};
}

std::optional<DoHEndpoint> DoHEndpoint::ofURL(std::string_view url) {
    constexpr std::string_view scheme = "https://", byGET = "{?dns}";
    if (!startsWithIgnoringCase(url, scheme)) return std::nullopt;
    url.remove_prefix(scheme.size());
    DoHEndpoint endpoint{.form = Form::messageByPOST};
    if (url.ends_with(byGET)) {
        url.remove_suffix(byGET.size());
        endpoint.form = Form::messageByGET;
    }
    const auto isPlain = [](char c) {
        return c > ' ' && c < 0x7F && std::string_view("?#{}@\"<>\\^`|").find(c) == std::string_view::npos;
    };
    if (!std::ranges::all_of(url, isPlain)) return std::nullopt;
    const auto slash = std::min(url.find('/'), url.size());
    endpoint.host = url.substr(0, slash);
    endpoint.path = url.substr(slash);
    const auto bracket = endpoint.host.rfind(']'), colon = endpoint.host.rfind(':');
    if (colon != std::string::npos && (bracket == std::string::npos || colon > bracket)) {
        const auto port = decimal(std::string_view(endpoint.host).substr(colon + 1));
        if (!port || *port < 1 || *port > 65'535) return std::nullopt;
        endpoint.port = static_cast<int>(*port);
        endpoint.host.resize(colon);
    }
    if (endpoint.host.empty()) return std::nullopt;
    return endpoint;
}

struct DoHResolver::Endpoint {
    DoHEndpoint where = {};
    std::uint64_t replies = 0;  // of any kind
    int missedMessages = 0;     // different ones that got none, since the last
    std::string lastMiss = {};
    Patience::Clock::time_point nextTry = {};  // while it rests

    bool isResting() const { return missedMessages >= messagesUntilRest; }
};

/// Who is asked a question, and why the others aren't.
struct DoHResolver::Turn {
    struct Runner {
        std::size_t endpoint = 0;
        std::uint64_t repliesBefore = 0;
        bool isTry = false;  // of one that rests
        bool hasEnded = false;
    };
    std::vector<Runner> runners = {};
    std::vector<std::string> failures = {};  // by endpoint
    bool isAnyResting = false, isAnySlow = false;
};

DoHResolver::DoHResolver(std::shared_ptr<HTTP> http, DoHOptions options)
    : m_http(std::move(http)), m_options(std::move(options)) {
    for (const auto& endpoint : m_options.endpoints) m_endpoints.push_back({.where = endpoint});
}

DoHResolver::~DoHResolver() = default;

DNSAnswer DoHResolver::lookup(std::string_view name, DNSRecordType type, const Patience& patience) {
    if (!mayBeQueried(name)) return DNSAnswer::nxdomain();
    if (const auto end = patience.end()) throw DNSLookupError(*end);
    const std::string key = StaticResolver::key(name, type);
    if (const auto known = m_answers.kept(key)) return *known->answer;
    DNSAsker alone;
    DNSAsker& asker = patience.asker ? *patience.asker : alone;
    const auto outcome = m_answers.get(key, patience.stop, patience.deadline,
                                       [&] { return ask(name, type, patience, asker); });
    // Who waited for somebody else's question was kept waiting as well.
    if (outcome) note(*outcome, asker);
    if (outcome && outcome->answer) return *outcome->answer;
    if (outcome && outcome->failure && outcome->wentWithout) throw DNSServiceRests(*outcome->failure);
    if (outcome && outcome->failure) throw DNSLookupError(*outcome->failure);
    throw DNSLookupError(patience.end().value_or("stopped"));
}

std::string DoHResolver::source(std::string_view name, DNSRecordType type) {
    const auto known = m_answers.kept(StaticResolver::key(name, type));
    return known ? known->host : std::string();
}

std::size_t DoHResolver::resting() const {
    const std::lock_guard lock(m_mutex);
    return static_cast<std::size_t>(std::ranges::count_if(m_endpoints, &Endpoint::isResting));
}

void DoHResolver::tryAgain() {
    const std::lock_guard lock(m_mutex);
    for (Endpoint& endpoint : m_endpoints) endpoint.nextTry = {};
}

DoHResolver::Turn DoHResolver::turn(const DNSAsker& asker) {
    const std::lock_guard lock(m_mutex);
    const auto now = m_options.clock();
    Turn turn{.failures = std::vector<std::string>(m_endpoints.size())};
    for (std::size_t i = 0; i < m_endpoints.size(); ++i) {
        Endpoint& endpoint = m_endpoints[i];
        const bool isSlow = asker.slow.contains(endpoint.where.host), isResting = endpoint.isResting();
        if (isSlow || (isResting && now < endpoint.nextTry)) {
            turn.failures[i] = endpoint.lastMiss;
            (isResting ? turn.isAnyResting : turn.isAnySlow) = true;
        } else {
            if (isResting) endpoint.nextTry = now + betweenTries;
            turn.runners.push_back({.endpoint = i, .repliesBefore = endpoint.replies, .isTry = isResting});
        }
    }
    return turn;
}

Once<DoHResolver::Outcome>::Made DoHResolver::ask(std::string_view name, DNSRecordType type,
                                                  const Patience& patience, const DNSAsker& asker) {
    using For = Once<Outcome>::For;
    Turn turn = this->turn(asker);
    Outcome outcome{.wentWithout = turn.isAnyResting};
    HTTPRace race{.headStart = m_options.headStart, .deadline = patience.deadline};
    for (const Turn::Runner& runner : turn.runners) {
        race.requests.push_back(requestTo(m_endpoints[runner.endpoint].where, name, type));
        race.requests.back().timeOut = runner.isTry ? m_options.headStart : m_options.timeOut;
    }
    const auto miss = [&](const Turn::Runner& runner, HTTPFailure failure) {
        const std::string why = HTTPError(failure).what();
        turn.failures[runner.endpoint] = why;
        outcome.misses.push_back(
            {runner.endpoint, runner.repliesBefore, failure == HTTPFailure::timedOut, why});
    };
    std::size_t winner = 0;
    race.take = [&](std::size_t i, const HTTPOutcome& end) {
        Turn::Runner& runner = turn.runners[i];
        runner.hasEnded = true;
        const auto* failure = std::get_if<HTTPFailure>(&end);
        if (failure && *failure != HTTPFailure::answerTooLarge) {
            miss(runner, *failure);
            return false;
        }
        Endpoint& endpoint = m_endpoints[runner.endpoint];
        {
            const std::lock_guard lock(m_mutex);
            ++endpoint.replies;
            endpoint.missedMessages = 0;
        }
        auto read = readReply(end, endpoint.where.form, name, type);
        if (auto* why = std::get_if<std::string>(&read)) {
            turn.failures[runner.endpoint] = std::move(*why);
            return false;
        }
        outcome.answer = std::move(std::get<DNSAnswer>(read));
        outcome.host = endpoint.where.host;
        winner = i;
        return true;
    };
    const auto begin = Patience::Clock::now();
    const std::size_t begun = m_http->race(race, patience.stop);
    const auto time = Patience::Clock::now() - begin;
    for (std::size_t i = 0; i < turn.runners.size(); ++i) {
        const Turn::Runner& runner = turn.runners[i];
        if (runner.hasEnded) continue;
        if (i >= begun) {
            if (!runner.isTry) continue;
            const std::lock_guard lock(m_mutex);
            m_endpoints[runner.endpoint].nextTry = {};  // it wasn't tried
        } else if (outcome.answer ? i < winner : time >= m_options.headStart * (i + 1)) {
            miss(runner, HTTPFailure::timedOut);  // overtaken, or cut off after its head start
        }
    }
    if (outcome.answer) return {std::move(outcome), For::everybody};
    if (patience.end()) return {std::move(outcome), For::maker};
    std::string failures;
    for (std::size_t i = 0; i < m_endpoints.size(); ++i)
        failures += (i == 0 ? "" : "; ") + m_endpoints[i].where.host + ": " + turn.failures[i];
    outcome.failure = std::move(failures);
    // One that this message alone doesn't ask may answer for those who wait.
    return {std::move(outcome), turn.isAnySlow ? For::maker : For::thoseWhoWait};
}

/// Notes which endpoints gave no reply to a question of this asker's.
void DoHResolver::note(const Outcome& outcome, DNSAsker& asker) {
    if (outcome.misses.empty()) return;
    const std::lock_guard lock(m_mutex);
    for (const Miss& miss : outcome.misses) {
        Endpoint& endpoint = m_endpoints[miss.endpoint];
        const bool isNew = asker.failed.insert(endpoint.where.host).second;
        if (miss.isSlow) asker.slow.insert(endpoint.where.host);
        endpoint.lastMiss = miss.why;
        if (endpoint.replies != miss.repliesBefore)
            continue;  // it is there, whatever became of this question
        if (isNew) ++endpoint.missedMessages;
        if (endpoint.isResting()) endpoint.nextTry = m_options.clock() + betweenTries;
    }
}

}  // namespace quillmark
