#include "CommandLine/RecordedRun.h"

#include <nlohmann/json.hpp>

#include "CommandLine/ResultFolder.h"
#include "QuillmarkKit/Lookups/DoHResolver.h"
#include "QuillmarkKit/ReportJSON.h"
#include "ScriptedHTTP.h"
#include "TestServer.h"
#include "tests/Test.h"

namespace quillmark::test {
namespace {

namespace fs = std::filesystem;
using JSON = nlohmann::json;

const Date now = *parsedRFC3339("2026-11-21T10:00:00.125Z");

HTTPResponse txt(const std::string& record) {
    const JSON answer = {{"type", 16}, {"data", "\"" + record + "\""}};
    return {200, JSON{{"Status", 0}, {"AD", true}, {"Answer", {answer}}}.dump()};
}

/// A network with every kind of outcome. Of the names that begin with "flaky", a question fails every other
/// time.
std::shared_ptr<ScriptedHTTP> network(const std::string& keyRecord) {
    const auto flaky = std::make_shared<std::atomic<int>>(0);
    return std::make_shared<ScriptedHTTP>([=](const HTTPRequest& request, std::stop_token) -> HTTPResponse {
        const auto has = [&](const char* part) { return request.url.find(part) != std::string::npos; };
        if (has("name=slow"))
            throw HTTPError(HTTPFailure::answerTooLarge);  // a service may rest after others
        if (has("name=servfail")) return {200, R"({"Status":2})"};
        if (has("name=odd")) return {200, "{"};
        if (has("name=gone")) return {200, R"({"Status":3})"};
        if (has("name=empty")) return {200, R"({"Status":0})"};
        if (has("name=flaky") && (*flaky)++ % 4 < 2) return {500, ""};  // at both services
        if (has("_domainkey")) return txt(keyRecord);
        if (has("data.iana.org")) return {200, R"({"services":[[["org"],["https://rdap.example/"]]]})"};
        if (has("domain/undated.org")) return {200, "{}"};
        if (has("domain/closed.org")) return {403, ""};
        if (has("domain/")) {
            return {200, R"({"events":[{"eventAction":"registration",
                                        "eventDate":"2026-11-01T12:00:00.5+01:00"}]})"};
        }
        return txt("v=spf1 include:slow.example.org -all");
    });
}

std::vector<std::string> messages(const PrivateKey& key) {
    std::vector<std::string> list;
    for (const char* selector :
         {"key", "slow", "servfail", "odd", "gone", "empty", "flaky", "\xFFname", "a|b"}) {
        const std::string chosen = selector, tags = "v=1; d=example.org; h=from:subject; s=" + chosen;
        const char* from = chosen == "odd"     ? "a@undated.org"
                           : chosen == "empty" ? "a@closed.org"
                                               : "a@Example.org";
        const std::string plain = std::string("Return-Path: <a@flaky.example.org>\r\nFrom: ") + from +
                                  "\r\nReply-To: b@other.nowhere\r\nReceived: from x [192.0.2.1] by y\r\n"
                                  "Subject: x\r\n\r\nbody\r\n";
        list.push_back(signedMessage(plain, {.tags = tags}, key));
    }
    return list;
}

/// The reports, without their identities, of all messages; each is checked six times, at once.
std::vector<std::string> checked(RecordedRun& run, const std::vector<std::string>& messages) {
    std::vector<std::string> reports(messages.size() * 6);
    onThreads(static_cast<int>(reports.size()), [&](int number) {
        const auto i = static_cast<std::size_t>(number);
        const std::string& message = messages[i % messages.size()];
        const auto report = run.verify(sha256(message), MailMessage::parse(message), "m.eml", now).report;
        JSON json = JSON::parse(compactJSON(report));
        json.erase("id");
        reports[i] = json.dump();
    });
    return reports;
}

