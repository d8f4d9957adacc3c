// Whole checks over the network's two clients: what leaves the machine, and what comes of every fault.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "QuillmarkKit/Lookups/DNSMessage.h"
#include "QuillmarkKit/Lookups/DoHResolver.h"
#include "QuillmarkKit/Lookups/RDAP.h"
#include "QuillmarkKit/Lookups/SystemResolver.h"
#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Verifier.h"
#include "ScriptedHTTP.h"
#include "Settings/ChosenResolver.h"
#include "Thunderbird/Host.h"
#include "Thunderbird/NativeMessages.h"
#include "tests/Test.h"

namespace quillmark::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace std::string_literals;

const Date now = *parsedRFC3339("2026-11-21T10:00:00Z");
constexpr std::string_view bootstrapURL = "https://data.iana.org/rdap/dns.json";
constexpr const char* bootstrap = R"({"services":[[["org","com","example"],["https://registry.example/"]]]})";

/// A network in which every domain has a policy and an SPF record that asks about the sender's address.
HTTPResponse curiousNetwork(const HTTPRequest& request, std::stop_token) {
    if (request.url == bootstrapURL) return {200, bootstrap};
    if (request.url.starts_with("https://registry.example/")) return {404, ""};
    return {200, R"({"Status":0,"Answer":[{"type":16,"data":"\"v=spf1 exists:%{l}.%{h}.e.example)"
                 R"( a:%{ir}.a.example mx include:%{d2}.i.example -all\""}]})"};
}

/// The same, as a message of DNS that answers this question.
std::string curiousReply(std::string_view question) {
    const std::string record =
        "v=spf1 exists:%{l}.%{h}.e.example a:%{ir}.a.example mx include:%{d2}.i.example -all";
    const std::size_t end = question.find('\0', 12) + 5;  // behind name, type and class
    const std::string length(1, static_cast<char>(record.size())),
        more(1, static_cast<char>(record.size() + 1));
    return std::string(question.substr(0, 2)) + "\x81\x80\0\1\0\1\0\0\0\0"s +
           std::string(question.substr(12, end - 12)) + "\xC0\x0C\0\x10\0\1\0\0\0\0\0"s + more + length +
           record;
}

/// The name that a message of DNS asks for. It must be such a question and nothing else.
std::string nameAsked(std::string_view packet) {
    std::string name;
    for (std::size_t at = 12; at < packet.size() && packet[at] != '\0';) {
        const auto length = static_cast<std::size_t>(packet[at]);
        name += (name.empty() ? "" : ".") + std::string(packet.substr(at + 1, length));
        at += length + 1;
    }
    const auto id = static_cast<std::uint16_t>(static_cast<unsigned char>(packet[0]) << 8 |
                                               static_cast<unsigned char>(packet[1]));
    using enum DNSRecordType;
    bool isQuestion = false;
    for (const DNSRecordType type : {a, aaaa, mx, txt})
        isQuestion = isQuestion || dnsQuestion(name, type, id) == packet;
    EXPECT_TRUE(isQuestion) << name;
    return name;
}

