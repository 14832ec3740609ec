#include "platform/x11visiblewindows.h"

#include <QGuiApplication>
#include <QScreen>

#include <cstdlib>
#include <cstring>
#include <memory>

using namespace Qt::StringLiterals;

namespace {
constexpr quint32 allDesktops = 0xFFFFFFFF;
// Far more than any desktop holds; a property is read whole up to this many 32-bit words.
constexpr quint32 longestProperty = 16384;

template<typename Reply>
using Owned = std::unique_ptr<Reply, decltype(&std::free)>;

template<typename Reply>
Owned<Reply> own(Reply *reply)
{
    return Owned<Reply>(reply, &std::free);
}

xcb_get_property_cookie_t askProperty(xcb_connection_t *connection, xcb_window_t window, xcb_atom_t property)
{
    return xcb_get_property(connection, 0, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0, longestProperty);
}

// The property's bytes, or nothing when the window is gone or does not have it.
Owned<xcb_get_property_reply_t> takeProperty(xcb_connection_t *connection, xcb_get_property_cookie_t cookie)
{
    auto reply = own(xcb_get_property_reply(connection, cookie, nullptr));
    if (reply && reply->type == XCB_NONE) {
        reply.reset();
    }
    return reply;
}

QByteArray bytesOf(const xcb_get_property_reply_t *reply)
{
    if (!reply) {
        return {};
    }
    return QByteArray(static_cast<const char *>(xcb_get_property_value(reply)),
        xcb_get_property_value_length(const_cast<xcb_get_property_reply_t *>(reply)));
}

QList<quint32> wordsOf(const xcb_get_property_reply_t *reply)
{
    if (!reply || reply->format != 32) {
        return {};
    }
    auto *data = static_cast<const quint32 *>(xcb_get_property_value(reply));
    return QList<quint32>(data, data + reply->value_len);
}

xcb_atom_t intern(xcb_connection_t *connection, const char *name)
{
    const auto reply
        = own(xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, uint16_t(strlen(name)), name), nullptr));
    return reply ? reply->atom : XCB_NONE;
}

struct Pending
{
    xcb_window_t window;
    xcb_get_window_attributes_cookie_t attributes;
    xcb_get_geometry_cookie_t geometry;
    xcb_translate_coordinates_cookie_t position;
    xcb_get_property_cookie_t wmClass;
    xcb_get_property_cookie_t netName;
    xcb_get_property_cookie_t name;
    xcb_get_property_cookie_t desktop;
    xcb_get_property_cookie_t state;
    xcb_get_property_cookie_t applicationId;
};
} // namespace

X11VisibleWindows::X11VisibleWindows(QByteArray displayName) : m_displayName(std::move(displayName)) { }

X11VisibleWindows::~X11VisibleWindows()
{
    disconnect();
}

QCoro::Task<VisibleWindowList> X11VisibleWindows::visibleWindows()
{
    // A handful of round trips to a local server: done at once rather than spread over the loop.
    co_return list();
}

bool X11VisibleWindows::connectToServer()
{
    if (m_connection && !xcb_connection_has_error(m_connection)) {
        return true;
    }
    disconnect();
    int screenNumber = 0;
    m_connection = xcb_connect(m_displayName.isEmpty() ? nullptr : m_displayName.constData(), &screenNumber);
    if (xcb_connection_has_error(m_connection)) {
        return false;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(m_connection));
    for (int i = 0; i < screenNumber && screens.rem > 0; ++i) {
        xcb_screen_next(&screens);
    }
    if (screens.rem == 0) {
        return false;
    }
    m_root = screens.data->root;
    m_rootArea = QRect(0, 0, screens.data->width_in_pixels, screens.data->height_in_pixels);
    m_atoms = Atoms {
        .wmCheck = intern(m_connection, "_NET_SUPPORTING_WM_CHECK"),
        .clientList = intern(m_connection, "_NET_CLIENT_LIST"),
        .currentDesktop = intern(m_connection, "_NET_CURRENT_DESKTOP"),
        .wmDesktop = intern(m_connection, "_NET_WM_DESKTOP"),
        .wmState = intern(m_connection, "_NET_WM_STATE"),
        .hidden = intern(m_connection, "_NET_WM_STATE_HIDDEN"),
        .wmName = intern(m_connection, "_NET_WM_NAME"),
        .gtkApplicationId = intern(m_connection, "_GTK_APPLICATION_ID"),
    };
    return !xcb_connection_has_error(m_connection);
}

void X11VisibleWindows::disconnect()
{
    if (m_connection) {
        xcb_disconnect(m_connection);
        m_connection = nullptr;
    }
}

QRect X11VisibleWindows::capturedArea() const
{
    const QScreen *screen
        = qobject_cast<QGuiApplication *>(QCoreApplication::instance()) ? QGuiApplication::primaryScreen() : nullptr;
    if (!screen) {
        return m_rootArea;
    }
    const qreal ratio = screen->devicePixelRatio();
    const QRect logical = screen->geometry();
    return QRect(QPoint(qRound(logical.x() * ratio), qRound(logical.y() * ratio)),
        QSize(qRound(logical.width() * ratio), qRound(logical.height() * ratio)));
}

