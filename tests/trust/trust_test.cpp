#include "account/activitysyncservice.h"
#include "account/appconfig.h"
#include "account/authservice.h"
#include "account/keychainservice.h"
#include "core/textlimits.h"
#include "monitoring/screeneventsource.h"
#include "server/apiendpoints.h"
#include "server/requestlog.h"
#include "server/signinservice.h"
#include "server/sqlstorage.h"
#include "server/tamlohttpserver.h"
#include "server/webpages.h"

#include "monitorrig.h"

#include <QBuffer>
#include <QDirIterator>
#include <QLoggingCategory>
#include <QMutex>

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// No screen events at all: the tests drive the ticks and day checks themselves.
struct NoScreenEvents : ScreenEventSource, WakeEventSource
{
};

// The monitor on real parts in a temporary home (or a folder a test has mounted). Time-outs are short
// enough that a server that never answers costs seconds; every tick reaches the model.
class FaultFixture : public MonitorRig
{
protected:
    FaultFixture() : MonitorRig(u"Editing faults_test.cpp"_s, u"A focused day."_s) { }

    void SetUp() override
    {
        MonitorRig::SetUp();
        llmTimeouts = {.tags = 1s, .analysis = 2s, .daySummary = 2s};
        settings->setBoolean(SettingsKey::skipUnchangedScreens, false);
    }

    // Apart from SetUp, so a test can first mount the data folder; built again, it is a restart.
    void buildServices()
    {
        endMonitor();
        buildParts();
        buildMonitor(nullptr, static_cast<NoScreenEvents *>(nullptr));
    }

    void startMonitor()
    {
        buildServices();
        monitor->configure();
        ASSERT_TRUE(QTest::qWaitFor([this] { return monitor->captureCount() == 1; }, 10000));
    }

    [[nodiscard]] ::testing::AssertionResult logged(const QString &prefix) const
    {
        const QStringList all = messages();
        const bool found
            = std::any_of(all.cbegin(), all.cend(), [&](const QString &m) { return m.startsWith(prefix); });
        return ::testing::AssertionResult(found) << all.join(u'\n').toStdString();
    }

    // The records in snapshots.json as any reader sees them; -1 when the file is not whole.
    [[nodiscard]] qsizetype recordsOnDisk() const
    {
        QFile file(paths.snapshotsFile());
        if (!file.open(QIODevice::ReadOnly)) {
            return 0;
        }
        const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
        return document.isArray() ? document.array().size() : -1;
    }

    [[nodiscard]] AppConfig backendConfig(const QUrl &url) const
    {
        settings->setString(SettingsKey::convexURL, url.toString());
        return AppConfig(settings.get(), QString(), u"http://127.0.0.1:9"_s, {});
    }
};

struct Fault
{
    const char *name;
    StandInServer::Reply reply;
    const char *error = ""; // what the user is told; empty: only that there is something
};

std::string nameOf(const ::testing::TestParamInfo<Fault> &info)
{
    return info.param.name;
}

const StandInServer::Reply neverAnswers {200, {}, "application/json", 0, false, true};

class FaultsTest : public FaultFixture, public ::testing::WithParamInterface<Fault>
{
protected:
    static constexpr BackendTimeouts timeouts {.verifyToken = 2s, .upload = 2s, .status = 2s, .sessionCheck = 2s};
    StandInServer backend;
};
using ModelFaultsTest = FaultsTest;
using BackendFaultsTest = FaultsTest;

