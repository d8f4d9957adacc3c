#pragma once

#include <memory>

#include "Apart/CheckProtocol.h"
#include "Sandbox/HelperProcess.h"

namespace quillmark {

/// What a process does that checks for the window: it answers what is asked of it, and asks back there for
/// all that it needs. It holds a mailbox from one piece to the next.
class CheckWorker {
public:
    /// The channel must live longer.
    explicit CheckWorker(const Channel& channel);
    ~CheckWorker();
    CheckWorker(const CheckWorker&) = delete;
    CheckWorker& operator=(const CheckWorker&) = delete;

    /// Throws when there is no memory for it. Ends the process when the window has gone.
    void answer(const TalkPiece& piece);

private:
    struct State;
    const std::unique_ptr<State> m_state;
};

/// All that comes through the channel, until it has gone.
void serveChecks(const Channel& channel);

}  // namespace quillmark
