#include "QuillmarkKit/ReportJSON.h"

#include <limits>

#include "QuillmarkKit/Support/Serialization.h"

namespace quillmark {

namespace {

/// Room for the lists of which a message can fill millions: growing would hold the text twice, and room that
/// is not used costs nothing.
std::size_t roomFor(const ProofReport& report) {
    const auto& summary = report.summary;
    std::size_t count = summary.from.size() + summary.replyTo.size() + summary.to.size() + 32;
    for (const AuthResults& results : report.receiverResults) count += 1 + results.methods.size();
    return 64 * count;
}

}  // namespace

std::string compactJSON(const ProofReport& report, const std::optional<std::string>& path,
                        const std::optional<std::string>& sha256) {
    std::string text;
    text.reserve(roomFor(report));
    serialization::Encoder(text).write(report);
    // Before the key that is next in order; in no text inside stand quotation marks without a backslash.
    const auto add = [&](std::string_view name, const std::string& value, std::string_view next) {
        std::string member = ",\"" + std::string(name) + "\":";
        serialization::Encoder(member).write(value);
        text.insert(text.find(",\"" + std::string(next) + "\":"), member);
    };
    if (path) add("path", *path, "receiverResults");
    if (sha256) add("sha256", *sha256, "spf");
    return text;
}

ProofReport reportFromJSON(std::string_view text) {
    return decoded<ProofReport>(parsedJSON(text, std::numeric_limits<std::size_t>::max()));
}

}  // namespace quillmark
