#include "QuillmarkKit/Lookups/DoHResolver.h"

#include "ScriptedHTTP.h"
#include "TestServer.h"
#include "tests/Test.h"

namespace quillmark::test {
namespace {

using namespace std::chrono_literals;
using enum DNSRecordType;
using Clock = Patience::Clock;

constexpr const char* goodBody = R"({"Status":0,"Answer":[{"type":16,"data":"\"yes\""}]})";

bool isFirst(const HTTPRequest& request) {
    return request.url.find("cloudflare-dns.com") != std::string::npos;
}

/// The data of the answer, or why there is none.
std::string outcome(DNSResolver& resolver, std::string_view name, const Patience& patience = {}) {
    try {
        const auto answer = resolver.lookup(name, txt, patience);
        if (answer == DNSAnswer::nxdomain()) return "no such domain";
        return answer.data().empty() ? "no data" : answer.data().front();
    } catch (const DNSLookupError& error) {
        return error.what();
    }
}

std::shared_ptr<HTTPEngine> engine() {
    return std::make_shared<HTTPEngine>(HTTPOptions{.caFile = Authority::shared().caFile()});
}

DoHOptions twoServices(int first, int second) {
    return {.endpoints = {{"first.localhost", "/dns-query", first}, {"second.localhost", "/resolve", second}},
            .timeOut = 10s};
}

