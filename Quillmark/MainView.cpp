#include "Quillmark/MainView.h"

#include <QAccessible>
#include <QAction>
#include <QApplication>
#include <QBoxLayout>
#include <QClipboard>
#include <QDragEnterEvent>
#include <QGridLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMimeData>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QSplitter>
#include <QStackedWidget>
#include <QTextDocument>
#include <QTextOption>
#include <QToolButton>
#include <QTreeView>

#include "Quillmark/ListPanel.h"
#include "Quillmark/MailboxView.h"
#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"
#include "Quillmark/ReportView.h"
#include "WindowBaseline/EditActions.h"
#include "WindowBaseline/HelpMenu.h"
#include "WindowBaseline/Mnemonics.h"

namespace quillmark {

namespace {

/// Lights the whole window up while something that may be a message is dragged over it.
class DropLight : public QWidget {
public:
    DropLight(const QString& text, QWidget* parent) : QWidget(parent), m_text(text) {
        setAttribute(Qt::WA_TransparentForMouseEvents);
        hide();
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        QColor ground = palette().color(QPalette::Base);
        ground.setAlphaF(0.85F);
        painter.fillRect(rect(), ground);
        const int line = fontMetrics().height();
        painter.setPen(QPen(palette().color(QPalette::Highlight), line / 4.0));
        painter.drawRoundedRect(rect().adjusted(line / 2, line / 2, -line / 2, -line / 2), line, line);
        QFont large = font();
        large.setPointSizeF(large.pointSizeF() * 1.8);
        large.setBold(true);
        painter.setFont(large);
        painter.setPen(palette().color(QPalette::Text));
        painter.drawText(rect(), Qt::AlignCenter, m_text);
    }

private:
    QString m_text;
};

/// The frame of the area for drops: a dashed line.
class DropFrame : public QWidget {
protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        QColor color = palette().color(QPalette::WindowText);
        color.setAlphaF(0.5F);
        const int line = fontMetrics().height();
        painter.setPen(QPen(color, 2, Qt::DashLine));
        painter.drawRoundedRect(rect().adjusted(line, line, -line, -line), line, line);
    }
};

constexpr const char* sizesKeys[] = {"list", "table"};
constexpr int progressSteps = 1000;
constexpr int busyColumn = 2;      // of the top row
constexpr int doneShown = 20'000;  // milliseconds

constexpr const char* scaleProperty = "textScale";

/// Makes a text so many times as large as the application's letters, of which a font of its own would not
/// follow the size.
void scale(QWidget& text, double factor) {
    QFont font = text.font();
    font.setPointSizeF(QApplication::font().pointSizeF() * factor);
    text.setFont(font);
    text.setProperty(scaleProperty, factor);
}

void setScaledFont(QWidget& text, double factor, QFont::Weight weight) {
    QFont font = text.font();
    font.setWeight(weight);
    text.setFont(font);
    scale(text, factor);
}

QLabel* plainLabel(const QString& text, double scale, QFont::Weight weight) {
    auto* label = new QLabel(text);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignCenter);
    setScaledFont(*label, scale, weight);
    return label;
}

/// For texts with somebody else's names in them, of which a label would be as wide as the longest word.
PlainText* centeredText(double scale, QFont::Weight weight) {
    auto* text = new PlainText({});
    QTextOption option = text->document()->defaultTextOption();
    option.setAlignment(Qt::AlignHCenter);
    text->document()->setDefaultTextOption(option);
    setScaledFont(*text, scale, weight);
    return text;
}

}  // namespace

