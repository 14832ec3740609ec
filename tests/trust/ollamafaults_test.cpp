#include "faultfixture.h"

#include <QTcpServer>

using namespace TrustTest;

namespace {
struct OllamaFault
{
    const char *name;
    StandInServer::Reply reply;
};

class OllamaFaultsTest : public FaultFixture, public ::testing::WithParamInterface<OllamaFault>
{
};

// However the model server fails a tick, monitoring goes on, nothing is recorded for that tick,
// lastError and the event log say why, and the next good answer clears the error.
TEST_P(OllamaFaultsTest, AFailedTickRecordsNothingAndTheNextOneRecovers)
{
    buildServices();
    tick();
    ASSERT_EQ(snapshotStore->count(), 1);

    analysis = GetParam().reply;
    tick();
    EXPECT_TRUE(monitor->lastError().startsWith(u"AI analysis failed: "_s)) << monitor->lastError().toStdString();
    EXPECT_GT(monitor->lastError().size(), QStringLiteral("AI analysis failed: ").size());
    EXPECT_TRUE(logged(u"⚠️ AI analysis failed: "_s)) << messages().join(u'\n').toStdString();
    EXPECT_EQ(snapshotStore->count(), 1);
    EXPECT_EQ(recordsOnDisk(), 1);
    EXPECT_EQ(monitor->captureCount(), 1);
    if (GetParam().reply.silent) {
        EXPECT_EQ(monitor->lastError(), u"AI analysis failed: The request timed out."_s);
    }

    analysis = goodAnalysis;
    tick();
    EXPECT_TRUE(monitor->lastError().isEmpty());
    EXPECT_EQ(snapshotStore->count(), 2);
    EXPECT_EQ(recordsOnDisk(), 2);
}

INSTANTIATE_TEST_SUITE_P(Faults, OllamaFaultsTest,
    ::testing::Values(OllamaFault {"DiesMidRequest", {200, {}, "application/json", 50, true}},
        OllamaFault {"AnswersGarbage", {200, "<html><body>Bad Gateway</body></html>"}},
        OllamaFault {"AnswersNothing", {200, ""}},
        OllamaFault {"AnswersProseForJson", {200, R"({"message":{"content":"I cannot tell what is on the screen."}})"}},
        OllamaFault {"Answers5xx", {500, R"({"error":"out of memory"})"}},
        OllamaFault {"Answers5xxWithoutBody", {503, ""}},
        OllamaFault {"NeverAnswers", {200, {}, "application/json", 0, false, true}}),
    [](const ::testing::TestParamInfo<OllamaFault> &info) { return std::string(info.param.name); });

// No server on the port at all.
TEST_F(OllamaFaultsTest, NoServerListeningFailsTheTickWithTheNotRunningText)
{
    QTcpServer probe;
    ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
    ollamaUrl = QUrl(u"http://127.0.0.1:%1"_s.arg(probe.serverPort()));
    probe.close();
    buildServices();

    tick();
    EXPECT_EQ(monitor->lastError(), u"AI analysis failed: "_s + LLMError::ollamaNotRunning().errorDescription());
    EXPECT_EQ(snapshotStore->count(), 0);
}

// A server that takes the connection and never answers the model list: the list's time-out ends
// the wait, and the tick fails as if no server ran.
TEST_F(OllamaFaultsTest, ServerThatNeverAnswersEndsTheTickAfterTheListTimeout)
{
    ollama.on("GET", "/api/tags", StandInServer::Reply {200, {}, "application/json", 0, false, true});
    buildServices();

    tick();
    EXPECT_EQ(monitor->lastError(), u"AI analysis failed: "_s + LLMError::ollamaNotRunning().errorDescription());
    EXPECT_EQ(snapshotStore->count(), 0);
}

class DayCloseFaultsTest : public FaultFixture, public ::testing::WithParamInterface<OllamaFault>
{
};

// The model failing at the day's close never costs the day: the report is written with a
// narrative composed from the figures, and only then do the records leave the store.
TEST_P(DayCloseFaultsTest, AModelFailureStillClosesTheDay)
{
    buildServices();
    monitor->configure();
    ASSERT_TRUE(QTest::qWaitFor([this] { return monitor->captureCount() == 1; }, 10000));
    tick();
    tick();

    summary = GetParam().reply;
    clock.set(QDateTime(QDate(2026, 3, 10), QTime(0, 1)));
    QCoro::waitFor(monitor->checkDailyReset());

    const DailyReportStore reread(paths.dailyReportsFile(), logManager.get());
    const auto report = reread.fetch(u"2026-03-09"_s);
    ASSERT_TRUE(report.has_value());
    EXPECT_EQ(report->totalActiveSeconds, 90);
    EXPECT_FALSE(report->summary.trimmed().isEmpty());
    EXPECT_TRUE(snapshotStore->fetch(QDate(2026, 3, 9).startOfDay(), QDate(2026, 3, 10).startOfDay(), true).isEmpty());
    EXPECT_TRUE(monitor->isMonitoring());
}

INSTANTIATE_TEST_SUITE_P(Faults, DayCloseFaultsTest,
    ::testing::Values(OllamaFault {"DiesMidRequest", {200, {}, "application/json", 50, true}},
        OllamaFault {"AnswersGarbage", {200, "not json"}}, OllamaFault {"AnswersNothing", {200, ""}},
        OllamaFault {"Answers5xx", {500, R"({"error":"context too long"})"}},
        OllamaFault {"NeverAnswers", {200, {}, "application/json", 0, false, true}}),
    [](const ::testing::TestParamInfo<OllamaFault> &info) { return std::string(info.param.name); });
} // namespace
