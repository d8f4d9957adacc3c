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
#include <vector>

#include "QuillmarkKit/History.h"
#include "QuillmarkKit/Support/DecodingError.h"
#include "QuillmarkKit/Verifier.h"

namespace {

using namespace quillmark;

std::string written(const std::vector<ProofReport>& reports) {
    std::string text;
    HistoryWriter writer([&](std::string_view bytes) { text += bytes; });
    for (const ProofReport& report : reports) writer.add(report);
    writer.end();
    return text;
}

std::int64_t read(const std::string& text, std::vector<ProofReport>& reports) {
    std::istringstream input(text);
    return readHistory(input, [&](ProofReport report) { reports.push_back(std::move(report)); });
}

void checkRoundTrip(const std::vector<ProofReport>& reports) {
    const std::string text = written(reports);
    std::vector<ProofReport> again;
    if (read(text, again) != historyVersion || again.size() != reports.size()) std::abort();
    if (written(again) != text) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    try {
        std::vector<ProofReport> reports;
        if (read(input, reports) <= historyVersion) checkRoundTrip(reports);
    } catch (const DecodingError&) {
    }
    if (input.starts_with('{')) return 0;
    static const Verifier verifier(std::make_shared<StaticResolver>(StaticResolver::Answers()));
    const ProofReport report = verifier.verify(MailMessage::parse(input), "a.eml", Date());
    checkRoundTrip({report, report});
    return 0;
}
