// The password file package: formats, opening by keychain or prompt, the pre-2.0 upgrade,
// conflict copies, saving and watching, password change, the keychain option, damage.

#include "core/archive/KeyedArchive.h"
#include "core/entries/Entry.h"
#include "core/entries/EntryList.h"
#include "core/storage/PasswordFile.h"
#include "platform/fake/MapKeychain.h"
#include "support/ArchiveSupport.h"
#include "support/FileSupport.h"
#include "support/TestSupport.h"
#include "support/TypedStreamWriter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace tess;
using namespace tess::testsupport;

namespace {

QStringList names(const EntryList &list)
{
    QStringList out;
    for (const QVariant &e : list)
        out.append(entryName(e));
    return out;
}

QStringList packageFiles(const QString &path)
{
    return QDir(path).entryList(QDir::Files | QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

EntryList sampleList()
{
    return EntryList{Entry{{EntryKey::Path, "Bank"}, {EntryKey::Password, "b4nk"}, {EntryKey::PasswordTabSwitch, true},
                           {EntryKey::UserIDTabCount, qint64(2)}, {EntryKey::Notes, "line 1\nline 2"}},
                     Entry{{EntryKey::Path, "Mail"}, {EntryKey::UserID, "me@example.com"}, {EntryKey::Button, ""}}};
}

} // namespace

class TestPasswordFile : public QObject {
    Q_OBJECT

    std::unique_ptr<ScopedHome> m_home;
    QString pkg(const QString &name) const { return m_home->path() + "/" + name; }

private Q_SLOTS:
    void init() { m_home = std::make_unique<ScopedHome>(); }
    void cleanup() { m_home.reset(); }

    void aNewFileIsOpenedWithItsPasswordInMemory()
    {
        const QString path = pkg("New.qvm");
        QVERIFY(PasswordFile::createPackage(path, "new-file-password"));
        // Encrypted from the start: no "Data" file holds the password.
        QCOMPARE(packageFiles(path), QStringList{"Data.qvmi"});
        QVERIFY(!readFile(path + "/Data.qvmi").contains("new-file-password"));
        QVERIFY(!PasswordFile::createPackage(path, "pw")); // never over an existing one
        ScriptedDelegate d;
        d.passwords = {"new-file-password"};
        MapKeychain keychain;
        {
            PasswordFile file(path, &keychain, &d);
            QCOMPARE(file.open(), PasswordFile::OpenResult::Opened);
            QCOMPARE(d.prompts, QStringList{"Enter Password:"}); // asked once more, as always
            QCOMPARE(keychain.finds, 0); // a new file does not ask the keychain
            QCOMPARE(packageFiles(path), (QStringList{"Data.qvmi", "Recent Websites.qvmi"}));
            QVERIFY(file.passwordArray().isEmpty());
            QVERIFY(!file.passwordInKeychain());
            QVERIFY(file.PWFileWriteable());
            QCOMPARE(file.passwordFileName(), QStringLiteral("New"));
            QVERIFY(file.tempDir().startsWith(QDir::homePath() + "/.QVM."));
            struct stat st;
            QCOMPARE(::stat(QFile::encodeName(file.tempDir()).constData(), &st), 0);
            QCOMPARE(st.st_mode & 0777, 0700u);
            QVERIFY(QDir(file.tempDir()).isEmpty()); // held, but holding nothing
            // Created since it was opened: the keychain option stores the password and leaves
            // the flag off, as it always has for such files.
            d.passwords = {"new-file-password"};
            file.toggleSavePWInKeychain(false);
            QCOMPARE(keychain.items.value({"New", "Tessaline"}), QByteArray("new-file-password"));
            QVERIFY(!file.passwordInKeychain());
        }
        QVERIFY(scratchDirectories().isEmpty());
    }

    void aDataFileFromAnotherProgramIsOverwrittenBeforeItGoes()
    {
        const QString path = pkg("Theirs.qvm");
        QDir().mkpath(path);
        QVERIFY(writeBytes(path + "/Data", "their-password"));
        // A second link to the same bytes shows what became of them.
        const QString witness = pkg("witness");
        QCOMPARE(::link(QFile::encodeName(path + "/Data").constData(), QFile::encodeName(witness).constData()), 0);
        ScriptedDelegate d;
        d.passwords = {"their-password"};
        PasswordFile file(path, nullptr, &d);
        QCOMPARE(file.open(), PasswordFile::OpenResult::Opened);
        QCOMPARE(d.prompts, QStringList{"Enter Password:"});
        QCOMPARE(packageFiles(path), (QStringList{"Data.qvmi", "Recent Websites.qvmi"}));
        QCOMPARE(readFile(witness), QByteArray(14, '\0'));
        QVERIFY(file.passwordArray().isEmpty());
    }

    void opensByKeychainFirst()
    {
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", sampleList()));
        MapKeychain keychain;
        keychain.items.insert({"Bank", "Tessaline"}, "pw");
        ScriptedDelegate d;
        PasswordFile file(path, &keychain, &d);
        QCOMPARE(file.open(), PasswordFile::OpenResult::Opened);
        QVERIFY(d.prompts.isEmpty());
        QVERIFY(file.passwordInKeychain());
        QCOMPARE(file.passwordArray(), sampleList());
        QCOMPARE(file.passwordArray()[0].toMap().value(EntryKey::PasswordTabSwitch).typeId(), QMetaType::Bool);
    }

    void keychainFallsBackToThePrompt_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<bool>("refuse");
        QTest::addColumn<bool>("inKeychain");
        QTest::addRow("changed elsewhere") << QByteArray("old") << false << true;
        QTest::addRow("access refused") << QByteArray("pw") << true << true;
        QTest::addRow("no item") << QByteArray() << false << false;
    }
    void keychainFallsBackToThePrompt()
    {
        QFETCH(QByteArray, stored);
        QFETCH(bool, refuse);
        QFETCH(bool, inKeychain);
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", sampleList()));
        MapKeychain keychain;
        if (!stored.isEmpty())
            keychain.items.insert({"Bank", "Tessaline"}, stored);
        keychain.refuseAccess = refuse;
        ScriptedDelegate d;
        d.passwords = {"wrong", "pw"};
        PasswordFile file(path, &keychain, &d);
        QCOMPARE(file.open(), PasswordFile::OpenResult::Opened);
        QCOMPARE(d.prompts, (QStringList{"Enter Password:", "PASSWORD INCORRECT! Enter Password:"}));
        QCOMPARE(file.passwordInKeychain(), inKeychain);
        QCOMPARE(file.passwordArray().size(), 2);
    }

    void cancellingLeavesNothing()
    {
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", sampleList()));
        const QStringList before = packageFiles(path);
        ScriptedDelegate d;
        d.passwords = {"wrong"};
        MapKeychain keychain;
        PasswordFile file(path, &keychain, &d);
        QCOMPARE(file.open(PasswordFile::KeychainUse::Never), PasswordFile::OpenResult::Cancelled);
        QCOMPARE(keychain.finds, 0);
        QCOMPARE(d.prompts.size(), 2);
        QVERIFY(scratchDirectories().isEmpty());
        QCOMPARE(packageFiles(path), before);
    }

    void formatDetection()
    {
        ScriptedDelegate d;
        // Only a recent-websites file: not a password file.
        const QString only = pkg("Only.qvm");
        QDir().mkpath(only);
        QVERIFY(writeBytes(only + "/Recent Websites.qvmi", encryptForFile(archive::encodeKeyedArchive(QVariantList{}), "pw", false)));
        PasswordFile a(only, nullptr, &d);
        QCOMPARE(a.open(), PasswordFile::OpenResult::NotAPasswordFile);
        QCOMPARE(d.messages, QStringList{"This is not a Tessaline file."});
        QVERIFY(scratchDirectories().isEmpty());

        // Both formats: the current one wins.
        const QString both = pkg("Both.qvm");
        QVERIFY(makePackage(both, "pw", sampleList()));
        QVERIFY(writeBytes(both + "/Data.qvme", "not even encrypted"));
        d.passwords = {"pw"};
        PasswordFile b(both, nullptr, &d);
        QCOMPARE(b.open(), PasswordFile::OpenResult::Opened);
        QVERIFY(!b.pre20File());
        QCOMPARE(b.passwordArray(), sampleList());
    }

    void pre20FilesAreUpgraded_data()
    {
        QTest::addColumn<bool>("byKeychain");
        QTest::addRow("opened by prompt") << false;
        QTest::addRow("opened by keychain") << true;
    }
    void pre20FilesAreUpgraded()
    {
        QFETCH(bool, byKeychain);
        const QString path = pkg("Old.qvm");
        QDir().mkpath(path);
        const EntryList entries = sampleList();
        QVERIFY(writeBytes(path + "/Data.qvme", encryptForFile(encodeTypedStream(entries), "pw", true)));
        // The titles as Apple's NSArchiver wrote them, when the samples are at hand.
        QStringList titles{"imm", "mut"};
        QByteArray titleBytes = encodeTypedStream(QVariantList{"imm", "mut"});
        if (!fixturesDir().isEmpty())
            titleBytes = readFile(fixturesDir() + "/typedstream/crabstep_NestedStrings.typedstream");
        QVERIFY(writeBytes(path + "/Recent Websites.qvme", encryptForFile(titleBytes, "pw", true)));

        MapKeychain keychain;
        if (byKeychain)
            keychain.items.insert({"Old", "Tessaline"}, "pw");
        ScriptedDelegate d;
        d.passwords = {"pw"};
        {
            PasswordFile file(path, &keychain, &d);
            QCOMPARE(file.open(), PasswordFile::OpenResult::Opened);
            QVERIFY(!file.pre20File());
            QCOMPARE(file.dataPath(), path + "/Data.qvmi");
            QCOMPARE(file.passwordArray(), entries);
            QCOMPARE(file.recentWebsiteTitles(), titles);
        }
        QCOMPARE(packageFiles(path), (QStringList{"Data.qvmi", "Recent Websites.qvmi"}));
        ScriptedDelegate again;
        again.passwords = {"pw"};
        PasswordFile reopened(path, nullptr, &again);
        QCOMPARE(reopened.open(), PasswordFile::OpenResult::Opened);
        QCOMPARE(reopened.passwordArray(), entries);
        QCOMPARE(reopened.passwordArray()[0].toMap().value(EntryKey::PasswordTabSwitch).typeId(), QMetaType::Bool);
        QCOMPARE(reopened.recentWebsiteTitles(), titles);
    }

    void aFailedUpgradeLeavesThePackageAsItWas_data()
    {
        QTest::addColumn<int>("entries");
        QTest::addColumn<int>("titles");
        QTest::addRow("the entry file cannot be written") << 400 << 2;
        QTest::addRow("the titles file cannot be written") << 2 << 3000;
    }
    void aFailedUpgradeLeavesThePackageAsItWas()
    {
        QFETCH(int, entries);
        QFETCH(int, titles);
        const QString path = pkg("Old.qvm");
        QDir().mkpath(path);
        const EntryList list = sampleEntries(entries);
        QVariantList titleList;
        for (int i = 0; i < titles; ++i)
            titleList.append(QStringLiteral("Site %1 with a long enough title").arg(i, 5, 10, QLatin1Char('0')));
        QVERIFY(writeBytes(path + "/Data.qvme", encryptForFile(encodeTypedStream(list), "pw", true)));
        QVERIFY(writeBytes(path + "/Recent Websites.qvme", encryptForFile(encodeTypedStream(titleList), "pw", true)));
        auto contents = [&] {
            QMap<QString, QByteArray> all;
            for (const QString &f : packageFiles(path))
                all.insert(f, readFile(path + "/" + f));
            return all;
        };
        const auto before = contents();
        // Files may grow to the size of the larger archive, but not to its encrypted size (one
        // to sixteen bytes more): that one of the two new files cannot be written.
        const qint64 limit = std::max(archive::encodeKeyedArchive(list).size(), archive::encodeKeyedArchive(titleList).size());
        ScriptedDelegate d;
        d.passwords = {"pw"};
        PasswordFile file(path, nullptr, &d);
        PasswordFile::OpenResult opened;
        {
            const FileSizeLimit full(limit);
            opened = file.open();
        }
        QCOMPARE(opened, PasswordFile::OpenResult::Opened);
        QCOMPARE(d.messages, QStringList{PasswordFile::kSaveFailed});
        QCOMPARE(contents(), before);
        QVERIFY(file.pre20File());
        QCOMPARE(file.passwordArray(), list);
        QCOMPARE(file.recentWebsiteTitles().size(), titles);
        d.passwords = {"pw"};
        QVERIFY(file.recheckPassword()); // the keys still fit the file on disk

        // The next save upgrades it.
        QVERIFY(file.save());
        QCOMPARE(packageFiles(path), (QStringList{"Data.qvmi", "Recent Websites.qvmi"}));
        ScriptedDelegate again;
        again.passwords = {"pw"};
        PasswordFile reopened(path, nullptr, &again);
        QCOMPARE(reopened.open(), PasswordFile::OpenResult::Opened);
        QCOMPARE(reopened.passwordArray(), list);
        QCOMPARE(reopened.recentWebsiteTitles().size(), titles);
    }

    void conflictCopiesAreMergedInsideThePackage()
    {
        const QString path = pkg("Sync.qvm");
        const Entry bankOld{{EntryKey::Path, "Bank"}, {EntryKey::Password, "old"}};
        const Entry bankNew{{EntryKey::Path, "Bank"}, {EntryKey::Password, "new"}};
        const Entry mail{{EntryKey::Path, "Mail"}};
        QVERIFY(makePackage(path, "pw", EntryList{bankOld, mail}, {"Mail"}));
        QVERIFY(writeBytes(path + "/Data 2.qvmi",
                           encryptForFile(archive::encodeKeyedArchive(EntryList{bankNew, mail, Entry{{EntryKey::Path, "News"}}}), "pw", false)));
        QVERIFY(writeBytes(path + "/Recent Websites 2.qvmi",
                           encryptForFile(archive::encodeKeyedArchive(QVariantList{"News", "Mail"}), "pw", false)));
        QVERIFY(writeBytes(path + "/Data 3.tmp", "junk"));
        QVERIFY(writeBytes(path + "/Data 4.qvmi", encryptForFile(archive::encodeKeyedArchive(EntryList{}), "other", false)));
        QVERIFY(writeBytes(path + "/notes.txt", "mine"));
        // A file of the same name in the current directory is none of our business.
        QDir::setCurrent(m_home->path());
        QVERIFY(writeBytes(m_home->path() + "/Data 2.qvmi", "unrelated"));

        ScriptedDelegate d;
        d.passwords = {"pw"};
        {
            PasswordFile file(path, nullptr, &d);
            QCOMPARE(file.open(), PasswordFile::OpenResult::Opened);
            QCOMPARE(names(file.passwordArray()), (QStringList{"Bank", "Bank (CONFLICTED)", "Mail", "News"}));
            QCOMPARE(file.recentWebsiteTitles(), (QStringList{"News", "Mail"}));
        }
        // A copy under another password is kept, not lost.
        QCOMPARE(packageFiles(path), (QStringList{"Data 4.qvmi", "Data.qvmi", "Recent Websites.qvmi", "notes.txt"}));
        QVERIFY(QFile::exists(m_home->path() + "/Data 2.qvmi"));
        d.passwords = {"pw"};
        PasswordFile reopened(path, nullptr, &d);
        QCOMPARE(reopened.open(), PasswordFile::OpenResult::Opened);
        QCOMPARE(reopened.passwordArray().size(), 4);
        QCOMPARE(reopened.passwordArray()[1].toMap().value(EntryKey::Password).toString(), QStringLiteral("new"));
    }

    void savingSortsAndTheWatcherIgnoresOurOwnWrites()
    {
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", sampleList()));
        ScriptedDelegate d;
        d.passwords = {"pw", "pw"};
        PasswordFile mine(path, nullptr, &d);
        QCOMPARE(mine.open(), PasswordFile::OpenResult::Opened);
        mine.passwordArray().append(Entry{{EntryKey::Path, "Apple"}});
        QVERIFY(mine.save());
        QCOMPARE(names(mine.passwordArray()), (QStringList{"Apple", "Bank", "Mail"}));
        QVERIFY(!mine.fileChanged());
        QVERIFY(!mine.checkForUpdates().entriesReloaded);

        // Another copy of the program changes the file.
        PasswordFile theirs(path, nullptr, &d);
        QCOMPARE(theirs.open(), PasswordFile::OpenResult::Opened);
        theirs.passwordArray().append(Entry{{EntryKey::Path, "Zeta"}});
        QVERIFY(theirs.save());
        QVERIFY(mine.fileChanged());
        QVERIFY(mine.readPasswordFileDataIfChanged().entriesReloaded);
        QCOMPARE(names(mine.passwordArray()), (QStringList{"Apple", "Bank", "Mail", "Zeta"}));
        QVERIFY(!mine.checkForUpdates().entriesReloaded);
    }

    void aSaveMergesWhatAnotherWriterSavedMeanwhile()
    {
        const QString path = pkg("Bank.qvm");
        const Entry bank{{EntryKey::Path, "Bank"}, {EntryKey::Password, "b4nk"}};
        const Entry mail{{EntryKey::Path, "Mail"}, {EntryKey::Password, "m4il"}};
        const Entry shop{{EntryKey::Path, "Shop"}, {EntryKey::Password, "sh0p"}};
        QVERIFY(makePackage(path, "pw", EntryList{bank, mail, shop}));
        ScriptedDelegate d;
        d.passwords = {"pw", "pw"};
        PasswordFile mine(path, nullptr, &d), theirs(path, nullptr, &d);
        QCOMPARE(mine.open(), PasswordFile::OpenResult::Opened);
        QCOMPARE(theirs.open(), PasswordFile::OpenResult::Opened);

        // Another writer adds, changes and deletes; this one has read none of it.
        Entry bankTheirs = bank, shopTheirs = shop;
        bankTheirs.insert(EntryKey::Password, "theirs");
        shopTheirs.insert(EntryKey::Notes, "changed there");
        theirs.passwordArray() = EntryList{bankTheirs, shopTheirs, Entry{{EntryKey::Path, "News"}}};
        QVERIFY(theirs.save());

        Entry bankMine = bank;
        bankMine.insert(EntryKey::Password, "mine");
        mine.passwordArray()[0] = bankMine;                     // changed on both sides
        mine.passwordArray().append(Entry{{EntryKey::Path, "Apple"}}); // added here
        const int before = d.entriesReplacedCount;
        QVERIFY(mine.save());
        QVERIFY(d.entriesReplacedCount > before); // the window reloads its table
        const EntryList expected{Entry{{EntryKey::Path, "Apple"}}, bankMine,
                                 Entry{{EntryKey::Path, "Bank (CONFLICTED)"}, {EntryKey::Password, "theirs"}},
                                 Entry{{EntryKey::Path, "News"}}, shopTheirs};
        QCOMPARE(mine.passwordArray(), expected);
        QVERIFY(!mine.fileChanged());

        // What was written is the merge, and the other writer takes it in the same way.
        theirs.passwordArray().removeAt(entryWithName(theirs.passwordArray(), "News")); // deleted there
        QVERIFY(theirs.save());
        QCOMPARE(names(theirs.passwordArray()), (QStringList{"Apple", "Bank", "Bank (CONFLICTED)", "Shop"}));
        ScriptedDelegate again;
        again.passwords = {"pw"};
        PasswordFile check(path, nullptr, &again);
        QCOMPARE(check.open(), PasswordFile::OpenResult::Opened);
        QCOMPARE(check.passwordArray(), theirs.passwordArray());
    }

    void writersTakeThePackageLockInTurn()
    {
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", sampleList()));
        ScriptedDelegate d;
        d.passwords = {"pw", "pw"};
        PasswordFile one(path, nullptr, &d), two(path, nullptr, &d);
        QCOMPARE(one.open(), PasswordFile::OpenResult::Opened);
        QCOMPARE(two.open(), PasswordFile::OpenResult::Opened);
        const int wait = PasswordFile::packageLockWaitMs;
        PasswordFile::packageLockWaitMs = 50;
        {
            PasswordFile::Locked held(one);
            QVERIFY(held.ok());
            QVERIFY(one.save()); // a nested hold
            two.passwordArray().append(Entry{{EntryKey::Path, "Late"}});
            QVERIFY(!two.save()); // waits, then gives up: nothing interleaves
            QCOMPARE(d.messages.last(), PasswordFile::kSaveFailed);
        }
        PasswordFile::packageLockWaitMs = wait;
        QVERIFY(two.save());
        QCOMPARE(names(two.passwordArray()), (QStringList{"Bank", "Late", "Mail"}));
        // The lock is on the package folder itself: nothing is left in it.
        QCOMPARE(packageFiles(path), (QStringList{"Data.qvmi", "Recent Websites.qvmi"}));
    }

    void aReloadThatCannotDecryptKeepsTheList()
    {
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", sampleList()));
        ScriptedDelegate d;
        d.passwords = {"pw"};
        PasswordFile mine(path, nullptr, &d);
        QCOMPARE(mine.open(), PasswordFile::OpenResult::Opened);
        QTest::qWait(5);
        QVERIFY(makePackage(path, "another", EntryList{}));
        mine.checkForUpdates();
        QCOMPARE(mine.passwordArray(), sampleList());

        // Nor does a save write over what it could not read, under another password or damaged.
        for (const QByteArray &outside : {readBytes(path + "/Data.qvmi"), QByteArray("damaged")}) {
            QVERIFY(writeBytes(path + "/Data.qvmi", outside));
            mine.passwordArray().append(Entry{{EntryKey::Path, "Mine"}});
            QVERIFY(!mine.save());
            QCOMPARE(d.messages.last(), PasswordFile::kChangedUnreadable);
            QCOMPARE(readBytes(path + "/Data.qvmi"), outside);
        }
    }

    void changingThePassword()
    {
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", sampleList()));
        MapKeychain keychain;
        keychain.items.insert({"Bank", "Tessaline"}, "pw");
        ScriptedDelegate d;
        {
            PasswordFile file(path, &keychain, &d);
            QCOMPARE(file.open(), PasswordFile::OpenResult::Opened);
            QVERIFY(!file.changePassword()); // cancelled at the current password
            QCOMPARE(d.messages, QStringList{"Password not changed."});
            d.passwords = {"pw"};
            d.newPasswords = {"n3w"};
            QVERIFY(file.changePassword());
            QCOMPARE(d.prompts.last(), PasswordFile::kChangePasswordPrompt);
            QCOMPARE(d.messages.last(), QStringLiteral("Password changed."));
            QCOMPARE(keychain.items.value({"Bank", "Tessaline"}), QByteArray("n3w"));
        }
        ScriptedDelegate again;
        again.passwords = {"pw", "n3w"};
        PasswordFile reopened(path, nullptr, &again);
        QCOMPARE(reopened.open(), PasswordFile::OpenResult::Opened);
        QCOMPARE(again.prompts.size(), 2);
        QCOMPARE(reopened.passwordArray(), sampleList());
    }

    void aPasswordChangeThatCannotBeSavedKeepsTheOldPassword()
    {
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", sampleEntries(200)));
        const QByteArray before = readFile(path + "/Data.qvmi");
        ScriptedDelegate d;
        d.passwords = {"pw"};
        {
            PasswordFile file(path, nullptr, &d);
            QCOMPARE(file.open(), PasswordFile::OpenResult::Opened);
            d.passwords = {"pw"};
            d.newPasswords = {"n3w"};
            bool changed;
            {
                const FileSizeLimit full(4096);
                changed = file.changePassword();
            }
            QVERIFY(!changed);
            QCOMPARE(d.messages, (QStringList{PasswordFile::kSaveFailed, PasswordFile::kPasswordNotChanged}));
            QCOMPARE(readFile(path + "/Data.qvmi"), before);
            // A later change is saved under the password the file still has.
            file.passwordArray().append(Entry{{EntryKey::Path, "After"}});
            QVERIFY(file.save());
        }
        ScriptedDelegate again;
        again.passwords = {"n3w", "pw"};
        PasswordFile reopened(path, nullptr, &again);
        QCOMPARE(reopened.open(), PasswordFile::OpenResult::Opened);
        QCOMPARE(again.prompts, (QStringList{"Enter Password:", "PASSWORD INCORRECT! Enter Password:"}));
        QCOMPARE(reopened.passwordArray().size(), 201);
    }

    void theKeychainOption()
    {
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", sampleList()));
        MapKeychain keychain;
        ScriptedDelegate d;
        d.passwords = {"pw"};
        PasswordFile file(path, &keychain, &d);
        QCOMPARE(file.open(), PasswordFile::OpenResult::Opened);
        QVERIFY(!file.passwordInKeychain());
        file.toggleSavePWInKeychain(false); // cancelled: nothing changes
        QVERIFY(!file.passwordInKeychain());
        QVERIFY(keychain.items.isEmpty());
        d.passwords = {"pw"};
        file.toggleSavePWInKeychain(false);
        QCOMPARE(d.prompts.last(), PasswordFile::kKeychainPrompt);
        QVERIFY(file.passwordInKeychain());
        QCOMPARE(keychain.items.value({"Bank", "Tessaline"}), QByteArray("pw"));
        file.toggleSavePWInKeychain(true);
        QVERIFY(!file.passwordInKeychain());
        QVERIFY(keychain.items.isEmpty());

        // Re-keyed since it was opened: the item is stored, the flag stays off.
        d.passwords = {"pw"};
        d.newPasswords = {"n3w"};
        QVERIFY(file.changePassword());
        d.passwords = {"n3w"};
        file.toggleSavePWInKeychain(false);
        QCOMPARE(keychain.items.value({"Bank", "Tessaline"}), QByteArray("n3w"));
        QVERIFY(!file.passwordInKeychain());
    }

    void damagedFilesAreRefusedAndLeftAlone_data()
    {
        QTest::addColumn<QString>("damage");
        QTest::addRow("truncated") << "truncated";
        // The format has no checksum: damage in the middle can decrypt to a readable list with
        // a garbled text. Damage to the last block breaks the padding and is always caught.
        QTest::addRow("last byte flipped") << "flipped";
        QTest::addRow("zero length") << "empty";
        QTest::addRow("directory") << "directory";
    }
    void damagedFilesAreRefusedAndLeftAlone()
    {
        QFETCH(QString, damage);
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", testsupport::sampleEntries(20)));
        const QString data = path + "/Data.qvmi";
        QByteArray bytes = readFile(data);
        if (damage == "truncated")
            bytes.chop(7);
        else if (damage == "flipped")
            bytes[bytes.size() - 1] = char(bytes[bytes.size() - 1] ^ 0x40);
        else if (damage == "empty")
            bytes.clear();
        if (damage == "directory") {
            QFile::remove(data);
            QDir().mkpath(data);
        } else {
            QVERIFY(writeBytes(data, bytes));
        }
        const QStringList before = packageFiles(path);
        ScriptedDelegate d;
        d.passwords = {"pw"};
        PasswordFile file(path, nullptr, &d);
        if (damage == "truncated" || damage == "empty") {
            // No password could open it: said at once, with no prompt.
            QCOMPARE(file.open(), PasswordFile::OpenResult::Damaged);
            QVERIFY(d.prompts.isEmpty());
            QCOMPARE(d.messages, QStringList{PasswordFile::kNotAPasswordFile});
            QVERIFY(!file.damageReason().isEmpty());
        } else {
            QCOMPARE(file.open(), PasswordFile::OpenResult::Cancelled);
            QCOMPARE(d.prompts.last(), QStringLiteral("PASSWORD INCORRECT! Enter Password:"));
        }
        QCOMPARE(packageFiles(path), before);
        if (damage != "directory")
            QCOMPARE(readFile(data), bytes);
    }

    void entryListsThatAreNotListsOfEntriesAreRefused_data()
    {
        QTest::addColumn<QByteArray>("archive");
        QTest::addColumn<bool>("keychain");
        for (const auto &[name, bytes] : damagedEntryArchives()) {
            QTest::addRow("%s", qPrintable(name)) << bytes << false;
            QTest::addRow("%s, password from the keychain", qPrintable(name)) << bytes << true;
        }
    }
    void entryListsThatAreNotListsOfEntriesAreRefused()
    {
        QFETCH(QByteArray, archive);
        QFETCH(bool, keychain);
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", {}, {"Bank"}));
        QVERIFY(writeBytes(path + "/Data.qvmi", encryptForFile(archive, "pw", false)));
        const QByteArray before = packageDigest(path);
        MapKeychain chain;
        if (keychain)
            chain.items.insert({"Bank", "Tessaline"}, "pw");
        ScriptedDelegate d;
        d.passwords = {"pw", "pw"};
        PasswordFile file(path, &chain, &d);
        QCOMPARE(file.open(), PasswordFile::OpenResult::Damaged);
        // The password fits: it is not asked for again, and the file is not taken for empty.
        QCOMPARE(d.prompts.size(), keychain ? 0 : 1);
        QCOMPARE(d.messages, QStringList{PasswordFile::kNotAPasswordFile});
        QVERIFY(!file.damageReason().isEmpty());
        QVERIFY(!file.isOpen());
        QCOMPARE(file.save(), false); // never opened: nothing to write over it with
        QCOMPARE(packageDigest(path), before);
    }

    void aDamagedPre20ListIsRefused()
    {
        const QString path = pkg("Old.qvm");
        QDir().mkpath(path);
        QVERIFY(writeBytes(path + "/Data.qvme", encryptForFile(encodeTypedStream(QVariantMap{{"Path", "x"}}), "pw", true)));
        const QByteArray before = packageDigest(path);
        ScriptedDelegate d;
        d.passwords = {"pw"};
        PasswordFile file(path, nullptr, &d);
        QCOMPARE(file.open(), PasswordFile::OpenResult::Damaged);
        QCOMPARE(packageDigest(path), before);
    }

    void unreadableTitlesAreReplacedButTheEntriesAreNot_data()
    {
        QTest::addColumn<QByteArray>("titles");
        QTest::addRow("dictionary") << archive::encodeKeyedArchive(QVariantMap{{"a", "b"}});
        QTest::addRow("numbers") << archive::encodeKeyedArchive(QVariantList{qint64(1), qint64(2)});
        QTest::addRow("not an archive") << QByteArray("bplist00 of nothing");
    }
    void unreadableTitlesAreReplacedButTheEntriesAreNot()
    {
        QFETCH(QByteArray, titles);
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", sampleList()));
        QVERIFY(writeBytes(path + "/Recent Websites.qvmi", encryptForFile(titles, "pw", false)));
        const QByteArray entries = readFile(path + "/Data.qvmi");
        ScriptedDelegate d;
        d.passwords = {"pw"};
        PasswordFile file(path, nullptr, &d);
        QCOMPARE(file.open(), PasswordFile::OpenResult::Opened);
        QCOMPARE(file.passwordArray(), sampleList());
        QVERIFY(file.recentWebsiteTitles().isEmpty());
        QCOMPARE(readFile(path + "/Data.qvmi"), entries);
        file.close();
        ScriptedDelegate again;
        again.passwords = {"pw"};
        PasswordFile reopened(path, nullptr, &again);
        QCOMPARE(reopened.open(), PasswordFile::OpenResult::Opened);
        QVERIFY(reopened.recentWebsiteTitles().isEmpty()); // a fresh, readable titles file
        QCOMPARE(readFile(path + "/Data.qvmi"), entries);
    }

    void openingForLaterWritesWritesNothingUntilTheSave_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addRow("pre-2.0") << "pre20";
        QTest::addRow("conflict copies") << "copies";
        QTest::addRow("no titles") << "notitles";
        QTest::addRow("new from another program") << "datafile";
    }
    void openingForLaterWritesWritesNothingUntilTheSave()
    {
        QFETCH(QString, kind);
        const QString path = pkg("Bank.qvm");
        EntryList expected = sampleList();
        if (kind == "pre20") {
            QDir().mkpath(path);
            QVERIFY(writeBytes(path + "/Data.qvme", encryptForFile(encodeTypedStream(sampleList()), "pw", true)));
            QVERIFY(writeBytes(path + "/Recent Websites.qvme", encryptForFile(encodeTypedStream(QVariantList{"Mail"}), "pw", true)));
        } else if (kind == "datafile") {
            QDir().mkpath(path);
            QVERIFY(writeBytes(path + "/Data", "pw"));
            expected = {};
        } else {
            QVERIFY(makePackage(path, "pw", sampleList(), {"Mail"}));
            if (kind == "notitles")
                QFile::remove(path + "/Recent Websites.qvmi");
            if (kind == "copies") {
                const Entry extra{{EntryKey::Path, "Shop"}, {EntryKey::Notes, ""}};
                QVERIFY(writeBytes(path + "/Data 2.qvmi", encryptForFile(archive::encodeKeyedArchive(EntryList{extra}), "pw", false)));
                QVERIFY(writeBytes(path + "/Data 3.tmp", "left by a sync service"));
                expected.append(extra);
            }
        }
        const QByteArray before = packageDigest(path);
        {
            ScriptedDelegate d;
            d.passwords = {"pw"};
            PasswordFile file(path, nullptr, &d);
            QCOMPARE(file.open(PasswordFile::KeychainUse::Never, PasswordFile::Writes::AtFirstSave), PasswordFile::OpenResult::Opened);
            QCOMPARE(file.passwordArray(), expected);
            QVERIFY(file.hasPendingWrites() || kind == "none");
            file.close();
        }
        QCOMPARE(packageDigest(path), before);
        ScriptedDelegate d;
        d.passwords = {"pw"};
        PasswordFile file(path, nullptr, &d);
        QCOMPARE(file.open(PasswordFile::KeychainUse::Never, PasswordFile::Writes::AtFirstSave), PasswordFile::OpenResult::Opened);
        QVERIFY(file.save());
        QVERIFY(!file.hasPendingWrites());
        QCOMPARE(packageFiles(path), (QStringList{"Data.qvmi", "Recent Websites.qvmi"}));
        sortEntries(expected);
        ScriptedDelegate d2;
        d2.passwords = {"pw"};
        PasswordFile reopened(path, nullptr, &d2);
        QCOMPARE(reopened.open(PasswordFile::KeychainUse::Never, PasswordFile::Writes::AtFirstSave), PasswordFile::OpenResult::Opened);
        QCOMPARE(reopened.passwordArray(), expected);
        QVERIFY(!reopened.hasPendingWrites());
    }

