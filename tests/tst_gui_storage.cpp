// The document window's storage beside other writers and processes, on the real X server
// and keyring: saves that merge what tessaline-cli wrote meanwhile, scratch directories, and
// no plaintext on disk through a whole session of the application.

#include "core/app/QWPrefs.h"
#include "core/entries/EntryList.h"
#include "core/storage/PasswordFile.h"
#include "platform/linux/SecretServiceKeychain.h"
#include "support/FileSupport.h"
#include "support/GuiSupport.h"
#include "support/TestSupport.h"
#include "ui/CXAttachedWindow.h"
#include "ui/Controller.h"
#include "ui/EntryEditor.h"
#include "ui/Globals.h"
#include "ui/MyDocument.h"
#include "ui/Panels.h"
#include "ui/QWCellTableViewArray.h"
#include "ui/SingleInstance.h"

#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QLabel>
#include <QPushButton>
#include <QPlainTextEdit>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/stat.h>

using namespace tess;
using namespace tess::testsupport;

namespace {

// Go To URL opens the address in a stand-in for the browser that notes it down in
// $HOME/opened (the test session has no browser, and a real one would outlive the test).
// Answers the script, for $BROWSER. The desktop's settings for it are the system's: GIO reads
// its directories once, at its first use, while each test has a home of its own.
QString standInBrowser(const QString &)
{
    static const QString script = [] {
        static const QTemporaryDir dir;
        const QString path = dir.path() + "/browser.sh";
        writeBytes(path, "#!/bin/sh\necho \"$1\" >> \"$HOME/opened\"\n");
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QDir().mkpath(dir.path() + "/applications");
        writeBytes(dir.path() + "/applications/stand-in-browser.desktop",
                   "[Desktop Entry]\nType=Application\nName=Stand-in\nExec=" + path.toUtf8() + " %u\n");
        writeBytes(dir.path() + "/mimeapps.list", "[Default Applications]\nx-scheme-handler/http=stand-in-browser.desktop\n"
                                                  "x-scheme-handler/https=stand-in-browser.desktop\n");
        const auto prepend = [&](const char *var, const char *fallback) {
            const QByteArray old = qgetenv(var);
            qputenv(var, QFile::encodeName(dir.path()) + ":" + (old.isEmpty() ? QByteArray(fallback) : old));
        };
        prepend("XDG_DATA_DIRS", "/usr/local/share:/usr/share");
        prepend("XDG_CONFIG_DIRS", "/etc/xdg");
        return path;
    }();
    return script;
}
// Before anything in the process asks GIO.
const QString gStandInBrowser = standInBrowser(QString());

// A file's identity and date: a rewrite (a new file renamed over it) changes them.
QByteArray fileStamp(const QString &path)
{
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return {};
    return QByteArray::number(qulonglong(st.st_ino)) + ':' + QByteArray::number(qint64(st.st_mtim.tv_nsec))
           + ':' + QByteArray::number(qint64(st.st_mtim.tv_sec));
}

} // namespace

