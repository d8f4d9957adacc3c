#include "Quillmark/Session.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace quillmark {

std::size_t Session::HashOfID::operator()(const UUID& id) const {
    std::size_t hash = 0;
    std::memcpy(&hash, id.bytes.data(), sizeof hash);
    return hash;
}

const SessionRow* Session::row(const UUID& id) const {
    if (m_positions.empty()) {
        for (std::size_t i = 0; i < m_rows.size(); ++i) m_positions.emplace(m_rows[i].id, i);
    }
    const auto found = m_positions.find(id);
    return found != m_positions.end() ? &m_rows[found->second] : nullptr;
}

std::size_t Session::position(const UUID& id) const {
    return static_cast<std::size_t>(row(id) - m_rows.data());
}

void Session::takeIn(std::vector<SessionRow> rows) {
    ++m_intake;
    for (SessionRow& each : rows) each.intake = m_intake;
    m_selectedBefore = m_selection;
    m_selection = rows.front().id;
    m_refusal = std::nullopt;
    m_rows.insert(m_rows.begin(), std::make_move_iterator(rows.begin()), std::make_move_iterator(rows.end()));
    m_positions.clear();
}

void Session::insert(const UUID& mailbox, std::vector<SessionRow> rows) {
    std::ranges::sort(rows, {}, &SessionRow::position);
    const auto own = m_rows.begin() + static_cast<std::ptrdiff_t>(position(mailbox));
    own->found += rows.size();
    for (SessionRow& each : rows) {
        each.mailbox = mailbox;
        each.intake = own->intake;
    }
    const auto end =
        std::find_if(own + 1, m_rows.end(), [&](const SessionRow& each) { return each.mailbox != mailbox; });
    const auto first = own + 1 - m_rows.begin(), middle = end - m_rows.begin();
    const auto last = middle + static_cast<std::ptrdiff_t>(rows.size());
    m_rows.insert(end, std::make_move_iterator(rows.begin()), std::make_move_iterator(rows.end()));
    const auto begin = m_rows.begin();
    std::ranges::inplace_merge(begin + first, begin + middle, begin + last, {}, &SessionRow::position);
    m_positions.clear();
}

void Session::setReport(const UUID& id, std::shared_ptr<const ProofReport> report) {
    m_rows[position(id)].report = std::move(report);
}

void Session::apply(const Changes& changes, const Refusals& refusals) {
    const auto refused = m_selection ? refusals.find(*m_selection) : refusals.end();
    const auto selected = selectionAfter(changes, refusals);
    const auto before = m_selectedBefore ? changes.find(*m_selectedBefore) : changes.end();
    if (before != changes.end())
        m_selectedBefore = before->second ? std::optional(before->second->id) : std::nullopt;
    std::erase_if(m_rows, [&](SessionRow& row) {
        const auto found = changes.find(row.id);
        if (found == changes.end()) return false;
        if (found->second) row = *found->second;
        return !found->second;
    });
    m_positions.clear();
    m_selection = selectable(selected);
    if (refused != refusals.end() && !m_selection) m_refusal = refused->second;
}

RemovedRows Session::remove(const std::set<UUID>& ids) {
    RemovedRows removed;
    Changes changes;
    std::optional<UUID> below;
    for (auto row = m_rows.rbegin(); row != m_rows.rend(); ++row) {
        if (!ids.contains(row->id)) {
            below = row->id;
            continue;
        }
        removed.rows.emplace_back(*row, below);
        changes.emplace(row->id, std::nullopt);
        m_removed.insert(row->id);
    }
    std::ranges::reverse(removed.rows);
    apply(changes);
    return removed;
}

void Session::restore(const RemovedRows& removed) {
    std::map<UUID, std::vector<SessionRow>> above;
    std::vector<SessionRow> atEnd;
    for (const auto& [row, below] : removed.rows) {
        if (this->row(row.id)) continue;
        m_removed.erase(row.id);
        (below && this->row(*below) ? above[*below] : atEnd).push_back(row);
    }
    std::vector<SessionRow> rows;
    rows.reserve(m_rows.size() + removed.rows.size());
    for (SessionRow& row : m_rows) {
        if (const auto found = above.find(row.id); found != above.end())
            std::ranges::move(found->second, std::back_inserter(rows));
        rows.push_back(std::move(row));
    }
    std::ranges::move(atEnd, std::back_inserter(rows));
    m_rows = std::move(rows);
    m_positions.clear();
}

void Session::select(const std::optional<UUID>& id) {
    const auto selected = selectable(id);
    if (m_selection == selected) return;
    m_selection = selected;
    m_refusal = std::nullopt;
}

void Session::refuse(std::string line) {
    m_selection = std::nullopt;
    m_refusal = std::move(line);
}

std::optional<UUID> Session::selectable(const std::optional<UUID>& id) const {
    return id && (row(*id) || m_isSaved(*id)) ? id : std::nullopt;
}

std::optional<UUID> Session::selectionAfter(const Changes& changes, const Refusals& refusals) const {
    const auto isGone = [&](const SessionRow& row) {
        const auto found = changes.find(row.id);
        return found != changes.end() && !found->second;
    };
    const SessionRow* selected = m_selection ? row(*m_selection) : nullptr;
    if (!selected) return m_selection;
    const SessionRow* end = m_rows.data() + m_rows.size();
    const SessionRow* next = std::find_if_not(selected, end, isGone);
    // Of several files the next one. Else what was looked at before they came, but not beneath a refusal.
    if (next == end || next->intake != selected->intake)
        return refusals.contains(selected->id) ? std::nullopt : m_selectedBefore;
    const auto found = changes.find(next->id);
    return found != changes.end() ? found->second->id : next->id;
}

}  // namespace quillmark
