#include "Thunderbird/Answers.h"

#include <algorithm>
#include <cstddef>
#include <ranges>
#include <string_view>

#include "Wording/Banner.h"
#include "Wording/Quoted.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr std::size_t longestLine = 4000;  // bytes: all lines together stay far below `longestAnswer`
/// Addresses of From that are shown.
constexpr std::size_t mostAddresses = 5;

std::string more(std::size_t count, const Reader& reader) {
    return reader.translateCount("and %n more", "and %n more", static_cast<std::int64_t>(count));
}

std::string sender(const PackedList<MailAddress>& from, const Reader& reader) {
    if (from.empty()) return reader.translate("(no From line)");
    std::string text;
    for (const MailAddress& address : std::views::take(from, mostAddresses))
        text += (text.empty() ? "" : ", ") + displayForm(address);
    if (from.size() > mostAddresses) text += ", " + more(from.size() - mostAddresses, reader);
    return text;
}

}  // namespace

PanelSummary panelSummary(const ProofReport& report, const Reader& reader) {
    const std::string& subject = report.summary.subject;
    const Banner banner = bannerOf(report, reader);
    PanelSummary summary{.verdict = report.verdict.kind,
                         .tone = banner.tone,
                         .toneWord = toneWord(banner.tone, reader),
                         .from = sender(report.summary.from, reader),
                         .subject = subject.empty() ? reader.translate("(no subject)") : inert(subject),
                         .headline = banner.headline,
                         .explanation = banner.explanation,
                         .lead = banner.lead,
                         .whatToDo = reader.translate("What to do: %1", {banner.whatToDo})};
    const auto line = [&](const std::optional<Tone>& tone, std::string_view text) {
        return PanelSummary::Line{tone, tone ? std::optional(toneWord(*tone, reader)) : std::nullopt,
                                  cutInside(text, longestLine)};
    };
    // The panel has no cards that a line could lead to: it says all of it.
    if (banner.decider) summary.decider = line(banner.decider->tone, banner.decider->text);
    for (const BannerLine& each : banner.cautions) summary.cautions.push_back(line(each.tone, each.sentence));
    if (banner.more > 0) summary.cautions.push_back(line({}, more(banner.more, reader)));
    for (const Remark& each : banner.remarks) summary.remarks.push_back(line(each.tone, each.text));
    return summary;
}

}  // namespace quillmark
