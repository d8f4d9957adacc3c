#include "Quillmark/ListPanel.h"

#include <QActionGroup>
#include <QBoxLayout>
#include <QEvent>
#include <QGridLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QPainter>
#include <QScrollBar>
#include <QShortcut>
#include <QSignalBlocker>
#include <QToolButton>
#include <QTreeView>
#include <algorithm>
#include <functional>
#include <set>

#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"
#include "Quillmark/ReportRows.h"
#include "Quillmark/Tones.h"

namespace quillmark {

namespace {

constexpr int spinMilliseconds = 80;
constexpr int leastCharacters = 26;     // of a domain, beside a tone's mark, so many can be read
constexpr std::size_t fewReports = 10;  // among so many nobody needs to be helped to find one
constexpr std::array tonesInOrder{Tone::good, Tone::caution, Tone::bad, Tone::unknown};

/// The columns from left to right, and their widths in characters.
constexpr std::pair<ListColumn, int> tableColumns[] = {
    {verdictColumn, 14}, {fromColumn, 28}, {subjectColumn, 38}, {signedByColumn, 20},
    {dateColumn, 16},    {fileColumn, 26}, {checkedColumn, 14},
};

/// Times begin with the latest, everything else with the first.
Qt::SortOrder usualOrder(int column) {
    const bool isTime = column == checkedColumn || column == dateColumn;
    return isTime ? Qt::DescendingOrder : Qt::AscendingOrder;
}

/// A view that has no current row takes its first one with the keyboard, which may well come back to it from
/// a dialog that closes. This one leaves that to the arrow keys: what is shown is only ever chosen by a
/// person. A list is shown empty only where the filter passes over all there is, which it says. Escape goes
/// back to the filter.
template <typename View>
class ReportsView : public View {
public:
    ReportsView(QString nothingMatches, std::function<void()> goBack)
        : m_nothingMatches(std::move(nothingMatches)), m_goBack(std::move(goBack)) {}

protected:
    void keyPressEvent(QKeyEvent* event) override {
        if (event->key() == Qt::Key_Escape) return m_goBack();
        View::keyPressEvent(event);
    }

    void focusInEvent(QFocusEvent*) override { View::viewport()->update(); }

    // The first row may be a heading, where nothing can stand.
    QModelIndex moveCursor(QAbstractItemView::CursorAction action, Qt::KeyboardModifiers modifiers) override {
        QModelIndex to = View::moveCursor(action, modifiers);
        while (action == QAbstractItemView::MoveHome && to.isValid() && !(to.flags() & Qt::ItemIsEnabled))
            to = to.siblingAtRow(to.row() + 1);
        return to;
    }

    void paintEvent(QPaintEvent* event) override {
        View::paintEvent(event);
        QPainter painter(View::viewport());
        const QRect area = View::viewport()->rect();
        if (View::hasFocus() && !View::currentIndex().isValid()) drawFocus(painter, area, View::palette());
        if (View::model()->rowCount() > 0) return;
        const int margin = View::fontMetrics().height();
        painter.setPen(View::palette().color(QPalette::Text));
        painter.drawText(area.adjusted(margin, margin, -margin, -margin),
                         Qt::AlignTop | Qt::AlignHCenter | Qt::TextWordWrap, m_nothingMatches);
    }

    void scrollContentsBy(int x, int y) override {
        View::scrollContentsBy(x, y);
        if (!View::currentIndex().isValid()) View::viewport()->update();  // what it has around it stays
    }

