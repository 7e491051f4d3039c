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

#include <QSet>
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

    // Follows the window that has the keyboard focus now, unless it was found silent before;
    // answers whether it reports.
    bool follow();
    bool reports() const { return m_watched != 0; }
    // Stops following the window, for good: it did not report a key it was sent.
    void forget();

    struct Mark {
        quint32 time = 0;                 // the server's time after every key sent so far
        std::optional<quint32> reported; // what the receiver reported then
    };
    // Marks the keys sent so far on the key connection: a key sent from now on is stamped later
    // than the mark's time (this waits the millisecond that takes). None while the focus is no
    // longer on the window followed, or when the server cannot be asked.
    std::optional<Mark> mark();
    // The time of the last key press the receiver reports it has handled.
    std::optional<quint32> reported();
    // Whether that report shows a key press stamped after the mark: every key sent before the
    // mark has been handled. A report that has not changed since the mark, or lies ahead of it
    // by more than any wait (a receiver stamping with a clock of its own, or a value left from
    // weeks ago read across the clock's wrap), shows nothing.
    static bool isThrough(const Mark &mark, std::optional<quint32> report);

private:
    quint32 atom(const char *name);
    quint32 windowProperty(quint32 window, quint32 property, bool *present);
    std::optional<quint32> serverTime();
    void disconnect();

    xcb_connection_t *m_keys;
    xcb_connection_t *m_own = nullptr;
    quint32 m_probe = 0;   // a window of ours whose property changes give the server's time
    quint32 m_focus = 0;   // the window that had the focus when the receiver was followed
    quint32 m_watched = 0; // the window the receiver sets its user time on
    QSet<quint32> m_silent;
    quint32 m_userTime = 0, m_userTimeWindow = 0, m_probeAtom = 0;
};

} // namespace tess
