#include "Quillmark/MessageCheck.h"

#include <exception>
#include <functional>
#include <map>
#include <set>
#include <utility>

#include "QuillmarkKit/CheckWalk.h"
#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Lookups/Evidence.h"
#include "QuillmarkKit/Verifier.h"

namespace quillmark {

namespace {

/// Received fields stand in the header: no more of a message than this is read again for them, in bytes.
constexpr std::size_t longestHeaderRead = 100'000;

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

CheckOutcome::Checked checked(ProofReport report, CheckedMessage message) {
    CheckOutcome::Checked checked{.message = std::move(message)};
    HistoryChange saved;
    if (saved.add(report)) checked.saved = std::move(saved);
    checked.report = std::make_shared<const ProofReport>(std::move(report));
    return checked;
}

}  // namespace

std::vector<PathStep> receivedPath(const CheckedMessage& checked) {
    const std::string_view head = checked.source.bytes->view().substr(0, longestHeaderRead);
    return receivedPath(MailMessage::parse(ByteBuffer(head), checked.source.mode));
}

MessageText messageText(const CheckedMessage& checked) {
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
    const Verifier verifier(
        std::make_shared<StaticResolver>(std::move(answers), std::set<std::string, std::less<>>{}, errors));
    const MessageSource& source = checked.source;
    const auto taken = messageIn(ByteBuffer(source.bytes->view()), source.mode);
    if (!std::holds_alternative<MailMessage>(taken)) return {};
    const auto& message = std::get<MailMessage>(taken);
    const Verification again =
        verifier.examine(message, report.fileName, report.checkedAt, report.id, stop, source.facts);
    std::vector<SignedText> texts;
    auto asSigned = again.asSigned.begin();
    for (const ReportNote& note : again.report.notes) {
        const auto* undone = std::get_if<ReportNote::Undone>(&note.value);
        if (!undone || asSigned == again.asSigned.end() || stop.stop_requested()) continue;
        texts.push_back(signedText(message, *asSigned++, undone->fields));
    }
    return texts;
}

MessageChecker::MessageChecker(std::shared_ptr<DNSResolver> resolver,
                               std::shared_ptr<RegistrationLookup> registry,
                               std::shared_ptr<const RegistrySwitch> mayAskRegistry,
                               std::shared_ptr<KeyMemory> keys, std::function<Date()> now)
    : m_resolver(std::move(resolver)),
      m_registry(std::move(registry)),
      m_mayAskRegistry(std::move(mayAskRegistry)),
      m_keys(std::move(keys)),
      m_now(std::move(now)) {}

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
        const auto mailbox = std::make_shared<OpenMailbox>(source.place);
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
    walk(std::move(found), UUID::random(), true, stop, receiver);
}

std::optional<MessageChecker::Next> MessageChecker::next(OpenMailbox& mailbox,
                                                         const std::stop_token& stop) const {
    const std::lock_guard turn(m_reading);
    if (stop.stop_requested()) return std::nullopt;
    try {
        auto found = mailbox.first ? std::exchange(mailbox.first, std::nullopt) : mailbox.reader.next(stop);
        if (!found) return std::nullopt;
        return Next{std::move(*found), ++mailbox.given, mailbox.reader.bytesRead()};
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

std::size_t MessageChecker::given(const OpenMailbox& mailbox) const {
    const std::lock_guard turn(m_reading);
    return mailbox.given;
}

Found MessageChecker::readAgain(const MessageSource& source, const std::stop_token& stop) const {
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
                outcome.value = checked(std::move(*report), std::move(made));
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
    const auto* age = std::get_if<DomainAge::Status::Unavailable>(&report.domainAge.status.value);
    if (age && age->reason == SwitchedRegistry::switchedOff)
        report.domainAge.status = {DomainAge::Status::Skipped{}};
    return report;
}

}  // namespace quillmark