    void focusOutEvent(QFocusEvent* event) override {
        View::focusOutEvent(event);
        View::viewport()->update();
    }

private:
    const QString m_nothingMatches;
    const std::function<void()> m_goBack;
};

/// Escape takes back what was typed, and the arrow down goes on into the list.
class FilterLine : public QLineEdit {
public:
    explicit FilterLine(std::function<void()> goDown) : m_goDown(std::move(goDown)) {}

protected:
    void keyPressEvent(QKeyEvent* event) override {
        if (event->key() == Qt::Key_Down) return m_goDown();
        if (event->key() == Qt::Key_Escape && !text().isEmpty()) return clear();
        QLineEdit::keyPressEvent(event);
    }

private:
    const std::function<void()> m_goDown;
};

Qt::SortOrder opposite(Qt::SortOrder order) {
    return order == Qt::AscendingOrder ? Qt::DescendingOrder : Qt::AscendingOrder;
}

}  // namespace

ListPanel::ListPanel(ReportList& list, const Words& words, QWidget* parent)
    : QWidget(parent), m_list(list), m_words(words) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    m_top = new QBoxLayout(QBoxLayout::TopToBottom);
    layout->addLayout(m_top);
    buildSortMenu();
    buildFilter(words);
    buildTones();
    layout->addWidget(buildHidden());
    buildViews();
    layout->addWidget(m_listView, 1);
    layout->addWidget(m_tableView, 1);
    setLeastWidth();
    m_spin.setInterval(spinMilliseconds);
    connect(&m_spin, &QTimer::timeout, this, [this] {
        m_delegate->turn();
        m_listView->viewport()->update();
    });
    connect(&m_list, &ReportList::filtered, this, &ListPanel::refreshTones);
    connect(&m_list, &ReportList::filtered, this, &ListPanel::refreshHidden);
    connect(&m_list, &ReportList::sorted, this, &ListPanel::refreshSort);
    connect(&m_list, &ReportList::modelAboutToBeReset, this, &ListPanel::keepPlace);
    connect(&m_list, &ReportList::modelReset, this, [this] { showSelected(m_isAwaited); });
    refreshTones();
    refreshSort();
    setTable(false);
}

void ListPanel::buildFilter(const Words& words) {
    m_filter = new FilterLine([this] {
        if (m_list.rowCount() == 0) return;
        QAbstractItemView* view = shownView();
        view->setFocus(Qt::TabFocusReason);
        // Nothing is chosen yet: as with the arrow in the list, it is the first report.
        for (int row = 0; !view->currentIndex().isValid() && row < m_list.rowCount(); ++row) {
            if (!m_list.entry(m_list.index(row, 0)).isHeading()) view->setCurrentIndex(m_list.index(row, 0));
        }
    });
    m_filter->setObjectName(QStringLiteral("filter"));
    m_filter->setPlaceholderText(words("Filter"));
    m_filter->setAccessibleName(words("Filter the list"));
    m_filter->setClearButtonEnabled(true);
    m_filter->setAcceptDrops(false);  // what is dropped on the window is a message
    connect(m_filter, &QLineEdit::textChanged, this, [this](const QString& text) { m_list.setFilter(text); });
    auto* sort = new QToolButton;
    sort->setObjectName(QStringLiteral("sort"));
    sort->setText(QStringLiteral("⇅"));
    sort->setAccessibleName(words("Sort by"));
    sort->setToolTip(words("Sort by"));
    sort->setFocusPolicy(Qt::StrongFocus);
    sort->setPopupMode(QToolButton::InstantPopup);
    sort->setMenu(m_sortMenu);
    auto* row = new QHBoxLayout;
    row->addWidget(m_filter, 1);
    row->addWidget(sort);
    m_top->addLayout(row, 1);
}

QAbstractItemView* ListPanel::shownView() const {
    return m_tableView->isHidden() ? static_cast<QAbstractItemView*>(m_listView) : m_tableView;
}

void ListPanel::focusList() { shownView()->setFocus(Qt::OtherFocusReason); }

// What is being read stays when something else is looked for, but is not to be taken for what was found.
QWidget* ListPanel::buildHidden() {
    m_hidden = new QWidget;
    auto* row = new QHBoxLayout(m_hidden);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(new PlainText(m_words("The filter hides the message that is shown.")), 1,
                   Qt::AlignVCenter);
    auto* all = new Button(m_words("List All"));
    connect(all, &QPushButton::clicked, this, [this] {
        m_filter->clear();
        m_list.setTones({});
        showSelected(true);
        focusList();
    });
    row->addWidget(all);
    m_hidden->hide();
    return m_hidden;
}

void ListPanel::refreshHidden() {
    const bool isHidden = m_selected && m_list.isPassedOver(*m_selected);
    if (isHidden == !m_hidden->isHidden()) return;
    m_hidden->setVisible(isHidden);
    m_hidden->setAccessibleName(isHidden ? m_words("The filter hides the message that is shown.")
                                         : QString());
}

