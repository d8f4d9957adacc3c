#pragma once

#include <QString>
#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "Quillmark/Session.h"
#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"

/// Which rows the list of the window has, and in which order: values and functions of them, without a window.
namespace quillmark {

/// One line of the list.
struct ListEntry {
    enum class Kind { sessionHeading, historyHeading, running, stopped, mailbox, session, history };
    Kind kind = Kind::session;
    UUID id = {};
    std::string name = {};  ///< of a check without a report: the file's, or empty for a paste
    std::size_t found = 0;  ///< of a mailbox: messages found in it, so far or until it was stopped
    std::shared_ptr<const ProofReport> report = {};  ///< never null in a report's line
    std::optional<std::size_t> all = {};             ///< messages of a mailbox that was stopped, once known
    bool isReport() const { return kind == Kind::session || kind == Kind::history; }
    bool isHeading() const { return kind == Kind::sessionHeading || kind == Kind::historyHeading; }
    bool operator==(const ListEntry&) const = default;
};

/// The entries of this run and, the last check first, of the history, without headings. One that is in both
/// is the run's, and what was removed from the list is in neither.
std::vector<ListEntry> listEntries(const Session& session,
                                   std::span<const std::shared_ptr<const ProofReport>> history);

/// What the table shows, and what one may sort by.
enum ListColumn {
    subjectColumn,
    verdictColumn,
    fromColumn,
    signedByColumn,  ///< only with a signature that holds
    dateColumn,      ///< the message's
    fileColumn,
    checkedColumn,
};
constexpr int listColumns = 7;
enum class ListOrder { ascending, descending };

/// What a person wants to see of the entries.
struct ListChoice {
    QString filter = {};  ///< keeps those whose subject, sender, domain or file name holds it, in any case
    /// Keeps the reports of these, and the checks under way; empty: all. One with cautions is one of caution,
    /// too.
    std::set<Tone> tones = {};
    ListColumn column = checkedColumn;
    ListOrder order = ListOrder::descending;
    bool hasHeadings = true;  ///< where the entries stay in their order: by the last check, the latest first
};

struct ListRows {
    std::vector<ListEntry> rows = {};
    std::array<std::size_t, 4> tones = {};  ///< how many reports of each the filter keeps
};

/// Checks under way come first always.
ListRows listRows(std::span<const ListEntry> entries, const ListChoice& choice, const Reader& reader);

/// What a column of texts shows of a report, and is sorted by.
std::string listText(const ProofReport& report, ListColumn column, const Reader& reader);

/// Where the entry of this identity is; nothing when it isn't there.
std::optional<std::size_t> rowOf(std::span<const ListEntry> rows, const UUID& id);
/// The entry below the last one of these, or above it where there is none below; none when there is no other,
/// or none of these is there.
std::optional<UUID> beside(std::span<const ListEntry> rows, const std::set<UUID>& ids);

}  // namespace quillmark
