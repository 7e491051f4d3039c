// tessaline-cli's file commands end to end on real packages, including the promises about
// plaintext, interrupted saves, read-only packages and full disks.

#include "core/app/QWPrefs.h"
#include "core/entries/Entry.h"
#include "core/entries/EntryList.h"
#include "core/storage/DirectoryLock.h"
#include "core/storage/PasswordFile.h"
#include "core/archive/KeyedArchive.h"
#include "support/ArchiveSupport.h"
#include "support/FileSupport.h"
#include "support/TestSupport.h"
#include "support/TypedStreamWriter.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

#include <QFileInfo>

#include <csignal>
#include <limits>
#include <optional>
#include <sys/mount.h>
#include <unistd.h>

using namespace tess;
using namespace tess::testsupport;

namespace {

using Run = CliRun;

Run cli(const QStringList &args, const QByteArray &input = "pw\n")
{
    return runCli(args, input);
}

// A tmpfs of its own, to make a package read-only or its disk full. Needs root; tests skip
// without it.
class SmallDisk {
public:
    explicit SmallDisk(const QString &path, const QByteArray &size) : m_path(path)
    {
        QDir().mkpath(path);
        m_mounted = ::mount("tmpfs", QFile::encodeName(path).constData(), "tmpfs", 0, QByteArray("size=" + size).constData()) == 0;
    }
    ~SmallDisk()
    {
        if (m_mounted)
            ::umount2(QFile::encodeName(m_path).constData(), MNT_DETACH);
    }
    bool mounted() const { return m_mounted; }
    bool makeReadOnly()
    {
        return ::mount("tmpfs", QFile::encodeName(m_path).constData(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) == 0;
    }

private:
    QString m_path;
    bool m_mounted = false;
};

QStringList lines(const QByteArray &out)
{
    return QString::fromUtf8(out).split(u'\n', Qt::SkipEmptyParts);
}

} // namespace

class TestCliFiles : public QObject {
    Q_OBJECT

    std::unique_ptr<ScopedHome> m_home;
    QString pkg(const QString &name) const { return m_home->path() + "/" + name; }

    EntryList openList(const QString &path, const QString &password = "pw", QStringList *titles = nullptr)
    {
        ScriptedDelegate d;
        d.passwords = {password};
        PasswordFile file(path, nullptr, &d);
        if (file.open(PasswordFile::KeychainUse::Never) != PasswordFile::OpenResult::Opened)
            return {};
        if (titles)
            *titles = file.recentWebsiteTitles();
        return file.passwordArray();
    }

private Q_SLOTS:
    void init() { m_home = std::make_unique<ScopedHome>(); }
    void cleanup() { m_home.reset(); }

    void createAddShowList()
    {
        QWPrefs prefs(kApplicationID);
        prefs.setObject(QStringLiteral("default@example.com"), Pref::DefaultUserID);
        QVERIFY(prefs.synchronize());

        const QString path = pkg("Cli.qvm");
        QCOMPARE(cli({"create", path, "--password-stdin"}).code, 0);
        QCOMPARE(cli({"create", path, "--password-stdin"}).code, 3);
        QCOMPARE(cli({"add", path, "Bank", "--url", "https://bank.example", "--password", "s3cret", "--notes", "a\nb",
                      "--password-stdin"}).code, 0);
        QCOMPARE(cli({"add", path, "apple", "--user", "me", "--user2", "", "--password-stdin"}).code, 0);
        QCOMPARE(cli({"add", path, "Zeta", "--password-stdin"}).code, 0);
        Run r = cli({"add", path, "Bank", "--password-stdin"});
        QCOMPARE(r.code, 1);
        QVERIFY(r.err.startsWith("tessaline-cli: "));

        r = cli({"ls", path, "--password-stdin"});
        QCOMPARE(r.code, 0);
        QCOMPARE(lines(r.out), (QStringList{"Bank", "Zeta", "apple"}));
        r = cli({"ls", path, "--json", "--password-stdin"});
        QCOMPARE(QJsonDocument::fromJson(r.out).array().size(), 3);

        r = cli({"show", path, "Bank", "--password-stdin"});
        QCOMPARE(r.code, 0);
        QCOMPARE(lines(r.out), (QStringList{"Button = \"\"", "Notes = \"a\\nb\"", "Path = \"Bank\"",
                                            "websitePassword = ********", "websiteURL = \"https://bank.example\"",
                                            "websiteUserID = \"default@example.com\""}));
        r = cli({"show", path, "Bank", "--json", "--password-stdin"});
        QVERIFY(!QJsonDocument::fromJson(r.out).object().contains("websitePassword"));
        r = cli({"show", path, "Bank", "--json", "--reveal", "--password-stdin"});
        QCOMPARE(QJsonDocument::fromJson(r.out).object().value("websitePassword").toString(), QStringLiteral("s3cret"));
        const Entry apple = openList(path).at(2).toMap();
        QVERIFY(!apple.contains(EntryKey::UserID2));
        QCOMPARE(apple.value(EntryKey::UserID).toString(), QStringLiteral("me"));
        QCOMPARE(cli({"show", path, "Nope", "--password-stdin"}).code, 4);
    }

