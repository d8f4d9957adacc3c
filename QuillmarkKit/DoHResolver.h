#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/DNS.h"
#include "QuillmarkKit/Support/HTTP.h"
#include "QuillmarkKit/Support/Once.h"

namespace quillmark {

/// A DNS-over-HTTPS service that answers in JSON.
struct DoHEndpoint {
    std::string host = {};  ///< also what failure texts call it
    std::string path = {};  ///< "/dns-query"
    int port = 443;
};

struct DoHOptions {
    /// Asked in this order, the next when one gave no answer.
    std::vector<DoHEndpoint> endpoints = {{"cloudflare-dns.com", "/dns-query"}, {"dns.google", "/resolve"}};
    std::chrono::milliseconds timeOut{8000};  ///< of one endpoint
    std::function<std::chrono::steady_clock::time_point()> clock = std::chrono::steady_clock::now;
};

/// The resolver over the network. Answers are remembered as long as it lives, failures are not. However many
/// callers ask the same question at once, one request is made. An endpoint whose transfers failed three times
/// in a row is left alone for a minute, unless all are. A name that `mayBeQueried` refuses does not exist,
/// and nobody is asked.
class DoHResolver : public DNSResolver {
public:
    explicit DoHResolver(std::shared_ptr<HTTP> http, DoHOptions options = {});
    ~DoHResolver() override;

    /// On failure the text says why each endpoint gave no answer: "cloudflare-dns.com: timed out; dns.google:
    /// HTTP 500".
    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) override;
    /// The host of the endpoint that answered.
    std::string source(std::string_view name, DNSRecordType type) override;

private:
    struct Endpoint;
    /// An answer, a failure, or neither when the asker gave up.
    struct Outcome {
        std::optional<DNSAnswer> answer = {};
        std::optional<std::string> failure = {};
        std::string host = {};  // that answered
    };

    Once<Outcome>::Made ask(std::string_view name, DNSRecordType type, const Patience& patience);
    Outcome askEndpoint(Endpoint& endpoint, const std::string& url, DNSRecordType type,
                        const Patience& patience);
    void note(Endpoint& endpoint, std::optional<std::string> failure);
    std::vector<std::optional<std::string>> failuresOfSkipped();

    const std::shared_ptr<HTTP> m_http;
    const DoHOptions m_options;
    std::mutex m_mutex;
    std::vector<Endpoint> m_endpoints;
    Once<Outcome> m_answers;
};

}  // namespace quillmark
