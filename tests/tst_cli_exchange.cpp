// tessaline-cli's import, export and generate on real packages: files in the layouts other
// programs export, text in every script, and an import that is all or nothing.

#include "core/entries/Entry.h"
#include "support/FileSupport.h"
#include "support/TestSupport.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTest>

#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

using namespace tess;
using namespace tess::testsupport;

namespace {

const QStringList kNoKeyring = {"--password-stdin", "--no-keychain"};

CliRun cli(QStringList args)
{
    return runCli(args << kNoKeyring);
}

// Every file of a package and its bytes' digest.
QMap<QString, QByteArray> packageFileDigests(const QString &path)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(path, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString f = it.next();
        files.insert(f, QCryptographicHash::hash(readBytes(f), QCryptographicHash::Sha256));
    }
    return files;
}


} // namespace

class TestCliExchange : public QObject {
    Q_OBJECT

    std::unique_ptr<ScopedHome> m_home;
    QString m_pkg;

    QString file(const QString &name) const { return m_home->path() + u'/' + name; }

    Entry entry(const QString &name)
    {
        const CliRun r = cli({"show", m_pkg, name, "--json", "--reveal"});
        if (r.code != 0)
            return {};
        return QJsonDocument::fromJson(r.out).object().toVariantMap();
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<ScopedHome>();
        m_pkg = file("Test.qvm");
        QVERIFY(makePackage(m_pkg, "pw", {Entry{{EntryKey::Path, "Existing"}, {EntryKey::Password, "old"}}}));
    }
    void cleanup() { m_home.reset(); }

    // Layouts other password managers and browsers export, with the columns mapped onto ours.
    void layoutsOfOtherPrograms_data()
    {
        QTest::addColumn<QByteArray>("csv");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("password");
        QTest::addColumn<QString>("notes");
        QTest::addRow("browser")
            << QByteArray("name,url,username,password,note\n"
                          "bank.example,https://bank.example/login,jo@example.com,\"p,\"\"w\"\"\",\"two\nlines\"\n")
            << QStringList{"--skip-first-line", "--quotes", "standard"} << "bank.example"
            << "https://bank.example/login" << "jo@example.com" << "p,\"w\"" << "two\nlines";
        QTest::addRow("keepass-like")
            << QByteArray("\"Group\",\"Title\",\"Username\",\"Password\",\"URL\",\"Notes\"\n"
                          "\"Root\",\"Mail\",\"jo\",\"s3cr\xC3\xA9t \xE2\x82\xAC\",\"https://mail.example\",\"\"\n")
            << QStringList{"--skip-first-line", "--quotes", "standard", "--columns", "skip,name,user1,password,url,notes"}
            << "Mail" << "https://mail.example" << "jo" << "s3cr\u00e9t \u20ac" << "";
        QTest::addRow("spreadsheet, semicolons")
            << QByteArray("Caf\xC3\xA9 \xE5\xAF\x86\xE7\xA0\x81;https://x.example;me;\xF0\x9F\x94\x91pw;note\n")
            << QStringList{"--separator", "semicolon"} << "Caf\u00e9 \u5bc6\u7801" << "https://x.example" << "me"
            << "\U0001F511pw" << "note";
        // The password in the tenth column: more columns named than the dialog's nine.
        QTest::addRow("bitwarden")
            << QByteArray("folder,favorite,type,name,notes,fields,reprompt,login_uri,login_username,login_password,login_totp\n"
                          "Work,1,login,Intranet,\"first\nsecond\",\"pin: 12\",0,https://intra.example,jo,\"p\"\"w,1\",\n"
                          ",,note,Recipe,just a note,,0,,,,\n")
            << QStringList{"--skip-first-line", "--quotes", "standard", "--columns", "skip,skip,skip,name,notes,skip,skip,url,user1,password"}
            << "Intranet" << "https://intra.example" << "jo" << "p\"w,1" << "first\nsecond";
        QTest::addRow("tabs, this program's own export header")
            << QByteArray("Title,URL,Username,Password,Notes\nSite\thttps://s\tme\tp\"\"w\tn\n")
            << QStringList{"--separator", "tab"} << "Site" << "https://s" << "me" << "p\"\"w" << "n";
    }
    void layoutsOfOtherPrograms()
    {
        QFETCH(QByteArray, csv);
        QFETCH(QStringList, options);
        QVERIFY(writeBytes(file("in.csv"), csv));
        const CliRun r = cli(QStringList{"import", m_pkg, file("in.csv")} + options);
        QVERIFY2(r.code == 0, r.err.constData());
        QVERIFY2(r.out.isEmpty(), r.out.constData());
        QFETCH(QString, name);
        const Entry e = entry(name);
        QVERIFY2(!e.isEmpty(), qPrintable(name));
        QTEST(e.value(EntryKey::URL).toString(), "url");
        QTEST(e.value(EntryKey::UserID).toString(), "user");
        QTEST(e.value(EntryKey::Password).toString(), "password");
        QTEST(e.value(EntryKey::Notes).toString(), "notes");
        // The entry that was there is untouched.
        QCOMPARE(entry("Existing").value(EntryKey::Password).toString(), QStringLiteral("old"));
    }

