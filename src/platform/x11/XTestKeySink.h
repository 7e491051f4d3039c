#pragma once
// Keystrokes into whatever window has the focus, through the X server's XTest extension.
//
// A character with a key on the active layout group is typed with that key and the modifiers
// its level needs. Any other character (é on a US layout, €, emoji, CJK) is typed on a spare
// keycode bound to its keysym, two to a keycode (the second with Shift), in batches when there
// are more such characters than places; a keycode is rebound only once the receiver has handled
// the keys sent under its old binding, as the receiver reports it (ReceiverProgress) or else by
// an estimate. Each typing step releases Caps Lock and puts it back as it found it; typing
// waits until the user has let go of every key.

#include "platform/KeySink.h"
#include "platform/x11/ReceiverProgress.h"

#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QSet>
#include <QTimer>

#include <array>
#include <memory>
#include <optional>
#include <vector>

struct xcb_connection_t;

namespace tess {

class XkbKeyboardLayout;

class XTestKeySink : public KeySink {
public:
    // Also puts back spare keycodes that a crashed run left bound.
    XTestKeySink(xcb_connection_t *connection, XkbKeyboardLayout *layout);
    ~XTestKeySink() override { restoreBindings(); }

    // How long bindings for characters without a key outlive the step that made them, at least.
    static constexpr int kRestoreDelayMs = 1500;
    // Receivers re-read the keymap when they handle the mapping notice: 20 ms was seen to be
    // enough on a loaded machine, 5 ms not (for those that do not report the keys they handle;
    // Chromium under load took longer still).
    static constexpr qint64 kSettleMicros = 50000;
    // A change this old has been read by any receiver, reporting or not.
    static constexpr qint64 kSettledMicros = 500000;
    // How long a receiver may take per key, at its slowest, when we estimate how far behind it
    // is (Chromium takes 1 to 1.7 ms), and the margin added to that estimate.
    static constexpr qint64 kReceiverMicrosPerKey = 2500;
    // At least; a rebinding also waits as long again as the estimate for the keys sent since
    // the last change, so that a receiver up to twice as slow as estimated (a loaded machine)
    // has caught up: with a margin of 150 ms alone, Chromium on a machine with a load of 14
    // read one character of 10,000 with its keycode's previous binding.
    static constexpr qint64 kReceiverMarginMicros = 150000;
    // A receiver that reports the keys it has handled is asked this often while a rebinding
    // waits for it, and taken to have stopped reporting after this long without progress, or
    // after the last, in all, progress or not.
    static constexpr qint64 kReceiverPollMicros = 2000;
    static constexpr qint64 kReceiverSilentMicros = 5000000;
    static constexpr qint64 kReceiverGiveUpMicros = 60000000;

    // Whether typing waits, and then refuses, while a window of the connection's own client
    // has the keyboard focus (or no window has it). The application's logins are meant for
    // another program's window: keys typed into its own windows, which take no input while a
    // login runs, would be lost without a word (a page-load delay too short for the browser
    // to come to the front).
    void setRefuseOwnFocus(bool on) { m_refuseOwnFocus = on; }

    void keyEvent(int keyCode, quint64 flags, bool down, const QString &unicode) override;
    void setClipboard(const QString &text) override;
    QString notReadyReason() override;
    qint64 prepare(QStringView characters) override;
    void prepareAhead(QStringView characters) override;
    qint64 readyFor(QStringView upcoming) override;
    void finish() override;
    void cancel() override;
    QString failureReason() const override;

