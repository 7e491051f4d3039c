// The settings store: loading, migration marks, typed access, atomic synchronize.

#include "core/app/QWPrefs.h"
#include "core/archive/KeyedArchive.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTest>

using namespace tess;

class TestPrefs : public QObject {
    Q_OBJECT

    static void writeFile(const QString &path, const QByteArray &bytes)
    {
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }

private Q_SLOTS:
    void firstStart()
    {
        testsupport::ScopedHome home;
        QCOMPARE(QWPrefs::prefsDirectory(), home.path() + "/.config/tessaline");
        QWPrefs prefs(QWPrefs::applicationIDToLoad(), kApplicationID);
        QCOMPARE(prefs.prefsMutableDictionary(), (QVariantMap{{Pref::ConvertedFromPlist, true}}));
        QVERIFY(!prefs.objectForKey(Pref::ReconstructedAfterCorruption).isValid());
        prefs.setInteger(16, Pref::GeneratedPasswordLength);
        QVERIFY(prefs.synchronize());
        const QString path = home.path() + "/.config/tessaline/org.tessaline.Tessaline.prefs";
        QCOMPARE(prefs.prefsPath(), path);
        const QVariant onDisk = archive::decodeKeyedArchive(testsupport::readFile(path));
        QCOMPARE(onDisk.toMap().value(Pref::GeneratedPasswordLength).toLongLong(), 16);
        QCOMPARE(QWPrefs::applicationIDToLoad(), kApplicationID);
    }

