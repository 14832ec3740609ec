#include "reports/dailyreportservice.h"

#include "ai/llmservice.h"
#include "core/settings.h"
#include "fakeclock.h"
#include "reports/dailyreportstore.h"
#include "standinollama.h"
#include "standinserver.h"
#include "storetesthelpers.h"

#include <QCoroTask>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
const QString ollamaDown = u"Ollama is not running. Start the Ollama service or run `ollama serve` in a terminal."_s;

const QByteArray installedModel = StandInOllama::tagsBody({u"qwen3-vl:2b"_s});

// The model's answer to the day summary request.
QByteArray chatBody(const QString &summary)
{
    return StandInOllama::chatBody(QJsonObject {{u"summary"_s, summary}});
}

ActivitySnapshot record(const QDateTime &timestamp, const QString &category, const QString &description)
{
    return ActivitySnapshot {
        .id = QUuid::createUuid(),
        .timestamp = timestamp,
        .aiCategory = category,
        .projectName = u"Website"_s,
        .activityDescription = description,
    };
}

class DailyReportServiceTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_home.isValid());
        m_ollama.on("GET", "/api/tags", StandInServer::Reply {200, installedModel});
        m_ollama.on("POST", "/api/chat", StandInServer::Reply {200, chatBody(u"A focused day on the website."_s)});
    }

    void ollamaIsDown() { m_ollama.on("GET", "/api/tags", StandInServer::Reply {200, R"({"models":[]})"}); }

    DayFinalization finalize(const QList<ActivitySnapshot> &snapshots)
    {
        return QCoro::waitFor(m_service.generateAndPersist(m_yesterday.addSecs(3600), snapshots, &m_reports));
    }

    QList<ActivitySnapshot> ordinaryDay() const
    {
        return {
            record(m_yesterday.addSecs(9 * 3600), u"Coding"_s, u"Editing checkout.css"_s),
            record(m_yesterday.addSecs(9 * 3600 + 30), u"Coding"_s, u"Editing checkout.css"_s),
            record(m_yesterday.addSecs(9 * 3600 + 60), u"Browsing"_s, u"Reading docs"_s),
            record(m_yesterday.addSecs(12 * 3600), QString(), ActivitySnapshot::screenStateMarker(ScreenState::Locked)),
        };
    }

    QTemporaryDir m_home;
    FakeClock m_clock {QDateTime(QDate(2026, 3, 9), QTime(0, 0, 30))};
    LogManager m_log {&m_clock};
    Settings m_settings {m_home.filePath(u"Tamlo.conf"_s)};
    QNetworkAccessManager m_nam;
    StandInServer m_ollama;
    LLMService m_llm {&m_nam, &m_settings, &m_log, m_ollama.url(), &m_clock};
    QString m_root = m_home.filePath(u"Documents/Tamlo"_s);
    QString m_dataDir = m_home.filePath(u".local/share/Tamlo"_s);
    DailyReportStore m_reports {m_dataDir + u"/daily-reports.json"_s, &m_log};
    DailyReportService m_service {&m_llm, &m_log, &m_settings, &m_clock, m_root};
    QDateTime m_yesterday = QDate(2026, 3, 8).startOfDay();
};
} // namespace

TEST_F(DailyReportServiceTest, StoresTheModelsNarrativeWithTheFiguresAndWritesBothFiles)
{
    EXPECT_EQ(finalize(ordinaryDay()), DayFinalization::Stored);
    EXPECT_EQ(logMessages(m_log),
        (QStringList {u"📄 Work log saved: WorkLogs/2026-03-08.csv (4 records)"_s,
            u"🤖 Generating daily summary for 2026-03-08…"_s, u"✅ Daily summary generated"_s,
            u"📊 Daily report saved: Daily-Reports.csv"_s}));

    const auto report = DailyReportStore(m_reports.filePath(), &m_log).fetch(u"2026-03-08"_s);
    ASSERT_TRUE(report.has_value());
    EXPECT_EQ(report->totalActiveSeconds, 90);
    EXPECT_EQ(report->projects, (QList<LabelTimeStat> {{u"Website"_s, 90, 100.0}}));
    EXPECT_EQ(report->categories.first().name, u"Coding"_s);
    EXPECT_EQ(report->summary, u"A focused day on the website."_s);
    EXPECT_TRUE(report->majorTasks.isEmpty());
    EXPECT_EQ(report->generatedAt, m_clock.now());

    EXPECT_EQ(readBytes(m_root + u"/WorkLogs/2026-03-08.csv"_s).count('\n'), 4);
    EXPECT_EQ(readBytes(m_root + u"/Daily-Reports.csv"_s),
        "Date,TotalTime,Projects,Categories,Summary,MajorTasks\n"
        "2026-03-08,1m,\"Website (1m, 100%)\",\"Coding (1m, 67%); Browsing (0m, 33%)\",\"A focused day on the "
        "website.\",");
}

