// The app's own sign-in and sync services in a process of their own, for the browser test. Each
// line on stdin, "signin TOKEN", "record N [DAYS_AGO]" (N records and a lock), "sync" (today and
// yesterday) or "poll", is answered with the state as one JSON line: signed in or not, the ids of
// the records added, the time of the last upload and its error.
#include "account/activitysyncservice.h"
#include "account/authservice.h"
#include "core/activitysnapshotstore.h"
#include "core/apppaths.h"
#include "core/clock.h"
#include "core/logmanager.h"
#include "core/settings.h"

#include <QCoreApplication>
#include <QCoroTask>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>

#include <iostream>
#include <string>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc != 3) {
        std::cerr << "usage: tamlo_sync_client BACKEND_URL HOME_DIR\n";
        return 2;
    }
    const QString backend = QString::fromLocal8Bit(argv[1]);
    const AppPaths paths = AppPaths::underHome(QString::fromLocal8Bit(argv[2]));
    SystemClock clock;
    Settings settings(paths.settingsFile);
    LogManager log(&clock);
    ActivitySnapshotStore store(paths.snapshotsFile(), &log, &settings, &clock);
    QNetworkAccessManager nam;
    const AppConfig config(&settings, QString(), backend, backend);
    AuthService auth(&nam, config, paths.credentialsDir);
    ActivitySyncService sync(&store, &auth, &nam, config, &settings, &log, &clock);
    QJsonArray ids;
    auto add = [&](const QDateTime &at, const QString &category, const QString &project, const QString &description,
                   const std::optional<QString> &note) {
        const QUuid id = QUuid::createUuid();
        const bool locked = description == ActivitySnapshot::screenStateMarker(ScreenState::Locked);
        store.add(
            {id, at, category, locked ? std::nullopt : std::optional<QString>(u"9f86d081884c7d659a2feaa0c55ad015"_s),
                project, description, note});
        ids.append(id.toString(QUuid::WithoutBraces).toUpper());
    };

    std::string line;
    while (std::getline(std::cin, line)) {
        const QStringList words = QString::fromStdString(line).split(u' ', Qt::SkipEmptyParts);
        const QString command = words.value(0);
        if (command == u"signin"_s) {
            QCoro::waitFor(auth.verifyMagicLinkToken(words.value(1)));
        } else if (command == u"record"_s) {
            const QDateTime now = clock.now().addDays(-words.value(2).toInt());
            for (int i = words.value(1).toInt(); i > 0; --i) {
                add(now.addSecs(-30LL * (i + 1)), i % 3 == 0 ? u"Meeting"_s : u"Coding"_s,
                    i % 2 == 0 ? u"Website"_s : u"Tamlo"_s, u"Editing the day page, record %1"_s.arg(i),
                    i == 1 ? std::optional<QString>(u"shipped the export"_s) : std::nullopt);
            }
            add(now.addSecs(-30), u"Other"_s, u"Other"_s, ActivitySnapshot::screenStateMarker(ScreenState::Locked),
                std::nullopt);
        } else if (command == u"sync"_s) {
            QCoro::waitFor(sync.syncIfNeeded(true));
        } else if (command == u"poll"_s) {
            QCoro::waitFor(sync.checkSyncRequest());
        }
        QJsonObject answer {{u"authenticated"_s, auth.isAuthenticated()}, {u"ids"_s, ids}};
        if (sync.lastSyncDate()) {
            answer.insert(u"lastSync"_s, sync.lastSyncDate()->toMSecsSinceEpoch() / 1000.0);
        }
        if (sync.lastError()) {
            answer.insert(u"syncError"_s, *sync.lastError());
        }
        std::cout << QJsonDocument(answer).toJson(QJsonDocument::Compact).toStdString() << std::endl;
    }
    return 0;
}
