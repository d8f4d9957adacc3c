#include "QuillmarkKit/ReportJSON.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

#include "QuillmarkKit/Support/Serialization.h"

namespace quillmark {

namespace {

constexpr std::size_t pieceSize = 65'536;

/// Room for the lists of which a message can fill millions: growing would hold the text twice, and room that
/// is not used costs nothing.
std::size_t roomFor(const ProofReport& report) {
    const auto& summary = report.summary;
    std::size_t count = summary.from.size() + summary.replyTo.size() + summary.to.size() + 32;
    for (const AuthResults& results : report.receiverResults) count += 1 + results.methods.size();
    return 64 * count;
}

void write(serialization::Encoder encoder, const ProofReport& report, const std::optional<std::string>& path,
           const std::optional<std::string>& sha256) {
    if (!path && !sha256) {
        encoder.write(report);
        return;
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
    encoder.writeWith(report, members);
}

}  // namespace

std::string compactJSON(const ProofReport& report, const std::optional<std::string>& path,
                        const std::optional<std::string>& sha256) {
    std::string text;
    text.reserve(roomFor(report));
    write(serialization::Encoder(text), report, path, sha256);
    return text;
}

void writeCompactJSON(const std::function<void(std::string_view piece)>& sink, const ProofReport& report,
                      const std::optional<std::string>& path, const std::optional<std::string>& sha256) {
    std::string text;
    write(serialization::Encoder(text, pieceSize, sink), report, path, sha256);
    sink(text);
}

std::optional<std::string> compactJSONWithin(std::size_t most, const ProofReport& report,
                                             const std::optional<std::string>& path,
                                             const std::optional<std::string>& sha256) {
    struct TooLong {};
    std::string text;
    text.reserve(std::min(roomFor(report), most));
    try {
        write(serialization::Encoder(text, most + 1, [](std::string_view) { throw TooLong(); }), report, path,
              sha256);
    } catch (const TooLong&) {
        return std::nullopt;
    }
    return text.size() > most ? std::nullopt : std::optional(std::move(text));
}

ProofReport reportFromJSON(std::string_view text) {
    return decoded<ProofReport>(parsedJSON(text, std::numeric_limits<std::size_t>::max()));
}

}  // namespace quillmark
