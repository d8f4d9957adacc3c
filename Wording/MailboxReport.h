#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"
#include "Wording/Totals.h"

/// A report on many messages, as one page of HTML that needs nothing else: no script, no picture and no font
/// of elsewhere, and its content policy (CSP) allows none. For light and dark, and for paper.
namespace quillmark {

/// What the page tells of one message; made apart from it, on any thread.
struct MailboxEntry {
    std::optional<int> year = {};  ///< of the message, as it is counted
    std::string row = {};          ///< HTML behind the number
    std::string look = {};         ///< HTML of what needs a look in it; empty when nothing does
    std::string report = {};       ///< HTML of the whole report; empty when it is left out

    /// A signature in it.
    struct Signature {
        std::string domain = {}, selector = {};
        enum class End { holds, keyGone, other } end = End::other;
        std::optional<Date> date = {};  ///< of the signature, or of the message
        bool operator==(const Signature&) const = default;
    };
    std::vector<Signature> signatures = {};

    std::size_t size() const { return row.size() + look.size() + report.size(); }
};
enum class WholeReport { leftOut, included };
MailboxEntry mailboxEntry(const ProofReport& report, WholeReport whole, const Reader& reader);

/// What stands at the top: what was checked, and how.
struct MailboxReportHead {
    std::vector<std::string> inputs = {};                         ///< names of files and folders
    std::vector<std::pair<std::string, std::string>> facts = {};  ///< a label and what is so called
    Date begun = {}, ended = {};
    bool isWhole = true;                    ///< else it was stopped before the end
    std::optional<std::string> table = {};  ///< a CSV file with a row for each message, relative to the page
};

/// The page in the making. It is bounded, however many messages are added: the whole reports of 2,000 at
/// most, and of more none; beyond these so many rows as 1.6 MB hold; the 100,000 first keys. Not safe from
/// several threads at once.
class MailboxReport {
public:
    static constexpr std::size_t mostReports = 2000;
    static constexpr std::size_t mostReportBytes = 13'000'000;
    static constexpr std::size_t mostRowBytes = 1'600'000;  ///< beyond the first 2,000

    explicit MailboxReport(Reader reader) : m_reader(reader) {}

    void add(MailboxEntry entry);
    /// One line that says why something was not checked.
    void addProblem(std::string_view line);

    using Sink = std::function<void(std::string_view)>;
    /// Writes the page, piece by piece. `totals`: of all messages, more perhaps than were added. What `sink`
    /// throws goes through.
    void write(const MailboxReportHead& head, const Totals& totals, const Sink& sink) const;

private:
    struct Key {
        std::array<std::int64_t, 3> ends = {};  // by `MailboxEntry::Signature::End`
        std::optional<Date> first = {}, last = {};
        std::set<int> years = {};
        bool isGone() const;
    };

    void writeHead(const MailboxReportHead& head, const Sink& sink) const;
    void writeTotals(const Totals& totals, const Sink& sink) const;
    void writeKeys(const Sink& sink) const;
    void writeList(const MailboxReportHead& head, const Sink& sink) const;

    const Reader m_reader;
    std::map<std::pair<std::string, std::string>, Key> m_keys = {};  // by domain and selector
    std::vector<std::string> m_rows = {}, m_reports = {}, m_problems = {};
    std::vector<std::pair<std::size_t, std::string>> m_looks = {};  // by the message's number
    std::size_t m_rowBytes = 0, m_reportBytes = 0;
    bool m_keepsReports = true;
    std::int64_t m_count = 0, m_looksLeftOut = 0;
};

}  // namespace quillmark
