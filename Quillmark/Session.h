#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "QuillmarkKit/Report.h"

namespace quillmark {

/// What became of a mailbox whose check was ended by the person, or didn't come to its end.
struct StoppedMailbox {
    std::size_t checked = 0;              ///< messages
    std::optional<std::size_t> all = {};  ///< that are in it; nothing until they are counted, if ever
    bool operator==(const StoppedMailbox&) const = default;
};

/// A message that was taken in during this run.
struct SessionRow {
    /// That of its report, and before there is one, that of the check under way. A check that is made again
    /// has a new one, which replaces this when it is done; the selection goes along.
    UUID id = {};
    std::optional<std::string> name = {};            ///< the file's; may hold anything; none for pasted text
    std::shared_ptr<const ProofReport> report = {};  ///< none while it is first checked
    bool isRunning = false;                          ///< "Checking…"; may be cancelled
    std::uint64_t intake = 0;                        ///< the same for files that were opened together
    std::size_t found = 0;                           ///< how many messages were found in it so far
    std::optional<UUID> mailbox = {};  ///< the row of the mailbox or folder that it was found in
    /// Its place there, from 1; behind it that of one that is attached inside that message, as in
    /// `MessagePlace`.
    std::vector<std::size_t> position = {};
    std::optional<StoppedMailbox> stopped = {};  ///< of a mailbox or folder: its row stays then
    bool isDone = false;  ///< a mailbox or folder of several messages, checked to its end: its row stays, too
    bool isMailbox() const { return isDone || stopped.has_value(); }
    bool operator==(const SessionRow&) const = default;
};

/// Rows that were taken away, each with the one that stood below all that went there; nothing at the end.
struct RemovedRows {
    std::vector<std::pair<SessionRow, std::optional<UUID>>> rows = {};
};

/// The messages of this run in their order, and what is selected: a value, of one thread.
class Session {
public:
    /// What rows are from now on, by the identity they had; nothing for those that go.
    using Changes = std::map<UUID, std::optional<SessionRow>>;
    /// Why rows that go were refused, in a line.
    using Refusals = std::map<UUID, std::string>;

    /// `isSaved`: whether the history has such a report, which can be selected without a row.
    explicit Session(std::function<bool(const UUID&)> isSaved) : m_isSaved(std::move(isSaved)) {}

    /// The newest intake first; the files of one intake in the order they were given.
    const std::vector<SessionRow>& rows() const { return m_rows; }
    /// Null when there is none. Valid until the next change.
    const SessionRow* row(const UUID& id) const;
    /// A row or a saved report.
    const std::optional<UUID>& selection() const { return m_selection; }
    /// Why what was to be shown was not taken in; only while nothing is selected.
    const std::optional<std::string>& refusal() const { return m_refusal; }
    /// Whether its row was taken away.
    bool isRemoved(const UUID& id) const { return m_removed.contains(id); }

    /// Puts the rows of an intake, at least one, on top, and selects the first.
    void takeIn(std::vector<SessionRow> rows);
    /// Puts rows of a mailbox's messages below its own, in the order they have there.
    void insert(const UUID& mailbox, std::vector<SessionRow> rows);
    void setReport(const UUID& id, std::shared_ptr<const ProofReport> report);
    void apply(const Changes& changes, const Refusals& refusals = {});
    /// Rows that aren't there are passed over.
    RemovedRows remove(const std::set<UUID>& ids);
    /// Puts rows back to where they were, as far as their neighbours are still there.
    void restore(const RemovedRows& removed);
    /// Nothing, or the identity of a row or a saved report; another one is none.
    void select(const std::optional<UUID>& id);
    /// Selects nothing, for the sake of something that couldn't even be tried.
    void refuse(std::string line);

private:
    struct HashOfID {
        std::size_t operator()(const UUID& id) const;
    };
    std::size_t position(const UUID& id) const;
    std::optional<UUID> selectionAfter(const Changes& changes, const Refusals& refusals) const;
    std::optional<UUID> selectable(const std::optional<UUID>& id) const;

    std::function<bool(const UUID&)> m_isSaved;
    std::vector<SessionRow> m_rows = {};
    mutable std::unordered_map<UUID, std::size_t, HashOfID> m_positions = {};  // empty: to be made
    std::set<UUID> m_removed = {};
    std::uint64_t m_intake = 0;  // the latest
    std::optional<UUID> m_selection = {};
    std::optional<UUID> m_selectedBefore = {};  // before the latest intake
    std::optional<std::string> m_refusal = {};
};

}  // namespace quillmark
