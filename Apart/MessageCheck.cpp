#include "Apart/MessageCheck.h"

#include <chrono>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <utility>

#include "Apart/ApartReader.h"
#include "Apart/CheckQuestions.h"
#include "Apart/CheckRequest.h"
#include "QuillmarkKit/CheckWalk.h"
#include "QuillmarkKit/Intake/AttachedMessages.h"
#include "QuillmarkKit/Intake/Containers.h"
#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Lookups/Evidence.h"
#include "QuillmarkKit/Verifier.h"

namespace quillmark {

namespace {

/// Received fields stand in the header: no more of a message than this is read again for them, in bytes.
constexpr std::size_t longestHeaderRead = 100'000;

/// How long the window itself may wait for a process, which does what it is asked in a moment.
constexpr std::chrono::seconds patienceOfWindow{5};

/// A copy: the source's own bytes are shared.
FoundMessage foundIn(const MessageSource& source) {
    return {ByteBuffer(source.bytes->view()), source.place, source.mode, source.facts};
}

MessageSource sourceOf(FoundMessage found) {
    MessageSource source{
        .place = std::move(found.place), .mode = found.mode, .facts = std::move(found.facts)};
    const bool isOneOfSeveral =
        source.place.number > 0 || !source.place.inside.empty() || !source.place.attached.empty();
    if (isOneOfSeveral && !source.place.path.empty()) source.digest = sha256(found.bytes.view());
    source.bytes = std::make_shared<const ByteBuffer>(std::move(found.bytes));
    return source;
}

/// Who waits until then.
Channel::GoesOn soon(const std::stop_token& stop = {}) {
    return [end = std::chrono::steady_clock::now() + patienceOfWindow, stop] {
        return !stop.stop_requested() && std::chrono::steady_clock::now() < end;
    };
}

/// What one of the processes makes of it; nothing when it can't.
template <typename Value>
std::optional<Value> madeApart(CheckProcesses& processes, TalkKind kind, std::string_view bytes,
                               const Channel::GoesOn& goesOn) {
    CheckRequest request(processes, CheckProcesses::Kind::unused, goesOn);
    const auto done = request.run(kind, bytes);
    return done ? request.outcome<Value>(*done) : std::nullopt;
}

CheckOutcome::Checked checked(ProofReport report, CheckedMessage message) {
    // What the registry's switch makes of a question is no failure.
    const auto* age = std::get_if<DomainAge::Status::Unavailable>(&report.domainAge.status.value);
    if (age && age->reason == SwitchedRegistry::switchedOff)
        report.domainAge.status = {DomainAge::Status::Skipped{}};
    CheckOutcome::Checked checked{.message = std::move(message)};
    HistoryChange saved;
    if (saved.add(report)) checked.saved = std::move(saved);
    checked.report = std::make_shared<const ProofReport>(std::move(report));
    return checked;
}

}  // namespace

std::vector<PathStep> receivedPath(const CheckedMessage& checked) {
    const std::string_view head = checked.source.bytes->view().substr(0, longestHeaderRead);
    if (checked.processes) {
        const SentMessage message{.bytes = head, .mode = checked.source.mode};
        return madeApart<std::vector<PathStep>>(*checked.processes, TalkKind::path, packed(message), soon())
            .value_or(std::vector<PathStep>());
    }
    return receivedPath(MailMessage::parse(ByteBuffer(head), checked.source.mode));
}

MessageText messageText(const CheckedMessage& checked) {
    if (checked.processes) {
        const SentMessage message{.bytes = checked.source.bytes->view(), .mode = checked.source.mode};
        return madeApart<MessageText>(*checked.processes, TalkKind::text, packed(message), soon())
            .value_or(MessageText());
    }
    const auto taken = messageIn(ByteBuffer(checked.source.bytes->view()), checked.source.mode);
    const auto* message = std::get_if<MailMessage>(&taken);
    return message ? messageText(*message) : MessageText();
}

std::vector<SignedText> signedTexts(const CheckedMessage& checked, const ProofReport& report,
                                    const std::stop_token& stop) {
    StaticResolver::Answers answers;
    std::map<std::string, std::string, std::less<>> errors;
    for (const auto& [question, entry] : checked.answers->dns.entries())
        answers.emplace(question, entry.value);
    for (const auto& [question, entry] : checked.failures->dns.entries())
        errors.emplace(question, entry.value);
    auto resolver =
        std::make_shared<StaticResolver>(std::move(answers), std::set<std::string, std::less<>>{}, errors);
    if (!checked.processes)
        return signedTexts(foundIn(checked.source), Verifier(std::move(resolver)), report.fileName,
                           report.checkedAt, report.id, stop);
    CheckQuestions questions({.resolver = std::move(resolver)}, stop);
    CheckRequest request(*checked.processes, CheckProcesses::Kind::unused,
                         [&stop] { return !stop.stop_requested(); });
    request.on(TalkKind::begin, [&](std::string_view, const Talk& talk) {
        questions.begin();
        talk.tell(TalkKind::answer, packed(BegunCheck{.id = report.id, .at = report.checkedAt}));
    });
    request.answer(questions);
    const SentMessage message{
        .bytes = checked.source.bytes->view(), .mode = checked.source.mode, .facts = checked.source.facts};
    const auto done = request.run(TalkKind::signedTexts, packed(message));
    return done ? request.outcome<std::vector<SignedText>>(*done).value_or(std::vector<SignedText>())
                : std::vector<SignedText>();
}

std::vector<SignedText> signedTexts(const FoundMessage& found, const Verifier& verifier,
                                    const std::optional<std::string>& fileName, Date checkedAt,
                                    // cppcheck-suppress passedByValue; an identity is sixteen plain bytes
                                    const UUID& id, const std::stop_token& stop) {
    const auto taken = messageIn(ByteBuffer(found.bytes.view()), found.mode);
    if (!std::holds_alternative<MailMessage>(taken)) return {};
    const auto& message = std::get<MailMessage>(taken);
    const Verification again = verifier.examine(message, fileName, checkedAt, id, stop, found.facts);
    std::vector<SignedText> texts;
    auto asSigned = again.asSigned.begin();
    for (const ReportNote& note : again.report.notes) {
        const auto* undone = std::get_if<ReportNote::Undone>(&note.value);
        if (!undone || asSigned == again.asSigned.end() || stop.stop_requested()) continue;
        texts.push_back(signedText(message, *asSigned++, undone->fields));
    }
    return texts;
}

OpenMailbox::OpenMailbox(const MessagePlace& file)
    : place(file), reader(std::make_unique<MailboxReader>(file.path, file.file)) {}
OpenMailbox::OpenMailbox(const MessagePlace& file, std::unique_ptr<ApartReader> of)
    : place(file), apart(std::move(of)) {}
OpenMailbox::~OpenMailbox() = default;

MessageChecker::MessageChecker(std::shared_ptr<DNSResolver> resolver,
                               std::shared_ptr<RegistrationLookup> registry,
                               std::shared_ptr<const RegistrySwitch> mayAskRegistry,
                               std::shared_ptr<KeyMemory> keys, std::function<Date()> now,
                               std::shared_ptr<CheckProcesses> processes)
    : m_resolver(std::move(resolver)),
      m_registry(std::move(registry)),
      m_mayAskRegistry(std::move(mayAskRegistry)),
      m_keys(std::move(keys)),
      m_now(std::move(now)),
      m_processes(std::move(processes)) {}

void MessageChecker::setRules(const CheckRules& rules) {
    const std::lock_guard turn(m_choosing);
    m_rules = rules;
}

void MessageChecker::setResolver(std::shared_ptr<DNSResolver> resolver) {
    const std::lock_guard turn(m_choosing);
    m_resolver = std::move(resolver);
}

std::shared_ptr<OpenMailbox> MessageChecker::check(const MessageSource& source, const UUID& id,
                                                   const std::stop_token& stop,
                                                   const Receiver& receiver) const {
    try {
        if (source.bytes) {
            walk(foundIn(source), id, true, stop, receiver);
            return nullptr;
        }
        if (m_processes) return openApart(source, id, stop, receiver);
        auto mailbox = std::make_shared<OpenMailbox>(source.place);
        auto first = next(*mailbox, stop);
        if (stop.stop_requested()) return nullptr;
        if (first) {
            const MessagePlace& place = placeOf(first->found);
            if (place.path == source.place.path && place.inside.empty() && place.number == 0) {
                walk(std::move(first->found), id, true, stop, receiver);
                return nullptr;
            }
            mailbox->first = std::move(first->found);
        }
        mailbox->given = 0;
        mailbox->expectedBytes = MailboxReader::expectedBytes(source.place.path);
        return mailbox;
    } catch (const std::exception& error) {
        receiver({source.place, unreadable(error), true, true});
        return nullptr;
    }
}

void MessageChecker::checkAgain(const MessageSource& source, const UUID& id, const std::stop_token& stop,
                                const Receiver& receiver) const {
    try {
        walk(source.bytes ? Found(foundIn(source)) : readAgain(source, stop), id, false, stop, receiver);
    } catch (const std::exception& error) {
        receiver({source.place, unreadable(error), true, true});
    }
}

void MessageChecker::check(Found found, const std::stop_token& stop, const Receiver& receiver) const {
    const MessagePlace place = placeOf(found);
    try {
        walk(std::move(found), UUID::random(), true, stop, receiver);
    } catch (const std::exception& error) {
        receiver({place, unreadable(error), true, true});
    }
}

std::optional<MessageChecker::Next> MessageChecker::next(OpenMailbox& mailbox,
                                                         const std::stop_token& stop) const {
    const std::lock_guard turn(mailbox.apart ? mailbox.reading : m_reading);
    if (stop.stop_requested() || mailbox.hasFailed) return std::nullopt;
    try {
        auto found = mailbox.first   ? std::exchange(mailbox.first, std::nullopt)
                     : mailbox.apart ? mailbox.apart->next(stop)
                                     : mailbox.reader->next(stop);
        if (!found) return std::nullopt;
        const std::uint64_t bytesRead =
            mailbox.apart ? mailbox.apart->bytesRead() : mailbox.reader->bytesRead();
        return Next{std::move(*found), ++mailbox.given, bytesRead};
    } catch (const std::bad_alloc& error) {
        mailbox.hasFailed = true;
        return Next{FoundProblem{unreadable(error), mailbox.place}, ++mailbox.given};
    }
}

std::size_t MessageChecker::given(OpenMailbox& mailbox) const {
    const std::lock_guard turn(mailbox.apart ? mailbox.reading : m_reading);
    return mailbox.given;
}

Found MessageChecker::readAgain(const MessageSource& source, const std::stop_token& stop) const {
    if (m_processes) return readAgainApart(source, stop);
    std::unique_lock turn(m_reading);
    auto found = quillmark::readAgain(source.place, stop);
    turn.unlock();
    if (auto* refusal = std::get_if<Refusal>(&found)) return FoundProblem{std::move(*refusal), source.place};
    auto& message = std::get<FoundMessage>(found);
    if (!source.digest.empty() && sha256(message.bytes.view()) != source.digest)
        return FoundProblem{{Refusal::Moved{}}, source.place};
    return std::move(message);
}

void MessageChecker::walk(Found found, const UUID& id, bool goesInside, const std::stop_token& stop,
                          const Receiver& receiver) const {
    if (auto* message = m_processes ? std::get_if<FoundMessage>(&found) : nullptr) {
        SentMessage outer = sent(*message);
        outer.attached.clear();  // it is the outermost that is checked now
        std::string bytes = packed(outer, goesInside);
        checkApart(
            {.kind = TalkKind::check, .bytes = std::move(bytes), .source = sourceOf(std::move(*message))}, id,
            stop, receiver);
        return;
    }
    CheckedMessage made;
    bool isOutermost = true;
    const auto verify = [&](const MailMessage& message, FoundMessage each) {
        made = {sourceOf(std::move(each))};
        return verified(message, made, isOutermost ? id : UUID::random(), stop);
    };
    CheckWalk walk(std::move(found), verify, {.keepsBytes = true, .goesInside = goesInside});
    while (!stop.stop_requested()) {
        auto each = walk.next();
        if (!each || stop.stop_requested()) return;  // its findings say only that it was stopped
        CheckOutcome outcome{
            .place = std::move(each->place), .isOutermost = isOutermost, .isLast = !walk.hasNext()};
        try {
            if (auto* report = std::get_if<ProofReport>(&each->value)) {
                outcome.value = checked(std::move(*report), std::exchange(made, {}));
            } else {
                outcome.value = std::get<Refusal>(std::move(each->value));
            }
        } catch (const std::exception& error) {
            outcome.value = unreadable(error);
        }
        receiver(std::move(outcome));
        isOutermost = false;
    }
}

ProofReport MessageChecker::verified(const MailMessage& message, CheckedMessage& made, const UUID& id,
                                     const std::stop_token& stop) const {
    const auto answers = std::make_shared<RecordedAnswers>();
    const auto failures = std::make_shared<RecordedFailures>();
    std::shared_ptr<RegistrationLookup> registry;
    if (m_registry && m_mayAskRegistry->isOn()) {
        registry = std::make_shared<SwitchedRegistry>(
            std::make_shared<RecordingRegistry>(m_registry, answers, failures), m_mayAskRegistry);
    }
    std::unique_lock turn(m_choosing);
    const auto resolver = m_resolver;
    const CheckRules rules = m_rules;
    turn.unlock();
    const Verifier verifier(std::make_shared<RecordingResolver>(resolver, answers, failures),
                            std::move(registry), PublicSuffixList::shared(), {}, rules, m_keys);
    made.begun = m_now();
    ProofReport report =
        verifier.verify(message, made.source.place.name(), made.begun, id, stop, made.source.facts);
    made.ended = m_now();
    made.answers = answers;
    made.failures = failures;
    return report;
}

// By processes of their own

std::optional<TalkKind> MessageChecker::checkApart(Asked asked, const UUID& id, const std::stop_token& stop,
                                                   const Receiver& receiver) const {
    CheckRequest request(*m_processes, CheckProcesses::Kind::anyOfNow,
                         [&stop] { return !stop.stop_requested(); });
    std::unique_lock turn(m_choosing);
    CheckQuestions questions({m_resolver, m_registry, m_mayAskRegistry, m_keys}, stop, request.told());
    const CheckRules rules = m_rules;
    turn.unlock();

    const MessageSource& source = asked.source;
    // Of the message at hand: all that it is known by comes from here, and not from the process.
    struct {
        bool isBegun = false;
        std::vector<std::size_t> attached = {};
        UUID id = {};
        Date begun = {};
    } message;
    std::size_t told = 0;
    bool isLastTold = false;
    const auto placeOfAttached = [&](const std::vector<std::size_t>& attached) {
        if (isLastTold || attached.size() > AttachedMessages::deepest ||
            told > AttachedMessages::mostOf + 1 || (told == 0 && !attached.empty()))
            throw DecodingError("an attached message that can't be");
        MessagePlace place = source.place;
        if (!attached.empty()) place.attached = attached;
        return place;
    };
    const auto tell = [&](CheckOutcome outcome, bool isLast) {
        outcome.isOutermost = told++ == 0;
        outcome.isLast = isLastTold = isLast;
        message.isBegun = false;
        if (!stop.stop_requested()) receiver(std::move(outcome));
    };
    const auto begin = [&](std::vector<std::size_t> attached) {
        const bool forgets = questions.begin();
        message = {true, std::move(attached), told == 0 ? id : UUID::random(), m_now()};
        return BegunCheck{message.id,        message.begun,          rules,  questions.asksRegistry(),
                          m_keys != nullptr, questions.mayKnowAll(), forgets};
    };
    request.on(TalkKind::begin, [&](std::string_view bytes, const Talk& talk) {
        auto [attached] = unpacked<std::vector<std::size_t>>(bytes);
        // Each message has names that may be asked for.
        if (message.isBegun) throw DecodingError("a message before the end of another");
        placeOfAttached(attached);
        talk.tell(TalkKind::answer, packed(begin(std::move(attached))));
    });
    request.answer(questions);
    if (asked.files) asked.files->answer(request);
    request.on(TalkKind::report, [&](std::string_view bytes, const Talk&) {
        auto [attached, isLast, report, sent] =
            unpacked<std::vector<std::size_t>, bool, ProofReport, SentMessage>(bytes);
        CheckOutcome outcome{.place = placeOfAttached(attached)};
        if (!message.isBegun || attached != message.attached || report.id != message.id ||
            report.checkedAt != message.begun)
            throw DecodingError("the report of another message");
        report.fileName = outcome.place.name();
        CheckedMessage made{.source = source, .processes = m_processes};
        if (!attached.empty() || !source.bytes) {
            made.source = sourceOf(foundMessage(sent, {}));
            made.source.place = outcome.place;
            if (!attached.empty()) made.source.digest = sha256(made.source.bytes->view());
        }
        made.begun = message.begun, made.ended = m_now();
        made.answers = questions.answers(), made.failures = questions.failures();
        outcome.value = checked(std::move(report), std::move(made));
        tell(std::move(outcome), isLast);
    });
    request.on(TalkKind::refused, [&](std::string_view bytes, const Talk&) {
        auto [attached, isLast, refusal] = unpacked<std::vector<std::size_t>, bool, Refusal>(bytes);
        tell({.place = placeOfAttached(attached), .value = std::move(refusal)}, isLast);
    });
    if (asked.kind == TalkKind::check) asked.bytes += packed(begin({}));
    const auto end = request.run(asked.kind, asked.bytes);
    const bool hasSeveral = end && end->kind == TalkKind::several && asked.files && told == 0;
    if (hasSeveral) {
        asked.files->begun(request);
        return TalkKind::several;
    }
    const bool isDone = end && request.isWhole(*end) && isLastTold;
    if (isDone || stop.stop_requested()) return TalkKind::done;
    // What was told before stays.
    MessagePlace place = source.place;
    if (message.isBegun && told > 0) place.attached = message.attached;
    isLastTold = false;
    tell({.place = std::move(place), .value = request.whyNone()}, true);
    return std::nullopt;
}

std::shared_ptr<OpenMailbox> MessageChecker::openApart(const MessageSource& source, const UUID& id,
                                                       const std::stop_token& stop,
                                                       const Receiver& receiver) const {
    auto reader = std::make_unique<ApartReader>(*m_processes, source.place);
    std::error_code error;
    // Of a folder one file must not take the others with it, and what is in it is several as a rule.
    if (!std::filesystem::is_directory(source.place.path, error)) {
        MessageSource file = source;
        const auto end = checkApart(
            {.kind = TalkKind::open, .source = std::move(file), .files = reader.get()}, id, stop, receiver);
        if (end != TalkKind::several || stop.stop_requested()) return nullptr;
    }
    const auto mailbox = std::make_shared<OpenMailbox>(source.place, std::move(reader));
    mailbox->expectedBytes = MailboxReader::expectedBytes(source.place.path);
    return mailbox;
}

Found MessageChecker::readAgainApart(const MessageSource& source, const std::stop_token& stop) const {
    ApartReader reader(*m_processes, {.path = source.place.path});
    auto found = reader.readAgain(source.place, stop);
    if (auto* problem = std::get_if<FoundProblem>(&found)) {
        problem->place = source.place;
        return found;
    }
    auto& message = std::get<FoundMessage>(found);
    message.place = source.place;
    if (!source.digest.empty() && sha256(message.bytes.view()) != source.digest)
        return FoundProblem{{Refusal::Moved{}}, source.place};
    return found;
}

MessageChecker::Pasted MessageChecker::pasted(std::string_view text) const {
    if (m_processes) {
        CheckRequest request(*m_processes, CheckProcesses::Kind::unused, soon());
        const auto done = request.run(TalkKind::pasted, text);
        auto outcome =
            done ? request.outcomes<ByteBuffer, std::optional<DroppedLines>, std::optional<Refusal>>(*done)
                 : std::nullopt;
        if (!outcome) return {ByteBuffer(text), {}, request.whyNone()};
        auto& [source, dropped, refusal] = *outcome;
        return {std::move(source), std::move(dropped), std::move(refusal)};
    }
    PastedText pasted = pastedText(text);
    Pasted outcome{ByteBuffer(pasted.source), std::move(pasted.dropped)};
    auto taken = messageIn(ByteBuffer(pasted.source), ParseMode::lenient);
    if (auto* refusal = std::get_if<Refusal>(&taken)) outcome.refusal = std::move(*refusal);
    return outcome;
}

bool MessageChecker::isMessageAlone(std::string_view file) const {
    if (!m_processes) return quillmark::isMessageAlone(file);
    return madeApart<bool>(*m_processes, TalkKind::isAlone, file, soon()).value_or(false);
}

}  // namespace quillmark
