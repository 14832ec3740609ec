#include "platform/wlrscreencopygrabber.h"

#include "wlr-screencopy-unstable-v1-client-protocol.h"

#include <QCoroSignal>
#include <QDeadlineTimer>
#include <QImage>
#include <QSocketNotifier>

#include <wayland-client.h>

#include <cstring>
#include <functional>
#include <memory>

#include <sys/mman.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// Wakes a waiting capture when the compositor has sent something.
class ConnectionReadable : public QObject
{
    Q_OBJECT
public:
    explicit ConnectionReadable(int fd) : m_notifier(fd, QSocketNotifier::Read)
    {
        connect(&m_notifier, &QSocketNotifier::activated, this, &ConnectionReadable::readable);
    }

Q_SIGNALS:
    void readable();

private:
    QSocketNotifier m_notifier;
};

namespace {
using Kind = ScreenCaptureError::Kind;

// Everything one capture holds, released whichever way it ends.
struct Session
{
    wl_display *display = nullptr;
    wl_registry *registry = nullptr;
    wl_callback *sync = nullptr;
    wl_shm *shm = nullptr;
    zwlr_screencopy_manager_v1 *manager = nullptr;
    wl_output *output = nullptr; // the first one announced
    zwlr_screencopy_frame_v1 *frame = nullptr;
    wl_buffer *buffer = nullptr;
    uchar *pixels = nullptr;
    size_t size = 0;

    bool synced = false;
    bool described = false;
    bool ready = false;
    bool failed = false;
    uint32_t format = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t stride = 0;
    uint32_t flags = 0;

    Session() = default;
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;
    ~Session()
    {
        if (buffer) {
            wl_buffer_destroy(buffer);
        }
        if (frame) {
            zwlr_screencopy_frame_v1_destroy(frame);
        }
        if (pixels) {
            munmap(pixels, size);
        }
        if (output) {
            wl_output_destroy(output);
        }
        if (manager) {
            zwlr_screencopy_manager_v1_destroy(manager);
        }
        if (shm) {
            wl_shm_destroy(shm);
        }
        if (sync) {
            wl_callback_destroy(sync);
        }
        if (registry) {
            wl_registry_destroy(registry);
        }
        if (display) {
            wl_display_disconnect(display);
        }
    }
};

void onGlobal(void *data, wl_registry *registry, uint32_t name, const char *interface, uint32_t)
{
    auto *session = static_cast<Session *>(data);
    if (!session->shm && std::strcmp(interface, wl_shm_interface.name) == 0) {
        session->shm = static_cast<wl_shm *>(wl_registry_bind(registry, name, &wl_shm_interface, 1));
    } else if (!session->manager && std::strcmp(interface, zwlr_screencopy_manager_v1_interface.name) == 0) {
        session->manager = static_cast<zwlr_screencopy_manager_v1 *>(
            wl_registry_bind(registry, name, &zwlr_screencopy_manager_v1_interface, 1));
    } else if (!session->output && std::strcmp(interface, wl_output_interface.name) == 0) {
        session->output = static_cast<wl_output *>(wl_registry_bind(registry, name, &wl_output_interface, 1));
    }
}

void onGlobalRemove(void *, wl_registry *, uint32_t) { }

const wl_registry_listener registryListener {onGlobal, onGlobalRemove};

void onSynced(void *data, wl_callback *callback, uint32_t)
{
    auto *session = static_cast<Session *>(data);
    wl_callback_destroy(callback);
    session->sync = nullptr;
    session->synced = true;
}

const wl_callback_listener syncListener {onSynced};

void onBuffer(void *data, zwlr_screencopy_frame_v1 *, uint32_t format, uint32_t width, uint32_t height, uint32_t stride)
{
    auto *session = static_cast<Session *>(data);
    session->format = format;
    session->width = width;
    session->height = height;
    session->stride = stride;
    session->described = true;
}

void onFlags(void *data, zwlr_screencopy_frame_v1 *, uint32_t flags)
{
    static_cast<Session *>(data)->flags = flags;
}

void onReady(void *data, zwlr_screencopy_frame_v1 *, uint32_t, uint32_t, uint32_t)
{
    static_cast<Session *>(data)->ready = true;
}

void onFailed(void *data, zwlr_screencopy_frame_v1 *)
{
    static_cast<Session *>(data)->failed = true;
}

const zwlr_screencopy_frame_v1_listener frameListener {onBuffer, onFlags, onReady, onFailed};

// Handles the connection's events until done() holds; false when it broke or the deadline passed.
QCoro::Task<bool> dispatchUntil(wl_display *display, std::function<bool()> done, QDeadlineTimer deadline)
{
    ConnectionReadable readable(wl_display_get_fd(display));
    while (!done()) {
        while (wl_display_prepare_read(display) != 0) {
            if (wl_display_dispatch_pending(display) < 0) {
                co_return false;
            }
        }
        if (done()) {
            wl_display_cancel_read(display);
            break;
        }
        wl_display_flush(display);
        const auto remaining = deadline.remainingTimeAsDuration();
        const bool woke = remaining.count() > 0
            && (co_await qCoro(&readable, &ConnectionReadable::readable,
                    std::chrono::duration_cast<std::chrono::milliseconds>(remaining)))
                   .has_value();
        if (!woke) {
            wl_display_cancel_read(display);
            co_return false;
        }
        if (wl_display_read_events(display) < 0 || wl_display_dispatch_pending(display) < 0) {
            co_return false;
        }
    }
    co_return true;
}

// The frame in the buffer as an image of its own; null for a layout Qt has no name for.
QImage toImage(const Session &session)
{
    QImage::Format format = QImage::Format_Invalid;
    switch (session.format) {
    case WL_SHM_FORMAT_ARGB8888: // a screen is opaque, whatever the alpha says
    case WL_SHM_FORMAT_XRGB8888:
        format = QImage::Format_RGB32;
        break;
    case WL_SHM_FORMAT_ABGR8888:
    case WL_SHM_FORMAT_XBGR8888:
        format = QImage::Format_RGBX8888;
        break;
    default:
        return {};
    }
    const QImage view(session.pixels, int(session.width), int(session.height), int(session.stride), format);
    const bool upsideDown = session.flags & ZWLR_SCREENCOPY_FRAME_V1_FLAGS_Y_INVERT;
    // Either way a copy: the buffer goes when the capture ends.
    return upsideDown ? view.mirrored(false, true) : view.copy();
}
} // namespace

