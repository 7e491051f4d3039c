#include "PreferencesDialog.h"

#include "core/app/QWPrefs.h"
#include "core/shortcuts/KeyNames.h"
#include "ui/Help.h"
#include "ui/ShortcutRecorder.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>

namespace tess {

namespace {

// Selects the item with this tag; a stored value the list does not offer gets an item of its
// own, so that OK keeps it.
void selectItemWithTag(QComboBox *popup, qint64 tag, const std::function<QString(qint64)> &title)
{
    int index = popup->findData(tag);
    if (index < 0) {
        popup->addItem(title(tag), tag);
        index = popup->count() - 1;
    }
    popup->setCurrentIndex(index);
}

QString promptTitle(qint64 tag)
{
    if (tag <= 0)
        return QStringLiteral("Never");
    if (tag == 1)
        return QStringLiteral("Immediately");
    if (tag == 2)
        return QStringLiteral("After 1 minute");
    return QStringLiteral("After %1 minutes").arg(tag - 1);
}

} // namespace

PreferencesDialog::PreferencesDialog(QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("preferencesPanel"));
    setWindowTitle(QStringLiteral("Preferences"));
    setModal(true);

    checkForUpdatesSwitch = new QCheckBox(QStringLiteral("Check for updates automatically"));
    // Updates come from the package manager here; the setting is kept, not offered.
    checkForUpdatesSwitch->setVisible(false);
    userIDHotKeyRecorder = new ShortcutRecorder(QString(), this);
    userIDHotKeyRecorder->setObjectName(QStringLiteral("userIDHotKeyRecorder"));
    passwordHotKeyRecorder = new ShortcutRecorder(QString(), this);
    passwordHotKeyRecorder->setObjectName(QStringLiteral("passwordHotKeyRecorder"));
    waitForPageLoadDelay = new QSpinBox;
    waitForPageLoadDelay->setRange(0, 600);
    waitForPageLoadDelay->setSuffix(QStringLiteral(" s"));
    generatedPasswordLength = new QComboBox;
    for (int length : {8, 12, 16, 20, 24, 32, 48, 64})
        generatedPasswordLength->addItem(QString::number(length), qint64(length));
    confirmDeleteSwitch = new QCheckBox(QStringLiteral("Ask before deleting entries"));
    hoverUserID = new QCheckBox(QStringLiteral("User IDs"));
    hoverPassword = new QCheckBox(QStringLiteral("Password"));
    hoverURL = new QCheckBox(QStringLiteral("Website address"));
    hoverNotes = new QCheckBox(QStringLiteral("Notes"));
    passwordPromptPopup = new QComboBox;
    for (qint64 tag : {0, 1, 2, 6, 16, 31, 61})
        passwordPromptPopup->addItem(promptTitle(tag), tag);
    typeSwitch = new QCheckBox(QStringLiteral("Type user IDs and passwords (off: paste them)"));
    typeSpeedSlider = new QSlider(Qt::Horizontal);
    typeSpeedSlider->setRange(1, 100);
    typeSpeedSlider->setToolTip(QStringLiteral("Slow to fast"));
    defaultUserID = new QLineEdit;
    defaultUserID->setPlaceholderText(QStringLiteral("given to new entries"));

    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("Type user ID hot key:"), userIDHotKeyRecorder);
    form->addRow(QStringLiteral("Type password hot key:"), passwordHotKeyRecorder);
    form->addRow(QString(), typeSwitch);
    form->addRow(QStringLiteral("Typing speed:"), typeSpeedSlider);
    form->addRow(QStringLiteral("Wait for page to load:"), waitForPageLoadDelay);
    form->addRow(QStringLiteral("Default user ID:"), defaultUserID);
    form->addRow(QStringLiteral("Generated password length:"), generatedPasswordLength);
    form->addRow(QStringLiteral("Ask for the file password again:"), passwordPromptPopup);
    form->addRow(QStringLiteral("Entry tool tips show:"), hoverUserID);
    for (QCheckBox *box : {hoverPassword, hoverURL, hoverNotes})
        form->addRow(QString(), box);
    form->addRow(QString(), confirmDeleteSwitch);
    form->addRow(QString(), checkForUpdatesSwitch);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    buttons->addButton(helpButton(HelpAnchor::Preferences), QDialogButtonBox::HelpRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &PreferencesDialog::preferencesOK);
    connect(buttons, &QDialogButtonBox::rejected, this, [this] { done(0); });
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);

    connect(typeSwitch, &QCheckBox::clicked, this, [this] { typeSwitchChanged(true); });
}