TEST(DoHResolver, requests) {
    const auto http = std::make_shared<ScriptedHTTP>([](const HTTPRequest& request, std::stop_token) {
        EXPECT_EQ(request.headers, std::vector<std::string>{"Accept: application/dns-json"});
        EXPECT_EQ(request.timeOut, 8s);
        EXPECT_EQ(request.bodyLimit, std::size_t{1} << 20);
        EXPECT_EQ(request.redirects.most, 0);
        return HTTPResponse{isFirst(request) ? 500 : 200, R"({"Status":3})"};
    });
    DoHResolver resolver(http);
    const struct {
        std::string name;
        DNSRecordType type;
        std::string query;
    } rows[] = {
        {"Example.org", txt, "Example.org&type=TXT"},
        {"s-1._domainkey.example.org.", mx, "s-1._domainkey.example.org.&type=MX"},
        {"a&type=A#/?%41@b=c+d.example", a, "a%26type%3DA%23%2F%3F%2541%40b%3Dc%2Bd.example&type=A"},
        {"a\"\\~*.example", aaaa, "a%22%5C%7E%2A.example&type=AAAA"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(resolver.lookup(row.name, row.type, {}), DNSAnswer::nxdomain());
        EXPECT_EQ(http->takeURLs(), (std::vector{"https://cloudflare-dns.com/dns-query?name=" + row.query,
                                                 "https://dns.google/resolve?name=" + row.query}));
    }
}

TEST(DoHResolver, sendsNoNameThatMayNotBeQueried) {
    const auto http = std::make_shared<ScriptedHTTP>(
        [](const HTTPRequest&, std::stop_token) { return HTTPResponse{200, goodBody}; });
    DoHResolver resolver(http);
    for (const std::string& name :
         {std::string(), std::string("org"), std::string("a.example\r\nX: y.example"),
          std::string("b\u00FCcher.example"), std::string("a.Onion."), std::string(50'000'000, 'a')}) {
        for (const auto type : {a, mx, txt, aaaa})
            EXPECT_EQ(resolver.lookup(name, type, {}), DNSAnswer::nxdomain());
    }
    EXPECT_TRUE(http->takeURLs().empty());
}

TEST(DoHResolver, remembersAnswersAndNoFailures) {
    std::atomic<bool> isDown = true;
    const auto http = std::make_shared<ScriptedHTTP>([&](const HTTPRequest&, std::stop_token) {
        return isDown ? HTTPResponse{503, ""} : HTTPResponse{200, goodBody};
    });
    DoHResolver resolver(http);
    EXPECT_EQ(outcome(resolver, "example.org"), "cloudflare-dns.com: HTTP 503; dns.google: HTTP 503");
    isDown = false;
    EXPECT_EQ(outcome(resolver, "example.org"), "yes");
    EXPECT_EQ(http->takeURLs().size(), 3u);
    isDown = true;
    EXPECT_EQ(outcome(resolver, "Example.ORG"), "yes");
    EXPECT_EQ(http->takeURLs().size(), 0u);
    EXPECT_THROW(resolver.lookup("example.org", mx, {}), DNSLookupError);
}

TEST(DoHResolver, restsAServiceThatGivesTwoMessagesNoReply) {
    Clock::time_point now{};
    std::string down = "1";
    int status = 200, serial = 0;
    HTTPFailure failure = HTTPFailure::timedOut;
    const auto http = std::make_shared<ScriptedHTTP>([&](const HTTPRequest& request, std::stop_token) {
        if (down.find(isFirst(request) ? '1' : '2') != std::string::npos) throw HTTPError(failure);
        return HTTPResponse{status, goodBody};
    });
    DoHResolver resolver(http, {.clock = [&] { return now; }});
    DNSAsker message;
    // Who is asked, and what comes of it. Without an asker each question is another message's.
    const auto ask = [&](DNSAsker* asker = nullptr) {
        const std::string found =
            outcome(resolver, "a" + std::to_string(++serial) + ".example", {.asker = asker});
        std::string asked;
        for (const auto& url : http->takeURLs())
            asked += url.find("cloudflare") != std::string::npos ? "1" : "2";
        return asked + " " + found;
    };
    const std::string bothDown = " cloudflare-dns.com: timed out; dns.google: timed out";
    // One message asks it once, and cannot make it rest.
    EXPECT_EQ(ask(&message), "12 yes");
    EXPECT_EQ(ask(&message), "2 yes");
    down = "";
    EXPECT_EQ(ask(), "1 yes");  // a reply between two failures
    down = "1";
    EXPECT_EQ(ask(), "12 yes");
    EXPECT_EQ(ask(), "12 yes");
    EXPECT_EQ(ask(), "2 yes");
    EXPECT_EQ(resolver.resting(), 1u);
    // Who rests still stands in the failure text.
    now += 4999ms;
    status = 500;
    EXPECT_EQ(ask(), "2 cloudflare-dns.com: timed out; dns.google: HTTP 500");
    EXPECT_THROW(resolver.lookup("rests.example", txt), DNSServiceRests);
    http->takeURLs();
    status = 200;
    now += 1ms;
    EXPECT_EQ(ask(), "12 yes");  // tried in vain
    EXPECT_EQ(ask(), "2 yes");
    down = "12";
    for (int i = 0; i < 2; ++i) EXPECT_EQ(ask(), "2" + bothDown);
    EXPECT_TRUE(resolver.doAllRest());
    EXPECT_EQ(ask(), bothDown);
    now += 5s;
    EXPECT_EQ(ask(), "12" + bothDown);
    EXPECT_EQ(ask(), bothDown);
    resolver.tryAgain();
    down = "2";
    EXPECT_EQ(ask(), "1 yes");
    EXPECT_EQ(ask(), "1 yes");
    // What fails at once may be asked again for the same message. Whatever a service replies shows that it
    // is there.
    down = "1";
    failure = HTTPFailure::noConnection;
    DNSAsker other;
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(ask(&other).starts_with("12 "));
    failure = HTTPFailure::answerTooLarge;
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(ask().starts_with("12 "));
    EXPECT_EQ(resolver.resting(), 0u);
}

TEST(DoHResolver, asksTheSecondServiceWhenTheFirstTakesLong) {
    TestServer hanging([](const std::string&) { return Reply{.fault = Reply::Fault::hangBeforeHead}; });
    int slowStatus = 200;
    TestServer answering([](const std::string& target) {
        return Reply{.body = target.find("odd") != std::string::npos ? R"({"Status":2})" : goodBody};
    });
    const auto services = [](const TestServer& first, const TestServer& second) {
        DoHOptions options = twoServices(first.port(), second.port());
        options.headStart = 20ms;
        return options;
    };
    {
        DoHResolver resolver(engine(), services(hanging, answering));
        DNSAsker message;
        EXPECT_EQ(outcome(resolver, "a.example", {.asker = &message}), "yes");
        EXPECT_EQ(resolver.source("a.example", txt), "second.localhost");
        EXPECT_EQ(outcome(resolver, "b.example", {.asker = &message}), "yes");
        EXPECT_LE(hanging.requests().size(), 1u);
    }
    // The first that was overtaken may still be the one that answers, and its failure comes first.
    const TestServer* second = &hanging;
    std::size_t awaited = hanging.requests().size() + 1;
    TestServer slow([&](const std::string&) {
        second->waitForRequests(awaited);
        return Reply{.status = slowStatus, .body = goodBody};
    });
    DoHResolver first(engine(), services(slow, hanging));
    EXPECT_EQ(outcome(first, "a.example"), "yes");
    EXPECT_EQ(first.source("a.example", txt), "first.localhost");
    slowStatus = 500;
    second = &answering;
    awaited = answering.requests().size() + 1;
    DoHResolver neither(engine(), services(slow, answering));
    EXPECT_EQ(outcome(neither, "odd.example"), "first.localhost: HTTP 500; second.localhost: SERVFAIL");
    // One that times out beside another that does: both are told of, and neither is asked for this message
    // again.
    DoHOptions options = services(hanging, hanging);
    options.timeOut = 100ms;
    DoHResolver none(engine(), options);
    DNSAsker message;
    const auto count = hanging.requests().size();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(outcome(none, "c.example", {.asker = &message}),
                  "first.localhost: timed out; second.localhost: timed out");
    }
    EXPECT_LE(hanging.requests().size(), count + 2);
}

