#include "CommandLine/CheckSummary.h"

#include <algorithm>
#include <numeric>
#include <vector>

#include "QuillmarkKit/Support/Text.h"
#include "Wording/Quoted.h"
#include "Wording/Wording.h"
#include "Wording/Wrapped.h"

namespace quillmark {

namespace {

constexpr std::size_t mostDomains = 100'000;  // that are counted each by itself
constexpr std::size_t domainsShown = 50;
constexpr std::size_t countWidth = 9;

/// In the order in which less is proven.
constexpr std::array tones{Tone::good, Tone::caution, Tone::unknown, Tone::bad};

std::size_t rank(Tone tone) {
    return static_cast<std::size_t>(std::ranges::find(tones, tone) - tones.begin());
}

std::string name(VerdictKind kind, const Reader& reader) {
    switch (kind) {
        case VerdictKind::verified:
            return reader.translate("Signed by the sender’s domain, unchanged since sent");
        case VerdictKind::verifiedHeadersOnly:
            return reader.translate("Signed by the sender’s domain; the body wasn’t checked");
        case VerdictKind::signedByOther:
            return reader.translate("Signed by another domain than the sender’s");
        case VerdictKind::signatureBroken:
            return reader.translate("Signature broken");
        case VerdictKind::keyGone:
            return reader.translate("Can’t check: the key is no longer published");
        case VerdictKind::couldNotCheck:
            return reader.translate("Couldn’t check: a lookup failed");
        case VerdictKind::allowedServerOnly:
            return reader.translate("Not signed, but sent from an allowed server");
        case VerdictKind::cannotProve:
            break;
    }
    return reader.translate("Can’t prove who sent it");
}

bool isOfSignature(VerdictKind kind) {
    return kind != VerdictKind::allowedServerOnly && kind != VerdictKind::cannotProve;
}

/// A count, in a column of its own.
std::string cell(std::int64_t count, const Reader& reader) {
    const std::string number = reader.number(count);
    return std::string(countWidth - std::min(countWidth, number.size()), ' ') + number;
}

std::string heading(const std::string& text) {
    const std::string line = text + "\n";
    std::size_t width = 0;
    for (std::string_view rest = text; !rest.empty(); ++width) takeScalar(rest);
    return line + std::string(width, '-') + "\n";
}

template <typename Counts>
std::int64_t sum(const Counts& counts) {
    return std::accumulate(counts.begin(), counts.end(), std::int64_t{0});
}

}  // namespace

std::optional<Tone> toneNamed(std::string_view name) {
    const auto* const found = std::ranges::find(tones, name, [](Tone tone) { return nameOf(tone); });
    return found == tones.end() ? std::nullopt : std::optional(*found);
}

void CheckSummary::add(const Verdict& verdict, bool hasCautions) {
    m_withCautions += hasCautions;
    ++m_verdicts[{verdict.kind, verdict.tone}];
    const auto tone = static_cast<std::size_t>(verdict.tone);
    if (!isOfSignature(verdict.kind)) {
        ++m_unsigned[tone];
    } else if (m_domains.size() < mostDomains || m_domains.contains(verdict.domain)) {
        ++m_domains[verdict.domain][tone];
    } else {
        ++m_otherDomains[tone];
    }
}

bool CheckSummary::isAnyAsBadAs(Tone tone) const {
    if (m_withCautions > 0 && rank(tone) <= rank(Tone::caution)) return true;
    return std::ranges::any_of(m_verdicts,
                               [&](const auto& entry) { return rank(entry.first.second) >= rank(tone); });
}

std::string CheckSummary::text(const Reader& reader, std::size_t width) const {
    std::string text = heading(reader.translate("Verdicts"));
    std::int64_t all = 0;
    for (const auto& [verdict, count] : m_verdicts) {
        all += count;
        text += cell(count, reader) + "  " + std::string(marker(verdict.second)) + " " +
                name(verdict.first, reader) + "\n";
    }
    text += cell(all, reader) + "  " + reader.translate("in all") + "\n";
    if (m_withCautions > 0) {
        text += cell(m_withCautions, reader) + "  " +
                reader.translate("of these with a caution beside the verdict") + "\n";
    }
    if (m_problems > 0)
        text += cell(m_problems, reader) + "  " + reader.translate("not checked; why is said above") + "\n";
    if (m_passedOver > 0)
        text += cell(m_passedOver, reader) + "  " +
                reader.translate("passed over: no messages, but what lies beside them") + "\n";

    std::vector<std::pair<std::string, Counts>> domains(m_domains.begin(), m_domains.end());
    std::ranges::stable_sort(domains, std::greater(), [](const auto& entry) { return sum(entry.second); });
    Counts others = m_otherDomains;
    for (std::size_t i = domainsShown; i < domains.size(); ++i) {
        for (std::size_t tone = 0; tone < others.size(); ++tone) others[tone] += domains[i].second[tone];
    }
    domains.resize(std::min(domains.size(), domainsShown));
    text += "\n" + heading(reader.translate("Signing domains"));
    for (const Tone tone : tones)
        text += std::string(countWidth - marker(tone).size(), ' ') + std::string(marker(tone));
    text += "\n";
    const auto row = [&](const std::string& label, const Counts& counts) {
        if (sum(counts) == 0) return;
        std::string cells;
        for (const Tone tone : tones) cells += cell(counts[static_cast<std::size_t>(tone)], reader);
        const std::size_t indent = cells.size() + 2;
        text += cells + wrapped(label, indent, width).substr(cells.size()) + "\n";
    };
    for (const auto& [domain, counts] : domains) row(domain.empty() ? "?" : quotedDomain(domain), counts);
    row(reader.translate("(other domains)"), others);
    row(reader.translate("(not signed)"), m_unsigned);
    return text;
}

}  // namespace quillmark
