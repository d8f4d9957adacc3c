#include "Thunderbird/Answers.h"

#include <algorithm>
#include <cstddef>
#include <span>
#include <string_view>

#include "Wording/Quoted.h"
#include "Wording/Signs.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

/// Lines of a list that are shown, and the bytes of one: together they stay far below `longestAnswer`.
constexpr std::size_t mostLines = 50, longestLine = 4000;
/// Addresses of From that are shown.
constexpr std::size_t mostAddresses = 5;

std::string toneWord(Tone tone, const Reader& reader) {
    switch (tone) {
        case Tone::good:
            return reader.translate("Good");
        case Tone::caution:
            return reader.translate("Caution");
        case Tone::bad:
            return reader.translate("Bad");
        case Tone::unknown:
            break;
    }
    return reader.translate("Unknown");
}

std::string more(std::size_t count, const Reader& reader) {
    return reader.translateCount("and %n more", "and %n more", static_cast<std::int64_t>(count));
}

std::string sender(std::span<const MailAddress> from, const Reader& reader) {
    if (from.empty()) return reader.translate("(no From line)");
    std::string text;
    for (const MailAddress& address : from.first(std::min(from.size(), mostAddresses)))
        text += (text.empty() ? "" : ", ") + displayForm(address);
    if (from.size() > mostAddresses) text += ", " + more(from.size() - mostAddresses, reader);
    return text;
}

}  // namespace

PanelSummary panelSummary(const ProofReport& report, const Reader& reader) {
    const std::string& subject = report.summary.subject;
    PanelSummary summary{.verdict = report.verdict.kind,
                         .tone = report.verdict.tone,
                         .toneWord = toneWord(report.verdict.tone, reader),
                         .from = sender(report.summary.from, reader),
                         .subject = subject.empty() ? reader.translate("(no subject)") : inert(subject),
                         .headline = headline(report.verdict, reader),
                         .explanation = explanation(report, reader)};
    const auto add = [&](const std::optional<Tone>& tone, std::string_view text) {
        if (summary.cautions.size() < mostLines)
            summary.cautions.push_back({tone, tone ? std::optional(toneWord(*tone, reader)) : std::nullopt,
                                        cutInside(text, longestLine)});
    };
    const std::vector<Remark> remarks = besideHeadline(report, reader);
    for (const Remark& each : remarks) add(each.tone, each.text);
    for (const LookAlikeFlag& flag : std::span(report.flags).first(std::min(report.flags.size(), mostLines)))
        add(Tone::caution, reader.translate("%1: %2", {title(flag, reader), sentence(flag, reader)}));
    const std::size_t all = remarks.size() + report.flags.size();
    if (all > mostLines) summary.cautions.push_back({{}, {}, more(all - mostLines, reader)});
    return summary;
}

}  // namespace quillmark
