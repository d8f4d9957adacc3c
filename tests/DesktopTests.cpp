#include "Gate.h"
#include "Quillmark/ListPanel.h"
#include "Quillmark/MailboxView.h"
#include "Quillmark/MessageTextView.h"
#include "Quillmark/PlainText.h"
#include "Quillmark/QuillmarkApp.h"
#include "Quillmark/ReportView.h"
#include "Quillmark/TextPanel.h"
#include "TestSamples.h"
#include "Wording/Wording.h"
#include "tests/CheckProcessesOfTests.h"
#include "tests/WindowTest.h"

/// The real window over the real model, driven as a person would: by keys, clicks and drops.
namespace quillmark {
namespace {

/// What the sample's good report is headed by, whatever domain it speaks of.
QString headlineOf(const std::string& sample) {
    const Reader reader{.platform = Platform::other};
    return QString::fromStdString(headline(checkedSample(sample).report.verdict, reader));
}

/// A run of the application in a folder of its own; several runs may follow each other there.
struct Desk {
    explicit Desk(const QTemporaryDir& folder, const char* sample = "rfc8463", bool welcomed = true)
        : resolver(std::make_shared<test::GatedResolver>(sampleResolver(sample))),
          windowSettings(folder.filePath("window.ini"), QSettings::IniFormat) {
        resolver->gate.open();
        AppModel::Surroundings surroundings;
        surroundings.resolver = resolver;
        surroundings.historyFile = [path = folder.filePath("history.json").toStdString()] {
            return HistoryFile{path};
        };
        surroundings.settings = std::make_shared<UserSettingsStore>(folder.filePath("settings.ini"));
        surroundings.now = now;
        surroundings.processes = test::checkProcesses();
        surroundings.reader = words.reader;
        if (welcomed) saveSettings({.onboardingDone = true}, *surroundings.settings);
        begin(surroundings);
    }
    /// With the settings as the run before left them.
    Desk(const QTemporaryDir& folder, std::nullptr_t) : Desk(folder, "rfc8463", false) {}
    ~Desk() {
        resolver->gate.set(true);
        model->finish();
    }

    static Date now() {
        return std::chrono::sys_days(std::chrono::November / 21 / 2026) + std::chrono::hours(10);
    }
    void begin(const AppModel::Surroundings& surroundings) {
        model = std::make_unique<AppModel>(surroundings);
        app = std::make_unique<QuillmarkApp>(
            *model, QuillmarkApp::Surroundings{&windowSettings, [] { return std::string(); }, now}, words);
        EXPECT_FALSE(sheet()) << "one that comes before its window ends up beneath it";
        app->openFiles({});
        EXPECT_TRUE(QTest::qWaitForWindowActive(&window()));
    }

