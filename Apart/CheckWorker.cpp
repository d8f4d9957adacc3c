#include "Apart/CheckWorker.h"

#include <unistd.h>

#include <chrono>
#include <deque>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

#include "Apart/CheckProtocol.h"
#include "Apart/MessageCheck.h"
#include "QuillmarkKit/CheckWalk.h"
#include "QuillmarkKit/Intake/Containers.h"
#include "QuillmarkKit/Intake/PastedText.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "QuillmarkKit/Verifier.h"

namespace quillmark {

namespace {

using Kind = TalkKind;

/// How long a mailbox is read before the window has any of it.
constexpr std::chrono::milliseconds longestAhead{5};

/// The window, which answers what is asked.
class Window {
public:
    explicit Window(const Channel& channel) : m_talk(channel) {}

    TalkPiece hear() {
        auto piece = m_talk.hear(Talk::Files::taken);
        if (!piece) ::_exit(0);  // it has gone
        return std::move(*piece);
    }
    void tell(Kind kind, std::string_view bytes = {}) {
        if (!m_talk.tell(kind, bytes)) ::_exit(0);
    }
    void tellWithNext(Kind kind, std::string_view bytes) { m_talk.tellWithNext(kind, bytes); }
    TalkPiece ask(Kind kind, std::string_view bytes = {}) {
        tell(kind, bytes);
        return hear();
    }

private:
    const Talk m_talk;
};

/// What was told for the messages before, by question.
struct KeptAnswer {
    std::size_t number = 0;  // by which the window knows it
    DNSAnswer answer = {};
    std::string source = {};
};
using KeptAnswers = std::map<std::string, KeptAnswer, std::less<>>;

class AskedResolver : public DNSResolver {
public:
    AskedResolver(Window& window, KeptAnswers& kept, bool mayKnowAll)
        : m_window(window), m_kept(kept), m_mayKnowAll(mayKnowAll) {}

    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience) override {
        const std::string key = StaticResolver::key(name, type);
        if (const auto known = m_answers.find(key); known != m_answers.end()) return known->second;
        if (const auto kept = m_kept.find(key); kept != m_kept.end()) {
            m_window.tellWithNext(Kind::needed, packed(kept->second.number));
            m_sources.insert_or_assign(key, kept->second.source);
            return m_answers.emplace(key, kept->second.answer).first->second;
        }
        const TalkPiece piece =
            m_window.ask(Kind::lookup, packed(name, static_cast<int>(type), sentTime(patience.deadline)));
        const auto [answer, number] = unpacked<SentAnswer, std::optional<std::size_t>>(piece.bytes);
        m_sources.insert_or_assign(key, answer.source);
        if (answer.failure) throw DNSLookupError(*answer.failure);
        const DNSAnswer& made = m_answers.emplace(key, receivedAnswer(answer)).first->second;
        if (number) m_kept.emplace(key, KeptAnswer{*number, made, answer.source});
        return made;
    }
    bool mayKnow(std::string_view name, DNSRecordType type) override {
        if (m_mayKnowAll) return true;
        const TalkPiece piece = m_window.ask(Kind::mayKnow, packed(name, static_cast<int>(type)));
        return std::get<0>(unpacked<bool>(piece.bytes));
    }
    std::string source(std::string_view name, DNSRecordType type) override {
        const auto found = m_sources.find(StaticResolver::key(name, type));
        return found != m_sources.end() ? found->second : std::string();
    }

private:
    Window& m_window;
    KeptAnswers& m_kept;
    const bool m_mayKnowAll;
    StaticResolver::Answers m_answers = {};  // of this message: the same is asked for twice
    StaticResolver::Texts m_sources = {};
};

class AskedRegistry : public RegistrationLookup {
public:
    explicit AskedRegistry(Window& window) : m_window(window) {}

    std::optional<Date> registrationDate(std::string_view domain, const Patience& patience) override {
        const TalkPiece piece = m_window.ask(Kind::registration, packed(domain, sentTime(patience.deadline)));
        const auto [failure, date] = unpacked<std::optional<std::string>, std::optional<Date>>(piece.bytes);
        if (failure) throw RDAPError(*failure);
        return date;
    }

private:
    Window& m_window;
};

class AskedKeys : public KeyMemory {
public:
    explicit AskedKeys(Window& window) : m_window(window) {}

    std::vector<KnownKey> keysOf(std::string_view name) override {
        const TalkPiece piece = m_window.ask(Kind::keysOf, packed(name));
        return std::get<0>(unpacked<std::vector<KnownKey>>(piece.bytes));
    }
    void saw(std::string_view name, std::span<const std::string> records, const std::string&, bool) override {
        const auto ascii = asciiDomain(name);  // as it was asked for
        const std::vector<std::string_view> data(records.begin(), records.end());
        m_window.tellWithNext(Kind::saw, packed(std::string_view(ascii ? *ascii : name), data));
    }

private:
    Window& m_window;
};

class AskedFiles : public MailFiles {
public:
    explicit AskedFiles(Window& window) : m_window(window) {}
    ~AskedFiles() override {
        for (const File& each : m_files) {
            if (const int* const descriptor = std::get_if<int>(&each.opened)) ::close(*descriptor);
        }
    }

