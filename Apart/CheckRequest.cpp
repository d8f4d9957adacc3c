#include "Apart/CheckRequest.h"

#include <exception>
#include <utility>

namespace quillmark {

void CheckRequest::answer(CheckQuestions& questions) {
    for (const TalkKind kind :
         {TalkKind::lookup, TalkKind::mayKnow, TalkKind::registration, TalkKind::keysOf}) {
        on(kind, [&questions, kind](std::string_view bytes, const Talk& talk) {
            talk.tell(TalkKind::answer, questions.answer(kind, bytes));
        });
    }
    on(TalkKind::needed, [&questions](std::string_view bytes, const Talk&) { questions.needed(bytes); });
    on(TalkKind::saw, [&questions](std::string_view bytes, const Talk&) { questions.saw(bytes); });
}

std::shared_ptr<ToldAnswers> CheckRequest::told() const {
    auto none = std::make_shared<ToldAnswers>();
    if (!m_process) return none;
    if (!m_process->told) m_process->told = std::move(none);
    return m_process->told;
}

std::optional<TalkPiece> CheckRequest::run(TalkKind kind, std::string_view bytes) {
    if (!m_process) return std::nullopt;
    const Talk talk(m_process->channel(), m_goesOn);
    try {
        bool isTold = talk.tell(kind, bytes);
        while (isTold && m_goesOn()) {
            auto piece = talk.hear(Talk::Files::refused);
            if (!piece) break;
            const auto handler = m_handlers.find(piece->kind);
            if (handler == m_handlers.end() && !talk.isQuiet()) break;
            if (handler == m_handlers.end()) return piece;
            handler->second(piece->bytes, talk);
        }
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch)
        // It isn't one of ours any more.
    }
    m_process = nullptr;
    return std::nullopt;
}

}  // namespace quillmark