    MainView& window() { return app->window(); }
    ReportList& list() { return static_cast<ReportList&>(*window().listView()->model()); }
    /// The first lines of the rows, those of headings, too.
    QStringList rows() {
        QStringList all;
        for (int i = 0; i < list().rowCount(); ++i)
            all << withoutIsolation(list().index(i, 0).data().toString());
        return all;
    }
    QString headline() {
        const auto* text = window().findChild<PlainText*>("headline");
        return text && text->isVisible() ? withoutIsolation(text->toPlainText()) : QString();
    }
    /// What who hears it was told of what is shown.
    QString announced() { return window().reportView()->parentWidget()->accessibleName(); }
    bool waitFor(const std::function<bool()>& condition) {
        const bool came = QTest::qWaitFor(condition, 20'000);
        QCoreApplication::processEvents();  // what the model has by now is shown
        return came;
    }
    bool waitForHeadline(const QString& text) {
        const bool came = waitFor([&] { return headline() == text && !model->busy(); });
        EXPECT_TRUE(came) << headline().toStdString() << " | " << window().problem().toStdString();
        return came;
    }
    /// Opens the sample, and waits for its report.
    void open(const std::string& sample = "rfc8463") {
        app->openFiles({QString::fromStdString(samplePath(sample + ".eml"))});
        waitForHeadline(headlineOf(sample));
    }
    /// A drag from a mail program, over the window and let go.
    void drop(const QMimeData& data) {
        QDragEnterEvent enter(QPoint(50, 50), Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(&window(), &enter);
        EXPECT_TRUE(enter.isAccepted());
        QDropEvent event(QPointF(50, 50), Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, {});
        event.setDropAction(Qt::MoveAction);
        QApplication::sendEvent(&window(), &event);
        EXPECT_EQ(event.dropAction(), Qt::CopyAction)
            << "a move would let the mail program delete the message";
    }
    void key(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) {
        QWidget* focus = QApplication::focusWidget();
        QTest::keyClick(focus ? focus : &window(), key, modifiers);
    }
    QDialog* sheet() {
        for (QDialog* each : window().findChildren<QDialog*>()) {
            if (each->isVisible()) return each;
        }
        return nullptr;
    }

    Words words{{.platform = Platform::other, .zone = [](Date) { return ZoneOffset{}; }}};
    std::shared_ptr<test::GatedResolver> resolver;
    QSettings windowSettings;
    std::unique_ptr<AppModel> model;
    std::unique_ptr<QuillmarkApp> app;
};

QByteArray contents(const std::string& path) {
    QFile file(QString::fromStdString(path));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path;
    return file.readAll();
}

TEST(Desktop, everyFormOfADropIsChecked) {
    const QTemporaryDir folder;
    const std::string path = samplePath("rfc8463.eml");
    const QByteArray bytes = contents(path);
    const QString expected = headlineOf("rfc8463");
    const std::map<const char*, std::function<void(QMimeData&)>> forms = {
        {"file", [&](QMimeData& data) { data.setUrls({QUrl::fromLocalFile(QString::fromStdString(path))}); }},
        {"data", [&](QMimeData& data) { data.setData("message/rfc822", bytes); }},
        {"text", [&](QMimeData& data) { data.setText(QString::fromUtf8(bytes)); }},
        {"file that a mail program keeps",
         [&](QMimeData& data) {
             QFile counted(folder.filePath("1.emlx"));
             ASSERT_TRUE(counted.open(QIODevice::WriteOnly));
             counted.write(QByteArray::number(bytes.size()) + "\n" + bytes + "<?xml version=\"1.0\"?>\n");
             data.setUrls({QUrl::fromLocalFile(counted.fileName())});
         }},
        {"file that is deleted at once",
         [&](QMimeData& data) { data.setUrls({QUrl::fromLocalFile(folder.filePath("gone.eml"))}); }},
    };
    for (const auto& [name, fill] : forms) {
        SCOPED_TRACE(name);
        Desk run(folder);
        const QString gone = folder.filePath("gone.eml");
        ASSERT_TRUE(QFile::copy(QString::fromStdString(path), gone));
        QMimeData data;
        fill(data);
        run.drop(data);
        ASSERT_TRUE(QFile::remove(gone));
        run.waitForHeadline(expected);
        EXPECT_EQ(run.window().problem(), "");
    }
}

TEST(Desktop, whatHoldsNoMessageIsToldInOneLine) {
    const QTemporaryDir folder;
    Desk run(folder);
    QMimeData link;
    link.setUrls({QUrl("imap://me@mail.example/INBOX;UID=7")});
    run.drop(link);
    EXPECT_TRUE(run.window().problem().startsWith("That is only a link"))
        << run.window().problem().toStdString();
    QFile odd(folder.filePath("<b>x\n[OK]" + QString(200, 'x') + ".eml"));
    ASSERT_TRUE(odd.open(QIODevice::WriteOnly) && odd.write("no mail") > 0);
    odd.close();
    QMimeData file;
    file.setUrls({QUrl::fromLocalFile(odd.fileName()), QUrl::fromLocalFile(folder.filePath("missing.eml"))});
    run.drop(file);
    EXPECT_TRUE(run.waitFor([&] { return run.window().problem().contains("look like an email"); }));
    EXPECT_FALSE(run.window().problem().contains('\n'));
    EXPECT_LT(run.window().minimumSizeHint().width(), 700) << "the name breaks";
    EXPECT_TRUE(run.waitFor([&] { return run.rows().isEmpty(); }));
    EXPECT_EQ(run.announced(), "Not checked. " + run.window().problem());
    test::button(run.window(), "Dismiss")->click();
    EXPECT_EQ(run.window().problem(), "");
}

TEST(Desktop, aMailboxInTheTable) {
    const QTemporaryDir folder;
    QFile inbox(folder.filePath("Inbox"));
    ASSERT_TRUE(inbox.open(QIODevice::WriteOnly));
    const QByteArray signedOne = contents(samplePath("rfc8463.eml")).replace("\r\n", "\n");
    for (int i = 0; i < 12; ++i) {
        inbox.write("From a@b.example Sat Nov 21 10:00:00 2026\n");
        inbox.write(i == 5 ? signedOne
                           : "From: a@b.example\nSubject: " + QByteArray::number(i) + "\n\nhello\n");
        inbox.write("\n");
    }
    inbox.close();
    {
        Desk run(folder);
        run.app->openFiles({inbox.fileName()});
        EXPECT_TRUE(run.waitFor([&] { return run.rows().size() == 14 && !run.model->busy(); }));
        run.window().listView()->setFocus();
        run.window().action(Command::showTable)->trigger();
        QTreeView* table = run.window().listPanel()->tableView();
        EXPECT_TRUE(table->isVisible() && table->hasFocus() && !run.window().listView()->isVisible());
        table->sortByColumn(subjectColumn, Qt::DescendingOrder);
        EXPECT_EQ(run.rows().mid(0, 3), (QStringList{"Inbox", "Is dinner ready?", "11"}));
        run.key(Qt::Key_Home);
        run.key(Qt::Key_Down);
        run.waitForHeadline(headlineOf("rfc8463"));
        run.key(Qt::Key_Return);
        EXPECT_EQ(QApplication::focusWidget()->objectName(), "banner");
        test::button(run.window(), "Show only “Good”: 1")->click();
        EXPECT_EQ(run.rows(), (QStringList{"Inbox", "Is dinner ready?"}));
        run.list().setTones({});
        run.list().setFilter("message 1");
        table->setColumnWidth(fromColumn, 123);
        auto* splitter = run.window().findChild<QSplitter*>();
        splitter->setSizes({150, 400});
        emit splitter->splitterMoved(150, 1);
        table->setFocus();
        run.key(Qt::Key_Home);
        for (const QStringList& left : {QStringList{"10", "9", "0"}, {"9", "0"}, {"0"}, {}}) {
            run.key(Qt::Key_Delete);
            EXPECT_TRUE(run.waitFor([&] { return run.rows() == left; })) << "what isn’t listed stays";
        }
    }
    Desk run(folder);
    EXPECT_TRUE(run.waitFor([&] { return run.list().rowCount() == 12; }));
    EXPECT_TRUE(run.window().listPanel()->tableView()->isVisible()) << "as it was left";
    EXPECT_EQ(run.window().listPanel()->tableView()->columnWidth(fromColumn), 123);
    const auto* splitter = run.window().findChild<QSplitter*>();
    EXPECT_TRUE(run.waitFor([&] { return std::abs(splitter->sizes()[0] - 150) <= 2; }));
    run.window().resize(700, 500);
    const auto letter = [&] { return run.window().fontMetrics().averageCharWidth(); };
    const int small = letter();
    for (int i = 0; i < 4; ++i) run.window().action(Command::zoomIn)->trigger();
    EXPECT_TRUE(run.waitFor([&] { return letter() > small; }));
    run.window().action(Command::showTable)->trigger();
    const QWidget* list = run.window().listPanel();
    EXPECT_TRUE(run.waitFor([&] { return list->isVisible() && list->height() > 200; }));
    EXPECT_LE(list->width(), std::max(list->minimumWidth(), 700 / 3)) << "the report needs room, too";
}

TEST(Desktop, aMailboxHasAPageAndSeveralAreTakenTogether) {
    const QTemporaryDir folder;
    QFile inbox(folder.filePath("Inbox"));
    ASSERT_TRUE(inbox.open(QIODevice::WriteOnly));
    for (int i = 0; i < 4; ++i) {
        inbox.write("From a@b.example Sat Nov 21 10:00:00 2026\nFrom: a@b.example\nSubject: " +
                    QByteArray::number(i) + (i == 2 ? "\nReply-To: a@c.example" : "") +
                    "\nDate: Sat, 21 Nov 2020 10:00:00 +0000\n\nhello\n\n");
    }
    inbox.close();
    Desk run(folder);
    run.app->openFiles({inbox.fileName()});
    const auto page = [&] {
        const auto* head = run.window().mailboxView()->findChild<QFrame*>("mailbox");
        return head && head->isVisible() ? head->accessibleName() : QString();
    };
    const auto isTold = [&](const QString& text) {
        EXPECT_TRUE(run.waitFor([&] { return page() == text; })) << page().toStdString();
    };
    isTold("Inbox. 4 messages, checked to the end. Bad: 4. Of these, with a caution beside the verdict: 1");
    EXPECT_EQ(run.announced(), page());
    const auto* years = run.window().mailboxView()->findChild<QFrame*>("By year");
    EXPECT_EQ(years->accessibleName(), "By year. 2020: 4, of which 4 Bad");
    const auto exported = [&](Command command) {
        return folder.filePath("all" + QString::number(static_cast<int>(command)));
    };
    for (const Command command : {Command::exportPage, Command::exportTable, Command::exportJSON}) {
        run.window().action(command)->trigger();
        auto* dialog = run.window().findChild<QFileDialog*>();
        ASSERT_TRUE(dialog);
        emit dialog->fileSelected(exported(command));
        dialog->close();
        QApplication::sendPostedEvents(dialog, QEvent::DeferredDelete);
    }
    run.app->finish();
    EXPECT_TRUE(contents(exported(Command::exportPage).toStdString()).contains("</html>"));
    EXPECT_EQ(contents(exported(Command::exportTable).toStdString()).count("\r\n"), 1 + 4);
    EXPECT_EQ(contents(exported(Command::exportJSON).toStdString()).count("\n"), 4);
    // What needs a look most comes first, and leads to its report.
    const auto leads = run.window().mailboxView()->findChildren<QAbstractButton*>();
    QTest::keyClick(leads.at(1), Qt::Key_Return);
    EXPECT_TRUE(run.waitFor([&] { return run.window().findChild<QWidget*>("back")->isVisible(); }));
    const auto second = run.model->selection();
    test::button(run.window(), "Back to Inbox")->click();
    isTold("Inbox. 4 messages, checked to the end. Bad: 4. Of these, with a caution beside the verdict: 1");
    run.model->select(second);
    EXPECT_TRUE(run.waitFor([&] { return run.model->report(*run.model->selection()) != nullptr; }));
    EXPECT_EQ(run.model->report(*run.model->selection())->summary.subject, "2");

    run.window().activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&run.window()));
    run.window().listView()->setFocus();
    EXPECT_TRUE(run.waitFor([&] { return run.window().listView()->currentIndex().row() == 4; }));
    run.key(Qt::Key_Down, Qt::ShiftModifier);
    isTold("2 messages chosen. Bad: 2. Of these, with a caution beside the verdict: 1");
    EXPECT_FALSE(run.window().action(Command::exportPDF)->isEnabled());
    run.key(Qt::Key_Delete);
    EXPECT_TRUE(run.waitFor([&] { return run.rows().size() == 2 + 2; }));
    run.key(Qt::Key_Z, Qt::ControlModifier);
    EXPECT_TRUE(run.waitFor([&] { return run.rows().size() == 2 + 4; }));
    run.key(Qt::Key_A, Qt::ControlModifier);
    isTold("4 messages chosen. Bad: 4. Of these, with a caution beside the verdict: 1");
    // The mailbox takes its messages with it.
    run.window().listView()->setFocus();
    run.key(Qt::Key_Home);
    isTold("Inbox. 4 messages, checked to the end. Bad: 4. Of these, with a caution beside the verdict: 1");
    run.key(Qt::Key_Delete);
    EXPECT_TRUE(run.waitFor([&] { return run.rows().isEmpty(); }));
}

TEST(Desktop, pasteInTheSheetAndStraight) {
    const QTemporaryDir folder;
    Desk run(folder);
    const QString source = QString::fromUtf8(contents(samplePath("rfc8463.eml")));
    QApplication::clipboard()->setText(source);
    run.key(Qt::Key_V, Qt::ControlModifier | Qt::ShiftModifier);
    QDialog* sheet = run.sheet();
    ASSERT_TRUE(sheet);
    auto* text = sheet->findChild<QPlainTextEdit*>();
    QPushButton* check = sheet->findChildren<QPushButton*>().first();
    text->setPlainText("no message");
    QTest::keyClick(check, Qt::Key_Return);
    EXPECT_TRUE(run.waitFor([&] { return run.window().problem().contains("look like an email"); }));
    EXPECT_TRUE(sheet->isVisible());
    EXPECT_EQ(text->toPlainText(), "no message") << "to be mended";
    text->selectAll();
    text->paste();
    QTest::keyClick(check, Qt::Key_Return);
    run.waitForHeadline(headlineOf("rfc8463"));
    EXPECT_TRUE(run.waitFor([&] { return !run.sheet(); }));
    run.window().activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&run.window()));

