#include "Apart/ApartReader.h"

#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>
#include <variant>
#include <vector>

namespace quillmark {

namespace {

/// How long a file that can be read on is waited for after a stop, so that it can be.
constexpr std::chrono::milliseconds patienceAfterStop{500};
constexpr std::size_t mostEnded = 2;    // processes by what one file holds
constexpr std::size_t mostUnasked = 8;  // that end before they ask for a file
// What is given and asked for at a time, lest each be waited for.
constexpr std::size_t filesAtOnce = 8, messagesAtOnce = 16;

/// Until they are handed over: a process has descriptors of its own then.
struct OpenedFiles {
    ~OpenedFiles() {
        for (const auto& each : files) {
            if (const int* const descriptor = std::get_if<int>(&each)) ::close(*descriptor);
        }
    }
    std::vector<std::variant<int, Refusal>> files = {};
};

}  // namespace

ApartReader::ApartReader(CheckProcesses& processes, MessagePlace place)
    : m_processes(processes), m_place(std::move(place)), m_files(mailFiles(m_place.path, m_place.file)) {}

void ApartReader::answer(CheckRequest& request) {
    request.on(TalkKind::file, [this](std::string_view bytes, const Talk& talk) {
        unpacked<>(bytes);
        giveFiles(talk);
    });
    request.on(TalkKind::opened, [this](std::string_view bytes, const Talk&) {
        unpacked<>(bytes);
        goOn();
    });
}

void ApartReader::begun(CheckRequest& request) {
    if (isAtPipe()) {
        m_process = request.keep();
        return;
    }
    m_processes.giveBack(request.keep());
    giveAgain();
}

void ApartReader::giveFiles(const Talk& talk) {
    if (!m_waiting.empty()) throw DecodingError("there are files that it hasn't read");
    m_hasChanged = m_isResuming && m_file && m_file->given > 0;
    if (m_hasChanged) throw DecodingError("a file of which less is there than came");
    // After the end of a process one at a time: then it is known of what the next one ends.
    const std::size_t most = m_alone > 0 || !m_again.empty() ? 1 : filesAtOnce;
    OpenedFiles opened;
    auto& files = opened.files;
    while (files.size() < most) {
        if (!m_again.empty()) {
            files.push_back(openForReading(m_again.front().place.path));
            m_waiting.push_back(std::move(m_again.front()));
            m_again.pop_front();
        } else if (auto next = m_files->next()) {
            files.push_back(std::move(next->opened));
            m_waiting.push_back({.place = {.path = std::move(next->path), .file = std::move(next->name)},
                                 .isOnly = next->isOnly});
        } else {
            break;
        }
        Given& file = m_waiting.back();
        const int* const descriptor = std::get_if<int>(&files.back());
        struct stat status = {};
        file.isPipe = descriptor && (::fstat(*descriptor, &status) != 0 || !S_ISREG(status.st_mode));
        const std::tuple state{status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
                               status.st_mtim.tv_nsec};
        if (file.given == 0) file.state = state;
        m_hasChanged = file.state != state;
    }
    if (m_hasChanged) {
        goOn();
        throw DecodingError("a file that isn't as it was");
    }
    m_areAllGiven = files.empty();
    if (m_areAllGiven) {
        m_file.reset();
        talk.tell(TalkKind::answer, packed(false, false, std::optional<Refusal>(), true));
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
        const int* const descriptor = std::get_if<int>(&files[i]);
        const auto refusal = descriptor ? std::nullopt : std::optional(std::get<Refusal>(files[i]));
        const std::string answer = packed(true, m_waiting[i].isOnly, refusal, i + 1 == files.size());
        // Else it would wait for it, and be waited for.
        if (!talk.tell(TalkKind::answer, answer, descriptor ? *descriptor : -1))
            throw std::runtime_error("a file can't be handed over");
    }
    if (files.size() == 1) goOn();
}

void ApartReader::goOn() {
    if (m_waiting.empty()) throw DecodingError("a file that wasn't given");
    m_file = std::move(m_waiting.front());
    m_waiting.pop_front();
    if (!m_file->isAgain) m_ended = 0;
}

void ApartReader::giveAgain() {
    if (m_file && !m_file->isPipe) m_waiting.push_front(*m_file);
    m_file.reset();
    for (Given& each : m_waiting) each.isAgain = true;
    m_again.insert(m_again.begin(), m_waiting.begin(), m_waiting.end());
    m_waiting.clear();
}

Channel::GoesOn ApartReader::patience(const std::stop_token& stop) const {
    return [this, stop, end = std::optional<std::chrono::steady_clock::time_point>()]() mutable {
        if (!stop.stop_requested()) return true;
        if (isAtPipe()) return false;
        const auto now = std::chrono::steady_clock::now();
        if (!end) end = now + patienceAfterStop;
        return now < *end;
    };
}

std::optional<Found> ApartReader::next(const std::stop_token& stop) {
    while (m_found.empty() && !m_hasEnded && !stop.stop_requested()) readOn(stop);
    if (m_found.empty() || stop.stop_requested()) return std::nullopt;
    Found next = std::move(m_found.front());
    m_found.pop_front();
    return next;
}

void ApartReader::readOn(const std::stop_token& stop) {
    const bool isNew = !m_process;
    if (isNew) m_process = m_processes.take(CheckProcesses::Kind::anyOfNow, patience(stop));
    CheckRequest request(m_processes, std::exchange(m_process, nullptr), patience(stop));
    answer(request);
    std::size_t count = 0, size = 0;
    for (const TalkKind kind : {TalkKind::found, TalkKind::problem}) {
        request.on(kind, [this, kind, &count, &size](std::string_view bytes, const Talk&) {
            if (count++ == messagesAtOnce || size >= bytesAhead || (kind == TalkKind::found && !m_file))
                throw DecodingError("more than was asked for");
            size += bytes.size();
            take(found(kind, bytes));
        });
    }
    bool isThere = !isNew;
    m_hasChanged = false;
    if (isNew) {
        m_isResuming = true;
        const auto piece = request.run(TalkKind::resume, packed(m_again.empty() ? 0 : m_again.front().given));
        m_isResuming = false;
        isThere = piece && piece->kind == TalkKind::several;
    }
    if (isThere) {
        const auto piece =
            request.run(TalkKind::next, packed(isAtPipe() || m_alone > 0 ? 1 : messagesAtOnce));
        if (piece && piece->kind == TalkKind::several) {
            m_process = request.keep();
            return;
        }
        m_hasEnded = m_areAllGiven && piece && request.isWhole(*piece);
        if (m_hasEnded) return;
    }
    m_bytesBefore += std::exchange(m_bytesOfProcess, 0);
    m_alone = messagesAtOnce;
    const std::size_t most = m_file || m_again.empty() ? mostEnded : mostUnasked;
    if (!stop.stop_requested() && (m_hasChanged || ++m_ended >= most || isAtPipe())) {
        // That there is none any more ends what was begun, too.
        const Refusal none = m_isAnyGiven ? Refusal{Refusal::Ended{}} : request.whyNone();
        giveUpFile(m_hasChanged ? Refusal{Refusal::Moved{}} : none);
    }
    giveAgain();
}

void ApartReader::take(Found found) {
    m_ended = 0;
    if (m_alone > 0) --m_alone;
    if (m_file) ++m_file->given;
    const auto* const problem = std::get_if<FoundProblem>(&found);
    const bool isEmpty = problem && problem->refusal == Refusal{Refusal::EmptyFolder{}} && !m_file;
    // A process that went on may have found nothing more.
    if (!std::exchange(m_isAnyGiven, true) || !isEmpty) m_found.push_back(std::move(found));
}

void ApartReader::giveUpFile(Refusal why) {
    m_ended = 0;
    m_isAnyGiven = true;
    if (!m_file && !m_again.empty()) {
        m_file = std::move(m_again.front());
        m_again.pop_front();
    }
    // Without a file not even the next one could be had: there are no processes.
    m_hasEnded = !m_file;
    m_found.push_back(FoundProblem{std::move(why), m_file ? m_file->place : m_place});
    m_file.reset();
}

Found ApartReader::found(TalkKind kind, std::string_view bytes) {
    const MessagePlace& file = m_file ? m_file->place : m_place;
    if (kind == TalkKind::found) {
        const auto [message, bytesRead] = unpacked<SentMessage, std::uint64_t>(bytes);
        if (message.bytes.size() > largestMessage || !message.attached.empty())
            throw DecodingError("no message of a mailbox");
        m_bytesOfProcess = bytesRead;
        return foundMessage(message, file);
    }
    if (kind != TalkKind::problem) throw DecodingError("no message");
    auto [place, refusal, bytesRead] = unpacked<SentMessage, Refusal, std::uint64_t>(bytes);
    m_bytesOfProcess = bytesRead;
    return FoundProblem{std::move(refusal), foundMessage(place, file).place};
}

Found ApartReader::readAgain(const MessagePlace& place, const std::stop_token& stop) {
    CheckRequest request(m_processes, CheckProcesses::Kind::unused,
                         [&stop] { return !stop.stop_requested(); });
    answer(request);
    const SentMessage there{.inside = place.inside, .number = place.number, .attached = place.attached};
    const auto piece = request.run(TalkKind::readAgain, packed(there));
    try {
        if (piece && piece->kind != TalkKind::found) return found(piece->kind, piece->bytes);
        if (piece) {
            auto [message, bytesRead] = unpacked<SentMessage, std::uint64_t>(piece->bytes);
            if (message.bytes.size() <= largestMessage) return foundMessage(message, place);
        }
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch)
        // As if it had ended.
    }
    return FoundProblem{request.whyNone(), place};
}

}  // namespace quillmark