    void exportReadsBackExactly()
    {
        QVERIFY(writeBytes(file("in.csv"), "\xC3\x89t\xC3\xA9,https://e,\xE5\xBC\xA0\xE4\xB8\x89,\xF0\x9F\x98\x80 pw,x\n"));
        QCOMPARE(cli({"import", m_pkg, file("in.csv")}).code, 0);
        const CliRun out = cli({"export", m_pkg, "-", "\u00c9t\u00e9"});
        QCOMPARE(out.code, 0);
        QCOMPARE(QString::fromUtf8(out.out),
                 QStringLiteral("Title,URL,Username,Password,Notes\n\"\u00c9t\u00e9\",\"https://e\",\"\u5f20\u4e09\",\"\U0001F600 pw\",\"x\",\"\"\n"));
        // To a file: the same bytes, readable by its owner only; every entry without names.
        QCOMPARE(cli({"export", m_pkg, file("out.csv")}).code, 0);
        QCOMPARE(QFile::permissions(file("out.csv")) & 0x0077, QFileDevice::Permissions());
        QVERIFY(readBytes(file("out.csv")).contains("\"Existing\",\"\",\"\",\"old\",\"\",\"\"\n"));
        QCOMPARE(cli({"export", m_pkg, "-", "Nobody"}).code, 4);
    }

    void exportImportsBackWithTheDefaultSeparator()
    {
        // What export writes, import reads back without a --separator: commas, the header line
        // skipped; the sixth column, the second user ID, when named.
        const EntryList list{Entry{{EntryKey::Path, "Bank, main"}, {EntryKey::URL, "https://bank.example/?a=1,2"}, {EntryKey::UserID, "jo"},
                                   {EntryKey::UserID2, "jo2"}, {EntryKey::Password, "p;w\tx"}, {EntryKey::Notes, "line one\nsays \"hi\""}},
                             Entry{{EntryKey::Path, "Mail"}, {EntryKey::Password, "m"}}};
        QVERIFY(makePackage(file("Source.qvm"), "pw", list));
        QCOMPARE(cli({"export", file("Source.qvm"), file("out.csv")}).code, 0);
        const QString copy = file("Copy.qvm");
        QVERIFY(makePackage(copy, "pw", {}));
        const CliRun r = cli({"import", copy, file("out.csv"), "--columns", "name,url,user1,password,notes,user2"});
        QVERIFY2(r.code == 0, QByteArray(r.err + r.out).constData());
        m_pkg = copy;
        QCOMPARE(cli({"ls", copy}).out, QByteArray("Bank, main\nMail\n"));
        for (const QVariant &v : list) {
            const Entry want = v.toMap();
            const Entry got = entry(want.value(EntryKey::Path).toString());
            for (const QString &key : {EntryKey::URL, EntryKey::UserID, EntryKey::UserID2, EntryKey::Password, EntryKey::Notes})
                QCOMPARE(got.value(key).toString(), want.value(key).toString());
        }
    }

    void leftOverRecordsArePrintedAndSaidByTheExitCode()
    {
        QVERIFY(writeBytes(file("in.csv"), "A,u,me,pw,n\n,u,me,pw,n\nshort,u\n,,\n"));
        const CliRun r = cli({"import", m_pkg, file("in.csv")});
        QCOMPARE(r.code, 5);
        QCOMPARE(r.out, QByteArray(",u,me,pw,n\nshort,u\n"));
        QCOMPARE(entry("A").value(EntryKey::Password).toString(), QStringLiteral("pw"));
        // A taken name gets a number rather than replacing the entry.
        QVERIFY(writeBytes(file("in2.csv"), "Existing,u,me,new,n\n"));
        QCOMPARE(cli({"import", m_pkg, file("in2.csv")}).code, 0);
        QCOMPARE(entry("Existing").value(EntryKey::Password).toString(), QStringLiteral("old"));
        QCOMPARE(entry("Existing2").value(EntryKey::Password).toString(), QStringLiteral("new"));
    }

