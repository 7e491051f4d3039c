// tessaline-cli prefs, run as a user would run it.

#include "core/app/QWPrefs.h"
#include "support/TestSupport.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

using namespace tess;

class TestCliPrefs : public QObject {
    Q_OBJECT

    struct Run {
        int code;
        QString out, err;
    };
    static Run cli(const QStringList &args)
    {
        QProcess p;
        p.start(qEnvironmentVariable("TESSALINE_BUILD_DIR") + "/tessaline-cli", args);
        p.waitForFinished(30000);
        return {p.exitCode(), QString::fromUtf8(p.readAllStandardOutput()), QString::fromUtf8(p.readAllStandardError())};
    }

private Q_SLOTS:
    void setGetListDelete()
    {
        testsupport::ScopedHome home;
        QCOMPARE(cli({"prefs", "set", "typeSpeed", "50", "--type", "int"}).code, 0);
        QCOMPARE(cli({"prefs", "set", "confirmDelete", "NO", "--type", "bool"}).code, 0);
        QCOMPARE(cli({"prefs", "set", "defaultUserID", "me@example.com"}).code, 0);
        QCOMPARE(cli({"prefs", "set", "ratio", "0.5", "--type=real"}).code, 0);

        QWPrefs prefs(kApplicationID);
        QCOMPARE(prefs.objectForKey("typeSpeed").typeId(), QMetaType::LongLong);
        QCOMPARE(prefs.objectForKey("confirmDelete").typeId(), QMetaType::Bool);
        QCOMPARE(prefs.objectForKey("defaultUserID").toString(), QStringLiteral("me@example.com"));

        Run r = cli({"prefs", "get", "defaultUserID"});
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out, QStringLiteral("me@example.com\n"));
        QCOMPARE(cli({"prefs", "get", "typeSpeed"}).out, QStringLiteral("50\n"));

        r = cli({"prefs"});
        QCOMPARE(r.out, QStringLiteral("confirmDelete = false\nconvertedFromPlist = true\n"
                                       "defaultUserID = \"me@example.com\"\nratio = 0.5\ntypeSpeed = 50\n"));
        r = cli({"prefs", "--json"});
        const QJsonObject o = QJsonDocument::fromJson(r.out.toUtf8()).object();
        QCOMPARE(o.value("typeSpeed").toInt(), 50);
        QVERIFY(o.value("confirmDelete").isBool());

        QCOMPARE(cli({"prefs", "delete", "typeSpeed"}).code, 0);
        r = cli({"prefs", "get", "typeSpeed"});
        QCOMPARE(r.code, 1);
        QVERIFY(r.err.startsWith("tessaline-cli: "));
    }

    void listsArrays()
    {
        testsupport::ScopedHome home;
        QWPrefs prefs(kApplicationID);
        prefs.setObject(QVariantList{QStringLiteral("/a b.qvm"), QStringLiteral("/c.qvm")}, Pref::LastPWFiles);
        QVERIFY(prefs.synchronize());
        QVERIFY(cli({"prefs"}).out.contains("Last PW Files = [\"/a b.qvm\",\"/c.qvm\"]"));
    }

    void refusesBadUse_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addRow("no command") << QStringList{};
        QTest::addRow("unknown command") << QStringList{"frobnicate"};
        QTest::addRow("bad bool") << QStringList{"prefs", "set", "x", "maybe", "--type", "bool"};
        QTest::addRow("bad int") << QStringList{"prefs", "set", "x", "12a", "--type", "int"};
        QTest::addRow("bad type") << QStringList{"prefs", "set", "x", "1", "--type", "date"};
        QTest::addRow("missing value") << QStringList{"prefs", "set", "x"};
        QTest::addRow("unknown option") << QStringList{"prefs", "--verbose"};
    }
    void refusesBadUse()
    {
        QFETCH(QStringList, args);
        testsupport::ScopedHome home;
        const Run r = cli(args);
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.startsWith("tessaline-cli: ") || r.err.startsWith("usage:"), qPrintable(r.err));
    }

    void helpDocumentsPrefs()
    {
        const Run r = cli({"--help"});
        QCOMPARE(r.code, 0);
        QVERIFY(r.out.contains("prefs set KEY VALUE"));
    }
};

QTEST_GUILESS_MAIN(TestCliPrefs)
#include "tst_cli_prefs.moc"
