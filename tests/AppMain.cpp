#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QStandardPaths>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    QStandardPaths::setTestModeEnabled(true);
    const QCoreApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
