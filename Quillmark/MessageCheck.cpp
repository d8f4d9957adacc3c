#include "Quillmark/MessageCheck.h"

#include <cerrno>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

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
        return source.bytes ? checked(Whole{source.bytes, source.name, source.mode, {}}, id, stop)
                            : opened(source, id, stop);
    });
}

CheckOutcome MessageChecker::check(SuppliedMessage message, const UUID& id,
                                   const std::stop_token& stop) const {
    return guarded(stop, [&] { return checked(std::move(message.found), id, stop); });
}

std::optional<SuppliedMessage> MessageChecker::next(MessageSupply& supply,
                                                    const std::stop_token& stop) const {
    const std::lock_guard turn(m_reading);
    if (stop.stop_requested()) return std::nullopt;
    try {
        auto found =
            supply.m_first ? std::exchange(supply.m_first, std::nullopt) : supply.m_reader.next(stop);
        if (!found) return std::nullopt;
        return SuppliedMessage{std::move(*found), ++supply.m_given};
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

CheckOutcome MessageChecker::opened(const MessageSource& source, const UUID& id,
                                    const std::stop_token& stop) const {
    const auto supply = std::make_shared<MessageSupply>(source);
    auto first = next(*supply, stop);
    if (!first) return {Refusal{Refusal::NotAnEmail{}}};
    const MessagePlace& place =
        std::visit([](const auto& each) -> const MessagePlace& { return each.place; }, first->found);
    if (place.path == source.path && place.number == 0) return checked(std::move(first->found), id, stop);
    supply->m_given = 0;
    supply->m_first = std::move(first->found);
    return {CheckOutcome::Several{supply}};
}

CheckOutcome MessageChecker::checked(Found found, const UUID& id, const std::stop_token& stop) const {
    if (auto* problem = std::get_if<FoundProblem>(&found)) return {std::move(problem->refusal)};
    auto& message = std::get<FoundMessage>(found);
    return checked(Whole{std::make_shared<const ByteBuffer>(std::move(message.bytes)), message.place.name(),
                         ParseMode::strict, std::move(message.note)},
                   id, stop);
}

CheckOutcome MessageChecker::checked(const Whole& source, const UUID& id, const std::stop_token& stop) const {
    CheckedMessage made{.bytes = source.bytes, .mode = source.mode};
    if (made.bytes->size() > largestMessage) return {Refusal{Refusal::TooLarge{}}};
    if (stop.stop_requested()) return {};
    // A copy: what was read is kept as it is, and parsing makes every line end CR LF.
    const auto message = messageIn(ByteBuffer(made.bytes->view()), source.mode);
    if (const auto* refusal = std::get_if<Refusal>(&message)) return {*refusal};

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
    ProofReport report = verifier.verify(std::get<MailMessage>(message), source.name, made.begun, id, stop);
    made.ended = m_now();
    if (source.note) report.notes.push_back(*source.note);
    made.answers = answers;
    made.failures = failures;
    const auto* age = std::get_if<DomainAge::Status::Unavailable>(&report.domainAge.status.value);
    if (age && age->reason == SwitchedRegistry::switchedOff)
        report.domainAge.status = {DomainAge::Status::Skipped{}};

    HistoryChange saved;
    const bool isKept = saved.add(report);
    return {CheckOutcome::Checked{std::make_shared<const ProofReport>(std::move(report)), std::move(made),
                                  isKept ? std::optional(std::move(saved)) : std::nullopt}};
}

}  // namespace quillmark