// However the model server fails, a tick records nothing and says why while monitoring goes on, the next
// good answer clears the error, and the day's close writes its report all the same.
TEST_P(ModelFaultsTest, AFailureCostsItsTickAndNeverTheDay)
{
    startMonitor();
    analysis = summary = GetParam().reply;
    tick();
    const QString error = monitor->lastError();
    EXPECT_TRUE(error.startsWith(u"AI analysis failed: "_s) && error.size() > 20) << error.toStdString();
    EXPECT_TRUE(error.endsWith(QString::fromUtf8(GetParam().error))) << error.toStdString();
    EXPECT_TRUE(logged(u"⚠️ AI analysis failed: "_s));
    EXPECT_EQ(std::tuple(snapshotStore->count(), recordsOnDisk(), monitor->captureCount()), std::tuple(1, 1, 1));

    analysis = goodAnalysis;
    tick();
    EXPECT_TRUE(monitor->lastError().isEmpty());
    EXPECT_EQ(recordsOnDisk(), 2);

    clock.set(QDateTime(QDate(2026, 3, 10), QTime(0, 1)));
    QCoro::waitFor(monitor->checkDailyReset());
    const auto report = DailyReportStore(paths.dailyReportsFile(), logManager.get()).fetch(u"2026-03-09"_s);
    ASSERT_TRUE(report.has_value());
    EXPECT_EQ(report->totalActiveSeconds, 60);
    EXPECT_FALSE(report->summary.trimmed().isEmpty());
    EXPECT_EQ(snapshotStore->count(), 0);
    EXPECT_TRUE(monitor->isMonitoring());
}

INSTANTIATE_TEST_SUITE_P(Faults, ModelFaultsTest,
    ::testing::Values(Fault {"DiesMidRequest", {200, {}, "application/json", 50, true}},
        Fault {"AnswersGarbage", {200, "<html>Bad Gateway</html>"}},
        Fault {"AnswersProseForJson", {200, R"({"message":{"content":"I cannot tell what is on the screen."}})"}},
        Fault {"Answers5xx", {500, R"({"error":"out of memory"})"}},
        Fault {"NeverAnswers", neverAnswers, "The request timed out."}),
    nameOf);

// A server that never lists its models is taken for none at all, once the list's time-out ends the wait.
TEST_F(ModelFaultsTest, NoModelListIsAsNoServer)
{
    ollama.on("GET", "/api/tags", neverAnswers);
    buildServices();
    tick();
    EXPECT_EQ(monitor->lastError(),
        u"AI analysis failed: Ollama is not running. Start the Ollama service or run `ollama serve` in a terminal."_s);
    EXPECT_EQ(snapshotStore->count(), 0);
}

// A failed upload keeps every record, the session and the last good sync date, and says what
// happened in lastError and the event log; the next run once the backend is back goes through.
TEST_P(BackendFaultsTest, AFailedUploadKeepsEverythingAndSaysWhy)
{
    const AppConfig config = backendConfig(backend.url());
    buildServices();
    tick();
    tick();
    KeychainService storage(paths.credentialsDir, u"mirevon.Tamlo"_s);
    storage.setValue(u"session-token"_s, u"sessionToken"_s);
    storage.setValue(u"{\"id\":\"u1\",\"email\":\"ada@example.com\"}"_s, u"userData"_s);
    AuthService auth(&nam, config, paths.credentialsDir, timeouts);
    ASSERT_TRUE(auth.isAuthenticated());
    ActivitySyncService sync(
        snapshotStore.get(), &auth, &nam, config, settings.get(), logManager.get(), &clock, timeouts);
    backend.on("GET", "/auth/me", {200, R"({"id":"u1","email":"ada@example.com"})"});
    backend.on("POST", "/activity/sync", GetParam().reply);
    QCoro::waitFor(sync.syncNow());
    const QString error = sync.lastError().value_or(QString());
    const QString expected = QString::fromUtf8(GetParam().error);
    EXPECT_TRUE(expected.isEmpty() ? !error.isEmpty() : error == expected) << error.toStdString();
    // No HTTP answer at all is an error of the transfer; an answer that refuses is a failed sync.
    const bool noAnswer = GetParam().reply.drop || GetParam().reply.silent;
    EXPECT_TRUE(logged((noAnswer ? u"❌ Activity sync error: "_s : u"❌ Activity sync failed: "_s) + error));
    EXPECT_FALSE(sync.isSyncing() || sync.lastSyncDate().has_value());
    EXPECT_EQ(std::tuple(snapshotStore->count(), recordsOnDisk(), auth.isAuthenticated()), std::tuple(2, 2, true));

    backend.on("POST", "/activity/sync", {200, R"({"ok":true})"});
    QCoro::waitFor(sync.syncNow());
    EXPECT_FALSE(sync.lastError().has_value());
    EXPECT_TRUE(sync.lastSyncDate().has_value());
}

