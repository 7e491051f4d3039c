#include "XTestKeySink.h"

#include "core/shortcuts/KeyNames.h"
#include "platform/x11/KeyPositions.h"
#include "platform/x11/XkbKeyboardLayout.h"

#include <QClipboard>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QMimeData>
#include <QSaveFile>
#include <QStandardPaths>

#include <xcb/xcb.h>
#include <xcb/xtest.h>
// xcb/xkb.h names a field "explicit".
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit
#include <xkbcommon/xkbcommon.h>

#include <netdb.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <unistd.h>

namespace tess {

namespace {
constexpr int kShift = 0, kLock = 1, kControl = 2, kMod1 = 3, kMod4 = 6;
constexpr quint32 kNoSymbol = 0;

QString keyName(xkb_keymap *keymap, xkb_state *state, quint8 keycode)
{
    if (state) {
        const xkb_keysym_t sym = xkb_state_key_get_one_sym(state, keycode);
        char name[64];
        if (sym != XKB_KEY_NoSymbol && xkb_keysym_get_name(sym, name, sizeof name) > 0)
            return QString::fromLatin1(name);
    }
    if (keymap)
        if (const char *name = xkb_keymap_key_get_name(keymap, keycode))
            return QString::fromLatin1(name);
    return QString::number(keycode);
}
} // namespace

XTestKeySink::XTestKeySink(xcb_connection_t *connection, XkbKeyboardLayout *layout) : m_c(connection), m_layout(layout)
{
    m_clock.start();
    m_restoreTimer.setSingleShot(true);
    QObject::connect(&m_restoreTimer, &QTimer::timeout, [this] { restoreWhenHandled(); });
    const xcb_setup_t *setup = xcb_get_setup(m_c);
    m_root = xcb_setup_roots_iterator(setup).data->root;
    m_minKeycode = setup->min_keycode;
    m_maxKeycode = setup->max_keycode;
    loadModifierMapping();
    restoreLeftByCrash();
    m_progress = std::make_unique<ReceiverProgress>(m_c);
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

bool XTestKeySink::lookup(quint32 keysym, KeyPress *press, bool withBindings) const
{
    auto bound = m_bound.constFind(keysym);
    if (withBindings && bound != m_bound.constEnd()) {
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
        if (layouts == 0 || m_boundSym.contains(quint8(kc)))
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
    if (press) {
        m_pressed.insert(keycode);
        if (keycode != m_sentinel)
            ++m_sent;
        // The receiver handles keys in order; note how far behind it may be.
        m_receiverDoneMicros = std::max(m_receiverDoneMicros, nowMicros()) + kReceiverMicrosPerKey;
        m_estimateSinceChangeMicros += kReceiverMicrosPerKey;
    } else {
        m_pressed.remove(keycode);
    }
}

void XTestKeySink::pressModifiers(quint8 mods, bool press)
{
    for (int m = 0; m < 8; ++m)
        if ((mods & (1u << m)) && !m_modifierKeycodes[m].empty())
            fake(m_modifierKeycodes[m].front(), press);
}

QString XTestKeySink::failureReason() const
{
    if (!m_failure.isEmpty())
        return m_failure;
    if (xcb_connection_has_error(m_c))
        return QStringLiteral("The connection to the X server was lost: the keystrokes may not have arrived.");
    if (!m_layout->keymap())
        return QStringLiteral("The X server's keyboard state (XKB) is not available: nothing can be typed.");
    return {};
}

QString XTestKeySink::notReadyReason()
{
    xcb_query_keymap_reply_t *r = xcb_query_keymap_reply(m_c, xcb_query_keymap(m_c), nullptr);
    if (!r)
        return {};
    // Every key counts, the hot key's letter as well as its modifiers: while it is down the
    // hot key's grab sends what we type to us, and a held Ctrl turns letters into shortcuts.
    QString held;
    const struct {
        int mod;
        const char *name;
    } friendly[] = {{kControl, "Ctrl"}, {kMod1, "Alt"}, {kShift, "Shift"}, {kMod4, "Super"}};
    for (int k = 8; k < 256 && held.isEmpty(); ++k) {
        if (!(r->keys[k / 8] & (1 << (k % 8))))
            continue;
        for (const auto &f : friendly)
            if (std::find(m_modifierKeycodes[f.mod].begin(), m_modifierKeycodes[f.mod].end(), k) != m_modifierKeycodes[f.mod].end())
                held = QString::fromLatin1(f.name);
        if (held.isEmpty())
            held = keyName(m_layout->keymap(), m_layout->state(), quint8(k));
    }
    free(r);
    if (!held.isEmpty())
        return QStringLiteral("%1 is still held down: nothing was typed.").arg(held);
    if (m_refuseOwnFocus) {
        xcb_get_input_focus_reply_t *focus = xcb_get_input_focus_reply(m_c, xcb_get_input_focus(m_c), nullptr);
        const xcb_window_t window = focus ? focus->focus : xcb_window_t(XCB_INPUT_FOCUS_POINTER_ROOT);
        free(focus);
        const xcb_setup_t *setup = xcb_get_setup(m_c);
        if (window == XCB_NONE)
            return QStringLiteral("No window has the keyboard focus: nothing was typed.");
        if (window > XCB_INPUT_FOCUS_POINTER_ROOT && (window & ~setup->resource_id_mask) == setup->resource_id_base)
            return QStringLiteral("The keyboard focus is on a Tessaline window, not on the browser: nothing was "
                                  "typed. A longer page-load delay gives the browser time to come to the front.");
    }
    return {};
}

bool XTestKeySink::capsLocked(bool *ok) const
{
    xcb_xkb_get_state_reply_t *r = xcb_xkb_get_state_reply(m_c, xcb_xkb_get_state(m_c, XCB_XKB_ID_USE_CORE_KBD), nullptr);
    if (ok)
        *ok = r != nullptr;
    const bool locked = r && (r->lockedMods & XCB_MOD_MASK_LOCK);
    free(r);
    return locked;
}

void XTestKeySink::tapCapsLock()
{
    if (m_modifierKeycodes[kLock].empty())
        return;
    fake(m_modifierKeycodes[kLock].front(), true);
    fake(m_modifierKeycodes[kLock].front(), false);
}

QList<quint32> XTestKeySink::missingKeysyms(QStringView text, qsizetype limit) const
{
    QList<quint32> missing;
    for (qsizetype i = 0; i < text.size() && missing.size() < limit; ++i) {
        char32_t cp = text.at(i).unicode();
        if (QChar::isHighSurrogate(cp) && i + 1 < text.size())
            cp = QChar::surrogateToUcs4(text.at(i), text.at(i + 1)), ++i;
        const quint32 sym = keysymForCodePoint(cp);
        KeyPress p;
        if (sym != kNoSymbol && !lookup(sym, &p, false) && !missing.contains(sym))
            missing.append(sym);
    }
    return missing;
}

bool XTestKeySink::readKeyboard()
{
    m_layout->reload();
    loadModifierMapping();
    return m_layout->keymap() != nullptr;
}

qint64 XTestKeySink::prepare(QStringView characters)
{
    m_failure.clear();
    m_restoreTimer.stop();
    const bool haveKeymap = readKeyboard(); // the layout may have changed since the last step
    m_highSurrogate = 0;
    bool ok = false;
    m_capsAtStart = capsLocked(&ok);
    if (!ok || !haveKeymap) {
        m_failure = QStringLiteral("The X server's keyboard state (XKB) is not available: nothing was typed.");
        return -1;
    }
    m_inStep = true;
    m_mark.reset();
    m_waitingBatch.clear();
    m_progress->follow(); // the window that has the focus now takes this step's keys
    if (m_capsAtStart)
        tapCapsLock();
    const QList<quint32> missing = missingKeysyms(characters, 1);
    xcb_flush(m_c);
    if (missing.isEmpty())
        return 0;
    if (!findSpareKeycodes()) {
        const char32_t cp = xkb_keysym_to_utf32(missing.first());
        m_failure = QStringLiteral("The keyboard has no free key to type \u201c%1\u201d with: nothing was typed.")
                            .arg(QString::fromUcs4(&cp, 1));
        return -1;
    }
    return bind(missingKeysyms(characters, bindingPlaces()));
}

void XTestKeySink::prepareAhead(QStringView characters)
{
    const QList<quint32> first = readKeyboard() ? missingKeysyms(characters, 1) : QList<quint32>();
    if (first.isEmpty() || !findSpareKeycodes())
        return;
    // A rebinding that is not safe yet, or a failure, is left to the step's prepare(). The
    // window with the focus now need not be the one the step types into.
    bind(missingKeysyms(characters, bindingPlaces()), false);
    m_failure.clear();
    KeyPress press;
    if (lookup(first.first(), &press))
        m_restoreTimer.stop(); // the bindings stay for the step, whose end undoes them
    xcb_flush(m_c);
}

qint64 XTestKeySink::readyFor(QStringView upcoming)
{
    if (upcoming.isEmpty() || QChar::isLowSurrogate(upcoming.at(0).unicode()))
        return 0; // the character goes out whole with its first half
    char32_t cp = upcoming.at(0).unicode();
    if (QChar::isHighSurrogate(cp) && upcoming.size() > 1)
        cp = QChar::surrogateToUcs4(upcoming.at(0), upcoming.at(1));
    KeyPress p;
    const quint32 sym = keysymForCodePoint(cp);
    if (sym == kNoSymbol)
        return 0;
    if (lookup(sym, &p))
        return m_bound.contains(sym) ? settleLeft(true) : 0; // a key of ours, once it is read
    // The next batch, starting with this character (the same while a rebinding waits).
    if (m_waitingBatch.isEmpty() || m_waitingBatchSent != m_sent)
        m_waitingBatch = missingKeysyms(upcoming, bindingPlaces());
    m_waitingBatchSent = m_sent;
    const qint64 wait = bind(m_waitingBatch);
    if (wait < 0 || m_bound.contains(m_waitingBatch.value(0)))
        m_waitingBatch.clear();
    return wait;
}

int XTestKeySink::spareKeycodeCount()
{
    findSpareKeycodes();
    return int(m_spare.size());
}

int XTestKeySink::bindingPlaces()
{
    findSpareKeycodes();
    return int(m_spare.size()) * levelsPerSpareKeycode();
}

bool XTestKeySink::findSpareKeycodes()
{
    if (!m_spare.isEmpty())
        return true;
    const int count = m_maxKeycode - m_minKeycode + 1;
    xcb_get_keyboard_mapping_reply_t *map =
        xcb_get_keyboard_mapping_reply(m_c, xcb_get_keyboard_mapping(m_c, m_minKeycode, quint8(count)), nullptr);
    if (!map)
        return false;
    const xcb_keysym_t *current = xcb_get_keyboard_mapping_keysyms(map);
    const int per = map->keysyms_per_keycode;
    for (int kc = m_maxKeycode; kc >= m_minKeycode; --kc) {
        bool empty = true;
        for (int j = 0; j < per && empty; ++j)
            empty = current[(kc - m_minKeycode) * per + j] == kNoSymbol;
        if (empty)
            m_spare.append(quint8(kc));
    }
    free(map);
    // One stays unbound, the key pressed after a mark (it types nothing).
    m_sentinel = m_spare.size() >= 4 ? m_spare.takeLast() : 0;
    return !m_spare.isEmpty();
}

qint64 XTestKeySink::receiverBehind(bool askReceiver)
{
    if (m_throughSent == m_sent)
        return 0; // it reported every key we sent
    const qint64 now = nowMicros();
    const qint64 estimate = std::max<qint64>(0, m_receiverDoneMicros + std::max(kReceiverMarginMicros, m_estimateSinceChangeMicros) - now);
    if (!askReceiver || !m_sentinel || !m_progress->reports() || !sentinelTypesNothing())
        return estimate;
    // A mark covers the keys sent before it, and none sent since.
    if (!m_mark || m_markSent != m_sent) {
        m_mark = m_progress->mark();
        if (!m_mark)
            return estimate;
        m_markSent = m_sent;
        m_markedMicros = m_movedMicros = nowMicros();
        m_lastReport = m_mark->reported;
        // A key stamped after the mark, for the receiver to report once it is through ours.
        fake(m_sentinel, true);
        fake(m_sentinel, false);
        xcb_flush(m_c);
    }
    const std::optional<quint32> report = m_progress->reported();
    if (ReceiverProgress::isThrough(*m_mark, report)) {
        m_mark.reset();
        m_throughSent = m_sent;
        m_receiverDoneMicros = nowMicros();
        return 0;
    }
    if (report != m_lastReport) {
        m_lastReport = report; // still catching up
        m_movedMicros = nowMicros();
    }
    if (nowMicros() - m_movedMicros < kReceiverSilentMicros && nowMicros() - m_markedMicros < kReceiverGiveUpMicros)
        return kReceiverPollMicros;
    // It has stopped reporting (it lost the focus, or does not take the key that types nothing).
    m_mark.reset();
    m_progress->forget();
    return estimate;
}

qint64 XTestKeySink::settleLeft(bool askReceiver)
{
    const qint64 since = nowMicros() - m_changedMicros;
    if (m_throughSent >= m_changeSent || since >= kSettledMicros)
        return 0;
    const qint64 left = std::max<qint64>(0, kSettleMicros - since);
    if (!askReceiver || !m_progress->reports())
        return left;
    // Chromium reads the keymap on two connections, one loop serving both: once it has handled
    // a key sent after the change, the notice (sent to both at once) has been read on each.
    const qint64 behind = receiverBehind(true);
    if (m_throughSent >= m_changeSent)
        return 0;
    return m_mark ? behind : left; // still waiting for its report, or it does not report
}

bool XTestKeySink::sentinelTypesNothing() const
{
    // A layout loaded since the spare keycodes were chosen may have given it a symbol.
    xkb_keymap *keymap = m_layout->keymap();
    if (!keymap)
        return false;
    const xkb_layout_index_t layouts = xkb_keymap_num_layouts_for_key(keymap, m_sentinel);
    for (xkb_layout_index_t g = 0; g < layouts; ++g) {
        const xkb_level_index_t levels = xkb_keymap_num_levels_for_key(keymap, m_sentinel, g);
        for (xkb_level_index_t level = 0; level < levels; ++level) {
            const xkb_keysym_t *syms = nullptr;
            if (xkb_keymap_key_get_syms_by_level(keymap, m_sentinel, g, level, &syms) > 0)
                return false;
        }
    }
    return true;
}

void XTestKeySink::restoreWhenHandled()
{
    // Unbinding is a rebinding too: not before the receiver has handled the keys that used
    // the bindings.
    if (const qint64 behind = receiverBehind(true); behind > 0) {
        m_restoreTimer.start(int((behind + 999) / 1000));
        return;
    }
    restoreBindings();
}

qint64 XTestKeySink::bind(const QList<quint32> &keysyms, bool askReceiver)
{
    // The batch: the next characters without a key, as many as there are places. A place is a
    // spare keycode's first level, or its second (with Shift) once every first level is taken:
    // fewer modifier presses, and no keycode ever has a second symbol without a first.
    const int levels = levelsPerSpareKeycode();
    const QList<quint32> batch = keysyms.mid(0, m_spare.size() * levels);
    struct Place {
        quint8 keycode;
        int level;
    };
    QList<Place> places, stale; // free places first, then those bound to other characters
    for (int level = 0; level < levels; ++level) {
        for (quint8 kc : std::as_const(m_spare)) {
            const quint32 sym = m_boundSym.value(kc, Pair{kNoSymbol, kNoSymbol})[std::size_t(level)];
            if (sym == kNoSymbol)
                places.append({kc, level});
            else if (!batch.contains(sym))
                stale.append({kc, level});
        }
    }
    places += stale;
    QHash<quint8, Pair> wanted = m_boundSym;
    bool rebinds = false;
    for (quint32 sym : batch) {
        if (m_bound.contains(sym))
            continue;
        const Place place = places.takeFirst();
        if (!wanted.contains(place.keycode))
            wanted.insert(place.keycode, Pair{kNoSymbol, kNoSymbol});
        quint32 &slot = wanted[place.keycode][std::size_t(place.level)];
        if (slot != kNoSymbol)
            rebinds = true;
        slot = sym;
    }
    if (wanted == m_boundSym)
        return settleLeft(askReceiver);
    // A receiver that has not yet handled the notice of the current binding would read the new
    // one for keys sent under the old: wait until it has handled every key sent so far, as it
    // reports it, else by an estimate. (Waiting only for the last press of each keycode rebound
    // lets a receiver slower than our estimate fall ever further behind; draining it at every
    // rebinding keeps the estimate's error from piling up. Nor is the receiver's own reading of
    // the mapping a signal to rebind on: Chromium translates keys also through GTK, on a
    // connection of its own that reads a new mapping out of step with the keys still queued on
    // the first. Rebinding as soon as the focused window's client had read our last change,
    // seen through the RECORD extension, lost characters to their keycode's previous binding.)
    if (rebinds) {
        if (const qint64 behind = receiverBehind(askReceiver); behind > 0)
            return behind;
    }
    if (!writeMapping(wanted))
        return -1;
    return settleLeft(askReceiver);
}

bool XTestKeySink::writeMapping(const QHash<quint8, Pair> &symbols)
{
    // Keycodes bound or unbound now, and those bound before: the range the request covers.
    QSet<quint8> touched;
    for (auto it = symbols.cbegin(); it != symbols.cend(); ++it)
        touched.insert(it.key());
    for (auto it = m_boundSym.cbegin(); it != m_boundSym.cend(); ++it)
        touched.insert(it.key());
    if (touched.isEmpty())
        return true;
    const quint8 low = *std::min_element(touched.cbegin(), touched.cend());
    const quint8 high = *std::max_element(touched.cbegin(), touched.cend());
    const int count = high - low + 1;
    // One request over one range (the keys between keep the symbols they have now): clients
    // that refresh only the range of the latest mapping notice then see every binding.
    xcb_get_keyboard_mapping_reply_t *map =
        xcb_get_keyboard_mapping_reply(m_c, xcb_get_keyboard_mapping(m_c, low, quint8(count)), nullptr);
    if (!map) {
        m_failure = QStringLiteral("The X server's keyboard mapping could not be read.");
        return false;
    }
    const int serverPer = map->keysyms_per_keycode;
    const int per = std::max(2, serverPer);
    std::vector<xcb_keysym_t> syms(std::size_t(count * per), kNoSymbol);
    const xcb_keysym_t *current = xcb_get_keyboard_mapping_keysyms(map);
    for (int i = 0; i < count; ++i)
        for (int j = 0; j < serverPer; ++j)
            syms[std::size_t(i * per + j)] = current[i * serverPer + j];
    free(map);
    for (quint8 kc : std::as_const(touched)) {
        const Pair pair = symbols.value(kc, Pair{kNoSymbol, kNoSymbol});
        // A symbol alone goes on both levels: else the server would give a letter's second
        // level its capital.
        const quint32 second = pair[1] != kNoSymbol ? pair[1] : pair[0];
        for (int j = 0; j < per; ++j)
            syms[std::size_t((kc - low) * per + j)] = j == 0 ? pair[0] : j == 1 ? second : kNoSymbol;
    }
    // Noted before the change: a crash from here on is undone by the next run.
    if (!symbols.isEmpty()) {
        QSaveFile record(bindingRecordPath(m_c));
        if (record.open(QIODevice::WriteOnly)) {
            QByteArray text = QByteArray::number(qint64(::getpid()));
            for (quint8 kc : std::as_const(m_spare))
                text += ' ' + QByteArray::number(kc);
            record.write(text + '\n');
            record.commit();
        }
    }
    xcb_void_cookie_t cookie = xcb_change_keyboard_mapping_checked(m_c, quint8(count), low, quint8(per), syms.data());
    if (xcb_generic_error_t *error = xcb_request_check(m_c, cookie)) {
        m_failure = QStringLiteral("The X server refused a keyboard mapping change (error %1).").arg(error->error_code);
        free(error);
        return false;
    }
    m_estimateSinceChangeMicros = 0;
    m_changedMicros = nowMicros();
    m_changeSent = ++m_sent; // a receiver has read it once it has handled a key sent after it
    m_boundSym = symbols;
    m_bound.clear();
    for (auto it = symbols.cbegin(); it != symbols.cend(); ++it) {
        if (it.value()[0] != kNoSymbol)
            m_bound.insert(it.value()[0], KeyPress{it.key(), 0});
        if (it.value()[1] != kNoSymbol)
            m_bound.insert(it.value()[1], KeyPress{it.key(), quint8(1u << kShift)});
    }
    if (symbols.isEmpty())
        QFile::remove(bindingRecordPath(m_c));
    return true;
}

void XTestKeySink::restoreBindings()
{
    m_restoreTimer.stop();
    m_mark.reset();
    m_waitingBatch.clear();
    if (!m_boundSym.isEmpty() && !xcb_connection_has_error(m_c))
        writeMapping({});
    m_boundSym.clear();
    m_bound.clear();
    m_spare.clear();
    xcb_flush(m_c);
}

QString XTestKeySink::displayOf(xcb_connection_t *connection)
{
    sockaddr_storage peer{};
    socklen_t length = sizeof peer;
    if (getpeername(xcb_get_file_descriptor(connection), reinterpret_cast<sockaddr *>(&peer), &length) != 0)
        return {};
    if (peer.ss_family == AF_UNIX) {
        // "/tmp/.X11-unix/X91", or the same name in the abstract namespace (a leading NUL).
        const auto *un = reinterpret_cast<const sockaddr_un *>(&peer);
        QByteArray path(un->sun_path, std::max<qsizetype>(0, qsizetype(length) - qsizetype(offsetof(sockaddr_un, sun_path))));
        if (path.startsWith('\0'))
            path.remove(0, 1);
        if (const qsizetype end = path.indexOf('\0'); end >= 0)
            path.truncate(end);
        const qsizetype x = path.lastIndexOf("/X");
        return x < 0 ? QString() : u':' + QString::fromLatin1(path.mid(x + 2));
    }
    char host[NI_MAXHOST], service[NI_MAXSERV];
    if (getnameinfo(reinterpret_cast<sockaddr *>(&peer), length, host, sizeof host, service, sizeof service,
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return {};
    return QStringLiteral("%1:%2").arg(QString::fromLatin1(host)).arg(QByteArray(service).toInt() - 6000);
}

QString XTestKeySink::bindingRecordPath(xcb_connection_t *connection)
{
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (dir.isEmpty())
        dir = QDir::tempPath();
    QString display = displayOf(connection);
    if (display.isEmpty())
        display = qEnvironmentVariable("DISPLAY");
    display.replace(u'/', u'_');
    return dir + QStringLiteral("/tessaline-keys-%1").arg(display);
}

void XTestKeySink::restoreLeftByCrash()
{
    QFile record(bindingRecordPath(m_c));
    if (!record.open(QIODevice::ReadOnly))
        return;
    const QList<QByteArray> fields = record.readAll().simplified().split(' ');
    record.close();
    const qint64 pid = fields.value(0).toLongLong();
    // Another run that is still typing keeps its bindings.
    if (pid > 0 && pid != ::getpid() && ::kill(pid_t(pid), 0) == 0)
        return;
    for (qsizetype i = 1; i < fields.size(); ++i) {
        bool ok = false;
        const int kc = fields[i].toInt(&ok);
        if (ok && kc >= m_minKeycode && kc <= m_maxKeycode)
            m_boundSym.insert(quint8(kc), Pair{kNoSymbol, kNoSymbol});
    }
    writeMapping({});
    m_boundSym.clear();
    m_bound.clear();
    QFile::remove(bindingRecordPath(m_c));
    xcb_flush(m_c);
}

void XTestKeySink::finish()
{
    for (quint8 kc : std::as_const(m_heldForFlags))
        fake(kc, false);
    m_heldForFlags.clear();
    // Caps Lock as the step found it, whatever it is now.
    if (m_inStep && capsLocked() != m_capsAtStart)
        tapCapsLock();
    m_inStep = false;
    // Receivers translate a key with the mapping they hold when they get round to it: undoing
    // the bindings at once loses the characters of a receiver that is still catching up.
    if (!m_boundSym.isEmpty()) {
        const qint64 behind = (m_receiverDoneMicros + kReceiverMarginMicros - nowMicros()) / 1000;
        m_restoreTimer.start(int(std::max<qint64>(kRestoreDelayMs, behind)));
    }
    xcb_flush(m_c);
}

void XTestKeySink::cancel()
{
    // Everything we hold goes up, modifiers last.
    const QSet<quint8> pressed = m_pressed;
    for (quint8 kc : pressed)
        if (!m_heldForFlags.contains(kc))
            fake(kc, false);
    for (quint8 kc : std::as_const(m_heldForFlags))
        fake(kc, false);
    m_heldForFlags.clear();
    m_pressed.clear();
    m_highSurrogate = 0;
    if (m_inStep && capsLocked() != m_capsAtStart)
        tapCapsLock();
    m_inStep = false;
    restoreBindings();
}

void XTestKeySink::typeCodePoint(char32_t cp)
{
    KeyPress p;
    if (!lookup(keysymForCodePoint(cp), &p)) {
        // Never skip a character silently.
        m_failure = QStringLiteral("A character could not be typed: the login is incomplete.");
        return;
    }
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
