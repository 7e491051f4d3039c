#pragma once
// Where synthetic keystrokes go: the X server through XTest in the application, a recording
// in the tests.

#include <QString>
#include <QStringView>

namespace tess {

class KeySink {
public:
    virtual ~KeySink() = default;
    // One key event. keyCode is a virtual key code; flags a Cocoa modifier mask (only on
    // key-downs); unicode, when not empty, is the character the event carries (one UTF-16 unit).
    virtual void keyEvent(int keyCode, quint64 flags, bool down, const QString &unicode) = 0;
    // Puts text on the clipboard, marked as a secret for clipboard managers.
    virtual void setClipboard(const QString &text) = 0;

    // Before a typing step: why typing cannot start now (a key still held down, the hot key's
    // own included), or an empty string when it can.
    virtual QString notReadyReason() { return {}; }
    // Gets ready for a typing step's characters (Caps Lock off, keys for characters the layout
    // lacks). Answers how long to let the change settle before the first key, in microseconds,
    // or a negative number when the step cannot be typed at all (failureReason() says why).
    virtual qint64 prepare(QStringView characters) { Q_UNUSED(characters); return 0; }
    // During a prescribed wait that a typing step follows, or while the step waits for the
    // user to let go of the hot key: makes ready ahead of the step what
    // has to settle before its first key (keys for characters the layout lacks), so that the
    // settling overlaps a wait that is spent anyway. Caps Lock and held keys are still the
    // step's own to see to in prepare(), which also does whatever could not be done here.
    virtual void prepareAhead(QStringView characters) { Q_UNUSED(characters); }
    // Before each typed character; upcoming is the rest of the step from that character on.
    // Answers 0 when it can go now, or how long to wait first (keys are being rebound for the
    // next batch of unusual characters); negative when it cannot be typed (failureReason()).
    virtual qint64 readyFor(QStringView upcoming) { Q_UNUSED(upcoming); return 0; }
    // The step is done: Caps Lock as it was at the step's start.
    virtual void finish() {}
    // Stops a step at once: every key it pressed goes up, Caps Lock and the keymap as before.
    virtual void cancel() { finish(); }
    // A broken connection or missing keyboard state: why keystrokes may not have arrived,
    // or an empty string.
    virtual QString failureReason() const { return {}; }
};

} // namespace tess
