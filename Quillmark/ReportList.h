#pragma once

#include <QAbstractTableModel>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "Quillmark/Words.h"
#include "QuillmarkKit/Report.h"

namespace quillmark {

/// One line of the list.
struct ListEntry {
    enum class Kind { sessionHeading, historyHeading, running, stopped, session, history };
    Kind kind = Kind::session;
    UUID id = {};
    QString name = {};      ///< of a check without a report: the file's, or empty for a paste
    std::size_t found = 0;  ///< of a mailbox: messages found in it so far, or until it was stopped
    std::shared_ptr<const ProofReport> report = {};  ///< never null in a report's line
    std::optional<std::size_t> all = {};             ///< messages of a mailbox that was stopped, once known
    bool isReport() const { return kind == Kind::session || kind == Kind::history; }
    bool isHeading() const { return kind == Kind::sessionHeading || kind == Kind::historyHeading; }
    bool operator==(const ListEntry&) const = default;
};

/// How far the check of a mailbox came that was stopped: "Stopped after 514 of 4,200".
QString stoppedAfter(std::size_t checked, std::optional<std::size_t> all, const Words& words);

/// The reports of this run and of the history, each under its heading, and the checks that are under way; as
/// a list, or sorted and as a table. What a row shows is made when it is painted, so that ten thousand cost
/// nothing.
class ReportList : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Role { toneRole = Qt::UserRole, secondLineRole, timeRole, hasMoreRole, isStoppedRole };
    /// What the table shows, and what one may sort by. The list shows the first column.
    enum Column {
        subjectColumn,
        verdictColumn,
        fromColumn,
        signedByColumn,  ///< only with a signature that holds
        dateColumn,      ///< the message's
        fileColumn,
        checkedColumn,
    };
    static constexpr int columns = 7;

    /// `now` gives the time, by which a check of today shows its hour and an older one its day.
    ReportList(std::function<Date()> now, const Words& words, QObject* parent = nullptr);

    /// All entries without headings, the last check first, and those of the session before the history's.
    void setEntries(std::vector<ListEntry> entries);
    /// Keeps those whose subject, sender, domain or file name holds `text`, in any case. Empty keeps all.
    void setFilter(const QString& text);
    /// Keeps the reports of these tones, and the checks under way. Empty keeps all.
    void setTones(std::set<Tone> tones);
    const std::set<Tone>& tones() const { return m_tones; }
    /// How many reports have this tone, of those that `setFilter` keeps.
    std::size_t count(Tone tone) const { return m_counts[static_cast<std::size_t>(tone)]; }
    /// By the last check, the latest first, is how the entries come; they have headings only then, and in no
    /// table. Checks under way come first always.
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;
    Column sortColumn() const { return m_sortColumn; }
    Qt::SortOrder sortOrder() const { return m_sortOrder; }
    void setHeadings(bool areShown);

    const ListEntry& entry(const QModelIndex& index) const;
    QModelIndex indexOf(const UUID& id) const;
    /// The entry below, or above the last one; none when no other is listed, or `id` itself is not.
    std::optional<UUID> beside(const UUID& id) const;
    /// How many entries there are besides headings, whatever the filter.
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
    bool passes(const ListEntry& entry) const;
    bool isAsGiven() const;
    void refresh();
    void order(std::vector<ListEntry>& rows) const;
    QString cell(const ListEntry& entry, int column) const;
    QString verdict(const ListEntry& entry) const;
    QString toolTip(const ListEntry& entry, int column) const;
    QString spoken(const ListEntry& entry) const;
    QString firstLine(const ListEntry& entry) const;
    QString secondLine(const ListEntry& entry) const;
    QString time(const ListEntry& entry) const;

    std::function<Date()> m_now;
    Words m_words;
    QString m_filter;
    std::set<Tone> m_tones;
    std::array<std::size_t, 4> m_counts = {};
    Column m_sortColumn = checkedColumn;
    Qt::SortOrder m_sortOrder = Qt::DescendingOrder;
    bool m_hasHeadings = true;
    std::vector<ListEntry> m_all, m_rows;
    mutable std::map<UUID, QString> m_cautions;  // as they were asked for, until the entries change
};

}  // namespace quillmark
