#pragma once
// The preferences panel: shows the user-editable settings, and on OK writes them back in a
// fixed order and has the hot keys registered again. Cancel (or closing it) stores nothing.

#include <QDialog>
#include <QHash>
#include <QVariant>

#include <functional>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QSlider;
class QSpinBox;

namespace tess {

class ShortcutRecorder;

class PreferencesDialog : public QDialog {
    Q_OBJECT

public:
    explicit PreferencesDialog(QWidget *parent = nullptr);

    // preferences: fill the panel from the settings and run it; 1 for OK, 0 for Cancel.
    int runPreferences();
    void fillFromPreferences();
    // preferencesOK: end with 1 and store everything.
    void preferencesOK();
    // typeSwitchChanged: — `byUser` is the sender: a click sets the slider to its middle.
    void typeSwitchChanged(bool byUser);
    // controlTextDidChange: a delegated field keeps only the last key typed into it.
    void delegateTextField(QLineEdit *field);

    // Hot-key registration, supplied by whoever owns the hot keys; called around the change.
    std::function<void()> unRegisterHotKeys;
    std::function<void()> registerHotKeys;

    QCheckBox *checkForUpdatesSwitch;
    ShortcutRecorder *userIDHotKeyRecorder;
    ShortcutRecorder *passwordHotKeyRecorder;
    QSpinBox *waitForPageLoadDelay;
    QComboBox *generatedPasswordLength;
    QCheckBox *confirmDeleteSwitch;
    QCheckBox *hoverUserID;
    QCheckBox *hoverPassword;
    QCheckBox *hoverURL;
    QCheckBox *hoverNotes;
    QComboBox *passwordPromptPopup;
    QCheckBox *typeSwitch;
    QSlider *typeSpeedSlider;
    QLineEdit *defaultUserID;
    qint64 pageLoadDelay = 0;
    qint64 passwordLength = 0;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // Stores what a control says, unless the user left it as filled and another program
    // changed the setting meanwhile: that change is kept.
    void store(const QString &key, const QVariant &value);
    QVariantMap valuesShown() const;

    QVariantMap m_seen;  // the settings as they were when the panel was filled
    QVariantMap m_shown; // what the controls would store, as filled
    QList<QLineEdit *> m_delegated;
};

} // namespace tess