    std::optional<File> next() override {
        for (bool isLast = !m_files.empty(); !isLast;) {
            const auto piece = m_files.empty() ? m_window.ask(Kind::file) : m_window.hear();
            auto [isThere, isOnly, refusal, last] =
                unpacked<bool, bool, std::optional<Refusal>, bool>(piece.bytes);
            if (!isThere) return std::nullopt;
            if (!refusal && piece.file < 0) throw std::runtime_error("there is no descriptor for a file");
            File file{.isOnly = isOnly};
            file.opened = refusal ? std::variant<int, Refusal>(std::move(*refusal)) : piece.file;
            m_files.push_back(std::move(file));
            isLast = last;
            m_areSeveral = m_files.size() > 1;
        }
        File file = std::move(m_files.front());
        m_files.pop_front();
        m_isOnly = file.isOnly;
        if (m_areSeveral) m_window.tellWithNext(Kind::opened, {});
        return file;
    }
    /// Whether the file given last is what was to be read itself.
    bool isOnly() const { return m_isOnly; }

private:
    Window& m_window;
    std::deque<File> m_files = {};
    bool m_areSeveral = false;  // that came together
    bool m_isOnly = false;
};

}  // namespace

struct CheckWorker::State {
    explicit State(const Channel& channel) : m_window(channel) {}

    void answer(const TalkPiece& piece) {
        switch (piece.kind) {
            case Kind::check: {
                const auto [message, goesInside, begun] =
                    unpacked<SentMessage, bool, BegunCheck>(piece.bytes);
                if (begun.forgets) m_kept.clear();  // also when it turns out to be no message
                check(foundMessage(message, {}), goesInside, begun);
                return m_window.tell(Kind::done);
            }
            case Kind::open:
                return open();
            case Kind::resume:
                return resume(std::get<0>(unpacked<std::size_t>(piece.bytes)));
            case Kind::next:
                return next(std::get<0>(unpacked<std::size_t>(piece.bytes)));
            case Kind::readAgain:
                return readAgain(piece);
            case Kind::path:
                return m_window.tell(Kind::done, packed(quillmark::receivedPath(messageOf(piece))));
            case Kind::text:
                return m_window.tell(Kind::done, packed(text(piece)));
            case Kind::signedTexts:
                return m_window.tell(Kind::done, packed(signedTexts(piece)));
            case Kind::pasted:
                return pasted(piece);
            case Kind::isAlone:
                return m_window.tell(Kind::done, packed(isMessageAlone(piece.bytes)));
            default:
                ::_exit(1);
        }
    }

    MailMessage messageOf(const TalkPiece& piece) {
        const auto [message] = unpacked<SentMessage>(piece.bytes);
        return MailMessage::parse(ByteBuffer(message.bytes), message.mode);
    }
    MessageText text(const TalkPiece& piece) {
        const auto [message] = unpacked<SentMessage>(piece.bytes);
        const auto taken = messageIn(ByteBuffer(message.bytes), message.mode);
        const auto* parsed = std::get_if<MailMessage>(&taken);
        return parsed ? messageText(*parsed) : MessageText();
    }
    std::vector<SignedText> signedTexts(const TalkPiece& piece) {
        const auto [message] = unpacked<SentMessage>(piece.bytes);
        const TalkPiece begun = m_window.ask(Kind::begin, packed(std::vector<std::size_t>()));
        const auto [how] = unpacked<BegunCheck>(begun.bytes);
        return quillmark::signedTexts(foundMessage(message, {}), verifier(how), {}, how.at, how.id, {});
    }
    void pasted(const TalkPiece& piece) {
        const PastedText text = pastedText(piece.bytes);
        const auto taken = messageIn(ByteBuffer(text.source), ParseMode::lenient);
        const auto* refusal = std::get_if<Refusal>(&taken);
        m_window.tell(Kind::done, packed(std::string_view(text.source), text.dropped,
                                         refusal ? std::optional(*refusal) : std::nullopt));
    }

    Verifier verifier(const BegunCheck& how) {
        if (how.forgets) m_kept.clear();
        return Verifier(std::make_shared<AskedResolver>(m_window, m_kept, how.mayKnowAll),
                        how.asksRegistry ? std::make_shared<AskedRegistry>(m_window) : nullptr,
                        PublicSuffixList::shared(), {}, how.rules,
                        how.asksKeys ? std::make_shared<AskedKeys>(m_window) : nullptr);
    }