    void corruptOrUnreadableFileStartsEmpty_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addRow("garbage") << QByteArray("not a keyed archive");
        QTest::addRow("empty") << QByteArray();
        QTest::addRow("array root") << archive::encodeKeyedArchive(QVariantList{QStringLiteral("x")});
        QTest::addRow("directory") << QByteArray("DIR");
    }
    void corruptOrUnreadableFileStartsEmpty()
    {
        QFETCH(QByteArray, content);
        testsupport::ScopedHome home;
        const QString path = QWPrefs::prefsPathForApplicationID(kApplicationID);
        if (content == "DIR")
            QDir().mkpath(path);
        else
            writeFile(path, content);
        QWPrefs prefs(kApplicationID);
        QCOMPARE(prefs.prefsMutableDictionary(),
                 (QVariantMap{{Pref::ReconstructedAfterCorruption, true}, {Pref::ConvertedFromPlist, true}}));
        if (content != "DIR") {
            QVERIFY(prefs.synchronize());
            QWPrefs again(kApplicationID);
            QCOMPARE(again.prefsMutableDictionary(), prefs.prefsMutableDictionary());
        } else {
            QVERIFY(!prefs.synchronize()); // reported by the result only
        }
    }

    void keepsStoredSettingsAndMark()
    {
        testsupport::ScopedHome home;
        writeFile(QWPrefs::prefsPathForApplicationID(kApplicationID),
                  archive::encodeKeyedArchive(QVariantMap{{Pref::TypeSpeed, qint64(50)}, {Pref::ConvertedFromPlist, false}}));
        QWPrefs prefs(kApplicationID);
        QCOMPARE(prefs.integerForKey(Pref::TypeSpeed), 50);
        QCOMPARE(prefs.boolForKey(Pref::ConvertedFromPlist), false); // present: not merged again
    }

    void earlierIdentifierIsCarriedToTheNewFile()
    {
        testsupport::ScopedHome home;
        const QString dir = QWPrefs::prefsDirectory();
        writeFile(dir + "/org.tessaline.TessalineClassic.plist", "old defaults");
        QCOMPARE(QWPrefs::applicationIDToLoad(), kEarlierApplicationID2);
        writeFile(dir + "/org.tessaline.TessalinePro.plist", "old defaults");
        QCOMPARE(QWPrefs::applicationIDToLoad(), kEarlierApplicationID1);
        writeFile(QWPrefs::prefsPathForApplicationID(kEarlierApplicationID1),
                  archive::encodeKeyedArchive(QVariantMap{{Pref::DefaultUserID, QStringLiteral("me")}}));
        QWPrefs prefs(kEarlierApplicationID1, kApplicationID);
        QCOMPARE(prefs.objectForKey(Pref::DefaultUserID).toString(), QStringLiteral("me"));
        QVERIFY(prefs.synchronize());
        QVERIFY(QFile::exists(QWPrefs::prefsPathForApplicationID(kApplicationID)));
        QCOMPARE(QWPrefs::applicationIDToLoad(), kApplicationID);
        QWPrefs reloaded(kApplicationID);
        QCOMPARE(reloaded.objectForKey(Pref::DefaultUserID).toString(), QStringLiteral("me"));
    }

    void typedAccess()
    {
        testsupport::ScopedHome home;
        QWPrefs prefs(kApplicationID);
        QVERIFY(!prefs.boolForKey("absent"));
        QCOMPARE(prefs.integerForKey("absent"), 0);
        QCOMPARE(prefs.doubleForKey("absent"), 0.0);
        prefs.setUInt32(2304, Pref::HotkeyUserIDModifierFlags);
        QCOMPARE(prefs.uInt32ForKey(Pref::HotkeyUserIDModifierFlags), 2304u);
        prefs.setBool(true, Pref::ConfirmDelete);
        QCOMPARE(prefs.objectForKey(Pref::ConfirmDelete).typeId(), QMetaType::Bool);
        prefs.setFloat(1.5f, "f");
        QCOMPARE(prefs.floatForKey("f"), 1.5f);
        prefs.setDouble(2.25, "d");
        QCOMPARE(prefs.integerForKey("d"), 2);
        // Strings answer with their own numeric and boolean readings.
        prefs.setObject(QStringLiteral(" 42abc"), "s");
        QCOMPARE(prefs.integerForKey("s"), 42);
        QVERIFY(prefs.boolForKey("s"));
        prefs.setObject(QStringLiteral("yes"), "s");
        QVERIFY(prefs.boolForKey("s"));
        prefs.setObject(QStringLiteral("0"), "s");
        QVERIFY(!prefs.boolForKey("s"));
        // nil removes.
        prefs.setObject(QVariant(), Pref::ConfirmDelete);
        QVERIFY(!prefs.objectForKey(Pref::ConfirmDelete).isValid());
        QVERIFY(!prefs.boolForKey(Pref::ConfirmDelete));
        // A stored list is a copy.
        QVariantList files{QStringLiteral("/a.qvm")};
        prefs.setObject(files, Pref::LastPWFiles);
        files.append(QStringLiteral("/b.qvm"));
        QCOMPARE(prefs.objectForKey(Pref::LastPWFiles).toList().size(), 1);
        QVERIFY(prefs.description().contains("/a.qvm"));
        QVERIFY(!prefs.empty());
    }

    // A setting stored as a string reads as NSString's boolValue does.
    void stringsReadAsBooleans_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<bool>("on");
        for (const char *yes : {"true", "True", "t", "T", "TRUE", "yes", "Y", "y", " 1", "+7", "007"})
            QTest::addRow("%s", yes) << QString::fromLatin1(yes) << true;
        for (const char *no : {"false", "F", "no", "N", "0", "-0", "", "  ", "on", "x1"})
            QTest::addRow("'%s'", no) << QString::fromLatin1(no) << false;
    }
    void stringsReadAsBooleans()
    {
        QFETCH(QString, stored);
        QFETCH(bool, on);
        testsupport::ScopedHome home;
        writeFile(QWPrefs::prefsPathForApplicationID(kApplicationID),
                  archive::encodeKeyedArchive(QVariantMap{{Pref::ConfirmDelete, stored}}));
        QWPrefs prefs(kApplicationID);
        QCOMPARE(prefs.boolForKey(Pref::ConfirmDelete), on);
    }

    // Another program (tessaline-cli, a second copy) changed the file meanwhile: a
    // synchronize writes only what was changed here, over what the file holds now.
    void synchronizeKeepsWhatOthersWrote()
    {
        testsupport::ScopedHome home;
        const QString path = QWPrefs::prefsPathForApplicationID(kApplicationID);
        writeFile(path, archive::encodeKeyedArchive(QVariantMap{{Pref::ConfirmDelete, true}, {Pref::TypeSpeed, qint64(5)},
                                                                {Pref::DefaultUserID, QStringLiteral("me")},
                                                                {Pref::ConvertedFromPlist, true}}));
        QWPrefs app(kApplicationID, kApplicationID);
        QWPrefs other(kApplicationID, kApplicationID);
        other.setBool(false, Pref::ConfirmDelete);
        other.setObject(QStringLiteral("/a.qvm"), Pref::LastPWFile);
        QVERIFY(other.synchronize());

        app.setInteger(7, Pref::TypeSpeed);
        app.removeObjectForKey(Pref::DefaultUserID);
        app.setBool(true, Pref::ConfirmDelete); // what it already held: not a change
        QVERIFY(app.synchronize());
        const QVariantMap onDisk = archive::decodeKeyedArchive(testsupport::readFile(path)).toMap();
        QCOMPARE(onDisk.value(Pref::ConfirmDelete), QVariant(false));
        QCOMPARE(onDisk.value(Pref::LastPWFile).toString(), QStringLiteral("/a.qvm"));
        QCOMPARE(onDisk.value(Pref::TypeSpeed).toLongLong(), 7);
        QVERIFY(!onDisk.contains(Pref::DefaultUserID));
        QCOMPARE(app.prefsMutableDictionary(), onDisk); // and the store now holds the same

        // A file gone meanwhile is written whole again.
        QVERIFY(QFile::remove(path));
        app.setInteger(8, Pref::TypeSpeed);
        QVERIFY(app.synchronize());
        QWPrefs reread(kApplicationID);
        QCOMPARE(reread.integerForKey(Pref::TypeSpeed), 8);
    }

    void outsideChangesArePickedUpWhileRunning()
    {
        testsupport::ScopedHome home;
        QWPrefs app(kApplicationID, kApplicationID);
        app.setBool(true, Pref::ConfirmDelete);
        QVERIFY(app.synchronize());
        app.watchForOutsideChanges();
        app.setInteger(3, Pref::PasswordPrompt); // not yet written: stays as set here

        for (bool confirm : {false, true}) { // the file is replaced each time, not written in place
            QWPrefs other(kApplicationID, kApplicationID);
            other.setBool(confirm, Pref::ConfirmDelete);
            other.setInteger(9, Pref::PasswordPrompt);
            QVERIFY(other.synchronize());
            QTRY_COMPARE(app.boolForKey(Pref::ConfirmDelete), confirm);
            QCOMPARE(app.integerForKey(Pref::PasswordPrompt), 3);
        }
        QVERIFY(app.synchronize());
        QWPrefs reread(kApplicationID);
        QCOMPARE(reread.boolForKey(Pref::ConfirmDelete), true);
        QCOMPARE(reread.integerForKey(Pref::PasswordPrompt), 3);
    }

    void synchronizeReplacesAtomically()
    {
        testsupport::ScopedHome home;
        QWPrefs prefs(kApplicationID);
        prefs.setObject(QVariantList{QStringLiteral("/x.qvm"), QStringLiteral("/y.qvm")}, Pref::LastPWFiles);
        prefs.setBool(true, Pref::HoverUserID);
        QVERIFY(prefs.synchronize());
        QVERIFY(prefs.synchronize());
        const QStringList left = QDir(QWPrefs::prefsDirectory()).entryList(QDir::Files | QDir::Hidden);
        QCOMPARE(left, QStringList{"org.tessaline.Tessaline.prefs"});
        QWPrefs reloaded(kApplicationID);
        QCOMPARE(reloaded.prefsMutableDictionary(), prefs.prefsMutableDictionary());
        QCOMPARE(reloaded.objectForKey(Pref::HoverUserID).typeId(), QMetaType::Bool);
    }
};

QTEST_GUILESS_MAIN(TestPrefs)
#include "tst_prefs.moc"
