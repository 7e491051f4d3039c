// What a login acts on, through the windows: the current entry (the one the hot keys type
// and Go To URL opens) and the recent-websites menu; and a login as the user meets it: the
// floating panels, no input while it runs, Escape, and what stops it.

#include "core/app/QWPrefs.h"
#include "core/login/LoginRunner.h"
#include "core/entries/EntryList.h"
#include "core/storage/PasswordFile.h"
#include "support/FileSupport.h"
#include "support/GuiSupport.h"
#include "ui/ApplicationLogin.h"
#include "ui/DVBrowser.h"
#include "ui/Controller.h"
#include "ui/CXAttachedWindow.h"
#include "ui/EntryEditor.h"
#include "ui/Globals.h"
#include "ui/MyDocument.h"
#include "ui/Panels.h"
#include "ui/QWCellTableViewArray.h"
#include "ui/WebsitePasswordManager.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace tess;
using namespace tess::testsupport;

namespace {

EntryList sites()
{
    EntryList list;
    for (const QString &name : {QStringLiteral("Bank"), QStringLiteral("Mail"), QStringLiteral("Shop")})
        list.append(Entry{{EntryKey::Path, name}, {EntryKey::URL, QStringLiteral("https://%1.example").arg(name.toLower())},
                          {EntryKey::Password, QString(QStringLiteral("pw-") + name)}});
    return list;
}

// Another program sets a key of one entry and adds an entry (so the window sees a new row).
bool changeOutside(const QString &path, const QString &name, const QString &key, const QString &value, const QString &added)
{
    return testsupport::changeOutside(path, [&](EntryList &l) {
        QVariantMap e = l[entryWithName(l, name)].toMap();
        e.insert(key, value);
        l[entryWithName(l, name)] = e;
        l.append(Entry{{EntryKey::Path, added}});
    });
}

QString currentPassword()
{
    return gWebsiteItem ? gWebsiteItem->value(EntryKey::Password).toString() : QStringLiteral("<none>");
}

// The title items of the shared menu, and whether "Clear Menu" can be chosen.
QStringList menuTitles(bool *clearEnabled = nullptr)
{
    QStringList titles;
    for (QAction *a : gRecentWebsitesMenu->actions()) {
        if (a->text() == u"Clear Menu") {
            if (clearEnabled)
                *clearEnabled = a->isEnabled();
        } else if (!a->isSeparator()) {
            titles.append(a->text());
        }
    }
    return titles;
}

QStringList titlesOnDisk(const QString &path)
{
    ScriptedDelegate d;
    d.passwords = {"pw"};
    PasswordFile file(path, nullptr, &d);
    if (file.open(PasswordFile::KeychainUse::Never) != PasswordFile::OpenResult::Opened)
        return {"<unreadable>"};
    return file.recentWebsiteTitles();
}

// Browsers of the test's own: one that starts and stays (opening no window, so the typing
// goes nowhere) and one that exits at once with an error.
const QString kSlowID = QStringLiteral("tessaline-test-slow.desktop");
const QString kBrokenID = QStringLiteral("tessaline-test-broken.desktop");

bool writeText(const QString &path, const QByteArray &text)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(text) == text.size();
}

EntryList loginSites()
{
    EntryList list;
    const auto site = [&](const char *name, const QString &browser, Entry extra) {
        Entry e{{EntryKey::Path, name}, {EntryKey::URL, "http://127.0.0.1:9/"}, {EntryKey::UserID, "user"},
                {EntryKey::Password, QString(QString("pw-") + name)}, {EntryKey::NewUserIDOptions, 1},
                {EntryKey::BrowserBundleID, browser}};
        for (auto it = extra.cbegin(); it != extra.cend(); ++it)
            e.insert(it.key(), it.value());
        list.append(e);
    };
    site("Slow", kSlowID, {});
    site("Broken", kBrokenID, {});
    site("Shown", kSlowID, {{EntryKey::PasswordOptions, 3}});
    site("Built-in", kSlowID, {{EntryKey::UseDVBrowser, true}});
    return list;
}

} // namespace

class TestGuiLogin : public DocumentSuite {
    Q_OBJECT