    // The spare keycodes bound to characters without a key (for tests).
    int spareKeycodesInUse() const { return int(m_boundSym.size()); }
    // The keycodes with no symbol that bindings may use.
    int spareKeycodeCount();
    // How many characters without a key can be bound at once: two on each spare keycode.
    int bindingPlaces();
    void restoreBindings();
    // Where a run notes the keycodes it bound, so that the next run can unbind them after a crash:
    // named after the display the connection is connected to, whatever $DISPLAY says.
    static QString bindingRecordPath(xcb_connection_t *connection);
    // That display (":91", "host:0"), read from the connection's socket; empty if unknown.
    static QString displayOf(xcb_connection_t *connection);

private:
    // A spare keycode's two symbols: without and with Shift (0, NoSymbol, when unbound).
    using Pair = std::array<quint32, 2>;
    struct KeyPress {
        quint8 keycode = 0;
        quint8 mods = 0; // real modifier mask the level needs
    };
    // The key for a keysym: a binding of ours (withBindings), else a key of the layout.
    bool lookup(quint32 keysym, KeyPress *press, bool withBindings = true) const;
    // Re-reads the layout and the modifier keys (they may have changed since the last step);
    // false when the server's keyboard state is not available.
    bool readKeyboard();
    void loadModifierMapping();
    void fake(quint8 keycode, bool press);
    void pressModifiers(quint8 mods, bool press);
    void typeCodePoint(char32_t cp);
    static quint32 keysymForCodePoint(char32_t cp);
    // The keysyms of the text's characters that no key of the layout has (bound by us or not),
    // in order, once each, the first `limit` of them (a batch: the text may be long).
    QList<quint32> missingKeysyms(QStringView text, qsizetype limit) const;
    // Binds the first of these keysyms to spare keycodes; answers the settle time (what is left
    // of it when all were bound already), how long to wait before rebinding is safe, or -1.
    // `askReceiver`: whether the focused window is the receiver and may be asked how far it got.
    qint64 bind(const QList<quint32> &keysyms, bool askReceiver = true);
    // How long until the receiver has handled every key sent so far, as far as we can tell.
    qint64 receiverBehind(bool askReceiver);
    bool sentinelTypesNothing() const;
    // How long until receivers have read the keymap as we last changed it: a receiver that
    // reports has once it has handled a key sent after the change; others get kSettleMicros.
    qint64 settleLeft(bool askReceiver);
    // Undoes the bindings once the receiver has handled the keys that used them.
    void restoreWhenHandled();
    bool findSpareKeycodes();
    bool writeMapping(const QHash<quint8, Pair> &symbols);
    int levelsPerSpareKeycode() const { return m_modifierKeycodes[0].empty() ? 1 : 2; }
    bool capsLocked(bool *ok = nullptr) const;
    void tapCapsLock();
    void restoreLeftByCrash();
    qint64 nowMicros() const { return m_clock.nsecsElapsed() / 1000; }

    xcb_connection_t *m_c;
    XkbKeyboardLayout *m_layout;
    quint32 m_root = 0;
    quint8 m_minKeycode = 8, m_maxKeycode = 255;
    std::vector<quint8> m_modifierKeycodes[8]; // per real modifier
    QList<quint8> m_spare;                     // keycodes with no symbol of their own
    QHash<quint32, KeyPress> m_bound;          // keysym -> spare keycode and the Shift it needs
    QHash<quint8, Pair> m_boundSym;            // spare keycode -> its symbols
    QSet<quint8> m_pressed;                    // keys we hold down now
    QList<quint8> m_heldForFlags;
    bool m_inStep = false;
    bool m_refuseOwnFocus = false;
    bool m_capsAtStart = false;
    char16_t m_highSurrogate = 0;
    QString m_failure;
    QElapsedTimer m_clock;
    // When the receiver should have handled every key sent so far, at its slowest.
    qint64 m_receiverDoneMicros = 0;
    // The estimate for the keys sent since the last keymap change.
    qint64 m_estimateSinceChangeMicros = 0;
    // When our last keymap change was made, for its settle time.
    qint64 m_changedMicros = -kSettleMicros;
    QTimer m_restoreTimer;
    // The receiver's own report of the keys it handled, when it gives one; a spare keycode kept
    // unbound, pressed after a mark so that a key stamped later than the mark follows our keys.
    std::unique_ptr<ReceiverProgress> m_progress;
    quint8 m_sentinel = 0;
    quint64 m_sent = 0; // keys pressed (the sentinel aside) and keymap changes made
    std::optional<ReceiverProgress::Mark> m_mark;
    quint64 m_markSent = 0;              // what the mark covers
    quint64 m_throughSent = 0;           // what the receiver reported handled
    quint64 m_changeSent = 0;            // the last keymap change
    std::optional<quint32> m_lastReport;
    qint64 m_markedMicros = 0, m_movedMicros = 0;
    // The batch a rebinding waits to bind, while no key goes out.
    QList<quint32> m_waitingBatch;
    quint64 m_waitingBatchSent = 0;
};

} // namespace tess
