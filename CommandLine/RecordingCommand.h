#pragma once

#include <string>
#include <vector>

#include "CommandLine/FixedAnswers.h"
#include "Wording/Reader.h"

namespace quillmark {

/// Where an answers file differs from those before it, in lines for a person; only the first of many.
std::vector<std::string> contradictionLines(const std::vector<FixedAnswers::Contradiction>& contradictions,
                                            const std::string& file, const Reader& reader);

/// `quillmark recording merge`: what several runs were told, in one recording.
struct RecordingCommand {
    std::string out = {};                 ///< the new file; "-" is standard output
    std::vector<std::string> files = {};  ///< of which the first that knows an answer gives it
    Reader reader = {};

    /// Returns the exit status: 0 when the recording is there, 1 when it could not be written, 2 when a file
    /// is no recording.
    int run() const;
};

}  // namespace quillmark
