#include "monitorfixture.h"

#include <QCryptographicHash>

using namespace MonitorTest;

namespace {
class RecordingTest : public MonitorFixture
{
};

TEST_F(RecordingTest, AnAnalysedTickStoresTheModelsAnswerWithTheHashOfTheSentImage)
{
    clock.set(at(2026, 3, 9, 10, 0, 5));
    QCoro::waitFor(monitor->performCapture());

    ASSERT_EQ(ollama.requestsTo("/api/chat").size(), 1);
    const QJsonObject body = QJsonDocument::fromJson(ollama.requestsTo("/api/chat").first().body).object();
    const QByteArray sentImage = QByteArray::fromBase64(body[u"messages"_s][0][u"images"_s][0].toString().toLatin1());
    ASSERT_FALSE(sentImage.isEmpty());
    EXPECT_EQ(QImage::fromData(sentImage, "PNG").size(), QSize(1200, 675));

    const QList<ActivitySnapshot> stored = snapshotStore->fetchAll();
    ASSERT_EQ(stored.size(), 1);
    const ActivitySnapshot &snapshot = stored.first();
    EXPECT_EQ(snapshot.imageHash,
        QString::fromLatin1(QCryptographicHash::hash(sentImage, QCryptographicHash::Sha256).toHex()));
    EXPECT_EQ(snapshot.aiCategory, u"Coding"_s);
    EXPECT_EQ(snapshot.projectName, u"Tamlo"_s);
    EXPECT_EQ(snapshot.activityDescription, u"Editing activitymonitor.cpp"_s);
    EXPECT_FALSE(snapshot.userNote.has_value());
    EXPECT_EQ(snapshot.timestamp, clock.now());
    EXPECT_EQ(monitor->latestSnapshots(), stored);
    EXPECT_EQ(monitor->lastCaptureTime(), clock.now());
    EXPECT_EQ(monitor->lastScreenshotTime(), clock.now());
    EXPECT_EQ(monitor->aiAnalysisCount(), 1);
    EXPECT_EQ(countOf(u"[Coding] Editing activitymonitor.cpp"_s), 1);

    // The file holds it too.
    ActivitySnapshotStore reread(paths.snapshotsFile(), logManager.get(), settings.get(), &clock);
    EXPECT_EQ(reread.fetchAll(), stored);
}

TEST_F(RecordingTest, ModelFailureCountsTheScreenshotOnlyAndAScreenStateRecordLeavesTheError)
{
    analysis = StandInServer::Reply {500, R"({"error":"model crashed"})"};
    QCoro::waitFor(monitor->performCapture());
    EXPECT_TRUE(monitor->lastError().startsWith(u"AI analysis failed: "_s)) << monitor->lastError().toStdString();
    EXPECT_EQ(monitor->screenshotCount(), 1);
    EXPECT_EQ(monitor->captureCount(), 0);
    EXPECT_EQ(monitor->aiAnalysisCount(), 0);
    EXPECT_EQ(snapshotStore->count(), 0);
    EXPECT_EQ(countOf(u"⚠️ "_s + monitor->lastError()), 1);
    const QString error = monitor->lastError();

    // A screen-state record leaves the error standing.
    monitor->startMonitoring();
    ASSERT_TRUE(waitFor([&] { return analysisRequests() == 2 && monitor->lastError() == error; }));
    sendScreenSaver(u"org.freedesktop.ScreenSaver"_s, true);
    ASSERT_TRUE(waitFor([&] { return monitor->screenState() == ScreenState::Locked; }));
    QCoro::waitFor(monitor->performCapture());
    EXPECT_EQ(monitor->captureCount(), 1);
    EXPECT_EQ(monitor->lastError(), error);
}

TEST_F(RecordingTest, LatestSnapshotsKeepsTheTwentyNewestWhileTheStoreKeepsAll)
{
    for (int tick = 0; tick < 21; ++tick) {
        clock.advance(30);
        QCoro::waitFor(monitor->performCapture());
    }
    EXPECT_EQ(snapshotStore->count(), 21);
    const QList<ActivitySnapshot> latest = monitor->latestSnapshots();
    ASSERT_EQ(latest.size(), 20);
    const QList<ActivitySnapshot> all = snapshotStore->fetchAll();
    EXPECT_EQ(latest.first(), all.last());
    EXPECT_EQ(latest.last(), all.at(1));
    EXPECT_EQ(monitor->captureCount(), 21);
}

TEST_F(RecordingTest, NotesGoToTheNewestRecordAndRelabelOnlyWhenTheyNameAProject)
{
    // Before the first record there is nowhere for a note to go.
    monitor->addNoteToCurrentLog(u"planting the garden"_s);
    EXPECT_EQ(countOf(u"📝 Note added to current log"_s), 0);

    QCoro::waitFor(monitor->performCapture());
    monitor->addNoteToCurrentLog(u"  \n\t "_s);
    EXPECT_EQ(countOf(u"📝 Note added to current log"_s), 0);

    monitor->addNoteToCurrentLog(u"  reading about compilers \n"_s);
    ActivitySnapshot inMemory = monitor->latestSnapshots().first();
    ActivitySnapshot stored = snapshotStore->fetchAll().first();
    EXPECT_EQ(inMemory.userNote, u"reading about compilers"_s);
    EXPECT_EQ(inMemory.projectName, u"Tamlo"_s);
    EXPECT_EQ(stored, inMemory);

    monitor->addNoteToCurrentLog(u"planting the garden"_s);
    inMemory = monitor->latestSnapshots().first();
    stored = snapshotStore->fetchAll().first();
    EXPECT_EQ(inMemory.userNote, u"planting the garden"_s);
    EXPECT_EQ(inMemory.projectName, u"Garden"_s);
    EXPECT_EQ(stored, inMemory);
    EXPECT_EQ(countOf(u"📝 Note added to current log"_s), 2);
}
} // namespace
