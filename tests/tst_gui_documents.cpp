// Whole document windows on the real X server and keyring, driven through their widgets:
// creating, opening, editing, finding, read-only files, drag and drop, re-locking, the keyboard,
// placement, tool tips and accessible names, and the platform the application starts on.

#include "core/app/QWPrefs.h"
#include "core/entries/EntryList.h"
#include "core/storage/PasswordFile.h"
#include "platform/linux/SecretServiceKeychain.h"
#include "support/ArchiveSupport.h"
#include "support/FileSupport.h"
#include "support/GuiSupport.h"
#include "support/TestSupport.h"
#include "ui/CXAttachedWindow.h"
#include "ui/Controller.h"
#include "ui/FilePanels.h"
#include "ui/EntryEditor.h"
#include "ui/Globals.h"
#include "ui/MyDocument.h"
#include "ui/Panels.h"
#include "ui/QWCellTableViewArray.h"

#include <QAccessible>
#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QTimer>
#include <QTextDocument>
#include <QToolButton>
#include <QToolTip>

#include <functional>
#include <sys/mount.h>

using namespace tess;
using namespace tess::testsupport;

class TestGuiDocuments : public DocumentSuite {
    Q_OBJECT

    // Opens the editor on the entry (or with Add), lets `edit` work on it, waits for it to close.
    void inEditor(MyDocument *doc, const std::function<void()> &start, const std::function<void(MyDocument *)> &edit)
    {
        ModalResponder r;
        r.then([&](QWidget *) { edit(doc); });
        start();
        QTRY_VERIFY(r.done());
        QTRY_VERIFY(!doc->callout);
        QTest::qWait(50); // the deferred save
    }

    // A file of the bank list, open in the active window.
    MyDocument *openActive(const QString &name, const EntryList &list = bankList())
    {
        if (!makePackage(pkg(name + ".qvm"), "pw", list))
            return nullptr;
        MyDocument *doc = open(pkg(name + ".qvm"));
        return doc && activate(doc) ? doc : nullptr;
    }

private Q_SLOTS:
    void creatingAFileAsksForTheSamePasswordTwice()
    {
        const QString path = pkg("Created.qvm");
        ModalResponder r;
        QStringList told;
        QString nameKept;
        auto fillPanel = [this](const QString &name, const QString &a, const QString &b) {
            return [this, name, a, b](QWidget *w) {
                auto *dialog = qobject_cast<QFileDialog *>(w);
                QVERIFY2(dialog, "expected the new-file panel");
                QCOMPARE(dialog->windowTitle(), QString("Create Password File"));
                m_controller->framis1->setText(a);
                m_controller->framis2->setText(b);
                typeInFilePanel(dialog, name);
            };
        };
        auto badPassword = [&](QWidget *w) {
            auto *box = qobject_cast<QMessageBox *>(w);
            QVERIFY(box);
            QCOMPARE(box->text(), QString("Bad Password"));
            told.append(box->informativeText());
            box->accept();
        };
        r.then(fillPanel(pkg("Created"), "one", "two"));
        r.then(badPassword);
        r.then([&](QWidget *w) { // back, with the name as it was
            nameKept = fileNameField(w)->text();
            fillPanel(path, "", "")(w);
        });
        r.then(badPassword);
        r.then(fillPanel(path, "pw", "pw"));
        r.then([](QWidget *w) { typePassword(w, "pw"); }); // a new file asks once more
        m_controller->newDocument();
        QTRY_VERIFY(r.done());
        QCOMPARE(nameKept, QString("Created.qvm"));
        QCOMPARE(told, (QStringList{Controller::kBadPasswordInfo, Controller::kEmptyPasswordInfo}));
        MyDocument *doc = m_controller->documentForPath(path);
        QVERIFY(doc);
        QTRY_VERIFY(doc->isOpen());
        QCOMPARE(QDir(path).entryList(QDir::Files), (QStringList{"Data.qvmi", "Recent Websites.qvmi"}));
        QCOMPARE(doc->passwordTable->model()->rowCount(), 0);
        QCOMPARE(doc->windowTitle(), QString("Created — Tessaline"));
    }

    // A package is one file to the user: the new-file panel neither goes into one nor makes a
    // file inside one, and asks before replacing one.
    void creatingOverAnExistingFileAsksFirst()
    {
        const QString old = pkg("Old.qvm");
        QVERIFY(makePackage(old, "pw", bankList()));
        auto fill = [this](const QString &name) {
            return [this, name](QWidget *w) {
                m_controller->framis1->setText("new");
                m_controller->framis2->setText("new");
                typeInFilePanel(w, name);
            };
        };
        // Answers the panel's own question with the button `pick` finds, then (once it is
        // gone) notes where the panel is and cancels it.
        QString asked, folder;
        using Pick = std::function<QAbstractButton *(QMessageBox *)>;
        auto answerThenCancelPanel = [&](Pick pick) {
            return [&, pick](QWidget *w) {
                auto *box = qobject_cast<QMessageBox *>(w);
                QVERIFY2(box, "expected the panel's question");
                asked = box->text();
                auto *panel = qobject_cast<QFileDialog *>(box->parentWidget());
                QVERIFY(panel);
                QTimer::singleShot(0, panel, [&, panel] {
                    folder = panel->isVisible() ? panel->directory().absolutePath() : QString();
                    panel->reject();
                });
                pick(box)->click();
            };
        };
        const Pick cancel = [](QMessageBox *b) { return b->button(QMessageBox::Cancel); };
        const Pick ok = [](QMessageBox *b) { return b->button(QMessageBox::Ok); };
        const Pick replace = [](QMessageBox *b) {
            for (QAbstractButton *button : b->buttons())
                if (button->text() == u"Replace")
                    return button;
            return static_cast<QAbstractButton *>(nullptr);
        };

        // The name without its extension, and Cancel to the question: the panel stays where
        // it was, and nothing is made inside the package.
        {
            ModalResponder r;
            r.then(fill(pkg("Old")));
            r.then(answerThenCancelPanel(cancel));
            m_controller->newDocument();
            QVERIFY(r.done());
        }
        QCOMPARE(asked, PackageFileDialog::alreadyExistsMessage("Old.qvm"));
        QCOMPARE(folder, m_home->path());
        QCOMPARE(QDir(old).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), (QStringList{"Data.qvmi", "Recent Websites.qvmi"}));

