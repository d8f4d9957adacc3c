#include "Thunderbird/Host.h"

#include <signal.h>

#include <atomic>
#include <cassert>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <stop_token>
#include <string>
#include <utility>
#include <variant>

#include "Apart/MessageCheck.h"
#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Serialization.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Workers.h"
#include "Thunderbird/Answers.h"
#include "Thunderbird/NativeMessages.h"
#include "Wording/Details.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

/// Requests that are worked on at once; the next is read when one of them is done.
constexpr int mostAtOnce = 8;

class Host {
public:
    Host(const HostSurroundings& surroundings, int output)
        : m_surroundings(surroundings),
          m_checker(surroundings.resolver, surroundings.registry, std::make_shared<RegistrySwitch>(true),
                    surroundings.keys, surroundings.now, surroundings.processes),
          m_output(output) {
        m_checker.setRules(surroundings.rules);
    }

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
    MessageChecker m_checker;
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
    std::atomic<int> underWay = 0;
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
        // A message that is looked at by itself is read by a process that has read nothing yet.
        if (underWay++ == 0) m_checker.renew();
        workers.add([this, &free, &underWay, request, token = stop.get_token(),
                     message = std::make_shared<std::string>(std::exchange(bytes, {}))] {
            answer(request, *message, token);
            --underWay;
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
    AddonAnswer answer;
    if (bytes.size() > largestMessage) {
        answer.problem = problemLine({Refusal::TooLarge{}}, {}, reader);
        return answer;
    }
    const MessageSource source{.bytes = std::make_shared<const ByteBuffer>(ByteBuffer(bytes))};
    m_checker.checkAgain(source, UUID::random(), stop, [&](const CheckOutcome& outcome) {
        if (const auto* refusal = std::get_if<Refusal>(&outcome.value)) {
            answer.problem = problemLine(*refusal, {}, reader);
        } else {
            answer.summary = panelSummary(*std::get<CheckOutcome::Checked>(outcome.value).report, reader);
        }
    });
    return answer;
}

AddonAnswer Host::opened(const AddonRequest& request, const std::string& bytes) {
    const Reader reader = readerOf(request);
    AddonAnswer answer;
    assert(m_surroundings.window);
    const HandedOver outcome = m_surroundings.window->open(bytes);
    const std::string why = systemErrorText(outcome.error, reader);
    switch (outcome.kind) {
        case HandedOver::Kind::taken:
            break;
        case HandedOver::Kind::noFolder:
            answer.problem = reader.translate(
                "The message couldn’t be handed to Quillmark: this session has no folder for that.");
            break;
        case HandedOver::Kind::unwritten:
            answer.problem = reader.translate("The message couldn’t be handed to Quillmark: %1", {why});
            break;
        case HandedOver::Kind::notStarted:
            answer.problem = reader.translate(
                "Quillmark’s window couldn’t be opened: %1. Is the package quillmark-desktop installed?",
                {why});
            break;
        case HandedOver::Kind::notTaken:
            answer.problem = reader.translate("Quillmark’s window didn’t take the message.");
            break;
    }
    return answer;
}

}  // namespace

int serveAddon(const HostSurroundings& surroundings, int input, int output) {
    ::signal(SIGPIPE, SIG_IGN);  // NOLINT(bugprone-*): who asked may have gone
    if (surroundings.sandbox) restrictProcess(*surroundings.sandbox);
    return Host(surroundings, output).serve(input);
}

}  // namespace quillmark
