#include "QuillmarkKit/Lookups/SystemResolver.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <resolv.h>
#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <variant>

#include "QuillmarkKit/Lookups/DNSMessage.h"

namespace quillmark {

namespace {

constexpr std::string_view systemName = "system";  // in failure texts, and as who answered
constexpr int rounds = 2;
constexpr std::size_t largestMessage = 65'535;

std::string failureText(int error) {
    switch (error) {
        case ETIMEDOUT:
            return "timed out";
        case ECONNREFUSED:
        case ENETUNREACH:
        case EHOSTUNREACH:
            return "no connection";
        default:
            return "transfer failed";
    }
}

/// What this computer's servers reply, or the error (errno) of the last. Blocks until they did or were waited
/// for in vain.
std::variant<std::string, int> asked(const SystemResolverOptions& options, const std::string& question) {
    struct __res_state state = {};
    if (res_ninit(&state) != 0) return ECONNREFUSED;
    const std::unique_ptr<struct __res_state, decltype(&res_nclose)> closing(&state, res_nclose);
    state.retrans = static_cast<int>(options.timeOut.count());
    state.retry = rounds;
    if (!options.servers.empty()) {
        state.nscount = 0;
        for (const std::string& server : options.servers) {
            if (state.nscount == MAXNS) break;
            sockaddr_in& address = state.nsaddr_list[state.nscount++];
            address = {};
            address.sin_family = AF_INET;
            address.sin_port = htons(static_cast<std::uint16_t>(options.port));
            inet_pton(AF_INET, server.c_str(), &address.sin_addr);
        }
    }
    std::string reply(largestMessage, '\0');
    errno = 0;
    const int size = res_nsend(
        &state, reinterpret_cast<const unsigned char*>(question.data()), static_cast<int>(question.size()),
        reinterpret_cast<unsigned char*>(reply.data()), static_cast<int>(reply.size()));
    if (size < 0) return errno;
    reply.resize(std::min(static_cast<std::size_t>(size), reply.size()));
    return reply;
}

DNSLookupError failed(const std::string& why) { return DNSLookupError(std::string(systemName) + ": " + why); }

/// The same, as long as the caller is patient: then the question ends by itself, on a thread of its own.
std::string askedPatiently(const SystemResolverOptions& options, std::string question,
                           const Patience& patience) {
    struct Reply {
        std::mutex mutex = {};
        std::condition_variable_any came = {};
        std::optional<std::variant<std::string, int>> value = {};
    };
    const auto reply = std::make_shared<Reply>();
    std::thread([reply, options, question = std::move(question)] {
        auto value = asked(options, question);
        const std::lock_guard lock(reply->mutex);
        reply->value = std::move(value);
        reply->came.notify_all();
    }).detach();
    std::unique_lock lock(reply->mutex);
    if (!reply->came.wait_until(lock, patience.stop, patience.deadline,
                                [&] { return reply->value.has_value(); }))
        throw DNSLookupError(patience.end().value_or("stopped"));
    if (const auto* error = std::get_if<int>(&*reply->value)) {
        if (*error == ETIMEDOUT && patience.asker) patience.asker->slow.emplace(systemName);
        throw failed(failureText(*error));
    }
    return std::get<std::string>(std::move(*reply->value));
}

DNSAnswer answerIn(std::string_view reply, std::string_view name, DNSRecordType type) {
    std::string why = "SERVFAIL";
    try {
        auto read = parseDNSMessage(reply, name, type);
        if (auto* answer = std::get_if<DNSAnswer>(&read.value)) return std::move(*answer);
    } catch (const DNSLookupError& error) {
        why = error.what();
    }
    throw failed(why);
}

/// That nobody who doesn't see it can guess, so that nobody else can answer in time.
std::uint16_t randomID() {
    std::uint16_t id = 0;
    [[maybe_unused]] const auto size = getrandom(&id, sizeof id, 0);
    return id;
}

}  // namespace

DNSAnswer SystemResolver::lookup(std::string_view asked, DNSRecordType type, const Patience& patience) {
    if (!mayBeQueried(asked, Network::own)) return DNSAnswer::nxdomain();
    if (const auto end = patience.end()) throw DNSLookupError(*end);
    const std::string key = StaticResolver::key(asked, type);
    if (const auto known = m_answers.kept(key)) return *known;
    DNSAsker* const asker = patience.asker;
    if (asker && asker->slow.contains(systemName)) throw failed("timed out");
    const auto made = m_answers.get(key, patience.stop, patience.deadline, [&] {
        const std::string reply = askedPatiently(m_options, dnsQuestion(asked, type, randomID()), patience);
        return Once<DNSAnswer>::Made{answerIn(reply, asked, type)};
    });
    if (made) return *made;
    throw DNSLookupError(patience.end().value_or("stopped"));
}

std::string SystemResolver::source(std::string_view asked, DNSRecordType type) {
    return std::string(m_answers.kept(StaticResolver::key(asked, type)) ? systemName : "");
}

}  // namespace quillmark
