#include "Thunderbird/Host.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <stop_token>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <variant>

#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Serialization.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Workers.h"
#include "QuillmarkKit/Verifier.h"
#include "Settings/HandedMessage.h"
#include "Thunderbird/Answers.h"
#include "Thunderbird/NativeMessages.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

/// Requests that are worked on at once; the next is read when one of them is done.
constexpr int mostAtOnce = 8;
/// How long the window may take to take a message, and how often is looked.
constexpr std::chrono::seconds patienceWithWindow{30};
constexpr std::chrono::milliseconds betweenLooks{20};

/// Starts the program with one argument, apart from this process: in a session of its own, with none
/// of its files. Its number, or the error.
std::variant<pid_t, std::error_code> started(const std::filesystem::path& program, std::string argument) {
    std::string name = program.string();
    char* arguments[] = {name.data(), argument.data(), nullptr};
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&files);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    pid_t process = 0;
    const int error = posix_spawn(&process, name.c_str(), &files, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) return std::error_code(error, std::generic_category());
    return process;
}

/// Whether the window takes the file, which is gone then.
bool isTaken(const std::filesystem::path& file, pid_t window) {
    const auto end = std::chrono::steady_clock::now() + patienceWithWindow;
    bool hasEnded = false;
    std::error_code ignored;
    while (std::filesystem::exists(file, ignored)) {
        int status = 0;
        // One that handed it to the window that is open ends well; that window may take a moment.
        if (!hasEnded && ::waitpid(window, &status, WNOHANG) == window) {
            hasEnded = true;
            if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return false;
        }
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(betweenLooks);
    }
    return true;
}

class Host {
public:
    Host(const HostSurroundings& surroundings, int output)
        : m_surroundings(surroundings),
          m_verifier(surroundings.resolver, surroundings.registry, PublicSuffixList::shared(), {}, {},
                     surroundings.keys),
          m_output(output) {}

    int serve(int input);

private:
    void answer(const AddonRequest& request, const std::string& bytes, const std::stop_token& stop);
    AddonAnswer checked(const AddonRequest& request, const std::string& bytes, const std::stop_token& stop);
    AddonAnswer opened(const AddonRequest& request, const std::string& bytes);
    Reader readerOf(const AddonRequest& request) const;
    int fail(const std::string& line) const {
        std::cerr << "quillmark-thunderbird: " + line + "\n";
        return 1;
    }

    const HostSurroundings& m_surroundings;
    const Verifier m_verifier;
    const int m_output;
    std::mutex m_writing = {};
};

Reader Host::readerOf(const AddonRequest& request) const {
    Reader reader = m_surroundings.reader;
    reader.language = languageOf(request.language);
    return reader;
}

int Host::serve(int input) {
    const Reader& reader = m_surroundings.reader;
    std::stop_source stop;
    std::counting_semaphore<mostAtOnce> free(mostAtOnce);
    Workers workers(mostAtOnce);
    // Who closes its end has gone: nobody waits for the answers.
    const struct Leaving {
        std::stop_source& stop;
        ~Leaving() { stop.request_stop(); }
    } leaving{stop};
    std::string bytes;
    std::optional<std::int64_t> begun;  // the request of which a piece has come
    while (true) {
        auto read = readRequest(input);
        if (const auto* end = std::get_if<RequestsEnd>(&read)) {
            if (*end == RequestsEnd::closed) return 0;
            return fail(*end == RequestsEnd::tooLong ? reader.translate("The request is longer than 70 MB.")
                                                     : reader.translate("The request couldn’t be read."));
        }
        AddonRequest request;
        try {
            const ByteBuffer text = std::get<ByteBuffer>(std::move(read));
            request = decoded<AddonRequest>(parsedJSON(text.view(), longestRequest));
            const auto piece = decodedBase64(std::exchange(request.message, {}));
            if (!piece) throw DecodingError("message: this is no base64");
            if (begun && *begun != request.id)
                throw DecodingError("id: a piece of another request is missing");
            // Of one that is too large enough to see that.
            if (bytes.size() <= largestMessage) bytes += *piece;
        } catch (const DecodingError& error) {
            return fail(reader.translate("The request isn’t what it should be: %1",
                                         {forDisplay(std::string_view(error.what()))}));
        }
        begun = request.more ? std::optional(request.id) : std::nullopt;
        if (request.more) continue;
        free.acquire();
        workers.add([this, &free, request, token = stop.get_token(),
                     message = std::make_shared<std::string>(std::exchange(bytes, {}))] {
            answer(request, *message, token);
            free.release();
        });
    }
}

void Host::answer(const AddonRequest& request, const std::string& bytes, const std::stop_token& stop) {
    AddonAnswer answer;
    try {
        answer = request.command == AddonRequest::Command::open ? opened(request, bytes)
                                                                : checked(request, bytes, stop);
    } catch (const std::exception& error) {  // want of memory, or a file that can't be written
        answer.problem =
            problemLine({Refusal::Unreadable{repairedUTF8(error.what())}}, {}, readerOf(request));
    }
    answer.id = request.id;
    const std::lock_guard turn(m_writing);
    writeAnswer(encoded(answer), m_output);
}

AddonAnswer Host::checked(const AddonRequest& request, const std::string& bytes,
                          const std::stop_token& stop) {
    const Reader reader = readerOf(request);
    auto taken = bytes.size() > largestMessage
                     ? std::variant<MailMessage, Refusal>(Refusal{Refusal::TooLarge{}})
                     : messageIn(ByteBuffer(bytes), ParseMode::strict);
    AddonAnswer answer;
    if (const auto* refusal = std::get_if<Refusal>(&taken)) {
        answer.problem = problemLine(*refusal, {}, reader);
    } else {
        const ProofReport report =
            m_verifier.verify(std::get<MailMessage>(taken), {}, m_surroundings.now(), stop);
        answer.summary = panelSummary(report, reader);
    }
    return answer;
}

AddonAnswer Host::opened(const AddonRequest& request, const std::string& bytes) {
    const Reader reader = readerOf(request);
    AddonAnswer answer;
    if (!m_surroundings.sessionFolder) {
        answer.problem = reader.translate(
            "The message couldn’t be handed to Quillmark: this session has no folder for that.");
        return answer;
    }
    const auto file = handMessage(bytes, *m_surroundings.sessionFolder);
    const auto window = started(m_surroundings.window, file.string());
    const auto* process = std::get_if<pid_t>(&window);
    if (process && isTaken(file, *process)) return answer;
    std::error_code ignored;
    std::filesystem::remove(file, ignored);
    answer.problem = process ? reader.translate("Quillmark’s window didn’t take the message.")
                             : reader.translate(
                                   "Quillmark’s window couldn’t be opened: %1. Is the package "
                                   "quillmark-desktop installed?",
                                   {std::get<std::error_code>(window).message()});
    return answer;
}

}  // namespace

int serveAddon(const HostSurroundings& surroundings, int input, int output) {
    ::signal(SIGPIPE, SIG_IGN);  // NOLINT(bugprone-*): who asked may have gone
    return Host(surroundings, output).serve(input);
}

}  // namespace quillmark
