#include "Apart/NetworkProcess.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <thread>

#include "Apart/NetworkWorker.h"

namespace quillmark {
namespace {

using Clock = Patience::Clock;
using enum DNSRecordType;

/// Answers by a table, and by what else can become of a question.
class ScriptedResolver : public DNSResolver {
public:
    explicit ScriptedResolver(std::string_view choice)
        : m_table({{"a.example|A", DNSAnswer::records({"192.0.2.1", "192.0.2.2"})},
                   {"a.example|TXT", validated(DNSAnswer::records({std::string("\0\xFF\n", 3), ""}))},
                   {"a.example|MX", validated(DNSAnswer::noData())},
                   {"nobody.example|A", validated(DNSAnswer::nxdomain())},
                   {"empty.example|A", DNSAnswer::records({})}},
                  {"fails.example"}, {{"odd.example|A", "service.example: HTTP 500; other: caf\xC3\xA9"}}, {},
                  {{"a.example|A", std::string(choice)}, {"a.example|TXT", "dns.example"}}) {}

    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience) override {
        std::unique_lock lock(m_mutex);
        if (name == "rests.example") {
            patience.asker->failed.insert("one.example");
            patience.asker->slow.insert("two.example");
            throw DNSServiceRests("one.example: timed out");
        }
        if (name == "hang.example") {
            ++m_begun, m_changed.notify_all();
            m_changed.wait_until(lock, patience.stop, patience.deadline, [] { return false; });
            ++m_ended, m_changed.notify_all();
            throw DNSLookupError(*patience.end());
        }
        if (name == "kill.example") {
            m_changed.wait(lock, [&] { return m_begun > 0; });
            raise(SIGKILL);
        }
        if (name == "freeze.example") raise(SIGSTOP);
        if (name == "begun.example") m_changed.wait(lock, [&] { return m_begun > 0; });
        if (name == "after.example") m_changed.wait(lock, [&] { return m_ended > 0; });
        return m_table.lookup(name, type, patience);
    }
    std::string source(std::string_view name, DNSRecordType type) override {
        return m_table.source(name, type);
    }

private:
    static DNSAnswer validated(DNSAnswer answer) {
        answer.isValidated = true;
        return answer;
    }