    void showKeepsTypes()
    {
        const QString path = pkg("Typed.qvm");
        QVERIFY(makePackage(path, "pw", sampleEntries(2)));
        const Run r = cli({"show", path, "Site 00000", "--json", "--password-stdin"});
        const QJsonObject o = QJsonDocument::fromJson(r.out).object();
        QVERIFY(o.value("websiteUserIDTabSwitch").isBool());
        QVERIFY(o.value("websiteUserIDTabCount").isDouble());
        QCOMPARE(cli({"show", path, "Site 00000", "--password-stdin"}).out.count("websiteUserIDTabSwitch = true"), 1);
    }

    void editChangesOnlyWhatIsGiven()
    {
        const QString path = pkg("Edit.qvm");
        const Entry bank{{EntryKey::Path, "Bank"}, {EntryKey::Button, ""}, {EntryKey::Notes, "n"}, {EntryKey::UserID, "u"},
                         {EntryKey::UserID2, "u2"}, {EntryKey::URL, "https://x"}, {EntryKey::UserIDTabSwitch, true}};
        QVERIFY(makePackage(path, "pw", EntryList{bank, Entry{{EntryKey::Path, "Mail"}}}, {"Mail", "Bank"}));
        QCOMPARE(cli({"edit", path, "Bank", "--user2", "", "--url", "", "--password-stdin"}).code, 0);
        Entry e = openList(path).at(0).toMap();
        QVERIFY(!e.contains(EntryKey::UserID2));
        QCOMPARE(e.value(EntryKey::URL).toString(), QString(""));
        QVERIFY(e.contains(EntryKey::URL));
        QCOMPARE(e.value(EntryKey::UserIDTabSwitch).typeId(), QMetaType::Bool);
        QCOMPARE(cli({"edit", path, "Bank", "--name", "Mail", "--password-stdin"}).code, 1);
        QCOMPARE(cli({"edit", path, "Nope", "--name", "X", "--password-stdin"}).code, 4);
        QCOMPARE(cli({"edit", path, "Bank", "--name", "Checking", "--password-stdin"}).code, 0);
        QStringList titles;
        const EntryList list = openList(path, "pw", &titles);
        QCOMPARE(entryName(list.at(0)), QStringLiteral("Checking"));
        QCOMPARE(titles, (QStringList{"Mail", "Checking"}));
    }

    void removeAndFind()
    {
        const QString path = pkg("Rm.qvm");
        EntryList list = sampleEntries(5);
        auto e = list[3].toMap();
        e.insert(EntryKey::Notes, "NEEDLE in notes");
        list[3] = e;
        QVERIFY(makePackage(path, "pw", list, {"Site 00001"}));
        Run r = cli({"find", path, "needle", "--password-stdin"});
        QCOMPARE(lines(r.out), QStringList{"Site 00003"});
        r = cli({"find", path, "example1", "--json", "--password-stdin"});
        QCOMPARE(QJsonDocument::fromJson(r.out).array().size(), 1);
        QCOMPARE(cli({"rm", path, "Site 00001", "Missing", "--password-stdin"}).code, 4);
        QCOMPARE(openList(path).size(), 5);
        QCOMPARE(cli({"rm", path, "Site 00001", "Site 00003", "--password-stdin"}).code, 0);
        QStringList titles;
        QCOMPARE(openList(path, "pw", &titles).size(), 3);
        QVERIFY(titles.isEmpty());
    }

    void passwordsAndDamage()
    {
        const QString path = pkg("Pw.qvm");
        QVERIFY(makePackage(path, "pw", sampleEntries(3)));
        const QByteArray before = readFile(path + "/Data.qvmi");
        Run r = cli({"ls", path, "--password-stdin"}, "wrong\n");
        QCOMPARE(r.code, 2);
        QVERIFY(r.err.contains("wrong password or damaged file"));
        QCOMPARE(readFile(path + "/Data.qvmi"), before);
        QCOMPARE(cli({"passwd", path, "--password-stdin"}, "pw\n").code, 1); // no new password given
        QCOMPARE(cli({"passwd", path, "--password-stdin"}, "pw\nn3w\n").code, 0);
        QCOMPARE(cli({"ls", path, "--password-stdin"}, "pw\n").code, 2);
        QCOMPARE(cli({"ls", path, "--password-stdin"}, "n3w\n").code, 0);

        QVERIFY(writeBytes(path + "/Data.qvmi", QByteArray("damaged")));
        QCOMPARE(cli({"ls", path, "--password-stdin"}, "n3w\n").code, 2);
        QCOMPARE(readFile(path + "/Data.qvmi"), QByteArray("damaged"));
        QDir().mkpath(pkg("Empty.qvm"));
        r = cli({"ls", pkg("Empty.qvm"), "--password-stdin"});
        QCOMPARE(r.code, 2);
        QVERIFY(r.err.contains("not a Tessaline password file"));
        QCOMPARE(cli({"ls", pkg("Missing.qvm"), "--password-stdin"}).code, 2);
        QCOMPARE(cli({"ls", path, "--no-keychain"}).code, 2); // no terminal to ask on
    }