INSTANTIATE_TEST_SUITE_P(Faults, BackendFaultsTest,
    ::testing::Values(Fault {"Resets", {200, {}, "application/json", 20, true}},
        Fault {"Answers500WithMessage", {500, R"({"error":"Database unavailable"})"}, "Database unavailable"},
        Fault {"NeverAnswers", neverAnswers, "The request timed out."}),
    nameOf);

// The real tamlo-server in this process, on SQLite: nothing the app keeps may be more than it takes.
TEST_F(BackendFaultsTest, OverlongTextsAndLabelsAreCutToWhatTheServerTakesSoTheDaySyncs)
{
    buildServices();
    const std::unique_ptr<SqlStorage> storage = SqlStorage::openSqlite(home.filePath(u"server.sqlite3"_s));
    SignInService signIn(storage.get(), &clock);
    ApiEndpoints api(storage.get(), &signIn, &clock);
    WebPages pages(&signIn, QUrl(), true);
    QBuffer requests;
    RequestLog requestLog(&requests);
    TamloHttpServer server(&api, &pages, &requestLog);
    ASSERT_TRUE(requests.open(QIODevice::WriteOnly) && server.listen(QHostAddress::LocalHost, 0));

    const QString project = u"Client "_s + QString(300, u'x');
    settings->setString(SettingsKey::userProjects, u"Tamlo, "_s + project);
    analysis = {200,
        StandInOllama::chatBody(QJsonObject {{u"category"_s, u"Coding"_s}, {u"projectName"_s, project},
            {u"activityDescription"_s, u"Reading\tthe\u0007 docs"_s + u" word"_s.repeated(1000)}})};
    tick();
    monitor->addNoteToCurrentLog(u"note "_s.repeated(1000));
    // As an earlier version stored it, before it kept to the limits.
    snapshotStore->add(ActivitySnapshot {QUuid::createUuid(), clock.now().addSecs(1), QString(201, u'c'), std::nullopt,
        u"Tamlo"_s, QChar(0) + QString(5000, u'd'), QString(5000, u'n')});

    storage->createUser(u"ada@example.org"_s, std::nullopt, 0);
    const QString url = u"http://127.0.0.1:%1"_s.arg(server.port());
    const AppConfig config(settings.get(), QString(), url, url);
    AuthService auth(&nam, config, paths.credentialsDir);
    QCoro::waitFor(auth.verifyMagicLinkToken(signIn.createLink(u"ada@example.org"_s)));
    ActivitySyncService sync(snapshotStore.get(), &auth, &nam, config, settings.get(), logManager.get(), &clock);
    QCoro::waitFor(sync.syncNow());
    EXPECT_FALSE(sync.lastError()) << sync.lastError().value_or(QString()).toStdString();

    const QList<UploadedDay> days = storage->days(storage->userByEmail(u"ada@example.org"_s)->id);
    ASSERT_EQ(days.size(), 1);
    ASSERT_EQ(days[0].snapshots.size(), 2);
    const UploadedSnapshot analysed = days[0].snapshots[0];
    // Control characters gone, texts cut after a whole word, the project the settings name kept.
    EXPECT_TRUE(analysed.activityDescription->startsWith(u"Reading the docs word word"_s));
    EXPECT_TRUE(analysed.activityDescription->endsWith(u" word…"_s));
    EXPECT_TRUE(analysed.userNote->endsWith(u"note note…"_s));
    EXPECT_TRUE(analysed.projectName.startsWith(u"Client xxx"_s));
    EXPECT_EQ(days[0].snapshots[1].activityDescription, QString(TextLimits::maxTextLength - 1, u'd') + u'…');
}

// A small tmpfs (mounted by root) over the data folder, to fill up or turn read-only.
class DiskFaultsTest : public FaultFixture, public ::testing::WithParamInterface<bool>
{
protected:
    void SetUp() override
    {
        FaultFixture::SetUp();
        QDir().mkpath(paths.dataDir);
        mounted = ::geteuid() == 0 && mountData(0);
        if (!mounted) {
            GTEST_SKIP() << "cannot mount a tmpfs over the data folder (needs root, as CI runs): "
                         << std::strerror(errno);
        }
    }

