#include "Apart/ApartReader.h"

#include <sys/stat.h>
#include <unistd.h>

#include <utility>
#include <variant>

namespace quillmark {

namespace {

/// How long a file that can be read on is waited for after a stop, so that it can be.
constexpr std::chrono::milliseconds patienceAfterStop{500};
constexpr std::size_t mostEnded = 2;  // processes by what one file holds

}  // namespace

ApartReader::ApartReader(CheckProcesses& processes, MessagePlace place)
    : m_processes(processes), m_place(std::move(place)), m_files(mailFiles(m_place.path, m_place.file)) {}

void ApartReader::answer(CheckRequest& request) {
    request.on(TalkKind::file, [this](std::string_view bytes, const Talk& talk) {
        unpacked<>(bytes);
        giveFile(talk);
    });
}

void ApartReader::begun(CheckRequest& request) {
    if (m_isPipe) {
        m_process = request.keep();
        return;
    }
    m_processes.giveBack(request.keep());
    m_isReopened = m_isAtFile;
}

void ApartReader::giveFile(const Talk& talk) {
    MailFiles::File file{.isOnly = m_isOnly};
    if (std::exchange(m_isReopened, false)) {
        file.opened = openForReading(m_file.path);
    } else {
        auto next = m_files->next();
        m_isAtFile = next.has_value();
        if (!next) {
            talk.tell(TalkKind::answer, packed(false, false, std::optional<Refusal>()));
            return;
        }
        file = std::move(*next);
        m_file = {.path = std::move(file.path), .file = std::move(file.name)};
        m_isOnly = file.isOnly;
        m_given = m_ended = 0;
    }
    const int* const descriptor = std::get_if<int>(&file.opened);
    struct stat status = {};
    m_isPipe = descriptor && (::fstat(*descriptor, &status) != 0 || !S_ISREG(status.st_mode));
    const auto refusal = descriptor ? std::nullopt : std::optional(std::get<Refusal>(std::move(file.opened)));
    talk.tell(TalkKind::answer, packed(true, m_isOnly, refusal), descriptor ? *descriptor : -1);
    if (descriptor) ::close(*descriptor);
}

Channel::GoesOn ApartReader::patience(const std::stop_token& stop) const {
    return [this, stop, end = std::optional<std::chrono::steady_clock::time_point>()]() mutable {
        if (!stop.stop_requested()) return true;
        if (m_isPipe) return false;
        const auto now = std::chrono::steady_clock::now();
        if (!end) end = now + patienceAfterStop;
        return now < *end;
    };
}

std::optional<Found> ApartReader::next(const std::stop_token& stop) {
    while (!stop.stop_requested() && !m_hasEnded) {
        const bool isNew = !m_process;
        if (isNew) m_process = m_processes.take();
        CheckRequest request(m_processes, std::exchange(m_process, nullptr), patience(stop));
        answer(request);
        auto piece = isNew ? request.run(TalkKind::resume, packed(m_given)) : std::nullopt;
        if (!isNew || (piece && piece->kind == TalkKind::several)) piece = request.run(TalkKind::next, {});
        try {
            if (piece && piece->kind == TalkKind::done) {
                if (request.isWhole(*piece)) return std::nullopt;
            } else if (piece) {
                Found each = found(*piece);
                m_process = request.keep();
                m_ended = 0;
                ++m_given;
                const auto* problem = std::get_if<FoundProblem>(&each);
                const bool isEnd = problem && problem->refusal == Refusal{Refusal::EmptyFolder{}} &&
                                   !m_isAtFile && std::exchange(m_isAnyGiven, true);
                if (isEnd) return std::nullopt;  // a process that went on found nothing more
                m_isAnyGiven = true;
                return each;
            }
        } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch)
            // As if it had ended.
        }
        if (stop.stop_requested()) return std::nullopt;
        m_bytesBefore += std::exchange(m_bytesOfProcess, 0);
        if (++m_ended >= mostEnded || m_isPipe) return giveUpFile(request.whyNone());
        m_isReopened = m_isAtFile;
    }
    return std::nullopt;
}

std::optional<Found> ApartReader::giveUpFile(Refusal why) {
    m_given = m_ended = 0;
    m_isPipe = false;
    m_isAnyGiven = true;
    if (std::exchange(m_isAtFile, false)) return FoundProblem{std::move(why), m_file};
    // Not even the next file could be had: there are no processes.
    if (std::exchange(m_hasEnded, true)) return std::nullopt;
    return FoundProblem{std::move(why), m_place};
}

Found ApartReader::found(const TalkPiece& piece) {
    const MessagePlace& file = m_isAtFile ? m_file : m_place;
    if (piece.kind == TalkKind::found) {
        const auto [message, bytesRead] = unpacked<SentMessage, std::uint64_t>(piece.bytes);
        if (message.bytes.size() > largestMessage || !message.attached.empty())
            throw DecodingError("no message of a mailbox");
        m_bytesOfProcess = bytesRead;
        return foundMessage(message, file);
    }
    if (piece.kind != TalkKind::problem) throw DecodingError("no message");
    auto [place, refusal, bytesRead] = unpacked<SentMessage, Refusal, std::uint64_t>(piece.bytes);
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
        if (piece && piece->kind != TalkKind::found) return found(*piece);
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
