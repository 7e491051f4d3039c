#include "XTestKeySink.h"

#include "core/shortcuts/KeyNames.h"
#include "platform/x11/KeyPositions.h"
#include "platform/x11/XkbKeyboardLayout.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

#include <xcb/xcb.h>
#include <xcb/xtest.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>

namespace tess {

namespace {
constexpr int kShift = 0, kLock = 1, kControl = 2, kMod1 = 3, kMod4 = 6;
constexpr quint32 kNoSymbol = 0;
} // namespace

XTestKeySink::XTestKeySink(xcb_connection_t *connection, XkbKeyboardLayout *layout) : m_c(connection), m_layout(layout)
{
    m_restoreTimer.setSingleShot(true);
    m_restoreTimer.setInterval(kRestoreDelayMs);
    QObject::connect(&m_restoreTimer, &QTimer::timeout, [this] { restoreBindings(); });
    const xcb_setup_t *setup = xcb_get_setup(m_c);
    m_root = xcb_setup_roots_iterator(setup).data->root;
    m_minKeycode = setup->min_keycode;
    m_maxKeycode = setup->max_keycode;
    loadModifierMapping();
}

void XTestKeySink::loadModifierMapping()
{
    for (auto &v : m_modifierKeycodes)
        v.clear();
    xcb_get_modifier_mapping_reply_t *r = xcb_get_modifier_mapping_reply(m_c, xcb_get_modifier_mapping(m_c), nullptr);
    if (!r)
        return;
    const xcb_keycode_t *codes = xcb_get_modifier_mapping_keycodes(r);
    for (int m = 0; m < 8; ++m)
        for (int i = 0; i < r->keycodes_per_modifier; ++i)
            if (const xcb_keycode_t k = codes[m * r->keycodes_per_modifier + i])
                m_modifierKeycodes[m].push_back(k);
    free(r);
}

quint32 XTestKeySink::keysymForCodePoint(char32_t cp)
{
    switch (cp) {
    case '\n':
    case '\r':
        return XKB_KEY_Return;
    case '\t':
        return XKB_KEY_Tab;
    case '\b':
        return XKB_KEY_BackSpace;
    case 0x1b:
        return XKB_KEY_Escape;
    default:
        return xkb_utf32_to_keysym(cp);
    }
}

bool XTestKeySink::lookup(quint32 keysym, KeyPress *press) const
{
    auto bound = m_bound.constFind(keysym);
    if (bound != m_bound.constEnd()) {
        *press = *bound;
        return true;
    }
    xkb_keymap *keymap = m_layout->keymap();
    if (!keymap)
        return false;
    // Look in the group that is active now, not only the first one.
    const xkb_layout_index_t group = xkb_state_serialize_layout(m_layout->state(), XKB_STATE_LAYOUT_EFFECTIVE);
    for (xkb_keycode_t kc = xkb_keymap_min_keycode(keymap); kc <= xkb_keymap_max_keycode(keymap) && kc <= 255; ++kc) {
        const xkb_layout_index_t layouts = xkb_keymap_num_layouts_for_key(keymap, kc);
        if (layouts == 0)
            continue;
        const xkb_layout_index_t g = group < layouts ? group : 0;
        const xkb_level_index_t levels = xkb_keymap_num_levels_for_key(keymap, kc, g);
        for (xkb_level_index_t level = 0; level < levels; ++level) {
            const xkb_keysym_t *syms = nullptr;
            if (xkb_keymap_key_get_syms_by_level(keymap, kc, g, level, &syms) != 1 || syms[0] != keysym)
                continue;
            xkb_mod_mask_t masks[8];
            const size_t n = xkb_keymap_key_get_mods_for_level(keymap, kc, g, level, masks, 8);
            if (n == 0)
                continue;
            // The simplest modifier combination for that level, real modifiers only.
            xkb_mod_mask_t best = masks[0];
            for (size_t i = 1; i < n; ++i)
                if (__builtin_popcount(masks[i]) < __builtin_popcount(best))
                    best = masks[i];
            if (best & ~0xffu)
                continue;
            bool reachable = true;
            for (int m = 0; m < 8; ++m)
                if ((best & (1u << m)) && (m == kLock || m_modifierKeycodes[m].empty()))
                    reachable = false;
            if (!reachable)
                continue;
            press->keycode = quint8(kc);
            press->mods = quint8(best);
            return true;
        }
    }
    return false;
}

void XTestKeySink::fake(quint8 keycode, bool press)
{
    xcb_test_fake_input(m_c, press ? XCB_KEY_PRESS : XCB_KEY_RELEASE, keycode, XCB_CURRENT_TIME, m_root, 0, 0, 0);
}

void XTestKeySink::pressModifiers(quint8 mods, bool press)
{
    for (int m = 0; m < 8; ++m)
        if ((mods & (1u << m)) && !m_modifierKeycodes[m].empty())
            fake(m_modifierKeycodes[m].front(), press);
}

QString XTestKeySink::notReadyReason()
{
    xcb_query_keymap_reply_t *r = xcb_query_keymap_reply(m_c, xcb_query_keymap(m_c), nullptr);
    if (!r)
        return {};
    QString held;
    const struct {
        int mod;
        const char *name;
    } watched[] = {{kControl, "Ctrl"}, {kMod1, "Alt"}, {kShift, "Shift"}, {kMod4, "Super"}};
    for (const auto &w : watched)
        for (quint8 k : m_modifierKeycodes[w.mod])
            if (r->keys[k / 8] & (1 << (k % 8))) {
                held = QString::fromLatin1(w.name);
                break;
            }
    free(r);
    if (held.isEmpty())
        return {};
    return QStringLiteral("%1 is still held down: nothing was typed.").arg(held);
}

qint64 XTestKeySink::prepare(const QString &characters)
{
    restoreBindings();
    m_layout->reload(); // the layout may have changed since the last script
    loadModifierMapping();
    m_highSurrogate = 0;
    m_relockCaps = xkb_state_mod_name_is_active(m_layout->state(), XKB_MOD_NAME_CAPS, XKB_STATE_MODS_LOCKED) > 0;
    if (m_relockCaps && !m_modifierKeycodes[kLock].empty()) {
        fake(m_modifierKeycodes[kLock].front(), true);
        fake(m_modifierKeycodes[kLock].front(), false);
    }

    // Characters with no key: bind them all to spare keycodes in one go, then let every client
    // take in the new mapping before the first key.
    QSet<quint32> missing;
    for (qsizetype i = 0; i < characters.size(); ++i) {
        char32_t cp = characters.at(i).unicode();
        if (QChar::isHighSurrogate(cp) && i + 1 < characters.size())
            cp = QChar::surrogateToUcs4(characters.at(i), characters.at(i + 1)), ++i;
        const quint32 sym = keysymForCodePoint(cp);
        KeyPress p;
        if (sym != kNoSymbol && !lookup(sym, &p))
            missing.insert(sym);
    }
    if (missing.isEmpty()) {
        xcb_flush(m_c);
        return 0;
    }
    // Spare keycodes: those the server's own mapping gives no symbol at all. They are bound in
    // one request over one range of keycodes (the keys between keep their symbols): clients
    // that refresh only the range of the latest mapping notice then see every binding.
    m_spare.clear();
    const int count = m_maxKeycode - m_minKeycode + 1;
    xcb_get_keyboard_mapping_reply_t *map =
        xcb_get_keyboard_mapping_reply(m_c, xcb_get_keyboard_mapping(m_c, m_minKeycode, quint8(count)), nullptr);
    if (!map)
        return 0;
    const xcb_keysym_t *current = xcb_get_keyboard_mapping_keysyms(map);
    const int per = std::max<int>(2, map->keysyms_per_keycode);
    const int serverPer = map->keysyms_per_keycode;
    for (int kc = m_maxKeycode; kc >= m_minKeycode && m_spare.size() < missing.size(); --kc) {
        bool empty = true;
        for (int j = 0; j < serverPer && empty; ++j)
            empty = current[(kc - m_minKeycode) * serverPer + j] == kNoSymbol;
        if (empty)
            m_spare.append(quint8(kc));
    }
    if (m_spare.isEmpty()) {
        free(map);
        return 0;
    }
    m_rangeLow = *std::min_element(m_spare.cbegin(), m_spare.cend());
    m_rangeHigh = *std::max_element(m_spare.cbegin(), m_spare.cend());
    m_rangeSyms.assign(std::size_t((m_rangeHigh - m_rangeLow + 1) * per), kNoSymbol);
    for (int kc = m_rangeLow; kc <= m_rangeHigh; ++kc)
        for (int j = 0; j < serverPer; ++j)
            m_rangeSyms[std::size_t((kc - m_rangeLow) * per + j)] = current[(kc - m_minKeycode) * serverPer + j];
    m_rangePer = per;
    free(map);
    std::vector<xcb_keysym_t> bound = m_rangeSyms;
    qsizetype i = 0;
    for (quint32 sym : std::as_const(missing)) {
        if (i >= m_spare.size())
            break; // more unusual characters than free keys: those few are skipped
        const quint8 kc = m_spare[i++];
        bound[std::size_t((kc - m_rangeLow) * per)] = sym;
        bound[std::size_t((kc - m_rangeLow) * per + 1)] = sym;
        m_bound.insert(sym, KeyPress{kc, 0});
    }
    xcb_change_keyboard_mapping(m_c, quint8(m_rangeHigh - m_rangeLow + 1), quint8(m_rangeLow), quint8(per), bound.data());
    xcb_flush(m_c);
    // Receivers re-read the keymap when they handle the mapping notice; 50 ms covers a loaded
    // machine (20 ms was seen to be enough, 5 ms not).
    return 50000;
}

void XTestKeySink::restoreBindings()
{
    m_restoreTimer.stop();
    if (!m_bound.isEmpty())
        xcb_change_keyboard_mapping(m_c, quint8(m_rangeHigh - m_rangeLow + 1), quint8(m_rangeLow), quint8(m_rangePer),
                                    m_rangeSyms.data());
    m_bound.clear();
    xcb_flush(m_c);
}

void XTestKeySink::finish()
{
    for (quint8 kc : std::as_const(m_heldForFlags))
        fake(kc, false);
    m_heldForFlags.clear();
    // Receivers translate a key with the mapping they hold when they get round to it: undoing
    // the bindings at once loses the characters of a receiver that is still catching up.
    if (!m_bound.isEmpty())
        m_restoreTimer.start();
    if (m_relockCaps && !m_modifierKeycodes[kLock].empty()) {
        fake(m_modifierKeycodes[kLock].front(), true);
        fake(m_modifierKeycodes[kLock].front(), false);
    }
    m_relockCaps = false;
    xcb_flush(m_c);
}

void XTestKeySink::typeCodePoint(char32_t cp)
{
    KeyPress p;
    if (!lookup(keysymForCodePoint(cp), &p))
        return;
    pressModifiers(p.mods, true);
    fake(p.keycode, true);
    fake(p.keycode, false);
    pressModifiers(p.mods, false);
    xcb_flush(m_c);
}

void XTestKeySink::keyEvent(int keyCode, quint64 flags, bool down, const QString &unicode)
{
    if (!unicode.isEmpty()) {
        if (!down)
            return; // the whole character goes with its key-down
        const char16_t unit = unicode.at(0).unicode();
        // A character beyond the Basic Multilingual Plane comes as two halves: type it whole.
        if (QChar::isHighSurrogate(unit)) {
            m_highSurrogate = unit;
            return;
        }
        char32_t cp = unit;
        if (QChar::isLowSurrogate(unit)) {
            if (!m_highSurrogate)
                return;
            cp = QChar::surrogateToUcs4(m_highSurrogate, unit);
        }
        m_highSurrogate = 0;
        typeCodePoint(cp);
        return;
    }
    const char *name = xkbKeyNameForKeyCode(keyCode);
    const xkb_keycode_t kc = name && m_layout->keymap() ? xkb_keymap_key_by_name(m_layout->keymap(), name) : XKB_KEYCODE_INVALID;
    if (kc == XKB_KEYCODE_INVALID || kc > 255)
        return;
    if (down) {
        // Command is this platform's Ctrl, Option its Alt, Control its Super.
        const struct {
            quint64 flag;
            int mod;
        } mods[] = {{CocoaMask::Command, kControl}, {CocoaMask::Option, kMod1}, {CocoaMask::Control, kMod4}, {CocoaMask::Shift, kShift}};
        for (const auto &m : mods)
            if ((flags & m.flag) && !m_modifierKeycodes[m.mod].empty()) {
                fake(m_modifierKeycodes[m.mod].front(), true);
                m_heldForFlags.append(m_modifierKeycodes[m.mod].front());
            }
        fake(quint8(kc), true);
    } else {
        fake(quint8(kc), false);
        // The key-up carries no flags: the modifiers the key-down pressed go up with it.
        for (quint8 m : std::as_const(m_heldForFlags))
            fake(m, false);
        m_heldForFlags.clear();
    }
    xcb_flush(m_c);
}

void XTestKeySink::setClipboard(const QString &text)
{
    auto *mime = new QMimeData;
    mime->setText(text);
    // The convention clipboard managers honour: do not keep this one.
    mime->setData(QStringLiteral("x-kde-passwordManagerHint"), QByteArrayLiteral("secret"));
    QGuiApplication::clipboard()->setMimeData(mime, QClipboard::Clipboard);
}

} // namespace tess
