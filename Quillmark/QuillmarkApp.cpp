#include "Quillmark/QuillmarkApp.h"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QFileInfo>
#include <QMenu>
#include <QMimeData>
#include <QSettings>
#include <QUrl>
#include <algorithm>

#include "Quillmark/HelpView.h"
#include "Quillmark/KeyBookView.h"
#include "Quillmark/KnownSenders.h"
#include "Quillmark/ListPanel.h"
#include "Quillmark/MessageTextView.h"
#include "Quillmark/PDFExport.h"
#include "Quillmark/Panels.h"
#include "Quillmark/PasteView.h"
#include "Quillmark/ReportView.h"
#include "Quillmark/SettingsView.h"
#include "Quillmark/WelcomeView.h"
#include "QuillmarkKit/Lookups/Evidence.h"
#include "QuillmarkKit/ReportCSV.h"
#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/Files.h"
#include "QuillmarkKit/Support/Text.h"
#include "Settings/HandedMessage.h"
#include "Settings/UserFolders.h"
#include "WindowBaseline/CloseGuard.h"
#include "WindowBaseline/WindowReader.h"
#include "Wording/Direction.h"
#include "Wording/HistoryWording.h"
#include "Wording/MailboxReport.h"
#include "Wording/NoteSentences.h"
#include "Wording/Quoted.h"
#include "Wording/TextReport.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

/// How long the end waits for exports that wait for a process themselves, in milliseconds.
constexpr int patienceWithExports = 5'000;
/// After the list was made anew it is left alone for so many times as long, at most for so many milliseconds.
constexpr qint64 restAfterList = 8, longestRest = 200;
constexpr std::size_t longestInBack = 60;  // bytes
constexpr double leastZoom = 0.7, mostZoom = 2.5, zoomStep = 1.1;
constexpr const char *zoomKey = "zoom", *tableKey = "table", *sizesKey = "sizes";

QString fromPath(const std::string& path) { return QString::fromLocal8Bit(path.c_str()); }

/// What is to be known of a mailbox that was stopped.
QString stopRemark(const StoppedMailbox& stopped, const Words& words) {
    return stoppedAfter(stopped.checked, stopped.all, words) + u'\n' +
           words("What it didn’t reach wasn’t checked. Open it again to check all of it.");
}

/// The notes of signatures that hold again.
std::vector<const ReportNote*> undoneNotes(const ProofReport& report) {
    std::vector<const ReportNote*> notes;
    for (const ReportNote& note : report.notes) {
        if (std::holds_alternative<ReportNote::Undone>(note.value)) notes.push_back(&note);
    }
    return notes;
}

}  // namespace

QuillmarkApp::QuillmarkApp(AppModel& model, Surroundings surroundings, const Words& words)
    : m_model(model),
      m_surroundings(std::move(surroundings)),
      m_words(words),
      m_list(m_surroundings.now, words),
      m_window(m_list, words),
      m_font(QApplication::font()) {
    m_window.setWindowIcon(programIcon());
    m_window.installEventFilter(this);
    m_window.action(Command::removeFromHistory)->setAutoRepeat(false);  // a key held down must not empty it
    new window_baseline::CloseGuard(&m_window, [this] {
        m_model.cancelAll();
        return true;
    });
    new window_baseline::WindowReader(&m_window, *m_surroundings.settings, "window");
    zoom(m_surroundings.settings->value(QLatin1String(zoomKey), 1.0).toDouble());
    m_window.action(Command::showTable)
        ->setChecked(m_surroundings.settings->value(QLatin1String(tableKey), false).toBool());
    m_window.setSizes(m_surroundings.settings->value(QLatin1String(sizesKey)).toMap());
    connect(&m_window, &MainView::commanded, this, &QuillmarkApp::perform);
    connect(&m_window, &MainView::received, this, &QuillmarkApp::receive);
    connect(&m_window, &MainView::chosen, &m_model, &AppModel::select);
    connect(m_window.listPanel(), &ListPanel::choiceChanged, this, [this] { m_selectionTimer.start(); });
    connect(&m_window, &MainView::undoWanted, &m_model, &AppModel::undoRemoval);
    connect(&m_model, &AppModel::removalsChanged, this, &QuillmarkApp::refreshUndo);
    connect(&m_window, &MainView::mailboxWanted, this, [this] {
        if (const auto mailbox = mailboxOfSelected()) m_model.select(mailbox);
    });
    connect(m_window.mailboxView(), &MailboxView::reportWanted, &m_model, &AppModel::select);
    connect(m_window.mailboxView(), &MailboxView::tonesWanted, this, [this](const std::set<Tone>& tones) {
        m_window.listPanel()->showOnly(tones);
        m_window.listPanel()->focusList();
    });
    connect(&m_window, &MainView::problemDismissed, &m_model, &AppModel::dismissProblem);
    connect(&m_window, &MainView::recoveryWanted, this, [this] {
        if (const auto damaged = m_model.damagedHistory()) m_model.recoverHistory(*damaged);
    });
    connect(m_window.reportView(), &ReportView::comparisonWanted, this,
            [this](std::size_t undone) { showMessageText(MessageTextView::Page::signedText, undone); });
    connect(m_window.reportView(), &ReportView::recheckWanted, this, [this] { perform(Command::recheck); });
    connect(&m_window, &MainView::clipboardWanted, this, [this] {
        if (const QMimeData* copied = QApplication::clipboard()->mimeData()) receive(dropContents(*copied));
    });
    connect(QApplication::clipboard(), &QClipboard::dataChanged, this, &QuillmarkApp::offerClipboard);
    connect(m_window.reportView(), &ReportView::expectationChanged, this, [this](const QString& typed) {
        if (!m_shown) return;
        m_expected[m_shown->id] = typed;
        m_window.reportView()->setExpectation(expectationOf(*m_shown));
    });
    connect(m_window.reportView(), &ReportView::expectationsWanted, this, [this] {
        QStringList domains;
        for (const std::string& each : knownDomains(m_model.history()))
            domains << QString::fromStdString(each);
        m_window.reportView()->suggestExpectations(domains);
    });
    connectModel();
}

