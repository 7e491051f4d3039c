#pragma once
// The keystroke typing engine as data: each operation answers the exact list of key events,
// clipboard writes and waits it stands for, and a player posts the list through a KeySink,
// waiting on timers so the event loop keeps running between keys.
//
// A script is played in typing steps: the key events between two pauses (or panel actions).
// Each step is prepared on its own (modifiers let go, Caps Lock off, keys for unusual
// characters) and put back as it was after it. Keys for unusual characters are bound already
// during the prescribed pause before the step, so that the keymap change has settled by its
// first key; Caps Lock is never held changed across a pause.

#include "core/entries/Entry.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <functional>

namespace tess {

class KeySink;

struct KeyAction {
    enum Type {
        KeyDown,
        KeyUp,
        SetClipboard,
        // The gap before a typed character: at least this long after the previous key.
        Wait,
        // A prescribed pause (the page-load delay, the 1-second pauses); ends a typing step.
        Pause,
        // A field: typed or pasted by the "typeSpeed" read when the player reaches it.
        EnterString,
        // The floating warning shown while a login waits and types, and hidden.
        ShowWarning,
        HideWarning,
        // The floating password panel with text (shown, not typed).
        ShowFloatingPassword,
        // A hook of the built-in browser; text names it ("showAutoWarning", "setAutoLogin",
        // "pastePasswordFromTimer", "pasteNextPageFromTimer"), keyCode its integer argument.
        BuiltInBrowser,
    };
    Type type;
    int keyCode = 0;
    quint64 flags = 0;
    QString text;        // the character of a key event, the clipboard text, the field's text
    qint64 micros = 0;   // Wait, Pause
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
// pasteString: pause 1 s, put the text on the clipboard, press the paste key with Command.
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

// Plays one script at a time through a sink; waits run on timers.
class KeyScriptPlayer : public QObject {
    Q_OBJECT

public:
    explicit KeyScriptPlayer(KeySink *sink, QObject *parent = nullptr);
    ~KeyScriptPlayer() override;

    // The key code of "v" for pasted fields (default 9, its place on a US keyboard).
    void setPasteCode(int pasteCode) { m_pasteCode = pasteCode; }
    // Where a field's speed comes from when the player reaches it (default: "typeSpeed" of
    // gPrefs, through setTypeSpeed).
    void setTypeSpeedSource(std::function<qint64()> source) { m_typeSpeed = std::move(source); }

    // Starts the script. A script already playing is not touched: the new one is refused with
    // kBusy as the reason.
    // `startedAgoMicros`: how long ago the script's first pause began (a page-load delay
    // counts from the request to open the page, the browser's start included).
    bool play(const KeyScript &script, QString *whyNot = nullptr, qint64 startedAgoMicros = 0);
    // Stops at once: no further key is sent, every key the script holds down goes up, and
    // Caps Lock and the keymap are put back. Emits cancelled() if a script was playing.
    void cancel();
    bool isPlaying() const { return m_playing; }

    static const QString kBusy;
    // How long a step waits for the user to let go of every key (a hot key's included).
    static constexpr int kReleaseTimeoutMs = 2000;

Q_SIGNALS:
    void finished();
    // The script stopped before its end (or never started): the reason, for the user.
    void failed(const QString &reason);
    void cancelled();
    // ShowWarning, HideWarning, ShowFloatingPassword and BuiltInBrowser, when reached.
    void notice(const tess::KeyAction &action);

private:
    enum class Phase { Idle, Releasing, Settling, InStep };
    void step();
    // At a pause: lets the sink get the next typing step's keys ready while the pause runs.
    void prepareAhead();
    bool beginTypingStep();
    void endTypingStep();
    void fail(const QString &reason);
    void stop();
    void schedule(qint64 micros);
    qint64 nowMicros() const;
    // Expands the fields up to the end of the typing step that starts at from; answers its end.
    qsizetype typingStepEnd(qsizetype from);
    QStringView upcomingCharacters() const;

    KeySink *m_sink;
    int m_pasteCode = 9;
    std::function<qint64()> m_typeSpeed;
    KeyScript m_script;
    qsizetype m_next = 0;
    bool m_playing = false;
    qint64 m_headStartMicros = 0; // taken off the first pause
    bool m_announcedWhileHeld = false; // the step's keys got ready while the user held keys
    Phase m_phase = Phase::Idle;
    qsizetype m_stepEnd = 0;
    QString m_stepCharacters; // the characters of the step being typed
    qsizetype m_stepTyped = 0; // how many of them have gone out
    QElapsedTimer m_clock;
    qint64 m_lastKeyMicros = 0;   // when the last key went out
    qint64 m_pauseUntilMicros = 0;
    QElapsedTimer m_waitingForRelease;
    QTimer *m_timer;
};

} // namespace tess
