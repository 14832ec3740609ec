#include "app/tamloapp.h"
#include "platform/memoryrelief.h"
#include "platform/singleinstance.h"

#include <QApplication>
#include <QQuickWindow>
#include <QTimer>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(Tamlo_UiPlugin)

using namespace Qt::StringLiterals;

int main(int argc, char **argv)
{
    MemoryRelief::limitRetainedBuffers();
    QApplication application(argc, argv);
    QApplication::setApplicationName(u"Tamlo"_s);
    QApplication::setApplicationDisplayName(u"Tamlo"_s);
    QApplication::setDesktopFileName(u"tamlo"_s);
    // Closing the panel never ends the program; only "Quit" does.
    QApplication::setQuitOnLastWindowClosed(false);

    // `tamlo URL` as the desktop's handler of the tamlo scheme; `tamlo` alone shows the panel.
    const QString url = QApplication::arguments().value(1);
    const QString serverName = SingleInstance::defaultServerName();
    const QString message = url.isEmpty() ? SingleInstance::showPanelMessage : SingleInstance::openUrlMessage(url);
    if (SingleInstance::sendToRunning(serverName, message)) {
        return 0;
    }
    SingleInstance instance(serverName);
    if (!instance.listen()) {
        // Another process became the instance meanwhile.
        return SingleInstance::sendToRunning(serverName, message) ? 0 : 1;
    }

    // A small panel of flat shapes: the software renderer draws it anywhere, GPU or not.
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);

    TamloApp tamlo;
    QObject::connect(&instance, &SingleInstance::messageReceived, &tamlo, &TamloApp::handleInstanceMessage);
    tamlo.body();
    QTimer::singleShot(0, &tamlo, [&tamlo] { tamlo.appDelegate()->applicationDidFinishLaunching(); });
    if (!url.isEmpty()) {
        tamlo.appDelegate()->handleURLEvent(url);
    }
    return QApplication::exec();
}
