#include "Quillmark/MessageCheck.h"

#include <cerrno>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

#include "QuillmarkKit/Lookups/Evidence.h"
#include "QuillmarkKit/Verifier.h"

namespace quillmark {

namespace {

CheckOutcome unreadable(std::string reason) { return {Refusal{Refusal::Unreadable{std::move(reason)}}}; }

template <typename Check>
CheckOutcome guarded(const std::stop_token& stop, const Check& check) {
    try {
        CheckOutcome outcome = check();
        if (stop.stop_requested()) return {};  // its findings say only that it was stopped
        return outcome;
    } catch (const std::bad_alloc&) {
        return unreadable(std::generic_category().message(ENOMEM));
    } catch (const std::exception& error) {
        return unreadable(error.what());
    }
}

}  // namespace

std::optional<Found> MessageSupply::next(const std::stop_token& stop) {
    return m_reader ? m_reader->next(stop) : nextAttached();
}

std::optional<Found> MessageSupply::nextAttached() {
    if (!m_attached) return std::nullopt;
    if (auto next = m_attached->next()) {
        MessagePlace place = m_place;
        place.attached = std::move(next->position);
        return FoundMessage{std::move(next->bytes), std::move(place)};
    }
    const bool isAnyLeftOut = m_attached->isAnyLeftOut();
    m_attached.reset();
    if (!isAnyLeftOut) return std::nullopt;
    return FoundProblem{{Refusal::AttachedLeftOut{}}, m_place};
}

MessageChecker::MessageChecker(std::shared_ptr<DNSResolver> resolver,
                               std::shared_ptr<RegistrationLookup> registry,
                               std::shared_ptr<const RegistrySwitch> mayAskRegistry,
                               std::function<Date()> now)
    : m_resolver(std::move(resolver)),
      m_registry(std::move(registry)),
      m_mayAskRegistry(std::move(mayAskRegistry)),
      m_now(std::move(now)) {}

CheckOutcome MessageChecker::check(const MessageSource& source, const UUID& id,
                                   const std::stop_token& stop) const {
    return guarded(stop, [&] {
        if (source.bytes) return checked(source, id, stop);
        return source.isAgain ? openedAgain(source, id, stop) : opened(source, id, stop);
    });
}

CheckOutcome MessageChecker::check(SuppliedMessage message, const UUID& id,
                                   const std::stop_token& stop) const {
    return guarded(stop, [&] { return checked(std::move(message.found), id, stop); });
}

std::optional<SuppliedMessage> MessageChecker::next(MessageSupply& supply,
                                                    const std::stop_token& stop) const {
    std::unique_lock turn(m_reading, std::defer_lock);
    if (supply.m_reader) turn.lock();  // what is attached has been read
    if (stop.stop_requested()) return std::nullopt;
    try {
        auto found = supply.m_first ? std::exchange(supply.m_first, std::nullopt) : supply.next(stop);
        if (!found) return std::nullopt;
        return SuppliedMessage{std::move(*found), ++supply.m_given,
                               supply.m_reader ? supply.m_reader->bytesRead() : 0};
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

std::variant<MailMessage, Refusal> MessageChecker::messageOf(std::string_view bytes, ParseMode mode) {
    if (bytes.size() > largestMessage) return Refusal{Refusal::TooLarge{}};
    return messageIn(ByteBuffer(bytes), mode);
}

std::size_t MessageChecker::given(const MessageSupply& supply) const {
    const std::lock_guard turn(m_reading);
    return supply.m_given;
}

CheckOutcome MessageChecker::opened(const MessageSource& source, const UUID& id,
                                    const std::stop_token& stop) const {
    const auto supply = std::make_shared<MessageSupply>(source.place);
    auto first = next(*supply, stop);
    if (first) {
        const MessagePlace& place =
            std::visit([](const auto& each) -> const MessagePlace& { return each.place; }, first->found);
        if (place.path == source.place.path && place.number == 0)
            return checked(std::move(first->found), id, stop);
        supply->m_first = std::move(first->found);
    }
    supply->m_given = 0;
    return {CheckOutcome::Several{supply, MailboxReader::expectedBytes(source.place.path)}};
}

CheckOutcome MessageChecker::openedAgain(const MessageSource& source, const UUID& id,
                                         const std::stop_token& stop) const {
    std::unique_lock turn(m_reading);
    auto found = readAgain(source.place, stop);
    turn.unlock();
    if (auto* refusal = std::get_if<Refusal>(&found)) return {std::move(*refusal)};
    auto& message = std::get<FoundMessage>(found);
    MessageSource read = source;
    read.bytes = std::make_shared<const ByteBuffer>(std::move(message.bytes));
    read.facts = std::move(message.facts);
    if (!source.digest.empty() && sha256(read.bytes->view()) != source.digest)
        return {Refusal{Refusal::Moved{}}};
    return checked(read, id, stop);
}

CheckOutcome MessageChecker::checked(Found found, const UUID& id, const std::stop_token& stop) const {
    if (auto* problem = std::get_if<FoundProblem>(&found)) return {std::move(problem->refusal)};
    auto& message = std::get<FoundMessage>(found);
    return checked(MessageSource{.place = std::move(message.place),
                                 .bytes = std::make_shared<const ByteBuffer>(std::move(message.bytes)),
                                 .facts = std::move(message.facts)},
                   id, stop);
}

CheckOutcome MessageChecker::checked(const MessageSource& source, const UUID& id,
                                     const std::stop_token& stop) const {
    CheckedMessage made{
        .bytes = source.bytes, .mode = source.mode, .place = source.place, .facts = source.facts};
    if (stop.stop_requested()) return {};
    // A copy: what was read is kept as it is, and parsing makes every line end CR LF.
    auto taken = messageOf(made.bytes->view(), source.mode);
    if (const auto* refusal = std::get_if<Refusal>(&taken)) return {*refusal};
    auto& message = std::get<MailMessage>(taken);
    ProofReport report = verified(message, made, id, stop);

    CheckOutcome::Checked checked;
    HistoryChange saved;
    if (saved.add(report)) checked.saved = std::move(saved);
    checked.report = std::make_shared<const ProofReport>(std::move(report));
    const bool isOneOfSeveral = made.place.number > 0 || !made.place.attached.empty();
    if (isOneOfSeveral && !made.place.path.empty()) made.digest = sha256(made.bytes->view());
    checked.message = std::move(made);
    if (!source.isAgain && source.place.attached.empty()) {
        auto attached = std::make_shared<MessageSupply>(std::move(message), source.place);
        attached->m_first = attached->next(stop);
        if (attached->m_first) checked.attached = std::move(attached);
    }
    return {std::move(checked)};
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
    const Verifier verifier(std::make_shared<RecordingResolver>(m_resolver, answers, failures),
                            std::move(registry));
    made.begun = m_now();
    ProofReport report = verifier.verify(message, made.place.name(), made.begun, id, stop, made.facts);
    made.ended = m_now();
    made.answers = answers;
    made.failures = failures;
    const auto* age = std::get_if<DomainAge::Status::Unavailable>(&report.domainAge.status.value);
    if (age && age->reason == SwitchedRegistry::switchedOff)
        report.domainAge.status = {DomainAge::Status::Skipped{}};
    return report;
}

}  // namespace quillmark