QList<xcb_window_t> X11VisibleWindows::topLevelWindows(QList<xcb_window_t> clients, bool managed)
{
    if (managed) {
        return clients;
    }
    // No EWMH window manager: the root's children are the windows, or the frames around them.
    QList<xcb_window_t> windows;
    const auto tree = own(xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, m_root), nullptr));
    if (!tree) {
        return windows;
    }
    const xcb_window_t *children = xcb_query_tree_children(tree.get());
    for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
        windows.append(children[i]);
        const auto inner = own(xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, children[i]), nullptr));
        if (inner) {
            const xcb_window_t *grandchildren = xcb_query_tree_children(inner.get());
            windows.append(
                QList<xcb_window_t>(grandchildren, grandchildren + xcb_query_tree_children_length(inner.get())));
        }
    }
    return windows;
}

VisibleWindowList X11VisibleWindows::list()
{
    if (!connectToServer()) {
        disconnect();
        return VisibleWindowList::failed(u"no connection to the X server"_s);
    }
    xcb_connection_t *c = m_connection;
    const auto clientReply = takeProperty(c, askProperty(c, m_root, m_atoms.clientList));
    const auto desktopReply = takeProperty(c, askProperty(c, m_root, m_atoms.currentDesktop));
    const QList<quint32> wmCheck = wordsOf(takeProperty(c, askProperty(c, m_root, m_atoms.wmCheck)).get());
    // The client list counts only while its window manager runs; one that died leaves it stale.
    const bool managed = clientReply && !wmCheck.isEmpty()
        && wordsOf(takeProperty(c, askProperty(c, wmCheck.first(), m_atoms.wmCheck)).get()) == wmCheck;
    if (xcb_connection_has_error(c)) {
        disconnect();
        return VisibleWindowList::failed(u"the X server closed the connection"_s);
    }
    const QList<quint32> currentDesktop = wordsOf(desktopReply.get());
    const QList<xcb_window_t> windows = topLevelWindows(wordsOf(clientReply.get()), managed);

    // Every question goes out before the first answer is read: one round trip for all windows.
    QList<Pending> pending;
    pending.reserve(windows.size());
    for (const xcb_window_t window : windows) {
        pending.append(Pending {window, xcb_get_window_attributes(c, window), xcb_get_geometry(c, window),
            xcb_translate_coordinates(c, window, m_root, 0, 0), askProperty(c, window, XCB_ATOM_WM_CLASS),
            askProperty(c, window, m_atoms.wmName), askProperty(c, window, XCB_ATOM_WM_NAME),
            askProperty(c, window, m_atoms.wmDesktop), askProperty(c, window, m_atoms.wmState),
            askProperty(c, window, m_atoms.gtkApplicationId)});
    }

    const QRect area = capturedArea();
    VisibleWindowList result;
    for (const Pending &p : pending) {
        // A window closed since the list was read answers with errors; it is gone from the screen.
        const auto attributes = own(xcb_get_window_attributes_reply(c, p.attributes, nullptr));
        const auto geometry = own(xcb_get_geometry_reply(c, p.geometry, nullptr));
        const auto position = own(xcb_translate_coordinates_reply(c, p.position, nullptr));
        const auto wmClass = takeProperty(c, p.wmClass);
        const auto netName = takeProperty(c, p.netName);
        const auto name = takeProperty(c, p.name);
        const auto desktop = takeProperty(c, p.desktop);
        const auto state = takeProperty(c, p.state);
        const auto applicationId = takeProperty(c, p.applicationId);
        if (!attributes || !geometry || !position || attributes->map_state != XCB_MAP_STATE_VIEWABLE) {
            continue;
        }
        const QList<quint32> onDesktop = wordsOf(desktop.get());
        if (!onDesktop.isEmpty() && !currentDesktop.isEmpty() && onDesktop.first() != allDesktops
            && onDesktop.first() != currentDesktop.first()) {
            continue;
        }
        if (wordsOf(state.get()).contains(m_atoms.hidden)) {
            continue;
        }
        const QRect frame(position->dst_x, position->dst_y, geometry->width, geometry->height);
        if (!frame.intersects(area)) {
            continue;
        }
        VisibleWindow window;
        // WM_CLASS is two strings, each ended by a NUL: the instance, then the class.
        for (const QByteArray &part : bytesOf(wmClass.get()).split('\0')) {
            if (!part.isEmpty()) {
                window.appIds.append(QString::fromLocal8Bit(part));
            }
        }
        if (const QByteArray id = bytesOf(applicationId.get()); !id.isEmpty()) {
            window.appIds.append(QString::fromUtf8(id));
        }
        window.title
            = netName ? QString::fromUtf8(bytesOf(netName.get())) : QString::fromLocal8Bit(bytesOf(name.get()));
        if (!window.appIds.isEmpty() || !window.title.isEmpty()) {
            result.windows.append(window);
        }
    }
    if (xcb_connection_has_error(c)) {
        disconnect();
        return VisibleWindowList::failed(u"the X server closed the connection"_s);
    }
    return result;
}
