#pragma once

#include <QAbstractTableModel>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "Quillmark/ListRows.h"
#include "Quillmark/Words.h"

namespace quillmark {

/// How far the check of a mailbox came that was stopped: "Stopped after 514 of 4,200".
QString stoppedAfter(std::size_t checked, std::optional<std::size_t> all, const Words& words);

/// What `listRows` gives, for a list, of which it is the first column, and for a table. What a row shows is
/// made when it is painted, so that ten thousand cost nothing.
class ReportList : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Role {
        toneRole = Qt::UserRole,
        secondLineRole,
        senderNameRole,  ///< in quotation marks, what the one sender calls himself; may be empty
        dateRole,        ///< of the message itself; may be empty
        hasMoreRole,
        isStoppedRole,
        isMailboxRole
    };
    /// `now` gives the time: what is of today shows its hour, and what is older its day.
    ReportList(std::function<Date()> now, const Words& words, QObject* parent = nullptr);

    /// As `listEntries` gives them.
    void setEntries(std::vector<ListEntry> entries);
    const ListChoice& choice() const { return m_choice; }
    void setFilter(const QString& text);
    void setTones(std::set<Tone> tones);
    /// By a `ListColumn`.
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;
    Qt::SortOrder sortOrder() const;
    void setHeadings(bool areShown);
    /// How many reports have this tone, of those that the filter keeps.
    std::size_t count(Tone tone) const { return m_listed.tones[static_cast<std::size_t>(tone)]; }

    const ListEntry& entry(const QModelIndex& index) const;
    /// In the first column.
    QModelIndex indexOf(const UUID& id) const;
    /// As `quillmark::beside`, of what is listed.
    std::optional<UUID> beside(const std::set<UUID>& ids) const {
        return quillmark::beside(m_listed.rows, ids);
    }
    /// Whether the filter, or the tones, leave this entry out.
    bool isPassedOver(const UUID& id) const { return rowOf(m_all, id) && !rowOf(m_listed.rows, id); }
    /// How many entries there are, whatever the filter.
    std::size_t allCount() const { return m_all.size(); }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

signals:
    /// The entries were set anew, whether or not the filter lets another row through.
    void entriesChanged();
    void sorted();    ///< by another column, or the other way around
    void filtered();  ///< the counts may have changed

private:
    /// What the verdict's symbol does not say: "2 warning signs". Empty when there is nothing of that kind.
    QString caution(const ProofReport& report) const;
    void refresh();
    QString cell(const ListEntry& entry, ListColumn column) const;
    QString verdict(const ListEntry& entry) const;
    QString toolTip(const ListEntry& entry, ListColumn column) const;
    QString spoken(const ListEntry& entry) const;
    QString firstLine(const ListEntry& entry) const;
    QString secondLine(const ListEntry& entry) const;
    QString senderName(const ListEntry& entry) const;
    QString date(const ListEntry& entry) const;
    QString shortly(Date date) const;

    std::function<Date()> m_now;
    Words m_words;
    ListChoice m_choice = {};
    std::vector<ListEntry> m_all = {};
    ListRows m_listed = {};
    mutable std::map<UUID, QString> m_cautions;  // as they were asked for, until the entries change
};

}  // namespace quillmark