    QTemporaryDir m_apps;

public:
    TestGuiLogin()
    {
        // GIO reads the application directories once, at its first use: these come first.
        const QString dir = m_apps.path() + "/applications";
        QDir().mkpath(dir);
        writeText(dir + "/" + kSlowID, "[Desktop Entry]\nType=Application\nName=Slow Browser\n"
                                       "Exec=sh -c \"sleep 20\" browser %U\n"
                                       "MimeType=x-scheme-handler/http;x-scheme-handler/https;\n");
        writeText(dir + "/" + kBrokenID, "[Desktop Entry]\nType=Application\nName=Broken Browser\nExec=false %U\n"
                                         "MimeType=x-scheme-handler/http;x-scheme-handler/https;\n");
        QProcess::execute("update-desktop-database", {dir});
        const QByteArray dirs = qgetenv("XDG_DATA_DIRS");
        qputenv("XDG_DATA_DIRS", m_apps.path().toLocal8Bit() + ":" + (dirs.isEmpty() ? "/usr/local/share:/usr/share" : dirs));
    }

private:
    ApplicationLogin *login() const { return m_controller->login(); }

    // A document of the login sites, active, with a page-load delay long enough to act within.
    MyDocument *openSites(const QString &name)
    {
        gPrefs->setInteger(5, Pref::BrowserPageLoadDelay);
        const QString path = pkg(name);
        if (!makePackage(path, "pw", loginSites()))
            return nullptr;
        MyDocument *doc = open(path);
        return doc && activate(doc) ? doc : nullptr;
    }
    int rowOf(MyDocument *doc, const QString &name) { return int(entryWithName(doc->file().passwordArray(), name)); }

    void rereadNow(MyDocument *doc)
    {
        const int rows = doc->passwordTable->model()->rowCount();
        doc->updateTimer.start(20);
        QTRY_VERIFY(doc->passwordTable->model()->rowCount() != rows);
        doc->updateTimer.start(10000);
    }

private Q_SLOTS:
    void aLoginKeepsTheUserOutAndEscapeStopsIt()
    {
        MyDocument *doc = openSites("Escape.qvm");
        QVERIFY(doc);
        doc->searchField->setFocus();
        QTRY_VERIFY(doc->searchField->hasFocus());
        QSignalSpy cancelled(login()->runner(), &LoginRunner::cancelled);
        doc->goToURL(rowOf(doc, "Slow"));
        QVERIFY(login()->runner()->isRunning());
        QCOMPARE(doc->file().recentWebsiteTitles().value(0), QString("Slow"));

        // The warning is up, above the windows, on the document's screen, not taking the focus.
        QWidget *warning = login()->floatingWarningPanel;
        QTRY_VERIFY(warning->isVisible());
        QVERIFY(warning->windowFlags() & Qt::WindowDoesNotAcceptFocus);
        QVERIFY(warning->windowFlags() & Qt::WindowStaysOnTopHint);
        QCOMPARE(warning->screen(), doc->screen());
        QCOMPARE(QApplication::activeWindow(), doc);

        // What the user types or clicks reaches none of our windows meanwhile.
        typeText("abc");
        QCOMPARE(doc->searchField->text(), QString());
        moveMouse(doc->addButton->mapToGlobal(doc->addButton->rect().center()));
        QProcess::execute("xdotool", {"click", "1"});
        QTest::qWait(300);
        QVERIFY(!doc->callout);

        // Escape, with the focus left where it was, stops it.
        pressKeys({"Escape"});
        QTRY_COMPARE(cancelled.size(), 1);
        QVERIFY(!login()->runner()->isRunning());
        QVERIFY(!warning->isVisible());
        QCOMPARE(QApplication::activeWindow(), doc);

        // Afterwards the windows are the user's again, and so is Escape.
        typeText("abc");
        QTRY_COMPARE(doc->searchField->text(), QString("abc"));

        // The warning's Cancel button does the same, clicked with the mouse.
        doc->goToURL(rowOf(doc, "Slow"));
        QTRY_VERIFY(warning->isVisible());
        QTest::qWait(300); // placed by the window manager
        moveMouse(login()->floatingWarningCancel->mapToGlobal(login()->floatingWarningCancel->rect().center()));
        QProcess::execute("xdotool", {"click", "1"});
        QTRY_COMPARE(cancelled.size(), 2);
        QVERIFY(!warning->isVisible());
    }

