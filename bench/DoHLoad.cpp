// Measures the resolver over HTTPS against servers on loopback that answer after 20 ms, over HTTP/2 (nghttpd
// behind a relay that holds its bytes back) and over HTTP/1.1. The servers are processes of their own, so
// that the CPU time is the client's.
//
//     cmake --preset bench && cmake --build --preset bench --target doh_load && build/bench/bench/doh_load

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <deque>
#include <thread>

#include "QuillmarkKit/Lookups/DoHResolver.h"
#include "tests/TestServer.h"

namespace {

using namespace quillmark;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto serverDelay = 20ms;
constexpr int callers = 64, messages = 1000, domains = 200, lookupsPerMessage = 4;
constexpr const char* body = R"({"Status":0,"Answer":[{"type":16,"data":"\"v=spf1 -all\""}]})";

/// Passes connections on to another port and holds back what comes from there.
class Relay {
public:
    explicit Relay(int target) : m_target(target), m_listener(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof address;
        auto* const bare = reinterpret_cast<sockaddr*>(&address);
        ::bind(m_listener, bare, size);
        ::listen(m_listener, 256);
        ::getsockname(m_listener, bare, &size);
        m_port = ntohs(address.sin_port);
        std::thread([this] { accept(); }).detach();
    }
    int port() const { return m_port; }

private:
    struct Chunk {
        Clock::time_point due;
        std::string bytes;
    };

    static sockaddr_in loopback(int port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }

    void accept() {
        for (;;) {
            const int client = ::accept(m_listener, nullptr, nullptr);
            const int server = ::socket(AF_INET, SOCK_STREAM, 0);
            const sockaddr_in address = loopback(m_target);
            ::connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address);
            std::thread([=] { pass(client, server, 0ms); }).detach();
            std::thread([=] { pass(server, client, serverDelay); }).detach();
        }
    }

    static void pass(int from, int to, std::chrono::milliseconds delay) {
        std::mutex mutex;
        std::condition_variable changed;
        std::deque<Chunk> chunks;
        bool isOver = false;
        std::thread writer([&] {
            for (;;) {
                std::unique_lock lock(mutex);
                changed.wait(lock, [&] { return isOver || !chunks.empty(); });
                if (chunks.empty()) break;
                const Chunk chunk = std::move(chunks.front());
                chunks.pop_front();
                lock.unlock();
                std::this_thread::sleep_until(chunk.due);
                ::send(to, chunk.bytes.data(), chunk.bytes.size(), MSG_NOSIGNAL);
            }
            ::shutdown(to, SHUT_WR);
        });
        std::string buffer(65536, '\0');
        for (;;) {
            const auto count = ::recv(from, buffer.data(), buffer.size(), 0);
            const std::lock_guard lock(mutex);
            isOver = count <= 0;
            if (!isOver) {
                chunks.push_back({Clock::now() + delay, buffer.substr(0, static_cast<std::size_t>(count))});
            }
            changed.notify_one();
            if (isOver) break;
        }
        writer.join();
    }

    const int m_target, m_listener;
    int m_port = 0;
};

/// A server in a process of its own; it ends when this object does.
class ServerProcess {
public:
    enum class Protocol { http2, http1 };
    explicit ServerProcess(Protocol protocol) {
        int port[2], life[2];
        if (::pipe(port) != 0 || ::pipe(life) != 0) std::abort();
        m_process = ::fork();
        if (m_process == 0) {
            ::close(life[1]);
            serve(protocol, port[1], life[0]);
            ::_exit(0);
        }
        ::close(life[0]);
        m_life = life[1];
        if (::read(port[0], &m_port, sizeof m_port) != sizeof m_port) std::abort();
    }
    ~ServerProcess() {
        ::close(m_life);
        ::waitpid(m_process, nullptr, 0);
    }
    int port() const { return m_port; }

private:
    static void serve(Protocol protocol, int port, int life) {
        const auto waitForTheEnd = [&](int number) {
            char none = 0;
            if (::write(port, &number, sizeof number) < 0 || ::read(life, &none, 1) != 0) std::abort();
        };
        if (protocol == Protocol::http2) {
            const test::HTTP2Server server("dns-query", body);
            const Relay relay(server.port());
            waitForTheEnd(relay.port());
        } else {
            const test::TestServer server(
                [](const std::string&) { return test::Reply{.body = body, .delay = serverDelay}; });
            waitForTheEnd(server.port());
        }
    }