QuillmarkApp::~QuillmarkApp() {
    finish();
    if (m_window.isVisible()) rememberSizes();
    m_window.removeEventFilter(this);  // it hides while it is destroyed, when nobody may ask it anything
    delete m_sheet;
    delete m_text;
}

void QuillmarkApp::quit() {
    if (m_sheet) m_sheet->disconnect(this);
    QApplication::quit();
}

void QuillmarkApp::finish() {
    m_reading.request_stop();
    if (!m_exports.waitForDone(patienceWithExports)) m_exporting.request_stop();
    m_exports.waitForDone();
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);  // what they had to tell
}

void QuillmarkApp::connectModel() {
    for (const auto& [timer, refresh] : {std::pair(&m_listTimer, &QuillmarkApp::refreshList),
                                         std::pair(&m_selectionTimer, &QuillmarkApp::refreshSelection)}) {
        timer->setSingleShot(true);
        timer->setInterval(0);
        connect(timer, &QTimer::timeout, this, refresh);
    }
    for (const auto changed : {&AppModel::sessionChanged, &AppModel::historyChanged}) {
        connect(&m_model, changed, this, [this] {
            // While a mailbox is checked a long list is not made anew more often than somebody can see.
            if (!m_model.busy()) {
                m_listTimer.start(0);
            } else if (!m_listTimer.isActive()) {
                m_listTimer.start(m_listRest);
            }
        });
    }
    connect(&m_model, &AppModel::selectionChanged, this, [this] { m_selectionTimer.start(); });
    connect(&m_model, &AppModel::sheetChanged, this, &QuillmarkApp::refreshSheet);
    const auto showProblem = [this] {
        m_window.setProblem(m_words.sentence(m_model.problem().value_or("")),
                            m_model.damagedHistory().has_value());
    };
    connect(&m_model, &AppModel::problemChanged, this, showProblem);
    connect(&m_model, &AppModel::historyCleared, this, [this](const std::string& outcome) {
        if (!m_settings || !m_settings->isVisible()) return m_model.showProblem(outcome);
        m_model.dismissProblem();  // which may speak of what has gone now
        m_settings->showOutcome(m_words.sentence(outcome));
    });
    const auto showUnsaved = [this] { m_window.setUnsaved(m_words.sentence(m_model.unsaved())); };
    connect(&m_model, &AppModel::historyChanged, this, showUnsaved);
    showUnsaved();
    connect(&m_model, &AppModel::progressChanged, this, [this] {
        const AppModel::Progress progress = m_model.progress();
        const double done = static_cast<double>(progress.done) + progress.ofMailboxes;
        m_window.setRunning({.count = progress.all - progress.done,
                             .found = progress.found,
                             .part = progress.all > 0 ? done / static_cast<double>(progress.all) : 0.0});
    });
    showProblem();
    refreshList();
    refreshSelection();
    refreshSheet();
}

void QuillmarkApp::refreshList() {
    QElapsedTimer taken;
    taken.start();
    m_list.setEntries(listEntries(m_model.list(), m_model.history()));
    refreshSelection();
    m_listRest = static_cast<int>(std::min(restAfterList * taken.elapsed(), longestRest));
}

SharedReport QuillmarkApp::selectedReport() const {
    return selected() ? m_model.report(*selected()) : nullptr;
}