MainView::MainView(ReportList& list, const Words& words, QWidget* parent)
    : QMainWindow(parent), m_list(list), m_words(words) {
    setWindowTitle(m_words("Quillmark"));
    setAcceptDrops(true);
    describePartsToReaders();
    buildMenus();

    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->addWidget(buildTopRow());
    layout->addWidget(buildProblemLine());
    m_splitter = new QSplitter;
    m_splitter->setChildrenCollapsible(false);
    // From right to left Qt puts the parts one pixel too far.
    if (isRightToLeft()) m_splitter->setContentsMargins(0, 0, 1, 0);
    m_splitter->addWidget(buildListSide());
    m_splitter->addWidget(buildReportSide());
    m_splitter->setStretchFactor(1, 1);
    connect(m_splitter, &QSplitter::splitterMoved, this, [this] { m_areSizesTheirs = true; });
    layout->addWidget(m_splitter, 1);
    layout->addWidget(buildDoneLine());
    layout->addWidget(buildUnsavedLine());
    setCentralWidget(page);
    m_dropLight = new DropLight(m_words("Drop to check"), this);
    resize(QSize(1000, 700).boundedTo(screen()->availableSize() * 0.9));
    setTable(false);
    refreshListSide();
    setProblem({});
    setUnsaved({});
    offerUndo({}, false);
    setRunning({});
    offerMailbox({});
    showDropArea();
    findChild<QPushButton*>(QStringLiteral("openHere"))->setFocus();  // where one begins
    for (QAction* each : menuBar()->actions()) window_baseline::giveMnemonics(*each->menu());
    window_baseline::giveMnemonics(*this);
    connect(m_reportView, &ReportView::contentChanged, this,
            [this] { window_baseline::giveMnemonics(*this); });
}

QAction* MainView::add(QMenu* menu, Command command, const QString& title, const QKeySequence& key) {
    QAction* action = menu->addAction(title);
    action->setShortcut(key);
    connect(action, &QAction::triggered, this, [this, command] { emit commanded(command); });
    m_actions[static_cast<std::size_t>(command)] = action;
    return action;
}