    run.window().listView()->setFocus();
    run.key(Qt::Key_V, Qt::ControlModifier);
    EXPECT_TRUE(run.waitFor([&] { return run.model->session().size() == 2 && !run.model->busy(); }));

    // What is refused is not followed by the verdict of what came before.
    for (const char* refused : {"no message", "imap://me@mail.example/INBOX;UID=7", ""}) {
        SCOPED_TRACE(refused);
        QApplication::clipboard()->setText(source);
        run.key(Qt::Key_V, Qt::ControlModifier);
        run.waitForHeadline(headlineOf("rfc8463"));
        QApplication::clipboard()->setText(refused);
        run.key(Qt::Key_V, Qt::ControlModifier);
        EXPECT_TRUE(run.waitFor([&] { return run.headline().isEmpty() && !run.model->busy(); }));
        EXPECT_EQ(run.model->refusal(), run.model->problem());
        EXPECT_FALSE(run.window().action(Command::exportPDF)->isEnabled());
    }
}

TEST(Desktop, aMessageInTheClipboardIsOffered) {
    const QTemporaryDir folder;
    Desk run(folder);
    auto* check = run.window().findChild<QPushButton*>("checkClipboard");
    for (const bool isMessage : {false, true}) {
        QApplication::clipboard()->setText(isMessage ? QString::fromUtf8(contents(samplePath("rfc8463.eml")))
                                                     : "From here: nothing");
        EXPECT_TRUE(run.waitFor([&] { return check->isVisible() == isMessage; }));
    }
    QTest::keyClick(check, Qt::Key_Space);
    run.waitForHeadline(headlineOf("rfc8463"));
}

