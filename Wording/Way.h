#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "QuillmarkKit/Mail/Received.h"
#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"

/// The way a message came, as it is drawn: what is vouched for looks otherwise than what a line claims.
namespace quillmark {

struct Way {
    struct Station {
        enum class Kind {
            author,     ///< the domain in From
            signer,     ///< another domain that signed
            forwarder,  ///< who left a mark (ARC)
            server,     ///< who is only named, in lines that anyone can write
            leftOut,    ///< stands for those that aren't told
            reader,
        };
        enum class Vouch {
            signature,  ///< one that holds
            seal,       ///< a forwarder's mark that holds
            nobody,
        };
        Kind kind = Kind::server;
        Vouch vouch = Vouch::nobody;
        std::optional<Tone> tone = {};        ///< what came of its signature or mark; nothing for a claim
        int instance = 0;                     ///< of a forwarder's mark, else 0
        std::string name = {};                ///< inert
        std::vector<std::string> lines = {};  ///< what it is, and what is known of it: a few words each
        std::string change = {};              ///< what was changed by the time it left here; may be empty
        std::string delay = {};               ///< since the one before, by the servers' clocks; may be empty
        bool operator==(const Station&) const = default;
    };
    std::vector<Station> stations = {};     ///< the author's first, the reader's last; at most 14
    std::vector<std::string> remarks = {};  ///< sentences that belong under it
    bool operator==(const Way&) const = default;
};

/// `steps`: of the message, where it is at hand. Servers of one organization that follow each other are one
/// station.
Way wayOf(const ProofReport& report, const std::optional<std::vector<PathStep>>& steps, const Reader& reader);

/// All of it for those who hear it, a station after the other.
std::string wayInWords(const Way& way, const Reader& reader);

/// "after 12 seconds": how long a step took, by the clocks of its servers.
std::string delayInWords(std::chrono::milliseconds delay, const Reader& reader);

}  // namespace quillmark
