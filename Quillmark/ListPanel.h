#pragma once

#include <QItemSelection>
#include <QTimer>
#include <QWidget>
#include <array>
#include <optional>
#include <vector>

#include "Quillmark/ReportList.h"

class QAbstractItemView;
class QActionGroup;
class QBoxLayout;
class QGridLayout;
class QLineEdit;
class QListView;
class QMenu;
class QToolButton;
class QTreeView;

namespace quillmark {

class ReportListDelegate;

/// The reports, as a list or as a table, and what narrows them down and sorts them: the filter, a button for
/// each tone with its count (once there are many), and a menu.
class ListPanel : public QWidget {
    Q_OBJECT
public:
    /// `list` must outlive it.
    ListPanel(ReportList& list, const Words& words, QWidget* parent = nullptr);

    QListView* listView() const { return m_listView; }
    QTreeView* tableView() const { return m_tableView; }
    /// By what one may sort; for the menus, too.
    QMenu* sortMenu() const { return m_sortMenu; }

    void setTable(bool isTable);
    /// As the header saved them; what isn't that changes nothing.
    void restoreColumns(const QByteArray& state);
    /// What the person has chosen, in the order of the list: more than one entry, or what is selected.
    const std::vector<UUID>& chosenOnes() const { return m_chosen; }
    /// Selects an entry, or none, alone. Does not say so.
    void select(const std::optional<UUID>& id);
    void focusFilter();
    void focusList();
    /// Presses the buttons of these tones, and no other.
    void showOnly(const std::set<Tone>& tones) { m_list.setTones(tones); }
    /// Turns the marks of running checks, or leaves them.
    void setRunning(bool isRunning);

signals:
    void chosen(const std::optional<UUID>& id);
    void choiceChanged();  ///< of several
    /// The context menu is wanted for what is chosen, there on the screen.
    void menuWanted(const QPoint& where);
    /// By a double click or the Enter key: its report is wanted.
    void opened();

protected:
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void buildFilter(const Words& words);
    QWidget* buildHidden();
    void refreshHidden();
    QAbstractItemView* shownView() const;
    void buildTones();
    void buildSortMenu();
    void buildViews();
    void connectView(QAbstractItemView* view);
    void takeChoice(const QAbstractItemView& view);
    QItemSelection chosenRows() const;
    void keepListed(const QItemSelection& rows);
    void sizeColumns();
    void setLeastWidth();
    void placeTones();
    void refreshTones();
    void refreshSort();
    void keepPlace();
    void showSelected(bool isToBeSeen);

    ReportList& m_list;
    Words m_words;
    QBoxLayout* m_top = nullptr;
    QLineEdit* m_filter = nullptr;
    QMenu* m_sortMenu = nullptr;
    QActionGroup* m_sortColumns = nullptr;
    QAction* m_sortBackwards = nullptr;
    QWidget* m_hidden = nullptr;  // what says that the filter hides what is shown
    QWidget* m_toneRow = nullptr;
    QGridLayout* m_toneGrid = nullptr;
    std::array<QToolButton*, 4> m_tones = {};
    QListView* m_listView = nullptr;
    QTreeView* m_tableView = nullptr;
    ReportListDelegate* m_delegate = nullptr;
    QTimer m_spin;
    std::optional<UUID> m_selected = {};
    std::vector<UUID> m_chosen = {};
    int m_letter = 0;  // the width of one, by which the columns are as wide as they are
    int m_placeInList = 0, m_placeInTable = 0;
    bool m_isAwaited = false;  // what is selected, which the list does not have yet
    bool m_isSelecting = false;
};

}  // namespace quillmark