/// A DNS server on loopback that hears what is asked over UDP.
class Listener {
public:
    Listener() {
        sockaddr_in address{
            .sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
        socklen_t size = sizeof address;
        auto* any = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(::bind(m_socket, any, size) | ::getsockname(m_socket, any, &size), 0);
        port = ntohs(address.sin_port);
        m_thread = std::jthread([this] { listen(); });
    }
    ~Listener() {
        ::shutdown(m_socket, SHUT_RDWR);
        m_thread.join();
        ::close(m_socket);
    }
    std::vector<std::string> heard() const {
        const std::lock_guard turn(m_mutex);
        return m_heard;
    }
    int port = 0;

private:
    void listen() {
        char bytes[2'000];
        sockaddr_in from{};
        socklen_t size = sizeof from;
        auto* asker = reinterpret_cast<sockaddr*>(&from);
        for (ssize_t count = 0; (count = ::recvfrom(m_socket, bytes, sizeof bytes, 0, asker, &size)) > 0;) {
            const std::string packet(bytes, static_cast<std::size_t>(count)), reply = curiousReply(packet);
            {
                const std::lock_guard turn(m_mutex);
                m_heard.push_back(packet);
            }
            ::sendto(m_socket, reply.data(), reply.size(), 0, asker, size);
        }
    }

    const int m_socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    mutable std::mutex m_mutex = {};
    std::vector<std::string> m_heard = {};
    std::jthread m_thread = {};
};

/// Every address that checking a message asks for.
std::vector<std::string> urlsOf(std::string_view message) {
    const auto http = std::make_shared<ScriptedHTTP>(curiousNetwork);
    const Verifier verifier(std::make_shared<DoHResolver>(http), std::make_shared<RDAPClient>(http));
    verifier.verify(MailMessage::parse(message), "named.eml", now);
    return http->takeURLs();
}

/// The same, asked for by the add-on of a mail program.
std::vector<std::string> urlsOfHost(std::string_view message) {
    const auto http = std::make_shared<ScriptedHTTP>(curiousNetwork);
    const HostSurroundings surroundings{.resolver = std::make_shared<DoHResolver>(http),
                                        .registry = std::make_shared<RDAPClient>(http),
                                        .now = [] { return now; }};
    int requests[2], answers[2];
    EXPECT_EQ(::pipe(requests) | ::pipe(answers), 0);
    std::jthread addon([&] {
        writeAnswer(R"({"id":1,"command":"check","language":"en","more":false,"message":")" +
                        encodedBase64(message) + R"("})",
                    requests[1]);
        readRequest(answers[0]);
        ::close(requests[1]);
    });
    EXPECT_EQ(serveAddon(surroundings, requests[0], answers[1]), 0);
    addon.join();
    for (const int each : {requests[0], answers[0], answers[1]}) ::close(each);
    return http->takeURLs();
}

/// Everything in them that is nobody's business bears the word "secret"; "bounce" is the envelope sender's
/// local part.
std::vector<std::string> messagesWithSecrets() {
    const std::string rest = "v=1; a=rsa-sha256; h=from; bh=AAAA; b=AAAA\r\n";
    const std::string leaky =
        "Return-Path: <bounce@sender.example>\r\n"
        "Received: from h (h.example [198.51.100.7]) by mx.example for <secret@mine.example> id secret\r\n"
        "Authentication-Results: secret.example; spf=pass smtp.mailfrom=secret@sender.example\r\n"
        "DKIM-Signature: d=signer.example; s=key; i=secret@signer.example; x-secret=secret; " +
        rest + "DKIM-Signature: d=a/../b?secret=1 &c.example; s=key; " + rest +
        "DKIM-Signature: d=intranet; s=secret; " + rest + "DKIM-Signature: d=host.local; s=secret; " + rest +
        "DKIM-Signature: d=a.example; s=se\x01"
        "cret; " +
        rest +
        "From: \"Secret secret.secret.example\" <secret@author.example>\r\n"
        "Reply-To: secret@reply.example, secret@192.0.2.1, secret@[192.0.2.1], secret@xn--secret\r\n"
        "To: secret@mine.example\r\nCc: secret@cc.example\r\nSubject: secret\r\nMessage-ID: "
        "<secret@id.example>\r\n"
        "List-Unsubscribe: <https://secret.example/secret>\r\n\r\nsecret\r\n";
    std::vector<std::string> messages = {leaky};
    // Nobody is asked about the first names, wherever they stand; the others must not break out of a request.
    for (const std::string name : {"secret",
                                   "secret.local",
                                   "secret.lan",
                                   "secret.internal",
                                   "secret.home.arpa",
                                   "secret.onion",
                                   "secret.test",
                                   "secret.invalid",
                                   "secret.localhost.",
                                   "secret\x01.example",
                                   "secret\x7F.example",
                                   "secret .example",
                                   "secret..a.example",
                                   "secret.\xC2\xAD.example",
                                   "secret.corp",
                                   "secret.mail",
                                   "[secret].example",
                                   "secret.192.0.2.1",
                                   "a/../b?c=d&e.example",
                                   "a%2F%00.example",
                                   "a#b.example"}) {
        messages.push_back("Return-Path: <bounce@" + name +
                           ">\r\nReceived: from h (h.example [198.51.100.7]) by mx.example\r\n" +
                           "ARC-Seal: i=1; a=rsa-sha256; cv=none; d=" + name + "; s=key; b=AAAA\r\n" +
                           "ARC-Message-Signature: i=1; d=" + name + "; s=key; " + rest +
                           "ARC-Authentication-Results: i=1; " + name + "\r\nDKIM-Signature: d=" + name +
                           "; s=key; " + rest + "From: a@" + name + "\r\nReply-To: b@" + name + "\r\n\r\n");
    }
    for (const auto& entry : fs::directory_iterator(QUILLMARK_SAMPLES)) {
        if (entry.path().extension() == ".eml") messages.push_back(contents(entry.path()));
    }
    return messages;
}