    void closingLockingAndQuittingStopALogin()
    {
        MyDocument *doc = openSites("Stop.qvm");
        QVERIFY(doc);
        QSignalSpy cancelled(login()->runner(), &LoginRunner::cancelled);
        doc->goToURL(rowOf(doc, "Slow"));
        QVERIFY(login()->runner()->isRunning());
        doc->setPromptForPassword();
        QCOMPARE(cancelled.size(), 1);
        QVERIFY(!login()->floatingWarningPanel->isVisible());

        MyDocument *other = openSites("Quit.qvm");
        QVERIFY(other);
        other->goToURL(rowOf(other, "Slow"));
        QVERIFY(login()->runner()->isRunning());
        m_controller->applicationWillTerminate();
        QCOMPARE(cancelled.size(), 2);
        QVERIFY(!login()->runner()->isRunning());
    }

    void closingTheDocumentStopsItsLogin()
    {
        MyDocument *doc = openSites("Close.qvm");
        QVERIFY(doc);
        QSignalSpy cancelled(login()->runner(), &LoginRunner::cancelled);
        doc->goToURL(rowOf(doc, "Slow"));
        QVERIFY(login()->runner()->isRunning());
        doc->close();
        QCOMPARE(cancelled.size(), 1);
        QVERIFY(!login()->floatingWarningPanel->isVisible());
    }

    void aBrowserThatCannotStartIsNamed()
    {
        MyDocument *doc = openSites("Broken.qvm");
        QVERIFY(doc);
        QSignalSpy failed(login()->runner(), &LoginRunner::failed);
        doc->goToURL(rowOf(doc, "Broken"));
        QTRY_COMPARE(failed.size(), 1);
        QVERIFY(!login()->runner()->isRunning());
        QTRY_VERIFY(login()->failureMessage && login()->failureMessage->isVisible());
        auto *box = qobject_cast<QMessageBox *>(login()->failureMessage.data());
        QVERIFY(box);
        QVERIFY2(box->text().contains("Broken Browser"), qPrintable(box->text()));
        QVERIFY(!login()->floatingWarningPanel->isVisible());
        box->accept();
    }

    // A browser that has not come to the front when the page-load delay is over: the keyboard
    // focus is still on our window, where nothing may arrive while a login types. Nothing is
    // typed, and the user is told why rather than losing the login silently.
    void typingIntoOurOwnWindowIsRefused()
    {
        MyDocument *doc = openSites("Focus.qvm");
        QVERIFY(doc);
        gPrefs->setInteger(1, Pref::BrowserPageLoadDelay);
        QCOMPARE(QApplication::activeWindow(), doc);
        QSignalSpy failed(login()->runner(), &LoginRunner::failed);
        QSignalSpy finished(login()->runner(), &LoginRunner::finished);
        doc->goToURL(rowOf(doc, "Slow")); // a browser that never shows a window
        QVERIFY(failed.wait(1000 + KeyScriptPlayer::kReleaseTimeoutMs + 3000));
        QVERIFY2(failed[0][0].toString().contains("keyboard focus is on a Tessaline window"), qPrintable(failed[0][0].toString()));
        QVERIFY(finished.isEmpty());
        auto *box = qobject_cast<QMessageBox *>(login()->failureMessage.data());
        QVERIFY(box);
        QVERIFY(box->text().contains("longer page-load delay"));
        QVERIFY(!login()->floatingWarningPanel->isVisible());
        box->accept();
    }

    void theFloatingPasswordShowsAndGoes()
    {
        MyDocument *doc = openSites("Shown.qvm");
        QVERIFY(doc);
        selectByName(doc, "Shown");
        QWidget *panel = login()->floatingPasswordPanel;
        gWPM->pastePasswordFromHotkey(true);
        QTRY_VERIFY(panel->isVisible());
        QCOMPARE(login()->floatingPassword->text(), QString("pw-Shown"));
        QVERIFY(panel->windowFlags() & Qt::WindowDoesNotAcceptFocus);
        // What a login took when it started is not shown: the current entry's password now is.
        panel->hide();
        Q_EMIT login()->runner()->showFloatingPassword(QStringLiteral("taken at the start"));
        QTRY_VERIFY(panel->isVisible());
        QCOMPARE(login()->floatingPassword->text(), QString("pw-Shown"));
        QCOMPARE(panel->screen(), doc->screen());
        QTRY_VERIFY_WITH_TIMEOUT(!panel->isVisible(), LoginRunner::kFloatingPasswordMs + 2000);

        // Editing the password in the editor puts it away at once.
        gWPM->pastePasswordFromHotkey(true);
        QTRY_VERIFY(panel->isVisible());
        {
            ModalResponder r;
            r.then([&](QWidget *) {
                EntryEditor *e = doc->pwDataCalloutView;
                QVERIFY(QTest::qWaitForWindowActive(e->window()));
                e->securePassword->setFocus();
                QTRY_VERIFY(e->securePassword->hasFocus());
                typeText("x");
                QTRY_VERIFY(!panel->isVisible());
                e->cancelButton->click();
            });
            doc->editEntry();
            QTRY_VERIFY(r.done());
            QTRY_VERIFY(!doc->callout);
        }
        QVERIFY(!panel->isVisible());
    }