class TestGuiStorage : public DocumentSuite {
    Q_OBJECT

private Q_SLOTS:
    void changesFromTheCommandLineSurviveTheWindowsSaves()
    {
        const ScopedEnvironment browser("BROWSER", QFile::encodeName(standInBrowser(m_home->path())));
        const QString path = pkg("Shared.qvm");
        QVERIFY(makePackage(path, "pw", bankList()));
        MyDocument *doc = open(path);
        QVERIFY(doc);
        gPrefs->setBool(false, Pref::ConfirmDelete);

        // Outside, while the window is open: an entry added, one changed.
        QCOMPARE(runCli({"add", path, "Xenon", "--url", "https://xenon.example", "--password-stdin"}).code, 0);
        QCOMPARE(runCli({"edit", path, "Shop", "--notes", "changed outside", "--password-stdin"}).code, 0);

        // At once, in the window: a duplicate, then a deletion.
        selectByName(doc, "Bank");
        doc->duplicateButton->click();
        QTRY_COMPARE(testsupport::entryNames(doc->file().passwordArray()), (QStringList{"Bank", "Bank copy", "Mail", "Shop", "Xenon"}));
        QTRY_VERIFY(doc->saveMsg->isHidden());
        QCOMPARE(doc->passwordTable->model()->rowCount(), 5);
        selectByName(doc, "Mail");
        doc->deleteButton->click();
        QTRY_COMPARE(testsupport::entryNames(doc->file().passwordArray()), (QStringList{"Bank", "Bank copy", "Shop", "Xenon"}));
        QTRY_VERIFY(doc->saveMsg->isHidden());
        const EntryList onDisk = listOnDisk(path);
        QCOMPARE(testsupport::entryNames(onDisk), (QStringList{"Bank", "Bank copy", "Shop", "Xenon"}));
        QCOMPARE(onDisk[2].toMap().value(EntryKey::Notes).toString(), QString("changed outside"));

        // A merge moves rows: the selected entry stays selected, and current.
        QCOMPARE(runCli({"add", path, "Apple", "--password-stdin"}).code, 0);
        selectByName(doc, "Shop");
        QCOMPARE(doc->passwordTable->selectedRows(), QList<int>{2});
        doc->QWCellTableViewArrayChanged();
        QTRY_COMPARE(doc->passwordTable->model()->rowCount(), 5);
        QTRY_VERIFY(doc->saveMsg->isHidden());
        QCOMPARE(doc->passwordTable->selectedRows(), QList<int>{3});
        QVERIFY(gWebsiteItem);
        QCOMPARE(gWebsiteItem->value(EntryKey::Path).toString(), QString("Shop"));
        QCOMPARE(testsupport::entryNames(listOnDisk(path)), (QStringList{"Apple", "Bank", "Bank copy", "Shop", "Xenon"}));

        // So does the change watcher's reading of the file.
        QCOMPARE(runCli({"add", path, "Aaron", "--password-stdin"}).code, 0);
        doc->updateTimer.start(20);
        QTRY_COMPARE(doc->passwordTable->model()->rowCount(), 6);
        QCOMPARE(doc->passwordTable->selectedRows(), QList<int>{4});
        QCOMPARE(gWebsiteItem->value(EntryKey::Path).toString(), QString("Shop"));

        // And Go To URL goes to the entry that was asked for, not to the one now in its row.
        QCOMPARE(runCli({"add", path, "Abel", "--password-stdin"}).code, 0);
        const int bankRow = int(entryWithName(doc->file().passwordArray(), "Bank"));
        doc->goToURL(bankRow);
        QCOMPARE(doc->file().recentWebsiteTitles(), QStringList{"Bank"});
    }

    // One instance per session: a second launch hands its files to the first and ends, and
    // the first goes on saving (the second never takes its scratch directory away).
    void aSecondLaunchHandsItsFilesToTheFirst()
    {
        QVERIFY(makePackage(pkg("First.qvm"), "pw", bankList()));
        QVERIFY(makePackage(pkg("Second.qvm"), "pw", bankList()));
        MyDocument *first = open(pkg("First.qvm"));
        QVERIFY(first);
        // This process is the running instance, as the application's start makes it.
        SingleInstance instance;
        QCOMPARE(instance.claimOrHandOver({}), SingleInstance::Role::Primary);
        connect(&instance, &SingleInstance::filesHandedOver, m_controller.get(), &Controller::openFilesHandedOver);

        ModalResponder r;
        r.then([](QWidget *w) { typePassword(w, "pw"); });
        const QString app = qEnvironmentVariable("TESSALINE_BUILD_DIR") + "/tessaline";
        auto launch = [&](const QStringList &args) {
            QProcess second;
            second.setWorkingDirectory(m_home->path());
            second.start(app, args);
            // Waited for with the event loop running: this process must answer meanwhile.
            for (int i = 0; i < 400 && second.state() != QProcess::NotRunning; ++i)
                QTest::qWait(50);
            if (second.state() != QProcess::NotRunning) {
                second.kill();
                second.waitForFinished();
                return -1;
            }
            return second.exitStatus() == QProcess::NormalExit ? second.exitCode() : -1;
        };
        QCOMPARE(launch({"Second.qvm/"}), 0); // relative, with the slash of shell completion
        QTRY_VERIFY(r.done());
        MyDocument *second = m_controller->documentForPath(pkg("Second.qvm"));
        QVERIFY(second);
        QTRY_VERIFY(second->isOpen());
        QCOMPARE(launch({}), 0);
        QCOMPARE(m_controller->documents().size(), 2);
        QCOMPARE(scratchDirectories().size(), 2);

        // Ctrl+D in the first window still saves.
        QVERIFY(activate(first));
        selectByName(first, "Bank");
        QTest::keyClick(first->passwordTable, Qt::Key_D, Qt::ControlModifier);
        QTRY_VERIFY(first->saveMsg->isHidden());
        QCOMPARE(entryNames(listOnDisk(pkg("First.qvm"))), (QStringList{"Bank", "Bank copy", "Mail", "Shop"}));
        instance.release();
    }

