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
#include "ui/Controller.h"
#include "ui/Globals.h"
#include "ui/MyDocument.h"
#include "ui/Panels.h"
#include "ui/QWCellTableViewArray.h"

#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QPushButton>
#include <QTest>

using namespace tess;
using namespace tess::testsupport;

namespace {

EntryList bankList()
{
    return EntryList{Entry{{EntryKey::Path, "Bank"}, {EntryKey::URL, "https://bank.example"}, {EntryKey::UserID, "me"}, {EntryKey::Button, ""}, {EntryKey::Notes, ""}},
                     Entry{{EntryKey::Path, "Mail"}, {EntryKey::Notes, "the bank sends mail here"}, {EntryKey::Button, ""}},
                     Entry{{EntryKey::Path, "Shop"}, {EntryKey::UserID2, "BANKER"}, {EntryKey::Button, ""}, {EntryKey::Notes, ""}}};
}

EntryList listOnDisk(const QString &path, const QString &password = "pw")
{
    ScriptedDelegate d;
    d.passwords = {password};
    PasswordFile file(path, nullptr, &d);
    if (file.open(PasswordFile::KeychainUse::Never) != PasswordFile::OpenResult::Opened)
        return {};
    return file.passwordArray();
}

} // namespace

class TestGuiStorage : public DocumentSuite {
    Q_OBJECT

private Q_SLOTS:
    void changesFromTheCommandLineSurviveTheWindowsSaves()
    {
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
        QTRY_COMPARE(entryNames(doc->file().passwordArray()), (QStringList{"Bank", "Bank copy", "Mail", "Shop", "Xenon"}));
        QTRY_VERIFY(doc->saveMsg->isHidden());
        QCOMPARE(doc->passwordTable->model()->rowCount(), 5);
        selectByName(doc, "Mail");
        doc->deleteButton->click();
        QTRY_COMPARE(entryNames(doc->file().passwordArray()), (QStringList{"Bank", "Bank copy", "Shop", "Xenon"}));
        QTRY_VERIFY(doc->saveMsg->isHidden());
        const EntryList onDisk = listOnDisk(path);
        QCOMPARE(entryNames(onDisk), (QStringList{"Bank", "Bank copy", "Shop", "Xenon"}));
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
        QCOMPARE(entryNames(listOnDisk(path)), (QStringList{"Apple", "Bank", "Bank copy", "Shop", "Xenon"}));
    }

    void aFileIsNotOpenedWithoutItsScratchDirectory()
    {
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", bankList()));
        qputenv("HOME", QFile::encodeName(pkg("gone")));
        ModalResponder r;
        QString told;
        r.then([&](QWidget *w) {
            auto *p = qobject_cast<PromptPanel *>(w);
            QVERIFY2(p, "expected a message, not a password prompt");
            told = p->promptMessage->text();
            p->promptDefaultButton->click();
        });
        m_controller->openFile(path);
        QTRY_VERIFY(r.done());
        qputenv("HOME", QFile::encodeName(m_home->path()));
        QCOMPARE(told, PasswordFile::kNoScratchDirectory.arg("Bank", "No such file or directory"));
        QTRY_VERIFY(m_controller->documents().isEmpty());
    }
};

QTEST_MAIN(TestGuiStorage)
#include "tst_gui_storage.moc"