    void usageErrors_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addRow("no file") << QStringList{"ls"};
        QTest::addRow("no name") << QStringList{"show", "x.qvm"};
        QTest::addRow("unknown option") << QStringList{"ls", "x.qvm", "--frob"};
        QTest::addRow("option without value") << QStringList{"add", "x.qvm", "N", "--url"};
        QTest::addRow("keychain what") << QStringList{"keychain", "x.qvm", "maybe"};
        QTest::addRow("extra argument") << QStringList{"ls", "x.qvm", "extra"};
    }
    void usageErrors()
    {
        QFETCH(QStringList, args);
        const Run r = cli(args);
        QCOMPARE(r.code, 1);
        QVERIFY(r.err.startsWith("tessaline-cli: "));
    }

    // Every kind of package the suite makes, and every reading command on it: the package's
    // bytes and names stay exactly as they were.
    void readingCommandsWriteNothing()
    {
        struct Kind {
            QString name;
            QString entry; // one to show and find
            int code;
        };
        QList<Kind> kinds;
        auto add = [&](const QString &name, const QString &entry, int code = 0) {
            kinds.append({name, entry, code});
            return pkg(name + ".qvm");
        };
        QVERIFY(makePackage(add("current", "Site 00001"), "pw", sampleEntries(5), {"Site 00002"}));
        QVERIFY(makePackage(add("no titles", "Site 00001"), "pw", sampleEntries(2)));
        QFile::remove(pkg("no titles.qvm/Recent Websites.qvmi"));
        const QString old = add("pre-2.0", "Site 00003");
        QDir().mkpath(old);
        QVERIFY(writeBytes(old + "/Data.qvme", encryptForFile(encodeTypedStream(sampleEntries(4)), "pw", true)));
        QVERIFY(writeBytes(old + "/Recent Websites.qvme", encryptForFile(encodeTypedStream(QVariantList{"Site 00001"}), "pw", true)));
        const QString copies = add("conflict copies", "Site 00002");
        QVERIFY(makePackage(copies, "pw", sampleEntries(2)));
        QVERIFY(writeBytes(copies + "/Data 2.qvmi", encryptForFile(archive::encodeKeyedArchive(sampleEntries(3)), "pw", false)));
        QVERIFY(writeBytes(copies + "/Recent Websites 2.qvmi", encryptForFile(archive::encodeKeyedArchive(QVariantList{"x"}), "pw", false)));
        QVERIFY(writeBytes(copies + "/Data 3.tmp", "left by a sync service"));
        const QString fresh = add("new from another program", "none", 4);
        QDir().mkpath(fresh);
        QVERIFY(writeBytes(fresh + "/Data", "pw"));
        const QString foreign = add("foreign objects", "Noted");
        QVERIFY(makePackage(foreign, "pw", {}));
        QVERIFY(writeBytes(foreign + "/Data.qvmi", encryptForFile(entryListWithForeignObjects(), "pw", false)));
        QRandomGenerator rng(randomSeed(5));
        QVariantList random = randomEntryList(rng, 20);
        random.append(Entry{{EntryKey::Path, "~plain"}});
        QVERIFY(makePackage(add("random", "~plain"), "pw", random));
        const QString badTitles = add("unreadable titles", "Site 00001");
        QVERIFY(makePackage(badTitles, "pw", sampleEntries(2)));
        QVERIFY(writeBytes(badTitles + "/Recent Websites.qvmi", encryptForFile(archive::encodeKeyedArchive(QVariantMap{{"a", "b"}}), "pw", false)));
        for (const auto &[name, bytes] : damagedEntryArchives()) {
            const QString path = add("damaged " + name, "Bank", 2);
            QVERIFY(makePackage(path, "pw", {}, {"Bank"}));
            QVERIFY(writeBytes(path + "/Data.qvmi", encryptForFile(bytes, "pw", false)));
        }
        QVERIFY(makePackage(add("wrong password", "Bank", 2), "other", sampleEntries(2)));

        for (const Kind &k : std::as_const(kinds)) {
            const QString path = pkg(k.name + ".qvm");
            const QList<QStringList> commands = {
                {"ls", path}, {"ls", path, "--json"}, {"show", path, k.entry}, {"show", path, k.entry, "--json", "--reveal"},
                {"find", path, "Site"}, {"find", path, "e", "--json"}};
            for (QStringList args : commands) {
                args << "--password-stdin" << "--no-keychain";
                const QByteArray before = packageDigest(path);
                const Run r = cli(args);
                const int expected = k.code == 4 && args[0] != "show" ? 0 : k.code;
                QVERIFY2(r.code == expected, qPrintable(k.name + ": " + args.join(' ') + " exited " + QString::number(r.code) + " " + r.err));
                QVERIFY2(packageDigest(path) == before, qPrintable(k.name + ": " + args.join(' ') + " changed the package"));
            }
        }
    }

