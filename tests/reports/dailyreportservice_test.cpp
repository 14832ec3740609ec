#include "reports/dailyreportservice.h"

#include "ai/llmservice.h"
#include "core/settings.h"
#include "fakeclock.h"
#include "files.h"
#include "records.h"
#include "reports/dailyreportstore.h"
#include "standinollama.h"
#include "standinserver.h"

#include <QCoroTask>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
const QString ollamaDown = u"Ollama is not running. Start the Ollama service or run `ollama serve` in a terminal."_s;

QByteArray summaryBody(const QString &summary)
{
    return StandInOllama::chatBody(QJsonObject {{u"summary"_s, summary}});
}

template<typename T>
QList<T> fixture(const QString &name)
{
    QList<T> entries;
    for (const QJsonValue &entry : QJsonDocument::fromJson(readBytes(testDataPath(name))).array()) {
        entries.append(T::fromJson(entry.toObject()).value());
    }
    return entries;
}

// A day out of time order, with commas, line feeds, quotes, notes and a screen-state record; a day of the
// documented example, a day without activity, and one with a project named A,B.
const auto awkwardDay = [] { return fixture<ActivitySnapshot>(u"reports/worklog-2026-03-09.input.json"_s); };
const auto awkwardReports = [] { return fixture<DailyReport>(u"reports/daily-reports.input.json"_s); };

class DailyReportServiceTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_home.isValid());
        m_ollama.on("GET", "/api/tags", StandInServer::Reply {200, StandInOllama::tagsBody({u"qwen3-vl:2b"_s})});
        m_ollama.on("POST", "/api/chat", StandInServer::Reply {200, summaryBody(u"A focused day on the website."_s)});
    }

    DayFinalization finalize(const QList<ActivitySnapshot> &snapshots)
    {
        return QCoro::waitFor(m_service.generateAndPersist(m_yesterday.addSecs(3600), snapshots, &m_reports));
    }

    [[nodiscard]] QList<ActivitySnapshot> ordinaryDay() const
    {
        return {recordAt(m_yesterday.addSecs(9 * 3600), u"Coding"_s),
            recordAt(m_yesterday.addSecs(9 * 3600 + 30), u"Coding"_s),
            recordAt(m_yesterday.addSecs(9 * 3600 + 60), u"Browsing"_s),
            markerAt(m_yesterday.addSecs(12 * 3600), ScreenState::Locked)};
    }

    QTemporaryDir m_home;
    FakeClock m_clock {QDateTime(QDate(2026, 3, 9), QTime(0, 0, 30))};
    LogManager m_log {&m_clock};
    Settings m_settings {m_home.filePath(u"Tamlo.conf"_s)};
    QNetworkAccessManager m_nam;
    StandInServer m_ollama;
    LLMService m_llm {&m_nam, &m_settings, &m_log, m_ollama.url(), &m_clock};
    QString m_root = m_home.filePath(u"Documents/Tamlo"_s);
    DailyReportStore m_reports {m_home.filePath(u".local/share/Tamlo/daily-reports.json"_s), &m_log};
    DailyReportService m_service {&m_llm, &m_log, &m_settings, &m_clock, m_root};
    QDateTime m_yesterday = QDate(2026, 3, 8).startOfDay();
};
} // namespace