TEST(Desktop, aHandedMessageIsRemovedOnceReadAndNoOtherFile) {
    const QTemporaryDir folder, session;
    const QByteArray before = qgetenv("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", session.path().toLocal8Bit() + '/');
    const QString name = "quillmark-message-0A1B2C3D-0000-4000-8000-000000000000.eml";
    const QString handed = session.filePath(name);
    const QStringList others = {folder.filePath(name), session.filePath("quillmark-message-letter.eml")};
    for (const QString& file : QStringList(handed) + others)
        ASSERT_TRUE(QFile::copy(QString::fromStdString(samplePath("rfc8463.eml")), file));
    Desk run(folder);
    run.app->openFiles(others);
    run.waitForHeadline(headlineOf("rfc8463"));
    run.app->openFiles({handed});
    EXPECT_FALSE(QFile::exists(handed));
    EXPECT_TRUE(run.waitFor([&] { return run.model->history().size() == 3; }));
    for (const QString& file : others) EXPECT_TRUE(QFile::exists(file)) << file.toStdString();
    qputenv("XDG_RUNTIME_DIR", before);
}

TEST(Desktop, aRunningCheckIsThereAtOnceAndCanBeStopped) {
    const QTemporaryDir folder;
    Desk run(folder);
    run.resolver->gate.set(false);
    run.app->openFiles({QString::fromStdString(samplePath("rfc8463.eml"))});
    EXPECT_TRUE(run.waitFor([&] { return run.rows().value(1) == "rfc8463.eml"; }));
    EXPECT_EQ(run.list().index(1, 0).data(ReportList::secondLineRole).toString(), "Checking…");
    EXPECT_TRUE(run.window().action(Command::cancelChecks)->isEnabled());
    run.window().action(Command::cancelChecks)->trigger();
    EXPECT_TRUE(run.waitFor([&] { return run.rows().isEmpty() && !run.model->busy(); }));
    // Closing asks nothing and ends what runs.
    run.app->openFiles({QString::fromStdString(samplePath("rfc8463.eml"))});
    EXPECT_TRUE(run.window().close());
    EXPECT_TRUE(run.waitFor([&] { return !run.model->busy(); }));
}

