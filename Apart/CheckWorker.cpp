#include "Apart/CheckWorker.h"

#include <unistd.h>

#include <exception>
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

/// The window, which answers what is asked.
class Window {
public:
    explicit Window(const Channel& channel) : m_talk(channel) {}

    std::optional<TalkPiece> hear() { return m_talk.hear(Talk::Files::taken); }
    void tell(Kind kind, std::string_view bytes = {}) {
        if (!m_talk.tell(kind, bytes)) ::_exit(0);  // it has gone
    }
    void tellWithNext(Kind kind, std::string_view bytes) { m_talk.tellWithNext(kind, bytes); }
    TalkPiece ask(Kind kind, std::string_view bytes = {}) {
        tell(kind, bytes);
        auto piece = hear();
        if (!piece) ::_exit(0);
        return std::move(*piece);
    }

private:
    const Talk m_talk;
};

class AskedResolver : public DNSResolver {
public:
    AskedResolver(Window& window, bool mayKnowAll) : m_window(window), m_mayKnowAll(mayKnowAll) {}

    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience) override {
        const auto known = m_answers.find(StaticResolver::key(name, type));
        if (known != m_answers.end()) return known->second;
        const TalkPiece piece =
            m_window.ask(Kind::lookup, packed(name, static_cast<int>(type), sentTime(patience.deadline)));
        auto [answer] = unpacked<SentAnswer>(piece.bytes);
        m_sources.insert_or_assign(StaticResolver::key(name, type), std::move(answer.source));
        if (answer.failure) throw DNSLookupError(*answer.failure);
        return m_answers.emplace(StaticResolver::key(name, type), receivedAnswer(answer)).first->second;
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

    std::optional<File> next() override {
        const TalkPiece piece = m_window.ask(Kind::file);
        auto [isThere, isOnly, refusal] = unpacked<bool, bool, std::optional<Refusal>>(piece.bytes);
        if (!isThere) return std::nullopt;
        m_isOnly = isOnly;
        File file{.isOnly = isOnly};
        file.opened = refusal ? std::variant<int, Refusal>(std::move(*refusal)) : piece.file;
        return file;
    }
    /// Whether the file given last is what was to be read itself.
    bool isOnly() const { return m_isOnly; }

private:
    Window& m_window;
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
                check(foundMessage(message, {}), goesInside, begun);
                return m_window.tell(Kind::done);
            }
            case Kind::open:
                return open();
            case Kind::resume:
                return resume(std::get<0>(unpacked<std::size_t>(piece.bytes)));
            case Kind::next:
                return next();
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
            case Kind::isMailbox:
                return m_window.tell(Kind::done, packed(holdsSeveral(piece.bytes)));
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
        return Verifier(std::make_shared<AskedResolver>(m_window, how.mayKnowAll),
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
            const std::string report = packed(attached, isLast, std::get<ProofReport>(each->value), message);
            isLast ? m_window.tellWithNext(Kind::report, report) : m_window.tell(Kind::report, report);
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

    void next() {
        auto found = m_first    ? std::exchange(m_first, std::nullopt)
                     : m_reader ? m_reader->next()
                                : std::nullopt;
        if (!found) return m_window.tell(Kind::done);
        tellFound(*found);
    }

    void readAgain(const TalkPiece& piece) {
        auto [place] = unpacked<SentMessage>(piece.bytes);
        read();
        auto found = quillmark::readAgain(foundMessage(place, {}).place, *m_reader);
        if (auto* refusal = std::get_if<Refusal>(&found)) return tellFound(FoundProblem{std::move(*refusal)});
        tellFound(std::get<FoundMessage>(std::move(found)));
    }

    void tellFound(const Found& found) {
        const std::uint64_t bytesRead = m_reader ? m_reader->bytesRead() : 0;
        if (const auto* message = std::get_if<FoundMessage>(&found))
            return m_window.tell(Kind::found, packed(sent(*message), bytesRead));
        const auto& problem = std::get<FoundProblem>(found);
        const SentMessage place{.inside = problem.place.inside, .number = problem.place.number};
        m_window.tell(Kind::problem, packed(place, problem.refusal, bytesRead));
    }

    Window m_window;
    AskedFiles* m_files = nullptr;  // of the reader
    std::optional<MailboxReader> m_reader = {};
    std::optional<Found> m_first = {};  // that was read to see whether there are several
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