    void damagedEntryListsAreRefusedByEveryCommand()
    {
        for (const auto &[name, bytes] : damagedEntryArchives()) {
            const QString path = pkg("Bank.qvm");
            QDir(path).removeRecursively();
            QVERIFY(makePackage(path, "pw", {}, {"Bank"}));
            QVERIFY(writeBytes(path + "/Data.qvmi", encryptForFile(bytes, "pw", false)));
            const QByteArray before = packageDigest(path);
            for (const QStringList &args : QList<QStringList>{{"ls", path}, {"add", path, "New"}, {"rm", path, "Bank"},
                                                             {"edit", path, "Bank", "--notes", "x"}, {"keychain", path, "off"}}) {
                const Run r = cli(args + QStringList{"--password-stdin", args[0] == "keychain" ? "--" : "--no-keychain"});
                QVERIFY2(r.code == 2, qPrintable(name + ": " + args[0] + " exited " + QString::number(r.code)));
                QVERIFY2(r.err.contains("the file's entry list is damaged"), qPrintable(name + ": " + r.err));
                QVERIFY2(packageDigest(path) == before, qPrintable(name + ": " + args[0] + " changed the package"));
            }
        }
    }

    void changingCommandsUpgradeAndMergeInTheirOneSave()
    {
        const QString path = pkg("Old.qvm");
        QDir().mkpath(path);
        QVERIFY(writeBytes(path + "/Data.qvme", encryptForFile(encodeTypedStream(sampleEntries(4)), "pw", true)));
        QVERIFY(writeBytes(path + "/Recent Websites.qvme", encryptForFile(encodeTypedStream(QVariantList{"Site 00001"}), "pw", true)));
        QCOMPARE(cli({"ls", path, "--password-stdin"}).code, 0);
        QCOMPARE(QDir(path).entryList(QDir::Files), (QStringList{"Data.qvme", "Recent Websites.qvme"}));
        QCOMPARE(cli({"add", path, "New", "--password-stdin"}).code, 0);
        QCOMPARE(QDir(path).entryList(QDir::Files), (QStringList{"Data.qvmi", "Recent Websites.qvmi"}));
        QStringList titles;
        QCOMPARE(entryNames(openList(path, "pw", &titles)),
                 (QStringList{"New", "Site 00000", "Site 00001", "Site 00002", "Site 00003"}));
        QCOMPARE(titles, QStringList{"Site 00001"});

        const Entry extra{{EntryKey::Path, "Shop"}, {EntryKey::Notes, ""}};
        QVERIFY(writeBytes(path + "/Data 2.qvmi", encryptForFile(archive::encodeKeyedArchive(EntryList{extra}), "pw", false)));
        QCOMPARE(cli({"ls", path, "--password-stdin"}).out, QByteArray("New\nSite 00000\nSite 00001\nSite 00002\nSite 00003\nShop\n"));
        QVERIFY(QFileInfo::exists(path + "/Data 2.qvmi"));
        QCOMPARE(cli({"keychain", path, "off", "--password-stdin"}).code, 0);
        QCOMPARE(QDir(path).entryList(QDir::Files), (QStringList{"Data.qvmi", "Recent Websites.qvmi"}));
        QVERIFY(entryNames(openList(path)).contains("Shop"));
    }

    void randomListsKeepEveryUntouchedValueThroughAnEdit()
    {
        const quint32 seed = randomSeed(77);
        QRandomGenerator rng(seed);
        for (int i = 0, n = randomListCount(4); i < n; ++i) {
            QVariantList list = randomEntryList(rng, 25);
            list.append(Entry{{EntryKey::Path, "~edit me"}, {EntryKey::Notes, "before"}});
            sortEntries(list);
            const QString path = pkg(QStringLiteral("Random%1.qvm").arg(i));
            QVERIFY(makePackage(path, "pw", list));
            const Run r = cli({"edit", path, "~edit me", "--notes", "after", "--user", QStringLiteral("\uFEFFme"), "--password-stdin"});
            QVERIFY2(r.code == 0, r.err.constData());
            const EntryList after = openList(path);
            QCOMPARE(after.size(), list.size());
            for (qsizetype j = 0; j < list.size(); ++j) {
                QVariantMap expected = list[j].toMap();
                if (entryName(expected) == "~edit me" && expected.value(EntryKey::Path).typeId() == QMetaType::QString) {
                    expected.insert(EntryKey::Notes, "after");
                    expected.insert(EntryKey::UserID, QStringLiteral("\uFEFFme"));
                }
                QString where;
                QVERIFY2(identical(after[j], expected, &where),
                         qPrintable(QStringLiteral("seed %1, list %2, entry %3: %4").arg(seed).arg(i).arg(j).arg(where)));
            }
        }
    }