    void theBrowserPopupAndTheBuiltInBrowser()
    {
        MyDocument *doc = openSites("Popup.qvm");
        QVERIFY(doc);
        QStringList expected{"Default Browser", "Ledgerton"};
        for (const BrowserInfo &b : login()->browsers())
            expected.append(b.title);
        QVERIFY(expected.contains("Slow Browser"));
        QStringList shown;
        {
            ModalResponder r;
            r.then([&](QWidget *) {
                QComboBox *popup = doc->pwDataCalloutView->browserPopup;
                for (int i = 0; i < popup->count(); ++i)
                    shown.append(popup->itemText(i));
                doc->pwDataCalloutView->cancelButton->click();
            });
            selectByName(doc, "Slow");
            doc->editEntry();
            QTRY_VERIFY(r.done());
            QTRY_VERIFY(!doc->callout);
        }
        QCOMPARE(shown, expected);

        // The built-in browser is a hook that does nothing: no browser is started, no key typed.
        QSignalSpy builtIn(login()->runner(), &LoginRunner::openBuiltInBrowser);
        QSignalSpy failed(login()->runner(), &LoginRunner::failed);
        doc->goToURL(rowOf(doc, "Built-in"));
        QCOMPARE(builtIn.size(), 1);
        QCOMPARE(builtIn[0][0].toString(), QString("http://127.0.0.1:9/"));
        QVERIFY(!login()->runner()->isRunning());
        QVERIFY(failed.isEmpty());
        DVBrowser *dv = login()->builtInBrowser();
        QVERIFY(dv);

        // Its timers look for a key built-in browser window half a second after being set, then
        // every second without end; there is none here, so nothing is ever typed.
        QSignalSpy password(dv, &DVBrowser::pastePasswordFromTimer);
        QSignalSpy nextPage(dv, &DVBrowser::pasteNextPageFromTimer);
        dv->hook("pastePasswordFromTimer", 0);
        dv->hook("pasteNextPageFromTimer", 0);
        QVERIFY(dv->isLookingToPastePassword() && dv->isLookingToPasteNextPage());
        QTest::qWait(DVBrowser::kFirstLookMs + 2 * DVBrowser::kLookAgainMs + 200);
        QVERIFY(dv->isLookingToPastePassword() && dv->isLookingToPasteNextPage());
        QVERIFY(password.isEmpty() && nextPage.isEmpty());
        QVERIFY(!login()->runner()->isRunning());

        // Once a built-in browser window is key, each does its part once and stops looking.
        QWidget browserWindow;
        browserWindow.resize(200, 100);
        browserWindow.show();
        QVERIFY(QTest::qWaitForWindowActive(&browserWindow));
        browserWindow.windowHandle()->setProperty("documentType", DVBrowser::kDocumentType);
        QVERIFY(DVBrowser::keyWindowIsBuiltInBrowser());
        QTRY_COMPARE_WITH_TIMEOUT(password.size(), 1, DVBrowser::kLookAgainMs + 1000);
        QTRY_COMPARE_WITH_TIMEOUT(nextPage.size(), 1, DVBrowser::kLookAgainMs + 1000);
        QVERIFY(!dv->isLookingToPastePassword() && !dv->isLookingToPasteNextPage());
        QTRY_VERIFY(!login()->runner()->isRunning()); // the Return went into the key window
    }

