#include "QuillmarkKit/Support/HTTP.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <new>
#include <optional>
#include <ranges>
#include <thread>
#include <unordered_map>
#include <utility>

#include "QuillmarkKit/Support/LoadedLibrary.h"

namespace quillmark {

namespace {

constexpr long connectionsOverHTTP2 = 2;
constexpr long connectionsOverHTTP1 = 30;  // 32 with those on which the protocol was learnt
/// How long requests to a host nobody asked before are held back, so that the first answer may tell how many
/// connections it wants. A host that is slower than that gets the two of HTTP/2.
constexpr std::chrono::milliseconds learningTime{500};
/// The heads of an answer together, in bytes.
constexpr std::size_t headLimit = std::size_t{256} * 1024;

/// With more transfers than `fewTransfers` under way the loop looks at most this often: libcurl goes through
/// all transfers of a connection whenever something comes in on it. Over HTTP/2 with 64 callers this takes a
/// third off the CPU time of a lookup (140 to 90 us).
constexpr std::chrono::milliseconds pauseWhenBusy{1};
constexpr std::size_t fewTransfers = 8;

constexpr long firstErrorStatus = 400;

constexpr std::size_t spareHandles = 64, hostsRemembered = 1000;

constexpr std::array failureTexts{"timed out",       "no connection",    "name not found",
                                  "proxy not found", "proxy refused",    "certificate not trusted",
                                  "connection lost", "answer too large", "transfer failed",
                                  "stopped"};

/// What is used of libcurl, which is loaded with the first request: with the 36 libraries that it brings, it
/// would more than double what every start of the program costs, and most checks of a file ask nobody.
class Library : public LoadedLibrary {
public:
    Library() : LoadedLibrary("libcurl.so.4") {}

    decltype(&::curl_free) free = find("curl_free");
    decltype(&::curl_global_init) globalInit = find("curl_global_init");
    decltype(&::curl_easy_init) easyInit = find("curl_easy_init");
    decltype(&::curl_easy_cleanup) easyCleanup = find("curl_easy_cleanup");
    decltype(&::curl_easy_setopt) easySet = find("curl_easy_setopt");
    decltype(&::curl_easy_getinfo) easyGet = find("curl_easy_getinfo");
    decltype(&::curl_multi_init) multiInit = find("curl_multi_init");
    decltype(&::curl_multi_cleanup) multiCleanup = find("curl_multi_cleanup");
    decltype(&::curl_multi_setopt) multiSet = find("curl_multi_setopt");
    decltype(&::curl_multi_add_handle) multiAdd = find("curl_multi_add_handle");
    decltype(&::curl_multi_remove_handle) multiRemove = find("curl_multi_remove_handle");
    decltype(&::curl_multi_assign) multiAssign = find("curl_multi_assign");
    decltype(&::curl_multi_socket_action) multiSocketAction = find("curl_multi_socket_action");
    decltype(&::curl_multi_info_read) multiRead = find("curl_multi_info_read");
    decltype(&::curl_slist_append) listAppend = find("curl_slist_append");
    decltype(&::curl_slist_free_all) listFree = find("curl_slist_free_all");
    decltype(&::curl_url) url = find("curl_url");
    decltype(&::curl_url_cleanup) urlCleanup = find("curl_url_cleanup");
    decltype(&::curl_url_get) urlGet = find("curl_url_get");
    decltype(&::curl_url_set) urlSet = find("curl_url_set");

