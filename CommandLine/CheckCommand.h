#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Wording/Reader.h"
#include "Wording/TextReport.h"

namespace quillmark {

/// `quillmark check`.
struct CheckCommand {
    std::vector<std::string> files = {};  ///< messages, mailboxes and folders; "-" is standard input
    bool json = false;
    bool pasted = false;
    bool domainAge = true;
    bool save = false;  ///< puts the reports into the user's history
    std::optional<std::string> dnsFile = {}, registrationsFile = {};
    std::optional<std::string> at = {};      ///< RFC 3339
    std::optional<std::string> record = {};  ///< a file to write what the checks were told into
    bool summary = false;                    ///< tables at the end in place of reports
    std::optional<std::string> csv = {};     ///< a file to write a table of the reports into
    std::optional<std::string> only = {};    ///< tones, with commas: no other report is written or kept
    std::optional<std::string> failOn = {};  ///< a tone
    int jobs = 0;                            ///< how many messages are checked at once; 0: as suits
    Reader reader = {};                      ///< whom reports and problems are for
    Markers markers = Markers::plain;        ///< of text reports

    /// Checks every file and writes the reports in input order as soon as they are ready. Returns the exit
    /// status: 0 when every message was checked, 1 when some input could not be or the recording, the history
    /// or the CSV file could not be written, 2 when the arguments or the answers file are at fault, 3 when a
    /// verdict has the tone `failOn` or a worse one.
    int run() const;
};

}  // namespace quillmark
