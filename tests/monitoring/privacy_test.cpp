#include "files.h"
#include "monitorfixture.h"

#include "monitoring/privacyexclusions.h"
#include "platform/swayvisiblewindows.h"

#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QtEndian>

using namespace MonitorTest;

namespace {
// Answers GET_TREE the way sway frames it, the reply cut in two so it arrives in pieces.
class StandInSway
{
public:
    explicit StandInSway(QByteArray payload)
    {
        m_server.listen(QDir::temp().filePath(u"tamlo-sway-%1"_s.arg(QUuid::createUuid().toString(QUuid::Id128))));
        QObject::connect(&m_server, &QLocalServer::newConnection, [this, payload] {
            QLocalSocket *socket = m_server.nextPendingConnection();
            QObject::connect(socket, &QLocalSocket::readyRead, socket, [socket, payload] {
                // GET_TREE, with no payload, is the one question it answers.
                QByteArray header("i3-ipc\0\0\0\0\4\0\0\0", 14);
                if (socket->readAll() != header) {
                    return socket->abort();
                }
                qToUnaligned<quint32>(quint32(payload.size()), header.data() + 6);
                socket->write(header + payload.left(5));
                socket->flush();
                socket->write(payload.mid(5));
            });
        });
    }
    [[nodiscard]] QString path() const { return m_server.fullServerName(); }

private:
    QLocalServer m_server;
};

TEST(PrivacyExclusionsTest, MatchesApplicationIdsAsDesktopsGiveThemAndTitleWordsInAnyCase)
{
    const PrivacyExclusions defaults(PrivacyExclusions::defaultApplications, PrivacyExclusions::defaultTitleWords);
    struct Row
    {
        const char *what;
        PrivacyExclusions exclusions;
        VisibleWindow window;
        bool excluded;
    };
    const QList<Row> rows {
        {"KeePassXC on X11", defaults, {{u"keepassxc"_s, u"KeePassXC"_s}, u"Passwords.kdbx"_s}, true},
        {"KeePassXC on Wayland", defaults, {{u"org.keepassxc.KeePassXC"_s}, u"KeePassXC"_s}, true},
        {"seahorse", defaults, {{u"seahorse"_s}, u"Passwords and Keys"_s}, true},
        {"a private Firefox window", defaults, {{u"firefox-esr"_s}, u"Bank — Mozilla Firefox PRIVATE browsing"_s},
            true},
        {"an incognito tab", defaults, {{u"chromium"_s}, u"New Tab - Chromium (incognito)"_s}, true},
        {"a name that only contains an entry", defaults, {{u"keepassxc-proxy"_s}, u"Helper"_s}, false},
        {"a .desktop name against the toolkit's id",
            PrivacyExclusions({u"org.gnome.seahorse.Application.desktop"_s}, {}),
            {{u"seahorse"_s, u"Seahorse"_s, u"org.gnome.seahorse.Application"_s}, u"seahorse"_s}, true},
        {"a .desktop name against an X11 class", PrivacyExclusions({u"org.keepassxc.KeePassXC.desktop"_s}, {}),
            {{u"keepassxc"_s, u"KeePassXC"_s}, u"KeePassXC"_s}, true},
        {"empty lists", PrivacyExclusions({}, {}), {{u"keepassxc"_s}, u"Incognito"_s}, false},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(row.exclusions.excludes(row.window), row.excluded);
    }
}

// The reply of a real sway 1.7 with two outputs: KeePassXC behind seahorse's tab, a floating
// calculator, KeePass 2 on a hidden workspace, an incognito window on the second output and a
// private-browsing window in the scratchpad.
TEST(SwayVisibleWindowsTest, ListsTheViewsSwayShowsOnEveryOutput)
{
    StandInSway sway(readBytes(testDataPath(u"sway-1.7-get-tree.json"_s)));
    SwayVisibleWindows source(sway.path());
    const VisibleWindowList list = QCoro::waitFor(source.visibleWindows());
    ASSERT_FALSE(list.failure.has_value()) << list.failure->toStdString();
    QStringList seen;
    for (const VisibleWindow &window : list.windows) {
        seen.append(window.appIds.join(u'/') + u": "_s + window.title);
    }
    EXPECT_EQ(seen,
        QStringList({u"seahorse: seahorse"_s, u"xcalc/XCalc: Calculator"_s,
            u"xclock/XClock: New Tab - Chromium (Incognito)"_s}));

    const auto excluded = [&list](QStringList applications, QStringList words) {
        return PrivacyExclusions(std::move(applications), std::move(words)).excludesAny(list.windows);
    };
    EXPECT_TRUE(excluded(PrivacyExclusions::defaultApplications, {})) << "seahorse is showing";
    EXPECT_FALSE(excluded({u"KeePassXC"_s, u"KeePass2"_s}, {u"Private Browsing"_s})) << "all three are hidden";
    EXPECT_TRUE(excluded({}, {u"incognito"_s})) << "the second output counts";

    EXPECT_TRUE(SwayVisibleWindows::parseTree("{\"type\":\"output\"}").failure.has_value());
    SwayVisibleWindows gone(sway.path() + u"-gone"_s);
    EXPECT_TRUE(QCoro::waitFor(gone.visibleWindows()).failure.has_value());
}

class PrivacyMonitorTest : public MonitorFixture
{
};

// A desktop that should tell but does not answer is not looked at: the tick is private.
TEST_F(PrivacyMonitorTest, AWindowListThatCannotBeReadSkipsTheTickAsPrivate)
{
    SwayVisibleWindows silent(QDir::temp().filePath(u"tamlo-no-such-sway-socket"_s));
    visibleWindows = &silent;
    buildMonitor();
    QCoro::waitFor(monitor->performCapture());
    EXPECT_EQ(std::tuple(grabber.grabs, analysisRequests(), monitor->captureCount()), std::tuple(0, 0, 1));
    const ActivitySnapshot record = snapshotStore->fetchAll().value(0);
    EXPECT_EQ(std::tuple(record.activityDescription, record.aiCategory, record.projectName, record.imageHash),
        std::tuple(std::optional(u"Private"_s), u"Other"_s, std::optional(u"Other"_s), std::optional<QString>()));
    EXPECT_EQ(countOf(u"⚠️ Window list unavailable - tick skipped as private"_s), 1);
}

// Paused for 30 minutes, restarted during the pause, and the clock jumping past its end.
TEST_F(PrivacyMonitorTest, ATimedPauseOutlivesARestartAndEndsByTheClockWithACapture)
{
    monitor->configure();
    ASSERT_TRUE(waitFor([&] { return monitor->captureCount() == 1; }));
    monitor->pauseUntil(TimedPause::endOf(TimedPause::Length::ThirtyMinutes, clock.now()));
    EXPECT_FALSE(monitor->isMonitoring());
    EXPECT_EQ(settings->date(SettingsKey::pausedUntil), at(2026, 3, 9, 10, 30));

    buildMonitor();
    monitor->configure();
    ASSERT_TRUE(waitFor([&] { return timer(u"dailyCheckTimer"_s) != nullptr; }));
    EXPECT_FALSE(monitor->isMonitoring());
    QTimer *wake = timedPause->findChild<QTimer *>(u"timedPauseTimer"_s);
    ASSERT_TRUE(wake && wake->isActive());
    EXPECT_LE(wake->interval(), 60000) << "the clock is read at least once a minute";

    wake->stop(); // as when it has fired
    clock.advance(29 * 60);
    timedPause->check();
    EXPECT_FALSE(monitor->isMonitoring());
    EXPECT_TRUE(wake->isActive()) << "a wake before the end sleeps again";
    clock.advance(40 * 60);
    timedPause->check();
    EXPECT_TRUE(monitor->isMonitoring());
    EXPECT_FALSE(settings->contains(SettingsKey::pausedUntil));
    EXPECT_TRUE(waitFor([&] { return grabber.grabs == 2; })) << "the first capture comes at once";
}
} // namespace