    /// False when there is no libcurl, and nothing of it may be called.
    const bool isReady = isWhole() && globalInit(CURL_GLOBAL_DEFAULT) == CURLE_OK;
};

const Library& curl() {
    static const Library library;
    return library;
}

struct FreeCURL {
    void operator()(CURL* easy) const { curl().easyCleanup(easy); }
    void operator()(CURLU* url) const { curl().urlCleanup(url); }
    void operator()(curl_slist* list) const { curl().listFree(list); }
};
using Easy = std::unique_ptr<CURL, FreeCURL>;
using HeaderList = std::unique_ptr<curl_slist, FreeCURL>;

HTTPFailure failureOf(CURLcode code) {
    switch (code) {
        case CURLE_OPERATION_TIMEDOUT:
            return HTTPFailure::timedOut;
        case CURLE_COULDNT_CONNECT:
            return HTTPFailure::noConnection;
        case CURLE_COULDNT_RESOLVE_HOST:
            return HTTPFailure::nameNotFound;
        case CURLE_COULDNT_RESOLVE_PROXY:
            return HTTPFailure::proxyNotFound;
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
            return HTTPFailure::certificateNotTrusted;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_GOT_NOTHING:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_PARTIAL_FILE:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
            return HTTPFailure::connectionLost;
        default:
            return HTTPFailure::transferFailed;
    }
}

std::string part(CURLU* url, CURLUPart which) {
    char* text = nullptr;
    if (curl().urlGet(url, which, &text, CURLU_DEFAULT_PORT) != CURLUE_OK) return {};
    std::string copy = text;
    curl().free(text);
    return copy;
}

/// Where a URL leads, as far as redirects and connections ask.
struct Target {
    std::string host = {};      ///< with its port: "example.org:443"
    bool isPlainHTTPS = false;  ///< https, without a user name or a password
    bool isLiteral = false;     ///< an IP address, in whichever way it was written
};

std::optional<Target> targetOf(const std::string& text) {
    const std::unique_ptr<CURLU, FreeCURL> url(curl().url());
    if (!url || curl().urlSet(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) return std::nullopt;
    const std::string host = part(url.get(), CURLUPART_HOST);  // libcurl writes 0x7f.1 as 127.0.0.1 here
    in_addr address{};
    return Target{.host = host + ":" + part(url.get(), CURLUPART_PORT),
                  .isPlainHTTPS = part(url.get(), CURLUPART_SCHEME) == "https" &&
                                  part(url.get(), CURLUPART_USER).empty() &&
                                  part(url.get(), CURLUPART_PASSWORD).empty(),
                  .isLiteral = host.starts_with('[') || inet_pton(AF_INET, host.c_str(), &address) == 1};
}

bool isLoopback(std::string_view address) { return address.starts_with("127.") || address == "::1"; }

}  // namespace

HTTPError::HTTPError(HTTPFailure failure)
    : std::runtime_error(failureTexts[static_cast<std::size_t>(failure)]), m_failure(failure) {}

std::size_t HTTP::race(const HTTPRace& race, const std::stop_token& stop) {
    for (std::size_t i = 0; i < race.requests.size(); ++i) {
        HTTPRequest request = race.requests[i];
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(race.deadline - std::chrono::steady_clock::now());
        if (stop.stop_requested() || left <= left.zero()) return i;
        request.timeOut = std::min(request.timeOut, left);
        HTTPOutcome outcome;
        try {
            outcome = get(request, stop);
        } catch (const HTTPError& error) {
            if (error.failure() == HTTPFailure::stopped) return i + 1;
            outcome = error.failure();
        }
        if (race.take(i, std::move(outcome))) return i + 1;
    }
    return race.requests.size();
}

/// Where somebody waits for the end of transfers.
struct HTTPEngine::Finish {
    std::mutex mutex = {};
    std::condition_variable_any changed = {};
};

/// One request. The caller fills in the first block; the loop's thread owns the second until `isDone`, which
/// the lock of `finish` guards.
struct HTTPEngine::Transfer {
    std::string url = {};
    std::vector<std::string> headers = {};
    std::optional<std::string> body = {};
    std::size_t bodyLimit = 0;
    std::function<bool(std::string_view)> mayReach = {};
    Protocol expected = Protocol::unknown;
    std::function<void(Protocol)> learn = {};
    Clock::time_point deadline = {};
    std::shared_ptr<Finish> finish = {};

    HTTPResponse response = {};
    std::string redirect = {};
    std::size_t headSize = 0;
    bool isTooLarge = false, isRefused = false;
    std::optional<HTTPFailure> proxyFailure = {};  // when it is the proxy that failed
    CURL* easy = nullptr;                          // while it runs
    HeaderList headerList = {};
    CURLcode result = CURLE_OK;

    bool isDone = false;

    /// How it ended; it must be done.
    HTTPOutcome outcome() {
        if (isTooLarge) return HTTPFailure::answerTooLarge;
        if (result != CURLE_OK) return proxyFailure.value_or(failureOf(result));
        return std::move(response);
    }

