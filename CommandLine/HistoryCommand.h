#pragma once

#include <string>
#include <vector>

#include "Wording/Reader.h"
#include "Wording/TextReport.h"

namespace quillmark {

/// `quillmark history`: the reports that are kept.
struct HistoryCommand {
    enum class Action { list, show, remove, clear, recover };
    Action action = Action::list;
    std::vector<std::string> ids = {};  ///< of reports, or how the id of one report alone begins
    std::string damagedFile = {};       ///< whose reports are given back
    bool json = false;                  ///< shows reports as JSON
    bool yes = false;                   ///< clears without asking
    int timeout = 120;                  ///< seconds to wait for another program that changes the history
    Reader reader = {};
    TextLayout layout = {};  ///< of text reports

    /// Returns the exit status: 0 when it was done, 1 when there is no such report, the history cannot be
    /// opened or saved, the user does not want to clear it, or not all of a damaged file can be read, 2 when
    /// the arguments are at fault.
    int run() const;
};

}  // namespace quillmark