    void theCurrentEntryFollowsItsRecord()
    {
        const QString path = pkg("Current.qvm");
        QVERIFY(makePackage(path, "pw", sites()));
        MyDocument *doc = open(path);
        QVERIFY(doc && activate(doc));
        selectByName(doc, "Mail");
        QCOMPARE(gWebsiteItem.document(), doc);
        QCOMPARE(currentPassword(), QString("pw-Mail"));

        // Entries come in ahead of it from outside: its row now holds another entry.
        QVERIFY(changeOutside(path, [](EntryList &l) { l.append(Entry{{EntryKey::Path, "Aaron"}, {EntryKey::Password, "pw-Aaron"}}); }));
        rereadNow(doc);
        QCOMPARE(entryName(doc->file().passwordArray()[1]), QString("Bank"));
        QCOMPARE(currentPassword(), QString("pw-Mail"));
        QCOMPARE(doc->passwordTable->selectedRows(), QList<int>{2});

        // A save that merges and sorts.
        QVERIFY(changeOutside(path, [](EntryList &l) { l.append(Entry{{EntryKey::Path, "Abel"}, {EntryKey::Password, "pw-Abel"}}); }));
        doc->QWCellTableViewArrayChanged();
        QTRY_COMPARE(doc->passwordTable->model()->rowCount(), 5);
        QTRY_VERIFY(doc->saveMsg->isHidden());
        QCOMPARE(currentPassword(), QString("pw-Mail"));

        // It is the record, not a copy: a password changed outside is the one typed now.
        QVERIFY(changeOutside(path, "Mail", EntryKey::Password, "pw-Mail-2", "Zed"));
        rereadNow(doc);
        QCOMPARE(currentPassword(), QString("pw-Mail-2"));

        // Gone outside (here renamed): nothing is current, and nothing else takes its place.
        QVERIFY(changeOutside(path, "Mail", EntryKey::Path, "Mail (old)", "Zoe"));
        rereadNow(doc);
        QVERIFY(!gWebsiteItem);
        QVERIFY(doc->passwordTable->selectedRows().isEmpty());
    }

    void theCurrentEntryIsClearedByAnyOtherSelection()
    {
        const QString path = pkg("Clear.qvm");
        QVERIFY(makePackage(path, "pw", sites()));
        MyDocument *doc = open(path);
        QVERIFY(doc && activate(doc));

        selectByName(doc, "Bank");
        QVERIFY(gWebsiteItem);
        doc->passwordTable->selectAll();
        QVERIFY(!gWebsiteItem);
        selectByName(doc, "Bank");
        doc->passwordTable->clearSelection();
        QVERIFY(!gWebsiteItem);

        // While the editor is open the current entry is its working copy; Cancel puts the
        // record back, not what was typed.
        selectByName(doc, "Shop");
        QString whileEditing;
        {
            ModalResponder r;
            r.then([&](QWidget *) {
                EntryEditor *e = doc->pwDataCalloutView;
                e->securePassword->setText("typed, not saved");
                whileEditing = currentPassword();
                e->cancelButton->click();
            });
            doc->editEntry();
            QTRY_VERIFY(r.done());
            QTRY_VERIFY(!doc->callout);
        }
        QCOMPARE(whileEditing, QString("typed, not saved"));
        QCOMPARE(currentPassword(), QString("pw-Shop"));

        // Cancelling a new entry leaves nothing current (not the entry selected before).
        {
            ModalResponder r;
            r.then([&](QWidget *) { doc->pwDataCalloutView->cancelButton->click(); });
            doc->addEntry();
            QTRY_VERIFY(r.done());
            QTRY_VERIFY(!doc->callout);
        }
        QVERIFY(!gWebsiteItem);

        // Deleting it, duplicating it.
        gPrefs->setBool(false, Pref::ConfirmDelete);
        selectByName(doc, "Shop");
        doc->deleteButton->click();
        QTRY_COMPARE(doc->file().passwordArray().size(), 2);
        // The table selects the row before it: that entry, as shown, is current now.
        QCOMPARE(doc->passwordTable->selectedRows(), QList<int>{1});
        QCOMPARE(currentPassword(), QString("pw-Mail"));
        selectByName(doc, "Bank");
        doc->duplicateButton->click();
        QVERIFY(!gWebsiteItem);

        // Re-locking and closing.
        selectByName(doc, "Bank");
        QVERIFY(gWebsiteItem);
        doc->setPromptForPassword();
        QVERIFY(!gWebsiteItem);
    }