TEST(Desktop, recheckAfterTheNetworkIsBack) {
    const QTemporaryDir folder;
    Desk run(folder);
    run.resolver->isOffline = true;
    run.app->openFiles({QString::fromStdString(samplePath("rfc8463.eml"))});
    run.waitForHeadline("Couldn’t check: the key lookup failed");
    run.resolver->isOffline = false;
    test::button(*run.window().reportView(), "Re-check")->click();
    run.waitForHeadline(headlineOf("rfc8463"));
    EXPECT_EQ(run.model->session().size(), 1U);
    EXPECT_TRUE(run.waitFor([&] { return run.model->history().size() == 2; })) << "the history keeps both";
}

TEST(Desktop, whatWasExpectedIsAnsweredForEachReport) {
    const QTemporaryDir folder;
    Desk run(folder);
    run.open();
    const auto answer = [&] {
        const auto* text = run.window().reportView()->findChild<PlainText*>("answer");
        return text ? withoutIsolation(text->toPlainText()) : QString();
    };
    const auto expect = [&](const char* typed) {
        run.window().action(Command::expected)->trigger();
        QTest::keyClicks(QApplication::focusWidget(), typed);
        run.key(Qt::Key_Return);
    };
    expect("paypal.example");
    const QString no = answer();
    EXPECT_TRUE(no.startsWith("No: you expected paypal.example.")) << no.toStdString();
    const auto first = run.model->selection();
    run.app->openFiles({QString::fromStdString(samplePath("library-notice.eml"))});
    run.waitForHeadline("Can’t check: buecherei-lindenthal.example’s signing key is no longer published");
    EXPECT_EQ(answer(), "") << "it was asked of the other message";
    run.model->select(first);
    run.waitForHeadline(headlineOf("rfc8463"));
    EXPECT_EQ(answer(), no);
    run.window().action(Command::copyReport)->trigger();
    EXPECT_TRUE(QApplication::clipboard()->text().contains(no));
    expect("football.example.com");
    EXPECT_TRUE(answer().startsWith("Yes: ")) << answer().toStdString();
    run.window().action(Command::expected)->trigger();
    run.key(Qt::Key_Backspace);
    run.key(Qt::Key_Return);
    EXPECT_EQ(answer(), "");
}

