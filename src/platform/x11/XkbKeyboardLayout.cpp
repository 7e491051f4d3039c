#include "XkbKeyboardLayout.h"

#include "core/shortcuts/KeyNames.h"
#include "platform/x11/KeyPositions.h"

#include <xcb/xcb.h>
// xcb/xkb.h names a field "explicit".
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

namespace tess {

namespace {

// A dead key produces no text of its own; it is named by the accent it puts on the next letter,
// as the accent's spacing form (^ on a German keyboard's key left of 1).
QString deadKeyName(xkb_keysym_t sym)
{
    switch (sym) {
    case XKB_KEY_dead_grave: return QStringLiteral("`");
    case XKB_KEY_dead_acute: return QString(QChar(0x00B4));
    case XKB_KEY_dead_circumflex: return QStringLiteral("^");
    case XKB_KEY_dead_tilde: return QStringLiteral("~");
    case XKB_KEY_dead_macron: return QString(QChar(0x00AF));
    case XKB_KEY_dead_breve: return QString(QChar(0x02D8));
    case XKB_KEY_dead_abovedot: return QString(QChar(0x02D9));
    case XKB_KEY_dead_diaeresis: return QString(QChar(0x00A8));
    case XKB_KEY_dead_abovering: return QString(QChar(0x02DA));
    case XKB_KEY_dead_doubleacute: return QString(QChar(0x02DD));
    case XKB_KEY_dead_caron: return QString(QChar(0x02C7));
    case XKB_KEY_dead_cedilla: return QString(QChar(0x00B8));
    case XKB_KEY_dead_ogonek: return QString(QChar(0x02DB));
    default: return {};
    }
}

} // namespace

XkbKeyboardLayout::XkbKeyboardLayout(xcb_connection_t *connection) : m_connection(connection)
{
    if (!connection)
        return;
    quint8 firstError = 0;
    if (!xkb_x11_setup_xkb_extension(connection, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                     XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, &m_firstEvent, &firstError))
        return;
    m_context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    m_deviceID = xkb_x11_get_core_keyboard_device_id(connection);
    const uint16_t events = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY | XCB_XKB_EVENT_TYPE_STATE_NOTIFY;
    xcb_xkb_select_events(connection, uint16_t(m_deviceID), events, 0, events, 0xff, 0xff, nullptr);
    xcb_flush(connection);
    reload();
}

XkbKeyboardLayout::~XkbKeyboardLayout()
{
    if (m_state)
        xkb_state_unref(m_state);
    if (m_keymap)
        xkb_keymap_unref(m_keymap);
    if (m_context)
        xkb_context_unref(m_context);
}

void XkbKeyboardLayout::reload()
{
    if (!m_context)
        return;
    xkb_keymap *keymap = xkb_x11_keymap_new_from_device(m_context, m_connection, m_deviceID, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (!keymap)
        return;
    xkb_state *state = xkb_x11_state_new_from_device(keymap, m_connection, m_deviceID);
    if (m_state)
        xkb_state_unref(m_state);
    if (m_keymap)
        xkb_keymap_unref(m_keymap);
    m_keymap = keymap;
    m_state = state;
    ++m_changes;
}

QString XkbKeyboardLayout::characterForKeyCode(int keyCode, bool shift, bool option) const
{
    const char *name = xkbKeyNameForKeyCode(keyCode);
    if (!m_keymap || !m_state || !name)
        return {};
    const xkb_keycode_t kc = xkb_keymap_key_by_name(m_keymap, name);
    if (kc == XKB_KEYCODE_INVALID)
        return {};
    // A state of its own: the active group of the server's, with just the asked modifiers.
    xkb_state *s = xkb_state_new(m_keymap);
    xkb_mod_mask_t mods = 0;
    // Keypad keys are named by their digits, as with Num Lock on.
    if (name[0] == 'K' && name[1] == 'P') {
        const xkb_mod_index_t numLock = xkb_keymap_mod_get_index(m_keymap, "Mod2");
        if (numLock != XKB_MOD_INVALID)
            mods |= 1u << numLock;
    }
    if (shift)
        mods |= 1u << xkb_keymap_mod_get_index(m_keymap, XKB_MOD_NAME_SHIFT);
    if (option) {
        const xkb_mod_index_t level3 = xkb_keymap_mod_get_index(m_keymap, "Mod5");
        if (level3 != XKB_MOD_INVALID)
            mods |= 1u << level3;
    }
    const xkb_layout_index_t group = xkb_state_serialize_layout(m_state, XKB_STATE_LAYOUT_EFFECTIVE);
    xkb_state_update_mask(s, mods, 0, 0, 0, 0, group);
    char buf[16] = {};
    const int n = xkb_state_key_get_utf8(s, kc, buf, sizeof buf);
    QString text = n > 0 ? QString::fromUtf8(buf, n) : deadKeyName(xkb_state_key_get_one_sym(s, kc));
    xkb_state_unref(s);
    // Control characters (Return, Tab, Escape...) are not names.
    if (!text.isEmpty() && text.at(0).unicode() < 0x20)
        return {};
    return text;
}

int XkbKeyboardLayout::keyCodeForKeycode(quint32 keycode) const
{
    return m_keymap ? keyCodeForXkbKeyName(xkb_keymap_key_get_name(m_keymap, keycode)) : -1;
}

bool XkbKeyboardLayout::nativeEventFilter(const QByteArray &eventType, void *message, qintptr *)
{
    if (eventType != "xcb_generic_event_t" || !m_firstEvent)
        return false;
    auto *event = static_cast<xcb_generic_event_t *>(message);
    if ((event->response_type & ~0x80) != m_firstEvent)
        return false;
    // The XKB event's subtype is its second byte.
    const quint8 xkbType = reinterpret_cast<const quint8 *>(event)[1];
    if (xkbType == XCB_XKB_NEW_KEYBOARD_NOTIFY || xkbType == XCB_XKB_MAP_NOTIFY
        || (xkbType == XCB_XKB_STATE_NOTIFY
            && (reinterpret_cast<xcb_xkb_state_notify_event_t *>(event)->changed & XCB_XKB_STATE_PART_GROUP_STATE))) {
        reload();
        if (SRKeyCodeTransformer::keyboardLayout() == this)
            SRKeyCodeTransformer::regenerateStringToKeyCodeMapping();
    }
    return false;
}

} // namespace tess
