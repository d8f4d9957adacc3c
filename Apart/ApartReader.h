#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <stop_token>
#include <string_view>
#include <tuple>

#include "Apart/CheckProcesses.h"
#include "Apart/CheckRequest.h"
#include "QuillmarkKit/Intake/MailboxReader.h"

namespace quillmark {

/// Reads messages as `MailboxReader` does, by another process, for which it opens the files. Should that end,
/// another goes on behind the messages that came; what ends two of them is given up, and the next file read.
/// So is a file that has changed by then, as nobody has seen what would be passed over.
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
    /// A file that the process was given, or another is to be given again.
    struct Given {
        MessagePlace place = {};
        bool isOnly = false, isPipe = false, isAgain = false;
        std::size_t given = 0;  // messages of it
        // Which file it was, its size, and when it changed last.
        std::tuple<dev_t, ino_t, off_t, time_t, long> state = {};
    };

    void giveFiles(const Talk& talk);
    void goOn();
    void giveAgain();
    bool isAtPipe() const { return m_file && m_file->isPipe; }
    Channel::GoesOn patience(const std::stop_token& stop) const;
    void readOn(const std::stop_token& stop);
    Found found(TalkKind kind, std::string_view bytes);
    void take(Found found);
    void giveUpFile(Refusal why);

    CheckProcesses& m_processes;
    const MessagePlace m_place;
    std::unique_ptr<MailFiles> m_files;
    std::shared_ptr<CheckProcesses::Process> m_process = {};
    std::optional<Given> m_file = {};  // that is read
    std::deque<Given> m_waiting = {};  // that were given with it, and come next
    std::deque<Given> m_again = {};    // that are to be given again
    std::deque<Found> m_found = {};    // that came, and nobody has taken yet
    std::size_t m_ended = 0;           // processes since the last message
    std::size_t m_alone = 0;           // messages that are asked for one at a time, as a process has ended
    bool m_isAnyGiven = false, m_areAllGiven = false, m_hasEnded = false;
    bool m_isResuming = false;  // a process passes over what came of a file
    bool m_hasChanged = false;  // that file, since
    std::uint64_t m_bytesBefore = 0, m_bytesOfProcess = 0;
};

}  // namespace quillmark