    pid_t m_process = -1;
    int m_life = -1, m_port = 0;
};

double seconds(Clock::duration time) { return std::chrono::duration<double>(time).count(); }

double cpuSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto of = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return of(usage.ru_utime) + of(usage.ru_stime);
}

std::shared_ptr<DoHResolver> resolverOn(const ServerProcess& server) {
    const HTTPOptions options{.caFile = test::Authority::shared().caFile()};
    const DoHOptions services{.endpoints = {{"localhost", "/dns-query", server.port()}}};
    return std::make_shared<DoHResolver>(std::make_shared<HTTPEngine>(options), services);
}

/// Runs `work(n)` for n from 0 to `count` on all callers.
template <typename Work>
void onCallers(int count, Work work) {
    std::atomic<int> next = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < callers; ++i) {
        threads.emplace_back([&] {
            for (int n = next++; n < count; n = next++) work(n);
        });
    }
    for (auto& thread : threads) thread.join();
}

/// Checks of messages from a cold start: the CPU time of a lookup and the wall time of all, in seconds.
std::pair<double, double> coldStart(const ServerProcess& server) {
    const double cpu = cpuSeconds();
    const auto begin = Clock::now();
    const auto resolver = resolverOn(server);
    onCallers(messages, [&](int message) {
        const std::string domain = "d" + std::to_string(message % domains) + ".example";
        for (int i = 0; i < lookupsPerMessage; ++i) {
            resolver->lookup("n" + std::to_string(i) + "." + domain, DNSRecordType::txt, {});
        }
    });
    return {(cpuSeconds() - cpu) / (messages * lookupsPerMessage), seconds(Clock::now() - begin)};
}

/// Lookups of which none was asked before: CPU and wall time of one, in seconds.
std::pair<double, double> newLookup(const ServerProcess& server) {
    constexpr int count = 10'000;
    const auto resolver = resolverOn(server);
    const double cpu = cpuSeconds();
    const auto begin = Clock::now();
    onCallers(count,
              [&](int n) { resolver->lookup("n" + std::to_string(n) + ".example", DNSRecordType::txt, {}); });
    return {(cpuSeconds() - cpu) / count, seconds(Clock::now() - begin) / count};
}

/// How long after a stop the last caller is back.
double stopTime(const ServerProcess& server) {
    const auto resolver = resolverOn(server);
    std::stop_source source;
    Clock::time_point stopped;
    std::thread stopper([&] {
        std::this_thread::sleep_for(500ms);
        stopped = Clock::now();
        source.request_stop();
    });
    onCallers(callers, [&](int caller) {
        for (int n = 0; !source.stop_requested(); ++n) {
            const std::string name = "n" + std::to_string(n) + ".c" + std::to_string(caller) + ".example";
            try {
                resolver->lookup(name, DNSRecordType::txt, {source.get_token()});
            } catch (const DNSLookupError&) {
                // The stop, of course.
            }
        }
    });
    const auto end = Clock::now();
    stopper.join();
    return seconds(end - stopped);
}

}  // namespace

int main() {
    ::signal(SIGPIPE, SIG_IGN);
    test::Authority::shared();  // before the servers fork, so that they have the same
    const ServerProcess http2(ServerProcess::Protocol::http2), http1(ServerProcess::Protocol::http1);
    for (const auto* server : {&http2, &http1}) {
        const auto [cpuCold, wallCold] = coldStart(*server);
        const auto [cpu, wall] = newLookup(*server);
        std::printf(
            "%s: %d messages of %d domains, %d lookups each, from cold: %.2f s, %.0f us CPU a lookup\n",
            server == &http2 ? "HTTP/2" : "HTTP/1.1", messages, domains, lookupsPerMessage, wallCold,
            cpuCold * 1e6);
        std::printf("    a lookup that was not asked before: %.0f us CPU, %.0f of them a second\n", cpu * 1e6,
                    1 / wall);
        std::printf("    %d callers are back %.1f ms after a stop\n", callers, stopTime(*server) * 1e3);
    }
}