    void closingForgetsAndAnotherDocumentTakesOver()
    {
        QVERIFY(makePackage(pkg("One.qvm"), "pw", sites(), {"Bank"}));
        QVERIFY(makePackage(pkg("Two.qvm"), "pw", sites(), {"Shop", "Mail"}));
        MyDocument *one = open(pkg("One.qvm"));
        MyDocument *two = open(pkg("Two.qvm"));
        QVERIFY(one && two);

        QVERIFY(activate(one));
        QTRY_COMPARE(menuTitles(), QStringList{"Bank"});
        selectByName(one, "Mail");
        QCOMPARE(gWebsiteItem.document(), one);
        QVERIFY(activate(two));
        QTRY_COMPARE(menuTitles(), (QStringList{"Shop", "Mail"}));
        selectByName(two, "Shop");
        QCOMPARE(gWebsiteItem.document(), two);
        QCOMPARE(gWPM, two->wpm());

        QPointer<MyDocument> watched = two;
        two->close();
        QTRY_VERIFY(!watched || !watched->isVisible());
        QVERIFY(!gWebsiteItem);
        QVERIFY(activate(one));
        QTRY_COMPARE(menuTitles(), QStringList{"Bank"});
    }

    void recentWebsitesNewestFirstAtMostTwenty()
    {
        const QString path = pkg("Recent.qvm");
        EntryList many = sites();
        for (int i = 1; i <= 21; ++i)
            many.append(Entry{{EntryKey::Path, QStringLiteral("Site %1").arg(i, 2, 10, QChar(u'0'))}, {EntryKey::URL, "file:///dev/null"}});
        QVERIFY(makePackage(path, "pw", many));
        MyDocument *doc = open(path);
        QVERIFY(doc && activate(doc));
        WebsitePasswordManager *wpm = doc->wpm();
        bool clearEnabled = true;
        QCOMPARE(menuTitles(&clearEnabled), QStringList());
        QVERIFY(!clearEnabled);

        QStringList expected;
        for (int i = 1; i <= 21; ++i) {
            const QString title = QStringLiteral("Site %1").arg(i, 2, 10, QChar(u'0'));
            wpm->addRecentWebsiteMenuItemWithTitle(title);
            expected.prepend(title);
        }
        expected.removeLast();
        QCOMPARE(menuTitles(&clearEnabled), expected);
        QVERIFY(clearEnabled);
        QCOMPARE(gRecentWebsitesMenu->actions().size(), 22);
        QCOMPARE(titlesOnDisk(path), expected); // saved after every change, encrypted

        // Again to one already there: to the top, nothing dropped.
        wpm->addRecentWebsiteMenuItemWithTitle("Site 10");
        expected.removeAll("Site 10");
        expected.prepend("Site 10");
        QCOMPARE(menuTitles(), expected);

        // A rename in the editor renames the title in place; a deletion removes it.
        selectByName(doc, "Site 15");
        {
            ModalResponder r;
            r.then([&](QWidget *) {
                doc->pwDataCalloutView->nameText->setText("Fifteen");
                doc->pwDataCalloutView->okButton->click();
            });
            doc->editEntry();
            QTRY_VERIFY(r.done());
            QTRY_VERIFY(doc->saveMsg->isHidden());
        }
        expected[expected.indexOf("Site 15")] = "Fifteen";
        QCOMPARE(menuTitles(), expected);
        gPrefs->setBool(false, Pref::ConfirmDelete);
        selectByName(doc, "Site 20");
        doc->deleteButton->click();
        QTRY_VERIFY(doc->saveMsg->isHidden());
        expected.removeAll("Site 20");
        QCOMPARE(menuTitles(), expected);
        QCOMPARE(titlesOnDisk(path), expected);

        // Clear Menu: one disabled item, and an empty list on disk.
        for (QAction *a : gRecentWebsitesMenu->actions())
            if (a->text() == u"Clear Menu")
                a->trigger();
        QCOMPARE(gRecentWebsitesMenu->actions().size(), 1);
        QCOMPARE(menuTitles(&clearEnabled), QStringList());
        QVERIFY(!clearEnabled);
        QCOMPARE(titlesOnDisk(path), QStringList());
    }
};

QTEST_MAIN(TestGuiLogin)
#include "tst_gui_login.moc"
