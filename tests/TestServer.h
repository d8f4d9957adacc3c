#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "TestFiles.h"

typedef struct ssl_ctx_st SSL_CTX;
typedef struct ssl_st SSL;

/// Servers on loopback for the tests of everything that goes over HTTPS.
namespace quillmark::test {

enum class Certificate { good, otherName, expired, otherAuthority };

/// A certificate authority made when it is first asked for, and what it signed: for "localhost",
/// "first.localhost" and "second.localhost", all of which are this machine.
class Authority {
public:
    static const Authority& shared();
    std::string caFile() const { return m_folder / "ca.pem"; }
    std::string certificateFile(Certificate which) const;
    std::string keyFile() const { return m_folder / "key.pem"; }

private:
    Authority();
    TemporaryFolder m_folder;
};

/// What a server does with one request.
struct Reply {
    enum class Fault {
        none,
        resetBeforeHead,
        hangBeforeHead,
        resetAfterHead,
        hangAfterHead,
        truncated,    ///< the connection ends, in order, before the body does
        drip,         ///< a byte every 20 ms
        endless,      ///< a body without an end
        endlessHead,  ///< a head without an end
        notHTTP,      ///< a greeting of another protocol
    };
    int status = 200;
    std::string body = {};
    std::vector<std::string> headers = {};
    Fault fault = Fault::none;
    std::chrono::milliseconds delay{0};
};

/// A small HTTP/1.1 server over TLS, one thread a connection, that can break off anywhere.
class TestServer {
public:
    enum class Handshake { good, reset, hang };
    /// `answer` is called with the target of each request ("/dns-query?name=…"), on many threads.
    explicit TestServer(std::function<Reply(const std::string& target)> answer,
                        Certificate certificate = Certificate::good, Handshake handshake = Handshake::good);
    ~TestServer();

    int port() const { return m_port; }
    std::string url(std::string_view target = "/") const;
    /// Every head of a request so far: the request line and the fields.
    std::vector<std::string> requests() const;
    /// Waits until so many requests came, at most ten seconds.
    bool waitForRequests(std::size_t count) const;
    std::size_t connections() const;
    /// The most connections open at one time.
    std::size_t mostConnections() const;

private:
    void accept();
    void serve(int socket);
    void speak(SSL* connection, int socket);
    bool send(SSL* connection, int socket, const Reply& reply);
    bool pause(std::chrono::milliseconds time);

    const std::function<Reply(const std::string&)> m_answer;
    const Handshake m_handshake;
    SSL_CTX* m_context;
    int m_listener, m_port;
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_requested, m_ending;
    bool m_isEnding = false;
    std::vector<std::string> m_requests;
    std::set<int> m_sockets;
    std::size_t m_connections = 0, m_mostConnections = 0;
    std::vector<std::thread> m_threads;
};

/// A port on loopback where nobody listens.
int unusedPort();

/// Runs `work` on many threads at once and waits for them.
template <typename Work>
void onThreads(int count, Work work) {
    std::vector<std::jthread> threads;
    for (int i = 0; i < count; ++i) threads.emplace_back([&work, i] { work(i); });
}

/// Debian's HTTP/2 server (nghttpd) with one file to serve. It passes over the query of a target.
class HTTP2Server {
public:
    /// `name`: without a slash in front.
    HTTP2Server(std::string_view name, std::string_view bytes);
    ~HTTP2Server();
    int port() const { return m_port; }
    /// How many connections to it are open.
    std::size_t connections() const;

private:
    TemporaryFolder m_folder;
    int m_port = 0;
    pid_t m_process = -1;
};

}  // namespace quillmark::test