    static std::size_t takeHead(const char* bytes, std::size_t, std::size_t size, void* self) {
        auto& transfer = *static_cast<Transfer*>(self);
        const std::string_view line(bytes, size);
        if (line.starts_with("HTTP/")) {
            const auto spoken = line.starts_with("HTTP/1") ? Protocol::http1 : Protocol::http2;
            if (spoken != transfer.expected) transfer.learn(spoken);
        }
        transfer.headSize += size;
        transfer.isTooLarge = transfer.headSize > headLimit;
        return transfer.isTooLarge ? 0 : size;
    }

    static std::size_t takeBody(const char* bytes, std::size_t, std::size_t size, void* self) {
        auto& transfer = *static_cast<Transfer*>(self);
        std::string& body = transfer.response.body;
        transfer.isTooLarge = size > transfer.bodyLimit - body.size();
        if (transfer.isTooLarge) return 0;
        body.append(bytes, size);
        return size;
    }

    static int checkAddress(void* self, char* address, char*, int, int) {
        auto& transfer = *static_cast<Transfer*>(self);
        transfer.isRefused = transfer.mayReach && !transfer.mayReach(address);
        return transfer.isRefused ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
    }
};

/// One thread that owns one multi handle: the connections of all hosts of one kind. It is told by the system
/// which connections are ready, so that a lookup does not cost more when many are under way.
class HTTPEngine::Loop {
public:
    Loop(const HTTPOptions& options, long connectionsPerHost)
        : m_options(options), m_connectionsPerHost(connectionsPerHost) {}
    ~Loop();

    /// Hands a transfer to the thread. Nobody but the caller knows its deadline: libcurl does not time a
    /// transfer that waits for a connection.
    void hand(std::shared_ptr<Transfer> transfer);
    /// Nobody waits for it any more.
    void giveUp(std::shared_ptr<Transfer> transfer);

private:
    void start();
    void wake();
    void work();
    void waitForEvents();
    void finishDone();
    void begin(std::shared_ptr<Transfer> transfer);
    Easy newHandle() const;
    void end(Transfer& transfer, CURLcode result);
    void remove(Transfer& transfer);
    static int watch(CURL*, curl_socket_t socket, int what, void* self, void* isKnown);
    static int setTimer(CURLM*, long milliseconds, void* self);

    const HTTPOptions& m_options;
    const long m_connectionsPerHost;

    std::mutex m_mutex;
    std::vector<std::shared_ptr<Transfer>> m_arrived, m_abandoned;
    bool m_isEnding = false;

    // The thread's own, but for waking it up.
    std::unordered_map<Transfer*, std::shared_ptr<Transfer>> m_running;
    std::vector<Easy> m_spare;
    CURLM* m_multi = nullptr;
    int m_events = -1, m_wake = -1;
    std::optional<Clock::time_point> m_timer;
    Clock::time_point m_lastLook = {};
    std::thread m_thread;
};

HTTPEngine::Loop::~Loop() {
    if (m_thread.joinable()) {
        {
            const std::lock_guard lock(m_mutex);
            m_isEnding = true;
        }
        wake();
        m_thread.join();
    }
    if (m_multi) curl().multiCleanup(m_multi);
    if (m_events >= 0) ::close(m_events);
    if (m_wake >= 0) ::close(m_wake);
}

void HTTPEngine::Loop::start() {
    m_events = ::epoll_create1(EPOLL_CLOEXEC);
    m_wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    m_multi = curl().multiInit();
    epoll_event event{.events = EPOLLIN, .data = {.fd = m_wake}};
    if (!m_multi || ::epoll_ctl(m_events, EPOLL_CTL_ADD, m_wake, &event) != 0) throw std::bad_alloc();
    curl().multiSet(m_multi, CURLMOPT_MAX_HOST_CONNECTIONS, m_connectionsPerHost);
    curl().multiSet(m_multi, CURLMOPT_SOCKETFUNCTION, &Loop::watch);
    curl().multiSet(m_multi, CURLMOPT_SOCKETDATA, this);
    curl().multiSet(m_multi, CURLMOPT_TIMERFUNCTION, &Loop::setTimer);
    curl().multiSet(m_multi, CURLMOPT_TIMERDATA, this);
    m_thread = std::thread([this] { work(); });
}

void HTTPEngine::Loop::wake() {
    const std::uint64_t one = 1;
    // It can only fail when the thread has been woken countless times already.
    [[maybe_unused]] const auto written = ::write(m_wake, &one, sizeof one);
}

void HTTPEngine::Loop::hand(std::shared_ptr<Transfer> transfer) {
    const std::lock_guard lock(m_mutex);
    if (!m_thread.joinable()) start();
    if (m_arrived.empty()) wake();  // else it is about to look
    m_arrived.push_back(std::move(transfer));
}

void HTTPEngine::Loop::giveUp(std::shared_ptr<Transfer> transfer) {
    const std::lock_guard lock(m_mutex);
    if (m_abandoned.empty()) wake();
    m_abandoned.push_back(std::move(transfer));
}

void HTTPEngine::Loop::work() {
    // Signals are for the program's own threads; a broken connection must not raise SIGPIPE.
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);