    /// `begun`: of a message that the window has; else it is told that it begins, and given the bytes.
    void check(Found found, bool goesInside, std::optional<BegunCheck> begun) {
        const bool givesBytes = !begun;
        FoundMessage made;
        const auto verify = [&](const MailMessage& message, FoundMessage each) {
            made = std::move(each);
            if (!begun || !made.place.attached.empty()) {
                const TalkPiece piece = m_window.ask(Kind::begin, packed(made.place.attached));
                begun = std::get<0>(unpacked<BegunCheck>(piece.bytes));
            }
            const BegunCheck how = *std::exchange(begun, std::nullopt);
            return verifier(how).verify(message, {}, how.at, how.id, {}, made.facts);
        };
        CheckWalk walk(std::move(found), verify, {.keepsBytes = true, .goesInside = goesInside});
        while (const auto each = walk.next()) {
            const auto& attached = each->place.attached;
            if (const auto* refusal = std::get_if<Refusal>(&each->value)) {
                m_window.tell(Kind::refused, packed(attached, !walk.hasNext(), *refusal));
                continue;
            }
            SentMessage message = sent(made);
            message.apart.clear();  // what is attached comes by itself
            if (attached.empty() && !givesBytes) message.bytes = {};
            const bool isLast = !walk.hasNext();
            const auto report =
                packedWithin(largestPiece, attached, isLast, std::get<ProofReport>(each->value), message);
            if (!report) ::_exit(1);  // the window would let this process go for it
            isLast ? m_window.tellWithNext(Kind::report, *report) : m_window.tell(Kind::report, *report);
        }
    }

    void read() {
        auto files = std::make_unique<AskedFiles>(m_window);
        m_files = files.get();
        m_reader.emplace(std::move(files));
        m_first.reset();
    }

    void open() {
        read();
        m_first = m_reader->next();
        if (!m_first) return m_window.tell(Kind::several);  // of which there is none
        const MessagePlace& place = placeOf(*m_first);
        if (!m_files->isOnly() || !place.inside.empty() || place.number != 0)
            return m_window.tell(Kind::several);
        check(*std::exchange(m_first, std::nullopt), true, std::nullopt);
        m_reader.reset();
        m_window.tell(Kind::done);
    }

    void resume(std::size_t given) {
        read();
        while (given > 0 && m_reader->next()) --given;
        m_window.tell(Kind::several);
    }

    void next(std::size_t most) {
        const auto end = std::chrono::steady_clock::now() + longestAhead;
        for (std::size_t bytes = 0, count = 0; count < most && bytes < bytesAhead; ++count) {
            const auto found = m_first    ? std::exchange(m_first, std::nullopt)
                               : m_reader ? m_reader->next()
                                          : std::nullopt;
            if (!found) return m_window.tell(Kind::done);
            bytes += tellFound(*found, &Window::tellWithNext);
            // What is passed over in an archive may take long.
            if (!placeOf(*found).inside.empty() || std::chrono::steady_clock::now() >= end) break;
        }
        m_window.tell(Kind::several);
    }

    void readAgain(const TalkPiece& piece) {
        auto [place] = unpacked<SentMessage>(piece.bytes);
        read();
        auto found = quillmark::readAgain(foundMessage(place, {}).place, *m_reader);
        if (auto* refusal = std::get_if<Refusal>(&found))
            tellFound(FoundProblem{std::move(*refusal)}, &Window::tell);
        else
            tellFound(std::get<FoundMessage>(std::move(found)), &Window::tell);
    }

    /// Gives its size.
    std::size_t tellFound(const Found& found, void (Window::*tell)(Kind, std::string_view)) {
        const std::uint64_t bytesRead = m_reader ? m_reader->bytesRead() : 0;
        if (const auto* message = std::get_if<FoundMessage>(&found)) {
            const std::string bytes = packed(sent(*message), bytesRead);
            (m_window.*tell)(Kind::found, bytes);
            return bytes.size();
        }
        const auto& problem = std::get<FoundProblem>(found);
        const SentMessage place{.inside = problem.place.inside, .number = problem.place.number};
        const std::string bytes = packed(place, problem.refusal, bytesRead);
        (m_window.*tell)(Kind::problem, bytes);
        return bytes.size();
    }

    Window m_window;
    AskedFiles* m_files = nullptr;  // of the reader
    std::optional<MailboxReader> m_reader = {};
    std::optional<Found> m_first = {};  // that was read to see whether there are several
    KeptAnswers m_kept = {};
};

CheckWorker::CheckWorker(const Channel& channel) : m_state(std::make_unique<State>(channel)) {}
CheckWorker::~CheckWorker() = default;

void CheckWorker::answer(const TalkPiece& piece) { m_state->answer(piece); }

void serveChecks(const Channel& channel) {
    const Talk talk(channel);
    CheckWorker worker(channel);
    try {
        while (const auto piece = talk.hear(Talk::Files::taken)) worker.answer(*piece);
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch)
        // As if it had been ended: the window says so of the message at hand.
    }
}

}  // namespace quillmark