    // A launch that ends with no window on screen ends: a path that is not a password file is
    // told so, and the application goes once the message is answered.
    void aLaunchWithNothingToShowEnds()
    {
        writeBytes(pkg("notes.txt"), "not a password file");
        QProcess launched;
        launched.start(qEnvironmentVariable("TESSALINE_BUILD_DIR") + "/tessaline", {pkg("notes.txt")});
        QVERIFY(launched.waitForStarted());
        const QStringList message{"search", "--all", "--onlyvisible", "--pid", QString::number(launched.processId()),
                                  "--name", "Tessaline"};
        auto xdotool = [](const QStringList &args) {
            QProcess p;
            p.setStandardOutputFile(QProcess::nullDevice());
            p.start("xdotool", args);
            return p.waitForFinished() && p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
        };
        QTRY_VERIFY_WITH_TIMEOUT(xdotool(message) == 0, 20000);
        QCOMPARE(xdotool(message + QStringList{"windowactivate", "--sync"}), 0);
        QCOMPARE(xdotool({"key", "Return"}), 0);
        QVERIFY(launched.waitForFinished(10000));
        QCOMPARE(launched.exitCode(), 0);
    }

    void aFileIsNotOpenedWithoutItsScratchDirectory()
    {
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", bankList()));
        ModalResponder r;
        QString told;
        r.then([&](QWidget *w) {
            auto *p = qobject_cast<PromptPanel *>(w);
            QVERIFY2(p, "expected a message, not a password prompt");
            told = p->promptMessage->text();
            p->promptDefaultButton->click();
        });
        {
            const ScopedEnvironment noHome("HOME", QFile::encodeName(pkg("gone")));
            m_controller->openFile(path);
            QTRY_VERIFY(r.done());
        }
        QCOMPARE(told, PasswordFile::kNoScratchDirectory.arg("Bank", "No such file or directory"));
        QTRY_VERIFY(m_controller->documents().isEmpty());
    }

