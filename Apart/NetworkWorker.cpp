#include "Apart/NetworkWorker.h"

#include <unistd.h>

#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>

#include "Apart/NetworkProtocol.h"
#include "QuillmarkKit/Support/HTTP.h"
#include "QuillmarkKit/Support/Workers.h"
#include "Sandbox/ProgramSandbox.h"
#include "Settings/ChosenResolver.h"
#include "Settings/UserFolders.h"

namespace quillmark {

namespace {

/// Questions that are waited for at once: of as many threads as check, and a few that nobody waits for now.
constexpr std::size_t questionsAtOnce = 16;

class NetworkWorker {
public:
    NetworkWorker(const Channel& channel, const NetworkServices& services)
        : m_channel(channel), m_services(services) {}

    void answer(const NetworkHead& head, std::string question);

private:
    std::string lookup(std::string_view question, const std::stop_token& stop);
    std::string registration(std::string_view question, const std::stop_token& stop);
    void tell(std::uint64_t number, std::string_view answer);
    DNSResolver& resolver(std::string_view choice);

    const Channel& m_channel;
    const NetworkServices& m_services;
    std::mutex m_mutex = {};
    std::map<std::string, std::shared_ptr<DNSResolver>, std::less<>> m_resolvers = {};
    std::map<std::uint64_t, std::stop_source> m_stops = {};
    std::mutex m_telling = {};
    std::optional<Workers> m_workers = {};  // with the first question
};

void NetworkWorker::answer(const NetworkHead& head, std::string question) {
    if (head.kind == NetworkKind::stop) {
        std::optional<std::stop_source> stop;
        {
            const std::lock_guard lock(m_mutex);
            if (const auto found = m_stops.find(head.number); found != m_stops.end()) stop = found->second;
        }
        if (stop) stop->request_stop();
        return tell(head.number, {});  // it is there, and not hanging
    }
    std::stop_source stop;
    {
        const std::lock_guard lock(m_mutex);
        m_stops.emplace(head.number, stop);
    }
    if (!m_workers) m_workers.emplace(questionsAtOnce);
    m_workers->add([this, head, stop = stop.get_token(), question = std::move(question)] {
        try {
            const std::string answer =
                head.kind == NetworkKind::lookup ? lookup(question, stop) : registration(question, stop);
            {
                const std::lock_guard lock(m_mutex);
                m_stops.erase(head.number);
            }
            if (!stop.stop_requested()) tell(head.number, answer);
        } catch (const std::exception&) {
            ::_exit(1);  // who asked hears that it ended
        }
    });
}

void NetworkWorker::tell(std::uint64_t number, std::string_view answer) {
    const NetworkHead head{number, NetworkKind::answer, static_cast<std::uint32_t>(answer.size())};
    const std::lock_guard turn(m_telling);
    // cppcheck-suppress invalidLifetime; it is sent by then
    if (!m_channel.send(&head, sizeof head) || !m_channel.send(answer.data(), answer.size())) ::_exit(0);
}

DNSResolver& NetworkWorker::resolver(std::string_view choice) {
    const std::lock_guard lock(m_mutex);
    auto& resolver = m_resolvers[std::string(choice)];
    if (!resolver) resolver = m_services.resolver(choice);
    return *resolver;
}

std::string NetworkWorker::lookup(std::string_view bytes, const std::stop_token& stop) {
    const auto [question] = unpacked<SentQuestion>(bytes);
    const auto type = dnsRecordType(question.type);
    if (!type) throw DecodingError("an unknown type of record");
    const auto& [failed, slow] = question.asker;
    DNSAsker asker{{failed.begin(), failed.end()}, {slow.begin(), slow.end()}};
    DNSResolver& resolver = this->resolver(question.choice);
    DNSAnswer found;
    SentAnswer answer;
    bool rests = false;
    try {
        found = resolver.lookup(question.name, *type, {stop, receivedTime(question.deadline), &asker});
        answer = sentAnswer(found, resolver.source(question.name, *type));
    } catch (const DNSLookupError& error) {
        answer.failure = error.what();
        rests = dynamic_cast<const DNSServiceRests*>(&error) != nullptr;
    }
    return packed(
        answer,
        AskerNotes{{asker.failed.begin(), asker.failed.end()}, {asker.slow.begin(), asker.slow.end()}},
        rests);
}

std::string NetworkWorker::registration(std::string_view bytes, const std::stop_token& stop) {
    const auto [domain, deadline] = unpacked<std::string_view, std::int64_t>(bytes);
    SentRegistration answer;
    try {
        answer.date = m_services.registry->registrationDate(domain, {stop, receivedTime(deadline)});
        answer.source = m_services.registry->source(domain);
    } catch (const RDAPError& error) {
        answer.failure = error.what();
    }
    const std::string ignored = m_services.ignored ? m_services.ignored() : std::string();
    answer.ignored = ignored;
    return packed(answer);
}

}  // namespace

void serveNetwork(const Channel& channel, const NetworkServices& services) {
    NetworkWorker worker(channel, services);
    NetworkHead head;
    while (channel.receive(&head, sizeof head)) {
        std::string question(head.size, '\0');
        if (!channel.receive(question.data(), question.size())) break;
        worker.answer(head, std::move(question));
    }
    ::_exit(0);  // whatever is still waited for
}

void serveUsualNetwork(const Channel& channel) {
    const auto http = std::make_shared<HTTPEngine>(HTTPOptions::ofEnvironment());
    std::mutex mutex;
    std::string ignored;
    const RDAPOptions options{.cacheDirectory = cacheFolder(), .ignored = [&](const auto& file) {
                                  const std::lock_guard lock(mutex);
                                  ignored = file.string();
                              }};
    serveNetwork(channel, {.resolver = [&](std::string_view choice) { return chosenResolver(choice, http); },
                           .registry = std::make_shared<RDAPClient>(http, options),
                           .ignored =
                               [&] {
                                   const std::lock_guard lock(mutex);
                                   return ignored;
                               }});
}

Sandbox sandboxOfUsualNetwork() {
    Sandbox sandbox{.isNetworked = true};
    allowCache(sandbox);
    return sandbox;
}

}  // namespace quillmark
