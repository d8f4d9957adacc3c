#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "QuillmarkKit/Lookups/Recording.h"
#include "QuillmarkKit/Support/Date.h"

/// What checks were told, as a file that outlasts the keys (docs/formats.md, docs/evidence.md).
namespace quillmark {

/// The SHA-256 of a file's bytes in hexadecimal, as `sha256sum` prints it.
std::string sha256(std::string_view bytes);

struct RecordingTimes {
    Date at = {};                 ///< of the checks, as the reports tell it
    Date begun = {}, ended = {};  ///< of the run, by this computer's clock
};

/// One message of a recording.
struct RecordedMessage {
    std::set<std::string> files = {};  ///< the names it came under
    std::shared_ptr<const RecordedFailures> failures = {};
};

/// All that was taken down, as an answers file. `by` is the program with its version; messages go by their
/// SHA-256. Registration dates are written when `withRegistrations` says that they were asked for.
enum class Registrations { notAsked, asked };
std::string recordingJSON(std::string_view by, const RecordingTimes& times, const RecordedAnswers& answers,
                          Registrations registrations,
                          const std::map<std::string, RecordedMessage>& messages);

}  // namespace quillmark
