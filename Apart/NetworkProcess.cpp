#include "Apart/NetworkProcess.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "QuillmarkKit/Support/Unicode.h"
#include "Settings/ChosenResolver.h"

namespace quillmark {

namespace {

/// In bytes: who answered, why nobody did.
constexpr std::size_t longestText = 4'000;
constexpr std::size_t mostServices = 16;

/// Throws when it is no text of ours, which may go into a report.
std::string fit(std::string text) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; };
    if (text.size() > longestText || std::ranges::any_of(text, isControl))
        throw DecodingError("a text that can't be");
    return text;
}

void note(const std::vector<std::string>& services, std::set<std::string, std::less<>>& noted) {
    if (services.size() > mostServices) throw DecodingError("services that can't be");
    for (const std::string& each : services) noted.insert(fit(each));
}

}  // namespace

NetworkProcess::~NetworkProcess() {
    m_reader.request_stop();
    const std::lock_guard lock(m_mutex);
    end(m_process);
}

/// The one that is asked; null when there can be none.
const NetworkProcess::Process& NetworkProcess::current(const Patience& patience) {
    if (isHanging()) end(m_process);
    if (m_process) return m_process;
    if (!m_reader.joinable()) {
        try {
            m_reader = std::jthread([this](const std::stop_token& stop) { hear(stop); });
        } catch (const std::system_error&) {
            return m_process;
        }
    }
    m_process = m_processes.take(CheckProcesses::Kind::unused, [&] { return !patience.end(); });
    m_isSilentSince.reset();
    if (!m_process) return m_process;
    m_process->channel().setPatience({});
    m_begun.notify_all();
    return m_process;
}

bool NetworkProcess::isHanging() const {
    return m_isSilentSince && Patience::Clock::now() - *m_isSilentSince >= m_patience;
}

void NetworkProcess::end(const Process& process) {
    if (!process || process != m_process) return;
    const Process ending = std::exchange(m_process, nullptr);
    ending->channel().shutDown();
    for (const auto& [number, waiting] : std::exchange(m_waiting, {})) {
        waiting->isSettled = true;
        waiting->settled.notify_all();
    }
}

bool NetworkProcess::tell(const Process& process, const NetworkHead& head, std::string_view bytes) {
    std::string piece(reinterpret_cast<const char*>(&head), sizeof head);
    piece += bytes;
    return process->channel().sendAtOnce(piece.data(), piece.size());
}

std::optional<std::string> NetworkProcess::ask(NetworkKind kind, std::string_view question,
                                               const Patience& patience, const Read& read) {
    Waiting waiting;
    std::unique_lock lock(m_mutex);
    const Process process = current(patience);
    if (!process) return ended;
    const std::uint64_t number = ++m_number;
    if (!tell(process, {number, kind, static_cast<std::uint32_t>(question.size())}, question)) {
        end(process);
        return ended;
    }
    m_waiting.emplace(number, &waiting);
    const auto isSettled = [&] { return waiting.isSettled; };
    for (;;) {
        const auto until = std::min(patience.deadline, Patience::Clock::now() + m_patience);
        if (waiting.settled.wait_until(lock, patience.stop, until, isSettled)) break;
        const auto over = patience.end();
        // Its own patience with services may be long; that it is there, it says at once.
        bool isThere = !isHanging();
        if (isThere && (over || !m_isSilentSince)) {
            if (!m_isSilentSince) m_isSilentSince = Patience::Clock::now();
            isThere = tell(process, {over ? number : 0, NetworkKind::stop}, {});
        }
        if (over) m_waiting.erase(number);
        if (!isThere) end(process);
        if (over) return over;
    }
    lock.unlock();
    if (!waiting.answer) return ended;
    try {
        read(*waiting.answer);
        return std::nullopt;
    } catch (const DecodingError&) {
        // It isn't one of ours any more.
        lock.lock();
        end(process);
        return ended;
    }
}

void NetworkProcess::hear(const std::stop_token& stop) {
    std::unique_lock lock(m_mutex);
    while (m_begun.wait(lock, stop, [&] { return m_process != nullptr; })) {
        const Process process = m_process;
        lock.unlock();
        NetworkHead head;
        std::string answer;
        const auto isHeard = [&] {
            if (!process->channel().receive(&head, sizeof head) || head.size > largestNetworkPiece)
                return false;
            answer.resize(head.size);
            return process->channel().receive(answer.data(), answer.size());
        };
        while (isHeard() && settle(process, head.number, std::move(answer))) answer.clear();
        lock.lock();
        end(process);
    }
}