void ListPanel::buildTones() {
    m_toneRow = new QWidget;
    m_toneGrid = new QGridLayout(m_toneRow);
    m_toneGrid->setContentsMargins(0, 0, 0, 0);
    m_toneGrid->setSpacing(fontMetrics().height() / 6);
    m_toneGrid->setColumnStretch(static_cast<int>(m_tones.size()), 1);
    for (std::size_t i = 0; i < m_tones.size(); ++i) {
        auto* button = m_tones[i] = new QToolButton(m_toneRow);
        button->setCheckable(true);
        button->setFocusPolicy(Qt::StrongFocus);
        connect(button, &QToolButton::toggled, this, [this, tone = tonesInOrder[i]](bool isOn) {
            std::set<Tone> tones = m_list.choice().tones;
            isOn ? void(tones.insert(tone)) : void(tones.erase(tone));
            m_list.setTones(std::move(tones));
        });
    }
    m_top->addWidget(m_toneRow);
}

// One beside the other where they fit, else in two lines.
void ListPanel::placeTones() {
    const bool isAbove = m_top->direction() == QBoxLayout::TopToBottom;
    int across = 0, shown = 0;
    for (const QToolButton* each : m_tones) {
        if (each->isHidden()) continue;
        across += each->sizeHint().width() + m_toneGrid->spacing();
        ++shown;
    }
    const int columns = !isAbove || across <= width() ? std::max(shown, 1) : 2;
    int place = 0;
    for (QToolButton* each : m_tones) {
        if (each->isHidden()) continue;
        m_toneGrid->addWidget(each, place / columns, place % columns);
        ++place;
    }
}

void ListPanel::buildSortMenu() {
    m_sortMenu = new QMenu(m_words("Sort by"), this);
    m_sortColumns = new QActionGroup(m_sortMenu);
    const auto add = [this](int column, const QString& title) {
        QAction* action = m_sortMenu->addAction(title);
        action->setCheckable(true);
        action->setData(column);
        m_sortColumns->addAction(action);
        connect(action, &QAction::triggered, this,
                [this, column] { m_list.sort(column, usualOrder(column)); });
    };
    add(checkedColumn, m_words("Time of the Check"));
    add(verdictColumn, m_words("Verdict"));
    add(fromColumn, m_words("Sender"));
    add(subjectColumn, m_words("Subject"));
    add(signedByColumn, m_words("Signing Domain"));
    add(dateColumn, m_words("Message’s Date"));
    add(fileColumn, m_words("File"));
    m_sortMenu->addSeparator();
    m_sortBackwards = m_sortMenu->addAction(m_words("Reverse Order"));
    m_sortBackwards->setCheckable(true);
    connect(m_sortBackwards, &QAction::triggered, this,
            [this] { m_list.sort(m_list.choice().column, opposite(m_list.sortOrder())); });
}

void ListPanel::buildViews() {
    const auto goBack = [this] { focusFilter(); };
    m_listView = new ReportsView<QListView>(m_words("No report matches the filter."), goBack);
    m_listView->setItemDelegate(m_delegate = new ReportListDelegate(m_listView));
    m_listView->setUniformItemSizes(true);
    m_listView->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_tableView = new ReportsView<QTreeView>(m_words("No report matches the filter."), goBack);
    m_tableView->setItemDelegate(new ReportTableDelegate(m_tableView));
    m_tableView->setUniformRowHeights(true);
    m_tableView->setRootIsDecorated(false);
    m_tableView->setItemsExpandable(false);
    m_tableView->setAllColumnsShowFocus(true);
    m_tableView->setAlternatingRowColors(true);
    for (QAbstractItemView* each :
         {static_cast<QAbstractItemView*>(m_listView), static_cast<QAbstractItemView*>(m_tableView)}) {
        each->setAccessibleName(m_words("Checked messages"));
        each->setModel(&m_list);
        each->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
        connectView(each);
    }
    QHeaderView* header = m_tableView->header();
    int place = 0;
    for (const auto& [column, width] : tableColumns)
        header->moveSection(header->visualIndex(column), place++);
    sizeColumns();
    header->setSortIndicator(m_list.choice().column, m_list.sortOrder());
    m_tableView->setSortingEnabled(true);
}

