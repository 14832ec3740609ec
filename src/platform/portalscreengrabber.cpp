#include "platform/portalscreengrabber.h"

#include <QCoreApplication>
#include <QCoroDBus>
#include <QCoroSignal>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QFile>
#include <QImage>
#include <QLoggingCategory>
#include <QUrl>
#include <QVariantMap>

#include <memory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcPortal, "tamlo.platform.portal")

namespace {
const QString portalService = u"org.freedesktop.portal.Desktop"_s;
const QString portalPath = u"/org/freedesktop/portal/desktop"_s;
const QString requestInterface = u"org.freedesktop.portal.Request"_s;
} // namespace

// Holds the Response of one request, also when it arrives before anyone waits for it.
class PortalResponse : public QObject
{
    Q_OBJECT
public:
    bool answered = false;
    uint code = 0;
    QVariantMap results;

public Q_SLOTS:
    void onResponse(uint responseCode, const QVariantMap &responseResults)
    {
        if (answered) {
            return;
        }
        answered = true;
        code = responseCode;
        results = responseResults;
        Q_EMIT received();
    }

Q_SIGNALS:
    void received();
};

namespace {
// Subscribes a response holder to the Response signal of one request object, for its lifetime.
class RequestSubscription
{
public:
    RequestSubscription(QDBusConnection bus, PortalResponse *response) : m_bus(std::move(bus)), m_response(response) { }
    ~RequestSubscription() { unsubscribe(); }
    RequestSubscription(const RequestSubscription &) = delete;
    RequestSubscription &operator=(const RequestSubscription &) = delete;

    void subscribe(const QString &path)
    {
        if (path == m_path) {
            return;
        }
        unsubscribe();
        m_path = path;
        m_bus.connect(
            portalService, m_path, requestInterface, u"Response"_s, m_response, SLOT(onResponse(uint, QVariantMap)));
    }

private:
    void unsubscribe()
    {
        if (!m_path.isEmpty()) {
            m_bus.disconnect(portalService, m_path, requestInterface, u"Response"_s, m_response,
                SLOT(onResponse(uint, QVariantMap)));
            m_path.clear();
        }
    }

    QDBusConnection m_bus;
    PortalResponse *m_response = nullptr;
    QString m_path;
};
} // namespace

PortalScreenGrabber::PortalScreenGrabber(QDBusConnection sessionBus, QObject *parent)
    : QObject(parent), m_bus(std::move(sessionBus))
{
}

QCoro::Task<ScreenGrab> PortalScreenGrabber::grab()
{
    using Kind = ScreenCaptureError::Kind;
    if (!m_bus.isConnected()) {
        co_return ScreenGrab::failure(Kind::CaptureFailed, u"no session bus"_s);
    }

    // The request object's path is known before the call, so the answer cannot slip past us.
    const QString token = u"tamlo%1_%2"_s.arg(QCoreApplication::applicationPid()).arg(++m_requestCounter);
    QString sender = m_bus.baseService().mid(1);
    sender.replace(u'.', u'_');
    auto response = std::make_unique<PortalResponse>();
    RequestSubscription subscription(m_bus, response.get());
    subscription.subscribe(portalPath + u"/request/"_s + sender + u'/' + token);

    QDBusMessage call = QDBusMessage::createMethodCall(
        portalService, portalPath, u"org.freedesktop.portal.Screenshot"_s, u"Screenshot"_s);
    call << QString() << QVariantMap {{u"handle_token"_s, token}, {u"interactive"_s, false}};
    const QDBusMessage reply = co_await m_bus.asyncCall(call);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        co_return ScreenGrab::failure(Kind::CaptureFailed, reply.errorMessage());
    }
    if (!reply.arguments().isEmpty()) {
        // Older portals choose the path themselves.
        subscription.subscribe(reply.arguments().constFirst().value<QDBusObjectPath>().path());
    }

    if (!response->answered) {
        const auto received = co_await qCoro(response.get(), &PortalResponse::received, responseTimeout);
        if (!received) {
            co_return ScreenGrab::failure(Kind::CaptureFailed, u"the screenshot portal did not answer"_s);
        }
    }

    if (response->code == 1 || response->code == 2) {
        co_return ScreenGrab::failure(Kind::PermissionDenied);
    }
    if (response->code != 0) {
        co_return ScreenGrab::failure(Kind::CaptureFailed, u"portal response %1"_s.arg(response->code));
    }

    const QUrl uri(response->results.value(u"uri"_s).toString());
    const QString path = uri.toLocalFile();
    if (path.isEmpty()) {
        co_return ScreenGrab::failure(Kind::CaptureFailed, u"the portal named no file"_s);
    }
    const QImage image(path);
    // Screenshots never stay on disk.
    if (!QFile::remove(path)) {
        qCWarning(lcPortal) << "Could not delete the portal's screenshot" << path;
    }
    if (image.isNull()) {
        co_return ScreenGrab::failure(Kind::CaptureFailed, u"the portal's file could not be read"_s);
    }
    co_return ScreenGrab::success(image);
}

#include "portalscreengrabber.moc"
