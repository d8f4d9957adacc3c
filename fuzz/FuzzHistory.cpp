// A text either is a history, which is then written so that reading it gives the same and writing that the
// same bytes, or ends in a DecodingError; a newer version tells so whatever else it holds. And no message may
// leave a report behind that makes a history unreadable: other input goes through a check.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "QuillmarkKit/Support/DecodingError.h"
#include "QuillmarkKit/Verifier.h"
#include "fuzz/HistoryText.h"

namespace {

using namespace quillmark;
using fuzz::readBack, fuzz::written;

void checkRoundTrip(const History& history) {
    const std::string text = written(history.reports, history.unknown);
    const History again = readBack(text);
    if (again.version != historyVersion || again.reports.size() != history.reports.size()) std::abort();
    if (written(again.reports, again.unknown) != text) std::abort();
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
