#include "QuillmarkKit/ReportJSON.h"

#include <limits>

#include "QuillmarkKit/Support/Serialization.h"

namespace quillmark {

std::string compactJSON(const ProofReport& report) { return encoded(report); }

ProofReport reportFromJSON(std::string_view text) {
    return decoded<ProofReport>(parsedJSON(text, std::numeric_limits<std::size_t>::max()));
}

}  // namespace quillmark
