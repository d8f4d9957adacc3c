/// The window over a sample's recorded answers, for `tests/accessible`, which reads it as a screen reader
/// does:
///   accessible_window SAMPLE.dns.json FOLDER
/// Opens each file that is named in a line of standard input, copies the report for the line "copy", and ends
/// with it.

#include <QApplication>
#include <QSettings>
#include <QSocketNotifier>
#include <iostream>

#include "CommandLine/FixedAnswers.h"
#include "Quillmark/AppModel.h"
#include "Quillmark/QuillmarkApp.h"
#include "WindowBaseline/FusionEdges.h"

int main(int argc, char** argv) {
    using namespace quillmark;
    QApplication application(argc, argv);
    window_baseline::showFusionsEdges();
    if (argc != 3) return 2;
    const FixedAnswers fixed = FixedAnswers::read(argv[1]);
    const std::string folder = argv[2];
    const auto now = [at = fixed.at.value_or(Date(std::chrono::sys_days(std::chrono::January / 15 / 2026)))] {
        return at;
    };
    AppModel::Surroundings surroundings;
    surroundings.resolver = std::make_shared<StaticResolver>(fixed.answers, fixed.failing, fixed.errors);
    if (fixed.registrations) surroundings.registry = std::make_shared<StaticRegistry>(*fixed.registrations);
    surroundings.historyFile = [folder] { return HistoryFile{folder + "/history.json"}; };
    surroundings.settings = std::make_shared<MemorySettingsStore>();
    saveSettings({.onboardingDone = true}, *surroundings.settings);
    surroundings.now = now;
    surroundings.reader = {.platform = Platform::other, .zone = [](Date) { return ZoneOffset{}; }};
    AppModel model(surroundings);
    QSettings settings(QString::fromStdString(folder + "/window.ini"), QSettings::IniFormat);
    QuillmarkApp app(model, {&settings, [] { return std::string(); }, now}, Words{surroundings.reader});
    app.openFiles({});
    QSocketNotifier input(0, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &application, [&] {
        std::string path;
        if (!std::getline(std::cin, path)) return QApplication::quit();
        if (path == "copy") return app.window().action(Command::copyReport)->trigger();
        app.openFiles({QString::fromStdString(path)});
    });
    const int status = QApplication::exec();
    model.finish();
    return status;
}
