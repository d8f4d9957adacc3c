#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Wording/Reader.h"
#include "Wording/TextReport.h"

namespace quillmark {

/// `quillmark check`.
struct CheckCommand {
    std::vector<std::string> files = {};  ///< "-" is standard input
    bool json = false;
    bool pasted = false;
    bool domainAge = true;
    bool save = false;  ///< puts the reports into the user's history
    std::optional<std::string> dnsFile = {}, registrationsFile = {};
    std::optional<std::string> at = {};      ///< RFC 3339
    std::optional<std::string> record = {};  ///< a file to write what the checks were told into
    Reader reader = {};                      ///< whom reports and problems are for
    Markers markers = Markers::plain;        ///< of text reports

    /// Checks every file and writes the reports in input order as soon as they are ready. Returns the exit
    /// status: 0 when every message was checked, 1 when some input could not be or the recording or the
    /// history could not be written, 2 when the arguments or the answers file are at fault.
    int run() const;
};

}  // namespace quillmark
