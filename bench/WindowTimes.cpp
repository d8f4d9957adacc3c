// How long the window keeps a person waiting: its start, and the longest time that one event held up the main
// thread while it worked. Each scenario is a process of its own, with a home folder of its own.
//   QT_QPA_PLATFORM=offscreen window_times

#include <sys/wait.h>
#include <unistd.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QListView>
#include <QMimeData>
#include <QScrollBar>
#include <QSettings>
#include <QTemporaryDir>
#include <QTreeView>
#include <QUrl>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>

#include "Quillmark/ListPanel.h"
#include "Quillmark/MailboxView.h"
#include "Quillmark/QuillmarkApp.h"
#include "Quillmark/ReportView.h"
#include "QuillmarkKit/Lookups/DoHResolver.h"
#include "QuillmarkKit/Lookups/RDAP.h"
#include "QuillmarkKit/Support/HTTP.h"
#include "QuillmarkKit/Verifier.h"
#include "tests/TestSigner.h"

namespace {

using namespace quillmark;
using Clock = std::chrono::steady_clock;

/// Processor time of this thread: without what other programs took of the machine meanwhile.
Clock::duration processorTime() {
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

double milliseconds(Clock::duration time) { return std::chrono::duration<double, std::milli>(time).count(); }

/// Takes the time of each event, those inside another counting as part of it.
class TimedApplication : public QApplication {
public:
    using QApplication::QApplication;
    bool notify(QObject* receiver, QEvent* event) override {
        if (m_depth > 0) return QApplication::notify(receiver, event);
        const std::string what =
            std::string(receiver->metaObject()->className()) + " " + std::to_string(event->type());
        bool isDone = false;
        measure(what, [&] { isDone = QApplication::notify(receiver, event); });
        return isDone;
    }
    /// Work that a person's click or drop would do.
    void act(const char* what, const std::function<void()>& work) { measure(what, work); }
    void tell(const char* scenario) {
        std::printf("%-52s %7.1f ms, %6.1f of them at work (%s)\n", scenario, milliseconds(m_longest),
                    milliseconds(m_work), m_what.c_str());
        m_longest = {};
    }

private:
    void measure(const std::string& what, const std::function<void()>& work) {
        ++m_depth;
        const auto begun = Clock::now();
        const auto worked = processorTime();
        work();
        --m_depth;
        if (Clock::now() - begun <= m_longest) return;
        m_longest = Clock::now() - begun;
        m_work = processorTime() - worked;
        m_what = what;
    }

    int m_depth = 0;
    Clock::duration m_longest = {}, m_work = {};
    std::string m_what;
};

void waitFor(const std::function<bool()>& condition) {
    QElapsedTimer waited;
    waited.start();
    while (!condition() && waited.elapsed() < 120'000) {
        QApplication::processEvents(QEventLoop::AllEvents, 5);
        usleep(200);
    }
    // And what follows from it: painting, saving.
    for (QElapsedTimer after; !after.isValid() || after.elapsed() < 700;) {
        if (!after.isValid()) after.start();
        QApplication::processEvents(QEventLoop::AllEvents, 5);
        usleep(200);
    }
}

const test::PrivateKey& key() {
    static const test::PrivateKey made = test::PrivateKey::rsa(2048);
    return made;
}

/// The application over a folder, answering from memory.
struct Desk {
    explicit Desk(const QString& folder) : settings(folder + "/window.ini", QSettings::IniFormat) {
        AppModel::Surroundings surroundings;
        surroundings.resolver = std::make_shared<StaticResolver>(StaticResolver::Answers{
            {"key._domainkey.example.org|TXT", DNSAnswer::records({test::keyRecord(key())})}});
        surroundings.historyFile = [path = (folder + "/history.json").toStdString()] {
            return HistoryFile{path};
        };
        surroundings.settings = std::make_shared<UserSettingsStore>(folder + "/settings.ini");
        saveSettings({.onboardingDone = true}, *surroundings.settings);
        surroundings.now = now;
        model = std::make_unique<AppModel>(surroundings);
        app = std::make_unique<QuillmarkApp>(
            *model, QuillmarkApp::Surroundings{&settings, [] { return std::string(); }, now}, Words{});
        app->openFiles({});
    }
    ~Desk() { model->finish(); }
    static Date now() {
        return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    }
    MainView& window() { return app->window(); }
    void waitUntilIdle() {
        waitFor([this] { return !model->busy(); });
    }

    QSettings settings;
    std::unique_ptr<AppModel> model;
    std::unique_ptr<QuillmarkApp> app;
};

std::string ordinaryMessage(const std::string& subject = "Minutes", std::size_t bodyBytes = 1'000) {
    std::string body;
    while (body.size() < bodyBytes) body += "A line of an ordinary message, as long as such lines are.\r\n";
    return test::signedMessage("From: Alice <alice@example.org>\r\nSubject: " + subject + "\r\n\r\n" + body,
                               {}, key());
}

void write(const QString& path, const std::string& bytes) {
    std::ofstream(path.toStdString(), std::ios::binary) << bytes;
}

void saveHistory(const QString& folder, std::size_t count) {
    const auto resolver = std::make_shared<StaticResolver>(StaticResolver::Answers{});
    const MailMessage message = MailMessage::parse(ByteBuffer(ordinaryMessage()), ParseMode::strict);
    ProofReport report = Verifier(resolver, nullptr).verify(message, "minutes.eml", Desk::now());
    History history;
    for (std::size_t i = 0; i < count; ++i) {
        report.id = UUID::random();
        report.summary.subject = "Minutes of meeting " + std::to_string(i);
        history.reports.push_back(report);
    }
    HistoryFile{(folder + "/history.json").toStdString()}.save(history);
}

// The scenarios

void largeMessage(TimedApplication& application, const QString& folder) {
    Desk desk(folder);
    desk.waitUntilIdle();
    const QString path = folder + "/large.eml";
    write(path, ordinaryMessage("Large", 49'900'000));
    application.tell("(start)");
    application.act("open", [&] { desk.app->openFiles({path}); });
    desk.waitUntilIdle();
    application.tell("a file of 50 MB is opened and checked");
    application.act("re-check", [&] { desk.window().action(Command::recheck)->trigger(); });
    desk.waitUntilIdle();
    application.tell("it is checked again");
    QMimeData data;
    data.setData("message/rfc822", QByteArray::fromStdString(ordinaryMessage("Dropped", 49'900'000)));
    application.act("drop", [&] { emit desk.window().received(dropContents(data)); });
    desk.waitUntilIdle();
    application.tell("a message of 50 MB is dropped as data");
    write(path, ordinaryMessage("Dropped file", 15'900'000));
    QMimeData file;
    file.setUrls({QUrl::fromLocalFile(path)});
    application.act("drop", [&] { emit desk.window().received(dropContents(file)); });
    desk.waitUntilIdle();
    application.tell("a file of 15.9 MB is dropped");
}

void scroll(TimedApplication& application, QAbstractItemView& view, const char* what) {
    waitFor([] { return true; });
    application.tell("(before)");
    constexpr int frames = 500;
    const auto begun = Clock::now();
    for (int i = 0; i < frames; ++i) {
        view.verticalScrollBar()->setValue(view.verticalScrollBar()->maximum() / frames * i);
        QApplication::processEvents();
    }
    std::printf("%-52s %7.1f ms a frame\n", what, milliseconds(Clock::now() - begun) / frames);
    application.tell("the slowest of its frames");
}

void longHistory(TimedApplication& application, const QString& folder) {
    saveHistory(folder, 10'000);
    Desk desk(folder);
    QAbstractItemModel& list = *desk.window().listView()->model();
    waitFor([&] { return list.rowCount() > 10'000; });
    application.tell("a history of 10,000 reports loads");
    write(folder + "/one.eml", ordinaryMessage());
    application.act("open", [&] { desk.app->openFiles({folder + "/one.eml"}); });
    desk.waitUntilIdle();
    application.tell("a message is checked beside it");
    auto* filter = desk.window().findChild<QLineEdit*>(QStringLiteral("filter"));
    for (const QString& text : {QString("m"), QString("me"), QString("meeting 99"), QString()}) {
        application.act("type", [&] { filter->setText(text); });
        waitFor([] { return true; });
    }
    application.tell("the list is filtered");
    QAction* table = desk.window().action(Command::showTable);
    application.act("sort", [&] { list.sort(subjectColumn); });
    waitFor([] { return true; });
    application.tell("it is sorted by subject");
    application.act("sort", [&] { list.sort(verdictColumn); });
    waitFor([] { return true; });
    application.tell("it is sorted by verdict");
    application.act("table", [&] { table->trigger(); });
    waitFor([] { return true; });
    application.tell("it is shown as a table");
    scroll(application, *desk.window().listPanel()->tableView(), "scrolling through that");
    application.act("sort", [&] { list.sort(signedByColumn, Qt::DescendingOrder); });
    waitFor([] { return true; });
    application.tell("it is sorted by signing domain");
    application.act("list", [&] { table->trigger(); });
    application.act("sort", [&] { list.sort(checkedColumn, Qt::DescendingOrder); });
    QListView& view = *desk.window().listView();
    scroll(application, view, "scrolling through the list");
    QModelIndex next = list.index(5'000, 0);
    application.act("select", [&] { view.setCurrentIndex(next); });
    waitFor([] { return true; });
    application.tell("a report is selected");
    application.act("remove", [&] { desk.window().action(Command::removeFromHistory)->trigger(); });
    waitFor([&] { return list.rowCount() < 10'003; });
    application.tell("it is removed from the history");
}

const std::string ordinaryHead = "From: a@example.org\nSubject: ";

void many(TimedApplication& application, const QString& folder) {
    QStringList paths;
    for (int i = 0; i < 10'000; ++i) {
        paths << folder + QStringLiteral("/%1.eml").arg(i);
        write(paths.back(), "From: a@example.org\r\nSubject: " + std::to_string(i) + "\r\n\r\nhello\r\n");
    }
    Desk desk(folder);
    desk.waitUntilIdle();
    application.tell("(start)");
    application.act("open", [&] { desk.app->openFiles(paths); });
    desk.waitUntilIdle();
    application.tell("10,000 files are opened and checked");
    std::string mbox;
    for (int i = 0; i < 10'000; ++i)
        mbox += "From a@example.org Sat Nov 21 10:00:00 2026\n" + ordinaryHead + std::to_string(i) +
                "\n\nhello\n\n";
    write(folder + "/Inbox", mbox);
    QElapsedTimer taken;
    taken.start();
    application.act("open", [&] { desk.app->openFiles({folder + "/Inbox"}); });
    desk.waitUntilIdle();
    std::printf("%-52s %7.1f s\n", "a mailbox of 10,000 messages beside them",
                static_cast<double>(taken.elapsed()) / 1'000);
    application.tell("meanwhile");  // its page is shown and grows
    application.act("paint", [&] { desk.window().mailboxView()->grab(); });
    application.tell("its page is painted");
    application.act("choose", [&] { desk.window().listView()->selectAll(); });
    waitFor([] { return true; });
    application.tell("all 20,000 are chosen");
    application.act("remove", [&] { desk.window().action(Command::removeFromList)->trigger(); });
    waitFor([] { return true; });
    application.tell("they are removed");
    application.act("undo", [&] { desk.model->undoRemoval(); });
    waitFor([] { return true; });
    application.tell("they come back");
}

void hostile(TimedApplication& application, const QString& folder) {
    const std::string from = "From: a@example.org\r\n";
    std::string addresses = "a@x.example", signatures, markup = "<b><img src='x'>&amp;", bidi, hops;
    for (int i = 0; i < 1'000'000; ++i) addresses += ",\r\n b@x.example";
    for (int i = 0; i < 20'000; ++i) {
        signatures += "DKIM-Signature: v=1; a=rsa-sha256; d=example.org; s=s" + std::to_string(i) +
                      "; h=from; bh=AAAA; b=AAAA\r\n";
        hops += "Received: from a.example by b.example; Sat, 21 Nov 2026 10:00:00 +0000\r\n";
        bidi += "\u05D0\u202E\u2066a ";
    }
    for (int i = 0; i < 15; ++i) markup += markup;
    const std::pair<const char*, std::string> rows[] = {
        {"a subject of a megabyte", from + "Subject: " + std::string(1'000'000, 'x')},
        {"a subject that turns its direction 20,000 times", from + "Subject: " + bidi},
        {"a million addresses in To and From", "To: " + addresses + "\r\nFrom: " + addresses},
        {"20,000 signatures", signatures + "From: a@example.org"},
        {"20,000 Received lines", hops + "From: a@example.org"},
        {"markup of a megabyte in From, To and Subject",
         "From: " + markup + " <a@example.org>\r\nTo: " + markup + "\r\nSubject: " + markup},
    };
    for (const auto& [name, head] : rows) {
        Desk desk(folder);
        desk.waitUntilIdle();
        application.tell("(start)");
        const QString path = folder + "/hostile.eml";
        write(path, head + "\r\n\r\nhello\r\n");
        application.act("open", [&] { desk.app->openFiles({path}); });
        desk.waitUntilIdle();
        application.tell(name);
        application.act("expand", [&] { desk.window().reportView()->expandAll(true); });
        waitFor([&] { return desk.window().reportView()->isComplete(); });
        application.tell("  its details unfolded");
    }
}

/// As `main` of the application does, until the window's first painting.
int start(int argc, char** argv, Clock::time_point begun) {
    QApplication application(argc, argv);
    const auto http = std::make_shared<HTTPEngine>(HTTPOptions{});
    AppModel::Surroundings surroundings;
    surroundings.resolver = std::make_shared<DoHResolver>(http);
    surroundings.registry = std::make_shared<RDAPClient>(http, RDAPOptions{});
    surroundings.historyFile = [] { return HistoryFile{HistoryFile::defaultLocation("Quillmark")}; };
    surroundings.settings = std::make_shared<UserSettingsStore>();
    saveSettings({.onboardingDone = true}, *surroundings.settings);
    surroundings.now = Desk::now;
    const Words words{Reader::ofEnvironment()};
    surroundings.reader = words.reader;
    AppModel model(surroundings);
    QSettings settings(QStringLiteral("quillmark"), QStringLiteral("window"));
    QuillmarkApp app(model, {&settings, [] { return std::string(); }, Desk::now}, words);
    app.openFiles({});
    struct Watch : QObject {
        bool eventFilter(QObject*, QEvent* event) override {
            if (event->type() == QEvent::Paint) isPainted = true;
            return false;
        }
        bool isPainted = false;
    } watch;
    app.window().centralWidget()->installEventFilter(&watch);
    while (!watch.isPainted) QApplication::processEvents(QEventLoop::WaitForMoreEvents);
    QApplication::processEvents();
    std::printf("%.1f\n", milliseconds(Clock::now() - begun));
    return 0;
}

/// Runs this program again with `scenario`.
void run(const char* program, const char* scenario) {
    std::fflush(stdout);
    const std::string begun = std::to_string(Clock::now().time_since_epoch().count());
    const pid_t child = fork();
    if (child == 0) {
        execl(program, program, scenario, begun.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) std::printf("%s failed\n", scenario);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        const QTemporaryDir home;
        for (const char* name : {"HOME", "XDG_RUNTIME_DIR"}) qputenv(name, home.path().toLocal8Bit());
        for (const char* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"}) qunsetenv(name);
        std::puts("process start to the painted window, five times, the first one cold:");
        for (int i = 0; i < 5; ++i) run("/proc/self/exe", "start");
        std::puts("the longest time that one event held up the main thread, while");
        for (const char* each : {"large", "history", "many", "hostile"}) run("/proc/self/exe", each);
        return 0;
    }
    const std::string scenario = argv[1];
    if (scenario == "start")
        return start(argc, argv, Clock::time_point(Clock::duration(std::stoll(argc > 2 ? argv[2] : "0"))));
    TimedApplication application(argc, argv);
    const QTemporaryDir folder;
    if (scenario == "large") largeMessage(application, folder.path());
    if (scenario == "history") longHistory(application, folder.path());
    if (scenario == "many") many(application, folder.path());
    if (scenario == "hostile") hostile(application, folder.path());
    std::fflush(stdout);
    return 0;
}
