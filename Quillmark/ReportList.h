#pragma once

#include <QAbstractListModel>
#include <QStyledItemDelegate>
#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "Quillmark/Words.h"
#include "QuillmarkKit/Report.h"

namespace quillmark {

/// One line of the list on the left.
struct ListEntry {
    enum class Kind { sessionHeading, historyHeading, running, session, history };
    Kind kind = Kind::session;
    UUID id = {};
    QString name = {};      ///< of a running check: the file's, or empty for a paste
    std::size_t found = 0;  ///< of a running check: messages found in the mailbox so far
    bool isReport() const { return kind == Kind::session || kind == Kind::history; }
    bool isHeading() const { return kind == Kind::sessionHeading || kind == Kind::historyHeading; }
    bool operator==(const ListEntry&) const = default;
};

/// The reports of this run and of the history, each under its heading, and the checks that are under way.
/// Keeps identities only: what a row shows is made when it is painted, so that ten thousand cost nothing.
class ReportList : public QAbstractListModel {
    Q_OBJECT
public:
    /// The report of an entry; null when it is gone. The pointer is used at once.
    using Find = std::function<const ProofReport*(const ListEntry&)>;
    enum Role { toneRole = Qt::UserRole, secondLineRole, timeRole, hasMoreRole };

    /// `now` gives the time, by which a check of today shows its hour and an older one its day.
    ReportList(Find find, std::function<Date()> now, const Words& words, QObject* parent = nullptr);

    /// All entries without headings, in the order they are shown: those of the session before the history's.
    void setEntries(std::vector<ListEntry> entries);
    /// Keeps those whose subject, sender, domain or file name holds `text`, in any case. Empty keeps all.
    void setFilter(const QString& text);

    const ListEntry& entry(const QModelIndex& index) const;
    QModelIndex indexOf(const UUID& id) const;
    /// How many entries there are besides headings, whatever the filter.
    std::size_t allCount() const { return m_all.size(); }

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

signals:
    /// The entries were set anew, whether or not the filter lets another row through.
    void entriesChanged();

private:
    /// What the verdict's symbol does not say: "2 warning signs". Empty when there is nothing of that kind.
    QString caution(const ProofReport& report) const;
    bool passes(const ListEntry& entry) const;
    std::vector<ListEntry> filtered() const;
    void show(std::vector<ListEntry> rows);
    QString firstLine(const ListEntry& entry) const;
    QString secondLine(const ListEntry& entry) const;
    QString time(const ListEntry& entry) const;

    Find m_find;
    std::function<Date()> m_now;
    Words m_words;
    QString m_filter;
    std::vector<ListEntry> m_all, m_rows;
    mutable std::map<UUID, QString> m_cautions;  // as they were asked for, until the entries change
};

/// Paints a row: the tone's symbol, the subject, and under it the domain and the time; a caution mark where
/// there is more to be read than the verdict.
class ReportListDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    /// Turns the mark of running checks by a step, for the next painting.
    void turn() { m_turns = (m_turns + 1) % turnsAround; }

private:
    static constexpr int turnsAround = 12;
    int m_turns = 0;
};

}  // namespace quillmark
