// What a login acts on, through the windows: the current entry (the one the hot keys type
// and Go To URL opens) and the recent-websites menu.

#include "core/app/QWPrefs.h"
#include "core/entries/EntryList.h"
#include "core/storage/PasswordFile.h"
#include "support/FileSupport.h"
#include "support/GuiSupport.h"
#include "ui/CXAttachedWindow.h"
#include "ui/EntryEditor.h"
#include "ui/Globals.h"
#include "ui/MyDocument.h"
#include "ui/Panels.h"
#include "ui/QWCellTableViewArray.h"
#include "ui/WebsitePasswordManager.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTest>

using namespace tess;
using namespace tess::testsupport;

namespace {

EntryList sites()
{
    EntryList list;
    for (const QString name : {QStringLiteral("Bank"), QStringLiteral("Mail"), QStringLiteral("Shop")})
        list.append(Entry{{EntryKey::Path, name}, {EntryKey::URL, QStringLiteral("https://%1.example").arg(name.toLower())},
                          {EntryKey::Password, QString(QStringLiteral("pw-") + name)}});
    return list;
}

// Another program changes the file while the window is open.
bool changeOutside(const QString &path, const std::function<void(EntryList &)> &change)
{
    ScriptedDelegate d;
    d.passwords = {"pw"};
    PasswordFile other(path, nullptr, &d);
    if (other.open(PasswordFile::KeychainUse::Never) != PasswordFile::OpenResult::Opened)
        return false;
    change(other.passwordArray());
    const bool saved = other.save();
    other.close();
    return saved;
}

// Another program sets a key of one entry and adds an entry (so the window sees a new row).
bool changeOutside(const QString &path, const QString &name, const QString &key, const QString &value, const QString &added)
{
    return changeOutside(path, [&](EntryList &l) {
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

} // namespace

class TestGuiLogin : public DocumentSuite {
    Q_OBJECT

    void rereadNow(MyDocument *doc)
    {
        const int rows = doc->passwordTable->model()->rowCount();
        doc->updateTimer.start(20);
        QTRY_VERIFY(doc->passwordTable->model()->rowCount() != rows);
        doc->updateTimer.start(10000);
    }

private Q_SLOTS:
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
