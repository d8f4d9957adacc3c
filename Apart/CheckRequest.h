#pragma once

#include <cerrno>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <tuple>

#include "Apart/CheckProcesses.h"
#include "Apart/CheckProtocol.h"
#include "Apart/CheckQuestions.h"
#include "QuillmarkKit/Intake/Intake.h"

namespace quillmark {

/// One thing that is asked of a process, and the answers to what it asks back. A process that doesn't keep to
/// the talk, or isn't waited for any more, is ended.
class CheckRequest {
public:
    /// Of a process of this kind, or of this one. `goesOn`: whether it is waited for, asked every
    /// `CheckProcesses::watch`.
    CheckRequest(CheckProcesses& processes, CheckProcesses::Kind kind, const Channel::GoesOn& goesOn)
        : CheckRequest(processes, processes.take(kind, goesOn), goesOn, kind) {}
    CheckRequest(CheckProcesses& processes, std::shared_ptr<CheckProcesses::Process> process,
                 Channel::GoesOn goesOn, CheckProcesses::Kind kind = CheckProcesses::Kind::anyOfNow)
        : m_processes(processes),
          m_process(std::move(process)),
          m_goesOn(std::move(goesOn)),
          m_kind(kind),
          m_hadProcess(m_process != nullptr) {}

    /// What is done when that comes. What throws ends the process.
    using Handler = std::function<void(std::string_view bytes, const Talk& talk)>;
    void on(TalkKind kind, Handler handler) { m_handlers.insert_or_assign(kind, std::move(handler)); }
    /// Answers what a check asks for.
    void answer(CheckQuestions& questions);
    /// What the process was told; nothing yet if there is none.
    std::shared_ptr<ToldAnswers> told() const;

    /// The first piece that has no handler: the outcome. Nothing when there will be none.
    std::optional<TalkPiece> run(TalkKind kind, std::string_view bytes);

    /// What the outcome is; else nothing.
    template <typename... Values>
    std::optional<std::tuple<Values...>> outcomes(const TalkPiece& piece) {
        if (piece.kind != TalkKind::done) return std::nullopt;
        try {
            auto values = unpacked<Values...>(piece.bytes);
            if (m_kind == CheckProcesses::Kind::anyOfNow) m_processes.giveBack(std::move(m_process));
            m_process = nullptr;
            return values;
        } catch (const std::exception&) {
            return std::nullopt;
        }
    }
    template <typename Value>
    std::optional<Value> outcome(const TalkPiece& piece) {
        auto values = outcomes<Value>(piece);
        return values ? std::optional(std::get<0>(std::move(*values))) : std::nullopt;
    }
    /// Whether it is the end, without more.
    bool isWhole(const TalkPiece& piece) { return outcomes<>(piece).has_value(); }
    /// Why there is none: the process has ended, or there was none to be had.
    Refusal whyNone() const { return m_hadProcess ? Refusal{Refusal::Ended{}} : unreadable(EAGAIN); }
    /// The process, which goes on with what it has.
    std::shared_ptr<CheckProcesses::Process> keep() { return std::move(m_process); }

private:
    CheckProcesses& m_processes;
    std::shared_ptr<CheckProcesses::Process> m_process;
    const Channel::GoesOn m_goesOn;
    const CheckProcesses::Kind m_kind;
    const bool m_hadProcess;
    std::map<TalkKind, Handler> m_handlers = {};
};

}  // namespace quillmark
