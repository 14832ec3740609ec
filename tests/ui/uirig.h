#pragma once

#include "monitoring/idletimesource.h"
#include "platform/dbusscreenevents.h"
#include "platform/xdgautostart.h"
#include "ui/desktopactions.h"
#include "ui/mainscreenmodel.h"

#include "monitorrig.h"

class RecordingDesktop final : public DesktopActions
{
public:
    void openUrl(const QUrl &url) override { openedUrls.append(url); }
    [[nodiscard]] bool canOpenPrivacySettings() const override { return hasPrivacySettings; }
    void openPrivacySettings() override { ++privacySettingsOpened; }

    QList<QUrl> openedUrls;
    bool hasPrivacySettings = true;
    int privacySettingsOpened = 0;
};

struct SetIdleTime final : IdleTimeSource
{
    std::chrono::milliseconds idle {0};
    QCoro::Task<std::optional<std::chrono::milliseconds>> idleTime(std::chrono::milliseconds) override
    {
        co_return idle;
    }
};

// The panel's models over the monitor on real parts, for a user who has set nothing yet.
class UiRig : public MonitorRig
{
protected:
    UiRig() : MonitorRig(QString(), QString()) { clock.set(QDateTime(QDate(2026, 3, 9), QTime(9, 5))); }

    void SetUp() override
    {
        MonitorRig::SetUp();
        settings->remove(SettingsKey::userProjects);
        settings->remove(SettingsKey::categorizeBy);
        settings->setBoolean(SettingsKey::skipUnchangedScreens, false);
        buildParts();
        idleTime = &idle;
        buildMonitor(nullptr, static_cast<DBusScreenEvents *>(nullptr));
    }

    void TearDown() override
    {
        main.reset();
        MonitorRig::TearDown();
    }

    // On the session the variables describe; an empty one is X11.
    void makeMain(const QProcessEnvironment &session = {})
    {
        main = std::make_unique<MainScreenModel>(
            MainScreenModel::Services {monitor.get(), llm.get(), reportService.get(), logManager.get(), settings.get(),
                &clock, &desktop, &autostart, timedPause.get(), session});
    }

    void setInstalledModels(const QStringList &names)
    {
        ollama.on("GET", "/api/tags", StandInServer::Reply {200, StandInOllama::tagsBody(names)});
        llm->invalidateInstalledModelsCache();
    }

    void tickWith(const QString &category, const QString &project, const QString &description)
    {
        analysis = {200,
            StandInOllama::chatBody(QJsonObject {{QStringLiteral("category"), category},
                {QStringLiteral("projectName"), project}, {QStringLiteral("activityDescription"), description}})};
        tick();
    }

    RecordingDesktop desktop;
    XdgAutostart autostart {home.filePath(QStringLiteral(".config/autostart")), QStringLiteral("tamlo")};
    SetIdleTime idle;
    std::unique_ptr<MainScreenModel> main;
};