void QuillmarkApp::refreshSelection() {
    m_window.select(selected());
    if (auto together = several()) {
        m_together = together->reports;
        m_togetherName = together->title;
        m_isTogetherWhole = together->isWhole;
        m_window.showMailbox(std::move(*together));
        m_window.offerMailbox({});
        m_shown = nullptr;
        m_hasMessage = false;
        return refreshCommands();
    }
    const SharedReport report = selectedReport();
    m_together.clear();
    if (report) m_together.push_back(report);
    m_togetherName.clear();
    m_isTogetherWhole = true;
    const auto checked = selected() ? m_model.message(*selected()) : std::nullopt;
    if (report && (report != m_shown || checked.has_value() != m_hasMessage)) {
        std::optional<std::vector<PathStep>> path;
        if (checked) path = receivedPath(*checked);
        ReportContent content = reportContent(*report, path, {}, m_words);
        if (m_model.settings().keepHistory)
            content.known = m_words.sentence(knownInWords(*report, m_model.history(), m_words.reader));
        content.expectation = expectationOf(*report);
        if (checked && checked->answers) {
            if (const QString from = answersFrom(*checked->answers, m_words); !from.isEmpty())
                content.quiet << from;
        }
        m_window.showReport(content);
    } else if (!report && selected()) {
        const AppModel::Row* row = m_model.row(*selected());
        m_window.showWithoutReport(
            row && row->name ? shown(*row->name) : m_words("Pasted source"),
            row && row->stopped ? stopRemark(*row->stopped, m_words) : m_words("Checking…"));
    } else if (!report) {
        m_window.showRefusal(m_words.sentence(m_model.refusal().value_or("")));
        offerClipboard();
    }
    const auto mailbox = mailboxOfSelected();
    m_window.offerMailbox(mailbox ? shown(m_model.row(*mailbox)->name.value_or(""), longestInBack)
                                  : QString());
    m_shown = report;
    m_hasMessage = checked.has_value();
    refreshCommands();
}

std::optional<UUID> QuillmarkApp::mailboxOfSelected() const {
    const AppModel::Row* row = selected() ? m_model.row(*selected()) : nullptr;
    return row && row->mailbox && m_model.row(*row->mailbox) ? row->mailbox : std::nullopt;
}

std::set<UUID> QuillmarkApp::chosenOnes() const {
    const auto& listed = m_window.listPanel()->chosenOnes();
    std::set<UUID> chosen(listed.begin(), listed.end());
    if (chosen.size() < 2) chosen.clear();
    if (chosen.empty() && selected()) chosen.insert(*selected());
    std::set<UUID> mailboxes;
    for (const UUID& id : chosen) {
        const AppModel::Row* row = m_model.row(id);
        if (row && !row->report) mailboxes.insert(id);
    }
    if (mailboxes.empty()) return chosen;
    for (const AppModel::Row& row : m_model.session()) {
        if (row.mailbox && mailboxes.contains(*row.mailbox)) chosen.insert(row.id);
    }
    return chosen;
}

std::vector<SharedReport> QuillmarkApp::messagesOf(const UUID& mailbox) const {
    std::vector<SharedReport> reports;
    for (const AppModel::Row& row : m_model.session()) {
        if (row.mailbox == mailbox && row.report) reports.push_back(row.report);
    }
    return reports;
}

std::optional<MailboxContent> QuillmarkApp::several() const {
    if (m_window.listPanel()->chosenOnes().size() > 1) {
        MailboxContent content;
        std::set<UUID> taken;
        const auto take = [&](const SharedReport& report) {
            if (report && taken.insert(report->id).second) content.reports.push_back(report);
        };
        for (const UUID& id : m_window.listPanel()->chosenOnes()) {
            take(m_model.report(id));
            const AppModel::Row* row = m_model.row(id);
            if (row && !row->report) std::ranges::for_each(messagesOf(id), take);
        }
        content.title = m_words.translateCount("%n message chosen", "%n messages chosen",
                                               static_cast<std::int64_t>(content.reports.size()));
        return content;
    }
    const AppModel::Row* row = selected() ? m_model.row(*selected()) : nullptr;
    if (!row || row->report || row->found == 0) return std::nullopt;
    MailboxContent content{shown(row->name.value_or("")), {}, messagesOf(row->id), row->isDone};
    content.isGrowing = !row->isDone && !row->stopped;
    const auto count = static_cast<std::int64_t>(row->found);
    content.state = row->stopped  ? stopRemark(*row->stopped, m_words)
                    : row->isDone ? m_words.translateCount("%n message, checked to the end.",
                                                           "%n messages, checked to the end.", count)
                                  : m_words.translateCount("%n message checked so far…",
                                                           "%n messages checked so far…", count);
    return content;
}

