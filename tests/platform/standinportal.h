#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QImage>
#include <QTimer>
#include <QUrl>
#include <QVariantMap>

// The desktop portal's Screenshot interface on a test bus: it writes the picture to a file and
// answers on the request object, as the real portal does, with the code it is told to give.
class StandInPortal : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Screenshot")
public:
    StandInPortal(QDBusConnection bus, QString directory) : m_bus(std::move(bus)), m_directory(std::move(directory)) { }

    bool publish()
    {
        return m_bus.registerObject(
                   QStringLiteral("/org/freedesktop/portal/desktop"), this, QDBusConnection::ExportAllSlots)
            && m_bus.registerService(QStringLiteral("org.freedesktop.portal.Desktop"));
    }

    uint responseCode = 0;
    int answerDelayMs = 0; // answers this late even when the request was closed meanwhile
    QStringList closedRequests;
    QImage image;
    QList<QVariantMap> calls;
    QString writtenFile;

public Q_SLOTS:
    QDBusObjectPath Screenshot(const QString &, const QVariantMap &options, const QDBusMessage &message)
    {
        calls.append(options);
        const QString path = QStringLiteral("/org/freedesktop/portal/desktop/request/")
            + message.service().mid(1).replace(QLatin1Char('.'), QLatin1Char('_')) + QLatin1Char('/')
            + options.value(QStringLiteral("handle_token")).toString();
        QVariantMap results;
        if (responseCode == 0) {
            writtenFile = m_directory + QStringLiteral("/Screenshot.png");
            image.save(writtenFile, "PNG");
            results.insert(QStringLiteral("uri"), QUrl::fromLocalFile(writtenFile).toString());
        }
        // The answer comes after the reply, as a signal on the request object.
        m_bus.registerObject(
            path, QStringLiteral("org.freedesktop.portal.Request"), this, QDBusConnection::ExportAllSlots);
        QTimer::singleShot(answerDelayMs, this, [this, path, code = responseCode, results] {
            QDBusMessage signal = QDBusMessage::createSignal(
                path, QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"));
            signal << code << results;
            m_bus.send(signal);
        });
        return QDBusObjectPath(path);
    }

    void Close(const QDBusMessage &message) { closedRequests.append(message.path()); }

private:
    QDBusConnection m_bus;
    QString m_directory;
};
