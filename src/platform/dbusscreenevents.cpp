#include "platform/dbusscreenevents.h"

#include <QDBusError>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcScreenEvents, "tamlo.platform.screenevents")

namespace {
const QString screenSaverInterfaces[] = {u"org.freedesktop.ScreenSaver"_s, u"org.gnome.ScreenSaver"_s};
const QString logindInterface = u"org.freedesktop.login1.Manager"_s;

bool isScreenSaverEvent(ScreenEvent event)
{
    return event == ScreenEvent::Locked || event == ScreenEvent::Unlocked;
}
} // namespace

DBusScreenEvents::DBusScreenEvents(QDBusConnection sessionBus, QDBusConnection systemBus, QObject *parent)
    : QObject(parent), m_sessionBus(std::move(sessionBus)), m_systemBus(std::move(systemBus))
{
}

DBusScreenEvents::~DBusScreenEvents()
{
    setScreenSaverSubscribed(false);
    setLogindSubscribed(false);
}

ScreenEventSource::Token DBusScreenEvents::addObserver(ScreenEvent event, std::function<void()> handler)
{
    const quint64 token = m_nextToken++;
    m_observers.insert(token, Observer {event, std::move(handler)});
    updateSubscriptions();
    return token;
}

void DBusScreenEvents::removeObserver(ScreenEventSource::Token token)
{
    if (m_observers.remove(token) > 0) {
        updateSubscriptions();
    }
}

int DBusScreenEvents::observerCount() const
{
    return static_cast<int>(m_observers.size());
}

WakeEventSource::Token DBusScreenEvents::addWakeObserver(std::function<void()> handler)
{
    const quint64 token = m_nextToken++;
    m_wakeObservers.insert(token, std::move(handler));
    updateSubscriptions();
    return token;
}

void DBusScreenEvents::removeWakeObserver(WakeEventSource::Token token)
{
    if (m_wakeObservers.remove(token) > 0) {
        updateSubscriptions();
    }
}

int DBusScreenEvents::wakeObserverCount() const
{
    return static_cast<int>(m_wakeObservers.size());
}

void DBusScreenEvents::onScreenSaverActiveChanged(bool active)
{
    notify(active ? ScreenEvent::Locked : ScreenEvent::Unlocked);
}

void DBusScreenEvents::onPrepareForSleep(bool sleeping)
{
    notify(sleeping ? ScreenEvent::DisplaysSleep : ScreenEvent::DisplaysWake);
    if (!sleeping) {
        // A handler may remove observers; call the ones present when the event came.
        const QList<std::function<void()>> handlers = m_wakeObservers.values();
        for (const auto &handler : handlers) {
            handler();
        }
    }
}

void DBusScreenEvents::notify(ScreenEvent event)
{
    QList<std::function<void()>> handlers;
    for (const Observer &observer : std::as_const(m_observers)) {
        if (observer.event == event) {
            handlers.append(observer.handler);
        }
    }
    for (const auto &handler : std::as_const(handlers)) {
        handler();
    }
}

void DBusScreenEvents::updateSubscriptions()
{
    bool wantScreenSaver = false;
    bool wantLogind = !m_wakeObservers.isEmpty();
    for (const Observer &observer : std::as_const(m_observers)) {
        if (isScreenSaverEvent(observer.event)) {
            wantScreenSaver = true;
        } else {
            wantLogind = true;
        }
    }
    setScreenSaverSubscribed(wantScreenSaver);
    setLogindSubscribed(wantLogind);
}

void DBusScreenEvents::setScreenSaverSubscribed(bool subscribed)
{
    if (m_screenSaverSubscribed == subscribed) {
        return;
    }
    m_screenSaverSubscribed = subscribed;
    for (const QString &interface : screenSaverInterfaces) {
        // Any sender and any path: desktops publish the signal under different names.
        const bool done = subscribed ? m_sessionBus.connect(QString(), QString(), interface, u"ActiveChanged"_s, this,
                              SLOT(onScreenSaverActiveChanged(bool)))
                                     : m_sessionBus.disconnect(QString(), QString(), interface, u"ActiveChanged"_s,
                                         this, SLOT(onScreenSaverActiveChanged(bool)));
        if (!done) {
            qCWarning(lcScreenEvents) << "Could not change the subscription to"
                                      << interface << "on the session bus:" << m_sessionBus.lastError().message();
        }
    }
}

void DBusScreenEvents::setLogindSubscribed(bool subscribed)
{
    if (m_logindSubscribed == subscribed) {
        return;
    }
    m_logindSubscribed = subscribed;
    const bool done = subscribed ? m_systemBus.connect(QString(), QString(), logindInterface, u"PrepareForSleep"_s,
                          this, SLOT(onPrepareForSleep(bool)))
                                 : m_systemBus.disconnect(QString(), QString(), logindInterface, u"PrepareForSleep"_s,
                                     this, SLOT(onPrepareForSleep(bool)));
    if (!done) {
        qCWarning(lcScreenEvents) << "Could not change the subscription to logind's sleep signal:"
                                  << m_systemBus.lastError().message();
    }
}