    void objectsOfOtherKindsSurviveASave()
    {
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", {}));
        QVERIFY(writeBytes(path + "/Data.qvmi", encryptForFile(entryListWithForeignObjects(), "pw", false)));
        ScriptedDelegate d;
        d.passwords = {"pw", "pw"};
        PasswordFile file(path, nullptr, &d);
        QCOMPARE(file.open(), PasswordFile::OpenResult::Opened);
        EntryList read = file.passwordArray();
        sortEntries(read); // as the save will
        QCOMPARE(read.size(), 3);
        QCOMPARE(entryName(read[0]), QStringLiteral("Dated"));
        const qsizetype row = entryWithName(file.passwordArray(), "Dated");
        Entry e = file.passwordArray()[row].toMap();
        e.insert(EntryKey::Notes, "edited");
        file.passwordArray()[row] = e;
        QVERIFY(file.save());
        file.close();
        QCOMPARE(file.open(), PasswordFile::OpenResult::Opened);
        const EntryList after = file.passwordArray();
        QCOMPARE(after.size(), 3);
        QString where;
        for (int i = 1; i < 3; ++i)
            QVERIFY2(identical(after[i], read[i], &where), qPrintable(where));
        Entry first = after[0].toMap();
        QCOMPARE(first.take(EntryKey::Notes), QVariant("edited"));
        Entry original = read[0].toMap();
        original.remove(EntryKey::Notes);
        QVERIFY2(identical(first, original, &where), qPrintable(where));
    }

