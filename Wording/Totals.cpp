#include "Wording/Totals.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <numeric>

#include "Wording/Banner.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

constexpr std::size_t mostDomains = 100'000;  // that are counted each by itself
constexpr std::size_t longestDomain = 1'012;  // bytes of one that DNS can have, in UTF-8

int yearOf(Date date) {
    return static_cast<int>(std::chrono::year_month_day(std::chrono::floor<std::chrono::days>(date)).year());
}

bool isOfSignature(VerdictKind kind) {
    return kind != VerdictKind::allowedServerOnly && kind != VerdictKind::cannotProve;
}

void addRow(std::vector<TotalsRow>& rows, const std::string& label, const ToneCounts& counts) {
    if (counts.all() > 0) rows.push_back({label, counts});
}

}  // namespace

Counted countedOf(const Verdict& verdict) {
    Counted counted{.kind = verdict.kind, .tone = verdict.tone};
    if (verdict.domain.size() <= longestDomain) counted.domain = verdict.domain;
    return counted;
}

Counted countedOf(const ProofReport& report) {
    Counted counted = countedOf(report.verdict);
    counted.hasCautions = hasCautions(report);
    // The day after is that of a sender whose clock is ahead, or who lives far in the east.
    const auto date = report.summary.date;
    if (date && *date <= report.checkedAt + std::chrono::days(1) && *date >= Date())
        counted.year = yearOf(*date);
    return counted;
}

std::int64_t ToneCounts::all() const {
    return std::accumulate(byTone.begin(), byTone.end(), std::int64_t{0});
}

void ToneCounts::add(const Counted& report) {
    ++byTone[static_cast<std::size_t>(report.tone)];
    withCautions += report.hasCautions;
}

void ToneCounts::add(const ToneCounts& others) {
    for (std::size_t tone = 0; tone < byTone.size(); ++tone) byTone[tone] += others.byTone[tone];
    withCautions += others.withCautions;
}

void Totals::add(const Counted& report) {
    ++verdicts[{report.kind, report.tone}];
    all.add(report);
    (report.year ? years[*report.year] : undated).add(report);
    if (!isOfSignature(report.kind)) {
        notSigned.add(report);
    } else if (report.domain && (domains.size() < mostDomains || domains.contains(*report.domain))) {
        domains[*report.domain].add(report);
    } else {
        otherDomains.add(report);
    }
}

std::vector<TotalsRow> domainRows(const Totals& totals, std::size_t most, const Reader& reader) {
    std::vector<std::pair<std::string_view, const ToneCounts*>> domains;
    domains.reserve(totals.domains.size());
    for (const auto& [domain, counts] : totals.domains) domains.emplace_back(domain, &counts);
    std::ranges::stable_sort(domains, std::greater(), [](const auto& each) { return each.second->all(); });
    std::vector<TotalsRow> rows;
    ToneCounts others = totals.otherDomains;
    for (const auto& [domain, counts] : domains) {
        if (rows.size() < most) {
            rows.push_back({domain.empty() ? "?" : quotedDomain(domain), *counts, true});
        } else {
            others.add(*counts);
        }
    }
    addRow(rows, reader.translate("(other domains)"), others);
    addRow(rows, reader.translate("(not signed)"), totals.notSigned);
    return rows;
}

std::vector<TotalsRow> yearRows(const Totals& totals, std::size_t most, const Reader& reader) {
    std::vector<TotalsRow> rows;
    ToneCounts earlier;
    for (auto year = totals.years.rbegin(); year != totals.years.rend(); ++year) {
        if (rows.size() < most) {
            rows.push_back({std::to_string(year->first), year->second});
        } else {
            earlier.add(year->second);
        }
    }
    addRow(rows, reader.translate("(earlier)"), earlier);
    addRow(rows, reader.translate("(no date)"), totals.undated);
    return rows;
}

std::string nameOfKind(VerdictKind kind, const Reader& reader) {
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

}  // namespace quillmark
