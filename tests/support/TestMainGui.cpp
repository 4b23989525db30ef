#include <QApplication>
#include <QStandardPaths>

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv)
{
    // Discovery and CI run without a display; widgets still need a platform.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QStandardPaths::setTestModeEnabled(true);
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
