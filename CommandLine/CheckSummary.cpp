#include "CommandLine/CheckSummary.h"

#include <algorithm>

#include "QuillmarkKit/Support/Unicode.h"
#include "Wording/Wording.h"
#include "Wording/Wrapped.h"

namespace quillmark {

namespace {

constexpr std::size_t domainsShown = 50;
constexpr std::size_t countWidth = 9;

std::size_t rank(Tone tone) {
    return static_cast<std::size_t>(std::ranges::find(tonesByProof, tone) - tonesByProof.begin());
}

/// A count, in a column of its own.
std::string cell(std::int64_t count, const Reader& reader) {
    const std::string number = reader.number(count);
    return std::string(countWidth - std::min(countWidth, columnsOf(number)), ' ') + number;
}

std::string heading(const std::string& text) {
    return text + "\n" + std::string(columnsOf(text), '-') + "\n";
}

}  // namespace

std::optional<Tone> toneNamed(std::string_view name) {
    const auto* const found = std::ranges::find(tonesByProof, name, [](Tone tone) { return nameOf(tone); });
    return found == tonesByProof.end() ? std::nullopt : std::optional(*found);
}

bool isAnyAsBadAs(const Totals& totals, Tone tone) {
    if (totals.all.withCautions > 0 && rank(tone) <= rank(Tone::caution)) return true;
    return std::ranges::any_of(
        tonesByProof, [&](Tone each) { return rank(each) >= rank(tone) && totals.all.of(each) > 0; });
}

std::string summaryText(const Totals& totals, const Reader& reader, std::size_t width) {
    std::string text = heading(reader.translate("Verdicts"));
    for (const auto& [verdict, count] : totals.verdicts) {
        text += cell(count, reader) + "  " + std::string(marker(verdict.second)) + " " +
                nameOfKind(verdict.first, reader) + "\n";
    }
    text += cell(totals.all.all(), reader) + "  " + reader.translate("in all") + "\n";
    if (totals.all.withCautions > 0) {
        text += cell(totals.all.withCautions, reader) + "  " +
                reader.translate("of these with a caution beside the verdict") + "\n";
    }
    if (totals.problems > 0) {
        text +=
            cell(totals.problems, reader) + "  " + reader.translate("not checked; why is said above") + "\n";
    }
    if (totals.passedOver > 0)
        text += cell(totals.passedOver, reader) + "  " +
                reader.translate("passed over: no messages, but what lies beside them") + "\n";

    text += "\n" + heading(reader.translate("Signing domains"));
    for (const Tone tone : tonesByProof)
        text += std::string(countWidth - marker(tone).size(), ' ') + std::string(marker(tone));
    text += "\n";
    for (const TotalsRow& row : domainRows(totals, domainsShown, reader)) {
        std::string cells;
        for (const Tone tone : tonesByProof) cells += cell(row.counts.of(tone), reader);
        const std::size_t indent = cells.size() + 2;
        text += cells + wrapped(row.label, indent, width).substr(cells.size()) + "\n";
    }
    return text;
}

}  // namespace quillmark