void QuillmarkApp::refreshUndo(std::size_t removed) {
    m_window.offerUndo(removed == 0
                           ? QString()
                           : m_words.translateCount("%n entry was removed.", "%n entries were removed.",
                                                    static_cast<std::int64_t>(removed)),
                       m_model.canUndoRemoval());
}

void QuillmarkApp::refreshCommands() {
    m_window.action(Command::recoverHistory)
        ->setEnabled(m_model.historyState() == AppModel::HistoryState::ready);
    const bool hasReport = m_shown != nullptr;
    for (const Command each : {Command::exportPage, Command::exportTable, Command::exportJSON})
        m_window.action(each)->setEnabled(!m_together.empty());
    for (const Command each : {Command::exportPDF, Command::exportText, Command::copyReport,
                               Command::copyPage, Command::expected, Command::expandAll, Command::foldAll}) {
        m_window.action(each)->setEnabled(hasReport);
    }
    m_window.action(Command::exportEvidence)->setEnabled(hasReport && m_hasMessage);
    const SharedReport report = m_shown;
    const bool hasUndone = report && !undoneNotes(*report).empty();
    QAction* whatWasSigned = m_window.action(Command::whatWasSigned);
    whatWasSigned->setEnabled(hasUndone && m_hasMessage);
    whatWasSigned->setToolTip(!hasUndone      ? m_words("No broken signature of this message holds again.")
                              : !m_hasMessage ? m_words("Open the file again to see this.")
                                              : QString());
    QAction* asText = m_window.action(Command::messageAsText);
    asText->setEnabled(report && m_hasMessage);
    asText->setToolTip(asText->isEnabled() ? QString() : m_words("Open the file again to see this."));
    const bool canRecheck = hasReport && selected() && m_model.canRecheck(*selected());
    QAction* recheck = m_window.action(Command::recheck);
    recheck->setEnabled(canRecheck);
    recheck->setToolTip(canRecheck
                            ? QString()
                            : m_words("The message itself isn’t at hand. Open it again to check it again."));
    m_window.reportView()->offerRecheck(canRecheck);
    const std::set<UUID> chosen = chosenOnes();
    const bool isSaved = std::ranges::any_of(chosen, [&](const UUID& id) { return m_model.isInHistory(id); });
    const bool isOnlySaved =
        isSaved && std::ranges::none_of(chosen, [&](const UUID& id) { return m_model.row(id) != nullptr; });
    QAction* fromList = m_window.action(Command::removeFromList);
    QAction* fromHistory = m_window.action(Command::removeFromHistory);
    fromList->setEnabled(!chosen.empty() && !isOnlySaved);
    fromHistory->setEnabled(isSaved && m_model.historyState() == AppModel::HistoryState::ready);
    // One key for both: it takes away what is selected, from where it stands.
    fromList->setShortcut(isOnlySaved ? QKeySequence() : QKeySequence::Delete);
    fromHistory->setShortcut(isOnlySaved ? QKeySequence::Delete : QKeySequence());
}

void QuillmarkApp::refreshSheet() {
    if (m_sheet) {
        m_sheet->disconnect(this);
        m_sheet->deleteLater();
        m_sheet = nullptr;
    }
    // A sheet that comes before its window would end up beneath it, and block it (see `eventFilter`).
    if (!m_model.sheet() || !m_window.isVisible()) return;
    if (*m_model.sheet() == AppModel::Sheet::paste) {
        auto* sheet = new PasteView(m_words, &m_window);
        connect(sheet, &PasteView::submitted, this, [this, sheet](const std::string& text) {
            const auto refusal = m_model.whyNotPasted(text);
            m_model.paste(text);
            refusal ? sheet->refuse(m_words.sentence(*refusal)) : sheet->accept();
        });
        m_sheet = sheet;
    } else {
        m_sheet = new WelcomeView(m_words, &m_window);
    }
    connect(m_sheet, &QDialog::finished, this, [this] { m_model.dismissSheet(); });
    m_sheet->open();
}

bool QuillmarkApp::eventFilter(QObject* watched, QEvent* event) {
    // By now the window is where it stays, and a sheet can stand above its middle.
    if (event->type() == QEvent::WindowActivate && !m_sheet) refreshSheet();
    if (event->type() == QEvent::WindowActivate) offerClipboard();
    if (event->type() == QEvent::Hide) rememberSizes();
    return QObject::eventFilter(watched, event);
}

void QuillmarkApp::rememberSizes() {
    m_surroundings.settings->setValue(QLatin1String(sizesKey), m_window.sizes());
}

