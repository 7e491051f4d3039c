#pragma once
// The shortcut recorder's behaviour, without drawing: recording a key combination from key
// events, filtering its modifiers, the cancel keys, the clear and snap-back buttons, the
// recording transition, and keeping the combination in the settings under
// "ShortcutRecorder <autosave name>". The widget (ui/ShortcutRecorder) feeds it events and
// draws what it says.

#include "core/shortcuts/KeyNames.h"
#include "core/shortcuts/SRValidator.h"

#include <QObject>
#include <QSet>
#include <QTimer>
#include <QVariantMap>

#include <functional>

namespace tess {

class SRRecorderCell : public QObject, public SRValidatorDelegate {
    Q_OBJECT

public:
    explicit SRRecorderCell(QObject *parent = nullptr);
    ~SRRecorderCell() override;

    static constexpr quint64 kDefaultAllowedFlags = 0x9E0000;
    // One transition tick, and what each adds to its progress: 11 ticks, about 0.37 s.
    static constexpr int kTickMs = 1000 / 30;
    static constexpr double kTickProgress = 2.0 / 21.0;

    KeyCombo keyCombo() const { return m_keyCombo; }
    void setKeyCombo(KeyCombo combo);
    quint64 allowedFlags() const { return m_allowedFlags; }
    void setAllowedFlags(quint64 flags);
    quint64 requiredFlags() const { return m_requiredFlags; }
    void setRequiredFlags(quint64 flags);
    bool allowsKeyOnly() const { return m_allowsKeyOnly; }
    bool escapeKeysRecord() const { return m_escapeKeysRecord; }
    void setAllowsKeyOnly(bool allows) { setAllowsKeyOnly(allows, m_escapeKeysRecord); }
    void setEscapeKeysRecord(bool records) { m_escapeKeysRecord = records; }
    void setAllowsKeyOnly(bool allows, bool escapeKeysRecord);
    bool canCaptureGlobalHotKeys() const { return m_globalHotKeys; }
    void setCanCaptureGlobalHotKeys(bool can) { m_globalHotKeys = can; }
    QString autosaveName() const { return m_autosaveName; }
    void setAutosaveName(const QString &name);
    bool animates() const { return m_isAnimating; }
    void setAnimates(bool animates) { m_isAnimating = animates; }
    int style() const { return m_style; }
    void setStyle(int style) { m_style = style; }
    bool isEnabled() const { return m_enabled; }
    void setEnabled(bool enabled) { m_enabled = enabled; }
    QString keyChars() const { return m_hasKeyChars ? m_keyChars : QString(); }
    QString keyCharsIgnoringModifiers() const { return m_hasKeyChars ? m_keyCharsIgnoringModifiers : QString(); }
    // Null when empty, else the modifier symbols and the key name.
    QString keyComboString() const;
    // For bindings: "characters", "keyCode", "modifierFlags"; empty with no key or no modifiers.
    QVariantMap objectValue() const;
    void setObjectValue(const QVariantMap &value);

    bool isRecording() const { return m_isRecording; }
    bool isAnimatingNow() const { return m_isAnimatingNow; }
    bool isAnimatingTowardsRecording() const { return m_isAnimatingTowardsRecording; }
    double transitionProgress() const { return m_transitionProgress; }
    quint64 recordingFlags() const { return m_recordingFlags; }
    bool comboJustChanged() const { return m_comboJustChanged; }
    void setMouseInsideTrackingArea(bool inside);
    // The text shown: the combination, the held modifiers, or one of the prompts.
    QString displayText() const;

    // Events. flags are Cocoa masks of the modifiers held. Answers whether the event was used.
    bool performKeyEquivalent(int keyCode, quint64 flags, const QString &characters,
                              const QString &charactersIgnoringModifiers, bool isFirstResponder);
    void flagsChanged(quint64 flags);
    enum class MouseUp { InButton, InCell, Outside };
    // A click ended: in the clear button (snap-back while recording), elsewhere in the cell,
    // or outside it.
    void mouseReleased(MouseUp where);
    void resignFirstResponder();
    void startRecordingTransition();
    void endRecordingTransition();

    // Delegate hooks (optional): a taken-check of the owner's own, asked before the system's.
    std::function<bool(int keyCode, quint64 flags, QString *reason)> isKeyCodeAndFlagsTakenHook;
    // The platform: the critical alert, a beep, and system hot keys off (true) or back on.
    std::function<void(const SRError &)> showAlert;
    std::function<void()> beep;
    std::function<void(bool off)> setSystemHotKeysOff;
    // The modifiers held right now (re-read after the alert).
    std::function<quint64()> currentModifierFlags;

    SRValidator &validator() { return m_validator; }

    bool shortcutValidatorIsKeyCodeAndFlagsTaken(SRValidator *validator, int keyCode, quint64 flags, QString *reason) override;
    quint64 filteredCocoaFlags(quint64 flags) const;
    bool validModifierFlags(quint64 flags) const;
    bool isEmpty() const;

Q_SIGNALS:
    void keyComboDidChange(tess::KeyCombo combo);
    void needsDisplay();
    void recordingChanged(bool recording);

private:
    void startRecording();
    void endRecording();
    void startTransition(bool towardsRecording);
    void tick();
    void saveCombination();
    void loadCombination();
    QString defaultsKey() const;

    QString m_autosaveName;
    bool m_isRecording = false;
    bool m_mouseInsideTrackingArea = false;
    int m_style = 0;
    bool m_isAnimating = false;
    double m_transitionProgress = 0;
    bool m_isAnimatingNow = false;
    bool m_isAnimatingTowardsRecording = false;
    bool m_comboJustChanged = false;
    KeyCombo m_keyCombo;
    bool m_hasKeyChars = false;
    QString m_keyChars, m_keyCharsIgnoringModifiers;
    quint64 m_allowedFlags = kDefaultAllowedFlags;
    quint64 m_requiredFlags = 0;
    quint64 m_recordingFlags = 0;
    bool m_allowsKeyOnly = false;
    bool m_escapeKeysRecord = false;
    QSet<int> m_cancelCharacterSet{53, 51, 117};
    SRValidator m_validator{this};
    bool m_globalHotKeys = false;
    bool m_hotKeysOff = false;
    bool m_enabled = true;
    QTimer m_tick;
};

} // namespace tess
