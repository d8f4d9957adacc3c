#include "QuillmarkKit/RDAP.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "QuillmarkKit/Support/Files.h"
#include "ScriptedHTTP.h"
#include "TestServer.h"

namespace quillmark::test {
namespace {

using namespace std::chrono_literals;
using Fault = Reply::Fault;
namespace fs = std::filesystem;

/// A date as text, "none", or why there is none.
std::string outcome(RegistrationLookup& registry, std::string_view domain, std::stop_token stop = {}) {
    try {
        const auto date = registry.registrationDate(domain, stop);
        return date ? iso8601(*date) : "none";
    } catch (const RDAPError& error) {
        return error.what();
    }
}

std::string withEvents(std::string_view events) { return R"({"events":[)" + std::string(events) + "]}"; }

const std::string registered =
    withEvents(R"({"eventAction":"Registration","eventDate":"2026-10-01T12:34:56.789Z"})");
constexpr const char* registeredDate = "2026-10-01T12:34:56Z";

std::string listFor(std::string_view domain, std::string_view base) {
    return R"({"services":[[[")" + std::string(domain) + R"("],[")" + std::string(base) + R"("]]]})";
}

TEST(RDAP, base) {
    const auto list = RDAPBootstrap::parse(R"({"services":[
        "no list", [["short"]], [{"an":"object"},["https://a.example"]],
        [["xyz"],["http://plain.example/","ftp://a"]],
        [["xyz","COM",5],[7,"HTTPS://First.example/rdap","https://second.example/"]],
        [["co.uk"],["https://two.example/"]],
        [["uk"],["https://one.example/"]],
        [["bad"],["https://u@x.example/","https://x.example/?q=","https://x.example/#f"]]]})");
    ASSERT_TRUE(list);
    const struct {
        const char *domain, *base;
    } rows[] = {
        {"shop.example.com", "HTTPS://First.example/rdap/"},
        {"example.xyz", "HTTPS://First.example/rdap/"},  // a service without an https address is passed over
        {"a.co.uk", "https://two.example/"},
        {"co.uk", "https://one.example/"},  // never the whole name itself
        {"a.b.uk", "https://one.example/"},
        {"com", nullptr},
        {"example.bad", nullptr},
        {"example.zz", nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.domain);
        EXPECT_EQ(list->base(row.domain), row.base ? std::optional<std::string>(row.base) : std::nullopt);
    }
    for (const std::string text : {"", "not JSON", "[]", R"({"services":{}})", R"({"service":[]})"}) {
        EXPECT_FALSE(RDAPBootstrap::parse(text)) << text;
    }
    EXPECT_FALSE(RDAPBootstrap::parse(std::string(1000, '[')));
}

TEST(RDAP, registrationDate) {
    const struct {
        std::string answer;
        std::optional<std::string> date;
    } rows[] = {
        {registered, registeredDate},
        {withEvents(R"({"eventAction":"last changed","eventDate":"2020-01-01T00:00:00Z"},
                       5, {"eventAction":7}, {"eventAction":"registration","eventDate":"1999-12-31t23:00:00-01:00"},
                       {"eventAction":"registration","eventDate":"2020-01-01T00:00:00Z"})"),
         "2000-01-01T00:00:00Z"},
        {withEvents(R"({"eventAction":"last changed"},{"eventAction":"expiration"})"), {}},
        {withEvents(R"({"eventAction":"registration"})"), {}},
        {withEvents(R"({"eventAction":"registration","eventDate":946684800})"), {}},
        {withEvents(R"({"eventAction":"registration","eventDate":"2024-05-01"})"), {}},
        {withEvents(R"({"eventAction":"registration","eventDate":"2024-02-30T00:00:00Z"})"), {}},
        {R"({"events":{}})", {}},
        {"[]", {}},
        {"<html>", {}},
        {"", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.answer);
        const auto date = registrationDate(row.answer);
        EXPECT_EQ(date ? std::optional(iso8601(*date)) : std::nullopt, row.date);
    }
}

