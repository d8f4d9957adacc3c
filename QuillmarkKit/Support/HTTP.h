#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// HTTPS, GET and POST, and nothing else. The one file that includes libcurl is `HTTP.cpp`.
namespace quillmark {

/// Which redirects a request follows. Whatever stands here: only to https, never to an IP literal.
struct HTTPRedirects {
    int most = 0;  ///< with none, a redirect is an answer like any other
    /// Whether the server of a redirect may be one at this address ("192.0.2.1", "2001:db8::1"); asked before
    /// anything is sent, on the engine's thread. Without it every address may. A proxy hides the address, so
    /// it is not asked then.
    std::function<bool(std::string_view address)> mayReach = {};
};

struct HTTPRequest {
    std::string url = {};
    std::vector<std::string> headers = {};    ///< whole lines: "Accept: application/json"
    std::optional<std::string> body = {};     ///< to be posted; it follows no redirect
    std::chrono::milliseconds timeOut{8000};  ///< for the whole of it, redirects included
    std::size_t bodyLimit = 1 << 20;          ///< bytes, counted after a content coding is undone
    HTTPRedirects redirects = {};
};

struct HTTPResponse {
    int status = 0;
    std::string body = {};
};

/// Why a request got no answer.
enum class HTTPFailure {
    timedOut,
    noConnection,
    nameNotFound,
    proxyNotFound,
    proxyRefused,
    certificateNotTrusted,
    connectionLost,
    answerTooLarge,
    transferFailed,
    stopped,
};

/// The only error of `HTTP`. Its text is fixed for each failure ("timed out"), so that it may go into a
/// report.
class HTTPError : public std::runtime_error {
public:
    explicit HTTPError(HTTPFailure failure);
    HTTPFailure failure() const { return m_failure; }

private:
    HTTPFailure m_failure;
};

/// How a request ended.
using HTTPOutcome = std::variant<HTTPResponse, HTTPFailure>;

/// Requests of which the answer of one will do. None follows a redirect.
struct HTTPRace {
    std::vector<HTTPRequest> requests = {};
    /// How long each is held back while the one before it is still under way.
    std::chrono::milliseconds headStart{0};
    std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max();
    /// Told on the caller's thread how each of them ended. True: that will do.
    std::function<bool(std::size_t which, HTTPOutcome outcome)> take = {};
};

class HTTP {
public:
    HTTP() = default;
    HTTP(const HTTP&) = delete;
    HTTP& operator=(const HTTP&) = delete;
    virtual ~HTTP() = default;

    /// Blocks until the whole answer is there, whatever its status. Throws `HTTPError`; soon after `stop` is
    /// requested, too. Safe from many threads at once.
    virtual HTTPResponse get(const HTTPRequest& request, std::stop_token stop) = 0;

    /// Blocks until one of the answers will do, all have ended, or the stop or the deadline comes. What is
    /// then still under way is given up. How many were begun. This one doesn't begin one before the last has
    /// ended.
    virtual std::size_t race(const HTTPRace& race, const std::stop_token& stop);
};

struct HTTPOptions {
    std::string caFile = {};     ///< PEM; trusted in place of the machine's certificates
    std::string proxy = {};      ///< as libcurl takes it: "http://proxy.example:3128"; empty: none
    std::string noProxy = {};    ///< hosts reached without the proxy, separated by commas
    bool allowLoopback = false;  ///< a redirect may lead to this machine: for tests

    /// With the proxy that the environment names, in `https_proxy` or, for want of it, `all_proxy`, and with
    /// what `no_proxy` says. Each may stand in capitals, too; small letters come first. An empty variable
    /// counts as one that isn't set. Reads the environment, which must not change meanwhile.
    static HTTPOptions ofEnvironment();
};

/// The engine: https only (TLS 1.2 or later), HTTP/2 where the server speaks it; no cookies, no stored
/// passwords, no Referer, no setting from the environment. At most two connections to a host that speaks
/// HTTP/2 and 32 to one that does not. Its threads start with the first request and end with the engine,
/// which must not be destroyed while somebody waits in `get`.
class HTTPEngine : public HTTP {
public:
    explicit HTTPEngine(HTTPOptions options = {});
    ~HTTPEngine() override;

    HTTPResponse get(const HTTPRequest& request, std::stop_token stop) override;
    std::size_t race(const HTTPRace& race, const std::stop_token& stop) override;

private:
    class Loop;
    class Running;
    struct Finish;
    struct Transfer;
    using Clock = std::chrono::steady_clock;
    enum class Protocol { unknown, beingLearnt, http2, http1 };
    struct Host {
        Protocol protocol = Protocol::unknown;
        Clock::time_point learningUntil = {};
    };

    void learn(const std::string& host, Protocol protocol);
    std::function<bool(std::string_view)> checkOf(const HTTPRedirects& redirects) const;

    const HTTPOptions m_options;
    std::mutex m_mutex;
    std::condition_variable_any m_learnt;
    std::map<std::string, Host, std::less<>> m_hosts;  // by name and port
    // libcurl limits the connections a host for a whole multi handle, hence one for each limit.
    std::unique_ptr<Loop> m_http2, m_http1;
};

}  // namespace quillmark
