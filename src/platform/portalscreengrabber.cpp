#include "platform/portalscreengrabber.h"

#include <QCoreApplication>
#include <QCoroDBus>
#include <QCoroSignal>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QLoggingCategory>
#include <QScreen>
#include <QTimer>
#include <QUrl>
#include <QVariantMap>

#include <memory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcPortal, "tamlo.platform.portal")

namespace {
const QString portalService = u"org.freedesktop.portal.Desktop"_s;
const QString portalPath = u"/org/freedesktop/portal/desktop"_s;
const QString requestInterface = u"org.freedesktop.portal.Request"_s;

const QString noPortalText = u"No desktop portal answers on this session. Install xdg-desktop-portal with the "
                             u"portal backend of your desktop, then log in again."_s;
const QString noScreenshotText = u"The desktop portal offers no Screenshot interface. Install the portal backend "
                                 u"of your desktop (xdg-desktop-portal-gnome or xdg-desktop-portal-kde; on other "
                                 u"desktops xdg-desktop-portal-gtk), then log in again."_s;

// Deletes the picture an answer names. Screenshots never stay on disk.
void removePicture(const QString &path)
{
    if (!path.isEmpty() && !QFile::remove(path) && QFile::exists(path)) {
        qCWarning(lcPortal) << "Could not delete the portal's screenshot" << path;
    }
}

QString pictureOf(const QVariantMap &results)
{
    return QUrl(results.value(u"uri"_s).toString()).toLocalFile();
}
} // namespace

// The Response of one request, also when it arrives before anyone waits for it. Once abandoned it
// closes the request, deletes the file of any late answer and goes away after a while.
class PortalResponse : public QObject
{
    Q_OBJECT
public:
    explicit PortalResponse(QDBusConnection bus) : m_bus(std::move(bus)) { }
    ~PortalResponse() override { subscribe({}); }

    bool answered = false;
    uint code = 0;
    QVariantMap results;

    // Older portals choose the request's path themselves.
    void subscribe(const QString &path)
    {
        if (path == m_path) {
            return;
        }
        if (!m_path.isEmpty()) {
            m_bus.disconnect(
                portalService, m_path, requestInterface, u"Response"_s, this, SLOT(onResponse(uint, QVariantMap)));
        }
        m_path = path;
        if (!m_path.isEmpty()) {
            m_bus.connect(
                portalService, m_path, requestInterface, u"Response"_s, this, SLOT(onResponse(uint, QVariantMap)));
        }
    }

    void abandon(QObject *owner, std::chrono::milliseconds window)
    {
        setParent(owner);
        m_abandoned = true;
        m_bus.asyncCall(QDBusMessage::createMethodCall(portalService, m_path, requestInterface, u"Close"_s));
        QTimer::singleShot(window, this, &QObject::deleteLater);
    }

public Q_SLOTS:
    void onResponse(uint responseCode, const QVariantMap &responseResults)
    {
        if (m_abandoned) {
            removePicture(pictureOf(responseResults));
            deleteLater();
            return;
        }
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

private:
    QDBusConnection m_bus;
    QString m_path;
    bool m_abandoned = false;
};

PortalScreenGrabber::PortalScreenGrabber(QDBusConnection sessionBus, std::chrono::milliseconds timeout, QObject *parent)
    : QObject(parent), m_bus(std::move(sessionBus)), m_timeout(timeout)
{
}

QImage PortalScreenGrabber::firstOutput(const QImage &picture, const QList<QRect> &outputs)
{
    QRect workspace;
    for (const QRect &output : outputs) {
        workspace |= output;
    }
    if (outputs.size() < 2 || workspace.isEmpty() || picture.isNull()) {
        return picture;
    }
    // A portal that gave one output already gives a picture of another shape than the workspace.
    const double shape = double(workspace.width()) / workspace.height();
    if (qAbs(double(picture.width()) / picture.height() - shape) > 0.01 * shape) {
        return picture;
    }
    const double scale = double(picture.width()) / workspace.width();
    const QRect first = outputs.constFirst().translated(-workspace.topLeft());
    const QRect crop(qRound(first.x() * scale), qRound(first.y() * scale), qRound(first.width() * scale),
        qRound(first.height() * scale));
    return picture.copy(crop & picture.rect());
}

QCoro::Task<ScreenGrab> PortalScreenGrabber::grab()
{
    using Kind = ScreenCaptureError::Kind;
    if (!m_bus.isConnected()) {
        co_return ScreenGrab::failure(Kind::Unavailable, noPortalText);
    }

    // The request object's path is known before the call, so the answer cannot slip past us.
    const QString token = u"tamlo%1_%2"_s.arg(QCoreApplication::applicationPid()).arg(++m_requestCounter);
    QString sender = m_bus.baseService().mid(1);
    sender.replace(u'.', u'_');
    auto response = std::make_unique<PortalResponse>(m_bus);
    response->subscribe(portalPath + u"/request/"_s + sender + u'/' + token);

    QDBusMessage call = QDBusMessage::createMethodCall(
        portalService, portalPath, u"org.freedesktop.portal.Screenshot"_s, u"Screenshot"_s);
    call << QString() << QVariantMap {{u"handle_token"_s, token}, {u"interactive"_s, false}};
    const QDBusMessage reply = co_await m_bus.asyncCall(call);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        const QString error = reply.errorName();
        if (error == QDBusError::errorString(QDBusError::ServiceUnknown)
            || error.startsWith(u"org.freedesktop.DBus.Error.Spawn."_s)) {
            co_return ScreenGrab::failure(Kind::Unavailable, noPortalText);
        }
        if (error == QDBusError::errorString(QDBusError::UnknownMethod)
            || error == QDBusError::errorString(QDBusError::UnknownInterface)
            || error == QDBusError::errorString(QDBusError::UnknownObject)) {
            co_return ScreenGrab::failure(Kind::Unavailable, noScreenshotText);
        }
        co_return ScreenGrab::failure(Kind::CaptureFailed, reply.errorMessage());
    }
    if (!reply.arguments().isEmpty()) {
        response->subscribe(reply.arguments().constFirst().value<QDBusObjectPath>().path());
    }

    if (!response->answered) {
        const auto received = co_await qCoro(response.get(), &PortalResponse::received, m_timeout);
        if (!received) {
            response.release()->abandon(this, lateAnswerWindow);
            co_return ScreenGrab::failure(Kind::CaptureFailed, u"the screenshot portal did not answer"_s);
        }
    }

    const QString path = pictureOf(response->results);
    const QImage picture = response->code == 0 && !path.isEmpty() ? QImage(path) : QImage();
    removePicture(path);
    if (response->code == 1 || response->code == 2) {
        co_return ScreenGrab::failure(Kind::PermissionDenied);
    }
    if (response->code != 0) {
        co_return ScreenGrab::failure(Kind::CaptureFailed, u"portal response %1"_s.arg(response->code));
    }
    if (path.isEmpty()) {
        co_return ScreenGrab::failure(Kind::CaptureFailed, u"the portal named no file"_s);
    }
    if (picture.isNull()) {
        co_return ScreenGrab::failure(Kind::CaptureFailed, u"the portal's file could not be read"_s);
    }
    QList<QRect> outputs;
    for (const QScreen *screen : QGuiApplication::screens()) {
        outputs.append(screen->geometry());
    }
    co_return ScreenGrab::success(firstOutput(picture, outputs));
}

#include "portalscreengrabber.moc"