void QuillmarkApp::perform(Command command) {
    const auto id = selected();
    switch (command) {
        case Command::open:
            return chooseFiles();
        case Command::openFolder:
            return chooseFolder();
        case Command::paste:
            return m_model.showSheet(AppModel::Sheet::paste);
        case Command::recoverHistory:
            return chooseDamagedHistory();
        case Command::closeWindow:
        case Command::quit:
            m_window.close();
            return;
        case Command::find:
            return m_window.focusFilter();
        case Command::settings:
            return showSettings();
        case Command::recheck:
            if (id) m_model.recheck(*id);
            return;
        case Command::expected:
            return m_window.reportView()->askForExpectation();
        case Command::whatWasSigned:
            return showMessageText(MessageTextView::Page::signedText);
        case Command::messageAsText:
            return showMessageText(MessageTextView::Page::message);
        case Command::cancelChecks:
            return m_model.cancelAll();
        case Command::exportPDF:
            return exportPDF();
        case Command::exportText:
            return exportText();
        case Command::exportEvidence:
            return exportEvidence();
        case Command::exportPage:
            return exportPage();
        case Command::exportTable:
            return exportTable();
        case Command::exportJSON:
            return exportJSON();
        case Command::copyReport:
            return copyReport();
        case Command::copyPage:
            return copyPage();
        case Command::removeFromList:
            return remove(&AppModel::removeFromList);
        case Command::removeFromHistory:
            return remove(&AppModel::removeFromHistory);
        case Command::toggleList:
            return;  // the window does it
        case Command::showTable:
            return m_surroundings.settings->setValue(QLatin1String(tableKey),
                                                     m_window.action(command)->isChecked());
        case Command::expandAll:
        case Command::foldAll:
            return m_window.reportView()->expandAll(command == Command::expandAll);
        case Command::zoomIn:
        case Command::zoomOut:
        case Command::actualSize: {
            const double now = m_surroundings.settings->value(QLatin1String(zoomKey), 1.0).toDouble();
            return zoom(command == Command::actualSize ? 1.0
                        : command == Command::zoomIn   ? now * zoomStep
                                                       : now / zoomStep);
        }
        case Command::helpChecks:
            return showHelp(HelpPage::checks);
        case Command::helpMessage:
            return showHelp(HelpPage::message);
        case Command::helpLimits:
            return showHelp(HelpPage::limits);
        case Command::helpShortcuts:
            return showHelp(HelpPage::shortcuts);
        case Command::about:
            return showAbout(m_words, &m_window);
    }
}

// What stands beside it in the list, as it is sorted and filtered, is shown then: whoever holds it for the
// next to go must see it.
void QuillmarkApp::remove(void (AppModel::*fromWhere)(const std::set<UUID>&)) {
    const std::set<UUID> ids = chosenOnes();
    const auto beside = m_list.beside(ids);
    (m_model.*fromWhere)(ids);
    if (selected() && !m_model.row(*selected())) m_model.select(beside);
    if (!selected()) m_model.select(beside);
}

void QuillmarkApp::openFiles(const QStringList& paths) {
    std::vector<std::string> files;
    const auto session = sessionFolder();
    for (const QString& each : paths) {
        std::string path = each.toLocal8Bit().toStdString();
        session&& isHandedMessage(path, *session) ? receiveHanded(path) : files.push_back(std::move(path));
    }
    if (!files.empty()) m_model.openFiles(std::move(files));
    m_window.setWindowState(m_window.windowState() & ~Qt::WindowMinimized);
    m_window.show();
    m_window.raise();
    QWidget* dialog = QApplication::activeModalWidget();  // then the window itself takes no keys
    (dialog ? dialog : &m_window)->activateWindow();
}

void QuillmarkApp::receiveHanded(const std::string& path) {
    auto message = takeHandedMessage(path);
    if (auto* bytes = std::get_if<ByteBuffer>(&message)) {
        m_model.checkData(std::move(*bytes));
    } else {
        m_model.refuse(problemLine(std::get<Refusal>(message), {}, m_words.reader));
    }
}

void QuillmarkApp::receive(const DropContents& contents) {
    if (const auto* files = std::get_if<DropContents::Files>(&contents.value))
        return m_model.openDropped(files->paths);
    if (const auto* data = std::get_if<DropContents::Data>(&contents.value)) {
        m_model.checkData(
            ByteBuffer({data->bytes.constData(), static_cast<std::size_t>(data->bytes.size())}));
    } else if (const auto* text = std::get_if<DropContents::Text>(&contents.value)) {
        m_model.paste(text->text);
    } else if (std::holds_alternative<DropContents::LinkOnly>(contents.value)) {
        m_model.refuse(
            m_words("That is only a link to a message, not the message itself. Save the message as an "
                    ".eml file and drop that, or copy its source and paste it.")
                .toStdString());
    } else {
        m_model.refuse(
            m_words("That holds no message. Drop a saved message, or copy a message’s source and paste it.")
                .toStdString());
    }
}

