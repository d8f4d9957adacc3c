#include "TestServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

extern char** environ;

namespace quillmark::test {

namespace {

void require(bool isGood, const char* what) {
    if (!isGood) throw std::runtime_error(what);
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int listenOnLoopback(int& port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* const bare = reinterpret_cast<sockaddr*>(&address);
    require(socket >= 0 && ::bind(socket, bare, size) == 0 && ::listen(socket, 256) == 0 &&
                ::getsockname(socket, bare, &size) == 0,
            "listen on loopback");
    port = ntohs(address.sin_port);
    return socket;
}

bool accepts(int port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    const bool isThere = ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(socket);
    return isThere;
}

/// Makes closing the socket send a reset in place of an orderly end.
void armReset(int socket) {
    const linger abort{1, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
}

bool write(SSL* connection, std::string_view bytes) {
    return SSL_write(connection, bytes.data(), static_cast<int>(bytes.size())) > 0;
}

}  // namespace

const Authority& Authority::shared() {
    static const Authority authority;
    return authority;
}

Authority::Authority() {
    const std::string command = QUILLMARK_TESTS "/certificates " + m_folder / "" + " 2>/dev/null";
    require(std::system(command.c_str()) == 0, "make certificates");
}

std::string Authority::certificateFile(Certificate which) const {
    return m_folder / (std::to_string(static_cast<int>(which)) + ".pem");
}

TestServer::TestServer(std::function<Reply(const std::string&)> answer, Certificate certificate,
                       Handshake handshake)
    : m_answer(std::move(answer)), m_handshake(handshake), m_context(SSL_CTX_new(TLS_server_method())) {
    const Authority& authority = Authority::shared();
    require(SSL_CTX_use_certificate_file(m_context, authority.certificateFile(certificate).c_str(),
                                         SSL_FILETYPE_PEM) == 1 &&
                SSL_CTX_use_PrivateKey_file(m_context, authority.keyFile().c_str(), SSL_FILETYPE_PEM) == 1,
            "set up the server");
    ::signal(SIGPIPE, SIG_IGN);  // the server's own writes; the engine blocks the signal for itself
    m_listener = listenOnLoopback(m_port);
    m_threads.emplace_back([this] { accept(); });
}

TestServer::~TestServer() {
    {
        const std::lock_guard lock(m_mutex);
        m_isEnding = true;
        for (const int socket : m_sockets) ::shutdown(socket, SHUT_RDWR);
    }
    m_ending.notify_all();
    ::shutdown(m_listener, SHUT_RDWR);
    m_threads.front().join();  // which alone adds to the others
    for (std::size_t i = 1; i < m_threads.size(); ++i) m_threads[i].join();
    ::close(m_listener);
    SSL_CTX_free(m_context);
}

std::string TestServer::url(std::string_view target) const {
    return "https://localhost:" + std::to_string(m_port) + std::string(target);
}

std::vector<std::string> TestServer::requests() const {
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

bool TestServer::waitForRequests(std::size_t count) const {
    std::unique_lock lock(m_mutex);
    return m_requested.wait_for(lock, std::chrono::seconds(10), [&] { return m_requests.size() >= count; });
}

std::size_t TestServer::connections() const {
    const std::lock_guard lock(m_mutex);
    return m_connections;
}

std::size_t TestServer::mostConnections() const {
    const std::lock_guard lock(m_mutex);
    return m_mostConnections;
}

void TestServer::accept() {
    for (;;) {
        const int socket = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        const std::lock_guard lock(m_mutex);
        if (m_isEnding || socket < 0) {
            if (socket >= 0) ::close(socket);
            return;
        }
        m_sockets.insert(socket);
        ++m_connections;
        m_mostConnections = std::max(m_mostConnections, m_sockets.size());
        m_threads.emplace_back([this, socket] { serve(socket); });
    }
}

void TestServer::serve(int socket) {
    if (m_handshake == Handshake::reset) {
        char first = 0;
        ::recv(socket, &first, 1, 0);
        armReset(socket);
    } else if (m_handshake == Handshake::hang) {
        char bytes[1024];
        while (::recv(socket, bytes, sizeof bytes, 0) > 0) {
        }
    } else {
        const std::unique_ptr<SSL, decltype(&SSL_free)> connection(SSL_new(m_context), SSL_free);
        SSL_set_fd(connection.get(), socket);
        if (SSL_accept(connection.get()) == 1) speak(connection.get(), socket);
    }
    const std::lock_guard lock(m_mutex);
    m_sockets.erase(socket);
    ::close(socket);
}

void TestServer::speak(SSL* connection, int socket) {
    std::string waiting;
    for (;;) {
        const auto end = waiting.find("\r\n\r\n");
        if (end == std::string::npos) {
            char bytes[4096];
            const int count = SSL_read(connection, bytes, sizeof bytes);
            if (count <= 0) return;
            waiting.append(bytes, static_cast<std::size_t>(count));
            continue;
        }
        const std::string head = waiting.substr(0, end + 2);
        waiting.erase(0, end + 4);
        {
            const std::lock_guard lock(m_mutex);
            m_requests.push_back(head);
        }
        m_requested.notify_all();
        const auto begin = head.find(' ') + 1;
        if (!send(connection, socket, m_answer(head.substr(begin, head.find(' ', begin) - begin)))) return;
    }
}

/// Whether the connection goes on.
bool TestServer::send(SSL* connection, int socket, const Reply& reply) {
    using Fault = Reply::Fault;
    if (!pause(reply.delay)) return false;
    if (reply.fault == Fault::resetBeforeHead) return armReset(socket), false;
    if (reply.fault == Fault::hangBeforeHead) return pause(std::chrono::minutes(1)), false;

    std::string head = "HTTP/1.1 " + std::to_string(reply.status) + " Reason\r\n";
    for (const auto& header : reply.headers) head += header + "\r\n";
    const bool hasLength = reply.fault != Fault::endless && reply.fault != Fault::endlessHead;
    if (hasLength && reply.status != 204) {
        head += "Content-Length: " + std::to_string(reply.body.size()) + "\r\n";
    }
    while (reply.fault == Fault::endlessHead) {
        if (!write(connection, head)) return false;
        head = "X-More: " + std::string(1000, 'x') + "\r\n";
    }
    head += "\r\n";

    const std::string half = head + reply.body.substr(0, reply.body.size() / 2);
    switch (reply.fault) {
        case Fault::resetAfterHead:
            return write(connection, half), armReset(socket), false;
        case Fault::hangAfterHead:
            return write(connection, half), pause(std::chrono::minutes(1)), false;
        case Fault::truncated:
            return write(connection, half), SSL_shutdown(connection), false;
        case Fault::drip:
            if (!write(connection, head)) return false;
            for (const char byte : reply.body) {
                if (!pause(std::chrono::milliseconds(20)) || !write(connection, {&byte, 1})) return false;
            }
            return true;
        case Fault::endless:
            if (!write(connection, head)) return false;
            while (write(connection, std::string(16384, ' '))) {
            }
            return false;
        case Fault::notHTTP:
            return write(connection, "220 mail.example.org ESMTP\r\n"), false;
        default:
            return write(connection, head + reply.body);
    }
}

/// Waits; false when the server ends.
bool TestServer::pause(std::chrono::milliseconds time) {
    std::unique_lock lock(m_mutex);
    return !m_ending.wait_for(lock, time, [&] { return m_isEnding; });
}

int unusedPort() {
    int port = 0;
    ::close(listenOnLoopback(port));
    return port;
}

HTTP2Server::HTTP2Server(std::string_view name, std::string_view bytes) {
    m_folder.write(name, bytes);
    const Authority& authority = Authority::shared();
    m_port = unusedPort();
    std::vector<std::string> words{"nghttpd",
                                   "--address=127.0.0.1",
                                   "--htdocs=" + (m_folder / ""),
                                   std::to_string(m_port),
                                   authority.keyFile(),
                                   authority.certificateFile(Certificate::good)};
    std::vector<char*> arguments;
    for (auto& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    require(::posix_spawn(&m_process, "/usr/sbin/nghttpd", nullptr, nullptr, arguments.data(), environ) == 0,
            "start nghttpd: is nghttp2-server installed?");
    for (int i = 0; i < 500 && !accepts(m_port); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    require(accepts(m_port), "nghttpd does not answer");
}

HTTP2Server::~HTTP2Server() {
    ::kill(m_process, SIGKILL);
    ::waitpid(m_process, nullptr, 0);
}

std::size_t HTTP2Server::connections() const {
    char local[16];
    std::snprintf(local, sizeof local, "0100007F:%04X", static_cast<unsigned>(m_port));
    const std::string established = "01";
    std::ifstream table("/proc/net/tcp");
    std::size_t count = 0;
    for (std::string line; std::getline(table, line);) {
        std::string number, here, there, state;
        std::istringstream(line) >> number >> here >> there >> state;
        if (here == local && state == established) ++count;
    }
    return count;
}

}  // namespace quillmark::test
