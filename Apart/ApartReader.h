#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>

#include "Apart/CheckProcesses.h"
#include "Apart/CheckRequest.h"
#include "QuillmarkKit/Intake/MailboxReader.h"

namespace quillmark {

/// Reads messages as `MailboxReader` does, by another process, for which it opens the files. Should that end,
/// another goes on behind the messages that came; what ends two of them is given up, and the next file read.
class ApartReader {
public:
    /// Of this path, under this name. `processes` must live longer.
    ApartReader(CheckProcesses& processes, MessagePlace place);

    std::optional<Found> next(const std::stop_token& stop);
    std::uint64_t bytesRead() const { return m_bytesBefore + m_bytesOfProcess; }

    /// The message at a place in this file (`quillmark::readAgain`), or why it couldn't be had.
    Found readAgain(const MessagePlace& place, const std::stop_token& stop);

    /// Hands a request the files that it asks for.
    void answer(CheckRequest& request);
    /// That there may be several messages, as a process says that was asked for `TalkKind::open`. It is given
    /// back, as this may have to wait for its turn: a file is opened again then. Of a pipe it goes on.
    void begun(CheckRequest& request);

private:
    void giveFile(const Talk& talk);
    Channel::GoesOn patience(const std::stop_token& stop) const;
    Found found(const TalkPiece& piece);
    std::optional<Found> giveUpFile(Refusal why);

    CheckProcesses& m_processes;
    const MessagePlace m_place;
    std::unique_ptr<MailFiles> m_files;
    std::shared_ptr<CheckProcesses::Process> m_process = {};
    // The file that is read.
    MessagePlace m_file = {};
    bool m_isAtFile = false, m_isPipe = false, m_isOnly = false;
    std::size_t m_given = 0;    // messages of it
    bool m_isReopened = false;  // is to be
    std::size_t m_ended = 0;    // processes since the last message
    bool m_isAnyGiven = false, m_hasEnded = false;
    std::uint64_t m_bytesBefore = 0, m_bytesOfProcess = 0;
};

}  // namespace quillmark