        // A name inside the package: refused, and the panel moves out of it.
        {
            ModalResponder r;
            r.then([&](QWidget *w) {
                fill(pkg("Inner"))(w);
                fileNameField(w)->setText("Old.qvm/Inner"); // typed over the name, from its folder
            });
            r.then(answerThenCancelPanel(ok));
            m_controller->newDocument();
            QVERIFY(r.done());
        }
        QCOMPARE(asked, PackageFileDialog::kCannotNest);
        QCOMPARE(folder, m_home->path());
        QVERIFY(!QFileInfo::exists(old + "/Inner.qvm"));

        // Double-clicking the package picks its name, without going into it.
        {
            ModalResponder r;
            r.then([&](QWidget *w) {
                auto *panel = qobject_cast<QFileDialog *>(w);
                doubleClickInFilePanel(panel, old);
                QTRY_COMPARE(fileNameField(panel)->text(), QString("Old.qvm"));
                folder = panel->directory().absolutePath();
                panel->reject();
            });
            m_controller->newDocument();
            QVERIFY(r.done());
        }
        QCOMPARE(folder, m_home->path());

        // Replace: the old file goes to the trash, whole; the new one takes its place.
        const QString trash = qEnvironmentVariable("XDG_DATA_HOME");
        QVERIFY(!QFileInfo::exists(trash)); // a fresh home: made when first needed
        {
            ModalResponder r;
            r.then(fill(old));
            r.then([&](QWidget *w) {
                auto *box = qobject_cast<QMessageBox *>(w);
                QVERIFY(box);
                replace(box)->click();
            });
            r.then([](QWidget *w) { typePassword(w, "new"); });
            m_controller->newDocument();
            QTRY_VERIFY(r.done());
        }
        MyDocument *doc = m_controller->documentForPath(old);
        QVERIFY(doc);
        QTRY_VERIFY(doc->isOpen());
        QCOMPARE(doc->file().passwordArray().size(), 0);
        QCOMPARE(QDir(old).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), (QStringList{"Data.qvmi", "Recent Websites.qvmi"}));
        const QString trashed = trash + "/Trash/files/Old.qvm";
        QCOMPARE(entryNames(listOnDisk(trashed)), (QStringList{"Bank", "Mail", "Shop"}));
    }

    void theOpenPanelOpensPackagesAsFiles()
    {
        QVERIFY(makePackage(pkg("Sample.qvm"), "pw", bankList()));
        QDir().mkpath(pkg("Folder"));
        QVERIFY(makePackage(pkg("Folder/Inner.qvm"), "pw", bankList()));

        // A folder's path typed and Return: the panel goes there. A package double-clicked:
        // opened, not gone into.
        {
            ModalResponder r;
            QString folder;
            r.then([&](QWidget *w) {
                auto *panel = qobject_cast<QFileDialog *>(w);
                QVERIFY(panel);
                fileNameField(panel)->setText(pkg("Folder"));
                QTest::keyClick(fileNameField(panel), Qt::Key_Return);
                QVERIFY(panel->isVisible());
                folder = panel->directory().absolutePath();
                doubleClickInFilePanel(panel, pkg("Folder/Inner.qvm"));
            });
            r.then([](QWidget *w) { typePassword(w, "pw"); });
            QVERIFY(m_controller->openDocumentWithDialog());
            QTRY_VERIFY(r.done());
            QCOMPARE(folder, pkg("Folder"));
        }
        QVERIFY(m_controller->documentForPath(pkg("Folder/Inner.qvm")));
        QTRY_VERIFY(m_controller->documentForPath(pkg("Folder/Inner.qvm"))->isOpen());

        // A file inside a package chosen: the package opens.
        {
            ModalResponder r;
            r.then([&](QWidget *w) { typeInFilePanel(w, pkg("Sample.qvm/Data.qvmi")); });
            r.then([](QWidget *w) { typePassword(w, "pw"); });
            QVERIFY(m_controller->openDocumentWithDialog());
            QTRY_VERIFY(r.done());
        }
        QTRY_VERIFY(m_controller->documentForPath(pkg("Sample.qvm"))->isOpen());
        QCOMPARE(m_controller->documents().size(), 2);

        // Cancel opens nothing.
        {
            ModalResponder r;
            r.then([](QWidget *w) { static_cast<QDialog *>(w)->reject(); });
            QVERIFY(!m_controller->openDocumentWithDialog());
            QVERIFY(r.done());
        }
        QCOMPARE(m_controller->documents().size(), 2);
    }

    // The first-run panel: an existing file can be opened from it.
    void theFirstRunPanelOffersAnExistingFile()
    {
        QVERIFY(makePackage(pkg("Existing.qvm"), "pw", bankList()));
        ModalResponder r;
        bool offered = false;
        r.then([&](QWidget *w) {
            auto *button = w->findChild<QPushButton *>("openExistingButton");
            offered = button && button->isVisible();
            QVERIFY(button);
            button->click();
        });
        r.then([](QWidget *w) { static_cast<QDialog *>(w)->reject(); }); // Cancel: back to the choice
        r.then([&](QWidget *w) { w->findChild<QPushButton *>("openExistingButton")->click(); });
        r.then([&](QWidget *w) {
            QCOMPARE(w->windowTitle(), Controller::kOpenTitle);
            typeInFilePanel(w, pkg("Existing.qvm"));
        });
        r.then([](QWidget *w) { typePassword(w, "pw"); });
        QVERIFY(m_controller->applicationOpenUntitledFile());
        QTRY_VERIFY(r.done());
        QVERIFY(offered);
        MyDocument *doc = m_controller->documentForPath(pkg("Existing.qvm"));
        QVERIFY(doc);
        QTRY_VERIFY(doc->isOpen());
    }

    void theLastSessionsFilesAreReopened()
    {
        QVERIFY(makePackage(pkg("One.qvm"), "pw", bankList()));
        QVERIFY(makePackage(pkg("Two.qvm"), "pw", bankList()));
        MyDocument *one = open(pkg("One.qvm"));
        MyDocument *two = open(pkg("Two.qvm"));
        QVERIFY(one && two);
        QCOMPARE(m_controller->documents().size(), 2);
        m_controller->applicationWillTerminate();
        QCOMPARE(gPrefs->objectForKey(Pref::LastPWFiles).toList(), (QVariantList{pkg("One.qvm"), pkg("Two.qvm")}));
        QWPrefs onDisk(kApplicationID);
        QCOMPARE(onDisk.objectForKey(Pref::LastPWFiles).toList().size(), 2);

        // Next start: both come back, in order.
        m_controller = std::make_unique<Controller>(&m_keychain);
        m_controller->awakeFromNib();
        ModalResponder r;
        r.then([](QWidget *w) { typePassword(w, "pw"); });
        r.then([](QWidget *w) { typePassword(w, "pw"); });
        QVERIFY(m_controller->applicationOpenUntitledFile());
        QTRY_VERIFY(r.done());
        QTRY_COMPARE(m_controller->documents().size(), 2);
        QCOMPARE(m_controller->documents()[0]->filePath(), pkg("One.qvm"));

        // Files that are gone: the new-file panel, and the older key is not consulted.
        for (MyDocument *d : m_controller->documents())
            delete d;
        gPrefs->setObject(QVariantList{pkg("Gone.qvm")}, Pref::LastPWFiles);
        gPrefs->setObject(pkg("One.qvm"), Pref::LastPWFile);
        ModalResponder cancel;
        bool offered = false;
        cancel.then([&](QWidget *w) {
            offered = qobject_cast<QFileDialog *>(w) != nullptr;
            static_cast<QDialog *>(w)->reject();
        });
        QVERIFY(m_controller->applicationOpenUntitledFile());
        QVERIFY(offered);
        QVERIFY(m_controller->documents().isEmpty());
    }

    // A path that is not a password file is answered with the message; a package's name with
    // the slash that shell completion adds opens it.
    void openingFromTheCommandLine()
    {
        QVERIFY(makePackage(pkg("Slash.qvm"), "pw", bankList()));
        writeBytes(pkg("notes.txt"), "not a password file");
        ModalResponder r;
        QStringList told;
        r.then([&](QWidget *w) {
            auto *box = qobject_cast<QMessageBox *>(w);
            QVERIFY(box);
            told << box->text() << box->informativeText();
            box->accept();
        });
        QVERIFY(m_controller->openFile(pkg("notes.txt"))); // still YES
        QVERIFY(r.done());
        QCOMPARE(told, (QStringList{"This is not a Tessaline file.", pkg("notes.txt")}));
        QVERIFY(m_controller->documents().isEmpty());
        QVERIFY(open(pkg("Slash.qvm") + "/"));
        QCOMPARE(m_controller->documents().size(), 1);
        QCOMPARE(m_controller->documents().first()->filePath(), pkg("Slash.qvm"));
        QVERIFY(!m_controller->quitIfNothingOpen());
    }

    // Closing the last window (Ctrl+W, or the title bar's close button through the window
    // manager) ends the application here: the open files are taken before it goes.
    void closingTheLastWindowRemembersItsFiles()
    {
        QVERIFY(makePackage(pkg("One.qvm"), "pw", bankList()));
        QVERIFY(makePackage(pkg("Two.qvm"), "pw", bankList()));
        auto lastFilesOnDisk = [] { return QWPrefs(kApplicationID).objectForKey(Pref::LastPWFiles).toList(); };

        MyDocument *one = open(pkg("One.qvm"));
        QVERIFY(one);
        QVERIFY(activate(one));
        QTest::keyClick(one, Qt::Key_W, Qt::ControlModifier);
        QTRY_VERIFY(m_controller->documents().isEmpty());
        m_controller->applicationWillTerminate(); // what the application's end does
        QCOMPARE(lastFilesOnDisk(), QVariantList{pkg("One.qvm")});

        // Two windows: closing the first leaves the list to the second.
        m_controller = std::make_unique<Controller>(&m_keychain);
        m_controller->awakeFromNib();
        one = open(pkg("One.qvm"));
        MyDocument *two = open(pkg("Two.qvm"));
        QVERIFY(one && two);
        QVERIFY(activate(one));
        QTest::keyClick(one, Qt::Key_W, Qt::ControlModifier);
        QTRY_COMPARE(m_controller->documents().size(), 1);
        // The close button of the title bar the window manager draws, at the frame's top right.
        QVERIFY(activate(two));
        const QRect frame = two->frameGeometry();
        QVERIFY(frame.top() < two->geometry().top()); // decorated
        const QPoint closeButton(frame.right() - 9, frame.top() + (two->geometry().top() - frame.top()) / 2);
        clickMouse(closeButton);
        QTRY_VERIFY(m_controller->documents().isEmpty());
        m_controller->applicationWillTerminate();
        QCOMPARE(lastFilesOnDisk(), QVariantList{pkg("Two.qvm")});
    }

    // Settings changed outside while the application runs are taken up, and the application's
    // own writes never put the old values back.
    void settingsChangedOutsideAreKept()
    {
        QVERIFY(makePackage(pkg("Prefs.qvm"), "pw", bankList()));
        MyDocument *doc = open(pkg("Prefs.qvm"));
        QVERIFY(doc);
        QVERIFY(gPrefs->boolForKey(Pref::ConfirmDelete));
        QCOMPARE(runCli({"prefs", "set", "confirmDelete", "false", "--type", "bool"}, {}).code, 0);
        QTRY_VERIFY(!gPrefs->boolForKey(Pref::ConfirmDelete));
        // So a deletion asks nothing now.
        selectByName(doc, "Mail");
        doc->deleteButton->click();
        QTRY_COMPARE(entryNames(doc->file().passwordArray()), (QStringList{"Bank", "Shop"}));
        gPrefs->setInteger(2, Pref::PasswordPrompt);
        m_controller->applicationWillTerminate();
        QWPrefs onDisk(kApplicationID);
        QCOMPARE(onDisk.objectForKey(Pref::ConfirmDelete), QVariant(false));
        QCOMPARE(onDisk.integerForKey(Pref::PasswordPrompt), 2);
        QCOMPARE(onDisk.objectForKey(Pref::LastPWFiles).toList(), QVariantList{pkg("Prefs.qvm")});
    }

    void reopeningByKeychainAndByPrompt()
    {
        QVERIFY(makePackage(pkg("ByKeychain.qvm"), "pw", bankList()));
        QCOMPARE(m_keychain.add("ByKeychain", "Tessaline", "pw"), 0);
        MyDocument *a = open(pkg("ByKeychain.qvm"), QString());
        QVERIFY(a);
        QCOMPARE(a->passwordTable->model()->rowCount(), 3);
        QVERIFY(a->file().passwordInKeychain());
        a->validateMenuItems();
        QVERIFY(a->keychainMenuItem->isChecked());
        m_keychain.remove("ByKeychain", "Tessaline");

        QVERIFY(makePackage(pkg("ByPrompt.qvm"), "pw", bankList()));
        {
            // Cancel at the prompt: the window goes, and the file stays as it was.
            ModalResponder cancel;
            cancel.then([](QWidget *w) { static_cast<QDialog *>(w)->done(0); });
            m_controller->openFile(pkg("ByPrompt.qvm"));
            QTRY_VERIFY(cancel.done());
            QTRY_VERIFY(!m_controller->documentForPath(pkg("ByPrompt.qvm")));
            QVERIFY(scratchDirectories().size() == 1); // ByKeychain's only
        }
        ModalResponder r;
        QString second;
        r.then([](QWidget *w) { typePassword(w, "wrong"); });
        r.then([&](QWidget *w) { typePassword(w, "pw", &second); });
        m_controller->openFile(pkg("ByPrompt.qvm"));
        MyDocument *b = m_controller->documentForPath(pkg("ByPrompt.qvm"));
        QTRY_VERIFY(b->isOpen());
        QCOMPARE(second, QString("PASSWORD INCORRECT! Enter Password:"));
        QVERIFY(!b->file().passwordInKeychain());
        b->validateMenuItems();
        QVERIFY(!b->keychainMenuItem->isChecked());

        // The keychain menu item stores the password (not when the prompt is cancelled); the
        // next opening needs no prompt.
        ModalResponder k;
        k.then([](QWidget *w) { static_cast<QDialog *>(w)->done(0); });
        b->toggleSavePWInKeychain();
        QTRY_VERIFY(k.done());
        QVERIFY(!b->file().passwordInKeychain());
        QByteArray none;
        QVERIFY(m_keychain.find("ByPrompt", "Tessaline", &none) != 0);
        k.then([](QWidget *w) { typePassword(w, "pw"); });
        b->toggleSavePWInKeychain();
        QTRY_VERIFY(k.done());
        QVERIFY(b->file().passwordInKeychain());
        QByteArray stored;
        QCOMPARE(m_keychain.find("ByPrompt", "Tessaline", &stored), 0);
        m_keychain.remove("ByPrompt", "Tessaline");
    }

    void aFileWhoseEntryListIsDamagedIsShownAsUnreadableAndLeftAlone()
    {
        const QString path = pkg("Damaged.qvm");
        QVERIFY(makePackage(path, "pw", {}, {"Bank"}));
        QVERIFY(writeBytes(path + "/Data.qvmi", encryptForFile(damagedEntryArchives().first().second, "pw", false)));
        const QByteArray before = packageDigest(path);
        ModalResponder r;
        QString told;
        r.then([](QWidget *w) { typePassword(w, "pw"); });
        r.then([&](QWidget *w) {
            auto *p = qobject_cast<PromptPanel *>(w);
            QVERIFY(p);
            told = p->promptMessage->text();
            p->promptDefaultButton->click();
        });
        m_controller->openFile(path);
        QTRY_VERIFY(r.done());
        QCOMPARE(told, PasswordFile::kNotAPasswordFile);
        QTRY_VERIFY(!m_controller->documentForPath(path));
        QCOMPARE(packageDigest(path), before);
    }

    void addingRenamingDuplicatingDeleting()
    {
        QVERIFY(makePackage(pkg("Edit.qvm"), "pw", bankList()));
        MyDocument *doc = open(pkg("Edit.qvm"));
        QVERIFY(doc);

        // Add, try a taken name, then a free one.
        bool warnedForTaken = false, saveDisabledForTaken = false;
        inEditor(doc, [doc] { doc->addButton->click(); }, [&](MyDocument *d) {
            QCOMPARE(d->pwDataCalloutView->nameText->text(), QString("(New)"));
            QTest::keyClicks(d->pwDataCalloutView->nameText, "x"); // something changed
            d->pwDataCalloutView->nameText->setText("Bank");
            warnedForTaken = d->pwDataCalloutView->nameExistsWarning->isVisible();
            saveDisabledForTaken = !d->pwDataCalloutView->okButton->isEnabled();
            d->pwDataCalloutView->nameText->setText("bank"); // other case is another name
            QVERIFY(d->pwDataCalloutView->okButton->isEnabled());
            d->pwDataCalloutView->nameText->clear();
            QVERIFY(d->pwDataCalloutView->nameExistsWarning->isVisible());
            d->pwDataCalloutView->nameText->setText("Brokerage");
            d->pwDataCalloutView->urlText->setText("https://broker.example");
            d->pwDataCalloutView->userID2Text->setText("");
            QVERIFY(d->pwDataCalloutView->okButton->isEnabled());
            d->pwDataCalloutView->okButton->click();
        });
        QVERIFY(warnedForTaken);
        QVERIFY(saveDisabledForTaken);
        QCOMPARE(entryNames(doc->file().passwordArray()), (QStringList{"Bank", "Brokerage", "Mail", "Shop"}));
        QVERIFY(!doc->file().passwordArray()[1].toMap().contains(EntryKey::UserID2));

        // Cancelling a new entry leaves the list as it was.
        inEditor(doc, [doc] { doc->addButton->click(); }, [](MyDocument *d) { d->callout->done(0); });
        QCOMPARE(doc->file().passwordArray().size(), 4);

        // Duplicate twice.
        selectByName(doc, "Bank");
        doc->duplicateButton->click();
        QTest::qWait(50);
        selectByName(doc, "Bank");
        doc->duplicateButton->click();
        QTest::qWait(50);
        QCOMPARE(entryNames(doc->file().passwordArray()), (QStringList{"Bank", "Bank copy", "Bank copy 2", "Brokerage", "Mail", "Shop"}));

        // Delete with confirmation (the singular message): Cancel keeps the entry, Delete
        // deletes it; then without confirmation.
        gPrefs->setBool(true, Pref::ConfirmDelete);
        selectByName(doc, "Bank copy");
        ModalResponder r;
        QStringList messages;
        auto answer = [&](bool remove) {
            return [&, remove](QWidget *w) {
                auto *p = qobject_cast<PromptPanel *>(w);
                QVERIFY(p);
                messages.append(p->promptMessage->text());
                QCOMPARE(p->promptOtherButton->text(), QString("Cancel"));
                (remove ? p->promptDefaultButton : p->promptOtherButton)->click();
            };
        };
        r.then(answer(false));
        doc->deleteButton->click();
        QTRY_VERIFY(r.done());
        QTest::qWait(50);
        QCOMPARE(entryNames(doc->file().passwordArray()).size(), 6);
        QCOMPARE(entryNames(listOnDisk(pkg("Edit.qvm"))).size(), 6);
        r.then(answer(true));
        doc->deleteButton->click();
        QTRY_VERIFY(r.done());
        QCOMPARE(messages, QStringList(2, "Are you sure you want to delete the selected entry?"));
        gPrefs->setBool(false, Pref::ConfirmDelete);
        selectByName(doc, "Bank copy 2");
        doc->deleteButton->click();
        QTest::qWait(50);
        QCOMPARE(entryNames(doc->file().passwordArray()), (QStringList{"Bank", "Brokerage", "Mail", "Shop"}));

        // All of it is on disk.
        ScriptedDelegate d;
        d.passwords = {"pw"};
        PasswordFile check(pkg("Edit.qvm"), nullptr, &d);
        QCOMPARE(check.open(PasswordFile::KeychainUse::Never), PasswordFile::OpenResult::Opened);
        QCOMPARE(entryNames(check.passwordArray()), (QStringList{"Bank", "Brokerage", "Mail", "Shop"}));
    }

    void renamingKeepsTheSelectionAcrossTheSort()
    {
        QVERIFY(makePackage(pkg("Sort.qvm"), "pw", bankList(), {"Bank"}));
        MyDocument *doc = open(pkg("Sort.qvm"));
        QVERIFY(doc);
        selectByName(doc, "Bank");
        inEditor(doc, [doc] { doc->editEntry(); }, [](MyDocument *d) {
            d->pwDataCalloutView->nameText->setText("Zebra Bank");
            d->pwDataCalloutView->okButton->click();
        });
        QCOMPARE(entryNames(doc->file().passwordArray()), (QStringList{"Mail", "Shop", "Zebra Bank"}));
        QCOMPARE(doc->passwordTable->selectedRows(), QList<int>{2});
        QCOMPARE(doc->file().recentWebsiteTitles(), QStringList{"Zebra Bank"});
        // An unchanged entry cannot be saved.
        inEditor(doc, [doc] { doc->editEntry(); }, [](MyDocument *d) {
            QVERIFY(!d->pwDataCalloutView->okButton->isEnabled());
            d->callout->done(0);
        });
    }

    void findingForwardAndBackward()
    {
        QVERIFY(makePackage(pkg("Find.qvm"), "pw", bankList()));
        MyDocument *doc = open(pkg("Find.qvm"));
        QVERIFY(doc);
        QVERIFY(!doc->searchForwardButton->isEnabled());
        QVERIFY(activate(doc));
        doc->find();
        QVERIFY(doc->searchField->hasFocus());
        QTest::keyClicks(doc->searchField, "bank");
        QVERIFY(doc->searchForwardButton->isEnabled());
        selectByName(doc, "Bank");
        doc->searchForwardButton->click();
        QCOMPARE(doc->passwordTable->selectedRows(), QList<int>{1}); // Mail, by its notes
        doc->searchForwardButton->click();
        QCOMPARE(doc->passwordTable->selectedRows(), QList<int>{2}); // Shop, by its second user ID
        doc->searchForwardButton->click();
        QCOMPARE(doc->passwordTable->selectedRows(), QList<int>{0}); // wrapped round
        doc->searchBackwardButton->click();
        QCOMPARE(doc->passwordTable->selectedRows(), QList<int>{2});
        QVERIFY(doc->notFoundMessage->isHidden());
        doc->searchField->setText("nowhere");
        QTest::keyClick(doc->searchField, Qt::Key_Return);
        QVERIFY(doc->notFoundMessage->isVisible());
        doc->searchField->clear();
        QVERIFY(!doc->searchBackwardButton->isEnabled());
        doc->validateMenuItems();
        QAction *findNext = nullptr, *findDots = nullptr;
        for (QAction *a : doc->editMenu->actions()) {
            if (a->text() == u"Find Next")
                findNext = a;
            if (a->text() == u"Find ...")
                findDots = a;
        }
        QVERIFY(findNext && !findNext->isEnabled());
        QVERIFY(findDots && findDots->isEnabled());
    }

    void tabMovesTheFocusOnFromTheTable()
    {
        MyDocument *doc = openActive("Tab");
        QVERIFY(doc);
        selectByName(doc, "Mail");
        doc->passwordTable->setFocus();
        QTRY_VERIFY(doc->passwordTable->hasFocus());
        pressKeys({"Tab"});
        QCOMPARE(QApplication::focusWidget(), doc->addButton);
        QCOMPARE(doc->passwordTable->selectedRows(), QList<int>{1}); // the selection stays
        doc->passwordTable->setFocus();
        pressKeys({"shift+Tab"});
        QCOMPARE(QApplication::focusWidget(), doc->searchField); // the arrows are off while it is empty
        QCOMPARE(doc->passwordTable->selectedRows(), QList<int>{1});
    }

    // Rows without a website (no globe to click) are rows like any other for the arrow keys.
    void theArrowKeysSelectEveryRow()
    {
        MyDocument *doc = openActive("Arrows"); // Bank has a website, Mail and Shop none
        QVERIFY(doc);
        doc->passwordTable->setFocus();
        QTRY_VERIFY(doc->passwordTable->hasFocus());
        QVERIFY(doc->passwordTable->selectedRows().isEmpty());
        auto press = [doc](const QString &key, int row) {
            if (QTest::currentTestFailed())
                return;
            pressKeys({key});
            QVERIFY2(doc->passwordTable->selectedRows() == QList<int>{row}, qPrintable(key + " did not select row " + QString::number(row)));
        };
        press("Down", 0);
        press("Down", 1);
        press("Down", 2);
        press("Up", 1);
        QVERIFY(gWebsiteItem && entryName(*gWebsiteItem.get()) == u"Mail");
        // From a row the program selected (as a save or a search does), the keys go on.
        selectByName(doc, "Shop");
        press("Up", 1);
        press("Home", 0);
        press("End", 2);
        // A click on the empty globe of a row without a website opens nothing but selects it.
        const QRect cell = doc->passwordTable->visualRect(doc->passwordTable->model()->index(1, 0));
        clickMouse(doc->passwordTable->viewport()->mapToGlobal(cell.center()));
        QTRY_COMPARE(doc->passwordTable->selectedRows(), QList<int>{1});
    }

    // After the editor closes, whichever way, the arrow keys go on in the list.
    void theKeyboardIsBackInTheListWhenTheEditorCloses()
    {
        MyDocument *doc = openActive("Keyboard");
        QVERIFY(doc);
        doc->passwordTable->setFocus();
        QTRY_VERIFY(doc->passwordTable->hasFocus());
        const QList<QPair<QStringList, QString>> ways{{{"ctrl+shift+n"}, "Added"},   // Add, saved with Return
                                                       {{"Home", "Return"}, "Renamed"}, // Return on a row, saved
                                                       {{"ctrl+e"}, ""}};             // View/Edit, Escape
        for (const auto &[open, name] : ways) {
            ModalResponder r; // the editor runs modally: it is answered from inside its loop
            r.then([doc, name = name](QWidget *) {
                QTRY_VERIFY(doc->pwDataCalloutView->nameText->hasFocus());
                if (!name.isEmpty())
                    typeText(name);
                pressKeys({name.isEmpty() ? "Escape" : "Return"});
            });
            pressKeys(open);
            QTRY_VERIFY(r.done());
            QTRY_VERIFY(!doc->callout);
            QTest::qWait(50); // the deferred save
            QTRY_VERIFY2(doc->passwordTable->hasFocus(), qPrintable(open.join(' ') + " left the focus on " +
                                                                   (QApplication::focusWidget() ? QApplication::focusWidget()->metaObject()->className() : QString("nothing"))));
        }
        QCOMPARE(entryNames(doc->file().passwordArray()), (QStringList{"Bank", "Mail", "Renamed", "Shop"})); // Home went to Added
        pressKeys({"Down"});
        QCOMPARE(doc->passwordTable->selectedRows(), QList<int>{1});
        // Duplicating leaves nothing selected; the keyboard stays in the list all the same.
        pressKeys({"ctrl+d"});
        QTRY_COMPARE(doc->file().passwordArray().size(), 5);
        QTest::qWait(50);
        QVERIFY2(doc->passwordTable->hasFocus(), QApplication::focusWidget() ? QApplication::focusWidget()->metaObject()->className() : "nothing");
        pressKeys({"Down"});
        QCOMPARE(doc->passwordTable->selectedRows(), QList<int>{0});
    }

    void aSearchThatFindsNothingSaysSoAndEscapeGivesItUp()
    {
        MyDocument *doc = openActive("NotFound");
        QVERIFY(doc);
        pressKeys({"ctrl+f"});
        QTRY_VERIFY(doc->searchField->hasFocus());
        typeText("zzzz");
        pressKeys({"Return"});
        QVERIFY(doc->notFoundMessage->isVisible());
        const QRect shown(doc->notFoundMessage->mapTo(doc, QPoint()), doc->notFoundMessage->size());
        QVERIFY(shown.width() > 20 && shown.height() > 5);
        QVERIFY(doc->rect().contains(shown));
        QVERIFY(!doc->notFoundMessage->text().isEmpty());
        pressKeys({"Escape"});
        QVERIFY(doc->searchField->text().isEmpty());
        QVERIFY(doc->notFoundMessage->isHidden());
        QVERIFY(doc->passwordTable->hasFocus());
        QVERIFY(doc->isVisible()); // Escape is no reason to close anything
    }

    void windowsAndPanelsStayOnTheirWindowsScreen()
    {
        // Three windows, one after the other, each with its password panel.
        QList<MyDocument *> docs;
        for (const QString name : {"First", "Second", "Third"}) {
            const QString path = pkg(name + ".qvm");
            QVERIFY(makePackage(path, "pw", bankList()));
            ModalResponder r;
            QRect panel;
            r.then([&](QWidget *w) {
                QVERIFY(QTest::qWaitForWindowExposed(w));
                panel = w->frameGeometry();
                typePassword(w, "pw");
            });
            m_controller->openFile(path);
            QTRY_VERIFY(r.done());
            MyDocument *doc = m_controller->documentForPath(path);
            QTRY_VERIFY(doc->isOpen());
            QVERIFY(QTest::qWaitForWindowExposed(doc));
            QTest::qWait(100);
            const QRect window = doc->frameGeometry();
            const QRect available = doc->screen()->availableGeometry();
            const QString where = QString("%1: window at %2,%3 %4x%5, panel at %6,%7")
                                      .arg(name).arg(window.x()).arg(window.y()).arg(window.width()).arg(window.height())
                                      .arg(panel.x()).arg(panel.y());
            QVERIFY2(available.contains(window), qPrintable(where));
            // Over its window as the window ended up on the screen.
            QVERIFY2((panel.center() - window.center()).manhattanLength() < 40, qPrintable(where));
            QVERIFY2(available.contains(panel), qPrintable(where));
            for (MyDocument *other : docs)
                QVERIFY2(other->frameGeometry().topLeft() != window.topLeft(), qPrintable(where));
            docs.append(doc);
        }
    }

    void theCalloutHasNoBlackCornersWithoutACompositor()
    {
        MyDocument *doc = openActive("Corners");
        QVERIFY(doc);
        selectByName(doc, "Bank");
        QRegion mask;
        bool cornerShowsTheWindowBelow = false;
        inEditor(doc, [doc] { doc->editEntry(); }, [&](MyDocument *d) {
            QVERIFY(QTest::qWaitForWindowExposed(d->callout));
            mask = d->callout->mask();
            // Above the body beside the arrow, where the window below shows through, once
            // the server has drawn it all.
            const QPoint at = d->callout->geometry().topLeft() + QPoint(d->callout->width() / 2 + 40, 1);
            for (int i = 0; i < 50 && !cornerShowsTheWindowBelow; ++i) {
                QTest::qWait(50);
                const QImage corner = d->screen()->grabWindow(0, at.x(), at.y(), 3, 3).toImage();
                cornerShowsTheWindowBelow = !corner.isNull() && corner.pixelColor(1, 1) != QColor(Qt::black);
            }
            d->callout->done(0);
        });
        // The test session's Openbox composites nothing: the corners are cut away, and the
        // screen shows the window below there, not black.
        QVERIFY(!mask.isEmpty());
        QVERIFY(!mask.contains(QPoint(0, 0)));
        QVERIFY(!mask.contains(QPoint(200, 2)));
        QVERIFY(mask.contains(QPoint(60, 60)));
        QVERIFY2(cornerShowsTheWindowBelow, "black corner");
    }

    void toolTipsIconAndNamesForEveryone()
    {
        EntryList list = bankList();
        Entry e = list[0].toMap();
        e.insert(EntryKey::UserID, "<b>boss</b> & co");
        list[0] = e;
        MyDocument *doc = openActive("Tips", list);
        QVERIFY(doc);
        gPrefs->setBool(true, Pref::HoverUserID);
        gPrefs->setBool(false, Pref::HoverPassword);
        gPrefs->setBool(false, Pref::HoverURL);
        gPrefs->setBool(false, Pref::HoverNotes);
        // The tool tip of the hovered row, read as the tool tip reads it.
        QWCellTableViewArray *table = doc->passwordTable;
        const QRect cell = table->visualRect(table->model()->index(0, 1));
        moveMouse(table->viewport()->mapToGlobal(cell.center() - QPoint(10, 0)));
        moveMouse(table->viewport()->mapToGlobal(cell.center()));
        QTRY_VERIFY(QToolTip::isVisible());
        QString shown = QToolTip::text();
        if (Qt::mightBeRichText(shown)) {
            QTextDocument rich;
            rich.setHtml(shown);
            shown = rich.toPlainText();
        }
        QCOMPARE(shown, QString("User ID: <b>boss</b> & co"));
        moveMouse(QPoint(0, 0));

        // The go-to-URL icon has the pixels of the screen it is shown on.
        const QIcon icon = table->model()->index(0, 0).data(Qt::DecorationRole).value<QIcon>();
        QVERIFY(!icon.isNull());
        for (qreal ratio : {1.0, 2.0, 3.0}) {
            const QPixmap pm = icon.pixmap(QSize(16, 16), ratio);
            QCOMPARE(pm.size(), QSize(16, 16) * ratio);
            QCOMPARE(pm.deviceIndependentSize(), QSizeF(16, 16));
        }

        // What a screen reader calls the controls that show no words.
        auto name = [](QWidget *w) { return QAccessible::queryAccessibleInterface(w)->text(QAccessible::Name); };
        QCOMPARE(name(doc->searchBackwardButton), QString("Find Previous"));
        QCOMPARE(name(doc->searchForwardButton), QString("Find Next"));
        QCOMPARE(name(doc->searchField), QString("Search"));
        QAccessibleTableInterface *t = QAccessible::queryAccessibleInterface(table)->tableInterface();
        QVERIFY(t);
        QAccessibleInterface *iconCell = t->cellAt(0, 0);
        QVERIFY(iconCell);
        QCOMPARE(iconCell->text(QAccessible::Name), QString("Go To URL"));
        const QList<QAccessibleInterface *> headers = iconCell->tableCellInterface()->columnHeaderCells();
        QCOMPARE(headers.size(), 1);
        QCOMPARE(headers.first()->text(QAccessible::Name), QString("Go To URL"));
    }

    void startsOnXWaylandOnAWaylandSession()
    {
        QProcess app;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_SESSION_TYPE", "wayland");
        env.insert("WAYLAND_DISPLAY", "tessaline-test-no-such-compositor");
        env.remove("QT_QPA_PLATFORM");
        env.insert("QT_LOGGING_RULES", "qt.qpa.plugin=true");
        app.setProcessEnvironment(env);
        const QString shot = pkg("screen.png");
        app.start(qEnvironmentVariable("TESSALINE_BUILD_DIR") + "/tessaline", {"--screenshot", shot});
        QVERIFY(app.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(app.state() == QProcess::NotRunning, 30000);
        QCOMPARE(app.exitStatus(), QProcess::NormalExit);
        QCOMPARE(app.exitCode(), 0);
        QVERIFY(QFileInfo(shot).size() > 0);
        // Qt would try Wayland first, which works where its plugin and a compositor are.
        const QString log = QString::fromLocal8Bit(app.readAllStandardError());
        QVERIFY2(!log.contains("platform plugin \"wayland\""), qPrintable(log));
        QVERIFY2(log.contains("Successfully loaded Qt platform plugin \"xcb\""), qPrintable(log));
    }

    void readOnlyPackages()
    {
        const QString mount = pkg("ro");
        QDir().mkpath(mount);
        if (::mount("tmpfs", QFile::encodeName(mount).constData(), "tmpfs", 0, "size=1m") != 0)
            QSKIP("cannot mount a tmpfs here (not root?)");
        QVERIFY(makePackage(mount + "/Locked.qvm", "pw", bankList()));
        ::mount("tmpfs", QFile::encodeName(mount).constData(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr);
        MyDocument *doc = open(mount + "/Locked.qvm");
        QVERIFY(doc);
        QVERIFY(doc->addButton->isHidden());
        QVERIFY(doc->deleteButton->isHidden());
        QVERIFY(doc->duplicateButton->isHidden());
        QVERIFY(doc->readOnlyIcon->isVisible());
        selectByName(doc, "Bank");
        inEditor(doc, [doc] { doc->editEntry(); }, [](MyDocument *d) {
            d->pwDataCalloutView->nameText->setText("Changed");
            QVERIFY(!d->pwDataCalloutView->okButton->isEnabled());
            d->callout->done(0);
        });
        delete doc;
        ::umount2(QFile::encodeName(mount).constData(), MNT_DETACH);
    }

    void dragAndDropBetweenTwoFiles()
    {
        QVERIFY(makePackage(pkg("From.qvm"), "pw", bankList()));
        QVERIFY(makePackage(pkg("To.qvm"), "pw", EntryList{Entry{{EntryKey::Path, "Bank"}, {EntryKey::Button, ""}}}));
        MyDocument *from = open(pkg("From.qvm"));
        MyDocument *to = open(pkg("To.qvm"));
        QVERIFY(from && to);
        QAbstractItemModel *fromModel = from->passwordTable->model();
        std::unique_ptr<QMimeData> mime(fromModel->mimeData({fromModel->index(0, 1), fromModel->index(1, 1)}));
        QVERIFY(mime);
        QVERIFY(mime->hasFormat("PW Items"));
        QCOMPARE(QString::fromUtf8(mime->data("DB Path")), from->filePath());
        QVERIFY(!fromModel->canDropMimeData(mime.get(), Qt::CopyAction, -1, -1, {})); // not onto itself
        QAbstractItemModel *toModel = to->passwordTable->model();
        QVERIFY(toModel->canDropMimeData(mime.get(), Qt::CopyAction, -1, -1, {}));
        QVERIFY(toModel->dropMimeData(mime.get(), Qt::CopyAction, -1, -1, {}));
        QTest::qWait(50);
        QCOMPARE(entryNames(to->file().passwordArray()), (QStringList{"Bank", "Bank2", "Mail"}));
        QCOMPARE(to->passwordTable->selectedRows(), QList<int>{1}); // the first dropped entry
        QCOMPARE(entryNames(from->file().passwordArray()), (QStringList{"Bank", "Mail", "Shop"}));
    }

    void changingThePasswordFromTheWindow()
    {
        QVERIFY(makePackage(pkg("Change.qvm"), "pw", bankList()));
        MyDocument *doc = open(pkg("Change.qvm"));
        QVERIFY(doc);
        {
            // Cancel at either step: "Password not changed.", and the file keeps its password.
            ModalResponder no;
            QStringList told;
            auto notChanged = [&](QWidget *w) {
                auto *p = qobject_cast<PromptPanel *>(w);
                QVERIFY(p);
                told.append(p->promptMessage->text());
                p->promptDefaultButton->click();
            };
            no.then([](QWidget *w) { static_cast<QDialog *>(w)->done(0); });
            no.then(notChanged);
            no.then([](QWidget *w) { typePassword(w, "pw"); });
            no.then([](QWidget *w) {
                auto *p = qobject_cast<ChangePasswordPanel *>(w);
                QVERIFY(p);
                p->newFramis->setText("other");
                p->newFramis2->setText("other");
                p->done(0);
            });
            no.then(notChanged);
            doc->changePassword();
            doc->changePassword();
            QTRY_VERIFY(no.done());
            QCOMPARE(told, QStringList(2, "Password not changed."));
            QCOMPARE(listOnDisk(pkg("Change.qvm")).size(), 3);
        }
        ModalResponder r;
        bool okWhileDifferent = true, okWhenEqual = false;
        QString told;
        r.then([](QWidget *w) { typePassword(w, "pw"); });
        r.then([&](QWidget *w) {
            auto *p = qobject_cast<ChangePasswordPanel *>(w);
            QVERIFY(p);
            QVERIFY(!p->framis2OKButton->isEnabled());
            QTest::keyClicks(p->newFramis, "n3w");
            QTest::keyClicks(p->newFramis2, "n3");
            okWhileDifferent = p->framis2OKButton->isEnabled();
            QTest::keyClicks(p->newFramis2, "w");
            okWhenEqual = p->framis2OKButton->isEnabled();
            p->framis2OKButton->click();
        });
        r.then([&](QWidget *w) {
            auto *p = qobject_cast<PromptPanel *>(w);
            QVERIFY(p);
            told = p->promptMessage->text();
            p->promptDefaultButton->click();
        });
        doc->changePassword();
        QTRY_VERIFY(r.done());
        QVERIFY(!okWhileDifferent);
        QVERIFY(okWhenEqual);
        QCOMPARE(told, QString("Password changed."));
        ScriptedDelegate d;
        d.passwords = {"n3w"};
        PasswordFile check(pkg("Change.qvm"), nullptr, &d);
        QCOMPARE(check.open(PasswordFile::KeychainUse::Never), PasswordFile::OpenResult::Opened);
    }

    void reLockingAfterTheWindowWasLeft()
    {
        QVERIFY(makePackage(pkg("Lock.qvm"), "pw", bankList()));
        MyDocument *doc = open(pkg("Lock.qvm"));
        QVERIFY(doc);
        QWidget elsewhere;
        elsewhere.resize(200, 100);
        elsewhere.show();
        QVERIFY(activate(doc));
        QTRY_COMPARE(gWebsiteDocument.data(), doc);

        // 2: one minute's grace; coming back in time asks nothing.
        gPrefs->setInteger(2, Pref::PasswordPrompt);
        QVERIFY(activate(&elsewhere));
        QTRY_VERIFY(doc->passwordTimer.isActive());
        QCOMPARE(doc->passwordTimer.interval(), 60000);
        QVERIFY(activate(doc));
        QTRY_VERIFY(!doc->passwordTimer.isActive());
        QVERIFY(!doc->promptForPassword());
        QCOMPARE(gWebsiteDocument.data(), doc);

        // 1: asked again at once on return. (The answer is ready before leaving: the window
        // manager may hand the focus back at any moment.)
        gPrefs->setInteger(1, Pref::PasswordPrompt);
        {
            ModalResponder r;
            QString asked;
            bool namesShownBehindThePrompt = true;
            r.then([&](QWidget *w) {
                namesShownBehindThePrompt = doc->passwordTable->isVisible();
                typePassword(w, "pw", &asked);
            });
            (void)activate(&elsewhere);
            QTRY_VERIFY(doc->promptForPassword() || r.done());
            // Locked: the entry names are not on screen, while away or behind the prompt.
            QVERIFY(r.done() || !doc->passwordTable->isVisible());
            doc->activateWindow();
            QTRY_VERIFY(r.done());
            QCOMPARE(asked, QString("Re-enter Password:"));
            QVERIFY(!namesShownBehindThePrompt);
            QTRY_VERIFY(doc->passwordTable->isVisible());
            QTRY_COMPARE(gWebsiteDocument.data(), doc);
            QVERIFY(doc->isOpen());
        }

        // Cancelling the request closes the window.
        QPointer<MyDocument> watched = doc;
        {
            ModalResponder cancel;
            cancel.then([](QWidget *w) { static_cast<QDialog *>(w)->done(0); });
            (void)activate(&elsewhere);
            QTRY_VERIFY(watched.isNull() || watched->promptForPassword() || cancel.done());
            if (watched)
                watched->activateWindow();
            QTRY_VERIFY(cancel.done());
            QTRY_VERIFY(watched.isNull() || !watched->isVisible());
        }
        QVERIFY(QDir::home().entryList({".QVM.*"}, QDir::Dirs | QDir::Hidden).isEmpty());
        gPrefs->setInteger(0, Pref::PasswordPrompt);
    }

    void closingAWindowForgetsItsCurrentEntry()
    {
        QVERIFY(makePackage(pkg("Closed.qvm"), "pw", bankList()));
        MyDocument *doc = open(pkg("Closed.qvm"));
        QVERIFY(doc);
        doc->setPromptForPassword(); // locked: no window is main
        QVERIFY(!gWebsiteDocument);
        selectByName(doc, "Bank");
        QVERIFY(gWebsiteItem);
        delete doc;
        QVERIFY(!gWebsiteItem); // not left pointing into the closed window
    }
};

QTEST_MAIN(TestGuiDocuments)
#include "tst_gui_documents.moc"