    for (;;) {
        waitForEvents();
        std::vector<std::shared_ptr<Transfer>> arrived, abandoned;
        {
            const std::lock_guard lock(m_mutex);
            if (m_isEnding) break;
            arrived.swap(m_arrived);
            abandoned.swap(m_abandoned);
        }
        for (auto& transfer : arrived) begin(std::move(transfer));
        for (const auto& transfer : abandoned) remove(*transfer);
        finishDone();
    }
    while (!m_running.empty()) remove(*m_running.begin()->first);
}

/// Waits until something is ready, due or handed in, and lets libcurl do what can be done.
void HTTPEngine::Loop::waitForEvents() {
    std::array<epoll_event, 64> events;
    int wait = -1;
    if (m_timer) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*m_timer - Clock::now()).count();
        wait = static_cast<int>(std::clamp<decltype(left)>(left, 0, 60'000));
    }
    if (m_running.size() > fewTransfers) std::this_thread::sleep_until(m_lastLook + pauseWhenBusy);
    const int count = ::epoll_wait(m_events, events.data(), static_cast<int>(events.size()), wait);
    m_lastLook = Clock::now();
    int running = 0;
    for (int i = 0; i < count; ++i) {
        const auto& [ready, data] = events[static_cast<std::size_t>(i)];
        if (data.fd == m_wake) {
            std::uint64_t wakes = 0;
            [[maybe_unused]] const auto taken = ::read(m_wake, &wakes, sizeof wakes);
            continue;
        }
        const int what = ((ready & EPOLLIN) != 0 ? CURL_CSELECT_IN : 0) |
                         ((ready & EPOLLOUT) != 0 ? CURL_CSELECT_OUT : 0) |
                         ((ready & (EPOLLERR | EPOLLHUP)) != 0 ? CURL_CSELECT_ERR : 0);
        curl().multiSocketAction(m_multi, data.fd, what, &running);
    }
    if (m_timer && *m_timer <= Clock::now()) {
        m_timer.reset();
        curl().multiSocketAction(m_multi, CURL_SOCKET_TIMEOUT, 0, &running);
    }
}

int HTTPEngine::Loop::watch(CURL*, curl_socket_t socket, int what, void* self, void* isKnown) {
    const auto& loop = *static_cast<Loop*>(self);
    if (what == CURL_POLL_REMOVE) {
        ::epoll_ctl(loop.m_events, EPOLL_CTL_DEL, socket, nullptr);
        return 0;
    }
    epoll_event event{.events = 0, .data = {.fd = socket}};
    if ((what & CURL_POLL_IN) != 0) event.events |= EPOLLIN;
    if ((what & CURL_POLL_OUT) != 0) event.events |= EPOLLOUT;
    if (!isKnown) curl().multiAssign(loop.m_multi, socket, self);
    ::epoll_ctl(loop.m_events, isKnown ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, socket, &event);
    return 0;
}

int HTTPEngine::Loop::setTimer(CURLM*, long milliseconds, void* self) {
    auto& loop = *static_cast<Loop*>(self);
    loop.m_timer.reset();
    if (milliseconds >= 0) loop.m_timer = Clock::now() + std::chrono::milliseconds(milliseconds);
    return 0;
}

void HTTPEngine::Loop::finishDone() {
    int left = 0;
    while (const CURLMsg* message = curl().multiRead(m_multi, &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        void* transfer = nullptr;
        curl().easyGet(message->easy_handle, CURLINFO_PRIVATE, &transfer);
        end(*static_cast<Transfer*>(transfer), message->data.result);
    }
}

void HTTPEngine::Loop::begin(std::shared_ptr<Transfer> transfer) {
    if (m_spare.empty()) m_spare.push_back(newHandle());
    CURL* const easy = m_spare.back().release();
    m_spare.pop_back();
    for (const auto& header : transfer->headers) {
        transfer->headerList.reset(curl().listAppend(transfer->headerList.release(), header.c_str()));
    }
    curl().easySet(easy, CURLOPT_URL, transfer->url.c_str());
    curl().easySet(easy, CURLOPT_HTTPHEADER, transfer->headerList.get());
    if (transfer->body) {
        curl().easySet(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(transfer->body->size()));
        curl().easySet(easy, CURLOPT_POSTFIELDS, transfer->body->data());
    } else {
        curl().easySet(easy, CURLOPT_HTTPGET, 1L);  // it may have posted before
    }
    for (const auto data : {CURLOPT_HEADERDATA, CURLOPT_WRITEDATA, CURLOPT_PREREQDATA, CURLOPT_PRIVATE}) {
        curl().easySet(easy, data, transfer.get());
    }
    transfer->easy = easy;
    curl().multiAdd(m_multi, easy);
    Transfer* const key = transfer.get();
    m_running.emplace(key, std::move(transfer));
}

/// A handle with all that is the same for every transfer.
Easy HTTPEngine::Loop::newHandle() const {
    Easy easy(curl().easyInit());
    if (!easy) throw std::bad_alloc();
    const auto set = [&](CURLoption option, auto value) { curl().easySet(easy.get(), option, value); };
    set(CURLOPT_PROTOCOLS_STR, "https");
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    set(CURLOPT_PIPEWAIT, 1L);
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    // One file of certificates is parsed once a loop, a directory of them for every connection.
    set(CURLOPT_CAPATH, static_cast<char*>(nullptr));
    if (!m_options.caFile.empty()) set(CURLOPT_CAINFO, m_options.caFile.c_str());
    set(CURLOPT_PROXY, m_options.proxy.c_str());  // empty: not the environment's either
    set(CURLOPT_NOPROXY, m_options.noProxy.c_str());
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    set(CURLOPT_ACCEPT_ENCODING, "identity");
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L);  // giving up does not wait for the system's resolver
    set(CURLOPT_HEADERFUNCTION, &Transfer::takeHead);
    set(CURLOPT_WRITEFUNCTION, &Transfer::takeBody);
    set(CURLOPT_PREREQFUNCTION, &Transfer::checkAddress);
    return easy;
}

void HTTPEngine::Loop::end(Transfer& transfer, CURLcode result) {
    long status = 0;
    curl().easyGet(transfer.easy, CURLINFO_RESPONSE_CODE, &status);
    long proxyStatus = 0;
    curl().easyGet(transfer.easy, CURLINFO_HTTP_CONNECTCODE, &proxyStatus);
    if (proxyStatus >= firstErrorStatus) transfer.proxyFailure = HTTPFailure::proxyRefused;
    if (result == CURLE_COULDNT_CONNECT && !m_options.proxy.empty())
        transfer.proxyFailure = HTTPFailure::proxyNotFound;
    const char* redirect = nullptr;
    curl().easyGet(transfer.easy, CURLINFO_REDIRECT_URL, &redirect);
    if (redirect) transfer.redirect = redirect;
    transfer.response.status = static_cast<int>(status);
    transfer.result = result;
    const auto held = m_running.at(&transfer);
    remove(transfer);
    {
        const std::lock_guard lock(transfer.finish->mutex);
        transfer.isDone = true;
    }
    transfer.finish->changed.notify_one();
}

void HTTPEngine::Loop::remove(Transfer& transfer) {
    if (!transfer.easy) return;  // it ended before the news that nobody waits for it
    Easy easy(std::exchange(transfer.easy, nullptr));
    curl().multiRemove(m_multi, easy.get());
    if (m_spare.size() < spareHandles) m_spare.push_back(std::move(easy));
    m_running.erase(&transfer);
}

HTTPOptions HTTPOptions::ofEnvironment() {
    const auto first = [](std::initializer_list<const char*> names) {
        for (const char* name : names) {
            if (const char* value = std::getenv(name); value && *value) return std::string(value);
        }
        return std::string();
    };
    HTTPOptions options;
    options.proxy = first({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"});
    options.noProxy = first({"no_proxy", "NO_PROXY"});
    return options;
}

/// A transfer from when it is handed in until its end, or until nobody waits for it any more.
class HTTPEngine::Running {
public:
    Running(HTTPEngine& engine, std::string host, std::shared_ptr<Transfer> transfer,
            const std::stop_token& stop);
    ~Running();
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

private:
    HTTPEngine& m_engine;
    const std::string m_host;
    const std::shared_ptr<Transfer> m_transfer;
    bool m_isFirst = false;  // to this host: its protocol is learnt
    Loop* m_loop = nullptr;
};

HTTPEngine::Running::Running(HTTPEngine& engine, std::string host, std::shared_ptr<Transfer> transfer,
                             const std::stop_token& stop)
    : m_engine(engine), m_host(std::move(host)), m_transfer(std::move(transfer)) {
    m_transfer->learn = [&engine, name = m_host](Protocol protocol) { engine.learn(name, protocol); };
    std::unique_lock lock(engine.m_mutex);
    auto& hosts = engine.m_hosts;
    if (hosts.size() > hostsRemembered) hosts.clear();
    if (const Host known = hosts[m_host]; known.protocol == Protocol::beingLearnt) {
        engine.m_learnt.wait_until(lock, stop, std::min(known.learningUntil, m_transfer->deadline),
                                   [&] { return hosts[m_host].protocol != Protocol::beingLearnt; });
    }
    Host& known = hosts[m_host];
    m_isFirst = known.protocol == Protocol::unknown;
    m_transfer->expected = known.protocol;
    if (m_isFirst) known = {Protocol::beingLearnt, Clock::now() + learningTime};
    m_loop = known.protocol == Protocol::http1 ? engine.m_http1.get() : engine.m_http2.get();
    lock.unlock();
    try {
        m_loop->hand(m_transfer);
    } catch (...) {
        if (m_isFirst) engine.learn(m_host, Protocol::unknown);
        throw;
    }
}

HTTPEngine::Running::~Running() {
    std::unique_lock lock(m_transfer->finish->mutex);
    const bool isDone = m_transfer->isDone;
    lock.unlock();
    if (!isDone) m_loop->giveUp(m_transfer);
    const bool isLearnt = isDone && m_transfer->result == CURLE_OK;
    if (m_isFirst && !isLearnt) m_engine.learn(m_host, Protocol::unknown);
}

HTTPEngine::HTTPEngine(HTTPOptions options)
    : m_options(std::move(options)),
      m_http2(std::make_unique<Loop>(m_options, connectionsOverHTTP2)),
      m_http1(std::make_unique<Loop>(m_options, connectionsOverHTTP1)) {}

HTTPEngine::~HTTPEngine() = default;

HTTPResponse HTTPEngine::get(const HTTPRequest& request, std::stop_token stop) {
    if (!curl().isReady) throw HTTPError(HTTPFailure::transferFailed);
    auto target = targetOf(request.url);
    if (!target || !target->isPlainHTTPS) throw HTTPError(HTTPFailure::transferFailed);

    const auto deadline = Clock::now() + request.timeOut;
    std::string url = request.url;
    std::optional<HTTPResponse> redirecting;
    for (int left = request.redirects.most;; --left) {
        const auto transfer = std::make_shared<Transfer>();
        transfer->url = url;
        transfer->headers = request.headers;
        transfer->body = request.body;
        transfer->bodyLimit = request.bodyLimit;
        transfer->deadline = deadline;
        transfer->finish = std::make_shared<Finish>();
        if (redirecting && m_options.proxy.empty()) transfer->mayReach = checkOf(request.redirects);
        {
            const Running running(*this, target->host, transfer, stop);
            std::unique_lock lock(transfer->finish->mutex);
            if (!transfer->finish->changed.wait_until(lock, stop, deadline, [&] { return transfer->isDone; }))
                throw HTTPError(stop.stop_requested() ? HTTPFailure::stopped : HTTPFailure::timedOut);
        }
        // A redirect that must not be followed is the answer.
        if (transfer->isRefused) return std::move(*redirecting);
        auto outcome = transfer->outcome();
        if (const auto* failure = std::get_if<HTTPFailure>(&outcome)) throw HTTPError(*failure);
        auto& response = std::get<HTTPResponse>(outcome);
        if (transfer->redirect.empty() || left <= 0 || request.body) return std::move(response);
        target = targetOf(transfer->redirect);
        if (!target || !target->isPlainHTTPS || target->isLiteral) return std::move(response);
        url = std::move(transfer->redirect);
        redirecting = std::move(response);
    }
}

std::size_t HTTPEngine::race(const HTTPRace& race, const std::stop_token& stop) {
    struct Runner {
        std::shared_ptr<Transfer> transfer = std::make_shared<Transfer>();
        std::unique_ptr<Running> running = {};  // until it ended
    };
    const auto finish = std::make_shared<Finish>();
    std::vector<Runner> runners;  // that have begun
    const auto isOpen = [](const Runner& runner) { return runner.running != nullptr; };
    auto next = Clock::now();
    while (!stop.stop_requested() && Clock::now() < race.deadline) {
        const bool isAnyOpen = std::ranges::any_of(runners, isOpen),
                   isAnyLeft = runners.size() < race.requests.size();
        if (!isAnyOpen && !isAnyLeft) break;
        if (isAnyLeft && (!isAnyOpen || Clock::now() >= next)) {
            const HTTPRequest& request = race.requests[runners.size()];
            next = Clock::now() + race.headStart;
            Runner& runner = runners.emplace_back();
            Transfer& transfer = *runner.transfer;
            transfer.url = request.url;
            transfer.headers = request.headers;
            transfer.body = request.body;
            transfer.bodyLimit = request.bodyLimit;
            transfer.deadline = std::min(Clock::now() + request.timeOut, race.deadline);
            transfer.finish = finish;
            const auto target = curl().isReady ? targetOf(request.url) : std::nullopt;
            if (target && target->isPlainHTTPS) {
                runner.running = std::make_unique<Running>(*this, target->host, runner.transfer, stop);
            } else if (race.take(runners.size() - 1, HTTPFailure::transferFailed)) {
                break;
            }
            continue;
        }
        auto until = isAnyLeft ? std::min(next, race.deadline) : race.deadline;
        for (const Runner& runner : runners | std::views::filter(isOpen))
            until = std::min(until, runner.transfer->deadline);
        const auto hasEnded = [&](const Runner& runner) {
            return runner.running && (runner.transfer->isDone || Clock::now() >= runner.transfer->deadline);
        };
        std::unique_lock lock(finish->mutex);
        finish->changed.wait_until(lock, stop, until, [&] { return std::ranges::any_of(runners, hasEnded); });
        const auto ended = std::ranges::find_if(runners, hasEnded);
        if (ended == runners.end()) continue;
        const bool isDone = ended->transfer->isDone;
        lock.unlock();
        if (!isDone && Clock::now() >= race.deadline) break;  // it was cut off
        ended->running.reset();
        const auto which = static_cast<std::size_t>(ended - runners.begin());
        if (race.take(which, isDone ? ended->transfer->outcome() : HTTPOutcome(HTTPFailure::timedOut))) break;
    }
    return runners.size();
}

std::function<bool(std::string_view)> HTTPEngine::checkOf(const HTTPRedirects& redirects) const {
    if (!redirects.mayReach || !m_options.allowLoopback) return redirects.mayReach;
    return [mayReach = redirects.mayReach](std::string_view address) {
        return isLoopback(address) || mayReach(address);
    };
}

void HTTPEngine::learn(const std::string& host, Protocol protocol) {
    const std::lock_guard lock(m_mutex);
    Host& known = m_hosts[host];
    // Who learnt nothing does not take away what somebody else did.
    if (protocol == Protocol::unknown && known.protocol != Protocol::beingLearnt) return;
    known.protocol = protocol;
    m_learnt.notify_all();
}

}  // namespace quillmark