void MainView::buildMenus() {
    QMenu* file = menuBar()->addMenu(m_words("&File"));
    add(file, Command::open, m_words("Open…"), QKeySequence::Open);
    add(file, Command::openFolder, m_words("Open Folder…"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O));
    add(file, Command::paste, m_words("Paste Source…"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_V));
    file->addSeparator();
    add(file, Command::recoverHistory, m_words("Recover Damaged History…"));
    file->addSeparator();
    add(file, Command::closeWindow, m_words("Close Window"), QKeySequence(Qt::CTRL | Qt::Key_W));
    add(file, Command::quit, m_words("Quit"), QKeySequence(Qt::CTRL | Qt::Key_Q))
        ->setMenuRole(QAction::QuitRole);

    QMenu* edit = menuBar()->addMenu(m_words("&Edit"));
    m_edit = new window_baseline::EditActions({m_words("Undo"), m_words("Redo"), m_words("Cut"),
                                               m_words("Copy"), m_words("Paste"), m_words("Select All")},
                                              edit, this);
    connect(m_edit, &window_baseline::EditActions::pastedElsewhere, this, [this] {
        if (const QMimeData* copied = QApplication::clipboard()->mimeData())
            emit received(dropContents(*copied));
    });
    connect(m_edit, &window_baseline::EditActions::undoneElsewhere, this, &MainView::undoWanted);
    connect(m_edit, &window_baseline::EditActions::copiedElsewhere, this,
            [this] { action(Command::copyReport)->trigger(); });
    edit->addSeparator();
    add(edit, Command::find, m_words("Find"), QKeySequence::Find);
    add(edit, Command::settings, m_words("Settings…"), QKeySequence(Qt::CTRL | Qt::Key_Comma))
        ->setMenuRole(QAction::PreferencesRole);

    QMenu* view = menuBar()->addMenu(m_words("&View"));
    QAction* toggle = add(view, Command::toggleList, m_words("Show List"), QKeySequence(Qt::Key_F9));
    toggle->setCheckable(true);
    toggle->setChecked(true);
    connect(toggle, &QAction::toggled, this, &MainView::refreshListSide);
    connect(&m_list, &ReportList::entriesChanged, this, &MainView::refreshListSide);
    QAction* table =
        add(view, Command::showTable, m_words("Show as Table"), QKeySequence(Qt::CTRL | Qt::Key_T));
    table->setCheckable(true);
    connect(table, &QAction::toggled, this, &MainView::setTable);
    m_sortMenu = view->addMenu(m_words("Sort by"));
    view->addSeparator();
    add(view, Command::expandAll, m_words("Expand All Details"),
        QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_D));
    add(view, Command::foldAll, m_words("Fold All Details"));
    view->addSeparator();
    add(view, Command::zoomIn, m_words("Zoom In"), QKeySequence::ZoomIn);
    add(view, Command::zoomOut, m_words("Zoom Out"), QKeySequence::ZoomOut);
    add(view, Command::actualSize, m_words("Actual Size"), QKeySequence(Qt::CTRL | Qt::Key_0));

    QMenu* report = menuBar()->addMenu(m_words("&Report"));
    report->setToolTipsVisible(true);
    add(report, Command::recheck, m_words("Re-check"), QKeySequence(Qt::CTRL | Qt::Key_R));
    add(report, Command::cancelChecks, m_words("Stop Checking"), QKeySequence(Qt::CTRL | Qt::Key_Period));
    add(report, Command::expected, m_words("Is It from Whom I E&xpected?"),
        QKeySequence(Qt::CTRL | Qt::Key_I));
    report->addSeparator();
    add(report, Command::whatWasSigned, m_words("&What Was Signed…"), QKeySequence(Qt::CTRL | Qt::Key_D));
    add(report, Command::messageAsText, m_words("Message as &Text…"), QKeySequence(Qt::CTRL | Qt::Key_U));
    report->addSeparator();
    add(report, Command::exportPDF, m_words("Export as PDF…"), QKeySequence(Qt::CTRL | Qt::Key_E));
    add(report, Command::exportText, m_words("Export as Text…"),
        QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_E));
    add(report, Command::exportEvidence, m_words("Export Evidence…"));
    add(report, Command::exportPage, m_words("Export as Web Page…"));
    add(report, Command::exportTable, m_words("Export as Table…"));
    add(report, Command::exportJSON, m_words("Export as JSON…"));
    add(report, Command::copyReport, m_words("Copy Report as Text"),
        QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_C));
    add(report, Command::copyPage, m_words("Copy One &Page for Others"));
    report->addSeparator();
    add(report, Command::removeFromList, m_words("Remove from List"), QKeySequence::Delete);
    add(report, Command::removeFromHistory, m_words("Remove from History"));

    const auto topic = [this](Command command, const QString& title, const QKeySequence& key = {}) {
        return window_baseline::HelpTopic{title, [this, command] { emit commanded(command); }, key};
    };
    const QMenu* help = window_baseline::addHelpMenu(
        menuBar(), m_words("&Help"),
        {topic(Command::helpChecks, m_words("How Checks Work"), QKeySequence::HelpContents),
         topic(Command::helpMessage, m_words("Getting a Message")),
         topic(Command::helpLimits, m_words("What Can’t Be Proven")),
         topic(Command::helpShortcuts, m_words("Keyboard Shortcuts"))},
        topic(Command::about, m_words("About Quillmark")));
    std::size_t next = static_cast<std::size_t>(Command::helpChecks);
    for (QAction* each : help->actions()) {
        if (!each->isSeparator()) m_actions[next++] = each;
    }
}