// Whose window has the keyboard may look: and nobody waits for another program's clipboard without need.
void QuillmarkApp::offerClipboard() {
    if (!m_window.isActiveWindow() || !m_window.isDropAreaShown()) return;
    const QMimeData* copied = QApplication::clipboard()->mimeData();
    m_window.offerClipboard(copied && copied->hasText() && holdsMessage(dropContents(*copied)));
}

QFileDialog* QuillmarkApp::fileDialog(const QString& title) {
    auto* dialog = new QFileDialog(&m_window, title, m_lastFolder);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QFileDialog::filesSelected, this,
            [this](const QStringList& chosen) { m_lastFolder = QFileInfo(chosen.value(0)).absolutePath(); });
    return dialog;
}

void QuillmarkApp::chooseFiles() {
    auto* dialog = fileDialog(m_words("Choose one or more saved emails (.eml)."));
    dialog->setFileMode(QFileDialog::ExistingFiles);
    // Mailboxes are files of any name, and often without an ending.
    dialog->setNameFilters({m_words("All files (*)"), m_words("Saved emails (*.eml)")});
    connect(dialog, &QFileDialog::filesSelected, this,
            [this](const QStringList& files) { openFiles(files); });
    dialog->open();
}

void QuillmarkApp::chooseFolder() {
    auto* dialog = fileDialog(m_words("Choose a folder of saved emails."));
    dialog->setFileMode(QFileDialog::Directory);
    connect(dialog, &QFileDialog::filesSelected, this,
            [this](const QStringList& folders) { openFiles(folders); });
    dialog->open();
}

void QuillmarkApp::save(const QString& suffix, const QString& kind, std::function<std::string()> bytes) {
    const SharedReport report = selectedReport();
    if (report) saveAs(proposedName(*report, suffix, m_words.reader), suffix, kind, std::move(bytes));
}

void QuillmarkApp::exportPage() {
    if (m_together.empty()) return;
    MailboxReportHead head{.isWhole = m_isTogetherWhole};
    if (!m_shown) head.inputs.push_back(withoutIsolation(m_togetherName).toStdString());
    saveAs(nameOfTogether(QStringLiteral(".html")), QStringLiteral(".html"), m_words("Web pages"),
           [reports = m_together, head, reader = m_words.reader]() mutable {
               MailboxReport page(reader);
               Totals totals;
               head.begun = head.ended = reports.front()->checkedAt;
               const bool areWhole = reports.size() <= MailboxReport::mostReports;
               for (const SharedReport& each : reports) {
                   head.begun = std::min(head.begun, each->checkedAt);
                   head.ended = std::max(head.ended, each->checkedAt);
                   totals.add(countedOf(*each));
                   page.add(
                       mailboxEntry(*each, areWhole ? WholeReport::included : WholeReport::leftOut, reader));
               }
               std::string html;
               page.write(head, totals, [&](std::string_view piece) { html += piece; });
               return html;
           });
}

void QuillmarkApp::exportTable() {
    if (m_together.empty()) return;
    saveAs(nameOfTogether(QStringLiteral(".csv")), QStringLiteral(".csv"), m_words("Tables"),
           [reports = m_together] {
               std::string table = csvHeader();
               for (const SharedReport& each : reports) table += csvRow(*each, {});
               return table;
           });
}

void QuillmarkApp::exportJSON() {
    if (m_together.empty()) return;
    saveAs(nameOfTogether(QStringLiteral(".jsonl")), QStringLiteral(".jsonl"),
           m_words("Reports as lines of JSON"), [reports = m_together] {
               std::string lines;
               for (const SharedReport& each : reports) lines += compactJSON(*each) + '\n';
               return lines;
           });
}

QString QuillmarkApp::nameOfTogether(const QString& suffix) const {
    if (m_shown) return proposedName(*m_shown, suffix, m_words.reader);
    return proposedName(m_togetherName, m_surroundings.now(), suffix, m_words.reader);
}