TEST(Desktop, removedFromTheListThenFromTheHistoryAndKeptOverARestart) {
    const QTemporaryDir folder;
    {
        Desk run(folder);
        run.open();
        EXPECT_TRUE(run.waitFor([&] { return run.model->history().size() == 1; }));
        EXPECT_EQ(run.rows().value(0), "This session");
        run.window().listView()->setFocus();
        run.key(Qt::Key_Delete);
        EXPECT_TRUE(run.waitFor([&] { return run.rows().isEmpty(); })) << "nor is it listed elsewhere";
        run.window().action(Command::settings)->trigger();
        ASSERT_TRUE(run.sheet());
        run.sheet()->findChild<QCheckBox*>()->click();
        run.window().action(Command::zoomIn)->trigger();
    }
    Desk run(folder, nullptr);
    EXPECT_FALSE(run.model->settings().checkDomainAge);
    EXPECT_TRUE(run.model->settings().keepHistory);
    EXPECT_FALSE(run.sheet()) << "the welcome is not shown twice";
    EXPECT_TRUE(run.waitFor([&] { return run.rows().size() == 2; }));
    run.window().action(Command::actualSize)->trigger();
    run.window().listView()->setFocus();
    run.key(Qt::Key_Down);
    run.waitForHeadline(headlineOf("rfc8463"));
    EXPECT_FALSE(run.window().action(Command::recheck)->isEnabled());
    EXPECT_FALSE(run.window().action(Command::recheck)->toolTip().isEmpty());
    run.key(Qt::Key_Delete);
    EXPECT_TRUE(run.waitFor([&] { return run.rows().isEmpty() && run.model->history().empty(); }));
    run.window().action(Command::settings)->trigger();
    ASSERT_TRUE(run.sheet());
    test::button(*run.sheet(), "Clear History…")->click();
    const auto* outcome = run.sheet()->findChild<PlainText*>("outcome");
    EXPECT_TRUE(run.waitFor([&] { return outcome->toPlainText() == "There was nothing to remove."; }));
}

TEST(Desktop, aDamagedAndANewerHistoryAreOneLine) {
    for (const auto& [text, line] :
         {std::pair("{\"version\": 1, \"reports\": [", "Your saved history couldn’t be read"),
          std::pair("{\"version\": 99}", "Your history was saved by a newer version of Quillmark")}) {
        const QTemporaryDir folder;
        QFile file(folder.filePath("history.json"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(text) > 0);
        file.close();
        Desk run(folder);
        EXPECT_TRUE(run.waitFor([&] { return run.window().problem().startsWith(line); })) << line;
        const bool isNewer = run.model->historyState() == HistoryState::locked;
        EXPECT_TRUE(run.waitFor(
            [&] { return run.window().action(Command::recoverHistory)->isEnabled() == !isNewer; }));
        EXPECT_EQ(test::button(run.window(), "Recover Reports")->isVisible(), !isNewer);
        const auto* unsaved = run.window().findChild<PlainText*>("unsaved");
        EXPECT_FALSE(unsaved->isVisible());
        run.open();
        EXPECT_EQ(run.window().problem(), "");
        EXPECT_EQ(unsaved->isVisible(), isNewer);
        EXPECT_EQ(unsaved->toPlainText().startsWith("1 report isn’t saved yet. Your history was saved by"),
                  isNewer);
    }
}

TEST(Desktop, exportsArePutWhereThePersonSays) {
    const QTemporaryDir folder;
    Desk run(folder);
    run.open();
    const struct {
        Command command;
        const char *name, *begins;
    } rows[] = {
        {Command::exportPDF, "a.pdf", "%PDF-1."},
        {Command::exportText, "a.txt", "Quillmark report\n"},
        {Command::exportEvidence, "a.json", "{"},
        {Command::exportText, "a.txt/\nx", nullptr},
    };
    const auto* done = run.window().findChild<QWidget*>("doneLine");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        run.window().action(row.command)->trigger();
        auto* dialog = run.window().findChild<QFileDialog*>();
        ASSERT_TRUE(dialog);
        EXPECT_FALSE(dialog->testOption(QFileDialog::DontConfirmOverwrite));
        EXPECT_TRUE(dialog->selectedFiles().value(0).contains(" 2026-11-21."));
        const QString path = folder.filePath(row.name);
        QFile::copy(QString::fromStdString(samplePath("rfc6376.eml")), path);
        if (&row != rows) {
            EXPECT_EQ(dialog->directory().path(), folder.path()) << "where the last one went";
        }
        emit dialog->filesSelected({path});
        emit dialog->fileSelected(path);
        dialog->close();
        QApplication::sendPostedEvents(dialog, QEvent::DeferredDelete);
        if (row.begins) {
            EXPECT_TRUE(run.waitFor([&] { return done->accessibleName() == "Saved as " + path; }))
                << done->accessibleName().toStdString();
            EXPECT_TRUE(contents(path.toStdString()).startsWith(row.begins));
        } else {
            const QString line = "The report couldn’t be saved: " + folder.path();
            EXPECT_TRUE(run.waitFor([&] { return run.model->problem().has_value(); }));
            EXPECT_TRUE(run.model->problem()->starts_with(line.toStdString())) << *run.model->problem();
        }
    }
    EXPECT_FALSE(contents(folder.filePath("a.txt").toStdString()).endsWith('\n'));
    run.window().action(Command::copyReport)->trigger();
    EXPECT_TRUE(QApplication::clipboard()->text().startsWith("Quillmark report\n"));
    EXPECT_TRUE(done->isVisible() && done->accessibleName().startsWith("Copied."));
}