TEST_F(DailyReportServiceTest, AFailingModelGivesTheComposedNarrativeAndStillAReport)
{
    ollamaIsDown();
    EXPECT_EQ(finalize(ordinaryDay()), DayFinalization::Stored);
    const QStringList messages = logMessages(m_log);
    // Each attempt sends a shorter log; the third failure is the one reported.
    EXPECT_EQ(messages.filter(u"⚠️ Day summary attempt failed"_s),
        (QStringList {u"⚠️ Day summary attempt failed (50 groups): "_s + ollamaDown,
            u"⚠️ Day summary attempt failed (30 groups): "_s + ollamaDown,
            u"⚠️ Day summary attempt failed (15 groups): "_s + ollamaDown}));
    EXPECT_TRUE(m_ollama.requestsTo("/api/chat").isEmpty());
    EXPECT_TRUE(messages.contains(u"⚠️ Daily summary failed, using fallback: "_s + ollamaDown));
    EXPECT_EQ(messages.last(), u"📊 Daily report saved: Daily-Reports.csv"_s);

    const QString expected
        = u"Most of the day focused on Website, mainly Coding work. (AI summary unavailable: "_s + ollamaDown + u")"_s;
    EXPECT_EQ(m_reports.fetch(u"2026-03-08"_s)->summary, expected);
    EXPECT_TRUE(readBytes(m_root + u"/Daily-Reports.csv"_s).endsWith(",\"" + expected.toUtf8() + "\","));
}

TEST_F(DailyReportServiceTest, ADayWithoutActivityGetsAWorkLogAndAReportOfNothing)
{
    const QList<ActivitySnapshot> idle {
        record(m_yesterday.addSecs(3600), QString(), ActivitySnapshot::screenStateMarker(ScreenState::Locked)),
        record(m_yesterday.addSecs(7200), QString(), ActivitySnapshot::screenStateMarker(ScreenState::Sleeping)),
    };
    EXPECT_EQ(finalize(idle), DayFinalization::Stored);
    // No model is asked, not even once: there is nothing to summarise.
    EXPECT_TRUE(m_ollama.requests().isEmpty());
    EXPECT_TRUE(logMessages(m_log).filter(u"attempt failed"_s).isEmpty());
    EXPECT_TRUE(QFile::exists(m_root + u"/WorkLogs/2026-03-08.csv"_s));
    const DailyReport report = *m_reports.fetch(u"2026-03-08"_s);
    EXPECT_EQ(report.totalActiveSeconds, 0);
    EXPECT_TRUE(report.projects.isEmpty());
    EXPECT_EQ(report.summary,
        u"Most of the day focused on general work, mainly mixed activities work. (AI summary unavailable: No active "
        u"activity to summarize)"_s);
}

TEST_F(DailyReportServiceTest, NoRecordsOrAnUnwritableWorkLogMakeNoReport)
{
    EXPECT_EQ(finalize({}), DayFinalization::NoRecords);
    EXPECT_EQ(logMessages(m_log), QStringList {u"⚠️ No records to finalize for 2026-03-08"_s});
    EXPECT_FALSE(QFile::exists(m_root));

    blockFolder(m_root + u"/WorkLogs"_s);
    EXPECT_EQ(finalize(ordinaryDay()), DayFinalization::WorkLogFailed);
    EXPECT_TRUE(logMessages(m_log).last().startsWith(u"❌ Work log export failed: "_s));
    EXPECT_TRUE(m_reports.reports().isEmpty());
    EXPECT_TRUE(m_ollama.requests().isEmpty());
    EXPECT_FALSE(QFile::exists(m_root + u"/Daily-Reports.csv"_s));
}

TEST_F(DailyReportServiceTest, FinalisingAgainReplacesTheReportAndAnUnsavedStoreIsReported)
{
    ASSERT_EQ(finalize(ordinaryDay()), DayFinalization::Stored);
    m_clock.advance(60);
    m_ollama.on("POST", "/api/chat", StandInServer::Reply {200, chatBody(u"Second take."_s)});
    ASSERT_EQ(finalize(ordinaryDay()), DayFinalization::Stored);
    ASSERT_EQ(m_reports.reports().size(), 1);
    EXPECT_EQ(m_reports.reports().first().summary, u"Second take."_s);
    EXPECT_EQ(m_reports.reports().first().generatedAt, m_clock.now());

    // daily-reports.json cannot be written: the table is still written from memory.
    QFile::remove(m_reports.filePath());
    QDir().mkpath(m_reports.filePath());
    m_ollama.on("POST", "/api/chat", StandInServer::Reply {200, chatBody(u"Third take."_s)});
    EXPECT_EQ(finalize(ordinaryDay()), DayFinalization::ReportNotSaved);
    EXPECT_TRUE(readBytes(m_root + u"/Daily-Reports.csv"_s).contains("Third take."));
}

TEST_F(DailyReportServiceTest, TodaysReportIsBuiltButNeitherStoredNorWritten)
{
    EXPECT_FALSE(QCoro::waitFor(m_service.buildTodayReport({})).has_value());
    EXPECT_TRUE(m_ollama.requests().isEmpty());

    const QDateTime today = m_clock.now();
    const auto report = QCoro::waitFor(m_service.buildTodayReport({record(today, u"Coding"_s, u"Writing tests"_s)}));
    ASSERT_TRUE(report.has_value());
    EXPECT_EQ(report->date, u"2026-03-09"_s);
    EXPECT_EQ(report->totalActiveSeconds, 30);
    EXPECT_EQ(report->summary, u"A focused day on the website."_s);
    EXPECT_TRUE(m_reports.reports().isEmpty());
    EXPECT_FALSE(QFile::exists(m_root));
}

TEST(DailyReportFallbackTest, NormalisesTheFinishedSentenceAndTheModelsMessage)
{
    const QString text = DailyReportService::fallbackSummary(
        {LabelTimeStat {u"shop.example"_s, 60, 100.0}}, {}, u"Request failed:\nserver said no"_s);
    EXPECT_EQ(text,
        u"Most of the day focused on shop. example, mainly mixed activities work. (AI summary unavailable: Request "
        u"failed: server said no)"_s);
}