void PreferencesDialog::fillFromPreferences()
{
    m_seen = gPrefs->prefsMutableDictionary();
    checkForUpdatesSwitch->setChecked(gPrefs->boolForKey(Pref::SUEnableAutomaticChecks));
    userIDHotKeyRecorder->setKeyCombo(SRCarbonToCocoaFlags(quint32(gPrefs->integerForKey(Pref::HotkeyUserIDModifierFlags))),
                                      gPrefs->integerForKey(Pref::HotkeyCodeUserID));
    passwordHotKeyRecorder->setKeyCombo(SRCarbonToCocoaFlags(quint32(gPrefs->integerForKey(Pref::HotkeyPasswordModifierFlags))),
                                        gPrefs->integerForKey(Pref::HotkeyCodePassword));
    const QString userID = gPrefs->objectForKey(Pref::DefaultUserID).toString();
    if (!userID.isEmpty())
        defaultUserID->setText(userID);
    const qint64 delay = gPrefs->integerForKey(Pref::BrowserPageLoadDelay);
    pageLoadDelay = delay == 0 ? 10 : delay;
    waitForPageLoadDelay->setMaximum(std::max<int>(600, int(pageLoadDelay)));
    waitForPageLoadDelay->setValue(int(pageLoadDelay));
    const qint64 speed = gPrefs->integerForKey(Pref::TypeSpeed);
    typeSpeedSlider->setValue(int(speed));
    typeSwitch->setChecked(speed != 0);
    typeSwitchChanged(false);
    passwordLength = gPrefs->integerForKey(Pref::GeneratedPasswordLength);
    selectItemWithTag(generatedPasswordLength, passwordLength, [](qint64 n) { return QString::number(n); });
    selectItemWithTag(passwordPromptPopup, gPrefs->integerForKey(Pref::PasswordPrompt), promptTitle);
    hoverUserID->setChecked(gPrefs->boolForKey(Pref::HoverUserID));
    hoverPassword->setChecked(gPrefs->boolForKey(Pref::HoverPassword));
    hoverURL->setChecked(gPrefs->boolForKey(Pref::HoverURL));
    hoverNotes->setChecked(gPrefs->boolForKey(Pref::HoverNotes));
    confirmDeleteSwitch->setChecked(gPrefs->boolForKey(Pref::ConfirmDelete));
    m_shown = valuesShown();
}

int PreferencesDialog::runPreferences()
{
    fillFromPreferences();
    return exec();
}

QVariantMap PreferencesDialog::valuesShown() const
{
    const KeyCombo user = userIDHotKeyRecorder->keyCombo(), password = passwordHotKeyRecorder->keyCombo();
    return {
        {Pref::SUEnableAutomaticChecks, checkForUpdatesSwitch->isChecked()},
        {Pref::HotkeyCodeUserID, qint64(user.code)},
        {Pref::HotkeyUserIDModifierFlags, qint64(SRCocoaToCarbonFlags(user.flags))},
        {Pref::HotkeyCodePassword, qint64(password.code)},
        {Pref::HotkeyPasswordModifierFlags, qint64(SRCocoaToCarbonFlags(password.flags))},
        {Pref::DefaultUserID, defaultUserID->text()},
        {Pref::TypeSpeed, qint64(typeSwitch->isChecked() ? typeSpeedSlider->value() : 0)},
        {Pref::BrowserPageLoadDelay, qint64(waitForPageLoadDelay->value())},
        {Pref::GeneratedPasswordLength, generatedPasswordLength->currentData().toLongLong()},
        {Pref::PasswordPrompt, passwordPromptPopup->currentData().toLongLong()},
        {Pref::HoverUserID, hoverUserID->isChecked()},
        {Pref::HoverPassword, hoverPassword->isChecked()},
        {Pref::HoverURL, hoverURL->isChecked()},
        {Pref::HoverNotes, hoverNotes->isChecked()},
        {Pref::ConfirmDelete, confirmDeleteSwitch->isChecked()},
    };
}

void PreferencesDialog::store(const QString &key, const QVariant &value)
{
    const QVariant now = gPrefs->objectForKey(key);
    if (value == m_shown.value(key) && now != m_seen.value(key))
        return;
    if (value.typeId() == QMetaType::Bool)
        gPrefs->setBool(value.toBool(), key);
    else if (value.typeId() == QMetaType::QString)
        gPrefs->setObject(value, key);
    else
        gPrefs->setInteger(value.toLongLong(), key);
}

void PreferencesDialog::preferencesOK()
{
    done(1);
    const QVariantMap v = valuesShown();
    for (const QString &key : {Pref::SUEnableAutomaticChecks, Pref::HotkeyCodeUserID, Pref::HotkeyUserIDModifierFlags,
                               Pref::HotkeyCodePassword, Pref::HotkeyPasswordModifierFlags, Pref::DefaultUserID,
                               Pref::TypeSpeed, Pref::BrowserPageLoadDelay, Pref::GeneratedPasswordLength})
        store(key, v.value(key));
    // The new combinations take effect at once.
    if (unRegisterHotKeys)
        unRegisterHotKeys();
    if (registerHotKeys)
        registerHotKeys();
    for (const QString &key : {Pref::PasswordPrompt, Pref::HoverUserID, Pref::HoverPassword, Pref::HoverURL,
                               Pref::HoverNotes, Pref::ConfirmDelete})
        store(key, v.value(key));
    gPrefs->synchronize();
}

void PreferencesDialog::typeSwitchChanged(bool byUser)
{
    const bool on = typeSwitch->isChecked();
    typeSpeedSlider->setEnabled(on);
    if (on && byUser)
        typeSpeedSlider->setValue(50);
}

void PreferencesDialog::delegateTextField(QLineEdit *field)
{
    m_delegated.append(field);
    field->installEventFilter(this);
}

bool PreferencesDialog::eventFilter(QObject *watched, QEvent *event)
{
    auto *field = qobject_cast<QLineEdit *>(watched);
    if (field && event->type() == QEvent::KeyPress && m_delegated.contains(field)) {
        const QString typed = static_cast<QKeyEvent *>(event)->text();
        if (!typed.isEmpty() && typed.back().isPrint()) {
            field->setText(QString());
            field->setText(typed.right(1));
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

} // namespace tess
