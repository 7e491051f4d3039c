#pragma once
// Where synthetic keystrokes go: the X server through XTest in the application, a recording
// in the tests.

#include <QString>

namespace tess {

class KeySink {
public:
    virtual ~KeySink() = default;
    // One key event. keyCode is a virtual key code; flags a Cocoa modifier mask (only on
    // key-downs); unicode, when not empty, is the character the event carries (one UTF-16 unit).
    virtual void keyEvent(int keyCode, quint64 flags, bool down, const QString &unicode) = 0;
    // Puts text on the clipboard, marked as a secret for clipboard managers.
    virtual void setClipboard(const QString &text) = 0;

    // Before a script plays: why typing cannot start now (the user still holds a modifier),
    // or an empty string when it can.
    virtual QString notReadyReason() { return {}; }
    // Gets ready for the script's characters; answers how long to let the change settle
    // before the first key, in microseconds.
    virtual qint64 prepare(const QString &characters) { Q_UNUSED(characters); return 0; }
    // The script is done: put back whatever prepare changed.
    virtual void finish() {}
};

} // namespace tess
