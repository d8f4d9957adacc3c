#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "QuillmarkKit/Report.h"

/// The reports that are kept, and their text form (docs/formats.md).
namespace quillmark {

class HistoryChange;

/// The version of the form that is written, and the highest that is read.
constexpr std::int64_t historyVersion = 1;

/// A report that takes more bytes as compact JSON is not kept.
constexpr std::size_t largestKeptReport = 5'000'000;

struct History {
    std::int64_t version = historyVersion;
    std::vector<ProofReport> reports = {};  ///< the oldest first
    UnknownMembers unknown = {};            ///< of a history that a newer program wrote
    bool operator==(const History&) const = default;

    void apply(const HistoryChange& change);
};
constexpr auto fieldsOf(const History*) {
    return std::tuple{Field{"version", &History::version}, Field{"reports", &History::reports}};
}

/// What is to be done to a history whatever it holds by then: several steps, one after the other, as one
/// change. Applying it twice does the same as once.
class HistoryChange {
public:
    /// Puts a report at the end, without what notes quote of the message's text, which is never kept; one
    /// with the same id goes. False, and nothing is done, when the report is too large to be kept.
    [[nodiscard]] bool add(ProofReport report);
    void remove(const UUID& id);
    /// The steps of `later` after these.
    void append(const HistoryChange& later);

    bool isEmpty() const { return m_removed.empty(); }
    /// Whether a report that the history holds goes.
    bool removes(const UUID& id) const { return m_removed.contains(id); }
    /// What comes behind those that stay, in order.
    const std::vector<ProofReport>& added() const { return m_added; }

private:
    std::set<UUID> m_removed = {};  // also the ids of those that are added
    std::vector<ProofReport> m_added = {};
};

/// Writes a history report by report, its keys sorted: equal histories give the same bytes.
class HistoryWriter {
public:
    using Sink = std::function<void(std::string_view bytes)>;
    explicit HistoryWriter(Sink sink);
    void add(const ProofReport& report);
    /// After the last report. `unknown` is the history's own; its members come behind the reports.
    void end(const UnknownMembers& unknown = {});

private:
    Sink m_sink;
    std::string m_text = {};  // not yet in the sink
    bool m_isFirst = true;
};

/// Reads what a `HistoryWriter` wrote, and hands on one report after the other; what comes back is the
/// history without them. On its version depends whether they count: above `historyVersion` the form is
/// unknown. Throws `DecodingError` with the place of the fault ("reports[3].dkim[0].status: …"), perhaps
/// after many a report.
History readHistory(std::istream& text, const std::function<void(ProofReport)>& report);

/// How much of a damaged history could be read.
struct HistorySalvage {
    std::int64_t version = historyVersion;  ///< above `historyVersion` the form is unknown
    std::size_t unread = 0;                 ///< the reports of which something is there that can't be read
    std::vector<std::string> faults = {};   ///< what is wrong, and where; the first ten
};
/// Reads what is left of a history, and hands on each report that is whole, in their order: those before,
/// between and behind the damage. Where the text is no JSON, a report behind that place is known by the
/// layout that a `HistoryWriter` gives it, or as what begins with `{"arc"`.
HistorySalvage salvageHistory(std::string_view text, const std::function<void(ProofReport)>& report);

}  // namespace quillmark