TEST(RecordedRun, nobodyIsAskedWhatARecordingOfAnEarlierPartKnows) {
    const auto mails = messages(rsaKey());
    const auto http = network(keyRecord(rsaKey()));
    const TemporaryFolder folder;
    const auto resolver = [&] {
        return std::make_shared<EarlierAnswers>(std::make_shared<DoHResolver>(http));
    };
    const auto run = [&](const std::shared_ptr<EarlierAnswers>& answers) {
        answers->begin();
        RecordedRun checks(answers, answers->before(std::make_shared<RDAPClient>(http)));
        checked(checks, mails);
        return checks.json({.at = now, .begun = now, .ended = now});
    };
    const std::string first = run(resolver());
    http->takeURLs();
    const auto later = resolver();
    later->addRecording(folder / "missing");
    later->addRecording(folder.write("damaged", "{"));
    later->addRecording(folder.write("recording", first));
    const std::string second = run(later);
    // Are asked for again. One of them perhaps for the first time, as a name that failed before leads to it.
    std::set<std::string> failures = {"slow.example.org"};
    const JSON recorded = JSON::parse(first);
    for (const JSON& message : recorded["messages"]) {
        const JSON errors = message.value("errors", JSON::object());
        for (const auto& [question, why] : errors.items())
            failures.insert(question.substr(0, question.find('|')));
    }
    for (const std::string& url : http->takeURLs()) {
        if (url.find("type=") == std::string::npos) continue;  // of registries some failed, too
        EXPECT_TRUE(std::ranges::any_of(failures, [&](const auto& name) {
            return url.find("name=" + name) != std::string::npos;
        })) << url;
    }
    const char* const question = "key._domainkey.example.org|TXT";
    EXPECT_EQ(JSON::parse(second)["sources"]["answers"][question], recorded["sources"]["answers"][question]);
    EXPECT_EQ(JSON::parse(second)["sources"]["registrations"], recorded["sources"]["registrations"]);
    // What is older than a day isn't known any more.
    fs::last_write_time(folder / "recording", fs::file_time_type::clock::now() - std::chrono::hours(25));
    const auto stale = resolver();
    stale->addRecording(folder / "recording");
    run(stale);
    const auto urls = http->takeURLs();
    EXPECT_TRUE(std::ranges::any_of(
        urls, [](const auto& url) { return url.find("name=key._domainkey") != std::string::npos; }));
}

TEST(RecordedRun, checksMadeAgainGiveTheSameReports) {
    const auto mails = messages(rsaKey());
    const auto http = network(keyRecord(rsaKey()) + "; n=\u202E\u00FC\x7F");
    RecordedRun live(std::make_shared<DoHResolver>(http), std::make_shared<RDAPClient>(http));
    const auto reports = checked(live, mails);

    const TemporaryFolder folder;
    const auto again = [&](const std::string& json) {
        FixedAnswers fixed = FixedAnswers::read(folder.write("record", json));
        EXPECT_EQ(fixed.at, now);
        return RecordedRun(std::make_shared<StaticResolver>(fixed.answers, fixed.failing, fixed.errors,
                                                            "not in the recorded answers"),
                           std::make_shared<StaticRegistry>(fixed.registrations.value()),
                           fixed.messages.value());
    };
    const RecordingTimes times{.at = now, .begun = now, .ended = now};
    const std::string json = live.json(times);
    RecordedRun offline = again(json);
    EXPECT_EQ(checked(offline, mails), reports);

    // A record of the second run says the same, but for who answered.
    JSON first = JSON::parse(json), second = JSON::parse(offline.json(times));
    EXPECT_EQ(first["sources"]["answers"]["key._domainkey.example.org|TXT"], "cloudflare-dns.com");
    EXPECT_EQ(first["sources"]["registrations"]["example.org"], "https://rdap.example/");
    EXPECT_EQ(first["registrations"]["example.org"], "2026-11-01T11:00:00.500Z");
    first.erase("sources");
    second.erase("sources");
    EXPECT_EQ(first, second);
    EXPECT_TRUE(std::ranges::all_of(json, [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); }));

    // What a file does not hold was not asked, which is no proof that it does not exist.
    RecordedRun empty =
        again(R"({"answers":{},"registrations":{},"messages":{},"at":"2026-11-21T10:00:00.125Z"})");
    const auto unasked = checked(empty, {mails[0]}).front();
    EXPECT_NE(unasked.find(R"("status":{"lookupFailed":{}})"), std::string::npos) << unasked;
}

}  // namespace
}  // namespace quillmark::test