void QuillmarkApp::saveAs(const QString& name, const QString& suffix, const QString& kind,
                          std::function<std::string()> bytes) {
    auto* dialog = fileDialog(m_words("Export"));
    dialog->setAcceptMode(QFileDialog::AcceptSave);  // which asks before a file is replaced
    dialog->setFileMode(QFileDialog::AnyFile);
    dialog->setNameFilter(kind + QStringLiteral(" (*") + suffix + u')');
    dialog->setDefaultSuffix(suffix.mid(1));
    dialog->selectFile(name);
    connect(dialog, &QFileDialog::fileSelected, this, [this, bytes = std::move(bytes)](const QString& path) {
        m_exports.start([this, bytes, path, file = path.toLocal8Bit().toStdString()] {
            try {
                replaceFile(file, bytes());
                QMetaObject::invokeMethod(
                    this, [this, path] { m_window.tell(m_words("Saved as %1", shown(path))); });
            } catch (const std::exception& error) {
                const QString why = QString::fromStdString(reasonOf(error, m_words.reader));
                QMetaObject::invokeMethod(this, [this, why] {
                    m_model.showProblem(m_words("The report couldn’t be saved: %1", why).toStdString());
                });
            }
        });
    });
    dialog->open();
}

void QuillmarkApp::exportPDF() {
    const SharedReport report = selectedReport();
    if (!report) return;
    save(QStringLiteral(".pdf"), m_words("PDF documents"),
         [words = m_words, report, checked = m_model.message(report->id), mailbox = stoppedMailbox(*report),
          expectation = expectationOf(*report), stop = m_exporting.get_token()] {
             return pdfOf(*report, checked, mailbox, expectation, words, stop).toStdString();
         });
}

QString QuillmarkApp::stoppedMailbox(const ProofReport& report) const {
    const AppModel::Row* own = m_model.row(report.id);
    const AppModel::Row* mailbox = own && own->mailbox ? m_model.row(*own->mailbox) : nullptr;
    if (!mailbox || !mailbox->stopped) return {};
    return shown(mailbox->name.value_or("")) + QStringLiteral(" (") +
           stoppedAfter(mailbox->stopped->checked, mailbox->stopped->all, m_words) + u')';
}

std::string QuillmarkApp::reportText(const ProofReport& report) const {
    const QString mailbox = withoutIsolation(stoppedMailbox(report));
    const auto expectation = expectationOf(report);
    const std::string expected = expectation ? expectation->typed.toStdString() : std::string();
    const std::string text = textReport(report, m_words.reader, {}, expected);
    return mailbox.isEmpty() ? text : text + "\n" + m_words("Mailbox: %1", mailbox).toStdString();
}

void QuillmarkApp::exportText() {
    const SharedReport report = selectedReport();
    if (!report) return;
    save(QStringLiteral(".txt"), m_words("Text files"), [text = reportText(*report)] { return text; });
}

void QuillmarkApp::exportEvidence() {
    const SharedReport report = selectedReport();
    const auto checked = report ? m_model.message(report->id) : std::nullopt;
    if (!checked) return;
    save(QStringLiteral(".json"), m_words("Recorded answers"), [report, checked = *checked] {
        RecordedMessage message{{}, checked.failures};
        if (report->fileName) message.files.insert(*report->fileName);
        const std::string by = "Quillmark " + QApplication::applicationVersion().toStdString();
        return recordingJSON(
            by, {report->checkedAt, checked.begun, checked.ended}, *checked.answers,
            std::holds_alternative<DomainAge::Status::Skipped>(report->domainAge.status.value)
                ? Registrations::notAsked
                : Registrations::asked,
            {{sha256(checked.source.bytes->view()), message}});
    });
}

void QuillmarkApp::copyReport() {
    if (const SharedReport report = selectedReport()) {
        copyText(reportText(*report));
    }
}

void QuillmarkApp::copyPage() {
    const SharedReport report = selectedReport();
    if (!report) return;
    const auto expectation = expectationOf(*report);
    const std::string expected = expectation ? expectation->typed.toStdString() : std::string();
    // The digest of a large message takes its time.
    m_exports.start([this, report, expected, checked = m_model.message(report->id)] {
        const auto digest = checked ? std::optional(sha256(checked->source.bytes->view())) : std::nullopt;
        const std::string page = textPage(*report, m_words.reader, {}, expected, digest);
        QMetaObject::invokeMethod(this, [this, page] { copyText(page); });
    });
}

void QuillmarkApp::copyText(const std::string& text) {
    QApplication::clipboard()->setText(QString::fromStdString(text));
    m_window.tell(m_words("Copied. Now you can paste it, for instance into an email."));
}

void QuillmarkApp::chooseDamagedHistory() {
    auto* dialog = new QFileDialog(&m_window, m_words("Choose a damaged history."),
                                   fromPath(m_surroundings.dataFolder()));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setNameFilters({m_words("Damaged histories (%1)", QStringLiteral("history (damaged *).json")),
                            m_words("All files (*)")});
    connect(dialog, &QFileDialog::fileSelected, this,
            [this](const QString& file) { m_model.recoverHistory(file.toLocal8Bit().toStdString()); });
    dialog->open();
}