    void plaintextNeverTouchesTheDisk()
    {
        const QByteArray marker = "MARKER-5c2e91d7-plaintext";
        const QString m = QString::fromLatin1(marker);
        const QString tmp = pkg("tmp");
        QDir().mkpath(tmp);
        const ScopedEnvironment tmpdir("TMPDIR", QFile::encodeName(tmp));
        const ScopedEnvironment browser("BROWSER", QFile::encodeName(standInBrowser(m_home->path())));
        const QString opened = m_home->path() + "/opened";
        const QString path = pkg("Secret.qvm");
        const QStringList roots{m_home->path(), tmp, path};
        // A failure must end the test where it happens (a lambda could not).
#define EXPECT_NO_MARKER(when)                                                                                        \
    do {                                                                                                              \
        const QString found = filesHolding(marker, roots).join(", ");                                                 \
        QVERIFY2(found.isEmpty(), qPrintable(QStringLiteral(when ": ") + found));                                     \
    } while (false)
        const QString firstPassword = m + "-file", newPassword = m + "-new";

        // Create and open, as the new-file panel does once it has the name and the password.
        QVERIFY(PasswordFile::createPackage(path, firstPassword));
        MyDocument *doc = open(path, firstPassword);
        QVERIFY(doc);
        EXPECT_NO_MARKER("after opening");

        // An entry whose name (a recent website's title, too), password and notes hold it.
        const QString name = "Bank " + m;
        ModalResponder editor;
        editor.then([&](QWidget *) {
            doc->pwDataCalloutView->nameText->setText(name);
            doc->pwDataCalloutView->urlText->setText("https://bank.example/login");
            doc->pwDataCalloutView->passwordText->setText(m + "-password");
            doc->pwDataCalloutView->notesText->setPlainText(m + "-notes");
            doc->pwDataCalloutView->okButton->click();
        });
        doc->addButton->click();
        QTRY_VERIFY(editor.done());
        QTRY_VERIFY(!doc->callout);
        QTRY_VERIFY(doc->saveMsg->isHidden());
        QCOMPARE(testsupport::entryNames(listOnDisk(path, firstPassword)), QStringList{name});
        EXPECT_NO_MARKER("after editing");

        doc->goToURL(0);
        QCOMPARE(doc->file().recentWebsiteTitles(), QStringList{name});
        QTRY_VERIFY(readFile(opened).contains("https://bank.example/login"));
        EXPECT_NO_MARKER("after Go To URL");

        ModalResponder change;
        change.then([&](QWidget *w) { typePassword(w, firstPassword); });
        change.then([&](QWidget *w) {
            auto *p = qobject_cast<ChangePasswordPanel *>(w);
            QVERIFY(p);
            p->newFramis->setText(newPassword);
            p->newFramis2->setText(newPassword);
            p->framis2OKButton->click();
        });
        change.then([](QWidget *w) { qobject_cast<PromptPanel *>(w)->promptDefaultButton->click(); });
        doc->changePassword();
        QTRY_VERIFY(change.done());
        QCOMPARE(listOnDisk(path, newPassword).size(), 1);
        EXPECT_NO_MARKER("after changing the password");

        // Locked on leaving the window, unlocked on coming back. (The answers are ready before
        // the window is left: the window manager may hand the focus back at any moment, and
        // more than once.)
        QWidget elsewhere;
        elsewhere.resize(200, 100);
        elsewhere.show();
        QVERIFY(activate(doc));
        {
            ModalResponder unlock;
            int unlocked = 0;
            for (int i = 0; i < 3; ++i)
                unlock.then([&](QWidget *w) {
                    typePassword(w, newPassword);
                    ++unlocked;
                });
            gPrefs->setInteger(1, Pref::PasswordPrompt);
            (void)activate(&elsewhere);
            QTRY_VERIFY(doc->promptForPassword() || unlocked > 0);
            doc->activateWindow();
            QTRY_VERIFY(unlocked > 0);
            gPrefs->setInteger(0, Pref::PasswordPrompt);
            if (doc->promptForPassword()) // left once more before the setting went back
                doc->activateWindow();
            QTRY_VERIFY(!doc->promptForPassword());
            QVERIFY(doc->isOpen());
        }
        QVERIFY(gPrefs->synchronize());
        EXPECT_NO_MARKER("after locking");
        doc->close();
        QTRY_VERIFY(m_controller->documents().isEmpty());

        // The application itself, opening the file from the keyring, killed while it is open,
        // then started again (which finds no running instance to hand the file to: a killed
        // one never blocks the next).
        QCOMPARE(m_keychain.add("Secret", "Tessaline", newPassword.toUtf8()), 0);
        const QString app = qEnvironmentVariable("TESSALINE_BUILD_DIR") + "/tessaline";
        const QString titles = path + "/Recent Websites.qvmi";
        QString crashedScratch;
        for (int launch = 0; launch < 2; ++launch) {
            // The opening rewrites the titles file: that is how the test knows it is open.
            const QByteArray before = fileStamp(titles);
            QProcess running;
            running.start(app, {path});
            QVERIFY(running.waitForStarted());
            QTRY_VERIFY_WITH_TIMEOUT(fileStamp(titles) != before, 30000);
            const QStringList dirs = scratchDirectories();
            QCOMPARE(dirs.size(), 1); // the one it holds; a crashed run's was removed at start-up
            QVERIFY(dirs.first() != crashedScratch);
            crashedScratch = dirs.first();
            EXPECT_NO_MARKER("while the application has the file open");
            ::kill(pid_t(running.processId()), SIGKILL);
            QVERIFY(running.waitForFinished());
            EXPECT_NO_MARKER("after the application was killed");
        }
        m_keychain.remove("Secret", "Tessaline");
        QCOMPARE(PasswordFile::removeLeftoverScratchDirectories(), 1);
        EXPECT_NO_MARKER("at the end");
        QCOMPARE(listOnDisk(path, newPassword).size(), 1);
#undef EXPECT_NO_MARKER
    }
};

QTEST_MAIN(TestGuiStorage)
#include "tst_gui_storage.moc"