QWidget* MainView::buildTopRow() {
    m_topRow = new QWidget;
    m_topGrid = new QGridLayout(m_topRow);
    m_topGrid->setContentsMargins(0, 0, 0, 0);
    m_topGrid->setColumnStretch(busyColumn, 1);
    const auto button = [&](const QString& text, Command command) {
        auto* each = new Button(text);
        connect(each, &QPushButton::clicked, action(command), &QAction::trigger);
        return each;
    };
    m_topGrid->addWidget(button(m_words("Open…"), Command::open), 0, 0);
    m_topGrid->addWidget(button(m_words("Paste…"), Command::paste), 0, 1);

    m_busyRow = new QWidget;
    auto* busy = new QHBoxLayout(m_busyRow);
    busy->setContentsMargins(0, 0, 0, 0);
    m_progress = new QProgressBar;
    m_progress->setRange(0, 0);
    m_progress->setTextVisible(false);
    m_progress->setMinimumWidth(0);
    m_progress->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    m_progress->setMaximumHeight(fontMetrics().height() / 3);
    m_progress->setAccessibleName(m_words("Checks are running"));
    m_busyText = new QLabel;
    m_busyText->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    m_busyText->setMinimumWidth(1);
    auto* stop = new Button(m_words("Stop"));
    stop->setAccessibleName(m_words("Stop Checking"));
    connect(stop, &QPushButton::clicked, action(Command::cancelChecks), &QAction::trigger);
    busy->addWidget(m_busyText);
    busy->addWidget(m_progress, 1);
    busy->addWidget(stop);
    m_topGrid->addWidget(m_busyRow, 0, busyColumn);

    auto* exports = new Button(m_words("Export"));
    auto* menu = new QMenu(exports);
    for (const Command each :
         {Command::exportPDF, Command::exportText, Command::exportEvidence, Command::exportPage,
          Command::exportTable, Command::exportJSON, Command::copyReport, Command::copyPage}) {
        menu->addAction(action(each));
    }
    exports->setMenu(menu);
    m_topGrid->addWidget(exports, 0, busyColumn + 1);
    return m_topRow;
}

// Between the buttons where its words fit there, else in a line of its own below them.
void MainView::placeBusyRow() {
    int needed = m_busyRow->sizeHint().width() + 3 * fontMetrics().height();
    for (const QPushButton* each :
         m_topRow->findChildren<QPushButton*>(QString(), Qt::FindDirectChildrenOnly))
        needed += each->sizeHint().width() + m_topGrid->spacing();
    const bool fits = needed <= m_topRow->width();
    int row = 0, column = 0, rows = 0, columns = 0;
    m_topGrid->getItemPosition(m_topGrid->indexOf(m_busyRow), &row, &column, &rows, &columns);
    if (fits == (row == 0)) return;
    if (fits) {
        m_topGrid->addWidget(m_busyRow, 0, busyColumn);
    } else {
        m_topGrid->addWidget(m_busyRow, 1, 0, 1, busyColumn + 2);
    }
}

QWidget* MainView::buildProblemLine() {
    auto* card = new Card(Tone::caution);
    auto* layout = new QHBoxLayout(card);
    layout->addWidget(new ToneBadge(Tone::caution, 1.3, m_words), 0, Qt::AlignTop);
    m_problemText = new PlainText({});
    layout->addWidget(m_problemText, 1);
    m_recover = new Button(m_words("Recover Reports"));
    connect(m_recover, &QPushButton::clicked, this, &MainView::recoveryWanted);
    layout->addWidget(m_recover, 0, Qt::AlignTop);
    auto* close = new QToolButton;
    close->setText(QStringLiteral("✕"));
    close->setAutoRaise(true);
    close->setFocusPolicy(Qt::StrongFocus);
    close->setAccessibleName(m_words("Dismiss"));
    close->setToolTip(m_words("Dismiss"));
    connect(close, &QToolButton::clicked, this, &MainView::problemDismissed);
    layout->addWidget(close, 0, Qt::AlignTop);
    return m_problemLine = card;
}

QWidget* MainView::buildUnsavedLine() {
    m_unsavedLine = new QWidget;
    auto* layout = new QHBoxLayout(m_unsavedLine);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(new ToneBadge(Tone::caution, 1.0, m_words), 0, Qt::AlignTop);
    m_unsavedText = new PlainText({});
    m_unsavedText->setObjectName("unsaved");
    layout->addWidget(m_unsavedText, 1);
    return m_unsavedLine;
}

