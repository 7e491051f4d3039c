#include "Typing.h"

#include "core/app/QWPrefs.h"
#include "core/shortcuts/KeyNames.h"
#include "platform/KeySink.h"

#include <QTimer>

#include <utility>

namespace tess {

namespace {
// The actions a typing step is made of (besides fields, which turn into them).
bool withinTypingStep(KeyAction::Type type)
{
    return type == KeyAction::KeyDown || type == KeyAction::KeyUp || type == KeyAction::SetClipboard ||
           type == KeyAction::Wait;
}
} // namespace

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
    KeyScript s{{KeyAction::Pause, 0, 0, {}, 1000000}, {KeyAction::SetClipboard, 0, 0, text, 0}};
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

const QString KeyScriptPlayer::kBusy = QStringLiteral("A login is already being typed; wait for it to end.");

KeyScriptPlayer::KeyScriptPlayer(KeySink *sink, QObject *parent) : QObject(parent), m_sink(sink), m_timer(new QTimer(this))
{
    m_timer->setSingleShot(true);
    m_timer->setTimerType(Qt::PreciseTimer);
    connect(m_timer, &QTimer::timeout, this, &KeyScriptPlayer::step);
    m_typeSpeed = [] {
        setTypeSpeed();
        return theTypeSpeed;
    };
}

KeyScriptPlayer::~KeyScriptPlayer()
{
    if (m_playing)
        m_sink->cancel();
}

bool KeyScriptPlayer::play(const KeyScript &script, QString *whyNot, qint64 startedAgoMicros)
{
    // Appending to a running script would skip the preparation of its keys.
    if (m_playing) {
        if (whyNot)
            *whyNot = kBusy;
        return false;
    }
    m_script = script;
    m_next = 0;
    m_playing = true;
    m_phase = Phase::Idle;
    m_clock.start();
    m_lastKeyMicros = 0;
    m_headStartMicros = std::max<qint64>(0, startedAgoMicros);
    step();
    return true;
}

void KeyScriptPlayer::cancel()
{
    if (!m_playing)
        return;
    m_sink->cancel();
    stop();
    Q_EMIT cancelled();
}

void KeyScriptPlayer::stop()
{
    m_timer->stop();
    m_script.clear();
    m_next = 0;
    m_phase = Phase::Idle;
    m_playing = false;
}

void KeyScriptPlayer::fail(const QString &reason)
{
    m_sink->cancel();
    stop();
    Q_EMIT failed(reason);
}

void KeyScriptPlayer::schedule(qint64 micros)
{
    // Whole milliseconds, rounded up: every wait is a minimum.
    m_timer->start(int(std::max<qint64>(0, (micros + 999) / 1000)));
}

qint64 KeyScriptPlayer::nowMicros() const
{
    return m_clock.nsecsElapsed() / 1000;
}

qsizetype KeyScriptPlayer::typingStepEnd(qsizetype from)
{
    // Fields are turned into keys as the step reaches them: the speed is read at the field.
    qsizetype i = from;
    while (i < m_script.size()) {
        const KeyAction &a = m_script[i];
        if (a.type == KeyAction::EnterString) {
            // One splice: inserting key by key would move the rest of the script per key.
            const KeyScript keys = enterString(a.text, m_typeSpeed(), m_pasteCode);
            KeyScript expanded;
            expanded.reserve(m_script.size() - 1 + keys.size());
            expanded.append(m_script.sliced(0, i));
            expanded.append(keys);
            expanded.append(m_script.sliced(i + 1));
            m_script = std::move(expanded);
            continue;
        }
        if (!withinTypingStep(a.type))
            break;
        ++i;
    }
    return i;
}

QStringView KeyScriptPlayer::upcomingCharacters() const
{
    return QStringView(m_stepCharacters).mid(m_stepTyped);
}

void KeyScriptPlayer::prepareAhead()
{
    // The characters of the typing step that follows the pause, fields by the speed read now:
    // a pasted field (speed 0) types no characters. The step reads the speed again.
    QString characters;
    for (qsizetype i = m_next; i < m_script.size(); ++i) {
        const KeyAction &a = m_script[i];
        if (a.type == KeyAction::EnterString) {
            if (m_typeSpeed() != 0)
                characters += a.text;
        } else if (!withinTypingStep(a.type)) {
            break;
        } else if (a.type == KeyAction::KeyDown) {
            characters += a.text;
        }
    }
    if (!characters.isEmpty())
        m_sink->prepareAhead(characters);
}

bool KeyScriptPlayer::beginTypingStep()
{
    switch (m_phase) {
    case Phase::InStep:
        return true;
    case Phase::Idle:
        m_waitingForRelease.start();
        m_stepEnd = typingStepEnd(m_next);
        // The step's characters, gathered once: the sink is shown the rest of them before
        // each character, as a view from the next one on.
        m_stepCharacters.clear();
        m_stepTyped = 0;
        for (qsizetype i = m_next; i < m_stepEnd; ++i)
            if (m_script[i].type == KeyAction::KeyDown)
                m_stepCharacters += m_script[i].text;
        m_phase = Phase::Releasing;
        m_announcedWhileHeld = false;
        [[fallthrough]];
    case Phase::Releasing: {
        // Keys typed while the user still holds the hot key (or its Ctrl, Alt) would become
        // shortcuts or go to us under the hot key's grab.
        const QString reason = m_sink->notReadyReason();
        if (!reason.isEmpty()) {
            if (m_waitingForRelease.elapsed() < kReleaseTimeoutMs) {
                // Meanwhile the step's keys can be got ready, as during a pause.
                if (!std::exchange(m_announcedWhileHeld, true) && !upcomingCharacters().isEmpty())
                    m_sink->prepareAhead(upcomingCharacters());
                schedule(20000);
            } else
                fail(reason);
            return false;
        }
        const qint64 settle = m_sink->prepare(upcomingCharacters());
        if (settle < 0) {
            fail(m_sink->failureReason());
            return false;
        }
        m_phase = Phase::Settling;
        if (settle > 0) {
            schedule(settle);
            return false;
        }
        [[fallthrough]];
    }
    case Phase::Settling:
        m_phase = Phase::InStep;
        m_lastKeyMicros = std::max(m_lastKeyMicros, nowMicros());
        return true;
    }
    return true;
}

void KeyScriptPlayer::endTypingStep()
{
    if (m_phase == Phase::InStep || m_phase == Phase::Settling)
        m_sink->finish();
    m_phase = Phase::Idle;
}

void KeyScriptPlayer::step()
{
    while (m_next < m_script.size()) {
        const KeyAction a = m_script[m_next];
        switch (a.type) {
        case KeyAction::EnterString:
            typingStepEnd(m_next); // turns the field into its keys, read at this moment
            continue;
        case KeyAction::Wait: {
            m_headStartMicros = 0;
            if (!beginTypingStep())
                return;
            // A minimum gap since the last key: after a stall the next characters do not go
            // out back to back to catch up.
            const qint64 due = m_lastKeyMicros + a.micros;
            ++m_next;
            const qint64 now = nowMicros();
            if (due > now) {
                schedule(due - now);
                return;
            }
            break;
        }
        case KeyAction::Pause: {
            endTypingStep();
            ++m_next;
            const qint64 pause = std::max<qint64>(0, a.micros - std::exchange(m_headStartMicros, 0));
            m_lastKeyMicros = nowMicros() + pause;
            if (pause > 0) {
                schedule(pause); // first: the pause runs from here, however long getting ready takes
                prepareAhead();
                return;
            }
            break;
        }
        case KeyAction::KeyDown:
        case KeyAction::KeyUp:
        case KeyAction::SetClipboard:
            m_headStartMicros = 0; // only a pause before any typing begins early
            if (!beginTypingStep())
                return;
            if (a.type == KeyAction::KeyDown && !a.text.isEmpty()) {
                const qint64 wait = m_sink->readyFor(upcomingCharacters());
                if (wait < 0) {
                    fail(m_sink->failureReason());
                    return;
                }
                if (wait > 0) {
                    schedule(wait);
                    return;
                }
            }
            ++m_next;
            if (a.type == KeyAction::KeyDown)
                m_stepTyped += a.text.size();
            if (a.type == KeyAction::SetClipboard)
                m_sink->setClipboard(a.text);
            else
                m_sink->keyEvent(a.keyCode, a.flags, a.type == KeyAction::KeyDown, a.text);
            m_lastKeyMicros = nowMicros();
            if (const QString broken = m_sink->failureReason(); !broken.isEmpty()) {
                fail(broken);
                return;
            }
            break;
        case KeyAction::ShowWarning:
        case KeyAction::HideWarning:
        case KeyAction::ShowFloatingPassword:
        case KeyAction::BuiltInBrowser:
            endTypingStep();
            ++m_next;
            Q_EMIT notice(a);
            if (!m_playing)
                return; // cancelled by a receiver
            break;
        }
    }
    endTypingStep();
    const QString broken = m_sink->failureReason();
    stop();
    if (!broken.isEmpty())
        Q_EMIT failed(broken);
    else
        Q_EMIT finished();
}

} // namespace tess
