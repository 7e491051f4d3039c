#pragma once
// The X server's keyboard layout through xkbcommon-x11, kept current: XKB notify events
// (setxkbmap, a group switch) reload it and rebuild the key-name reverse table.

#include "platform/KeyboardLayout.h"

#include <QAbstractNativeEventFilter>

struct xcb_connection_t;
struct xkb_context;
struct xkb_keymap;
struct xkb_state;

namespace tess {

class XkbKeyboardLayout : public KeyboardLayout, public QAbstractNativeEventFilter {
public:
    explicit XkbKeyboardLayout(xcb_connection_t *connection);
    ~XkbKeyboardLayout() override;
    XkbKeyboardLayout(const XkbKeyboardLayout &) = delete;
    XkbKeyboardLayout &operator=(const XkbKeyboardLayout &) = delete;

    bool isValid() const { return m_keymap != nullptr; }
    // Reads the keymap and state from the server again.
    void reload();
    int changes() const { return m_changes; }

    QString characterForKeyCode(int keyCode, bool shift, bool option) const override;
    // The virtual key code of an X keycode (a key event's), by the key's position; -1 if none.
    int keyCodeForKeycode(quint32 keycode) const;
    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;

    xkb_keymap *keymap() const { return m_keymap; }
    xkb_state *state() const { return m_state; }

private:
    xcb_connection_t *m_connection;
    xkb_context *m_context = nullptr;
    xkb_keymap *m_keymap = nullptr;
    xkb_state *m_state = nullptr;
    int m_deviceID = -1;
    quint8 m_firstEvent = 0;
    int m_changes = 0;
};

} // namespace tess