    void TearDown() override
    {
        FaultFixture::TearDown();
        snapshotStore.reset();
        reportStore.reset();
        if (mounted) {
            ::umount2(QFile::encodeName(paths.dataDir).constData(), MNT_DETACH);
        }
    }

    [[nodiscard]] bool mountData(unsigned long flags) const
    {
        return ::mount("tmpfs", QFile::encodeName(paths.dataDir).constData(), "tmpfs", flags, "mode=0700,size=256k")
            == 0;
    }

    // Fills the disk up or turns it read-only; with refuse false, undoes it.
    void refuseWrites(bool refuse) const
    {
        QFile filler(QDir(paths.dataDir).filePath(u"filler"_s));
        const QByteArray block(4096, 'x');
        if (GetParam()) {
            ASSERT_TRUE(mountData(MS_REMOUNT | (refuse ? MS_RDONLY : 0)));
        } else if (!refuse) {
            ASSERT_TRUE(filler.remove());
        } else if (filler.open(QIODevice::WriteOnly)) {
            while (filler.write(block) == block.size() && filler.flush()) { }
        }
    }

    bool mounted = false;
};

// Records taken while the disk refuses writes stay in memory and reach the file with the first write
// that fits, the file on disk whole all along. A day closed meanwhile cannot write its report and
// stays pending: after a restart either the report or all the day's records are on disk.
TEST_P(DiskFaultsTest, NothingIsLostWhileTheDiskRefusesWrites)
{
    startMonitor();
    tick();
    ASSERT_EQ(recordsOnDisk(), 2);
    refuseWrites(true);
    tick();
    tick();
    tick();
    EXPECT_EQ(std::tuple(snapshotStore->count(), monitor->captureCount(), recordsOnDisk()), std::tuple(5, 5, 2))
        << "the previous file must stay whole";
    EXPECT_TRUE(logged(u"❌ Failed to save snapshots: "_s));
    EXPECT_TRUE(monitor->lastError().isEmpty()) << "a failed write is the store's to report, not the tick's";

    clock.set(QDateTime(QDate(2026, 3, 10), QTime(0, 1)));
    QCoro::waitFor(monitor->checkDailyReset());
    EXPECT_TRUE(logged(u"❌ Failed to save daily reports: "_s));
    EXPECT_TRUE(monitor->isMonitoring());

    refuseWrites(false);
    tick();
    EXPECT_EQ(recordsOnDisk(), snapshotStore->count());
    endMonitor();
    const DailyReportStore reports(paths.dailyReportsFile(), logManager.get());
    const ActivitySnapshotStore records(paths.snapshotsFile(), logManager.get(), settings.get(), &clock);
    const auto dayRecords = records.fetch(QDate(2026, 3, 9).startOfDay(), QDate(2026, 3, 10).startOfDay(), true);
    EXPECT_TRUE(reports.hasReport(u"2026-03-09"_s) || dayRecords.size() == 5)
        << "the day of 2026-03-09 is gone: no report and " << dayRecords.size() << " of its 5 records";
}

INSTANTIATE_TEST_SUITE_P(Faults, DiskFaultsTest, ::testing::Values(false, true),
    [](const ::testing::TestParamInfo<bool> &info) { return info.param ? "ReadOnly" : "Full"; });

// Everything the program says through Qt's logging, with our developer categories switched on.
QMutex outputMutex;
QStringList output;

void captureOutput(QtMsgType, const QMessageLogContext &context, const QString &message)
{
    const QMutexLocker lock(&outputMutex);
    output.append(QString::fromUtf8(context.category ? context.category : "") + u": "_s + message);
}

using PrivacyTest = FaultFixture;