void ListPanel::connectView(QAbstractItemView* view) {
    view->setSelectionMode(QAbstractItemView::ExtendedSelection);
    view->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(view, &QWidget::customContextMenuRequested, this, [this, view](const QPoint& where) {
        // By the keyboard it comes where the pointer happens to be, perhaps over another row.
        const QModelIndex current = view->currentIndex();
        const bool isOverRow = view->indexAt(where).isValid();
        if (!current.isValid() && !isOverRow) return;
        emit menuWanted(
            view->viewport()->mapToGlobal(isOverRow ? where : view->visualRect(current).center()));
    });
    // For keyboards without a key for menus.
    auto* menuKey = new QShortcut(Qt::SHIFT | Qt::Key_F10, view);
    menuKey->setContext(Qt::WidgetShortcut);
    connect(menuKey, &QShortcut::activated, view, [view] {
        emit view->customContextMenuRequested(view->visualRect(view->currentIndex()).center());
    });
    connect(view->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this, view](const QModelIndex& current) {
                if (m_isSelecting || !view->isVisible() || !current.isValid()) return;
                if (m_selected == m_list.entry(current).id) return;  // `takeChoice` was first
                m_selected = m_list.entry(current).id;
                emit chosen(m_selected);
            });
    connect(view->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this, view] {
        if (!m_isSelecting && view->isVisible()) takeChoice(*view);
    });
    connect(view, &QAbstractItemView::activated, this, [this] {
        // Where one click is enough, it must not take the keyboard away from the list.
        if (!style()->styleHint(QStyle::SH_ItemView_ActivateItemOnSingleClick)) emit opened();
    });
}

void ListPanel::takeChoice(const QAbstractItemView& view) {
    std::vector<int> rows;
    for (const QItemSelectionRange& range : view.selectionModel()->selection()) {
        for (int row = range.top(); row <= range.bottom(); ++row) rows.push_back(row);
    }
    std::ranges::sort(rows);
    m_chosen.clear();
    for (const int row : rows) {
        const ListEntry& entry = m_list.entry(m_list.index(row, 0));
        if (!entry.isHeading()) m_chosen.push_back(entry.id);
    }
    // What is left of several is what is shown, whichever row the keyboard stands on.
    if (m_chosen.size() == 1 && m_selected != m_chosen.front()) {
        m_selected = m_chosen.front();
        emit chosen(m_selected);
    }
    emit choiceChanged();
}

/// The rows of what is chosen, as they are listed now; those that stand one below the other as one range.
QItemSelection ListPanel::chosenRows() const {
    const std::set<UUID> wanted(m_chosen.begin(), m_chosen.end());
    QItemSelection rows;
    int first = -1;
    for (int row = 0; row <= m_list.rowCount(); ++row) {
        const bool isWanted =
            row < m_list.rowCount() && wanted.contains(m_list.entry(m_list.index(row, 0)).id);
        if (isWanted && first < 0) first = row;
        if (isWanted || first < 0) continue;
        rows.select(m_list.index(first, 0), m_list.index(row - 1, listColumns - 1));
        first = -1;
    }
    return rows;
}

// What the filter hides is no longer chosen: a command would do to it what nobody sees.
void ListPanel::keepListed(const QItemSelection& rows) {
    std::vector<UUID> listed;
    for (const QItemSelectionRange& range : rows) {
        for (int row = range.top(); row <= range.bottom(); ++row)
            listed.push_back(m_list.entry(m_list.index(row, 0)).id);
    }
    if (listed.size() == m_chosen.size()) return;
    m_chosen = std::move(listed);
    emit choiceChanged();
}

void ListPanel::setLeastWidth() { setMinimumWidth(leastCharacters * fontMetrics().averageCharWidth()); }

// A person's own widths grow with the letters.
void ListPanel::sizeColumns() {
    const int letter = fontMetrics().averageCharWidth();
    for (const auto& [column, width] : tableColumns) {
        m_tableView->setColumnWidth(
            column, m_letter > 0 ? m_tableView->columnWidth(column) * letter / m_letter : width * letter);
    }
    m_letter = letter;
}

