#pragma once

#include <string>

#include "Wording/Reader.h"

namespace quillmark {

/// `quillmark extract`.
struct ExtractCommand {
    std::string file = {};    ///< the mailbox or message; "-" is standard input
    std::string number = {};  ///< which message: "3", or "3.2.1" for one that is attached inside it
    std::string inside =
        {};                 ///< of an archive: the file in it, as reports name it or with "/" between folders
    bool asStored = false;  ///< with lines that begin with "From " quoted as they are in the mailbox
    Reader reader = {};     ///< whom problems are for

    /// Writes the message to standard output, byte for byte as it is checked, or as it is stored. Returns the
    /// exit status: 0 when it was written, 1 when that could not be or there is no such message, 2 when the
    /// arguments are at fault.
    int run() const;
};

}  // namespace quillmark
