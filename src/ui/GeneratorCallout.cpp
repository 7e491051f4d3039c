#include "GeneratorCallout.h"

#include "core/app/QWPrefs.h"
#include "core/generator/GeneratePassword.h"
#include "ui/CXAttachedWindow.h"
#include "ui/EntryEditor.h"
#include "ui/Help.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QVBoxLayout>

namespace tess {

GeneratorCallout::GeneratorCallout(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("pwGenerateCalloutView"));
    passwordLengthPopup = new QComboBox;
    passwordLengthPopup->setObjectName(QStringLiteral("passwordLengthPopup"));
    // The item's data is its tag, the length.
    for (std::uint32_t length : kOfferedPasswordLengths)
        passwordLengthPopup->addItem(QStringLiteral("%1 characters").arg(length), int(length));
    includeSpecialsSwitch = new QCheckBox(QStringLiteral("Include special characters  !-#$%+&&()*[]"));
    includeSpecialsSwitch->setObjectName(QStringLiteral("includeSpecialsSwitch"));
    okButton = new QPushButton(QStringLiteral("OK"));
    okButton->setDefault(true);
    cancelButton = new QPushButton(QStringLiteral("Cancel"));

    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("&Length:"), passwordLengthPopup);
    form->addRow(QString(), includeSpecialsSwitch);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(helpButton(HelpAnchor::Generator));
    buttons->addStretch();
    buttons->addWidget(cancelButton);
    buttons->addWidget(okButton);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(form);
    layout->addLayout(buttons);
}

int GeneratorCallout::indexForLength(qint64 length) const
{
    int best = 0;
    for (int i = 0; i < passwordLengthPopup->count(); ++i)
        if (qAbs(passwordLengthPopup->itemData(i).toLongLong() - length) < qAbs(passwordLengthPopup->itemData(best).toLongLong() - length))
            best = i;
    return best;
}

int GeneratorCallout::generatePassword(EntryEditor *editor)
{
    // Attached below the password field as it shows, plain or masked.
    QLineEdit *field = editor->passwordText->isVisible() ? editor->passwordText : editor->securePassword;
    QWidget *window = editor->window();
    const QRect r(field->mapTo(window, QPoint(0, 0)), field->size());
    const int y = r.y() + r.height() / 2 + 2;
    auto *view = new GeneratorCallout;

    // The entry's settings, or the defaults, which stay in the entry even if the user cancels.
    Entry &entry = editor->editedEntry();
    if (!entry.contains(EntryKey::PasswordLength))
        entry.insert(EntryKey::PasswordLength, gPrefs ? gPrefs->integerForKey(Pref::GeneratedPasswordLength) : qint64(kDefaultPasswordLength));
    if (!entry.contains(EntryKey::IncludeSpecials))
        entry.insert(EntryKey::IncludeSpecials, true);
    const bool specials = entry.value(EntryKey::IncludeSpecials).toBool();
    view->passwordLengthPopup->setCurrentIndex(view->indexForLength(clampPasswordLength(entry.value(EntryKey::PasswordLength).toLongLong(), specials)));
    view->includeSpecialsSwitch->setChecked(specials);

    auto *callout = new CXAttachedWindow(view, window, QPoint(r.x(), y), QPoint(r.right(), y), 0);
    callout->setWindowTitle(QStringLiteral("Generate Password"));
    // Made the default again now that it is inside the dialog (set while it was not, it would
    // not count, and the dialog would make Cancel the default): Return means OK.
    view->okButton->setDefault(false);
    view->okButton->setDefault(true);
    connect(view->okButton, &QPushButton::clicked, callout, [callout] { callout->done(1); });
    connect(view->cancelButton, &QPushButton::clicked, callout, [callout] { callout->done(0); });
    view->passwordLengthPopup->setFocus();
    const int code = callout->runModal();
    const int length = view->passwordLengthPopup->currentData().toInt();
    const bool include = view->includeSpecialsSwitch->isChecked();
    callout->detach();
    callout->deleteLater();
    if (code == 0)
        return 0;
    entry.insert(EntryKey::PasswordLength, length);
    entry.insert(EntryKey::IncludeSpecials, include);
    actuallyGeneratePassword(editor);
    return code;
}

void GeneratorCallout::actuallyGeneratePassword(EntryEditor *editor, const QDateTime &now)
{
    const Entry &entry = editor->editedEntry();
    const bool specials = entry.value(EntryKey::IncludeSpecials).toBool();
    // Kept within the generator's bounds whatever the entry holds.
    const QString password = GeneratePassword(clampPasswordLength(entry.value(EntryKey::PasswordLength).toLongLong(), specials), specials);

    const QString old = editor->passwordText->text();
    if (!old.isEmpty()) {
        // Stored through the editor, which marks the entry changed.
        editor->notesText->setPlainText(notesWithOldPassword(editor->notesText->toPlainText(), old, now));
        editor->notesText->moveCursor(QTextCursor::End);
        editor->notesText->ensureCursorVisible();
    }
    editor->passwordText->setText(password);
    editor->passwordText->setCursorPosition(0); // shown from its first character
    editor->hideBullets();
}

} // namespace tess
