#pragma once
// The entry editor shown in the document's callout: the entry's fields with the masked twins
// of its user IDs and password, its login options and browser, the name warning and the Save
// and Cancel buttons. It works on a copy of the entry; the document writes the copy back when
// the callout ends with Save. The rules of the login options live in core/login/LoginOptions.

#include "core/entries/Entry.h"

#include <QList>
#include <QStringList>
#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace tess {

namespace loginoptions {
struct PasswordOptionDisplay;
}

class EntryEditor : public QWidget {
    Q_OBJECT

public:
    explicit EntryEditor(QWidget *parent = nullptr);

    static const QString kShowIDPassword; // "Show ID/Password"
    static const QString kHideIDPassword; // "Hide ID/Password"

    // An installed browser for the browser pop-up: its title and identity (desktop-file id).
    struct Browser {
        QString title;
        QString id;
    };
    // The pop-up's items after "Default Browser" and "Ledgerton".
    void setBrowsers(const QList<Browser> &browsers);

    // Fills the fields from the entry; otherNames are the names no other entry may take.
    // Older login options are converted in the copy (loadAttributes:forWindow:).
    void load(const Entry &entry, const QStringList &otherNames);
    // Re-evaluates the name warning, the save button and which button Return presses.
    void setEnabledForCalloutSaveChanges(bool writable);

    const Entry &originalEntry() const { return m_originalEntry; }
    Entry &editedEntry() { return m_editedEntry; }

    void showBullets();
    void hideBullets();
    void showHideUserIDPassword();
    // Makes every field and login option read-only (a file that cannot be written).
    void disableUI();

    QLineEdit *nameText, *urlText, *userID1Text, *userID2Text, *passwordText;
    QLineEdit *secureUserID, *secureUserID2, *securePassword;
    QPushButton *showHideUserIDPasswordButton;
    // Opens the password generator's callout (ui/GeneratorCallout).
    QPushButton *generateButton;
    QComboBox *userIDOptions, *userIDTabs, *passwordOptions, *passwordTabs, *browserPopup;
    QCheckBox *userIDTabSwitch, *userIDReturnSwitch, *passwordTabSwitch, *passwordReturnSwitch;
    QPlainTextEdit *notesText;
    QLabel *nameExistsWarning;
    QPushButton *okButton, *cancelButton;

Q_SIGNALS:
    // An edit changed the copy; the owner re-evaluates the save button.
    void edited();
    // The password field was edited (the floating password goes away).
    void passwordEdited();
    void saveChosen();
    void cancelChosen();

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    QWidget *buildFields();
    QWidget *buildOptions();
    void fieldChanged(QWidget *field);
    void displayUserIDOption(int option);
    void showPasswordOption(const loginoptions::PasswordOptionDisplay &d);
    void selectBrowser();
    void setMasked(bool masked);
    void optionChanged();

    Entry m_originalEntry;
    Entry m_editedEntry;
    QStringList m_entryNames;
    bool m_filling = false;
    bool m_uiDisabled = false;
};

} // namespace tess