std::optional<ReportExpectation> QuillmarkApp::expectationOf(const ProofReport& report) const {
    const auto found = m_expected.find(report.id);
    if (found == m_expected.end() || found->second.isEmpty()) return std::nullopt;
    return ReportExpectation{found->second,
                             expectedAnswer(report, found->second.toStdString(), m_words.reader)};
}

void QuillmarkApp::showMessageText(MessageTextView::Page page, std::size_t undone) {
    const SharedReport report = selectedReport();
    const auto checked = report ? m_model.message(report->id) : std::nullopt;
    // Let go meanwhile, which nobody was told of yet.
    if (!checked) return m_model.showProblem(m_words("Open the file again to see this.").toStdString());
    std::vector<MessageTextView::Signature> signatures;
    for (const ReportNote* note : undoneNotes(*report)) {
        const auto& value = std::get<ReportNote::Undone>(note->value);
        signatures.push_back({m_words.sentence(isolated(quotedDomain(value.domain), m_words.reader.language)),
                              m_words.sentence(sentence(*note, m_words.reader))});
    }
    m_reading.request_stop();
    m_reading = {};
    delete m_text;
    auto* view =
        new MessageTextView(shown(report->summary.subject), signatures, undone, page, m_words, &m_window);
    view->setAttribute(Qt::WA_DeleteOnClose);
    connect(view, &QDialog::finished, this, [reading = m_reading]() mutable { reading.request_stop(); });
    m_text = view;
    m_exports.start(
        [this, report, checked = *checked, hasUndone = !signatures.empty(), stop = m_reading.get_token()] {
            const MessageText text = messageText(checked);
            QMetaObject::invokeMethod(this, [this, text, stop] {
                if (m_text && !stop.stop_requested()) m_text->setText(text);
            });
            if (!hasUndone || stop.stop_requested()) return;
            const auto texts = signedTexts(checked, *report, stop);
            QMetaObject::invokeMethod(this, [this, texts, stop] {
                if (m_text && !stop.stop_requested()) m_text->setSignedTexts(texts);
            });
        });
    view->open();
}

void QuillmarkApp::showSettings() {
    const AppSettings& now = m_model.settings();
    SettingsView* view = m_settings =
        new SettingsView({now.checkDomainAge, now.keepHistory, m_model.options().rememberKeys,
                          m_model.options().judgeByRFC9989, m_model.options().resolver,
                          QString::fromStdString(m_model.historyLock())},
                         m_words, &m_window);
    view->setAttribute(Qt::WA_DeleteOnClose);
    connect(view, &SettingsView::checkDomainAgeChanged, &m_model, &AppModel::setCheckDomainAge);
    connect(view, &SettingsView::keepHistoryChanged, &m_model, &AppModel::setKeepHistory);
    connect(view, &SettingsView::resolverChanged, &m_model, &AppModel::setResolver);
    connect(view, &SettingsView::rememberKeysChanged, &m_model, &AppModel::setRememberKeys);
    connect(view, &SettingsView::judgeByRFC9989Changed, &m_model, &AppModel::setJudgeByRFC9989);
    connect(view, &SettingsView::keyBookWanted, this,
            [this] { (new KeyBookView(m_model.keyBook(), m_words, m_settings))->open(); });
    connect(view, &SettingsView::clearHistoryWanted, &m_model, &AppModel::readHistoryContents);
    connect(&m_model, &AppModel::historyContentsRead, view, [this, view](const HistoryContents& contents) {
        if (contents.isEmpty()) return m_model.clearHistory(contents);
        QStringList what;
        for (const std::string& line : historyToClear(contents, m_words.reader))
            what << m_words.sentence(line);
        view->askWhetherToClear(what.join(u'\n'), [this, contents] { m_model.clearHistory(contents); });
    });
    connect(view, &SettingsView::welcomeWanted, this,
            [this] { m_model.showSheet(AppModel::Sheet::welcome); });
    connect(view, &SettingsView::dataFolderWanted, this, [this] {
        QDesktopServices::openUrl(QUrl::fromLocalFile(fromPath(m_surroundings.dataFolder())));
    });
    view->open();
}

void QuillmarkApp::showHelp(HelpPage page) {
    if (!m_help) m_help = new HelpView(m_window.shortcuts(), m_words, &m_window);
    m_help->showPage(page);
    m_help->show();
    m_help->raise();
    m_help->activateWindow();
}

void QuillmarkApp::zoom(double factor) {
    factor = std::clamp(factor, leastZoom, mostZoom);
    m_surroundings.settings->setValue(QLatin1String(zoomKey), factor);
    QFont font = m_font;
    font.setPointSizeF(font.pointSizeF() * factor);
    QApplication::setFont(font);
}

}  // namespace quillmark
