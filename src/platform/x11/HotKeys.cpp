#include "HotKeys.h"

#include "core/shortcuts/KeyNames.h"
#include "platform/x11/KeyPositions.h"
#include "platform/x11/XkbKeyboardLayout.h"

#include <QGuiApplication>

#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon.h>

#include <cstdlib>

namespace tess {

namespace {
constexpr quint8 kBadAccess = 10;
} // namespace

HotKeys::HotKeys(xcb_connection_t *connection, const XkbKeyboardLayout *layout, QObject *parent)
    : QObject(parent), m_c(connection), m_layout(layout)
{
    if (m_c && !xcb_connection_has_error(m_c))
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data->root;
}

HotKeys::~HotKeys()
{
    for (const Grab &g : std::as_const(m_grabs))
        ungrab(g);
    if (m_c)
        xcb_flush(m_c);
}

HotKeys *HotKeys::createForApplication(QObject *parent)
{
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection())
        return nullptr;
    auto *layout = dynamic_cast<const XkbKeyboardLayout *>(SRKeyCodeTransformer::keyboardLayout());
    auto *hotKeys = new HotKeys(x11->connection(), layout, parent);
    qGuiApp->installNativeEventFilter(hotKeys);
    return hotKeys;
}

bool HotKeys::resolve(quint32 keyCode, quint32 carbonFlags, Grab *g) const
{
    if (!m_root || !m_layout || !m_layout->keymap() || keyCode > 0x7fff)
        return false;
    const char *name = xkbKeyNameForKeyCode(int(keyCode));
    const xkb_keycode_t kc = name ? xkb_keymap_key_by_name(m_layout->keymap(), name) : XKB_KEYCODE_INVALID;
    if (kc == XKB_KEYCODE_INVALID || kc > 255)
        return false;
    g->keycode = quint8(kc);
    g->modifiers = 0;
    // Command is Ctrl, Option is Alt, Control is Super.
    if (carbonFlags & CarbonMask::Command)
        g->modifiers |= XCB_MOD_MASK_CONTROL;
    if (carbonFlags & CarbonMask::Option)
        g->modifiers |= XCB_MOD_MASK_1;
    if (carbonFlags & CarbonMask::Control)
        g->modifiers |= XCB_MOD_MASK_4;
    if (carbonFlags & CarbonMask::Shift)
        g->modifiers |= XCB_MOD_MASK_SHIFT;
    return true;
}

quint16 HotKeys::numLockMask()
{
    quint16 mask = 0;
    xkb_keycode_t numLock = XKB_KEYCODE_INVALID;
    if (xkb_keymap *keymap = m_layout ? m_layout->keymap() : nullptr) {
        for (xkb_keycode_t kc = xkb_keymap_min_keycode(keymap); kc <= xkb_keymap_max_keycode(keymap); ++kc) {
            const xkb_keysym_t *syms = nullptr;
            if (xkb_keymap_key_get_syms_by_level(keymap, kc, 0, 0, &syms) == 1 && syms[0] == XKB_KEY_Num_Lock) {
                numLock = kc;
                break;
            }
        }
    }
    xcb_get_modifier_mapping_reply_t *r = xcb_get_modifier_mapping_reply(m_c, xcb_get_modifier_mapping(m_c), nullptr);
    if (r) {
        const xcb_keycode_t *codes = xcb_get_modifier_mapping_keycodes(r);
        for (int mod = 0; mod < 8; ++mod)
            for (int i = 0; i < r->keycodes_per_modifier; ++i)
                if (numLock != XKB_KEYCODE_INVALID && codes[mod * r->keycodes_per_modifier + i] == numLock)
                    mask = quint16(1u << mod);
        free(r);
    }
    return mask ? mask : quint16(XCB_MOD_MASK_2);
}