TEST(Desktop, welcomeOnTheFirstStart) {
    const QTemporaryDir folder;
    {
        Desk ended(folder, "rfc8463", false);
        ASSERT_TRUE(ended.waitFor([&] { return ended.sheet(); }));
        ended.app->openFiles({QString::fromStdString(samplePath("rfc8463.eml"))});
        QTimer::singleShot(0, ended.app.get(), &QuillmarkApp::quit);
        QApplication::exec();
        EXPECT_FALSE(ended.model->settings().onboardingDone) << "the session's end closes none";
        EXPECT_EQ(ended.resolver->asked, 0);
    }
    Desk run(folder, nullptr);
    ASSERT_TRUE(run.waitFor([&] { return run.sheet(); }));
    run.app->openFiles({QString::fromStdString(samplePath("rfc8463.eml"))});
    EXPECT_TRUE(QTest::qWaitForWindowActive(run.sheet())) << "above the window, also when a file is opened";
    EXPECT_FALSE(QTest::qWaitFor([&] { return run.resolver->asked > 0; }, 300)) << "it says what leaves";
    EXPECT_EQ(run.rows().size(), 2);
    run.sheet()->accept();
    EXPECT_TRUE(run.waitFor([&] { return run.model->settings().onboardingDone; }));
    run.waitForHeadline(headlineOf("rfc8463"));
}

/// What a person reads of a comparison, block by block: the word in the margin that is read out, and its
/// text.
QStringList blocksOf(const MessageTextView& view) {
    QStringList blocks;
    for (const QFrame* each : view.panel()->findChildren<QFrame*>()) {
        if (!each->accessibleDescription().isEmpty())
            blocks << each->accessibleName() + ": " + each->accessibleDescription();
    }
    return blocks;
}

TEST(Desktop, whatWasSignedIsThatOfTheMessageThatIsShown) {
    const QTemporaryDir folder;
    const struct {
        const char* sample;
        QStringList marked;
    } rows[] = {
        {"list-footer",
         {"as shown, not signed: Subject: [ringers] Practice moves to Thursday",
          "added, not signed, 3 lines: _______________________________________________\nringers mailing "
          "list\n"
          "https://lists.parish.example/ringers"}},
        {"gateway",
         {"as shown, not signed: Subject: [EXTERNAL] Practice moves to Thursday",
          "added, not signed, 2 lines: CAUTION: This message came from outside. Do not click links\n"
          "unless you know the sender.\n",
          "changed, not signed, 1 line: The new touches are at "
          "https://eu1.links.gateway.example/?url=https"}},
    };
    Desk run(folder, "list-footer");
    QAction* command = run.window().action(Command::whatWasSigned);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.sample);
        run.app->openFiles({QString::fromStdString(samplePath(row.sample + std::string(".eml")))});
        ASSERT_TRUE(run.waitFor([&] { return !run.model->busy() && command->isEnabled(); }));
        command->trigger();
        // Another one is asked for before the first is read.
        run.sheet()->reject();
        auto* button = run.window().reportView()->findChild<QPushButton*>("compare");
        ASSERT_TRUE(button);
        button->click();
        auto* view = qobject_cast<MessageTextView*>(run.sheet());
        ASSERT_TRUE(view);
        ASSERT_TRUE(run.waitFor([&] { return blocksOf(*view).size() > 5 && view->panel()->isComplete(); }));
        QTest::keyClick(view->panel(), Qt::Key_Tab);
        EXPECT_TRUE(view->focusWidget()->accessibleDescription().startsWith("From: "))
            << "blocks come before buttons";
        QStringList marked;
        while (marked.size() <= row.marked.size() && view->panel()->goToMarked(true)) {
            const QWidget* focus = view->focusWidget();
            marked << focus->accessibleName() + ": " + focus->accessibleDescription();
        }
        for (qsizetype i = 0; i < std::min(marked.size(), row.marked.size()); ++i)
            EXPECT_TRUE(marked[i].startsWith(row.marked[i])) << marked[i].toStdString();
        EXPECT_EQ(marked.size(), row.marked.size());
        EXPECT_TRUE(blocksOf(*view).contains("as signed: Subject: Practice moves to Thursday"));
        QTest::keyClick(view->focusWidget(), Qt::Key_Escape);
        EXPECT_FALSE(run.sheet());
        test::button(*run.window().findChild<QFrame*>("banner"), "Compare…")->click();
        ASSERT_TRUE(run.sheet()) << "where it is said what to do";
        run.sheet()->reject();
        run.window().action(Command::messageAsText)->trigger();
        view = qobject_cast<MessageTextView*>(run.sheet());
        ASSERT_TRUE(view);
        const QString subject = "header line: " + row.marked[0].mid(row.marked[0].indexOf("Subject"));
        EXPECT_TRUE(run.waitFor([&] { return blocksOf(*view).contains(subject); }));
        view->reject();
    }
    // A report of the history lacks the message.
    const UUID id = run.model->history().front()->id;
    run.model->removeFromList({id});
    run.model->select(id);
    EXPECT_TRUE(run.waitFor([&] { return !command->isEnabled(); }));
    EXPECT_EQ(command->toolTip().toStdString(), "Open the file again to see this.");
    EXPECT_FALSE(run.window().reportView()->findChild<QPushButton*>("compare")->isEnabled());
    EXPECT_FALSE(run.window().action(Command::messageAsText)->isEnabled());
}

