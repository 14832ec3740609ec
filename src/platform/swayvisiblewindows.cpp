#include "platform/swayvisiblewindows.h"

#include <QCoroLocalSocket>
#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QtEndian>

using namespace Qt::StringLiterals;

namespace {
const QByteArray magic = QByteArrayLiteral("i3-ipc");
constexpr quint32 getTree = 4;
constexpr qsizetype headerSize = 14; // magic, payload length, message type

void collectViews(const QJsonObject &node, QList<VisibleWindow> &views)
{
    if (node.value(u"visible"_s).toBool()) {
        VisibleWindow view;
        if (const QString appId = node.value(u"app_id"_s).toString(); !appId.isEmpty()) {
            view.appIds.append(appId); // a Wayland client
        }
        const QJsonObject x11 = node.value(u"window_properties"_s).toObject(); // an Xwayland one
        for (const QString &key : {u"instance"_s, u"class"_s}) {
            if (const QString id = x11.value(key).toString(); !id.isEmpty()) {
                view.appIds.append(id);
            }
        }
        view.title = node.value(u"name"_s).toString();
        views.append(view);
    }
    for (const QString &key : {u"nodes"_s, u"floating_nodes"_s}) {
        for (const QJsonValue child : node.value(key).toArray()) {
            collectViews(child.toObject(), views);
        }
    }
}
} // namespace

SwayVisibleWindows::SwayVisibleWindows(QString socketPath) : m_socketPath(std::move(socketPath)) { }

VisibleWindowList SwayVisibleWindows::parseTree(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument tree = QJsonDocument::fromJson(json, &error);
    if (!tree.isObject() || tree.object().value(u"type"_s).toString() != u"root"_s) {
        return VisibleWindowList::failed(u"sway sent no window tree: "_s + error.errorString());
    }
    VisibleWindowList result;
    collectViews(tree.object(), result.windows);
    return result;
}

QCoro::Task<VisibleWindowList> SwayVisibleWindows::visibleWindows()
{
    QLocalSocket socket;
    const QDeadlineTimer deadline(replyTimeout);
    if (!co_await qCoro(socket).connectToServer(m_socketPath, QIODevice::ReadWrite, replyTimeout)) {
        co_return VisibleWindowList::failed(u"no answer on the sway socket: "_s + socket.errorString());
    }
    QByteArray request = magic;
    request.resize(headerSize);
    qToUnaligned<quint32>(0, request.data() + magic.size());
    qToUnaligned<quint32>(getTree, request.data() + magic.size() + 4);
    socket.write(request);

    QByteArray reply;
    qsizetype expected = headerSize;
    while (reply.size() < expected) {
        const auto left = std::chrono::milliseconds(deadline.remainingTime());
        if (left.count() <= 0 || !co_await qCoro(socket).waitForReadyRead(left)) {
            co_return VisibleWindowList::failed(u"sway did not send its window tree in time"_s);
        }
        reply += socket.readAll();
        if (reply.size() >= headerSize) {
            if (!reply.startsWith(magic)) {
                co_return VisibleWindowList::failed(u"the sway socket does not speak i3-ipc"_s);
            }
            expected = headerSize + qFromUnaligned<quint32>(reply.constData() + magic.size());
        }
    }
    co_return parseTree(reply.sliced(headerSize, expected - headerSize));
}