TEST(NetworkedCheck, nothingButNamesLeavesTheMachine) {
    const auto messages = messagesWithSecrets();
    ASSERT_GE(messages.size(), 3u);
    std::set<std::string> asked;
    for (const auto& message : messages) {
        const auto urls = urlsOf(message);
        EXPECT_EQ(std::multiset(urls.begin(), urls.end()), [&] {
            const auto ofHost = urlsOfHost(message);
            return std::multiset(ofHost.begin(), ofHost.end());
        }());
        for (const auto& url : urls) {
            SCOPED_TRACE(url);
            EXPECT_EQ(asciiLowered(url).find("secret"), std::string::npos);
            if (url == bootstrapURL) continue;
            if (url.starts_with("https://registry.example/domain/")) {
                asked.insert(url);
                continue;
            }
            const std::string_view service = "https://cloudflare-dns.com/dns-query?name=";
            ASSERT_TRUE(url.starts_with(service));
            const std::string name = url.substr(service.size(), url.find("&type=") - service.size());
            EXPECT_EQ(
                name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.-_%"),
                std::string::npos);
            for (const char* local : {".local", ".lan", "intranet", "192.0.2.1"}) {
                EXPECT_FALSE(name.ends_with(local));
            }
            asked.insert(name);
        }
    }
    // The test would see a leak: these are the names that do go out, the local part only where SPF asks for
    // it.
    for (const char* name : {"key._domainkey.signer.example", "_dmarc.author.example", "sender.example",
                             "bounce.h.e.example", "https://registry.example/domain/author.example",
                             "https://registry.example/domain/reply.example"}) {
        EXPECT_TRUE(asked.contains(name)) << name;
    }
}

TEST(NetworkedCheck, nothingButNamesReachesWhomeverAPersonChooses) {
    const Listener ownServer;
    const auto system = std::make_shared<SystemResolver>(
        SystemResolverOptions{.servers = {"127.0.0.1"}, .port = ownServer.port});
    std::vector<std::string> packets;
    const auto http = std::make_shared<ScriptedHTTP>([&](const HTTPRequest& request, std::stop_token) {
        const std::string_view service = "https://dns.example/q", question = "?dns=";
        EXPECT_TRUE(request.url.starts_with(service));
        std::string rest = request.url.substr(service.size());
        EXPECT_EQ(rest.starts_with(question), !request.body);
        std::ranges::replace(rest, '-', '+');
        std::ranges::replace(rest, '_', '/');
        if (!request.body) rest.resize((rest.size() - question.size() + 3) / 4 * 4 + question.size(), '=');
        packets.push_back(request.body ? *request.body
                                       : decodedBase64(rest.substr(question.size())).value_or(""));
        return HTTPResponse{200, curiousReply(packets.back())};
    });
    for (const std::string choice : {"https://dns.example/q", "https://dns.example/q{?dns}", "system"}) {
        SCOPED_TRACE(choice);
        packets.clear();
        const bool isSystem = choice == "system";
        for (const std::string& message : messagesWithSecrets()) {
            const Verifier verifier(isSystem ? system : chosenResolver(choice, http));
            verifier.verify(MailMessage::parse(message), "named.eml", now);
        }
        std::set<std::string> asked;
        for (const std::string& packet : isSystem ? ownServer.heard() : packets) {
            const std::string name = nameAsked(packet);
            EXPECT_TRUE(mayBeQueried(name, isSystem ? Network::own : Network::everybodys)) << name;
            EXPECT_TRUE(isSystem || asciiLowered(name).find("secret") == std::string::npos) << name;
            asked.insert(name);
        }
        for (const char* name : {"key._domainkey.signer.example", "_dmarc.author.example", "sender.example",
                                 "bounce.h.e.example"}) {
            EXPECT_TRUE(asked.contains(name)) << name;
        }
        EXPECT_EQ(asked.contains("secret.corp"), isSystem);
    }
}

