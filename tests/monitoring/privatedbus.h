#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// A dbus-daemon of the test's own, standing in for both the session bus and the system bus.
class PrivateDBus
{
public:
    // arguments choose the configuration; activated services get environment.
    explicit PrivateDBus(const QStringList &arguments = {QStringLiteral("--session")},
        const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment());
    ~PrivateDBus();

    [[nodiscard]] bool isRunning() const { return !m_address.isEmpty(); }
    [[nodiscard]] QString errorText() const { return m_error; }
    [[nodiscard]] QString address() const { return m_address; }

    // A new private connection; closed when the daemon object goes.
    [[nodiscard]] QDBusConnection connect(const QString &name);

    // A screen saver interface's ActiveChanged from its object path; true once the daemon has it.
    bool sendScreenSaverActive(const QString &interface, bool active);
    bool sendPrepareForSleep(bool sleeping);

    // Returns once the daemon has handled everything the connection sent before, match rules included.
    static void roundTrip(const QDBusConnection &connection);

private:
    bool sendSignal(const QString &path, const QString &interface, const QString &member, bool value);

    QProcess m_daemon;
    QString m_address;
    QString m_error;
    QStringList m_connectionNames;
};
