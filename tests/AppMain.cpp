#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QStandardPaths>

#include "tests/CheckProcessesOfTests.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    quillmark::test::checkProcesses();  // while there is one thread
    QStandardPaths::setTestModeEnabled(true);
    const QCoreApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
