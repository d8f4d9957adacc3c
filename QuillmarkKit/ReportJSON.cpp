#include "QuillmarkKit/ReportJSON.h"

#include <algorithm>
#include <iterator>
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
    if (!path && !sha256) {
        serialization::Encoder(text).write(report);
        return text;
    }
    UnknownMembers members;
    std::ranges::copy_if(report.unknown, std::back_inserter(members),
                         [](const UnknownMember& each) { return each.path.empty(); });
    const auto add = [&](const char* name, const std::optional<std::string>& value) {
        if (value) serialization::Encoder(members.emplace_back("", name).json).write(*value);
    };
    add("path", path);
    add("sha256", sha256);
    std::ranges::sort(members);
    serialization::Encoder(text).writeWith(report, members);
    return text;
}

ProofReport reportFromJSON(std::string_view text) {
    return decoded<ProofReport>(parsedJSON(text, std::numeric_limits<std::size_t>::max()));
}

}  // namespace quillmark
