#pragma once

#include <QJsonObject>
#include <QStringList>
#include <QTextStream>

#include <optional>

class Clock;
class SignInService;
class Storage;
struct ServerUser;

// The administration commands for hosts and headless machines. Each prints to out, complains to
// err, and returns the process's exit code.
class AdminCommands
{
public:
    AdminCommands(Storage *storage, SignInService *signIn, const Clock *clock, QTextStream *out, QTextStream *err);

    [[nodiscard]] int run(const QStringList &command, const std::optional<QString> &name);

    // The user's account, devices and days, in the upload's own field forms.
    [[nodiscard]] QJsonObject exportUser(const ServerUser &user);
    [[nodiscard]] static QJsonObject exportJson(Storage *storage, const ServerUser &user);

private:
    int userAdd(const QString &email, const std::optional<QString> &name);
    int userList();
    int userDelete(const QString &email);
    int loginLink(const QString &email);
    int requestSync(const QString &email);
    int exportData(const QString &email);
    int backup(const QString &file);
    int fail(const QString &message);
    [[nodiscard]] std::optional<ServerUser> existingUser(const QString &email);

    Storage *m_storage = nullptr;
    SignInService *m_signIn = nullptr;
    const Clock *m_clock = nullptr;
    QTextStream *m_out = nullptr;
    QTextStream *m_err = nullptr;
};