void ListPanel::setTable(bool isTable) {
    m_list.setHeadings(!isTable);
    m_top->setDirection(isTable ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
    QAbstractItemView* hidden = isTable ? static_cast<QAbstractItemView*>(m_listView) : m_tableView;
    QAbstractItemView* shown = isTable ? static_cast<QAbstractItemView*>(m_tableView) : m_listView;
    const bool hadKeyboard = hidden->hasFocus();
    placeTones();
    hidden->hide();
    shown->show();
    if (hadKeyboard) shown->setFocus();
    showSelected(true);
}

void ListPanel::restoreColumns(const QByteArray& state) {
    QHeaderView* header = m_tableView->header();
    const QSignalBlocker quiet(header);  // the order of the rows is another matter
    if (!header->restoreState(state)) return;
    header->setSortIndicator(m_list.choice().column, m_list.sortOrder());
    m_letter = fontMetrics().averageCharWidth();
}

void ListPanel::refreshTones() {
    m_toneRow->setVisible(m_list.allCount() >= fewReports || !m_list.choice().tones.empty());
    for (std::size_t i = 0; i < m_tones.size(); ++i) {
        const Tone tone = tonesInOrder[i];
        const auto count = static_cast<std::int64_t>(m_list.count(tone));
        const QString number = QString::fromStdString(m_words.reader.number(count));
        m_tones[i]->setText(toneSymbol(tone) + u' ' + number);
        const QString name = m_words("Show only “%1”: %2", toneWord(tone, m_words), number);
        m_tones[i]->setAccessibleName(name);
        m_tones[i]->setToolTip(name);
        const QSignalBlocker quiet(m_tones[i]);
        m_tones[i]->setChecked(m_list.choice().tones.contains(tone));
        // Some styles hardly show in dark colours that a button is pressed.
        QPalette colors = palette();
        if (m_tones[i]->isChecked()) {
            colors.setColor(QPalette::Button, colors.color(QPalette::Highlight));
            colors.setColor(QPalette::ButtonText, colors.color(QPalette::HighlightedText));
        }
        m_tones[i]->setPalette(colors);
        m_tones[i]->setVisible(count > 0 || m_tones[i]->isChecked());
    }
    placeTones();
}

void ListPanel::refreshSort() {
    for (QAction* each : m_sortColumns->actions()) each->setChecked(each->data() == m_list.choice().column);
    m_sortBackwards->setChecked(m_list.sortOrder() != usualOrder(m_list.choice().column));
    m_tableView->header()->setSortIndicator(m_list.choice().column, m_list.sortOrder());
    showSelected(true);
}

void ListPanel::keepPlace() {
    m_placeInList = m_listView->verticalScrollBar()->value();
    m_placeInTable = m_tableView->verticalScrollBar()->value();
}

void ListPanel::select(const std::optional<UUID>& id) {
    if (m_selected == id && m_list.indexOf(id.value_or(UUID{})).row() == m_listView->currentIndex().row())
        return refreshHidden();  // a person may have chosen it
    m_selected = id;
    m_chosen.clear();
    if (id) m_chosen.push_back(*id);
    showSelected(true);
}

// What merely comes and goes around it must not move the rows away under somebody who looks elsewhere.
void ListPanel::showSelected(bool isToBeSeen) {
    m_isSelecting = true;
    const QModelIndex index = m_selected ? m_list.indexOf(*m_selected) : QModelIndex();
    m_isAwaited = (isToBeSeen || m_isAwaited) && m_selected && !index.isValid();
    const std::pair<QAbstractItemView*, ListColumn> views[] = {{m_listView, subjectColumn},
                                                               {m_tableView, tableColumns[0].first}};
    const QItemSelection several = m_chosen.size() > 1 ? chosenRows() : QItemSelection();
    if (m_chosen.size() > 1) keepListed(several);
    for (const auto& [view, column] : views) {
        view->setAutoScroll(false);
        if (m_chosen.size() > 1) {
            view->selectionModel()->select(several, QItemSelectionModel::ClearAndSelect);
            view->selectionModel()->setCurrentIndex(index.siblingAtColumn(column),
                                                    QItemSelectionModel::NoUpdate);
        } else if (index.isValid()) {
            view->selectionModel()->setCurrentIndex(
                index.siblingAtColumn(column),
                QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        } else {
            view->selectionModel()->clear();
        }
        if (isToBeSeen && index.isValid() && view->isVisible()) view->scrollTo(index.siblingAtColumn(column));
        view->setAutoScroll(true);
    }
    if (!isToBeSeen) {
        m_listView->verticalScrollBar()->setValue(m_placeInList);
        m_tableView->verticalScrollBar()->setValue(m_placeInTable);
    }
    m_isSelecting = false;
    refreshHidden();
}

void ListPanel::focusFilter() {
    m_filter->setFocus(Qt::ShortcutFocusReason);
    m_filter->selectAll();
}

void ListPanel::setRunning(bool isRunning) {
    if (!isRunning) {
        m_spin.stop();
    } else if (!m_spin.isActive()) {
        m_spin.start();
    }
}

void ListPanel::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    placeTones();
}

void ListPanel::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (!m_tableView) return;  // not built yet
    if (event->type() == QEvent::FontChange) {
        sizeColumns();
        setLeastWidth();
        placeTones();
    }
    if (event->type() == QEvent::PaletteChange) refreshTones();
}

}  // namespace quillmark
