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
    try {
        CheckOutcome outcome = checked(source, id, stop);
        if (stop.stop_requested()) return {};  // its findings say only that it was stopped
        return outcome;
    } catch (const std::bad_alloc&) {
        return unreadable(std::generic_category().message(ENOMEM));
    } catch (const std::exception& error) {
        return unreadable(error.what());
    }
}

std::variant<ByteBuffer, Refusal> MessageChecker::read(const std::string& path,
                                                       const std::stop_token& stop) const {
    const std::lock_guard turn(m_reading);
    if (stop.stop_requested()) return ByteBuffer();
    return readFile(path, stop);
}

CheckOutcome MessageChecker::checked(const MessageSource& source, const UUID& id,
                                     const std::stop_token& stop) const {
    CheckedMessage made{.bytes = source.bytes, .mode = source.mode};
    if (!made.bytes) {
        auto bytes = read(source.path, stop);
        if (const auto* refusal = std::get_if<Refusal>(&bytes)) return {*refusal};
        made.bytes = std::make_shared<const ByteBuffer>(std::move(std::get<ByteBuffer>(bytes)));
    }
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