QWidget* MainView::buildDoneLine() {
    m_doneLine = new QWidget;
    m_doneLine->setObjectName(QStringLiteral("doneLine"));
    auto* layout = new QHBoxLayout(m_doneLine);
    layout->setContentsMargins(0, 0, 0, 0);
    m_doneText = new PlainText({});
    layout->addWidget(m_doneText, 1, Qt::AlignVCenter);
    m_undo = new Button(m_words("Undo"));
    connect(m_undo, &QPushButton::clicked, this, [this] {
        m_listSide->focusList();  // the button goes
        emit undoWanted();
    });
    layout->addWidget(m_undo);
    m_doneTimer.setSingleShot(true);
    m_doneTimer.setInterval(doneShown);
    connect(&m_doneTimer, &QTimer::timeout, this, [this] {
        // Nobody's button goes away under their hands.
        m_doneLine->isAncestorOf(focusWidget()) ? m_doneTimer.start() : showDone({}, false);
    });
    return m_doneLine;
}

void MainView::showDone(const QString& line, bool isUndone) {
    m_doneText->setContents(line);
    m_undo->setVisible(isUndone);
    m_doneLine->setVisible(!line.isEmpty());
    m_doneLine->setAccessibleName(withoutIsolation(line));
    m_doneTimer.start();
}

// The command stays in the menu when the line has gone.
void MainView::offerUndo(const QString& line, bool canUndo) {
    m_edit->setCanUndoElsewhere(canUndo);
    showDone(line, true);
}

void MainView::tell(const QString& line) { showDone(line, false); }

void MainView::showMenu(const QPoint& where) {
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->setToolTipsVisible(true);
    for (const auto& group :
         {std::vector{Command::recheck, Command::messageAsText, Command::whatWasSigned},
          {Command::copyReport, Command::copyPage, Command::exportPDF, Command::exportText,
           Command::exportPage, Command::exportTable, Command::exportJSON},
          {Command::removeFromList, Command::removeFromHistory}}) {
        if (!menu->isEmpty()) menu->addSeparator();
        for (const Command each : group) {
            if (action(each)->isEnabled()) menu->addAction(action(each));
        }
    }
    menu->popup(where);
}

QWidget* MainView::buildListSide() {
    m_listSide = new ListPanel(m_list, m_words);
    connect(m_listSide, &ListPanel::chosen, this, &MainView::chosen);
    connect(m_listSide, &ListPanel::opened, this, &MainView::openShown);
    connect(m_listSide, &ListPanel::menuWanted, this, &MainView::showMenu);
    m_sortMenu->addActions(m_listSide->sortMenu()->actions());
    return m_listSide;
}

QWidget* MainView::buildReportSide() {
    m_pages = new QStackedWidget;
    m_reportView = new ReportView(m_words);
    auto* running = new QWidget;
    auto* layout = new QVBoxLayout(running);
    layout->addStretch(1);
    layout->addWidget(m_waitingName = centeredText(1.2, QFont::DemiBold));
    layout->addWidget(m_waitingText = plainLabel({}, 1.0, QFont::Normal));
    layout->addStretch(1);
    m_pages->addWidget(buildDropArea());
    m_pages->addWidget(running);
    m_pages->addWidget(m_reportView);
    m_pages->addWidget(m_mailboxView = new MailboxView(m_words));
    connect(m_mailboxView, &MailboxView::counted, this, [this](const QString& spoken) {
        if (m_pages->currentWidget() == m_mailboxView) announce(spoken);
    });
    m_back = new QToolButton;
    m_back->setObjectName(QStringLiteral("back"));
    m_back->setArrowType(isRightToLeft() ? Qt::RightArrow : Qt::LeftArrow);
    m_back->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_back->setAutoRaise(true);
    m_back->setFocusPolicy(Qt::StrongFocus);
    connect(m_back, &QToolButton::clicked, this, &MainView::mailboxWanted);
    auto* side = new QWidget;
    auto* rows = new QVBoxLayout(side);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(0);
    rows->addWidget(m_back, 0, Qt::AlignLeft);
    rows->addWidget(m_pages, 1);
    return side;
}