/// Hands the answer over to whom it is for. False when that process isn't asked any more.
bool NetworkProcess::settle(const Process& process, std::uint64_t number, std::string answer) {
    const std::lock_guard lock(m_mutex);
    if (process != m_process) return false;
    m_isSilentSince.reset();
    const auto found = m_waiting.find(number);
    if (found == m_waiting.end()) return true;  // nobody waits any more
    Waiting& waiting = *found->second;
    m_waiting.erase(found);
    waiting.answer = std::move(answer);
    waiting.isSettled = true;
    waiting.settled.notify_all();
    return true;
}

std::optional<ApartResolver::Known> ApartResolver::known(const std::string& question) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_known.find(question);
    return found != m_known.end() ? std::optional(found->second) : std::nullopt;
}

DNSAnswer ApartResolver::lookup(std::string_view name, DNSRecordType type, const Patience& patience) {
    const Network network = m_choice == systemResolver ? Network::own : Network::everybodys;
    if (!mayBeQueried(name, network)) return DNSAnswer::nxdomain();
    const std::string key = StaticResolver::key(name, type);
    if (auto known = this->known(key)) return std::move(known->answer);
    SentQuestion question{m_choice, name, static_cast<int>(type), sentTime(patience.deadline)};
    if (const DNSAsker* asker = patience.asker)
        question.asker = {{asker->failed.begin(), asker->failed.end()},
                          {asker->slow.begin(), asker->slow.end()}};
    Known made;
    std::optional<std::string> told;
    bool rests = false;
    const auto failure =
        m_process->ask(NetworkKind::lookup, packed(question), patience, [&](std::string_view bytes) {
            const auto [answer, notes, someRest] = unpacked<SentAnswer, AskerNotes, bool>(bytes);
            DNSAsker alone;
            DNSAsker& asker = patience.asker ? *patience.asker : alone;
            note(notes.failed, asker.failed);
            note(notes.slow, asker.slow);
            if (answer.failure) told = fit(*answer.failure);
            made = {receivedAnswer(answer), fit(answer.source)};
            rests = someRest;
        });
    if (failure) throw DNSLookupError(*failure);
    if (told && rests) throw DNSServiceRests(*told);
    if (told) throw DNSLookupError(*told);
    const std::lock_guard lock(m_mutex);
    return m_known.try_emplace(key, std::move(made)).first->second.answer;
}

std::string ApartResolver::source(std::string_view name, DNSRecordType type) {
    const auto known = this->known(StaticResolver::key(name, type));
    return known ? known->source : std::string();
}

std::optional<Date> ApartRegistry::registrationDate(std::string_view domain, const Patience& patience) {
    const std::string name = unicodeLowered(domain);
    if (const auto why = RDAPClient::whyNotAsked(name)) throw RDAPError(*why);
    {
        const std::lock_guard lock(m_mutex);
        if (const auto known = m_known.find(name); known != m_known.end()) return known->second.date;
    }
    Known made;
    std::optional<std::string> told;
    std::string ignored;
    const auto failure =
        m_process->ask(NetworkKind::registration, packed(std::string_view(name), sentTime(patience.deadline)),
                       patience, [&](std::string_view bytes) {
                           const auto [answer] = unpacked<SentRegistration>(bytes);
                           if (answer.failure) told = fit(*answer.failure);
                           made = {answer.date, fit(answer.source)};
                           ignored = answer.ignored.substr(0, longestText);
                       });
    if (failure) throw RDAPError(*failure);
    std::unique_lock lock(m_mutex);
    const bool isNews = !ignored.empty() && !std::exchange(m_isIgnoredTold, true);
    if (!told) m_known.try_emplace(name, made);
    lock.unlock();
    if (isNews && m_ignored) m_ignored(ignored);
    if (told) throw RDAPError(*told);
    return made.date;
}

std::string ApartRegistry::source(std::string_view domain) {
    const std::lock_guard lock(m_mutex);
    const auto known = m_known.find(unicodeLowered(domain));
    return known != m_known.end() ? known->second.source : std::string();
}

}  // namespace quillmark