/// Whether a control can be told from others without seeing it.
QString spokenName(QWidget* widget) {
    if (!widget->accessibleName().isEmpty()) return widget->accessibleName();
    if (auto* button = qobject_cast<QAbstractButton*>(widget)) return button->text().remove(u'&');
    return {};
}

TEST(Desktop, theKeyboardReachesEverythingAndEverythingHasAName) {
    const QTemporaryDir folder;
    Desk run(folder, "mailing-list");
    run.app->openFiles({QString::fromStdString(samplePath("mailing-list.eml"))});
    EXPECT_TRUE(run.waitFor([&] { return !run.headline().isEmpty() && !run.model->busy(); }));
    run.key(Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(spokenName(QApplication::focusWidget()), "Filter the list");
    run.key(Qt::Key_X);
    EXPECT_EQ(run.list().choice().filter, "x");
    run.key(Qt::Key_Escape);
    EXPECT_EQ(run.list().choice().filter, "");
    run.key(Qt::Key_Down);
    EXPECT_EQ(QApplication::focusWidget(), run.window().listView());
    run.key(Qt::Key_Return);
    EXPECT_EQ(QApplication::focusWidget()->objectName(), "banner");
    const QPointer<QWidget> before = QApplication::focusWidget();
    run.window().action(Command::zoomIn)->trigger();
    EXPECT_TRUE(run.waitFor([&] { return !before; })) << "it is made anew";
    ASSERT_TRUE(QApplication::focusWidget());
    EXPECT_EQ(QApplication::focusWidget()->objectName(), "banner");
    run.key(Qt::Key_Escape);
    EXPECT_EQ(QApplication::focusWidget(), run.window().listView());
    run.key(Qt::Key_Escape);
    EXPECT_EQ(spokenName(QApplication::focusWidget()), "Filter the list");
    std::set<QWidget*> reached;
    QStringList names;
    while (QWidget* focus = QApplication::focusWidget()) {
        if (!reached.insert(focus).second) break;
        EXPECT_FALSE(spokenName(focus).isEmpty()) << focus->metaObject()->className();
        names << spokenName(focus);
        QTest::keyClick(focus, Qt::Key_Tab);
    }
    for (const char* expected :
         {"Open…", "Paste…", "Export", "Filter the list", "Sort by", "Checked messages"}) {
        EXPECT_TRUE(names.contains(expected)) << expected << " not in " << names.join('|').toStdString();
    }
    EXPECT_FALSE(names.filter("Details: ").isEmpty());
    EXPECT_FALSE(names.filter("Signature broken").isEmpty()) << "the verdict is read out";
    // Every command of the menus has a title, and every key works for one command alone.
    std::set<QString> keys;
    for (QAction* menu : run.window().menuBar()->actions()) {
        EXPECT_TRUE(menu->text().contains('&'));
        for (QAction* each : menu->menu()->actions()) {
            if (each->isSeparator()) continue;
            EXPECT_FALSE(each->text().isEmpty());
            for (const QKeySequence& key : each->shortcuts()) EXPECT_TRUE(keys.insert(key.toString()).second);
        }
    }
}

}  // namespace
}  // namespace quillmark
