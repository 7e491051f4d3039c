#pragma once
// System-wide hot keys on X11: passive key grabs on the root window, with the Caps Lock and
// Num Lock variants so that the locks do not matter. Presses reach the main thread through
// the application's native event filter and come out as hotKeyPressed(id).
//
// Also the system-wide test of the shortcut validator: a combination is taken when a trial
// grab of it fails with BadAccess, that is when another client holds it.

#include "platform/SystemShortcuts.h"

#include <QAbstractNativeEventFilter>
#include <QHash>
#include <QObject>

struct xcb_connection_t;

namespace tess {

class XkbKeyboardLayout;

class HotKeys : public QObject, public QAbstractNativeEventFilter, public SystemShortcuts {
    Q_OBJECT

public:
    // The keyboard layout resolves key codes to the server's keycodes.
    HotKeys(xcb_connection_t *connection, const XkbKeyboardLayout *layout, QObject *parent = nullptr);
    ~HotKeys() override;

    // The application's connection and layout; null off X11.
    static HotKeys *createForApplication(QObject *parent);

    // keyCode a virtual key code, carbonFlags a Carbon mask. False, and nothing grabbed, when
    // the key does not exist here or another client holds the combination.
    bool registerHotKey(quint32 id, quint32 keyCode, quint32 carbonFlags);
    void unregisterHotKey(quint32 id);
    bool isRegistered(quint32 id) const { return m_grabs.contains(id); }

    Answer isTaken(int keyCode, quint32 carbonFlags) override;
    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;

Q_SIGNALS:
    void hotKeyPressed(quint32 id);

private:
    struct Grab {
        quint8 keycode = 0;
        quint16 modifiers = 0;
    };
    // The X keycode and modifier mask of a combination; false when the key has no keycode.
    bool resolve(quint32 keyCode, quint32 carbonFlags, Grab *grab) const;
    // Grabs every lock variant; on BadAccess (or another error) ungrabs what it took.
    enum class GrabResult { Grabbed, Taken, Failed };
    GrabResult grab(const Grab &g);
    void ungrab(const Grab &g);
    quint16 numLockMask();

    xcb_connection_t *m_c;
    const XkbKeyboardLayout *m_layout;
    quint32 m_root = 0;
    QHash<quint32, Grab> m_grabs;
    quint8 m_down = 0; // the hot key's key while it is held
    quint8 m_released = 0;
    quint32 m_releaseTime = 0;
};

} // namespace tess
