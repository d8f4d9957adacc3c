// A report that can be read is written so that reading it gives the same report, as one inert line; any other
// text ends in a DecodingError. What does not look like one goes into a report's texts.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/DecodingError.h"
#include "QuillmarkKit/Support/Text.h"

namespace {

using namespace quillmark;

void checkRoundTrip(const ProofReport& report) {
    const std::string text = compactJSON(report);
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    if (std::ranges::any_of(text, isControl) || !isUTF8(text)) std::abort();
    for (const std::string_view harm : {"\u0085", "\u009B", "\u2028", "\u202E", "\u2066", "\u200F"}) {
        if (text.find(harm) != std::string::npos) std::abort();
    }
    if (reportFromJSON(text) != report) std::abort();
    // With members beside the report's own, whatever it keeps for a newer program.
    const std::string more = compactJSON(report, "a.eml", std::string(64, '0'));
    if (more.find(R"("path":"a.eml")") == std::string::npos) std::abort();
    static_cast<void>(reportFromJSON(more));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    try {
        checkRoundTrip(reportFromJSON(input));
    } catch (const DecodingError&) {
    }
    if (input.starts_with('{')) return 0;
    ProofReport report;
    report.summary.subject = decodedText(input);
    report.dkim.emplace_back().detail = repairedUTF8(input);
    report.receiverResults = {{"mx", {{"spf", "pass", {{report.summary.subject, "x"}}}}}};
    checkRoundTrip(report);
    return 0;
}