QWidget* MainView::buildDropArea() {
    auto* area = new DropFrame;
    auto* layout = new QVBoxLayout(area);
    const int line = fontMetrics().height();
    layout->setContentsMargins(3 * line, 2 * line, 3 * line, 2 * line);
    layout->setSpacing(line);
    layout->addStretch(1);
    m_refusalBadge = new ToneBadge(Tone::caution, 2.5, m_words);
    layout->addWidget(m_refusalBadge, 0, Qt::AlignHCenter);
    layout->addWidget(m_dropTitle = plainLabel({}, 1.8, QFont::Bold));
    layout->addWidget(m_refusal = centeredText(1.2, QFont::Normal));
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    for (const auto& [text, command] :
         {std::pair(m_words("Open…"), Command::open), std::pair(m_words("Paste…"), Command::paste)}) {
        auto* each = new Button(text);
        connect(each, &QPushButton::clicked, action(command), &QAction::trigger);
        buttons->addWidget(each);
        if (command == Command::open) each->setObjectName(QStringLiteral("openHere"));
    }
    buttons->addStretch(1);
    layout->addLayout(buttons);
    layout->addWidget(buildClipboardLine());
    QLabel* ways = plainLabel(
        m_words("Drag a message out of your mail program, or save it there as a file (.eml or mbox). "
                "You can also copy a message’s source and paste it."),
        1.0, QFont::Normal);
    auto* narrow = new QHBoxLayout;
    narrow->addStretch(1);
    narrow->addWidget(ways, 6);
    narrow->addStretch(1);
    layout->addLayout(narrow);
    auto* steps = new Button(m_words("Steps for Your Mail Program…"));
    connect(steps, &QPushButton::clicked, action(Command::helpMessage), &QAction::trigger);
    layout->addWidget(steps, 0, Qt::AlignHCenter);
    layout->addStretch(1);
    return area;
}

QWidget* MainView::buildClipboardLine() {
    m_clipboardLine = new QWidget;
    auto* layout = new QHBoxLayout(m_clipboardLine);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addStretch(1);
    layout->addWidget(new QLabel(m_words("The clipboard holds a message.")));
    auto* check = new Button(m_words("Check It"));
    check->setObjectName(QStringLiteral("checkClipboard"));
    check->setAccessibleDescription(m_words("The clipboard holds a message."));
    connect(check, &QPushButton::clicked, this, &MainView::clipboardWanted);
    layout->addWidget(check);
    layout->addStretch(1);
    m_clipboardLine->hide();
    return m_clipboardLine;
}

bool MainView::isDropAreaShown() const { return m_pages->currentIndex() == 0; }

void MainView::offerClipboard(bool holdsMessage) { m_clipboardLine->setVisible(holdsMessage); }

// An empty list beside the area for drops would only take its place.
void MainView::refreshListSide() {
    m_listSide->setVisible(action(Command::toggleList)->isChecked() && m_list.allCount() > 0);
}

QListView* MainView::listView() const { return m_listSide->listView(); }

// The list stands beside the report, a table above it.
void MainView::setTable(bool isTable) {
    keepSizes();
    m_listSide->setTable(isTable);
    m_splitter->setOrientation(isTable ? Qt::Vertical : Qt::Horizontal);
    const QList<int>& kept = m_sizes[isTable ? 1 : 0];
    if (!kept.isEmpty()) return m_splitter->setSizes(kept);
    const int letter = fontMetrics().averageCharWidth();
    const int list = std::min(38 * letter, width() / 3);  // the report has large letters, too
    m_splitter->setSizes(isTable ? QList<int>{2 * height() / 5, 3 * height() / 5}
                                 : QList<int>{list, width() - list});
}