    void pre20StringsAreKeptExactly()
    {
        const QString path = pkg("Old.qvm");
        QDir().mkpath(path);
        const EntryList list{Entry{{EntryKey::Path, "\uFEFFBank"}, {EntryKey::Notes, "\uFEFF"}, {EntryKey::Password, "\uFEFF\uFEFFpw"}}};
        QVERIFY(writeBytes(path + "/Data.qvme", encryptForFile(encodeTypedStream(list), "pw", true)));
        ScriptedDelegate d;
        d.passwords = {"pw"};
        PasswordFile file(path, nullptr, &d);
        QCOMPARE(file.open(), PasswordFile::OpenResult::Opened);
        QCOMPARE(file.passwordArray(), list);
    }

    void leftoverScratchDirectoriesAreRemovedButNotHeldOnes()
    {
        QDir home = QDir::home();
        QVERIFY(home.mkpath(".QVM.AbCdEfGh/sub"));
        QVERIFY(writeBytes(home.filePath(".QVM.AbCdEfGh/Data"), "plaintext"));
        QVERIFY(home.mkpath(".QVMX"));
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", sampleList()));
        ScriptedDelegate d;
        d.passwords = {"pw"};
        PasswordFile file(path, nullptr, &d);
        QCOMPARE(file.open(), PasswordFile::OpenResult::Opened);
        const QString held = QFileInfo(file.tempDir()).fileName();

        QCOMPARE(PasswordFile::removeLeftoverScratchDirectories(), 1);
        QVERIFY(!home.exists(".QVM.AbCdEfGh"));
        QVERIFY(home.exists(".QVMX"));
        QCOMPARE(scratchDirectories(), QStringList{held}); // its holder is alive
        file.passwordArray().append(Entry{{EntryKey::Path, "Still saving"}});
        QVERIFY(file.save());
        file.close();
        QVERIFY(scratchDirectories().isEmpty());
    }

