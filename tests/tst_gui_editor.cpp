// The entry editor in its callout, driven from the keyboard as a user would: Return and
// Escape, the masked user IDs and password, and the login options with their dependent
// controls.

#include "core/app/QWPrefs.h"
#include "core/entries/EntryList.h"
#include "core/storage/PasswordFile.h"
#include "support/FileSupport.h"
#include "support/GuiSupport.h"
#include "ui/CXAttachedWindow.h"
#include "ui/EntryEditor.h"
#include "ui/Globals.h"
#include "ui/MyDocument.h"
#include "ui/QWCellTableViewArray.h"

#include <QApplication>
#include <QDir>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>

#include <sys/mount.h>

using namespace tess;
using namespace tess::testsupport;

namespace {

EntryList sites()
{
    return EntryList{Entry{{EntryKey::Path, "Bank"}, {EntryKey::URL, "https://bank.example"}, {EntryKey::UserID, "me"}, {EntryKey::Password, "s3cret"},
                           {EntryKey::NewUserIDOptions, 1}, {EntryKey::PasswordTabSwitch, true}, {EntryKey::PasswordTabCount, 0}},
                     Entry{{EntryKey::Path, "Mail"}, {EntryKey::NewUserIDOptions, 0}, {EntryKey::PasswordTabSwitch, true}, {EntryKey::PasswordTabCount, 0}},
                     // Written by an older version: no "websiteNewUserIDOptions" yet.
                     Entry{{EntryKey::Path, "Old"}, {EntryKey::UserIDOptions, 2}, {EntryKey::PasswordOptions, 1}, {EntryKey::UserID, "old"}}};
}

// Keys go where the keyboard focus is, as they would from the keyboard.
void type(const QString &text)
{
    QTest::keyClicks(QApplication::focusWidget(), text);
}
void press(Qt::Key key, Qt::KeyboardModifiers mods = Qt::NoModifier)
{
    QTest::keyClick(QApplication::focusWidget(), key, mods);
}

Entry entryOnDisk(const QString &path, const QString &name)
{
    const EntryList list = listOnDisk(path);
    const qsizetype row = entryWithName(list, name);
    return row < 0 ? Entry() : list[row].toMap();
}

} // namespace

class TestGuiEditor : public DocumentSuite {
    Q_OBJECT

