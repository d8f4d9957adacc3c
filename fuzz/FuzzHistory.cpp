// A text either is a history, which is then written so that reading it gives the same and writing that the
// same bytes, or ends in a DecodingError; a newer version tells so whatever else it holds. And no message may
// leave a report behind that makes a history unreadable: other input goes through a check.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "QuillmarkKit/History.h"
#include "QuillmarkKit/Support/DecodingError.h"
#include "QuillmarkKit/Verifier.h"

namespace {

using namespace quillmark;

std::string written(const History& history) {
    std::string text;
    HistoryWriter writer([&](std::string_view bytes) { text += bytes; });
    for (const ProofReport& report : history.reports) writer.add(report);
    writer.end(history.unknown);
    return text;
}

History readBack(const std::string& text) {
    std::istringstream input(text);
    std::vector<ProofReport> reports;
    History history = readHistory(input, [&](ProofReport report) { reports.push_back(std::move(report)); });
    history.reports = std::move(reports);
    return history;
}

void checkRoundTrip(const History& history) {
    const std::string text = written(history);
    const History again = readBack(text);
    if (again.version != historyVersion || again.reports.size() != history.reports.size()) std::abort();
    if (written(again) != text) std::abort();
    std::size_t salvaged = 0;
    const HistorySalvage salvage = salvageHistory(text, [&](const ProofReport&) { ++salvaged; });
    if (!salvage.faults.empty() || salvaged != history.reports.size()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    try {
        const History history = readBack(input);
        if (history.version <= historyVersion) checkRoundTrip(history);
    } catch (const DecodingError&) {
        salvageHistory(input, [](const ProofReport&) {});
    }
    if (input.starts_with('{')) return 0;
    static const Verifier verifier(std::make_shared<StaticResolver>(StaticResolver::Answers()));
    const ProofReport report = verifier.verify(MailMessage::parse(input), "a.eml", Date());
    checkRoundTrip({historyVersion, {report, report}, {}});
    return 0;
}