TEST(DoHResolver, goesOnWithTheFirstServiceDown) {
    TestServer down([](const std::string&) { return Reply{}; }, Certificate::good,
                    TestServer::Handshake::reset);
    TestServer up([](const std::string&) { return Reply{.body = goodBody}; });
    DoHResolver resolver(engine(), twoServices(down.port(), up.port()));
    for (int i = 0; i < 50; ++i) EXPECT_EQ(outcome(resolver, "a" + std::to_string(i) + ".example"), "yes");
    EXPECT_EQ(down.connections(), 2u);  // of two messages
    EXPECT_EQ(up.requests().size(), 50u);
}

TEST(DoHResolver, oneCheckHasAMinute) {
    TestServer server([](const std::string& target) {
        if (target.find("fast") != std::string::npos) return Reply{.body = goodBody};
        return Reply{.fault = Reply::Fault::hangBeforeHead};
    });
    const auto network = std::make_shared<DoHResolver>(engine(), twoServices(server.port(), server.port()));
    const Patience check{.deadline = Clock::now() + 300ms}, other{.deadline = Clock::now() + 700ms};
    EXPECT_EQ(outcome(*network, "fast.example", check), "yes");
    std::thread second(
        [&] { EXPECT_EQ(outcome(*network, "slow.example", other), "the check took too long"); });
    EXPECT_EQ(outcome(*network, "slow.example", check), "the check took too long");  // in the middle of it
    EXPECT_LT(Clock::now(), other.deadline);
    for (const char* name : {"slow.example", "fast.example", "fast2.example"}) {
        EXPECT_EQ(outcome(*network, name, check), "the check took too long");
    }
    // Nobody was asked. (The other thread asks for the slow one anew, once this check has given up.)
    EXPECT_EQ(std::ranges::count_if(
                  server.requests(),
                  [](const std::string& target) { return target.find("fast") != std::string::npos; }),
              1);
    EXPECT_EQ(outcome(*network, "fast2.example"), "yes");  // whose first service did not fail
    second.join();
}

TEST(DoHResolver, manyAtOnceOverHTTP2WithStopsInTheMiddle) {
    HTTP2Server server("dns-query", goodBody);
    DoHResolver resolver(engine(), twoServices(server.port(), unusedPort()));
    std::atomic<int> good = 0, stopped = 0;
    onThreads(200, [&](int i) {
        std::minstd_rand random(static_cast<unsigned>(i + 1));
        std::stop_source source;
        std::thread stopper;
        if (i % 2 == 0) {
            stopper = std::thread([&source, wait = std::chrono::microseconds(random() % 30'000)] {
                std::this_thread::sleep_for(wait);
                source.request_stop();
            });
        }
        for (int question = 0; question < 4; ++question) {
            // Pairs of threads ask the same: one of them may be stopped, the other must get its answer.
            const std::string name =
                "a" + std::to_string(i / 2) + "-" + std::to_string(question) + ".example";
            const std::string found = outcome(resolver, name, {source.get_token()});
            if (found == "yes") ++good;
            if (found == "stopped") ++stopped;
            EXPECT_TRUE(found == "yes" || (found == "stopped" && i % 2 == 0)) << found;
        }
        if (stopper.joinable()) stopper.join();
    });
    EXPECT_EQ(good + stopped, 800);
    EXPECT_GE(good, 400);
    // Two at a time; on a busy machine the host's other address is tried as well and given up.
    EXPECT_LE(server.connections(), 4u);
}

}  // namespace
}  // namespace quillmark::test
