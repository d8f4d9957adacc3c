#include "QuillmarkKit/Lookups/RDAP.h"

#include <sys/stat.h>

#include "QuillmarkKit/Support/Files.h"
#include "ScriptedHTTP.h"
#include "TestServer.h"
#include "tests/Test.h"

namespace quillmark::test {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

/// A date as text, "none", or why there is none.
std::string outcome(RegistrationLookup& registry, std::string_view domain, std::stop_token stop = {}) {
    try {
        const auto date = registry.registrationDate(domain, {stop});
        return date ? iso8601(*date) : "none";
    } catch (const RDAPError& error) {
        return error.what();
    }
}

std::string withEvents(std::string_view events) { return R"({"events":[)" + std::string(events) + "]}"; }

const std::string registered =
    withEvents(R"({"eventAction":"Registration","eventDate":"2026-10-01T12:34:56.789Z"})");
constexpr const char* registeredDate = "2026-10-01T12:34:56Z";

/// IANA's list with one registry, of .com.
std::string listWith(std::string_view base) {
    return R"({"services":[[["com"],[")" + std::string(base) + R"("]]]})";
}

/// IANA with that list, and a registry that answers with this.
std::shared_ptr<ScriptedHTTP> network(const std::string& list, std::function<HTTPResponse()> answer) {
    return std::make_shared<ScriptedHTTP>([=](const HTTPRequest& request, std::stop_token) {
        return request.url.ends_with("dns.json") ? HTTPResponse{200, list} : answer();
    });
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
    for (const auto& row : rows)
        EXPECT_EQ(list->base(row.domain), row.base ? std::optional<std::string>(row.base) : std::nullopt)
            << row.domain;
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
    int status = 429;
    const auto http =
        network(listWith("https://registry.example"), [&] { return HTTPResponse{status, registered}; });
    RDAPClient client(http, {.cacheDirectory = folder / "cache"});
    EXPECT_EQ(outcome(client, "Shop.Example.COM"), "the registry answered HTTP 429");
    EXPECT_EQ(http->takeURLs(),
              (std::vector<std::string>{"https://data.iana.org/rdap/dns.json",
                                        "https://registry.example/domain/shop.example.com"}));
    status = 200;  // a failure is not remembered, the list and an answer are
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
    const fs::path file = folder / "cache/rdap-dns.json";
    const std::string kept = listWith("https://kept.example"), fresh = listWith("https://new.example");
    const struct {
        std::chrono::seconds age;
        std::string content;
        bool isUsed = false;
    } rows[] = {
        {7 * 24h - 1s, kept, true},
        {7 * 24h, kept},
        {-1h, kept},  // from the future
        {1h, "{"},
        {1h, kept + std::string(4 << 20, ' ')},
    };
    const auto now = fs::file_time_type::clock::now();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.age.count());
        replaceFile(file, row.content);
        fs::last_write_time(file, now - row.age);
        const auto http = network(fresh, [] { return HTTPResponse{200, registered}; });
        RDAPClient client(http, {.cacheDirectory = folder / "cache", .clock = [&] { return now; }});
        EXPECT_EQ(outcome(client, "a.com"), registeredDate);
        EXPECT_EQ(http->takeURLs().back(),
                  row.isUsed ? "https://kept.example/domain/a.com" : "https://new.example/domain/a.com");
        EXPECT_EQ(fileContents(file, 1000), row.isUsed ? kept : fresh);
    }
    // What is no ordinary file is left alone, and told of once. A pipe would be waited for.
    fs::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    int told = 0;
    RDAPClient besides(network("{", [] { return HTTPResponse{200, registered}; }),
                       {.cacheDirectory = folder / "cache", .ignored = [&](const fs::path& path) {
                            EXPECT_EQ(path, file);
                            ++told;
                        }});
    for (int times = 0; times < 2; ++times) outcome(besides, "a.com");
    EXPECT_EQ(told, 1);
    EXPECT_TRUE(fs::is_fifo(file));
    fs::remove(file);
    replaceFile(file, fresh);
    // A cache that cannot be written costs a request the next time, and nothing else.
    RDAPClient client(network(fresh, [] { return HTTPResponse{200, registered}; }),
                      {.cacheDirectory = file / "below a file"});
    EXPECT_EQ(outcome(client, "a.com"), registeredDate);
}

TEST(RDAPClient, overHTTPS) {
    TestServer elsewhere([](const std::string&) { return Reply{.body = registered}; });
    const std::string port = ":" + std::to_string(elsewhere.port());
    Reply reply;
    TestServer registry([&](const std::string&) { return reply; });
    TestServer iana([&](const std::string&) { return Reply{.body = listWith(registry.url("/rdap/"))}; });
    const auto asked = [&](bool allowLoopback, const std::string& list) {
        RDAPClient client(std::make_shared<HTTPEngine>(HTTPOptions{.caFile = Authority::shared().caFile(),
                                                                   .allowLoopback = allowLoopback}),
                          {.bootstrapURL = list});
        return outcome(client, "example.com");
    };
    const struct {
        const char* outcome;
        int status;
        std::string body, location = {};
    } rows[] = {
        {registeredDate, 200, registered},
        {"none", 200, "<html>"},
        {"none", 200, std::string(100'000, '[')},
        {"the registry answered HTTP 404", 404, ""},
        {"the registry answered HTTP 302", 302, "", "http://localhost" + port},
        {"the registry answered HTTP 301", 301, "", "https://127.0.0.1" + port},
        {"the registry answered HTTP 307", 307, "", "/again"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.outcome + row.location);
        reply = {.status = row.status, .body = row.body, .headers = {"Location: " + row.location}};
        EXPECT_EQ(asked(true, iana.url()), row.outcome);
    }
    EXPECT_TRUE(registry.requests().front().starts_with("GET /rdap/domain/example.com HTTP"));
    EXPECT_NE(registry.requests().front().find("Accept: application/rdap+json, application/json\r\n"),
              std::string::npos);
    // A registry may not send us to an address that is nobody's but ours.
    reply = {.status = 302, .headers = {"Location: https://localhost" + port}};
    EXPECT_EQ(asked(false, iana.url()), "the registry answered HTTP 302");
    EXPECT_TRUE(elsewhere.requests().empty());
    EXPECT_EQ(asked(true, iana.url()), registeredDate);

    for (const Reply& broken :
         {Reply{.status = 500}, Reply{.body = "{}"}, Reply{.fault = Reply::Fault::endless}}) {
        reply = broken;
        EXPECT_EQ(asked(true, registry.url()), "the IANA RDAP list couldn't be read");
    }
}

TEST(RDAPClient, manyCallersShareOneRequest) {
    std::atomic<int> lists = 0, answers = 0, good = 0, stopped = 0;
    std::stop_source firstStop;
    const auto http = std::make_shared<ScriptedHTTP>([&](const HTTPRequest& request, std::stop_token stop) {
        if (request.url.ends_with("dns.json")) {
            ++lists;
            std::this_thread::sleep_for(20ms);
            return HTTPResponse{200, listWith("https://registry.example")};
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
    onThreads(32, [&](int i) {
        while (i > 0 && lists == 0) std::this_thread::sleep_for(1ms);
        const auto result =
            outcome(client, "example.com", i == 0 ? firstStop.get_token() : std::stop_token());
        (result == registeredDate ? good : stopped)++;
    });
    EXPECT_EQ(lists, 1);
    EXPECT_EQ(answers, 2);
    EXPECT_EQ(good, 31);
    EXPECT_EQ(stopped, 1);
}

}  // namespace
}  // namespace quillmark::test