TEST(RDAPClient, asksTheRegistryOnceForEachDomain) {
    const TemporaryFolder folder;
    bool isDown = true;
    const auto http = std::make_shared<ScriptedHTTP>([&](const HTTPRequest& request, std::stop_token) {
        if (request.url.ends_with("dns.json"))
            return HTTPResponse{200, listFor("com", "https://registry.example")};
        return HTTPResponse{isDown ? 429 : 200, registered};
    });
    RDAPClient client(http, {.cacheDirectory = folder.file("cache")});
    EXPECT_EQ(outcome(client, "Shop.Example.COM"), "the registry answered HTTP 429");
    EXPECT_EQ(http->takeURLs(),
              (std::vector<std::string>{"https://data.iana.org/rdap/dns.json",
                                        "https://registry.example/domain/shop.example.com"}));
    isDown = false;  // a failure is not remembered, the list and an answer are
    EXPECT_EQ(outcome(client, "Shop.Example.COM"), registeredDate);
    EXPECT_EQ(outcome(client, "shop.example.com"), registeredDate);
    EXPECT_EQ(http->takeURLs().size(), 1u);

    // What may not leave the machine is not asked for.
    for (const std::string domain : {"localhost", "example.zz", "a/../b.com", "a%2f.com", "b\xc3\xbc.com",
                                     "a?.com", "printer.local", ""}) {
        const std::string label = domain.substr(domain.rfind('.') + 1);
        EXPECT_EQ(outcome(client, domain), "no RDAP server for ." + label + " in the IANA list");
    }
    EXPECT_EQ(http->takeURLs().size(), 0u);
}

TEST(RDAPClient, keepsTheListForSevenDays) {
    const TemporaryFolder folder;
    const fs::path file = folder.file("cache/rdap-dns.json");
    const std::string kept = listFor("com", "https://kept.example"),
                      fresh = listFor("com", "https://new.example");
    const struct {
        const char* what;
        std::chrono::seconds age;
        std::string content;
        bool isUsed = false;
    } rows[] = {
        {"six days old", 6 * 24h, kept, true},
        {"a second short of seven days", 7 * 24h - 1s, kept, true},
        {"seven days old", 7 * 24h, kept},
        {"from the future", -1h, kept},
        {"damaged", 1h, "{"},
        {"too large", 1h, kept + std::string(4 << 20, ' ')},
    };
    const auto now = fs::file_time_type::clock::now();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        replaceFile(file, row.content);
        fs::last_write_time(file, now - row.age);
        const auto http = std::make_shared<ScriptedHTTP>([&](const HTTPRequest& request, std::stop_token) {
            return HTTPResponse{200, request.url.ends_with("dns.json") ? fresh : registered};
        });
        RDAPClient client(http, {.cacheDirectory = folder.file("cache"), .clock = [&] { return now; }});
        EXPECT_EQ(outcome(client, "a.com"), registeredDate);
        EXPECT_EQ(http->takeURLs().back(),
                  row.isUsed ? "https://kept.example/domain/a.com" : "https://new.example/domain/a.com");
        EXPECT_EQ(fileContents(file, 1000), row.isUsed ? kept : fresh);
    }
    // A cache that cannot be written costs a request the next time, and nothing else.
    const auto http = std::make_shared<ScriptedHTTP>([&](const HTTPRequest& request, std::stop_token) {
        return HTTPResponse{200, request.url.ends_with("dns.json") ? fresh : registered};
    });
    RDAPClient client(http, {.cacheDirectory = file / "below a file"});
    EXPECT_EQ(outcome(client, "a.com"), registeredDate);
}

