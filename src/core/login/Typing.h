#pragma once
// The keystroke typing engine as data: each operation answers the exact list of key events,
// clipboard writes and waits it stands for, and a player posts the list through a KeySink,
// waiting on timers so the event loop keeps running between keys.

#include "core/entries/Entry.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

namespace tess {

class KeySink;

struct KeyAction {
    enum Type { KeyDown, KeyUp, SetClipboard, Wait };
    Type type;
    int keyCode = 0;
    quint64 flags = 0;
    QString text;        // the character of a key event, or the clipboard text
    qint64 micros = 0;   // Wait
    bool operator==(const KeyAction &) const = default;
};
using KeyScript = QList<KeyAction>;

// The flag the paste key's key-down carries (Command, which this platform presses as Ctrl).
constexpr quint64 kPasteFlags = 0x100000;

// The wait before each typed character at a speed: (100 - speed) x 2500 µs, none from 100 up.
qint64 typingDelayMicros(qint64 typeSpeed);

// doKeyboardEvent: key-down with the flags, then key-up with none, no pause between.
KeyScript doKeyboardEvent(int keyCode, quint64 flags);
KeyScript tab();
KeyScript nextPage();
// typeString: for each UTF-16 unit, the wait, then a key-down/key-up pair of the placeholder
// key carrying that unit.
KeyScript typeString(const QString &text, qint64 typeSpeed);
// pasteString: wait 1 s, put the text on the clipboard, press the paste key with Command.
KeyScript pasteString(const QString &text, int pasteCode);
// enterString: typed when the speed is not 0, pasted when it is.
KeyScript enterString(const QString &text, qint64 typeSpeed, int pasteCode);
// doTABs: the Tabs an entry asks for before its "UserID" or "Password" field.
KeyScript doTABs(const QString &kind, const Entry &entry);

// The last "typeSpeed" read from the settings; -1 until first read.
extern qint64 theTypeSpeed;
// setTypeSpeed: reads "typeSpeed" into theTypeSpeed.
void setTypeSpeed();
// enterString as logins call it: re-reads "typeSpeed" first, so a change in the settings takes
// effect at the next field.
KeyScript enterString(const QString &text, int pasteCode);
// clearCurrentScrapFromTimer: deliberately does nothing; the pasted text stays on the
// clipboard, marked as a secret.
inline void clearCurrentScrapFromTimer() {}

// Plays scripts through a sink, one after the other; waits run on timers.
class KeyScriptPlayer : public QObject {
    Q_OBJECT

public:
    explicit KeyScriptPlayer(KeySink *sink, QObject *parent = nullptr);
    void play(const KeyScript &script);
    bool isPlaying() const { return m_next < m_script.size(); }

    // How long a script waits for the user to let go of the modifiers of a hot key.
    static constexpr int kReleaseTimeoutMs = 2000;

Q_SIGNALS:
    void finished();
    // Nothing was typed: the reason, for the user.
    void failed(const QString &reason);

private:
    void start();
    void step();
    KeySink *m_sink;
    KeyScript m_script;
    qsizetype m_next = 0;
    // Waits add up against one clock, so that rounding to whole milliseconds does not drift.
    QElapsedTimer m_clock;
    qint64 m_deadlineMicros = 0;
    QElapsedTimer m_waitingForRelease;
};

} // namespace tess