    void stringsAreKeptExactly()
    {
        const QString path = pkg("Bom.qvm");
        const QByteArray bom = "\xEF\xBB\xBF";
        QCOMPARE(cli({"create", path, "--password-stdin"}, QByteArray(bom + "pw\n")).code, 0);
        QCOMPARE(cli({"ls", path, "--password-stdin"}, "pw\n").code, 2); // the password is U+FEFF "pw"
        QCOMPARE(cli({"add", path, QStringLiteral("\uFEFFBank"), "--notes", QStringLiteral("\uFEFFnote"), "--password-stdin"}, QByteArray(bom + "pw\n")).code, 0);
        QCOMPARE(cli({"edit", path, QStringLiteral("\uFEFFBank"), "--name", QStringLiteral("\uFEFFBank2"), "--password-stdin"}, QByteArray(bom + "pw\n")).code, 0);
        const Run r = cli({"show", path, QStringLiteral("\uFEFFBank2"), "--password-stdin"}, QByteArray(bom + "pw\r\n"));
        QCOMPARE(r.code, 0);
        QVERIFY(r.out.contains(QByteArray("Notes = \"" + bom + "note\"")));
        QVERIFY(r.out.contains(QByteArray("Path = \"" + bom + "Bank2\"")));
        // A line ends at "\n"; one "\r" just before it is part of the line end, not the password.
        QCOMPARE(cli({"create", pkg("Cr.qvm"), "--password-stdin"}, "pw\r\n").code, 0);
        QCOMPARE(cli({"ls", pkg("Cr.qvm"), "--password-stdin"}, "pw\n").code, 0);
        QCOMPARE(cli({"ls", pkg("Cr.qvm"), "--password-stdin"}, "pw\r\r\n").code, 2);
        QVERIFY(cli({"--help"}).out.contains("\\r"));
    }

    void jsonKeepsEveryType()
    {
        const QString path = pkg("Json.qvm");
        const Entry e{{EntryKey::Path, "Reals"}, {"two", 2.0}, {"negzero", -0.0}, {"third", 1.0 / 3},
                      {"inf", std::numeric_limits<double>::infinity()}, {"ninf", -std::numeric_limits<double>::infinity()},
                      {"nan", std::numeric_limits<double>::quiet_NaN()}, {"single", 1.5f}, {"huge", 1e300},
                      {"big", QVariant::fromValue(~quint64(0))}, {"min", QVariant::fromValue(std::numeric_limits<qint64>::min())},
                      {"data", QByteArray("\x01\x02")}, {"flag", true}, {EntryKey::Password, "s3cret"}};
        QVERIFY(makePackage(path, "pw", {e}));
        const Run r = cli({"show", path, "Reals", "--json", "--reveal", "--password-stdin"});
        QCOMPARE(r.code, 0);
        for (const char *text : {"\"two\": 2.0", "\"negzero\": -0.0", "\"third\": 0.3333333333333333", "\"inf\": \"Infinity\"",
                                 "\"ninf\": \"-Infinity\"", "\"nan\": \"NaN\"", "\"single\": 1.5", "\"huge\": 1e+300",
                                 "\"big\": 18446744073709551615", "\"min\": -9223372036854775808",
                                 "\"data\": {\"data\":\"AQI=\"}", "\"flag\": true", "\"websitePassword\": \"s3cret\""})
            QVERIFY2(r.out.contains(text), text);
        QJsonParseError error;
        QVERIFY(QJsonDocument::fromJson(r.out, &error).isObject());
        const QByteArray help = cli({"--help"}).out;
        for (const char *text : {"JSON", "Infinity", "NaN", "decimal point"})
            QVERIFY2(help.contains(text), text);
    }

    // The help's list of exit statuses names each status once, in order, ending with the last.
    void helpListsEachExitStatusOnce()
    {
        const QString help = QString::fromUtf8(cli({"--help"}).out).simplified();
        const qsizetype from = help.indexOf("Exit status:");
        QVERIFY(from >= 0);
        const QString statuses = help.mid(from);
        QList<int> codes;
        for (const QRegularExpressionMatch &m : QRegularExpression(R"((?:: |; )(\d) )").globalMatch(statuses))
            codes.append(m.captured(1).toInt());
        QCOMPARE(codes, (QList<int>{0, 1, 2, 3, 4, 5, 6, 7}));
        QVERIFY(statuses.contains("5 import: some records were left over;"));
        QVERIFY(statuses.endsWith("interrupted)."));
    }