TEST(NetworkedCheck, everyPairOfFaultsGivesACompleteReport) {
    const std::string message = signedMessage(
        "Return-Path: <a@example.org>\r\nReceived: from h (h.example [198.51.100.7]) by mx.example\r\n"
        "From: a@example.org\r\nSubject: x\r\n\r\nbody\r\n",
        {}, ed25519Key());
    const struct Fault {
        std::string text;
        std::optional<HTTPFailure> failure;
        HTTPResponse response = {};
    } faults[] = {
        {"timed out", HTTPFailure::timedOut},
        {"no connection", HTTPFailure::noConnection},
        {"name not found", HTTPFailure::nameNotFound},
        {"certificate not trusted", HTTPFailure::certificateNotTrusted},
        {"connection lost", HTTPFailure::connectionLost},
        {"answer too large", HTTPFailure::answerTooLarge},
        {"transfer failed", HTTPFailure::transferFailed},
        {"HTTP 204", {}, {204, ""}},
        {"HTTP 302", {}, {302, ""}},
        {"HTTP 429", {}, {429, ""}},
        {"HTTP 500", {}, {500, R"({"Status":3})"}},
        {"SERVFAIL", {}, {200, R"({"Status":2})"}},
        {"DNS status 5", {}, {200, R"({"Status":5})"}},
        {"unreadable answer", {}, {200, "<html>"}},
    };
    const auto outcome = [](const Fault& fault) {
        if (fault.failure) throw HTTPError(*fault.failure);
        return fault.response;
    };
    for (std::size_t i = 0; i < std::size(faults) * std::size(faults); ++i) {
        const Fault &first = faults[i / std::size(faults)], &second = faults[i % std::size(faults)];
        const auto http = std::make_shared<ScriptedHTTP>([&](const HTTPRequest& request, std::stop_token) {
            if (request.url.find("cloudflare") != std::string::npos) return outcome(first);
            if (request.url.find("dns.google") != std::string::npos) return outcome(second);
            return request.url == bootstrapURL ? HTTPResponse{200, bootstrap} : outcome(first);
        });
        const Verifier verifier(std::make_shared<DoHResolver>(http), std::make_shared<RDAPClient>(http));
        const ProofReport report = verifier.verify(MailMessage::parse(message), std::nullopt, now);
        SCOPED_TRACE(compactJSON(report));
        ASSERT_EQ(report.verdict.kind, VerdictKind::couldNotCheck);
        ASSERT_EQ(report.verdict.tone, Tone::unknown);
        ASSERT_EQ(report.dkim.size(), 1u);
        EXPECT_EQ(report.dkim[0].status, DKIMResult::Status::lookupFailed);
        EXPECT_EQ(report.dkim[0].detail,
                  "cloudflare-dns.com: " + first.text + "; dns.google: " + second.text);
        EXPECT_EQ(report.dmarc.status, DMARCFinding::Status::lookupFailed);
        EXPECT_EQ(report.spf.status.value,
                  decltype(report.spf.status.value)(SPFFinding::Status::Judged{SPFResult::temperror}));
        // A message waits for a service that hangs once.
        const auto urls = http->takeURLs();
        const auto times = std::ranges::count_if(
            urls, [](const auto& url) { return url.find("/dns-query?") != std::string::npos; });
        EXPECT_EQ(times, first.failure == HTTPFailure::timedOut ? 1 : 3);
        // A registry's 200 without a date says that it publishes none.
        using Age = DomainAge::Status;
        const std::string why = first.failure ? first.text : "the registry answered " + first.text;
        EXPECT_EQ(report.domainAge.status,
                  first.response.status == 200 ? Age{Age::NotPublished{}} : Age{Age::Unavailable{why}});
    }
}

}  // namespace
}  // namespace quillmark::test
