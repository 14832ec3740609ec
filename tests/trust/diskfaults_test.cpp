#include "faultfixture.h"

#include <QFile>

#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

using namespace TrustTest;

namespace {
// A small tmpfs of the test's own over the data folder, so the disk can fill up or turn read-only
// without touching anything else. Needs root.
class ScratchMount
{
public:
    explicit ScratchMount(QString path) : m_path(std::move(path)) { }
    ~ScratchMount()
    {
        if (m_mounted) {
            ::umount2(m_path.toLocal8Bit().constData(), MNT_DETACH);
        }
    }
    ScratchMount(const ScratchMount &) = delete;
    ScratchMount &operator=(const ScratchMount &) = delete;

    [[nodiscard]] QString mount(const char *size)
    {
        const QByteArray options = QByteArray("mode=0700,size=") + size;
        if (::mount("tmpfs", m_path.toLocal8Bit().constData(), "tmpfs", 0, options.constData()) != 0) {
            return QString::fromLocal8Bit(std::strerror(errno));
        }
        m_mounted = true;
        m_options = options;
        return {};
    }

    bool setReadOnly(bool readOnly)
    {
        const unsigned long flags = MS_REMOUNT | (readOnly ? MS_RDONLY : 0);
        return ::mount("tmpfs", m_path.toLocal8Bit().constData(), "tmpfs", flags, m_options.constData()) == 0;
    }

private:
    QString m_path;
    QByteArray m_options;
    bool m_mounted = false;
};

// Takes every free byte of the folder's file system; removing the file gives them back.
bool fillUp(const QString &path)
{
    QFile filler(path);
    if (!filler.open(QIODevice::WriteOnly)) {
        return false;
    }
    const QByteArray block(4096, 'x');
    while (filler.write(block) == block.size() && filler.flush()) { }
    return true;
}

class DiskFaultsTest : public FaultFixture
{
protected:
    void SetUp() override
    {
        FaultFixture::SetUp();
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: a full or read-only disk is a small tmpfs mounted by the test (run as root, "
                            "as CI does, to include it)";
        }
        QDir().mkpath(paths.dataDir);
        dataMount = std::make_unique<ScratchMount>(paths.dataDir);
        const QString error = dataMount->mount("256k");
        if (!error.isEmpty()) {
            GTEST_SKIP() << "cannot mount a tmpfs here (" << error.toStdString() << ")";
        }
        buildServices();
    }

    void TearDown() override
    {
        FaultFixture::TearDown();
        snapshotStore.reset();
        reportStore.reset();
        dataMount.reset();
    }

    std::unique_ptr<ScratchMount> dataMount;
};
} // namespace

// Records taken while the disk is full stay in memory and reach the file with the first write
// that fits; the file on disk stays whole all along, and the ticks go on.
TEST_F(DiskFaultsTest, FullDiskKeepsEveryRecordAndCatchesUpWhenThereIsRoom)
{
    tick();
    tick();
    ASSERT_EQ(recordsOnDisk(), 2);
    const QString filler = QDir(paths.dataDir).filePath(u"filler"_s);
    ASSERT_TRUE(fillUp(filler));

    tick();
    tick();
    tick();
    EXPECT_EQ(snapshotStore->count(), 5);
    EXPECT_EQ(monitor->captureCount(), 5);
    EXPECT_EQ(recordsOnDisk(), 2) << "the previous file must stay whole";
    EXPECT_TRUE(logged(u"❌ Failed to save snapshots: "_s)) << messages().join(u'\n').toStdString();
    EXPECT_TRUE(monitor->lastError().isEmpty()) << "a failed write is the store's to report, not the tick's";

    ASSERT_TRUE(QFile::remove(filler));
    tick();
    EXPECT_EQ(recordsOnDisk(), 6);
}

// A day closed while its report cannot be written stays pending: after a restart either the
// report or the day's records are on disk, never neither.
TEST_F(DiskFaultsTest, FullDiskWhileClosingADayLosesNeitherReportNorRecords)
{
    monitor->configure();
    ASSERT_TRUE(QTest::qWaitFor([this] { return monitor->captureCount() == 1; }, 10000));
    tick();
    tick();
    ASSERT_EQ(recordsOnDisk(), 3);
    const QString filler = QDir(paths.dataDir).filePath(u"filler"_s);
    ASSERT_TRUE(fillUp(filler));

    clock.set(QDateTime(QDate(2026, 3, 10), QTime(0, 1)));
    QCoro::waitFor(monitor->checkDailyReset());
    EXPECT_TRUE(logged(u"❌ Failed to save daily reports: "_s)) << messages().join(u'\n').toStdString();
    EXPECT_TRUE(monitor->isMonitoring());

    // Room again: the next tick rewrites snapshots.json; then the application is quit.
    ASSERT_TRUE(QFile::remove(filler));
    tick();
    endMonitor();

    const DailyReportStore reports(paths.dailyReportsFile(), logManager.get());
    const ActivitySnapshotStore records(paths.snapshotsFile(), logManager.get(), settings.get(), &clock);
    const auto dayRecords = records.fetch(QDate(2026, 3, 9).startOfDay(), QDate(2026, 3, 10).startOfDay(), true);
    EXPECT_TRUE(reports.hasReport(u"2026-03-09"_s) || dayRecords.size() == 3)
        << "the day of 2026-03-09 is gone: no report and " << dayRecords.size() << " of its 3 records";
}

// A data folder that turns read-only: the same as a full disk, with the system's own words.
TEST_F(DiskFaultsTest, ReadOnlyDataFolderKeepsRecordsInMemoryAndSaysSo)
{
    tick();
    ASSERT_EQ(recordsOnDisk(), 1);
    ASSERT_TRUE(dataMount->setReadOnly(true));

    tick();
    tick();
    EXPECT_EQ(snapshotStore->count(), 3);
    EXPECT_EQ(recordsOnDisk(), 1);
    EXPECT_TRUE(logged(u"❌ Failed to save snapshots: "_s)) << messages().join(u'\n').toStdString();
    DailyReport report;
    report.date = u"2026-03-08"_s;
    report.summary = u"Yesterday."_s;
    report.generatedAt = clock.now();
    EXPECT_FALSE(reportStore->upsert(report));
    EXPECT_TRUE(logged(u"❌ Failed to save daily reports: "_s));
    EXPECT_TRUE(reportStore->hasReport(u"2026-03-08"_s));

    ASSERT_TRUE(dataMount->setReadOnly(false));
    tick();
    EXPECT_EQ(recordsOnDisk(), 4);
}
