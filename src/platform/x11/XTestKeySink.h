#pragma once
// Keystrokes into whatever window has the focus, through the X server's XTest extension.
//
// A character with a key on the active layout group is typed with that key and the modifiers
// its level needs. Any other character (é on a US layout, €, emoji, CJK) is typed on a spare
// keycode bound to its keysym for the script and unbound after. Caps Lock is released for the
// script and locked again after it; typing waits for the user's modifiers to be let go.

#include "platform/KeySink.h"

#include <QHash>
#include <QSet>
#include <QTimer>

#include <vector>

struct xcb_connection_t;

namespace tess {

class XkbKeyboardLayout;

class XTestKeySink : public KeySink {
public:
    XTestKeySink(xcb_connection_t *connection, XkbKeyboardLayout *layout);
    ~XTestKeySink() override { restoreBindings(); }

    // How long bindings for characters without a key outlive the script that made them.
    static constexpr int kRestoreDelayMs = 1500;

    void keyEvent(int keyCode, quint64 flags, bool down, const QString &unicode) override;
    void setClipboard(const QString &text) override;
    QString notReadyReason() override;
    qint64 prepare(const QString &characters) override;
    void finish() override;

    // The bindings made for characters without a key (for tests).
    int spareKeycodesInUse() const { return int(m_bound.size()); }
    void restoreBindings();

private:
    struct KeyPress {
        quint8 keycode = 0;
        quint8 mods = 0; // real modifier mask the level needs
    };
    bool lookup(quint32 keysym, KeyPress *press) const;
    void loadModifierMapping();
    void fake(quint8 keycode, bool press);
    void pressModifiers(quint8 mods, bool press);
    void typeCodePoint(char32_t cp);
    static quint32 keysymForCodePoint(char32_t cp);

    xcb_connection_t *m_c;
    XkbKeyboardLayout *m_layout;
    quint32 m_root = 0;
    quint8 m_minKeycode = 8, m_maxKeycode = 255;
    std::vector<quint8> m_modifierKeycodes[8]; // per real modifier
    QHash<quint32, KeyPress> m_bound;          // keysym -> spare keycode, while a script plays
    QList<quint8> m_spare;
    // The range of keycodes the bindings were made over, and its symbols before them.
    int m_rangeLow = 0, m_rangeHigh = 0, m_rangePer = 2;
    std::vector<quint32> m_rangeSyms;
    bool m_relockCaps = false;
    QList<quint8> m_heldForFlags;
    char16_t m_highSurrogate = 0;
    QTimer m_restoreTimer;
};

} // namespace tess