TEST_F(DailyReportServiceTest, StoresTheModelsNarrativeWithTheFiguresWritesBothFilesAndReplacesItLater)
{
    EXPECT_EQ(finalize(ordinaryDay()), DayFinalization::Stored);
    EXPECT_EQ(logMessages(m_log),
        (QStringList {u"📄 Work log saved: WorkLogs/2026-03-08.csv (4 records)"_s,
            u"🤖 Generating daily summary for 2026-03-08…"_s, u"✅ Daily summary generated"_s,
            u"📊 Daily report saved: Daily-Reports.csv"_s}));
    EXPECT_EQ(DailyReportStore(m_reports.filePath(), &m_log).fetch(u"2026-03-08"_s),
        (DailyReport {.date = u"2026-03-08"_s,
            .totalActiveSeconds = 90,
            .projects = {{u"Website"_s, 90, 100.0}},
            .categories = {{u"Coding"_s, 60, 2.0 / 3 * 100.0}, {u"Browsing"_s, 30, 1.0 / 3 * 100.0}},
            .summary = u"A focused day on the website."_s,
            .generatedAt = m_clock.now()}));
    EXPECT_EQ(readBytes(m_root + u"/WorkLogs/2026-03-08.csv"_s).count('\n'), 4);
    EXPECT_EQ(readBytes(m_root + u"/Daily-Reports.csv"_s),
        "Date,TotalTime,Projects,Categories,Summary,MajorTasks\n"
        "2026-03-08,1m,\"Website (1m, 100%)\",\"Coding (1m, 67%); Browsing (0m, 33%)\",\"A focused day on the "
        "website.\",");

    // daily-reports.json cannot be written: the table is still written from memory.
    QFile::remove(m_reports.filePath());
    QDir().mkpath(m_reports.filePath());
    m_ollama.on("POST", "/api/chat", StandInServer::Reply {200, summaryBody(u"Third take."_s)});
    EXPECT_EQ(finalize(ordinaryDay()), DayFinalization::ReportNotSaved);
    EXPECT_TRUE(readBytes(m_root + u"/Daily-Reports.csv"_s).contains("Third take."));
}

TEST_F(DailyReportServiceTest, AFailingModelOrNothingActiveGivesTheComposedNarrativeAndStillAReport)
{
    m_ollama.on("GET", "/api/tags", StandInServer::Reply {200, R"({"models":[]})"});
    EXPECT_EQ(finalize(ordinaryDay()), DayFinalization::Stored);
    const QStringList messages = logMessages(m_log);
    // Each attempt sends a shorter log; the third failure is the one reported.
    EXPECT_EQ(messages.filter(u"⚠️ Day summary attempt failed"_s),
        (QStringList {u"⚠️ Day summary attempt failed (50 groups): "_s + ollamaDown,
            u"⚠️ Day summary attempt failed (30 groups): "_s + ollamaDown,
            u"⚠️ Day summary attempt failed (15 groups): "_s + ollamaDown}));
    EXPECT_TRUE(messages.contains(u"⚠️ Daily summary failed, using fallback: "_s + ollamaDown));
    const QString expected
        = u"Most of the day focused on Website, mainly Coding work. (AI summary unavailable: "_s + ollamaDown + u")"_s;
    EXPECT_EQ(m_reports.fetch(u"2026-03-08"_s)->summary, expected);
    EXPECT_TRUE(readBytes(m_root + u"/Daily-Reports.csv"_s).endsWith(",\"" + expected.toUtf8() + "\","));

    // A day of screen states alone asks no model at all: there is nothing to summarise.
    m_ollama.clearRequests();
    EXPECT_EQ(finalize({markerAt(m_yesterday.addSecs(3600), ScreenState::Locked)}), DayFinalization::Stored);
    EXPECT_TRUE(m_ollama.requests().isEmpty());
    EXPECT_EQ(m_reports.fetch(u"2026-03-08"_s)->summary,
        u"Most of the day focused on general work, mainly mixed activities work. (AI summary unavailable: No active "
        u"activity to summarize)"_s);
}

TEST_F(DailyReportServiceTest, NoRecordsOrAnUnwritableWorkLogMakeNoReportAndTodaysIsNeitherStoredNorWritten)
{
    EXPECT_EQ(finalize({}), DayFinalization::NoRecords);
    EXPECT_EQ(logMessages(m_log), QStringList {u"⚠️ No records to finalize for 2026-03-08"_s});
    EXPECT_FALSE(QCoro::waitFor(m_service.buildTodayReport({})).has_value());
    const auto today = QCoro::waitFor(m_service.buildTodayReport({recordAt(m_clock.now())}));
    ASSERT_TRUE(today.has_value());
    EXPECT_EQ(std::tuple(today->date, today->totalActiveSeconds, today->summary),
        std::tuple(u"2026-03-09"_s, 30, u"A focused day on the website."_s));
    EXPECT_FALSE(QFile::exists(m_root));

    m_ollama.clearRequests();
    blockFolder(m_root + u"/WorkLogs"_s);
    EXPECT_EQ(finalize(ordinaryDay()), DayFinalization::WorkLogFailed);
    EXPECT_TRUE(logMessages(m_log).last().startsWith(u"❌ Work log export failed: "_s));
    EXPECT_TRUE(m_ollama.requests().isEmpty());
    EXPECT_FALSE(QFile::exists(m_root + u"/Daily-Reports.csv"_s));
}