    void unreadableOrWrongInputChangesNothing_data()
    {
        QTest::addColumn<QByteArray>("csv");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<int>("code");
        QTest::addRow("latin-1") << QByteArray("Caf\xE9,u\n") << QStringList() << 2;
        QTest::addRow("cut in a character") << QByteArray("Caf\xC3") << QStringList() << 2;
        QTest::addRow("unknown column") << QByteArray("A,u\n") << QStringList{"--columns", "name,website"} << 1;
        QTest::addRow("no name column") << QByteArray("A,u\n") << QStringList{"--columns", "url,user1"} << 1;
        QTest::addRow("65 columns") << QByteArray("A,u\n") << QStringList{"--columns", "name" + QStringLiteral(",skip").repeated(64)} << 1;
        QTest::addRow("unknown separator") << QByteArray("A,u\n") << QStringList{"--separator", "pipe"} << 1;
        QTest::addRow("nothing to import") << QByteArray("\n\n") << QStringList() << 0;
    }
    void unreadableOrWrongInputChangesNothing()
    {
        QFETCH(QByteArray, csv);
        QFETCH(QStringList, options);
        QVERIFY(writeBytes(file("in.csv"), csv));
        const auto before = packageFileDigests(m_pkg);
        const CliRun r = cli(QStringList{"import", m_pkg, file("in.csv")} + options);
        QTEST(r.code, "code");
        if (r.code != 0)
            QVERIFY(!r.err.isEmpty());
        QCOMPARE(packageFileDigests(m_pkg), before);
        QVERIFY(!QFile::exists(file("missing.csv")));
        QCOMPARE(cli({"import", m_pkg, file("missing.csv")}).code, 2);
    }

    // An import is one save: killed in the middle of writing, or failing to write, the file
    // holds all of it or none of it.
    void importIsAllOrNothing_data()
    {
        QTest::addColumn<bool>("killed");
        QTest::addRow("killed while writing") << true;
        QTest::addRow("write fails") << false;
    }
    void importIsAllOrNothing()
    {
        QFETCH(bool, killed);
        QByteArray csv;
        for (int i = 0; i < 2000; ++i)
            csv += "Site " + QByteArray::number(i) + ",https://site" + QByteArray::number(i) + ".example,me,pw" + QByteArray::number(i) + ",\n";
        QVERIFY(writeBytes(file("in.csv"), csv));
        const auto before = packageFileDigests(m_pkg);

        QProcess p;
        // Files may not grow past 16 KiB: the encrypted list of 2000 entries cannot be written.
        p.setChildProcessModifier([killed] {
            ::setsid();
            rlimit limit{16384, 16384};
            ::setrlimit(RLIMIT_FSIZE, &limit);
            if (!killed)
                std::signal(SIGXFSZ, SIG_IGN);
        });
        p.start(qEnvironmentVariable("TESSALINE_BUILD_DIR") + "/tessaline-cli",
                QStringList{"import", m_pkg, file("in.csv")} + kNoKeyring);
        p.write("pw\n");
        p.closeWriteChannel();
        QVERIFY(p.waitForFinished(60000));
        if (killed)
            QCOMPARE(p.exitStatus(), QProcess::CrashExit);
        else
            QCOMPARE(p.exitCode(), 3);
        // The package's files are as they were; a half-written file may only be a temporary
        // one that reading ignores.
        auto after = packageFileDigests(m_pkg);
        for (auto it = before.cbegin(); it != before.cend(); ++it)
            QCOMPARE(after.value(it.key()), it.value());
        const CliRun ls = cli({"ls", m_pkg});
        QCOMPARE(ls.code, 0);
        QCOMPARE(ls.out, QByteArray("Existing\n"));

        // Without the limit the same import goes through whole.
        const CliRun again = cli({"import", m_pkg, file("in.csv")});
        QCOMPARE(again.code, 0);
        QCOMPARE(cli({"ls", m_pkg}).out.count('\n'), 2001);
    }

    void generate()
    {
        const CliRun r = runCli({"generate", "--length", "30", "--count", "50", "--no-specials"});
        QCOMPARE(r.code, 0);
        const QList<QByteArray> lines = r.out.trimmed().split('\n');
        QCOMPARE(lines.size(), 50);
        for (const QByteArray &l : lines) {
            QCOMPARE(l.size(), 30);
            for (char c : l)
                QVERIFY2(std::isalnum(static_cast<unsigned char>(c)) && c != 'I' && c != 'O' && c != 'U', l.constData());
        }
        // Out of range: brought within the bounds, and said so.
        const CliRun shortOne = runCli({"generate", "--length", "1"});
        QCOMPARE(shortOne.code, 0);
        QCOMPARE(shortOne.out.trimmed().size(), 4);
        QVERIFY(shortOne.err.contains("out of range"));
        QCOMPARE(runCli({"generate", "--length", "x"}).code, 1);
    }
};

QTEST_GUILESS_MAIN(TestCliExchange)
#include "tst_cli_exchange.moc"
