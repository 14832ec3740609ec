#pragma once

#include "uirig.h"

#include <QDir>
#include <QImage>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QSignalSpy>

#include <memory>

// A screen of the panel drawn offscreen in software: every warning QML reports while it is up
// fails the picture it was reported for, and each picture is written to the screenshot folder.
class QmlScreenTest : public UiRig
{
protected:
    QmlScreenTest()
    {
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
        s_warnings = &m_warnings;
        s_previousHandler = qInstallMessageHandler(collectWarnings);
    }

    ~QmlScreenTest() override
    {
        qInstallMessageHandler(s_previousHandler);
        s_warnings = nullptr;
    }

    // The view goes before the models it shows.
    void TearDown() override
    {
        m_view.reset();
        UiRig::TearDown();
    }

    // The file of Tamlo.Ui, 320 by 600, over these models.
    void show(const QString &file, const QVariantMap &models)
    {
        m_view = std::make_unique<QQuickView>();
        m_view->engine()->addImportPath(QStringLiteral("qrc:/"));
        m_view->setInitialProperties(models);
        m_view->setResizeMode(QQuickView::SizeViewToRootObject);
        m_view->setSource(QUrl(QStringLiteral("qrc:/Tamlo/Ui/qml/") + file));
        ASSERT_EQ(m_view->status(), QQuickView::Ready) << m_view->errors().value(0).toString().toStdString();
        m_view->rootObject()->setSize(QSizeF(320, 600));
        m_view->show();
    }

    void settle(int ms = 400)
    {
        QSignalSpy(m_view.get(), &QQuickWindow::frameSwapped).wait(ms);
        QSignalSpy(m_view.get(), &QQuickWindow::frameSwapped).wait(100);
    }

    // Writes what the window (the view when null) drew as <name>.png, of the size given.
    void capture(const QString &name, QSize size = QSize(320, 600), QQuickWindow *window = nullptr)
    {
        settle();
        const QImage image = (window ? window : m_view.get())->grabWindow();
        EXPECT_EQ(image.size(), size) << name.toStdString();
        const QString dir = QStringLiteral(TAMLO_SCREENSHOT_DIR);
        QDir().mkpath(dir);
        ASSERT_TRUE(image.save(dir + QStringLiteral("/") + name + QStringLiteral(".png")));
        EXPECT_TRUE(m_warnings.isEmpty())
            << name.toStdString() << ": " << m_warnings.join(QStringLiteral("\n")).toStdString();
        m_warnings.clear();
    }

    // Whether an item of that name is on screen now.
    [[nodiscard]] bool shows(const char *objectName) const
    {
        const auto *item = m_view->rootObject()->findChild<QQuickItem *>(QString::fromLatin1(objectName));
        return item && item->isVisible();
    }

    std::unique_ptr<QQuickView> m_view;
    QStringList m_warnings;

private:
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