    void doubleDashEndsTheOptions()
    {
        const QString path = pkg("Dash.qvm");
        QVERIFY(makePackage(path, "pw", sampleEntries(1)));
        QCOMPARE(cli({"add", path, "--password-stdin", "--", "--json"}).code, 0);
        QCOMPARE(cli({"edit", path, "--notes", "--", "--password-stdin", "--", "--json"}).code, 0);
        const Run r = cli({"show", "--password-stdin", path, "--", "--json"});
        QCOMPARE(r.code, 0);
        QVERIFY(r.out.contains("Notes = \"--\""));
        QCOMPARE(cli({"ls", path, "--password-stdin"}).out, QByteArray("--json\nSite 00000\n"));
        QCOMPARE(cli({"rm", path, "--password-stdin", "--", "--json"}).code, 0);
        QCOMPARE(entryNames(openList(path)), QStringList{"Site 00000"});
    }

    void anEmptyFilePasswordIsRefused()
    {
        const Run created = cli({"create", pkg("Empty.qvm"), "--password-stdin"}, "\n");
        QCOMPARE(created.code, 1);
        QVERIFY(!QFileInfo::exists(pkg("Empty.qvm")));
        const QString path = pkg("Bank.qvm");
        QVERIFY(makePackage(path, "pw", sampleEntries(1)));
        const Run changed = cli({"passwd", path, "--password-stdin"}, "pw\n\n");
        QCOMPARE(changed.code, 1);
        QCOMPARE(created.err, changed.err);
        QVERIFY(created.err.contains("cannot be empty"));
        QCOMPARE(cli({"ls", path, "--password-stdin"}, "pw\n").code, 0);
    }

    void readOnlyPackages()
    {
        const QString mount = pkg("ro");
        SmallDisk disk(mount, "1m");
        if (!disk.mounted())
            QSKIP("cannot mount a tmpfs here (not root?)");
        const QString path = mount + "/Bank.qvm";
        QVERIFY(makePackage(path, "pw", sampleEntries(3)));
        QVERIFY(disk.makeReadOnly());
        // The writers' lock is taken on a read-only package too, and leaves nothing in it.
        DirectoryLock lock;
        QCOMPARE(lock.lock(path, 0), DirectoryLock::Result::Locked);
        lock.release();
        QCOMPARE(cli({"ls", path, "--password-stdin"}).code, 0);
        const Run r = cli({"add", path, "New", "--password-stdin"});
        QCOMPARE(r.code, 3);
        QVERIFY(r.err.contains("read-only"));
    }

    void aFullDiskLosesNothing()
    {
        const QString mount = pkg("full");
        SmallDisk disk(mount, "256k");
        if (!disk.mounted())
            QSKIP("cannot mount a tmpfs here (not root?)");
        const QString path = mount + "/Bank.qvm";
        QVERIFY(makePackage(path, "pw", sampleEntries(200)));
        // Fill the disk.
        QFile filler(mount + "/filler");
        QVERIFY(filler.open(QIODevice::WriteOnly));
        const QByteArray block(4096, 'f');
        while (filler.write(block) == block.size() && filler.flush()) {
        }
        filler.close();
        const Run r = cli({"add", path, "One more", "--notes", QString(20000, u'x'), "--password-stdin"});
        QCOMPARE(r.code, 3);
        QVERIFY(r.err.contains("cannot write"));
        QCOMPARE(openList(path), sampleEntries(200));
        QCOMPARE(QDir(path).entryList(QDir::Files | QDir::Hidden), (QStringList{"Data.qvmi", "Recent Websites.qvmi"}));
    }