    void noScratchDirectoryNoOpening()
    {
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", sampleList()));
        QVERIFY(PasswordFile::createPackage(pkg("New.qvm"), "pw"));
        const QStringList before = packageFiles(path), newBefore = packageFiles(pkg("New.qvm"));
        ScriptedDelegate d;
        d.passwords = {"pw", "pw"};
        PasswordFile file(path, nullptr, &d), created(pkg("New.qvm"), nullptr, &d);
        {
            const ScopedEnvironment noHome("HOME", QFile::encodeName(pkg("no such folder")));
            QCOMPARE(file.open(), PasswordFile::OpenResult::NoScratchDirectory);
            QCOMPARE(created.open(), PasswordFile::OpenResult::NoScratchDirectory);
        }
        QVERIFY(d.prompts.isEmpty());
        QCOMPARE(d.messages.size(), 2);
        QCOMPARE(d.messages[0], PasswordFile::kNoScratchDirectory.arg("Bank", "No such file or directory"));
        QCOMPARE(packageFiles(path), before);
        QCOMPARE(packageFiles(pkg("New.qvm")), newBefore);
        QCOMPARE(created.open(), PasswordFile::OpenResult::Opened); // now it can
    }
};

QTEST_GUILESS_MAIN(TestPasswordFile)
#include "tst_passwordfile.moc"