// Only a person's own: the usual ones depend on the window.
void MainView::keepSizes() {
    if (m_areSizesTheirs) m_sizes[m_splitter->orientation() == Qt::Vertical ? 1 : 0] = m_splitter->sizes();
    m_areSizesTheirs = false;
}

QVariantMap MainView::sizes() {
    keepSizes();
    QVariantMap all{{QStringLiteral("columns"), m_listSide->tableView()->header()->saveState()}};
    for (std::size_t i = 0; i < m_sizes.size(); ++i) {
        QVariantList parts;
        for (const int each : m_sizes[i]) parts << each;
        all.insert(QString::fromLatin1(sizesKeys[i]), parts);
    }
    return all;
}

void MainView::setSizes(const QVariantMap& sizes) {
    for (std::size_t i = 0; i < m_sizes.size(); ++i) {
        const QVariantList parts = sizes.value(QString::fromLatin1(sizesKeys[i])).toList();
        if (parts.size() == 2) m_sizes[i] = {parts[0].toInt(), parts[1].toInt()};
    }
    m_listSide->restoreColumns(sizes.value(QStringLiteral("columns")).toByteArray());
    setTable(m_splitter->orientation() == Qt::Vertical);
}

void MainView::setProblem(const QString& line, bool isRecoverable) {
    m_recover->setVisible(isRecoverable);
    m_problemText->setContents(line);
    m_problemLine->setAccessibleName(line);
    m_problemLine->setVisible(!line.isEmpty());
    if (line.isEmpty()) return;
    QAccessibleEvent event(m_problemLine, QAccessible::Alert);
    QAccessible::updateAccessibility(&event);
}

QString MainView::problem() const { return m_problemText->toPlainText(); }

void MainView::setUnsaved(const QString& line) {
    m_unsavedText->setContents(line);
    m_unsavedLine->setAccessibleName(line);
    m_unsavedLine->setVisible(!line.isEmpty());
}

void MainView::setRunning(const Running& running) {
    m_busyRow->setVisible(running.count > 0);
    m_listSide->setRunning(running.count > 0);
    action(Command::cancelChecks)->setEnabled(running.count > 0);
    m_progress->setRange(0, running.part > 0 ? progressSteps : 0);
    m_progress->setValue(static_cast<int>(running.part * progressSteps));
    m_busyText->setText(running.found > 0
                            ? m_words.translateCount("%n message checked so far…",
                                                     "%n messages checked so far…",
                                                     static_cast<std::int64_t>(running.found))
                            : m_words.translateCount("Checking %n message…", "Checking %n messages…",
                                                     static_cast<std::int64_t>(running.count)));
    placeBusyRow();
}

void MainView::select(const std::optional<UUID>& id) { m_listSide->select(id); }

void MainView::showReport(const ReportContent& content) {
    const bool takesKeyboard = isWaitingFor(m_reportView);
    m_reportView->setContent(content);
    m_pages->setCurrentWidget(m_reportView);
    announce(m_reportView->spokenVerdict());
    if (takesKeyboard) m_reportView->focusVerdict();
}

// Qt sends screen readers no alerts, but the names of what is there when they change.
void MainView::announce(const QString& text) {
    const QString spoken = withoutIsolation(text);
    if (m_pages->accessibleName() != spoken) m_pages->setAccessibleName(spoken);
}

// Whoever opened a message and went nowhere else waits for its verdict: what they did it with is not needed
// now.
bool MainView::isWaitingFor(const QWidget* page) const {
    if (m_pages->currentWidget() == page) return false;
    const QWidget* focus = focusWidget();
    return !focus || focus == m_back || m_pages->isAncestorOf(focus) || m_topRow->isAncestorOf(focus);
}

