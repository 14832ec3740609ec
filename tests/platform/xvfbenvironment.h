#pragma once

#include <QGuiApplication>
#include <QLocale>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>

#include <gtest/gtest.h>

// The X screen's size: 2560x1600 unless TAMLO_TEST_SCREEN names another, as WIDTHxHEIGHT.
inline QSize screenSize()
{
    const QStringList parts = qEnvironmentVariable("TAMLO_TEST_SCREEN", QStringLiteral("2560x1600")).split(u'x');
    return parts.size() == 2 ? QSize(parts.at(0).toInt(), parts.at(1).toInt()) : QSize();
}

// An X server of the test's own with openbox on it, and the application connected to it.
class XvfbEnvironment : public ::testing::Environment
{
public:
    XvfbEnvironment(int argc, char **argv) : m_argc(argc), m_argv(argv) { }

    void SetUp() override
    {
        const QString program = QStandardPaths::findExecutable(QStringLiteral("Xvfb"));
        if (program.isEmpty()) {
            s_skipReason = "Xvfb is not installed (Debian package xvfb)";
            return;
        }
        // Xvfb picks a display nobody holds and prints it once it accepts connections, so a test
        // running beside this one can never leave us talking to its display.
        m_server.start(program,
            QStringList {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-noreset"),
                QStringLiteral("-nolisten"), QStringLiteral("tcp"), QStringLiteral("-screen"), QStringLiteral("0")}
                << QStringLiteral("%1x%2x24").arg(screenSize().width()).arg(screenSize().height()));
        while (m_server.waitForStarted(5000) && !m_server.canReadLine() && m_server.waitForReadyRead(10000)) { }
        if (!m_server.canReadLine()) {
            s_startError = "Xvfb could not be started on a free display";
            return;
        }
        qputenv("DISPLAY", ":" + m_server.readLine().trimmed());
        qputenv("QT_QPA_PLATFORM", "xcb");
        m_windowManager.start(QStringLiteral("openbox"), {QStringLiteral("--sm-disable")});
        // No application exists yet to wait with, so this waits plainly until openbox claims the screen.
        bool claimed = false;
        for (int attempt = 0; attempt < 150 && !claimed && m_windowManager.waitForStarted(5000); ++attempt) {
            QProcess probe;
            probe.start(QStringLiteral("xprop"), {QStringLiteral("-root"), QStringLiteral("_NET_SUPPORTING_WM_CHECK")});
            claimed = probe.waitForFinished(5000) && probe.readAllStandardOutput().contains("window id");
            QThread::msleep(claimed ? 0 : 100);
        }
        if (!claimed) {
            s_noWindowManager = "openbox did not claim the screen (Debian package openbox)";
        }
        s_app = new QGuiApplication(m_argc, m_argv);
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    }

    void TearDown() override
    {
        delete s_app;
        s_app = nullptr;
        for (QProcess *process : {&m_windowManager, &m_server}) {
            process->terminate();
            process->waitForFinished(5000);
        }
    }

    static inline QGuiApplication *s_app = nullptr;
    static inline std::string s_skipReason;
    static inline std::string s_startError;
    static inline std::string s_noWindowManager;

private:
    int m_argc;
    char **m_argv;
    QProcess m_server;
    QProcess m_windowManager;
};
