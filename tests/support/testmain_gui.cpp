#include <QGuiApplication>
#include <QLocale>

#include <gtest/gtest.h>

// Tests that scale images or draw need a GUI application; CTest runs them offscreen.
int main(int argc, char **argv)
{
    // Test discovery runs the binary outside CTest's environment, where there may be no display.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QGuiApplication app(argc, argv);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