void MainView::showMailbox(MailboxContent content) {
    const bool takesKeyboard = isWaitingFor(m_mailboxView);
    m_mailboxView->setContent(std::move(content));
    m_pages->setCurrentWidget(m_mailboxView);
    if (takesKeyboard) m_mailboxView->focusHead();
}

void MainView::offerMailbox(const QString& name) {
    const QString text = m_words("Back to %1", name);
    m_back->setAccessibleName(withoutIsolation(text));
    m_back->setText(QString(text).replace(u'&', QStringLiteral("&&")));
    m_back->setShortcut(QKeySequence::Back);  // which a text takes away
    m_back->setToolTip(m_back->shortcut().toString(QKeySequence::NativeText));
    m_back->setVisible(!name.isEmpty());
}

// Where there is nothing to be read yet the keyboard stays in the list.
void MainView::openShown() {
    if (m_pages->currentWidget() == m_reportView) m_reportView->focusVerdict();
    if (m_pages->currentWidget() == m_mailboxView) m_mailboxView->focusHead();
}

void MainView::showDropArea() { showRefusal({}); }

void MainView::showRefusal(const QString& line) {
    m_dropTitle->setText(line.isEmpty() ? m_words("Drop an email here") : m_words("Not checked"));
    m_refusal->setContents(line);
    for (QWidget* each : {m_refusalBadge, static_cast<QWidget*>(m_refusal)}) each->setHidden(line.isEmpty());
    m_pages->setCurrentIndex(0);
    announce(line.isEmpty() ? m_dropTitle->text() : m_dropTitle->text() + QStringLiteral(". ") + line);
}

void MainView::showWithoutReport(const QString& name, const QString& text) {
    m_waitingName->setContents(name);
    m_waitingText->setText(text);
    m_pages->setCurrentIndex(1);
    announce(name + QStringLiteral(". ") + text);
}

void MainView::focusFilter() {
    action(Command::toggleList)->setChecked(true);
    m_listSide->focusFilter();
}

std::vector<std::pair<QString, QString>> MainView::shortcuts() const {
    std::vector<std::pair<QString, QString>> all;
    for (const QAction* menu : menuBar()->actions()) {
        for (const QAction* each : menu->menu()->actions()) {
            if (each->shortcut().isEmpty()) continue;
            all.emplace_back(each->text().remove(u'&'), each->shortcut().toString(QKeySequence::NativeText));
        }
    }
    return all;
}

void MainView::light(bool on) {
    m_dropLight->setGeometry(rect());
    m_dropLight->raise();
    m_dropLight->setVisible(on);
}

void MainView::dragEnterEvent(QDragEnterEvent* event) {
    if (!mayHoldMessage(*event->mimeData())) return;
    // The message stays where it is: a move would let the mail program delete it.
    event->setDropAction(Qt::CopyAction);
    event->accept();
    light(true);
}

void MainView::dragLeaveEvent(QDragLeaveEvent*) { light(false); }

void MainView::dropEvent(QDropEvent* event) {
    light(false);
    event->setDropAction(Qt::CopyAction);
    event->accept();
    emit received(dropContents(*event->mimeData()));
}

void MainView::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    if (event->type() != QEvent::FontChange) return;
    for (QWidget* each : findChildren<QWidget*>()) {
        const QVariant factor = each->property(scaleProperty);
        if (factor.isValid()) scale(*each, factor.toDouble());
    }
}

// From what is shown back to the list, as Enter comes from there.
void MainView::keyPressEvent(QKeyEvent* event) {
    const bool isInside = m_pages->isAncestorOf(focusWidget());
    if (event->key() == Qt::Key_Escape && isInside && m_listSide->isVisible()) return m_listSide->focusList();
    QMainWindow::keyPressEvent(event);
}

void MainView::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    if (!m_dropLight) return;  // not built yet
    m_dropLight->setGeometry(rect());
    placeBusyRow();
}

}  // namespace quillmark