    void noPlaintextOnDisk()
    {
        const QString tmp = pkg("tmp");
        QDir().mkpath(tmp);
        std::optional<ScopedEnvironment> tmpdir(std::in_place, "TMPDIR", QFile::encodeName(tmp));
        const QByteArray marker = "MARKER-7f3a9c1e-plaintext";
        const QString path = pkg("Secret.qvm");
        QCOMPARE(cli({"create", path, "--password-stdin"}).code, 0);
        QCOMPARE(cli({"add", path, "Bank", "--notes", QString::fromLatin1(marker), "--password-stdin"}).code, 0);
        QCOMPARE(cli({"add", path, "Mail", "--password-prompt", "--password-stdin"}, "pw\n" + marker + "2\n").code, 0);
        QCOMPARE(cli({"edit", path, "Bank", "--user", QString::fromLatin1(marker) + "3", "--password-stdin"}).code, 0);
        QCOMPARE(cli({"passwd", path, "--password-stdin"}, "pw\nn3w\n").code, 0);
        QCOMPARE(cli({"show", path, "Bank", "--password-stdin"}, "n3w\n").code, 0);
        QCOMPARE(cli({"rm", path, "Mail", "--password-stdin"}, "n3w\n").code, 0);
        // Killed while it has the file open (waiting for an entry's password).
        CliOnTerminal killed({"add", path, "Later", "--password-prompt", "--no-keychain"});
        QVERIFY(killed.waitForScreen("Enter Password:"));
        killed.type("n3w\n");
        QVERIFY(killed.waitForScreen("Password for"));
        ::kill(pid_t(killed.pid()), SIGKILL);
        QCOMPARE(killed.finish(), -1);
        tmpdir.reset();

        const QStringList found = filesHolding(marker, {m_home->path(), tmp});
        QVERIFY2(found.isEmpty(), qPrintable(found.join(", ")));
        QCOMPARE(PasswordFile::removeLeftoverScratchDirectories(), 1); // the killed one's, empty
        QCOMPARE(openList(path, "n3w").size(), 1);
    }

    void entryPasswordsStayOffTheCommandLine()
    {
        const QString path = pkg("Prompt.qvm");
        QVERIFY(makePackage(path, "pw", sampleEntries(2)));
        // The line after the file password.
        QCOMPARE(cli({"add", path, "Bank", "--password-prompt", "--password-stdin"}, "pw\nfrom stdin\n").code, 0);
        QCOMPARE(cli({"edit", path, "Site 00000", "--password-prompt", "--password-stdin"}, "pw\nedited\n").code, 0);
        Run r = cli({"add", path, "Mail", "--password-prompt", "--password-stdin"}, "pw\n");
        QCOMPARE(r.code, 1);
        QVERIFY(r.err.contains("the line after the file password"));
        r = cli({"add", path, "Mail", "--password-prompt", "--password", "x", "--password-stdin"}, "pw\nx\n");
        QCOMPARE(r.code, 1);
        QVERIFY(r.err.contains("do not go together"));
        QCOMPARE(cli({"add", path, "Bank", "--password-prompt", "--password-stdin"}, "pw\nunused\n").code, 1); // taken

        // On the terminal: twice, without echo.
        CliOnTerminal typed({"add", path, "Mail", "--password-prompt", "--no-keychain"});
        QVERIFY(typed.answer({{"Enter Password:", "pw"}, {"Password for \"Mail\":", "typed secret"}, {"Password again:", "typed secret"}}));
        QCOMPARE(typed.finish(), 0);
        QVERIFY(!typed.screen().contains("typed secret"));
        CliOnTerminal mistyped({"edit", path, "Mail", "--password-prompt", "--no-keychain"});
        QVERIFY(mistyped.answer({{"Enter Password:", "pw"}, {"Password for \"Mail\":", "one"}, {"Password again:", "two"}}));
        QCOMPARE(mistyped.finish(), 1);
        QVERIFY(mistyped.process().readAllStandardError().contains("the two passwords differ"));

        const EntryList list = openList(path);
        auto password = [&](const QString &name) {
            return list.value(entryWithName(list, name)).toMap().value(EntryKey::Password).toString();
        };
        QCOMPARE(password("Bank"), QString("from stdin"));
        QCOMPARE(password("Site 00000"), QString("edited"));
        QCOMPARE(password("Mail"), QString("typed secret"));
        QVERIFY(cli({"--help"}).out.contains("--password-prompt is the safe way"));
    }

    void concurrentWritersLoseNothing()
    {
        const QString path = pkg("Busy.qvm");
        QVERIFY(makePackage(path, "pw", sampleEntries(300)));
        // Two scripts add entries as fast as they can, at the same time.
        const int n = 12;
        QList<QProcess *> loops;
        for (const QString &who : {QStringLiteral("A"), QStringLiteral("B")}) {
            auto *p = new QProcess(this);
            p->setChildProcessModifier([] { ::setsid(); });
            p->start("bash", {"-c", QStringLiteral("for i in $(seq -w 1 %1); do echo pw | \"$0\" add \"$1\" \"%2 $i\" "
                                                   "--password-stdin --no-keychain || exit 1; done")
                                        .arg(n).arg(who),
                              qEnvironmentVariable("TESSALINE_BUILD_DIR") + "/tessaline-cli", path});
            loops.append(p);
        }
        for (QProcess *p : loops) {
            QVERIFY(p->waitForFinished(240000));
            QCOMPARE(p->exitCode(), 0);
            delete p;
        }
        const EntryList list = openList(path);
        QStringList added;
        for (const QVariant &e : list)
            if (!entryName(e).startsWith("Site "))
                added.append(entryName(e));
        QCOMPARE(added.size(), 2 * n);
        QCOMPARE(list.size(), 300 + 2 * n);
    }