TEST(RDAPClient, overHTTPS) {
    TestServer elsewhere([](const std::string&) { return Reply{.body = registered}; });
    const std::string port = ":" + std::to_string(elsewhere.port());
    const struct {
        const char* outcome;
        Reply reply;
        bool reachesElsewhere = false;
    } rows[] = {
        {registeredDate, {.body = registered}},
        {"none", {.body = "<html>"}},
        {"none", {.body = std::string(100'000, '[')}},
        {"the registry answered HTTP 404", {.status = 404}},
        {"the registry answered HTTP 204", {.status = 204}},
        {"timed out", {.fault = Fault::hangBeforeHead}},
        {"timed out", {.body = "1234", .fault = Fault::hangAfterHead}},
        {"connection lost", {.fault = Fault::resetBeforeHead}},
        {"answer too large", {.fault = Fault::endless}},
        {registeredDate, {.status = 302, .headers = {"Location: https://localhost" + port}}, true},
        {"the registry answered HTTP 302", {.status = 302, .headers = {"Location: http://localhost" + port}}},
        {"the registry answered HTTP 301",
         {.status = 301, .headers = {"Location: https://127.0.0.1" + port}}},
        {"the registry answered HTTP 307", {.status = 307, .headers = {"Location: /again"}}},
    };
    const HTTPOptions trusting{.caFile = Authority::shared().caFile(), .allowLoopback = true};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.outcome << ", row " << &row - rows);
        TestServer registry([&](const std::string& target) {
            return target == "/list" ? Reply{.body = listFor("com", "https://localhost" + target)}
                                     : row.reply;
        });
        TestServer iana(
            [&](const std::string&) { return Reply{.body = listFor("com", registry.url("/rdap/"))}; });
        RDAPClient client(std::make_shared<HTTPEngine>(trusting),
                          {.bootstrapURL = iana.url("/list"),
                           .timeOut = std::string_view(row.outcome) == "timed out" ? 2s : 10s});
        const auto before = elsewhere.requests().size();
        EXPECT_EQ(outcome(client, "example.com"), row.outcome);
        EXPECT_EQ(elsewhere.requests().size() - before, row.reachesElsewhere ? 1u : 0u);
        ASSERT_FALSE(registry.requests().empty());
        EXPECT_EQ(registry.requests().front().substr(0, 31), "GET /rdap/domain/example.com HT");
        EXPECT_NE(registry.requests().front().find("Accept: application/rdap+json, application/json\r\n"),
                  std::string::npos);
    }

    // A registry may not send us to an address that is nobody's but ours.
    TestServer registry([&](const std::string&) {
        return Reply{.status = 302, .headers = {"Location: https://localhost" + port}};
    });
    TestServer iana([&](const std::string&) { return Reply{.body = listFor("com", registry.url())}; });
    RDAPClient strict(std::make_shared<HTTPEngine>(HTTPOptions{.caFile = Authority::shared().caFile()}),
                      {.bootstrapURL = iana.url()});
    const auto before = elsewhere.requests().size();
    EXPECT_EQ(outcome(strict, "example.com"), "the registry answered HTTP 302");
    EXPECT_EQ(elsewhere.requests().size(), before);

    for (const Reply& reply : {Reply{.status = 500}, Reply{.body = "{}"}, Reply{.fault = Fault::endless}}) {
        TestServer broken([&](const std::string&) { return reply; });
        RDAPClient client(std::make_shared<HTTPEngine>(trusting), {.bootstrapURL = broken.url()});
        EXPECT_EQ(outcome(client, "example.com"), "the IANA RDAP list couldn't be read");
    }
}

TEST(RDAPClient, manyCallersShareOneRequest) {
    std::atomic<int> lists = 0, answers = 0;
    std::stop_source firstStop;
    const auto http = std::make_shared<ScriptedHTTP>([&](const HTTPRequest& request, std::stop_token stop) {
        if (request.url.ends_with("dns.json")) {
            ++lists;
            std::this_thread::sleep_for(20ms);
            return HTTPResponse{200, listFor("com", "https://registry.example")};
        }
        // Whoever asks first is stopped while it waits; one of the others takes its place.
        if (++answers == 1) {
            firstStop.request_stop();
            while (!stop.stop_requested()) std::this_thread::sleep_for(1ms);
            throw HTTPError(HTTPFailure::stopped);
        }
        return HTTPResponse{200, registered};
    });
    RDAPClient client(http);
    std::atomic<int> good = 0, stopped = 0;
    std::vector<std::thread> threads;
    std::stop_token own = firstStop.get_token();
    for (int i = 0; i < 32; ++i) {
        threads.emplace_back([&, i] {
            const std::string result = outcome(client, "example.com", i == 0 ? own : std::stop_token());
            (result == registeredDate ? good : stopped)++;
        });
        if (i == 0) {
            while (lists == 0) std::this_thread::sleep_for(1ms);
        }
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(lists, 1);
    EXPECT_EQ(answers, 2);
    EXPECT_EQ(good, 31);
    EXPECT_EQ(stopped, 1);
}

TEST(RDAPClient, wantOfMemoryLeavesNobodyWaiting) {
    int requests = 0;
    RDAPClient client(std::make_shared<ScriptedHTTP>([&](const HTTPRequest& request, std::stop_token) {
        if (++requests % 2 == 1) throw std::bad_alloc();
        return HTTPResponse{
            200, request.url.ends_with("dns.json") ? listFor("com", "https://r.example") : registered};
    }));
    std::stop_source stop;
    stop.request_stop();  // or this test would wait for ever where it fails
    for (int i = 0; i < 2; ++i)
        EXPECT_THROW(outcome(client, "example.com", stop.get_token()), std::bad_alloc);
    EXPECT_EQ(outcome(client, "example.com", stop.get_token()), registeredDate);
}

}  // namespace
}  // namespace quillmark::test
