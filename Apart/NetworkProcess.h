#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "Apart/CheckProcesses.h"
#include "Apart/NetworkProtocol.h"
#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Lookups/RDAP.h"

namespace quillmark {

/// The process that asks DNS services and registries, and reads what they answer. It may do that, and nothing
/// else: of this computer it reads how to reach them, and of messages it sees names alone. One that ends, or
/// doesn't keep to its protocol, leaves what it was asked unanswered; the next question has a new one. Safe
/// from many threads at once.
class NetworkProcess {
public:
    /// What the questions fail with that it leaves unanswered.
    static constexpr const char* ended = "the process that asks for this ended";

    /// Starts it. While there is one thread. `work` is what it does once it is restricted to `sandbox`:
    /// usually `serveNetwork`. One that leaves unanswered for longer than `patience` whether it is there
    /// hangs, and is ended.
    NetworkProcess(std::function<void(const Channel&)> work, Sandbox sandbox,
                   std::chrono::milliseconds patience = std::chrono::seconds(10))
        : m_processes(std::move(work), std::move(sandbox)), m_patience(patience) {}
    /// While nobody asks.
    ~NetworkProcess();
    NetworkProcess(const NetworkProcess&) = delete;
    NetworkProcess& operator=(const NetworkProcess&) = delete;

    /// Why there is no answer; nothing when `read` has read it, which throws `DecodingError` at what is none.
    using Read = std::function<void(std::string_view answer)>;
    std::optional<std::string> ask(NetworkKind kind, std::string_view question, const Patience& patience,
                                   const Read& read);

private:
    using Process = std::shared_ptr<CheckProcesses::Process>;
    /// Somebody who waits for an answer.
    struct Waiting {
        bool isSettled = false;
        std::optional<std::string> answer = {};
        std::condition_variable_any settled = {};
    };

    const Process& current(const Patience& patience);
    bool isHanging() const;
    void end(const Process& process);
    static bool tell(const Process& process, const NetworkHead& head, std::string_view bytes);
    void hear(const std::stop_token& stop);
    bool settle(const Process& process, std::uint64_t number, std::string answer);

    CheckProcesses m_processes;
    const std::chrono::milliseconds m_patience;
    std::mutex m_mutex = {};
    Process m_process = {};  // that is asked; none before the first question, and when it has ended
    std::uint64_t m_number = 0;
    std::map<std::uint64_t, Waiting*> m_waiting = {};
    // Since when something should have come from it.
    std::optional<Patience::Clock::time_point> m_isSilentSince = {};
    std::condition_variable_any m_begun = {};
    std::jthread m_reader = {};
};

/// Asks by that process whom the choice means (`chosenResolver`). Answers are remembered as long as it lives.
class ApartResolver : public DNSResolver {
public:
    ApartResolver(std::shared_ptr<NetworkProcess> process, std::string choice)
        : m_process(std::move(process)), m_choice(std::move(choice)) {}

    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) override;
    std::string source(std::string_view name, DNSRecordType type) override;

private:
    struct Known {
        DNSAnswer answer = {};
        std::string source = {};
    };
    std::optional<Known> known(const std::string& question);

    const std::shared_ptr<NetworkProcess> m_process;
    const std::string m_choice;
    std::mutex m_mutex = {};
    std::map<std::string, Known, std::less<>> m_known = {};
};

/// Asks registries by that process.
class ApartRegistry : public RegistrationLookup {
public:
    /// `ignored`: as `RDAPOptions::ignored`, called once on any thread.
    using Ignored = std::function<void(const std::filesystem::path&)>;
    explicit ApartRegistry(std::shared_ptr<NetworkProcess> process, Ignored ignored = {})
        : m_process(std::move(process)), m_ignored(std::move(ignored)) {}

    std::optional<Date> registrationDate(std::string_view domain, const Patience& patience = {}) override;
    std::string source(std::string_view domain) override;

private:
    struct Known {
        std::optional<Date> date = {};
        std::string source = {};
    };

    const std::shared_ptr<NetworkProcess> m_process;
    const Ignored m_ignored;
    std::mutex m_mutex = {};
    std::map<std::string, Known, std::less<>> m_known = {};
    bool m_isIgnoredTold = false;
};

}  // namespace quillmark