    StaticResolver m_table;
    std::mutex m_mutex = {};
    std::condition_variable_any m_changed = {};
    int m_begun = 0, m_ended = 0;
};

std::shared_ptr<StaticRegistry> scriptedRegistry() {
    return std::make_shared<StaticRegistry>(
        StaticRegistry::Entries{{"dated.example", Date{std::chrono::seconds(-1'000'000'000)}},
                                {"undated.example", std::optional<Date>()},
                                {"failing.example", "the registry answered HTTP 500"},
                                {"shop.c\x01m", "no RDAP server for .c\x01m in the IANA list"}});
}

std::shared_ptr<NetworkProcess> scriptedProcess(
    std::chrono::milliseconds patience = std::chrono::minutes(1)) {
    return std::make_shared<NetworkProcess>(
        [](const Channel& channel) {
            serveNetwork(channel,
                         {.resolver = [](auto choice) { return std::make_shared<ScriptedResolver>(choice); },
                          .registry = scriptedRegistry(),
                          .ignored = [] { return std::string("/a list"); }});
        },
        Sandbox{.isNetworked = true}, patience);
}

/// Patience enough for a machine that is busy, and no more: nothing here hangs.
Patience patient(std::stop_token stop = {}) {
    return {std::move(stop), Clock::now() + std::chrono::minutes(1)};
}

/// All that a question leaves behind.
std::string outcome(DNSResolver& resolver, std::string_view name, DNSRecordType type,
                    Patience patience = patient()) {
    DNSAsker asker{{"before.example"}, {}};
    patience.asker = &asker;
    std::string told;
    try {
        const DNSAnswer answer = resolver.lookup(name, type, patience);
        told = "case " + std::to_string(answer.value.index()) + (answer.isValidated ? ", validated" : "");
        for (const std::string& each : answer.data()) told += ", [" + each + "]";
    } catch (const DNSServiceRests& error) {
        told = "rests: " + std::string(error.what());
    } catch (const DNSLookupError& error) {
        told = error.what();
    }
    told += "; by " + resolver.source(name, type);
    for (const auto& each : asker.failed) told += "; failed " + each;
    for (const auto& each : asker.slow) told += "; slow " + each;
    return told;
}

std::string outcome(RegistrationLookup& registry, std::string_view domain) {
    try {
        const auto date = registry.registrationDate(domain, patient());
        return date ? std::to_string(date->time_since_epoch().count()) : "none";
    } catch (const RDAPError& error) {
        return error.what();
    }
}

TEST(NetworkProcess, answersAsIfItWereHere) {
    const auto process = scriptedProcess();
    ApartResolver apart(process, "usual"), other(process, "https://dns.example/dns-query");
    ScriptedResolver here("usual"), otherHere("https://dns.example/dns-query");
    for (const char* name : {"a.example", "A.Example", "nobody.example", "empty.example", "fails.example",
                             "odd.example", "rests.example", "unlisted.example"}) {
        for (const DNSRecordType type : {a, txt, mx, a}) {  // the last is known by then
            EXPECT_EQ(outcome(apart, name, type), outcome(here, name, type)) << name;
            EXPECT_EQ(outcome(other, name, type), outcome(otherHere, name, type)) << name;
        }
    }
    int ignored = 0;
    ApartRegistry registry(
        process, [&](const std::filesystem::path& file) { ignored += file == "/a list" ? 1 : 100; });
    const auto registryHere = scriptedRegistry();
    for (const char* domain :
         {"dated.example", "Dated.example", "undated.example", "failing.example", "x.org"})
        EXPECT_EQ(outcome(registry, domain), outcome(*registryHere, domain)) << domain;
    EXPECT_EQ(ignored, 1);
}

TEST(NetworkProcess, letsNobodyWaitLonger) {
    ApartResolver resolver(scriptedProcess(), "usual");
    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_TRUE(outcome(resolver, "hang.example", a, patient(stopped.get_token())).starts_with("stopped;"));
    EXPECT_TRUE(outcome(resolver, "after.example", a).starts_with("case 2")) << "it goes on asking";
    EXPECT_TRUE(outcome(resolver, "hang.example", a, {{}, Clock::now() + std::chrono::milliseconds(20)})
                    .starts_with("the check took too long;"));
}

TEST(NetworkProcess, isNotEndedByWhatAMessageNames) {
    const auto process = scriptedProcess();
    ApartResolver resolver(process, "usual");
    ApartRegistry registry(process, {});
    std::stop_source stop;
    std::string waiting;
    std::jthread other([&] { waiting = outcome(resolver, "hang.example", a, patient(stop.get_token())); });
    outcome(resolver, "begun.example", a);
    EXPECT_EQ(outcome(registry, "shop.c\x01m"), "no RDAP server for .c\x01m in the IANA list");
    stop.request_stop();
    other.join();
    EXPECT_TRUE(waiting.starts_with("stopped;")) << waiting;
}

TEST(NetworkProcess, thatEndsLeavesFailuresAndANewOne) {
    const auto process = scriptedProcess();
    ApartResolver resolver(process, "usual");
    std::string waiting;
    std::jthread other([&] { waiting = outcome(resolver, "hang.example", a); });
    const std::string failure = NetworkProcess::ended + std::string(";");
    EXPECT_TRUE(outcome(resolver, "kill.example", a).starts_with(failure));
    other.join();
    EXPECT_TRUE(waiting.starts_with(failure));
    EXPECT_TRUE(outcome(resolver, "a.example", a).starts_with("case 0"));
}

TEST(NetworkProcess, thatHangsIsEnded) {
    ApartResolver resolver(scriptedProcess(std::chrono::milliseconds(50)), "usual");
    EXPECT_TRUE(outcome(resolver, "freeze.example", a).starts_with(NetworkProcess::ended));
}

TEST(NetworkProcess, isTakenForHostile) {
    const auto answer = [](const SentAnswer& sent, AskerNotes notes = {}) {
        return packed(sent, notes, false);
    };
    const std::string good = answer({.nameExists = true});
    const std::string endless = packed(false, true, true, false, ~std::uint64_t{});
    const struct {
        const char* what;
        std::string bytes;
        std::uint32_t size;  // that is announced; 0: as it is
        bool isTaken;
    } rows[] = {
        {"an answer", good, 0, true},
        {"more than an answer", good + " ", 0, false},
        {"less", good.substr(1), 0, false},
        {"nothing", "", 0, false},
        {"more than there can be", good, largestNetworkPiece + 1, false},
        {"records without end", endless, 0, false},
        {"a long reason", answer({.failure = std::string(10'000, 'x')}), 0, false},
        {"a reason of two lines", answer({.failure = "a\nb"}), 0, false},
        {"a source of two lines", answer({.source = "a\nb"}), 0, false},
        {"many services", answer({}, {std::vector<std::string>(1000, "a"), {}}), 0, false},
    };
    for (const auto& row : rows) {
        const auto process = std::make_shared<NetworkProcess>(
            [&row](const Channel& channel) {
                NetworkHead head;
                std::string question;
                while (channel.receive(&head, sizeof head)) {
                    question.resize(head.size);
                    channel.receive(question.data(), question.size());
                    const NetworkHead another{head.number + 1, NetworkKind::answer, 0};
                    channel.send(&another, sizeof another);  // that nobody has asked for
                    head.size = row.size != 0 ? row.size : static_cast<std::uint32_t>(row.bytes.size());
                    channel.send(&head, sizeof head);
                    channel.send(row.bytes.data(), row.bytes.size());
                }
            },
            Sandbox{});
        ApartResolver resolver(process, "usual");
        for (const char* name : {"a.example", "b.example"}) {  // the other of a new one
            const std::string told = outcome(resolver, name, a);
            EXPECT_EQ(told.starts_with("case 1;"), row.isTaken) << row.what << ": " << told;
            EXPECT_EQ(told.starts_with(NetworkProcess::ended), !row.isTaken) << row.what << ": " << told;
        }
    }
}

}  // namespace
}  // namespace quillmark