// A day of capture, a sign-in and every way an upload can end leave nothing private behind: no picture
// under the home or temporary folders, the token in no output, request body or query, nor in a file but
// credentials.plist; the folders of the records and the session are their owner's alone whatever the umask.
TEST_F(PrivacyTest, NothingPrivateIsLeftBehind)
{
    const QString token = u"tok-Secret-7f3a9c1e5b"_s;
    const QString oneTime = u"link-Secret-0d4e"_s;
    QTemporaryDir temp;
    const QByteArray previousTemp = qgetenv("TMPDIR");
    qputenv("TMPDIR", temp.path().toLocal8Bit());
    const mode_t previousMask = ::umask(0);
    QLoggingCategory::setFilterRules(u"tamlo.*.debug=true"_s);
    const QtMessageHandler previousHandler = qInstallMessageHandler(&captureOutput);
    buildServices();
    for (int i = 0; i < 40; ++i) {
        tick();
    }
    ASSERT_EQ(snapshotStore->count(), 40);

    StandInServer backend;
    const AppConfig config = backendConfig(backend.url());
    backend.on("POST", "/auth/verify-token",
        {200, (u"{\"sessionToken\":\""_s + token + u"\",\"user\":{\"id\":\"u1\",\"email\":\"a@b.com\"}}"_s).toUtf8()});
    AuthService auth(&nam, config, paths.credentialsDir);
    QCoro::waitFor(auth.verifyMagicLinkToken(oneTime));
    ASSERT_TRUE(auth.isAuthenticated()) << auth.error().value_or(QString()).toStdString();
    using P = QFileDevice;
    for (const QString &dir : {paths.dataDir, paths.credentialsDir}) {
        EXPECT_EQ(QFile::permissions(dir),
            P::ReadOwner | P::WriteOwner | P::ExeOwner | P::ReadUser | P::WriteUser | P::ExeUser)
            << dir.toStdString();
    }

    // Every way an upload can end, then the backend ending the session.
    ActivitySyncService sync(snapshotStore.get(), &auth, &nam, config, settings.get(), logManager.get(), &clock);
    backend.on("GET", "/auth/me", {500, R"({"error":"busy"})"});
    backend.on("GET", "/activity/status", {200, R"({"syncRequestedAt":1773062400000})"});
    for (const StandInServer::Reply &reply : {StandInServer::Reply {500, R"({"error":"Database unavailable"})"},
             StandInServer::Reply {200, {}, "application/json", 10, true}, StandInServer::Reply {401, "{}"},
             StandInServer::Reply {200, R"({"ok":true})"}}) {
        backend.on("POST", "/activity/sync", reply);
        QCoro::waitFor(sync.syncNow());
    }
    QCoro::waitFor(sync.checkSyncRequest());
    backend.on("POST", "/activity/sync", {401, "{}"});
    backend.on("GET", "/auth/me", {401, "{}"});
    QCoro::waitFor(sync.syncNow());
    EXPECT_FALSE(auth.isAuthenticated());
    qputenv("TMPDIR", previousTemp);
    ::umask(previousMask);
    qInstallMessageHandler(previousHandler);
    QLoggingCategory::setFilterRules(QString());

    for (const QString &line :
        messages() + output + QStringList {auth.error().value_or(QString()), sync.lastError().value_or(QString())}) {
        EXPECT_FALSE(line.contains(token) || line.contains(oneTime)) << "a token is in: " << line.toStdString();
    }
    const QList<QByteArray> magics {"\x89PNG", "\xFF\xD8\xFF", "BM", "P6", "GIF8"};
    for (const QString &root : {home.path(), temp.path()}) {
        QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            QFile file(it.next());
            const QByteArray content = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
            EXPECT_FALSE(
                std::any_of(magics.cbegin(), magics.cend(), [&](const auto &m) { return content.startsWith(m); })
                || QStringList({u"png"_s, u"jpg"_s, u"jpeg"_s, u"ppm"_s}).contains(QFileInfo(file).suffix().toLower()))
                << "a picture: " << file.fileName().toStdString();
            EXPECT_TRUE(file.fileName() == paths.credentialsFile() || !content.contains(token.toUtf8()))
                << file.fileName().toStdString();
        }
    }
    ASSERT_GT(backend.requests().size(), 5);
    for (const StandInServer::Request &request : backend.requests()) {
        EXPECT_FALSE(request.body.contains(token.toUtf8()) || request.query.contains(token.toUtf8()))
            << request.path.toStdString();
    }
}
} // namespace
