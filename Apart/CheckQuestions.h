#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "Apart/CheckProtocol.h"
#include "Apart/SwitchedRegistry.h"
#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Lookups/KeyMemory.h"
#include "QuillmarkKit/Lookups/Recording.h"

namespace quillmark {

/// How many names are asked for on account of a message. A process that somebody took over could have the
/// text of the message asked for, name by name, from whoever answers for a domain of his: names are all that
/// leaves the computer, so they are few.
///
/// An honest check asks for few: of the recorded samples at most 5, in 149 bytes, and the whole mailbox
/// among them 17. SPF may ask for ten times
/// (RFC 7208, section 4.6.4), which with ten hosts for each mx comes to 111 names at the very most; ten
/// signatures and a chain of fifty servers have 110 keys; DMARC and its tree walk ask for a dozen; registries
/// for a domain or two. No message does all of that at once. One that needs more has what an unanswered
/// question has: "couldn't check".
struct NameBounds {
    static constexpr std::size_t most = 200;     ///< names of a message
    static constexpr std::size_t bytes = 8'000;  ///< in them, all together
    /// The same for each that is attached inside it, beside what the others left.
    static constexpr std::size_t mostAttached = 20, bytesAttached = 800;
    /// What each further question fails with.
    static constexpr const char* failure = "this message asks for too many names";
    /// Questions that fail so, of a message: what asks for more is no check any more.
    static constexpr std::size_t mostRefused = 1'000;
};

/// Counts names, each once.
class AskedNames {
public:
    /// For the next message.
    void allow(std::size_t names, std::size_t bytes) { m_names += names, m_bytes += bytes, m_refused = 0; }
    /// Throws `DecodingError` when it was said too often that it may not.
    bool mayAsk(std::string_view name);

private:
    std::size_t m_names = 0, m_bytes = 0;  // that are left
    std::size_t m_refused = 0;
    std::set<std::string, std::less<>> m_asked = {};
};

/// The answers that a process was told and keeps, so that it need not ask again what other messages have
/// asked: it names them by their numbers. What stands there is known here, whatever becomes of the process.
class ToldAnswers {
public:
    struct Answer {
        std::string question = {};  ///< a key of `StaticResolver`
        DNSAnswer answer = {};
        std::string source = {};
    };

    /// Whether the process is to forget all: somebody else is asked now, or there is no room for more.
    bool forgets(const std::shared_ptr<DNSResolver>& resolver);
    /// The number by which the process is to keep it, which no other has had; nothing when it isn't to.
    std::optional<std::size_t> keep(Answer answer);
    /// Throws `DecodingError` when there is none, or none any more.
    const Answer& at(std::size_t number) const;

private:
    std::shared_ptr<DNSResolver> m_resolver = {};  // who gave them
    std::vector<Answer> m_answers = {};
    std::size_t m_forgotten = 0;  // as many, before these
    std::size_t m_bytes = 0;
};

/// Who answers.
struct Answerers {
    std::shared_ptr<DNSResolver> resolver = {};
    std::shared_ptr<RegistrationLookup> registry = {};          ///< may be none
    std::shared_ptr<const RegistrySwitch> mayAskRegistry = {};  ///< none without a registry
    std::shared_ptr<KeyMemory> keys = {};                       ///< may be none
};

/// Answers what a process asks for that checks a message, and those attached to it.
class CheckQuestions {
public:
    /// `told`: what the process was told for other messages.
    CheckQuestions(Answerers answerers, std::stop_token stop,
                   std::shared_ptr<ToldAnswers> told = std::make_shared<ToldAnswers>())
        : m_answerers(std::move(answerers)), m_stop(std::move(stop)), m_told(std::move(told)) {}

    /// Of the next message. Whether the process is to forget what it was told.
    bool begin();
    /// What is answered to this piece, packed. Throws `DecodingError` when it is no question.
    std::string answer(TalkKind kind, std::string_view bytes);
    /// That the process says that keys were seen, which counts as far as they were.
    void saw(std::string_view bytes);
    /// That it needed an answer that it has kept.
    void needed(std::string_view bytes);

    bool asksRegistry() const { return m_registry != nullptr; }
    /// Whether every name may be known. Fixed answers don't hold the root's.
    bool mayKnowAll() const { return m_resolver->mayKnow("", DNSRecordType::txt); }
    /// What it was told, and what it couldn't be; of the message that was begun last.
    std::shared_ptr<const RecordedAnswers> answers() const { return m_answers; }
    std::shared_ptr<const RecordedFailures> failures() const { return m_failures; }

private:
    std::string lookup(std::string_view bytes);
    std::string registration(std::string_view bytes);

    const Answerers m_answerers;
    const std::stop_token m_stop;
    const std::shared_ptr<ToldAnswers> m_told;
    AskedNames m_names = {};
    bool m_hasBegun = false;
    std::shared_ptr<RecordedAnswers> m_answers = {};
    std::shared_ptr<RecordedFailures> m_failures = {};
    std::shared_ptr<DNSResolver> m_resolver = {};
    std::shared_ptr<RegistrationLookup> m_registry = {};
    DNSAsker m_asker = {};
};

}  // namespace quillmark