// The golden files hold the awkward cases; the rest are the ones they cannot show.
TEST_F(DailyReportServiceTest, ExportsReplaceWholeFilesUnderTheExportRootAsTheGoldenFilesShow)
{
    m_settings.setString(SettingsKey::userProjects, u"Website, Tamlo"_s);
    const QString workLog = m_root + u"/WorkLogs/2026-03-09.csv"_s;
    writeBytes(workLog, QByteArray(10000, 'x'));
    EXPECT_FALSE(m_service.exportWorkLog(awkwardDay(), QDateTime(QDate(2026, 3, 9), QTime(23, 59))).has_value());
    EXPECT_TRUE(matchesGolden(readBytes(workLog), u"reports/worklog-2026-03-09.csv"_s));
    EXPECT_FALSE(m_service.exportDailyReportsCSV(awkwardReports()).has_value());
    EXPECT_TRUE(matchesGolden(readBytes(m_root + u"/Daily-Reports.csv"_s), u"reports/daily-reports.csv"_s));
    EXPECT_EQ(QDir(m_root).entryList(QDir::Files), QStringList {u"Daily-Reports.csv"_s});

    const QStringList projects {u"Website"_s, u"Tamlo"_s};
    EXPECT_EQ(DailyReportService::workLogCSVContent({}, projects), u"Timestamp,Category,Project,Summary,Note\n"_s);
    ActivitySnapshot carriageReturn = awkwardDay().first();
    carriageReturn.activityDescription = u"a\rb"_s;
    EXPECT_TRUE(DailyReportService::workLogCSVContent({carriageReturn}, projects).contains(u",a\rb,"_s));
    EXPECT_EQ(DailyReportService::dailyReportCSVContent({}, false), QString());
    // Labels that look like format markers come out as typed.
    const DailyReport markers {.date = u"2026-03-10"_s,
        .totalActiveSeconds = 120,
        .projects = {{u"Sprint %1"_s, 60, 50.0}, {u"100%"_s, 60, 50.0}},
        .categories = {{u"%3 Review"_s, 120, 100.0}}};
    EXPECT_EQ(DailyReportService::dailyReportCSVContent({markers}, false).toStdString(),
        "2026-03-10,2m,\"Sprint %1 (1m, 50%); 100% (1m, 50%)\",\"%3 Review (2m, 100%)\",\"\",");
}

TEST_F(DailyReportServiceTest, ExportFailuresSayWhyAndLeaveEarlierFilesWhole)
{
    ASSERT_FALSE(m_service.exportDailyReportsCSV(awkwardReports()).has_value());
    const QByteArray table = readBytes(m_root + u"/Daily-Reports.csv"_s);
    DailyReportService underAFile(nullptr, &m_log, &m_settings, &m_clock, m_root + u"/Daily-Reports.csv/Tamlo"_s);
    const auto underAFileError = underAFile.exportDailyReportsCSV({});
    ASSERT_TRUE(underAFileError.has_value());
    EXPECT_TRUE(underAFileError->description.endsWith(u"couldn’t be created: Not a directory."_s))
        << underAFileError->description.toStdString();
    EXPECT_EQ(readBytes(m_root + u"/Daily-Reports.csv"_s), table);

    QFile::remove(m_root + u"/Daily-Reports.csv"_s);
    QDir().mkpath(m_root + u"/Daily-Reports.csv"_s);
    const auto tableError = m_service.exportDailyReportsCSV({});
    ASSERT_TRUE(tableError.has_value());
    EXPECT_TRUE(tableError->description.startsWith(u"“Daily-Reports.csv” couldn’t be saved: "_s))
        << tableError->description.toStdString();
}
