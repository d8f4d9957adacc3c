#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Support/HTTP.h"
#include "QuillmarkKit/Support/Once.h"

namespace quillmark {

/// A DNS-over-HTTPS service.
struct DoHEndpoint {
    enum class Form {
        json,           ///< the question in the URL, the answer as JSON
        messageByGET,   ///< both as messages of DNS (RFC 8484, section 4.1)
        messageByPOST,  ///< the same
    };
    std::string host = {};  ///< also what failure texts call it
    std::string path = {};  ///< "/dns-query"
    int port = 443;
    Form form = Form::json;

    /// The service that a person names by its URL: https without user name, query and fragment. One with the
    /// template "{?dns}" at the end is asked by GET, any other by POST (RFC 8484, section 4.1: each service
    /// knows both). Nothing when it is no such URL.
    static std::optional<DoHEndpoint> ofURL(std::string_view url);

    /// Those that are asked when nobody chooses another.
    static std::vector<DoHEndpoint> usual();
};

struct DoHOptions {
    /// Asked in this order, the next when one gave no answer.
    std::vector<DoHEndpoint> endpoints = DoHEndpoint::usual();
    std::chrono::milliseconds timeOut{8000};    ///< of one endpoint
    std::chrono::milliseconds headStart{2000};  ///< without an answer for so long, the next is asked, too
    std::function<std::chrono::steady_clock::time_point()> clock = std::chrono::steady_clock::now;
};

/// The resolver over the network. Answers are remembered as long as it lives, failures are not. However many
/// callers ask the same question at once, one request is made. A name that `mayBeQueried` refuses does not
/// exist, and nobody is asked.
///
/// An endpoint that has not answered within its head start is overtaken: the next is asked, and the first
/// answer counts. One that was overtaken by an answer, or timed out, isn't asked again for that message. When
/// it gave two messages no reply, and nobody else one meanwhile, it rests: every five seconds one question
/// tries it, until it replies.
class DoHResolver : public DNSResolver {
public:
    explicit DoHResolver(std::shared_ptr<HTTP> http, DoHOptions options = {});
    ~DoHResolver() override;

    /// On failure the text says why each endpoint gave no answer, in their order: "cloudflare-dns.com: timed
    /// out; dns.google: HTTP 500". Throws `DNSServiceRests` when one that rests might have answered.
    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) override;
    /// The host of the endpoint that answered.
    std::string source(std::string_view name, DNSRecordType type) override;

    const std::vector<DoHEndpoint>& endpoints() const { return m_options.endpoints; }
    /// How many of them rest.
    std::size_t resting() const;
    bool doAllRest() const { return resting() == m_options.endpoints.size(); }
    /// Those that rest are tried with the next question.
    void tryAgain();

private:
    struct Endpoint;
    /// That an endpoint gave no reply.
    struct Miss {
        std::size_t endpoint = 0;
        std::uint64_t repliesBefore = 0;  ///< that it had given when it was asked
        bool isSlow = false;
        std::string why = {};
    };
    /// An answer, a failure, or neither when the asker gave up.
    struct Outcome {
        std::optional<DNSAnswer> answer = {};
        std::optional<std::string> failure = {};
        std::string host = {};  ///< that answered
        std::vector<Miss> misses = {};
        bool wentWithout = false;  ///< one that rests
    };
    struct Turn;

    Once<Outcome>::Made ask(std::string_view name, DNSRecordType type, const Patience& patience,
                            const DNSAsker& asker);
    Turn turn(const DNSAsker& asker);
    void note(const Outcome& outcome, DNSAsker& asker);

    const std::shared_ptr<HTTP> m_http;
    const DoHOptions m_options;
    mutable std::mutex m_mutex;
    std::vector<Endpoint> m_endpoints;
    Once<Outcome> m_answers;
};

}  // namespace quillmark
