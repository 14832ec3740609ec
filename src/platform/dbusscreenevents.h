#pragma once

#include "monitoring/screeneventsource.h"

#include <QDBusConnection>
#include <QHash>
#include <QObject>

// Screen state from D-Bus: the screen saver's ActiveChanged(bool) on the session bus
// (org.freedesktop.ScreenSaver and org.gnome.ScreenSaver, any sender and path) for lock and
// unlock, and logind's PrepareForSleep(bool) on the system bus for displays asleep and awake.
// The bus subscriptions exist only while someone observes.
class DBusScreenEvents : public QObject, public ScreenEventSource, public WakeEventSource
{
    Q_OBJECT
public:
    // The composition root passes QDBusConnection::sessionBus() and ::systemBus(); tests pass
    // connections to a bus of their own.
    DBusScreenEvents(QDBusConnection sessionBus, QDBusConnection systemBus, QObject *parent = nullptr);
    ~DBusScreenEvents() override;

    ScreenEventSource::Token addObserver(ScreenEvent event, std::function<void()> handler) override;
    void removeObserver(ScreenEventSource::Token token) override;
    [[nodiscard]] int observerCount() const override;

    WakeEventSource::Token addWakeObserver(std::function<void()> handler) override;
    void removeWakeObserver(WakeEventSource::Token token) override;
    [[nodiscard]] int wakeObserverCount() const override;

private Q_SLOTS:
    void onScreenSaverActiveChanged(bool active);
    void onPrepareForSleep(bool sleeping);

private:
    struct Observer
    {
        ScreenEvent event;
        std::function<void()> handler;
    };

    void notify(ScreenEvent event);
    void updateSubscriptions();
    void setScreenSaverSubscribed(bool subscribed);
    void setLogindSubscribed(bool subscribed);

    QDBusConnection m_sessionBus;
    QDBusConnection m_systemBus;
    QHash<quint64, Observer> m_observers;
    QHash<quint64, std::function<void()>> m_wakeObservers;
    quint64 m_nextToken = 1;
    bool m_screenSaverSubscribed = false;
    bool m_logindSubscribed = false;
};
