#include "fuzzentrypoints.h"
#include "fuzzenvironment.h"

#include "account/appconfig.h"
#include "account/authservice.h"
#include "account/keychainservice.h"

#include <QDir>
#include <QFile>
#include <QNetworkAccessManager>

using namespace Qt::StringLiterals;
using FuzzEnvironment::require;

namespace {
const QStringList keys {u"sessionToken"_s, u"userData"_s};

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
} // namespace

int FuzzEntry::credentialsFile(const uint8_t *data, size_t size)
{
    static QNetworkAccessManager nam;
    const QString dir = FuzzEnvironment::freshDirectory(u"credentials"_s);
    const QString path = QDir(dir).filePath(u"credentials.plist"_s);
    const QByteArray input = FuzzEnvironment::bytes(data, size);
    {
        QFile file(path);
        require(file.open(QIODevice::WriteOnly) && file.write(input) == input.size(), "could not write the input file");
    }

    {
        // Restoring a session reads, and never writes.
        const AuthService auth(&nam,
            AppConfig(FuzzEnvironment::settings(), QString(), u"http://127.0.0.1:9"_s, u"http://127.0.0.1:9"_s), dir);
        require(readFile(path) == input, "restoring a session changed the file");
        if (auth.isAuthenticated()) {
            require(auth.currentUser().has_value(), "signed in without a user");
            require(auth.sessionToken().has_value() && !auth.sessionToken()->isEmpty(), "signed in without a token");
        } else {
            require(!auth.currentUser().has_value(), "a user without a session");
        }
    }

    // Whatever the service read, it writes back whole, owner-only, and reads again the same.
    KeychainService storage(dir, u"mirevon.Tamlo"_s);
    QHash<QString, QString> before;
    for (const QString &key : keys) {
        // libplist writes text only up to a NUL, so such a value (from a damaged file) cannot come back whole.
        if (const auto value = storage.value(key); value && !value->contains(QChar(0))) {
            before.insert(key, *value);
        }
    }
    storage.setValue(u"fuzz-token"_s, u"sessionToken"_s);
    before.insert(u"sessionToken"_s, u"fuzz-token"_s);
    require(QFile::permissions(path)
            == (QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadUser | QFileDevice::WriteUser),
        "credentials.plist is not owner-only after a write");
    const KeychainService reread(dir, u"mirevon.Tamlo"_s);
    for (auto it = before.constBegin(); it != before.constEnd(); ++it) {
        require(reread.value(it.key()) == it.value(), "a stored credential reads back different");
    }
    FuzzEnvironment::drainEvents();
    return 0;
}
