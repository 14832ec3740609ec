#pragma once

#include <QObject>
#include <QtQml/qqmlregistration.h>

class LoginItem;

// The "Launch at Login" switch. A change that cannot be made puts the switch back, silently.
class LaunchAtLoginModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Owned by a screen")
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin WRITE setLaunchAtLogin NOTIFY launchAtLoginChanged)
    Q_PROPERTY(bool compact READ compact CONSTANT)

public:
    LaunchAtLoginModel(LoginItem *loginItem, bool compact, QObject *parent = nullptr);

    [[nodiscard]] bool launchAtLogin() const { return m_launchAtLogin; }
    [[nodiscard]] bool compact() const { return m_compact; }
    void setLaunchAtLogin(bool value);

    // Follows changes made outside the program since the switch was last shown.
    Q_INVOKABLE void appear();

Q_SIGNALS:
    void launchAtLoginChanged();

private:
    void assign(bool value);

    LoginItem *m_loginItem = nullptr;
    bool m_compact = false;
    bool m_launchAtLogin = false;
};
