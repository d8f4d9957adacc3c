#include "tests/CheckProcessesOfTests.h"
#include "tests/WindowTest.h"

int main(int argc, char** argv) {
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    testing::InitGoogleTest(&argc, argv);
    quillmark::test::checkProcesses();  // while there is one thread
    QStandardPaths::setTestModeEnabled(true);
    QApplication::setDesktopSettingsAware(false);
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