WlrScreencopyGrabber::WlrScreencopyGrabber(QByteArray display, std::chrono::milliseconds timeout)
    : m_display(std::move(display)), m_timeout(timeout)
{
}

QCoro::Task<std::optional<ScreenGrab>> WlrScreencopyGrabber::capture()
{
    const QDeadlineTimer deadline(m_timeout);
    const auto session = std::make_unique<Session>();
    Session *s = session.get();
    s->display = wl_display_connect(m_display.isEmpty() ? nullptr : m_display.constData());
    if (!s->display) {
        co_return std::nullopt;
    }
    s->registry = wl_display_get_registry(s->display);
    wl_registry_add_listener(s->registry, &registryListener, s);
    s->sync = wl_display_sync(s->display);
    wl_callback_add_listener(s->sync, &syncListener, s);
    if (!co_await dispatchUntil(
            s->display, [s] { return s->synced; }, deadline)
        || !s->manager || !s->shm) {
        co_return std::nullopt;
    }
    if (!s->output) {
        co_return ScreenGrab::failure(Kind::NoDisplayAvailable);
    }

    s->frame = zwlr_screencopy_manager_v1_capture_output(s->manager, 0, s->output);
    zwlr_screencopy_frame_v1_add_listener(s->frame, &frameListener, s);
    if (!co_await dispatchUntil(
            s->display, [s] { return s->described || s->failed; }, deadline)
        || s->failed || s->width == 0 || s->height == 0 || s->stride < s->width * 4) {
        co_return ScreenGrab::failure(Kind::CaptureFailed, u"the compositor offered no frame"_s);
    }

    // Memory without a name or a path, shared with the compositor only.
    s->size = size_t(s->stride) * s->height;
    const int fd = memfd_create("tamlo-screencopy", MFD_CLOEXEC);
    if (fd < 0) {
        co_return ScreenGrab::failure(Kind::CaptureFailed, u"no shared memory"_s);
    }
    void *mapped = MAP_FAILED;
    if (ftruncate(fd, off_t(s->size)) == 0) {
        mapped = mmap(nullptr, s->size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    if (mapped == MAP_FAILED) {
        close(fd);
        co_return ScreenGrab::failure(Kind::CaptureFailed, u"no shared memory"_s);
    }
    s->pixels = static_cast<uchar *>(mapped);
    wl_shm_pool *pool = wl_shm_create_pool(s->shm, fd, int32_t(s->size));
    s->buffer
        = wl_shm_pool_create_buffer(pool, 0, int32_t(s->width), int32_t(s->height), int32_t(s->stride), s->format);
    wl_shm_pool_destroy(pool);
    close(fd);

    zwlr_screencopy_frame_v1_copy(s->frame, s->buffer);
    if (!co_await dispatchUntil(
            s->display, [s] { return s->ready || s->failed; }, deadline)
        || !s->ready) {
        co_return ScreenGrab::failure(Kind::CaptureFailed, u"the compositor did not copy the frame"_s);
    }
    QImage image = toImage(*s);
    if (image.isNull()) {
        co_return ScreenGrab::failure(Kind::CaptureFailed, u"pixel format %1"_s.arg(s->format, 0, 16));
    }
    co_return ScreenGrab::success(std::move(image));
}

WaylandScreenGrabber::WaylandScreenGrabber(WlrScreencopyGrabber *screencopy, ScreenGrabber *portal)
    : m_screencopy(screencopy), m_portal(portal)
{
}

QCoro::Task<ScreenGrab> WaylandScreenGrabber::grab()
{
    if (m_screencopy) {
        if (std::optional<ScreenGrab> grab = co_await m_screencopy->capture()) {
            co_return std::move(*grab);
        }
    }
    if (!m_portal) {
        co_return ScreenGrab::failure(ScreenCaptureError::Kind::NoDisplayAvailable);
    }
    co_return co_await m_portal->grab();
}

#include "wlrscreencopygrabber.moc"