    void aRunningCommandKeepsItsScratchDirectory()
    {
        const QString path = pkg("Held.qvm");
        QVERIFY(makePackage(path, "pw", sampleEntries(3)));
        // At its password prompt tessaline-cli already holds its scratch directory.
        CliOnTerminal running({"add", path, "Held", "--no-keychain"});
        QVERIFY(running.waitForScreen("Enter Password:"));
        QCOMPARE(scratchDirectories().size(), 1);
        // Another program's start-up clean-up (here, this test's process) leaves it alone.
        QCOMPARE(PasswordFile::removeLeftoverScratchDirectories(), 0);
        QCOMPARE(scratchDirectories().size(), 1);
        running.type("pw\n");
        QCOMPARE(running.finish(), 0);
        QCOMPARE(openList(path).size(), 4);
        QVERIFY(scratchDirectories().isEmpty());

        // The directory of a holder that died is anybody's to remove.
        CliOnTerminal killed({"ls", path, "--no-keychain"});
        QVERIFY(killed.waitForScreen("Enter Password:"));
        ::kill(pid_t(killed.pid()), SIGKILL);
        QCOMPARE(killed.finish(), -1);
        QCOMPARE(scratchDirectories().size(), 1);
        QCOMPARE(PasswordFile::removeLeftoverScratchDirectories(), 1);
        QVERIFY(scratchDirectories().isEmpty());
    }

    void savesReachTheDiskBeforeTheyCount()
    {
        const QString path = pkg("Durable.qvm");
        QVERIFY(makePackage(path, "pw", sampleEntries(3)));
        const QString log = pkg("sync.log");
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("LD_PRELOAD", TESSALINE_SYNC_LOG_SHIM);
        env.insert("TESSALINE_SYNC_LOG", log);
        p.setProcessEnvironment(env);
        p.setChildProcessModifier([] { ::setsid(); });
        p.start(qEnvironmentVariable("TESSALINE_BUILD_DIR") + "/tessaline-cli", {"add", path, "Durable", "--password-stdin", "--no-keychain"});
        p.write("pw\n");
        p.closeWriteChannel();
        QVERIFY(p.waitForFinished(60000));
        QCOMPARE(p.exitCode(), 0);
        QCOMPARE(openList(path).size(), 4);

        // Each file that took the place of one in the package was on disk before it did (its
        // bytes synced before the rename), and so was the rename (the folder synced after).
        const QStringList calls = QString::fromUtf8(readFile(log)).split(u'\n', Qt::SkipEmptyParts);
        QStringList replaced;
        for (qsizetype i = 0; i < calls.size(); ++i) {
            if (!calls[i].startsWith("rename "))
                continue;
            const QStringList names = calls[i].mid(7).split(u'\t');
            QCOMPARE(names.size(), 2);
            if (QFileInfo(names[1]).path() != path)
                continue;
            replaced.append(QFileInfo(names[1]).fileName());
            QVERIFY2(calls.mid(0, i).contains("fsync " + names[0]), qPrintable("not synced before the rename: " + names[1]));
            QVERIFY2(calls.mid(i + 1).contains("fsync " + path), qPrintable("the rename was not synced: " + names[1]));
        }
        QVERIFY2(replaced.contains("Data.qvmi"), qPrintable(calls.join(u'\n')));
    }

    void anInterruptedSaveLeavesTheOldOrTheNewFile()
    {
        const QString path = pkg("Big.qvm");
        const int n = 20000;
        QVERIFY(makePackage(path, "pw", sampleEntries(n)));
        QRandomGenerator rng(20261122);
        int killed = 0;
        for (int round = 0; round < 30; ++round) {
            QProcess p;
            p.setChildProcessModifier([] { ::setsid(); });
            p.start(qEnvironmentVariable("TESSALINE_BUILD_DIR") + "/tessaline-cli",
                    {"add", path, QStringLiteral("Added %1").arg(round), "--password-stdin"});
            p.write("pw\n");
            p.closeWriteChannel();
            QVERIFY(p.waitForStarted());
            QTest::qSleep(int(rng.bounded(400)));
            if (p.state() == QProcess::Running) {
                ::kill(pid_t(p.processId()), SIGKILL);
                ++killed;
            }
            p.waitForFinished();
            const EntryList list = openList(path);
            QVERIFY2(list.size() >= n, qPrintable(QStringLiteral("round %1: the file did not open").arg(round)));
            QVERIFY(list.size() <= n + round + 1);
            // Killed runs leave their scratch directories; the next start-up removes them.
            PasswordFile::removeLeftoverScratchDirectories();
        }
        QVERIFY(killed > 0);
        qInfo("%d of 30 saves were killed", killed);
    }
};

QTEST_GUILESS_MAIN(TestCliFiles)
#include "tst_cli_files.moc"
