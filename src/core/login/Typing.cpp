#include "Typing.h"

#include "core/app/QWPrefs.h"
#include "core/shortcuts/KeyNames.h"
#include "platform/KeySink.h"

#include <QTimer>

namespace tess {

qint64 typingDelayMicros(qint64 typeSpeed)
{
    return typeSpeed <= 99 ? (100 - typeSpeed) * 2500 : 0;
}

KeyScript doKeyboardEvent(int keyCode, quint64 flags)
{
    return {KeyAction{KeyAction::KeyDown, keyCode, flags, {}, 0}, KeyAction{KeyAction::KeyUp, keyCode, 0, {}, 0}};
}

KeyScript tab()
{
    return doKeyboardEvent(KeyCode::Tab, 0);
}

KeyScript nextPage()
{
    return doKeyboardEvent(KeyCode::Return, 0);
}

KeyScript typeString(const QString &text, qint64 typeSpeed)
{
    KeyScript s;
    const qint64 delay = typingDelayMicros(typeSpeed);
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (delay > 0)
            s.append({KeyAction::Wait, 0, 0, {}, delay});
        const QString unit(text.at(i));
        s.append({KeyAction::KeyDown, KeyCode::TypedCharacter, 0, unit, 0});
        s.append({KeyAction::KeyUp, KeyCode::TypedCharacter, 0, unit, 0});
    }
    return s;
}

KeyScript pasteString(const QString &text, int pasteCode)
{
    KeyScript s{{KeyAction::Wait, 0, 0, {}, 1000000}, {KeyAction::SetClipboard, 0, 0, text, 0}};
    s += doKeyboardEvent(pasteCode, kPasteFlags);
    return s;
}

KeyScript enterString(const QString &text, qint64 typeSpeed, int pasteCode)
{
    return typeSpeed != 0 ? typeString(text, typeSpeed) : pasteString(text, pasteCode);
}

qint64 theTypeSpeed = -1;

void setTypeSpeed()
{
    theTypeSpeed = gPrefs ? gPrefs->integerForKey(Pref::TypeSpeed) : 0;
}

KeyScript enterString(const QString &text, int pasteCode)
{
    setTypeSpeed();
    return enterString(text, theTypeSpeed, pasteCode);
}

KeyScript doTABs(const QString &kind, const Entry &entry)
{
    if (!plistBool(entry.value(QStringLiteral("website%1TabSwitch").arg(kind))))
        return {};
    const qint32 n = qint32(plistInteger(entry.value(QStringLiteral("website%1TabCount").arg(kind))));
    KeyScript s;
    // The stored count is the index of the Tab-count choice, whose first item is one Tab.
    for (qint32 i = 0; i <= n; ++i)
        s += tab();
    return s;
}

KeyScriptPlayer::KeyScriptPlayer(KeySink *sink, QObject *parent) : QObject(parent), m_sink(sink)
{
}

void KeyScriptPlayer::play(const KeyScript &script)
{
    if (isPlaying()) {
        m_script += script;
        return;
    }
    m_script = script;
    m_next = 0;
    m_waitingForRelease.start();
    start();
}

void KeyScriptPlayer::start()
{
    // Keys typed while the user still holds Ctrl or Alt of a hot key would become shortcuts.
    const QString reason = m_sink->notReadyReason();
    if (!reason.isEmpty()) {
        if (m_waitingForRelease.elapsed() < kReleaseTimeoutMs) {
            QTimer::singleShot(20, this, &KeyScriptPlayer::start);
            return;
        }
        m_script.clear();
        m_next = 0;
        Q_EMIT failed(reason);
        return;
    }
    QString characters;
    for (const KeyAction &a : std::as_const(m_script))
        if (a.type == KeyAction::KeyDown)
            characters += a.text;
    m_clock.start();
    m_deadlineMicros = m_sink->prepare(characters);
    if (m_deadlineMicros > 0) {
        QTimer::singleShot(int((m_deadlineMicros + 999) / 1000), Qt::PreciseTimer, this, &KeyScriptPlayer::step);
        return;
    }
    step();
}

void KeyScriptPlayer::step()
{
    while (m_next < m_script.size()) {
        const KeyAction &a = m_script[m_next++];
        switch (a.type) {
        case KeyAction::Wait: {
            // A timer, not a sleep: the clipboard must still be served and the desktop must
            // not see us as hung while a login is typed.
            m_deadlineMicros += a.micros;
            const qint64 remaining = m_deadlineMicros - m_clock.nsecsElapsed() / 1000;
            QTimer::singleShot(int(std::max<qint64>(0, (remaining + 999) / 1000)), Qt::PreciseTimer, this,
                               &KeyScriptPlayer::step);
            return;
        }
        case KeyAction::KeyDown:
        case KeyAction::KeyUp:
            m_sink->keyEvent(a.keyCode, a.flags, a.type == KeyAction::KeyDown, a.text);
            break;
        case KeyAction::SetClipboard:
            m_sink->setClipboard(a.text);
            break;
        }
    }
    m_script.clear();
    m_next = 0;
    m_sink->finish();
    Q_EMIT finished();
}

} // namespace tess
