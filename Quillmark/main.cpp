#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QSettings>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string_view>

#include "Apart/CheckProcesses.h"
#include "Apart/CheckWorker.h"
#include "Apart/NetworkProcess.h"
#include "Apart/NetworkWorker.h"
#include "Quillmark/AppModel.h"
#include "Quillmark/DesktopOptions.h"
#include "Quillmark/Panels.h"
#include "Quillmark/QuillmarkApp.h"
#include "Quillmark/SingleInstance.h"
#include "QuillmarkKit/Lookups/KeyBook.h"
#include "QuillmarkKit/Lookups/RDAP.h"
#include "QuillmarkKit/Support/HTTP.h"
#include "QuillmarkKit/Version.h"
#include "Sandbox/ProgramSandbox.h"
#include "Settings/ChosenResolver.h"
#include "Settings/CurrentTime.h"
#include "Settings/UserFolders.h"
#include "WindowBaseline/FusionEdges.h"
#include "WindowBaseline/QtWords.h"
#include "Wording/HistoryWording.h"

namespace {

using namespace quillmark;

/// A descriptor that can be read once the session wants the process to end. To be called before there is any
/// thread, so that all of them leave these signals alone.
int endOfSession() {
    signal(SIGPIPE, SIG_IGN);  // a connection that breaks is an error of that connection, not of the program
    sigset_t endings;
    sigemptyset(&endings);
    for (const int each : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&endings, each);
    pthread_sigmask(SIG_BLOCK, &endings, nullptr);
    return signalfd(-1, &endings, SFD_CLOEXEC | SFD_NONBLOCK);
}

/// Whether one of these options is among the arguments.
bool has(std::initializer_list<std::string_view> options, int argc, char** argv) {
    return std::any_of(argv + 1, argv + argc, [&](const char* argument) {
        return std::ranges::find(options, argument) != options.end();
    });
}

/// What the version is, and with --verbose what confines the processes that check.
void printVersion(const QCommandLineParser& parser, const Reader& reader) {
    std::cout << "quillmark-desktop " QUILLMARK_VERSION "\n";
    if (!parser.isSet(QStringLiteral("verbose"))) return;
    const bool isLeftOut = parser.isSet(QStringLiteral("no-sandbox"));
    for (const std::string& line : isLeftOut
                                       ? std::vector{reader.translate("Sandbox: none, as --no-sandbox asks")}
                                       : linesOfSandbox(reader))
        std::cout << line << '\n';
}

/// The files among the arguments. Prints help or version, or what is wrong with the arguments, and ends the
/// process then.
QStringList filesOf(const QCoreApplication& application, const Words& words) {
    const CommandTable table = desktopTable();
    QCommandLineParser parser;
    parser.setApplicationDescription(words(table.purpose));
    for (const OptionEntry& option : table.options) {
        QStringList names;
        for (const std::string& name : option.names)
            names << QString::fromStdString(name.substr(name.find_first_not_of('-')));
        parser.addOption({names, words(option.purpose)});
    }
    for (const ArgumentEntry& each : table.arguments) {
        const QString name = words(each.name);
        parser.addPositionalArgument(name, words(each.purpose), QStringLiteral("[%1…]").arg(name));
    }
    parser.process(application);
    if (parser.isSet(QStringLiteral("version"))) {
        printVersion(parser, words.reader);
        std::exit(0);
    }
    if (parser.isSet(QStringLiteral("help"))) parser.showHelp();
    QStringList files;
    for (const QString& each : parser.positionalArguments()) files << QDir::current().absoluteFilePath(each);
    return files;
}

/// The reader of this environment, whose language Qt speaks from now on, too.
Reader readerOfApplication() {
    const Reader reader = Reader::ofEnvironment();
    if (reader.language != Language::english)
        window_baseline::translateQt(QString::fromLatin1(factsOf(reader.language).tag));
    return reader;
}

/// Whether there is nowhere to show a window, of which Qt would say that reinstalling may help.
bool hasNoScreen(int argc, char** argv) {
    const bool isPlatformNamed =
        std::any_of(argv + 1, argv + argc, [](std::string_view each) { return each.ends_with("-platform"); });
    return !isPlatformNamed && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") &&
           qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

}  // namespace

int main(int argc, char** argv) {
    const int ending = endOfSession();
    QCoreApplication::setApplicationName(QStringLiteral("quillmark-desktop"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QUILLMARK_VERSION));
    if (has({"-h", "--help", "-v", "--version"}, argc, argv)) {  // which need no screen
        const QCoreApplication application(argc, argv);
        filesOf(application, Words{readerOfApplication()});
        return 0;
    }
    if (hasNoScreen(argc, argv)) {
        const Words words{Reader::ofEnvironment()};
        std::cerr << "quillmark-desktop: "
                  << words("There is no screen to show a window on. In a terminal, quillmark does the same.")
                         .toStdString()
                  << '\n';
        return 1;
    }
    // Before Qt starts a thread, as each of them is a copy of this one.
    std::shared_ptr<CheckProcesses> processes;
    std::shared_ptr<NetworkProcess> network;
    if (has({"--no-sandbox"}, argc, argv)) {
        std::cerr << "quillmark-desktop: " << sandboxLeftOut(Reader::ofEnvironment()) << '\n';
    } else {
        network = std::make_shared<NetworkProcess>(serveUsualNetwork, sandboxOfUsualNetwork());
        processes = std::make_shared<CheckProcesses>(serveChecks);
    }
    QApplication application(argc, argv);
    QApplication::setApplicationDisplayName(QStringLiteral("Quillmark"));
    QApplication::setDesktopFileName(QStringLiteral("org.quillmark.Quillmark"));
    QApplication::setWindowIcon(programIcon());
    window_baseline::showFusionsEdges();
    const Words words{readerOfApplication()};
    QApplication::setLayoutDirection(factsOf(words.reader.language).isRightToLeft ? Qt::RightToLeft
                                                                                  : Qt::LeftToRight);

    const QStringList files = filesOf(application, words);

    SingleInstance instance(QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation));
    if (!instance.isFirst() && instance.handOver(files)) return 0;

