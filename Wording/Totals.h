#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"

/// How often each verdict came out of many checks: the same numbers in the summary of the command line, on
/// the page of a mailbox and in reports of many messages.
namespace quillmark {

/// In the order in which less is proven.
inline constexpr std::array tonesByProof{Tone::good, Tone::caution, Tone::unknown, Tone::bad};

/// What is counted of a report.
struct Counted {
    VerdictKind kind = VerdictKind::cannotProve;
    Tone tone = Tone::bad;
    std::optional<std::string> domain = {};  ///< the verdict's; none when it is too long for DNS
    bool hasCautions = false;                ///< beside the verdict's headline, which alone would mislead
    std::optional<int> year =
        {};  ///< of the message's own date, in UTC; none before 1970 or after the check's
};
Counted countedOf(const ProofReport& report);
/// Without what costs more than the verdict.
Counted countedOf(const Verdict& verdict);

/// How many reports there are of each tone.
struct ToneCounts {
    std::array<std::int64_t, 4> byTone = {};  ///< indexed by `Tone`
    std::int64_t withCautions = 0;            ///< of all these
    std::int64_t of(Tone tone) const { return byTone[static_cast<std::size_t>(tone)]; }
    std::int64_t all() const;
    void add(const Counted& report);
    void add(const ToneCounts& others);
    bool operator==(const ToneCounts&) const = default;
};

/// A line of a table or a bar of a picture.
struct TotalsRow {
    std::string label = {};  ///< fit to be shown
    ToneCounts counts = {};
    bool isDomain = false;  ///< a domain's, not one of our words
    bool operator==(const TotalsRow&) const = default;
};

/// A plain value that grows by each report; of hostile input no more than 100,000 domains are held, and none
/// that is too long for DNS.
struct Totals {
    std::map<std::pair<VerdictKind, Tone>, std::int64_t> verdicts = {};
    ToneCounts all = {};
    std::map<std::string, ToneCounts> domains = {};  ///< that signed; "" where a report has none
    ToneCounts otherDomains = {};                    ///< beyond those that are held each by itself
    ToneCounts notSigned = {};
    std::map<int, ToneCounts> years = {};
    ToneCounts undated = {};      ///< without a year that can be
    std::int64_t problems = 0;    ///< messages that could not be checked
    std::int64_t passedOver = 0;  ///< what was read and no message, as expected

    void add(const Counted& report);
    bool operator==(const Totals&) const = default;
};

/// The domains that signed most, at most `most` of them, then "(other domains)" and "(not signed)"; none that
/// counts nothing.
std::vector<TotalsRow> domainRows(const Totals& totals, std::size_t most, const Reader& reader);
/// The years, the latest first, at most `most` of them, then "(earlier)" and "(no date)"; none that counts
/// nothing.
std::vector<TotalsRow> yearRows(const Totals& totals, std::size_t most, const Reader& reader);

/// A verdict in a line of a table, whatever its domain: "Signed by another domain than the sender’s".
std::string nameOfKind(VerdictKind kind, const Reader& reader);

}  // namespace quillmark
