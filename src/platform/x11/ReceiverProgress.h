#pragma once
// How far the window that takes our keys has got with them.
//
// Chromium, GTK and Qt programs set _NET_WM_USER_TIME (on their window, or on the window its
// _NET_WM_USER_TIME_WINDOW names) to the time of every key press they handle, in the order the
// server sent them. So once that time is later than a time the server gave us after our last
// key, every key before it has been handled: translated with the keymap the receiver held for
// it, which makes it safe to rebind a spare keycode. Programs that do not report (xterm) are
// left to the sink's estimate.
//
// The queries go through a connection of this class's own, so that no event is taken from the
// application's connection; the keys themselves keep going out on that one.

#include <QtGlobal>

#include <optional>

struct xcb_connection_t;

namespace tess {

class ReceiverProgress {
public:
    // `keys`: the connection the keys are sent on; this opens its own to the same display.
    explicit ReceiverProgress(xcb_connection_t *keys);
    ~ReceiverProgress();
    ReceiverProgress(const ReceiverProgress &) = delete;
    ReceiverProgress &operator=(const ReceiverProgress &) = delete;

    // Follows the window that has the keyboard focus now; answers whether it reports.
    bool follow();
    bool reports() const { return m_watched != 0; }
    // Gives up following, after a receiver went silent.
    void forget() { m_watched = 0; }

    // The server's time after every request sent so far on the key connection: a key sent from
    // now on is stamped later (this waits the millisecond that takes).
    std::optional<quint32> mark();
    // Whether the receiver has handled a key press stamped later than `time`.
    bool handledAfter(quint32 time);

private:
    quint32 atom(const char *name);
    quint32 windowProperty(quint32 window, quint32 property, bool *present);

    xcb_connection_t *m_keys;
    xcb_connection_t *m_own = nullptr;
    quint32 m_probe = 0;   // a window of ours whose property changes give the server's time
    quint32 m_watched = 0; // the window the receiver sets its user time on
    quint32 m_userTime = 0, m_userTimeWindow = 0, m_probeAtom = 0;
};

} // namespace tess
