#include <QCoreApplication>
#include <QLocale>

#include <gtest/gtest.h>

// Tests of logic need an event loop but no display.
int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
