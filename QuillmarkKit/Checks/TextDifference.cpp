#include "QuillmarkKit/Checks/TextDifference.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace quillmark {

namespace {

constexpr std::size_t mostCells = 4'000'000;  // lines of one text times lines of the other

std::size_t lineCount(std::string_view text) {
    const auto ends = static_cast<std::size_t>(std::ranges::count(text, '\n'));
    return ends + (text.empty() || text.ends_with('\n') ? 0 : 1);
}

std::vector<std::string_view> linesOf(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        lines.push_back(text.substr(0, std::min(text.find('\n'), text.size() - 1) + 1));
        text.remove_prefix(lines.back().size());
    }
    return lines;
}

/// Lines as numbers, so that each is compared but a few times, however long it is: those of `known` are equal
/// where the lines are, others have one number that `known` does not.
std::vector<std::uint32_t> numbered(const std::vector<std::string_view>& lines,
                                    const std::vector<std::string_view>& known) {
    std::vector<std::uint32_t> numbers;
    numbers.reserve(lines.size());
    for (const std::string_view line : lines) {
        const auto found = std::ranges::lower_bound(known, line);
        const bool isKnown = found != known.end() && *found == line;
        numbers.push_back(static_cast<std::uint32_t>((isKnown ? found : known.end()) - known.begin()));
    }
    return numbers;
}

enum class Step : std::uint8_t { both, before, after };

/// The way through both texts that passes the most lines they have in common.
std::vector<Step> steps(const std::vector<std::uint32_t>& before, const std::vector<std::uint32_t>& after) {
    const std::size_t width = after.size() + 1;
    // From the end, so that the way can then be walked from the beginning. One of the texts has at most 2,000
    // lines, so no count is too large for its type.
    std::vector<Step> table(before.size() * width, Step::before);
    std::vector<std::uint16_t> row(width, 0), below(width, 0);
    for (std::size_t i = before.size(); i-- > 0;) {
        std::swap(row, below);
        row[width - 1] = 0;
        for (std::size_t j = after.size(); j-- > 0;) {
            const bool isBoth = before[i] == after[j];
            const bool isAfter = row[j + 1] > below[j];
            row[j] = isBoth ? static_cast<std::uint16_t>(below[j + 1] + 1) : std::max(row[j + 1], below[j]);
            table[i * width + j] = isBoth ? Step::both : isAfter ? Step::after : Step::before;
        }
    }
    std::vector<Step> steps;
    for (std::size_t i = 0, j = 0; i < before.size() || j < after.size();) {
        const Step step = i == before.size() ? Step::after : table[i * width + j];
        steps.push_back(step);
        if (step != Step::after) ++i;
        if (step != Step::before) ++j;
    }
    return steps;
}

}  // namespace

std::vector<DifferentLines> differentLines(std::string_view before, std::string_view after) {
    const auto mismatch = std::ranges::mismatch(before, after);
    std::size_t begin = static_cast<std::size_t>(mismatch.in1 - before.begin());
    if (begin == before.size() && begin == after.size()) return {};
    // Back to the beginning of the line, and on from it.
    begin = before.substr(0, begin).rfind('\n') + 1;
    std::string_view restBefore = before.substr(begin), restAfter = after.substr(begin);
    std::size_t tail = 0;  // bytes that both end with, cut to whole lines
    for (std::size_t same = 1; same <= std::min(restBefore.size(), restAfter.size()); ++same) {
        if (restBefore[restBefore.size() - same] != restAfter[restAfter.size() - same]) break;
        const auto isLineBegin = [&](std::string_view text) {
            return same == text.size() || text[text.size() - same - 1] == '\n';
        };
        if (isLineBegin(restBefore) && isLineBegin(restAfter)) tail = same;
    }
    restBefore.remove_suffix(tail);
    restAfter.remove_suffix(tail);

    const std::size_t beforeLines = lineCount(restBefore), afterLines = lineCount(restAfter);
    const bool isSmall = afterLines == 0 || beforeLines <= mostCells / (afterLines + 1);
    if (!isSmall || beforeLines == 0 || afterLines == 0)
        return {{begin, begin + restBefore.size(), begin, begin + restAfter.size(), beforeLines, afterLines}};

    const auto linesBefore = linesOf(restBefore), linesAfter = linesOf(restAfter);
    std::vector<std::string_view> known = linesBefore.size() < linesAfter.size() ? linesBefore : linesAfter;
    std::ranges::sort(known);
    std::vector<DifferentLines> differences;
    DifferentLines at = {.beforeBegin = begin, .afterBegin = begin};
    at.beforeEnd = at.afterEnd = begin;
    const auto restart = [&] {
        if (at.beforeLines > 0 || at.afterLines > 0) differences.push_back(at);
        at = {.beforeBegin = at.beforeEnd,
              .beforeEnd = at.beforeEnd,
              .afterBegin = at.afterEnd,
              .afterEnd = at.afterEnd};
    };
    std::size_t i = 0, j = 0;
    for (const Step step : steps(numbered(linesBefore, known), numbered(linesAfter, known))) {
        if (step == Step::both) {
            restart();
            at.beforeBegin = at.beforeEnd += linesBefore[i++].size();
            at.afterBegin = at.afterEnd += linesAfter[j++].size();
        } else if (step == Step::before) {
            at.beforeEnd += linesBefore[i++].size();
            ++at.beforeLines;
        } else {
            at.afterEnd += linesAfter[j++].size();
            ++at.afterLines;
        }
    }
    restart();
    return differences;
}

}  // namespace quillmark