HotKeys::GrabResult HotKeys::grab(const Grab &g)
{
    const quint16 numLock = numLockMask();
    const quint16 variants[] = {0, XCB_MOD_MASK_LOCK, numLock, quint16(XCB_MOD_MASK_LOCK | numLock)};
    xcb_void_cookie_t cookies[4];
    for (int i = 0; i < 4; ++i)
        cookies[i] = xcb_grab_key_checked(m_c, 0, m_root, quint16(g.modifiers | variants[i]), g.keycode,
                                          XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    GrabResult result = GrabResult::Grabbed;
    bool took[4] = {};
    for (int i = 0; i < 4; ++i) {
        xcb_generic_error_t *error = xcb_request_check(m_c, cookies[i]);
        took[i] = !error;
        if (error) {
            if (result == GrabResult::Grabbed || error->error_code == kBadAccess)
                result = error->error_code == kBadAccess ? GrabResult::Taken : GrabResult::Failed;
            free(error);
        }
    }
    if (result != GrabResult::Grabbed) {
        for (int i = 0; i < 4; ++i)
            if (took[i])
                xcb_ungrab_key(m_c, g.keycode, m_root, quint16(g.modifiers | variants[i]));
        xcb_flush(m_c);
    }
    return result;
}

void HotKeys::ungrab(const Grab &g)
{
    const quint16 numLock = numLockMask();
    const quint16 variants[] = {0, XCB_MOD_MASK_LOCK, numLock, quint16(XCB_MOD_MASK_LOCK | numLock)};
    for (quint16 v : variants)
        xcb_ungrab_key(m_c, g.keycode, m_root, quint16(g.modifiers | v));
}

bool HotKeys::registerHotKey(quint32 id, quint32 keyCode, quint32 carbonFlags)
{
    unregisterHotKey(id);
    Grab g;
    if (!resolve(keyCode, carbonFlags, &g))
        return false;
    // The same combination for both keys: the first keeps it.
    for (const Grab &other : std::as_const(m_grabs))
        if (other.keycode == g.keycode && other.modifiers == g.modifiers)
            return false;
    if (grab(g) != GrabResult::Grabbed)
        return false;
    m_grabs.insert(id, g);
    return true;
}

void HotKeys::unregisterHotKey(quint32 id)
{
    auto it = m_grabs.find(id);
    if (it == m_grabs.end())
        return;
    ungrab(*it);
    xcb_flush(m_c);
    m_grabs.erase(it);
}

SystemShortcuts::Answer HotKeys::isTaken(int keyCode, quint32 carbonFlags)
{
    Grab g;
    if (keyCode < 0 || !resolve(quint32(keyCode), carbonFlags, &g) || xcb_connection_has_error(m_c))
        return Answer::Unknown;
    // Our own hot keys are ours to record again; a trial grab would also drop them.
    for (const Grab &own : std::as_const(m_grabs))
        if (own.keycode == g.keycode && own.modifiers == g.modifiers)
            return Answer::Free;
    switch (grab(g)) {
    case GrabResult::Taken:
        return Answer::Taken;
    case GrabResult::Failed:
        return Answer::Unknown;
    case GrabResult::Grabbed:
        break;
    }
    ungrab(g);
    xcb_flush(m_c);
    return Answer::Free;
}

bool HotKeys::nativeEventFilter(const QByteArray &eventType, void *message, qintptr *)
{
    if (eventType != "xcb_generic_event_t" || m_grabs.isEmpty())
        return false;
    auto *event = static_cast<xcb_generic_event_t *>(message);
    const quint8 type = event->response_type & ~0x80;
    if (type != XCB_KEY_PRESS && type != XCB_KEY_RELEASE)
        return false;
    auto *key = reinterpret_cast<xcb_key_press_event_t *>(event);
    if (key->event != m_root)
        return false;
    if (type == XCB_KEY_RELEASE && key->detail == m_down) {
        m_down = 0;
        m_releaseTime = key->time;
        m_released = key->detail;
    }
    const quint16 relevant = XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_4;
    for (auto it = m_grabs.cbegin(); it != m_grabs.cend(); ++it) {
        if (it->keycode != key->detail || it->modifiers != (key->state & relevant))
            continue;
        if (type == XCB_KEY_PRESS && m_down != key->detail) {
            // A key held down repeats as release and press at the same moment: one hot key.
            const bool repeat = key->detail == m_released && key->time - m_releaseTime <= 2;
            m_down = key->detail;
            if (!repeat)
                Q_EMIT hotKeyPressed(it.key());
        }
        return true; // ours: consumed
    }
    return false;
}

} // namespace tess
