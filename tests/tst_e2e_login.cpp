// Whole logins into Chromium: tessaline-cli login opens login pages served on loopback in the
// entry's browser (a desktop file of this test's own) and types or pastes the login; the server
// records what each form posted, compared here with the entry exactly.

#include "support/FileSupport.h"
#include "support/LoginSite.h"
#include "support/TestSupport.h"

#include "core/entries/Entry.h"
#include "platform/x11/XTestKeySink.h"
#include "platform/x11/XkbKeyboardLayout.h"

#include <QDir>
#include <QGuiApplication>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>


using namespace tess;
using namespace tess::testsupport;

namespace {

const QString kSymbols = QString::fromUtf8("p@ss w0rd!#$%^&*()_+-=[]{};:'\",.<>/?\\|`~é€😀");

} // namespace

class TestE2ELogin : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    LoginSite m_site;
    QString m_file;
    int m_spare = 0;
    QString m_manyCharacters;

    QString url(const char *page) const { return m_site.url(page); }
    QList<QJsonObject> posted(int count) { return m_site.posted(count); }

    CliRun cli(const QStringList &args) { return runCli(args + QStringList{"--password-stdin", "--no-keychain"}, "pw\n"); }
    void setPref(const char *key, const char *value)
    {
        QCOMPARE(runCli({"prefs", "set", key, value, "--type", "int"}).code, 0);
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (!qEnvironmentVariableIsSet("TESSALINE_TEST_SESSION"))
            QSKIP("needs the X server of `make test`");
        QVERIFY(m_dir.isValid());
        const QString error = m_site.start(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + "/applications");
        QVERIFY2(error.isEmpty(), qPrintable(error));

        // How many keycodes the server has for characters without a key: the test goes past it.
        auto *x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
        XkbKeyboardLayout layout(x11->connection());
        XTestKeySink sink(x11->connection(), &layout);
        m_spare = sink.spareKeycodeCount();
        QVERIFY(m_spare > 0);
        for (int i = 0; i < m_spare + 8; ++i)
            m_manyCharacters += QChar(0x3b1 + i); // Greek letters: no key on a US layout

        QList<Entry> entries;
        const auto login = [&](const char *name, const char *page, Entry extra) {
            Entry e{{EntryKey::Path, name}, {EntryKey::URL, url(page)}, {EntryKey::NewUserIDOptions, 1},
                    {EntryKey::BrowserBundleID, LoginSite::kBrowserID}, {EntryKey::PasswordEnter, true}};
            for (auto it = extra.cbegin(); it != extra.cend(); ++it)
                e.insert(it.key(), it.value());
            entries.append(e);
        };
        login("One", "one", {{EntryKey::UserID, "alice"}, {EntryKey::Password, kSymbols}, {EntryKey::PasswordTabSwitch, true}});
        login("Many", "one", {{EntryKey::UserID, "ßü"}, {EntryKey::Password, m_manyCharacters}, {EntryKey::PasswordTabSwitch, true}});
        login("Two", "two", {{EntryKey::UserID, "bob"}, {EntryKey::UserID2, "branch-7"}, {EntryKey::Password, "s3cr€t"},
                             {EntryKey::PasswordTabSwitch, true}});
        login("Two pages", "first", {{EntryKey::UserID, "carol"}, {EntryKey::Password, "n€xt page 😀"},
                                     {EntryKey::UserIDReturnSwitch, true}, {EntryKey::PasswordOptions, 1}});
        login("Shown", "show", {{EntryKey::UserID, "dave"}, {EntryKey::Password, "read me"},
                                {EntryKey::UserIDReturnSwitch, true}, {EntryKey::PasswordOptions, 3}});
        login("Broken", "one", {{EntryKey::UserID, "eve"}, {EntryKey::Password, "x"}, {EntryKey::BrowserBundleID, LoginSite::kBrokenID}});
        QVariantList list;
        for (const Entry &e : entries)
            list.append(e);
        m_file = m_dir.filePath("Logins.qvm");
        QVERIFY(makePackage(m_file, "pw", list));
        setPref("browserPageLoadDelay", "5");
        setPref("typeSpeed", "100");

        QVERIFY(m_site.startBrowser());
    }

    void cleanupTestCase() { m_site.stop(); }

    void typedLogin()
    {
        const CliRun run = cli({"login", m_file, "One"});
        QVERIFY2(run.code == 0, run.err.constData());
        const auto forms = posted(1);
        QCOMPARE(forms.size(), 1);
        QCOMPARE(forms[0], (QJsonObject{{"page", "one"}, {"user", "alice"}, {"password", kSymbols}}));
    }

    void moreUnusualCharactersThanSpareKeys()
    {
        const CliRun run = cli({"login", m_file, "Many"});
        QVERIFY2(run.code == 0, run.err.constData());
        const auto forms = posted(1);
        QCOMPARE(forms.size(), 1);
        QCOMPARE(forms[0], (QJsonObject{{"page", "one"}, {"user", QString::fromUtf8("ßü")}, {"password", m_manyCharacters}}));
    }

    void pastedLogin()
    {
        setPref("typeSpeed", "0");
        const CliRun run = cli({"login", m_file, "Two"});
        setPref("typeSpeed", "100");
        QVERIFY2(run.code == 0, run.err.constData());
        const auto forms = posted(1);
        QCOMPARE(forms.size(), 1);
        QCOMPARE(forms[0], (QJsonObject{{"page", "two"}, {"user", "bob"}, {"user2", "branch-7"}, {"password", QString::fromUtf8("s3cr€t")}}));
    }

    void passwordOnTheNextPage()
    {
        const CliRun run = cli({"login", m_file, "Two pages"});
        QVERIFY2(run.code == 0, run.err.constData());
        const auto forms = posted(2);
        QCOMPARE(forms.size(), 2);
        QCOMPARE(forms[0], (QJsonObject{{"page", "first"}, {"user", "carol"}}));
        QCOMPARE(forms[1], (QJsonObject{{"page", "second"}, {"password", QString::fromUtf8("n€xt page 😀")}}));
    }

    void passwordShownNotTyped()
    {
        const CliRun run = cli({"login", m_file, "Shown"});
        QVERIFY2(run.code == 0, run.err.constData());
        QVERIFY(run.err.contains("to be read, not typed"));
        const auto forms = posted(1);
        QCOMPARE(forms.size(), 1);
        QCOMPARE(forms[0], (QJsonObject{{"page", "show"}, {"user", "dave"}}));
        QVERIFY(!readFile(m_site.recordPath()).contains("read me"));
    }

    void browserThatDoesNotStart()
    {
        const CliRun run = cli({"login", m_file, "Broken"});
        QCOMPARE(run.code, 7); // the login failed: not 5, which import uses
        QVERIFY2(run.err.contains("Broken Browser"), run.err.constData());
        QTest::qWait(1500);
        QVERIFY(posted(0).isEmpty());
    }

    void recentWebsitesFollowLogins()
    {
        // Every login above went to the top of the file's recent websites.
        ScriptedDelegate delegate;
        delegate.passwords = {"pw"};
        PasswordFile file(m_file, nullptr, &delegate);
        QCOMPARE(file.open(PasswordFile::KeychainUse::Never), PasswordFile::OpenResult::Opened);
        QCOMPARE(file.recentWebsiteTitles().mid(0, 2), (QStringList{"Broken", "Shown"}));
    }

    void withoutX11()
    {
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove("DISPLAY");
        p.setProcessEnvironment(env);
        p.start(qEnvironmentVariable("TESSALINE_BUILD_DIR") + "/tessaline-cli", {"type", m_file, "One", "password", "--password-stdin", "--no-keychain"});
        p.write("pw\n");
        p.closeWriteChannel();
        QVERIFY(p.waitForFinished(20000));
        QCOMPARE(p.exitCode(), 6);
        QVERIFY(p.readAllStandardError().contains("X11"));
    }
};

QTEST_MAIN(TestE2ELogin)
#include "tst_e2e_login.moc"
