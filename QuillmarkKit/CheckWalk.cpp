#include "QuillmarkKit/CheckWalk.h"

#include <exception>
#include <utility>

namespace quillmark {

CheckWalk::CheckWalk(Found found, Verify verify, Options options)
    : m_verify(std::move(verify)), m_options(options), m_next(std::move(found)) {}

std::optional<CheckWalk::Outcome> CheckWalk::next() {
    if (!m_next) return std::nullopt;
    Found found = *std::exchange(m_next, std::nullopt);
    Outcome outcome{placeOf(found)};
    try {
        auto* problem = std::get_if<FoundProblem>(&found);
        if (problem) {
            outcome.value = std::move(problem->refusal);
        } else {
            outcome.value = checked(std::get<FoundMessage>(std::move(found)));
        }
    } catch (const std::exception& error) {
        outcome.value = unreadable(error);
    }
    m_next = nextAttached();
    return outcome;
}

std::variant<Refusal, ProofReport> CheckWalk::checked(FoundMessage found) {
    auto taken =
        messageIn(m_options.keepsBytes ? ByteBuffer(found.bytes.view()) : std::move(found.bytes), found.mode);
    if (auto* refusal = std::get_if<Refusal>(&taken)) return std::move(*refusal);
    auto& message = std::get<MailMessage>(taken);
    const bool goesInside = m_options.goesInside && found.place.attached.empty();
    if (goesInside) {
        m_outermost = found.place;
        m_apart = found.apart;
    }
    ProofReport report = m_verify(message, std::move(found));
    if (goesInside) m_attached.emplace(std::move(message));
    return report;
}

std::optional<Found> CheckWalk::nextAttached() {
    if (!m_attached) return std::nullopt;
    std::optional<Refusal> problem;
    try {
        if (m_apart && m_nextApart < m_apart->attached.size())
            return attachedApart(m_apart->attached[m_nextApart++], m_outermost);
        if (auto next = m_attached->next()) {
            MessagePlace place = m_outermost;
            place.attached = std::move(next->position);
            return FoundMessage{std::move(next->bytes), std::move(place)};
        }
        if (m_attached->isAnyLeftOut() || (m_apart && m_apart->isAnyLeftOut))
            problem = {Refusal::AttachedLeftOut{}};
    } catch (const std::exception& error) {
        problem = unreadable(error);
    }
    m_attached.reset();
    if (!problem) return std::nullopt;
    return FoundProblem{std::move(*problem), m_outermost};
}

}  // namespace quillmark
