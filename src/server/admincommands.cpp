#include "server/admincommands.h"

#include "core/clock.h"
#include "core/referencedate.h"
#include "server/signinservice.h"
#include "server/storage.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace {
QString isoTime(qint64 epochMs)
{
    return ReferenceDate::toIso8601(QDateTime::fromMSecsSinceEpoch(epochMs, Qt::UTC));
}

QJsonObject snapshotObject(const UploadedSnapshot &snapshot)
{
    QJsonObject object {{u"id"_s, snapshot.id}, {u"timestamp"_s, snapshot.timestamp},
        {u"activityType"_s, snapshot.activityType}, {u"projectName"_s, snapshot.projectName}};
    if (snapshot.activityDescription) {
        object.insert(u"activityDescription"_s, *snapshot.activityDescription);
    }
    if (snapshot.userNote) {
        object.insert(u"userNote"_s, *snapshot.userNote);
    }
    return object;
}
} // namespace

AdminCommands::AdminCommands(
    Storage *storage, SignInService *signIn, const Clock *clock, QTextStream *out, QTextStream *err)
    : m_storage(storage), m_signIn(signIn), m_clock(clock), m_out(out), m_err(err)
{
}

int AdminCommands::run(const QStringList &command, const std::optional<QString> &name)
{
    const QString verb = command.value(0);
    const qsizetype count = command.size();
    if (name && !(verb == u"user"_s && command.value(1) == u"add"_s)) {
        return fail(u"--name belongs to user add only."_s);
    }
    if (verb == u"user"_s) {
        const QString action = command.value(1);
        if (action == u"add"_s && count == 3) {
            return userAdd(command.at(2), name);
        }
        if (action == u"list"_s && count == 2) {
            return userList();
        }
        if (action == u"delete"_s && count == 3) {
            return userDelete(command.at(2));
        }
        return fail(u"Usage: user add EMAIL [--name NAME] | user list | user delete EMAIL"_s);
    }
    if (verb == u"login-link"_s && count == 2) {
        return loginLink(command.at(1));
    }
    if (verb == u"request-sync"_s && count == 2) {
        return requestSync(command.at(1));
    }
    if (verb == u"export"_s && count == 2) {
        return exportData(command.at(1));
    }
    if (verb == u"backup"_s && count == 2) {
        return backup(command.at(1));
    }
    return fail(u"Unknown command or wrong number of arguments: \"%1\". See --help."_s.arg(command.join(u' ')));
}

int AdminCommands::fail(const QString &message)
{
    *m_err << message << Qt::endl;
    return 1;
}

std::optional<ServerUser> AdminCommands::existingUser(const QString &email)
{
    const std::optional<ServerUser> user = m_storage->userByEmail(SignInService::normalizedEmail(email));
    if (!user) {
        fail(u"No account has the address %1."_s.arg(email));
    }
    return user;
}

int AdminCommands::userAdd(const QString &email, const std::optional<QString> &name)
{
    const QString normalized = SignInService::normalizedEmail(email);
    if (!SignInService::isValidEmail(normalized)) {
        return fail(u"\"%1\" is not an e-mail address."_s.arg(email));
    }
    std::optional<QString> trimmedName;
    if (name && !name->trimmed().isEmpty()) {
        trimmedName = name->trimmed();
        if (trimmedName->size() > SignInService::maxNameLength) {
            return fail(u"The name is longer than %1 characters."_s.arg(SignInService::maxNameLength));
        }
    }
    if (m_storage->userByEmail(normalized)) {
        return fail(u"An account with the address %1 exists already."_s.arg(normalized));
    }
    const ServerUser user = m_storage->createUser(normalized, trimmedName, m_clock->now().toMSecsSinceEpoch());
    *m_out << u"Added %1 (%2)"_s.arg(user.email, user.id) << Qt::endl;
    return 0;
}

int AdminCommands::userList()
{
    for (const ServerUser &user : m_storage->users()) {
        *m_out << user.email << '\t' << user.name.value_or(QString()) << '\t' << user.id << '\t'
               << isoTime(user.createdAt) << Qt::endl;
    }
    return 0;
}

int AdminCommands::userDelete(const QString &email)
{
    if (!m_storage->deleteUser(SignInService::normalizedEmail(email))) {
        return fail(u"No account has the address %1."_s.arg(email));
    }
    *m_out << u"Deleted %1 and all of its data."_s.arg(SignInService::normalizedEmail(email)) << Qt::endl;
    return 0;
}

int AdminCommands::loginLink(const QString &email)
{
    const QString normalized = SignInService::normalizedEmail(email);
    if (!SignInService::isValidEmail(normalized)) {
        return fail(u"\"%1\" is not an e-mail address."_s.arg(email));
    }
    if (!m_storage->userByEmail(normalized)) {
        *m_err << u"Note: %1 has no account yet; the link signs in once one is added."_s.arg(normalized) << Qt::endl;
    }
    *m_out << SignInService::appCallback(m_signIn->createLink(normalized)).toString(QUrl::FullyEncoded) << Qt::endl;
    return 0;
}

int AdminCommands::requestSync(const QString &email)
{
    const std::optional<ServerUser> user = existingUser(email);
    if (!user) {
        return 1;
    }
    m_storage->requestSync(user->id, m_clock->now().toMSecsSinceEpoch());
    *m_out << u"Asked the devices of %1 to upload."_s.arg(user->email) << Qt::endl;
    return 0;
}

QJsonObject AdminCommands::exportUser(const ServerUser &user)
{
    return exportJson(m_storage, user);
}

QJsonObject AdminCommands::exportJson(Storage *storage, const ServerUser &user)
{
    QJsonObject account {{u"id"_s, user.id}, {u"email"_s, user.email}, {u"createdAt"_s, isoTime(user.createdAt)}};
    if (user.name) {
        account.insert(u"name"_s, *user.name);
    }
    QJsonArray devices;
    for (const DeviceRecord &device : storage->devices(user.id)) {
        devices.append(QJsonObject {{u"deviceId"_s, device.deviceId}, {u"timezone"_s, device.timezone},
            {u"lastUploadAt"_s, isoTime(device.lastUploadAt)}, {u"backfillComplete"_s, device.backfillComplete}});
    }
    QJsonArray days;
    for (const UploadedDay &day : storage->days(user.id)) {
        QJsonArray snapshots;
        for (const UploadedSnapshot &snapshot : day.snapshots) {
            snapshots.append(snapshotObject(snapshot));
        }
        days.append(QJsonObject {{u"date"_s, day.date}, {u"snapshots"_s, snapshots}});
    }
    return QJsonObject {{u"user"_s, account}, {u"devices"_s, devices}, {u"days"_s, days}};
}

int AdminCommands::exportData(const QString &email)
{
    const std::optional<ServerUser> user = existingUser(email);
    if (!user) {
        return 1;
    }
    *m_out << QString::fromUtf8(QJsonDocument(exportUser(*user)).toJson(QJsonDocument::Indented));
    m_out->flush();
    return 0;
}

int AdminCommands::backup(const QString &file)
{
    m_storage->backup(file);
    *m_out << u"Copied the database to %1."_s.arg(file) << Qt::endl;
    return 0;
}
