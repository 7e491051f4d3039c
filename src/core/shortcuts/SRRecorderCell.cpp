#include "SRRecorderCell.h"

#include "core/app/QWPrefs.h"

namespace tess {

namespace {
constexpr quint64 kModifierBits[] = {CocoaMask::Command, CocoaMask::Option, CocoaMask::Control, CocoaMask::Shift,
                                     CocoaMask::Function};
constexpr quint64 kValidModifiers = 0x1E0000; // Shift, Control, Option, Command
} // namespace

SRRecorderCell::SRRecorderCell(QObject *parent) : QObject(parent)
{
    m_tick.setSingleShot(true);
    m_tick.setInterval(kTickMs);
    m_tick.setTimerType(Qt::PreciseTimer);
    connect(&m_tick, &QTimer::timeout, this, &SRRecorderCell::tick);
}

SRRecorderCell::~SRRecorderCell()
{
    if (m_hotKeysOff && setSystemHotKeysOff)
        setSystemHotKeysOff(false);
}

quint64 SRRecorderCell::filteredCocoaFlags(quint64 flags) const
{
    quint64 filtered = 0;
    for (quint64 bit : kModifierBits)
        if ((m_requiredFlags & bit) || ((flags & bit) && (m_allowedFlags & bit)))
            filtered |= bit;
    return filtered;
}

bool SRRecorderCell::validModifierFlags(quint64 flags) const
{
    return m_allowsKeyOnly || (flags & kValidModifiers) || (flags & CocoaMask::Function);
}

bool SRRecorderCell::isEmpty() const
{
    return !validModifierFlags(m_keyCombo.flags) || SRStringForKeyCode(int(m_keyCombo.code)).isEmpty();
}

QString SRRecorderCell::keyComboString() const
{
    if (isEmpty())
        return {};
    return SRStringForCocoaModifierFlagsAndKeyCode(m_keyCombo.flags, int(m_keyCombo.code));
}

QVariantMap SRRecorderCell::objectValue() const
{
    if (m_keyCombo.code == -1 || m_keyCombo.flags == 0)
        return {};
    return {{QStringLiteral("characters"), keyCharsIgnoringModifiers()},
            {QStringLiteral("keyCode"), m_keyCombo.code},
            {QStringLiteral("modifierFlags"), m_keyCombo.flags}};
}

void SRRecorderCell::setObjectValue(const QVariantMap &value)
{
    if (value.isEmpty()) {
        setKeyCombo({0, -1});
        return;
    }
    setKeyCombo({value.value(QStringLiteral("modifierFlags")).toULongLong(),
                 value.value(QStringLiteral("keyCode"), -1).toLongLong()});
}

void SRRecorderCell::setKeyCombo(KeyCombo combo)
{
    m_keyCombo = {filteredCocoaFlags(combo.flags), combo.code};
    m_hasKeyChars = false;
    Q_EMIT keyComboDidChange(m_keyCombo);
    saveCombination();
    Q_EMIT needsDisplay();
}

void SRRecorderCell::setAllowedFlags(quint64 flags)
{
    m_allowedFlags = flags;
    if (m_isRecording) {
        m_recordingFlags = filteredCocoaFlags(m_recordingFlags);
        Q_EMIT needsDisplay();
        return;
    }
    const quint64 updated = filteredCocoaFlags(m_keyCombo.flags);
    if (updated != m_keyCombo.flags && m_keyCombo.code != -1) {
        m_keyCombo.flags = updated;
        Q_EMIT keyComboDidChange(m_keyCombo);
        saveCombination();
    }
    Q_EMIT needsDisplay();
}

void SRRecorderCell::setRequiredFlags(quint64 flags)
{
    m_requiredFlags = flags;
    setAllowedFlags(m_allowedFlags); // the same re-filtering
}

void SRRecorderCell::setAllowsKeyOnly(bool allows, bool escapeKeysRecord)
{
    m_allowsKeyOnly = allows;
    m_escapeKeysRecord = escapeKeysRecord;
}

void SRRecorderCell::setAutosaveName(const QString &name)
{
    if (name == m_autosaveName)
        return;
    m_autosaveName = name;
    loadCombination();
}

void SRRecorderCell::setMouseInsideTrackingArea(bool inside)
{
    if (inside == m_mouseInsideTrackingArea)
        return;
    m_mouseInsideTrackingArea = inside;
    Q_EMIT needsDisplay();
}

QString SRRecorderCell::displayText() const
{
    if (m_isRecording) {
        if (!validModifierFlags(m_recordingFlags) || SRStringForCocoaModifierFlags(m_recordingFlags).isEmpty())
            return SRLocalizedString(m_mouseInsideTrackingArea ? QStringLiteral("Use old hotkey") : QStringLiteral("Type hotkey"));
        return SRStringForCocoaModifierFlags(m_recordingFlags);
    }
    const QString combo = keyComboString();
    return combo.isEmpty() ? SRLocalizedString(QStringLiteral("Click to record hotkey")) : combo;
}

bool SRRecorderCell::performKeyEquivalent(int keyCode, quint64 flags, const QString &characters,
                                          const QString &charactersIgnoringModifiers, bool isFirstResponder)
{
    const quint64 filtered = filteredCocoaFlags(flags);
    const bool cancel = m_cancelCharacterSet.contains(keyCode);
    const bool valid = validModifierFlags(cancel ? flags : filtered);

    if (!m_isRecording) {
        if (keyCode == 49) {
            startRecordingTransition();
            return true;
        }
        if (isFirstResponder && characters.startsWith(u' ') && m_enabled)
            startRecordingTransition();
        return false;
    }
    if (!valid && !cancel)
        return false; // recording goes on until a combination with modifiers comes

    const bool onlyFunctionHeld = (flags & kValidModifiers) == 0;
    if ((cancel && !valid) || (cancel && m_allowsKeyOnly && onlyFunctionHeld && !m_escapeKeysRecord)) {
        // Cancelled: the combination stays as it was.
    } else if (charactersIgnoringModifiers.toUpper().isEmpty()) {
        if (beep)
            beep();
    } else {
        SRError error;
        if (m_validator.isKeyCodeAndFlagsTaken(keyCode, SRCocoaToCarbonFlags(filtered), &error)) {
            if (showAlert)
                showAlert(error);
            // The modifiers may have changed while the alert was up.
            flagsChanged(currentModifierFlags ? currentModifierFlags() : 0);
            return true;
        }
        m_keyCombo = {filtered, keyCode};
        m_hasKeyChars = true;
        m_keyChars = characters;
        m_keyCharsIgnoringModifiers = charactersIgnoringModifiers;
        Q_EMIT keyComboDidChange(m_keyCombo);
        saveCombination();
        m_comboJustChanged = true;
    }
    m_recordingFlags = 0;
    endRecordingTransition();
    Q_EMIT needsDisplay();
    return true;
}

void SRRecorderCell::flagsChanged(quint64 flags)
{
    if (!m_isRecording)
        return;
    m_recordingFlags = filteredCocoaFlags(flags);
    Q_EMIT needsDisplay();
}

void SRRecorderCell::mouseReleased(MouseUp where)
{
    if (where == MouseUp::InButton) {
        if (m_isRecording)
            endRecordingTransition(); // snap back to the old combination
        else
            setKeyCombo({0, -1});
    } else if (where == MouseUp::InCell && !m_isRecording && m_enabled) {
        startRecordingTransition();
    }
}

void SRRecorderCell::resignFirstResponder()
{
    if (m_isRecording || (m_isAnimatingNow && m_isAnimatingTowardsRecording)) {
        m_tick.stop();
        m_isAnimatingNow = false;
        m_transitionProgress = 0;
        if (m_isRecording)
            endRecording();
    }
}

void SRRecorderCell::startRecordingTransition()
{
    if (m_isAnimating && m_style == 1)
        startTransition(true);
    else
        startRecording();
}

void SRRecorderCell::endRecordingTransition()
{
    if (m_isAnimating && m_style == 1)
        startTransition(false);
    else
        endRecording();
}

void SRRecorderCell::startTransition(bool towardsRecording)
{
    m_isAnimatingNow = true;
    m_isAnimatingTowardsRecording = towardsRecording;
    m_transitionProgress = 0;
    m_tick.stop();
    m_tick.start();
}

void SRRecorderCell::tick()
{
    m_transitionProgress += kTickProgress;
    Q_EMIT needsDisplay();
    if (m_transitionProgress >= 0.998) {
        m_isAnimatingNow = false;
        m_transitionProgress = 0;
        if (m_isAnimatingTowardsRecording)
            startRecording();
        else
            endRecording();
        return;
    }
    m_tick.start();
}

void SRRecorderCell::startRecording()
{
    m_isRecording = true;
    m_recordingFlags = filteredCocoaFlags(currentModifierFlags ? currentModifierFlags() : 0);
    if (m_globalHotKeys && setSystemHotKeysOff && !m_hotKeysOff) {
        setSystemHotKeysOff(true);
        m_hotKeysOff = true;
    }
    Q_EMIT recordingChanged(true);
    Q_EMIT needsDisplay();
}

void SRRecorderCell::endRecording()
{
    m_isRecording = false;
    m_comboJustChanged = false;
    m_recordingFlags = 0;
    if (m_hotKeysOff) {
        m_hotKeysOff = false;
        if (setSystemHotKeysOff)
            setSystemHotKeysOff(false);
    }
    Q_EMIT recordingChanged(false);
    Q_EMIT needsDisplay();
}

bool SRRecorderCell::shortcutValidatorIsKeyCodeAndFlagsTaken(SRValidator *, int keyCode, quint64 flags, QString *reason)
{
    return isKeyCodeAndFlagsTakenHook && isKeyCodeAndFlagsTakenHook(keyCode, flags, reason);
}

QString SRRecorderCell::defaultsKey() const
{
    return QStringLiteral("ShortcutRecorder %1").arg(m_autosaveName);
}

void SRRecorderCell::saveCombination()
{
    if (m_autosaveName.isEmpty() || !gPrefs)
        return;
    QVariantMap values{{QStringLiteral("keyCode"), qint64(qint16(m_keyCombo.code))},
                       {QStringLiteral("modifierFlags"), qint64(m_keyCombo.flags)},
                       {QStringLiteral("modifiers"), qint64(SRCocoaToCarbonFlags(m_keyCombo.flags))}};
    if (m_hasKeyChars) {
        values.insert(QStringLiteral("keyChars"), m_keyChars);
        values.insert(QStringLiteral("keyCharsIgnoringModifiers"), m_keyCharsIgnoringModifiers);
    }
    gPrefs->setObject(values, defaultsKey());
    gPrefs->synchronize();
}

void SRRecorderCell::loadCombination()
{
    if (m_autosaveName.isEmpty() || !gPrefs)
        return;
    const QVariantMap values = gPrefs->objectForKey(defaultsKey()).toMap();
    if (values.isEmpty())
        return;
    quint64 flags = 0;
    if (values.contains(QStringLiteral("modifierFlags")))
        flags = values.value(QStringLiteral("modifierFlags")).toULongLong();
    else
        flags = SRCarbonToCocoaFlags(quint32(values.value(QStringLiteral("modifiers")).toULongLong()));
    m_keyCombo = {filteredCocoaFlags(flags), qint64(qint16(values.value(QStringLiteral("keyCode"), -1).toInt()))};
    m_hasKeyChars = values.contains(QStringLiteral("keyChars"));
    m_keyChars = values.value(QStringLiteral("keyChars")).toString();
    m_keyCharsIgnoringModifiers = values.value(QStringLiteral("keyCharsIgnoringModifiers")).toString();
    Q_EMIT keyComboDidChange(m_keyCombo);
    Q_EMIT needsDisplay();
}

} // namespace tess