    AppModel::Surroundings surroundings;
    const auto ignored = [reader = words.reader](const std::filesystem::path& file) {
        std::cerr << "quillmark-desktop: " + fileIgnored(file, reader) + "\n";
    };
    if (network) {
        surroundings.otherResolver = [network](std::string_view choice) {
            return std::make_shared<ApartResolver>(network, std::string(choice));
        };
        surroundings.registry = std::make_shared<ApartRegistry>(network, ignored);
    } else {
        const auto http = std::make_shared<HTTPEngine>(HTTPOptions::ofEnvironment());
        surroundings.otherResolver = [http](std::string_view choice) { return chosenResolver(choice, http); };
        surroundings.registry = std::make_shared<RDAPClient>(
            http, RDAPOptions{.cacheDirectory = cacheFolder(), .ignored = ignored});
    }
    surroundings.resolver = surroundings.otherResolver(usualResolver);
    surroundings.historyFile = [] { return HistoryFile{HistoryFile::defaultLocation(dataFolderName)}; };
    try {
        surroundings.keyBook = KeyBook::besideHistory(surroundings.historyFile().url);
        surroundings.keys =
            std::make_shared<KeptKeys>(KeyBook{surroundings.keyBook}, KeptKeys::Options{.now = currentTime});
    } catch (const std::filesystem::filesystem_error&) {  // NOLINT(bugprone-empty-catch)
        // Without a folder for it there is no book; of the history that is told.
    }
    surroundings.settings = std::make_shared<UserSettingsStore>();
    surroundings.now = currentTime;
    surroundings.processes = processes;
    surroundings.reader = words.reader;
    AppModel model(surroundings);

    const QTemporaryDir forgotten;
    const QString folder =
        QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/quillmark/";
    QString windowFile = folder + "window.conf";
    for (const QString& file : {QString(folder + "quillmark.conf"), windowFile}) {
        if (!isFitForSettings(file.toStdString())) ignored(file.toStdString());
    }
    if (!isFitForSettings(windowFile.toStdString())) windowFile = forgotten.filePath("window.conf");
    QSettings windowSettings(windowFile, QSettings::IniFormat);
    QuillmarkApp app(
        model,
        {&windowSettings, [] { return HistoryFile::defaultLocation(dataFolderName).parent_path().string(); },
         currentTime},
        words);
    QObject::connect(&instance, &SingleInstance::received, &app, &QuillmarkApp::openFiles);
    QSocketNotifier notifier(ending, QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &app, &QuillmarkApp::quit);
    app.openFiles(files);
    const int status = QApplication::exec();
    instance.end();
    bool failed = false;  // there is no window any more to say it
    QObject::connect(&model, &AppModel::problemChanged, [&] {
        if (!model.problem()) return;
        failed = true;
        std::cerr << "quillmark-desktop: " << *model.problem() << '\n';
    });
    app.finish();
    model.finish();
    return failed ? 1 : status;
}
