#include "ReceiverProgress.h"

#include "platform/x11/XTestKeySink.h"

#include <QElapsedTimer>

#include <xcb/xcb.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <unistd.h>

namespace tess {

namespace {
// The server answers a property change at once; a connection that does not is given up.
constexpr qint64 kProbeTimeoutMs = 2000;
// A report is of a key stamped after the mark, so at most as far ahead of it as any wait for
// a receiver lasts; one further ahead comes from another clock.
constexpr qint32 kPlausibleAheadMs = 600000;
} // namespace

ReceiverProgress::ReceiverProgress(xcb_connection_t *keys) : m_keys(keys)
{
    // The very server the keys go to, named by its socket: a time read on another would mean
    // nothing. Without a connection, nothing reports and the sink keeps to its estimate.
    const QByteArray display = XTestKeySink::displayOf(keys).toLocal8Bit();
    if (display.isEmpty())
        return;
    m_own = xcb_connect(display.constData(), nullptr);
    if (xcb_connection_has_error(m_own)) {
        xcb_disconnect(m_own);
        m_own = nullptr;
        return;
    }
    m_userTime = atom("_NET_WM_USER_TIME");
    m_userTimeWindow = atom("_NET_WM_USER_TIME_WINDOW");
    m_probeAtom = atom("_TESSALINE_TIME");
    const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(m_own)).data;
    m_probe = xcb_generate_id(m_own);
    const quint32 mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(m_own, 0, m_probe, screen->root, 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT,
                      XCB_CW_EVENT_MASK, &mask);
    xcb_flush(m_own);
}

ReceiverProgress::~ReceiverProgress()
{
    if (m_own)
        xcb_disconnect(m_own);
}

quint32 ReceiverProgress::atom(const char *name)
{
    xcb_intern_atom_reply_t *r = xcb_intern_atom_reply(m_own, xcb_intern_atom(m_own, 0, quint16(std::strlen(name)), name), nullptr);
    const quint32 a = r ? r->atom : 0;
    free(r);
    return a;
}

quint32 ReceiverProgress::windowProperty(quint32 window, quint32 property, bool *present)
{
    xcb_get_property_reply_t *r =
        xcb_get_property_reply(m_own, xcb_get_property(m_own, 0, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0, 1), nullptr);
    *present = r && r->format == 32 && xcb_get_property_value_length(r) >= 4;
    const quint32 value = *present ? *static_cast<const quint32 *>(xcb_get_property_value(r)) : 0;
    free(r);
    return value;
}

bool ReceiverProgress::follow()
{
    m_watched = 0;
    if (!m_own || xcb_connection_has_error(m_own))
        return false;
    xcb_get_input_focus_reply_t *focus = xcb_get_input_focus_reply(m_own, xcb_get_input_focus(m_own), nullptr);
    xcb_window_t window = focus ? focus->focus : xcb_window_t(XCB_NONE);
    free(focus);
    m_focus = window;
    // From the focused window up to its top level: the focus may sit on a child of it.
    while (window != XCB_NONE && window != XCB_INPUT_FOCUS_POINTER_ROOT) {
        bool present = false;
        const quint32 timeWindow = windowProperty(window, m_userTimeWindow, &present);
        if (present && timeWindow != 0) {
            windowProperty(timeWindow, m_userTime, &present);
            m_watched = present && !m_silent.contains(timeWindow) ? timeWindow : 0;
            return reports();
        }
        windowProperty(window, m_userTime, &present);
        if (present) {
            m_watched = m_silent.contains(window) ? 0 : window;
            return reports();
        }
        xcb_query_tree_reply_t *tree = xcb_query_tree_reply(m_own, xcb_query_tree(m_own, window), nullptr);
        window = tree && tree->parent != tree->root ? tree->parent : xcb_window_t(XCB_NONE);
        free(tree);
    }
    return false;
}

void ReceiverProgress::forget()
{
    if (m_watched)
        m_silent.insert(m_watched);
    m_watched = 0;
}

void ReceiverProgress::disconnect()
{
    // Never asked again: a late answer would pass for the next one's.
    xcb_disconnect(m_own);
    m_own = nullptr;
    m_watched = 0;
}

std::optional<quint32> ReceiverProgress::serverTime()
{
    if (!m_own)
        return std::nullopt;
    xcb_change_property(m_own, XCB_PROP_MODE_APPEND, m_probe, m_probeAtom, XCB_ATOM_INTEGER, 32, 0, nullptr);
    xcb_flush(m_own);
    QElapsedTimer waited;
    waited.start();
    for (;;) {
        xcb_generic_event_t *event = xcb_poll_for_event(m_own);
        if (!event) {
            pollfd fd{xcb_get_file_descriptor(m_own), POLLIN, 0};
            const int left = int(kProbeTimeoutMs - waited.elapsed());
            if (xcb_connection_has_error(m_own) || left <= 0) {
                disconnect();
                return std::nullopt;
            }
            if (::poll(&fd, 1, left) < 0 && errno != EINTR) {
                disconnect();
                return std::nullopt;
            }
            continue;
        }
        std::optional<quint32> time;
        if ((event->response_type & 0x7f) == XCB_PROPERTY_NOTIFY) {
            const auto *notify = reinterpret_cast<const xcb_property_notify_event_t *>(event);
            if (notify->window == m_probe)
                time = notify->time;
        }
        free(event);
        if (time)
            return time;
    }
}

std::optional<ReceiverProgress::Mark> ReceiverProgress::mark()
{
    if (!m_own || !m_watched)
        return std::nullopt;
    // A report from a window that no longer has the focus says nothing of the keys sent since.
    xcb_get_input_focus_reply_t *focus = xcb_get_input_focus_reply(m_own, xcb_get_input_focus(m_own), nullptr);
    const bool same = focus && focus->focus == m_focus;
    free(focus);
    if (!same)
        return std::nullopt;
    // Every key sent so far on the key connection has been stamped once this reply is back...
    free(xcb_get_input_focus_reply(m_keys, xcb_get_input_focus(m_keys), nullptr));
    // ...so the time of a change made after it is as late as any of them.
    const std::optional<quint32> time = serverTime();
    if (!time)
        return std::nullopt;
    Mark mark{*time, reported()};
    // The server counts milliseconds (from a clock that may tick coarsely): once its time has
    // moved on, a key sent from now on is stamped later than the mark.
    for (int i = 0; i < 100; ++i) {
        ::usleep(500);
        const std::optional<quint32> now = serverTime();
        if (!now)
            return std::nullopt;
        if (qint32(*now - *time) > 0)
            return mark;
    }
    return std::nullopt;
}

std::optional<quint32> ReceiverProgress::reported()
{
    if (!m_own || !m_watched)
        return std::nullopt;
    bool present = false;
    const quint32 value = windowProperty(m_watched, m_userTime, &present);
    return present ? std::optional<quint32>(value) : std::nullopt;
}

bool ReceiverProgress::isThrough(const Mark &mark, std::optional<quint32> report)
{
    if (!report || report == mark.reported)
        return false;
    // Server time wraps after 49 days: compare by difference.
    const qint32 ahead = qint32(*report - mark.time);
    return ahead > 0 && ahead < kPlausibleAheadMs;
}

} // namespace tess
