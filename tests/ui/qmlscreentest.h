#pragma once

#include <QDir>
#include <QImage>
#include <QQuickView>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QSize>
#include <QStringList>

#include <gtest/gtest.h>

#include <memory>

// A screen drawn offscreen in software: every warning QML reports while it is up fails the
// picture it was reported for, and each picture is written to the screenshot folder.
class QmlScreenTest : public ::testing::Test
{
protected:
    QmlScreenTest()
    {
        static const bool softwareRendering = [] {
            QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
            return true;
        }();
        Q_UNUSED(softwareRendering);
        s_warnings = &m_warnings;
        s_previousHandler = qInstallMessageHandler(collectWarnings);
    }

    ~QmlScreenTest() override
    {
        qInstallMessageHandler(s_previousHandler);
        s_warnings = nullptr;
    }

    void settle(int ms = 400)
    {
        QSignalSpy(m_view.get(), &QQuickWindow::frameSwapped).wait(ms);
        QSignalSpy(m_view.get(), &QQuickWindow::frameSwapped).wait(100);
    }

    // Writes what the view (or another window of it) drew as <name>.png; an expectedSize that is
    // valid is checked too.
    void capture(const QString &name, QSize expectedSize = {}, QQuickWindow *window = nullptr)
    {
        settle();
        const QImage image = (window ? window : m_view.get())->grabWindow();
        ASSERT_FALSE(image.isNull());
        if (expectedSize.isValid()) {
            EXPECT_EQ(image.size(), expectedSize);
        }
        ASSERT_TRUE(image.save(screenshotDir() + QStringLiteral("/") + name + QStringLiteral(".png")));
        EXPECT_TRUE(m_warnings.isEmpty())
            << name.toStdString() << ": " << m_warnings.join(QStringLiteral("\n")).toStdString();
        m_warnings.clear();
    }

    std::unique_ptr<QQuickView> m_view;
    QStringList m_warnings;

private:
    static QString screenshotDir()
    {
        const QString dir = QStringLiteral(TAMLO_SCREENSHOT_DIR);
        QDir().mkpath(dir);
        return dir;
    }

    static void collectWarnings(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        if (s_warnings && type != QtDebugMsg && type != QtInfoMsg
            && !message.startsWith(QStringLiteral("QStandardPaths:"))) {
            s_warnings->append(message);
        }
        s_previousHandler(type, context, message);
    }

    static inline QStringList *s_warnings = nullptr;
    static inline QtMessageHandler s_previousHandler = nullptr;
};