    // Starts the editor with `start` and lets `edit` work in it while it runs modally.
    void inEditor(MyDocument *doc, const std::function<void()> &start, const std::function<void(EntryEditor *)> &edit)
    {
        ModalResponder r;
        r.then([&](QWidget *) {
            // Keys go to the callout once the window manager has made it active.
            QTRY_VERIFY(doc->pwDataCalloutView->isActiveWindow());
            QTRY_VERIFY(QApplication::focusWidget());
            edit(doc->pwDataCalloutView);
            if (doc->callout && QTest::currentTestFailed())
                doc->callout->done(0);
        });
        start();
        QTRY_VERIFY_WITH_TIMEOUT(r.done(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(!doc->callout, 5000);
        QTRY_VERIFY(doc->saveMsg->isHidden()); // the deferred save
    }

private Q_SLOTS:
    void returnSavesWhatWasTyped()
    {
        const QString path = pkg("Return.qvm");
        QVERIFY(makePackage(path, "pw", sites()));
        MyDocument *doc = open(path);
        QVERIFY(doc && activate(doc));

        // A new entry: Ctrl+Shift+N, a name, Tab, a website, Return.
        bool plainWhenEmpty = false;
        QString buttonTitle;
        inEditor(doc, [doc] { QTest::keyClick(doc, Qt::Key_N, Qt::ControlModifier | Qt::ShiftModifier); }, [&](EntryEditor *e) {
            QCOMPARE(QApplication::focusWidget(), e->nameText);
            plainWhenEmpty = e->passwordText->isVisible() && !e->securePassword->isVisible();
            buttonTitle = e->showHideUserIDPasswordButton->text();
            type("Brokerage");
            press(Qt::Key_Tab);
            QCOMPARE(QApplication::focusWidget(), e->urlText);
            type("broker.example");
            press(Qt::Key_Return);
        });
        QVERIFY(plainWhenEmpty);
        QCOMPARE(buttonTitle, EntryEditor::kHideIDPassword);
        QCOMPARE(entryOnDisk(path, "Brokerage").value(EntryKey::URL).toString(), QString("broker.example"));

        // An edit: Return in the user-ID field (masked: the entry has values) saves it.
        selectByName(doc, "Bank");
        inEditor(doc, [doc] { QTest::keyClick(doc, Qt::Key_E, Qt::ControlModifier); }, [&](EntryEditor *e) {
            QVERIFY(e->secureUserID->isVisible() && !e->userID1Text->isVisible());
            e->secureUserID->setFocus();
            e->secureUserID->selectAll();
            type("you");
            press(Qt::Key_Return);
        });
        QCOMPARE(entryOnDisk(path, "Bank").value(EntryKey::UserID).toString(), QString("you"));
        QCOMPARE(entryOnDisk(path, "Bank").value(EntryKey::Password).toString(), QString("s3cret"));

        // Return in the notes is a new line; the editor stays open until Return elsewhere.
        selectByName(doc, "Mail");
        inEditor(doc, [doc] { doc->editEntry(); }, [&](EntryEditor *e) {
            e->notesText->setFocus();
            type("line one");
            press(Qt::Key_Return);
            type("line two");
            QVERIFY(doc->callout && doc->callout->isVisible());
            press(Qt::Key_Tab, Qt::ShiftModifier); // back to a one-line field
            QVERIFY(qobject_cast<QLineEdit *>(QApplication::focusWidget()) || qobject_cast<QComboBox *>(QApplication::focusWidget()));
            press(Qt::Key_Return);
        });
        QCOMPARE(entryOnDisk(path, "Mail").value(EntryKey::Notes).toString(), QString("line one\nline two"));
    }

    void nothingTypedIsLostWithoutCancel()
    {
        const QString path = pkg("Keep.qvm");
        QVERIFY(makePackage(path, "pw", sites()));
        MyDocument *doc = open(path);
        QVERIFY(doc && activate(doc));

        // A taken name cannot be saved: Return keeps the editor and what was typed.
        selectByName(doc, "Mail");
        inEditor(doc, [doc] { doc->editEntry(); }, [&](EntryEditor *e) {
            type("Bank");
            QVERIFY(e->nameExistsWarning->isVisible());
            press(Qt::Key_Return);
            QVERIFY(doc->callout && doc->callout->isVisible());
            QCOMPARE(e->nameText->text(), QString("Bank"));
            type("ing");
            QVERIFY(e->okButton->isDefault());
            press(Qt::Key_Return);
        });
        QVERIFY(entryWithName(listOnDisk(path), "Banking") >= 0);

        // Escape cancels: the edit is dropped, and a new entry goes.
        selectByName(doc, "Bank");
        inEditor(doc, [doc] { doc->editEntry(); }, [&](EntryEditor *) {
            press(Qt::Key_Tab);
            type("elsewhere");
            press(Qt::Key_Escape);
        });
        QCOMPARE(entryOnDisk(path, "Bank").value(EntryKey::URL).toString(), QString("https://bank.example"));
        inEditor(doc, [doc] { doc->addEntry(); }, [&](EntryEditor *) { press(Qt::Key_Escape); });
        QCOMPARE(doc->file().passwordArray().size(), 3);

        // Unchanged: Return closes, with nothing to save or lose; Cancel is the highlighted one.
        selectByName(doc, "Bank");
        bool cancelHighlighted = false;
        inEditor(doc, [doc] { doc->editEntry(); }, [&](EntryEditor *e) {
            cancelHighlighted = e->cancelButton->isDefault() && !e->okButton->isEnabled();
            press(Qt::Key_Return);
        });
        QVERIFY(cancelHighlighted);
        QCOMPARE(entryOnDisk(path, "Bank"), doc->file().passwordArray()[0].toMap());
    }

    void maskedFieldsAndTheirButton()
    {
        const QString path = pkg("Mask.qvm");
        QVERIFY(makePackage(path, "pw", sites()));
        MyDocument *doc = open(path);
        QVERIFY(doc && activate(doc));
        selectByName(doc, "Bank");
        inEditor(doc, [doc] { doc->editEntry(); }, [&](EntryEditor *e) {
            // Starts masked: the password is never shown in clear unasked.
            QCOMPARE(e->showHideUserIDPasswordButton->text(), QString("Show ID/Password"));
            QVERIFY(e->securePassword->isVisible() && !e->passwordText->isVisible());
            QCOMPARE(e->securePassword->echoMode(), QLineEdit::Password);
            QCOMPARE(e->securePassword->text(), QString("s3cret"));
            // Typing into the masked twin is stored, and shows in the plain one.
            e->securePassword->setFocus();
            press(Qt::Key_End);
            type("!");
            QCOMPARE(e->editedEntry().value(EntryKey::Password).toString(), QString("s3cret!"));
            e->showHideUserIDPasswordButton->click();
            QCOMPARE(e->showHideUserIDPasswordButton->text(), QString("Hide ID/Password"));
            QVERIFY(e->passwordText->isVisible() && !e->securePassword->isVisible());
            QCOMPARE(e->passwordText->text(), QString("s3cret!"));
            // Emptying a field that held a value removes its key.
            e->userID1Text->clear();
            QVERIFY(!e->editedEntry().contains(EntryKey::UserID));
            QCOMPARE(e->secureUserID->text(), QString());
            e->cancelButton->click();
        });

        // Emptying a field that was never stored changes nothing: Save stays off.
        selectByName(doc, "Mail");
        inEditor(doc, [doc] { doc->editEntry(); }, [&](EntryEditor *e) {
            e->urlText->setText("x");
            e->urlText->clear();
            QVERIFY(!e->editedEntry().contains(EntryKey::URL));
            QVERIFY(!e->okButton->isEnabled());
            e->cancelButton->click();
        });
    }

    void loginOptionsAndTheirControls()
    {
        const QString path = pkg("Options.qvm");
        QVERIFY(makePackage(path, "pw", sites()));
        MyDocument *doc = open(path);
        QVERIFY(doc && activate(doc));

        // An older entry is converted on loading; the conversion reaches the file only by Save.
        selectByName(doc, "Old");
        inEditor(doc, [doc] { doc->editEntry(); }, [&](EntryEditor *e) {
            QCOMPARE(e->userIDOptions->currentIndex(), 1);
            QVERIFY(e->userIDTabSwitch->isChecked() && e->userIDTabSwitch->isEnabled());
            QVERIFY(e->userIDTabs->isEnabled());
            QCOMPARE(e->userIDTabs->currentIndex(), 0);
            QCOMPARE(e->passwordOptions->currentIndex(), 1);
            QVERIFY(e->userIDReturnSwitch->isChecked() && !e->userIDReturnSwitch->isEnabled());
            QVERIFY(e->okButton->isEnabled());
            e->cancelButton->click();
        });
        QVERIFY(!entryOnDisk(path, "Old").contains(EntryKey::NewUserIDOptions));

        selectByName(doc, "Bank");
        inEditor(doc, [doc] { doc->editEntry(); }, [&](EntryEditor *e) {
            QVERIFY(!e->okButton->isEnabled()); // showing the options changes nothing
            // Same page: the password Tab switch is forced on and locked, Return after the
            // user ID forced off.
            QVERIFY(e->passwordTabSwitch->isChecked() && !e->passwordTabSwitch->isEnabled());
            QVERIFY(!e->userIDReturnSwitch->isChecked() && !e->userIDReturnSwitch->isEnabled());
            // From the keyboard: the password pop-up to "next page".
            e->passwordOptions->setFocus();
            press(Qt::Key_Down);
            QCOMPARE(e->passwordOptions->currentIndex(), 1);
            QVERIFY(e->okButton->isEnabled()); // every option change marks the callout
            QVERIFY(e->userIDReturnSwitch->isChecked() && !e->userIDReturnSwitch->isEnabled());
            QVERIFY(e->passwordTabSwitch->isEnabled() && !e->passwordTabSwitch->isChecked());
            // Shown, not typed: no Tabs, no Return.
            press(Qt::Key_Down);
            press(Qt::Key_Down);
            QCOMPARE(e->passwordOptions->currentIndex(), 3);
            QVERIFY(!e->passwordReturnSwitch->isEnabled() && !e->passwordReturnSwitch->isChecked());
            QVERIFY(!e->passwordTabs->isEnabled());
            QVERIFY(e->userIDReturnSwitch->isEnabled()); // released, still checked
            QVERIFY(e->userIDReturnSwitch->isChecked());
            // The user-ID option off disables its Tab controls.
            e->userIDOptions->setFocus();
            press(Qt::Key_Up);
            QVERIFY(!e->userIDTabSwitch->isEnabled() && !e->userIDTabs->isEnabled());
            // The browser pop-up: its fixed items, and the built-in one keeps nothing else.
            QCOMPARE(e->browserPopup->itemText(0), QString("Default Browser"));
            QCOMPARE(e->browserPopup->itemText(1), QString("Ledgerton"));
            e->browserPopup->setFocus();
            press(Qt::Key_Down);
            QCOMPARE(e->browserPopup->currentIndex(), 1);
            press(Qt::Key_Return);
        });
        const Entry bank = entryOnDisk(path, "Bank");
        QCOMPARE(bank.value(EntryKey::PasswordOptions).toInt(), 3);
        QCOMPARE(bank.value(EntryKey::NewUserIDOptions).toInt(), 0);
        QVERIFY(bank.value(EntryKey::UserIDReturnSwitch).toBool());
        QCOMPARE(bank.value(EntryKey::PasswordReturnSwitch), QVariant(false));
        QVERIFY(bank.value(EntryKey::UseDVBrowser).toBool());
    }

    void readOnlyFilesShowOptionsButChangeNothing()
    {
        const QString mount = pkg("ro");
        QDir().mkpath(mount);
        if (::mount("tmpfs", QFile::encodeName(mount).constData(), "tmpfs", 0, "size=1m") != 0)
            QSKIP("cannot mount a tmpfs here (not root?)");
        const QString path = mount + "/Locked.qvm";
        QVERIFY(makePackage(path, "pw", sites()));
        ::mount("tmpfs", QFile::encodeName(mount).constData(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr);
        MyDocument *doc = open(path);
        QVERIFY(doc && !doc->file().PWFileWriteable());
        selectByName(doc, "Old");
        inEditor(doc, [doc] { doc->editEntry(); }, [&](EntryEditor *e) {
            QVERIFY(e->urlText->isReadOnly() && e->securePassword->isReadOnly());
            QVERIFY(!e->passwordOptions->isEnabled() && !e->userIDOptions->isEnabled() && !e->userIDReturnSwitch->isEnabled());
            QVERIFY(!e->userIDTabs->isEnabled() && !e->passwordTabSwitch->isEnabled());
            // Converted on loading, so changed, but never to be saved: Return does nothing.
            QVERIFY(!e->okButton->isEnabled());
            press(Qt::Key_Return);
            QVERIFY(doc->callout);
            press(Qt::Key_Escape);
        });
        delete doc;
        ::umount2(QFile::encodeName(mount).constData(), MNT_DETACH);
    }
};

QTEST_MAIN(TestGuiEditor)
#include "tst_gui_editor.moc"
