// Whole logins from the application's Go To URL into Chromium, the server recording what each
// form posted, compared with the entry exactly; and the entry typed is always the one chosen,
// whatever happens to the table meanwhile.

#include "core/app/QWPrefs.h"
#include "core/login/LoginRunner.h"
#include "support/FileSupport.h"
#include "support/GuiSupport.h"
#include "support/LoginSite.h"
#include "ui/ApplicationLogin.h"
#include "ui/Controller.h"
#include "ui/MyDocument.h"
#include "ui/QWCellTableViewArray.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace tess;
using namespace tess::testsupport;

namespace {
const QString kSymbols = QString::fromUtf8("p@ss w0rd!#$%^&*()_+-=[]{};:'\",.<>/?\\|`~é€😀");
} // namespace

class TestE2EGuiLogin : public DocumentSuite {
    Q_OBJECT

    QTemporaryDir m_apps;
    LoginSite m_site;
    QString m_siteError;

public:
    TestE2EGuiLogin()
    {
        if (!qEnvironmentVariableIsSet("TESSALINE_TEST_SESSION"))
            return;
        // GIO reads the application directories once, at its first use: the test's come first.
        m_siteError = m_site.start(m_apps.path() + "/applications");
        const QByteArray dirs = qgetenv("XDG_DATA_DIRS");
        qputenv("XDG_DATA_DIRS", m_apps.path().toLocal8Bit() + ":" + (dirs.isEmpty() ? "/usr/local/share:/usr/share" : dirs));
    }

private:
    Entry site(const char *name, const char *page, const QString &user, const QString &password)
    {
        return Entry{{EntryKey::Path, name}, {EntryKey::URL, m_site.url(page)}, {EntryKey::NewUserIDOptions, 1},
                     {EntryKey::BrowserBundleID, LoginSite::kBrowserID}, {EntryKey::PasswordEnter, true},
                     {EntryKey::PasswordTabSwitch, true}, {EntryKey::UserID, user}, {EntryKey::Password, password}};
    }

    MyDocument *openSites(const QString &name, const EntryList &entries, int pageLoadDelay)
    {
        gPrefs->setInteger(pageLoadDelay, Pref::BrowserPageLoadDelay);
        gPrefs->setInteger(100, Pref::TypeSpeed);
        if (!makePackage(pkg(name), "pw", entries))
            return nullptr;
        MyDocument *doc = open(pkg(name));
        return doc && activate(doc) ? doc : nullptr;
    }

    static int rowOf(MyDocument *doc, const QString &name) { return int(entryWithName(doc->file().passwordArray(), name)); }

    bool waitForLogin()
    {
        LoginRunner *runner = m_controller->login()->runner();
        QSignalSpy finished(runner, &LoginRunner::finished);
        return runner->isRunning() ? finished.wait(60000) : false;
    }

private Q_SLOTS:
    void goToURLLogsIn()
    {
        QVERIFY2(m_siteError.isEmpty(), qPrintable(m_siteError));
        QVERIFY(m_site.startBrowser());
        MyDocument *doc = openSites("Go.qvm", {site("One", "one", "alice", kSymbols)}, 5);
        QVERIFY(doc);
        doc->goToURL(rowOf(doc, "One"));
        QVERIFY(waitForLogin());
        const auto forms = m_site.posted(1);
        QCOMPARE(forms.size(), 1);
        QCOMPARE(forms[0], (QJsonObject{{"page", "one"}, {"user", "alice"}, {"password", kSymbols}}));
        QCOMPARE(doc->file().recentWebsiteTitles(), QStringList{"One"});
    }

    void theChosenEntryIsTypedWhateverTheTableDoes()
    {
        QVERIFY2(m_siteError.isEmpty(), qPrintable(m_siteError));
        MyDocument *doc = openSites("Under.qvm",
                                    {site("Bank", "one", "bank-user", "pw-Bank"), site("Mail", "one", "mail-user", "pw-Mail"),
                                     site("Shop", "one", "shop-user", "pw-Shop")},
                                    6); // keys sent before the new tab has the focus are lost

        QVERIFY(doc);

        // The login has started: entries come in ahead of it and the table is read again;
        // the row it sat in now holds another entry.
        const int row = rowOf(doc, "Mail");
        doc->goToURL(row);
        QVERIFY(m_controller->login()->runner()->isRunning());
        QVERIFY(changeOutside(pkg("Under.qvm"), [](EntryList &l) {
            l.append(Entry{{EntryKey::Path, "Aaron"}, {EntryKey::UserID, "aaron"}, {EntryKey::Password, "pw-Aaron"}});
            l.append(Entry{{EntryKey::Path, "Abel"}, {EntryKey::UserID, "abel"}, {EntryKey::Password, "pw-Abel"}});
        }));
        doc->updateTimer.start(20);
        QTRY_COMPARE(doc->passwordTable->model()->rowCount(), 5);
        QVERIFY(rowOf(doc, "Mail") != row);
        QVERIFY(waitForLogin());
        auto forms = m_site.posted(1);
        QCOMPARE(forms.size(), 1);
        QCOMPARE(forms[0], (QJsonObject{{"page", "one"}, {"user", "mail-user"}, {"password", "pw-Mail"}}));

        // Gone before Go To URL: nothing is typed, least of all what now sits in its row.
        const int bankRow = rowOf(doc, "Bank");
        QVERIFY(changeOutside(pkg("Under.qvm"), [](EntryList &l) { l.removeAt(entryWithName(l, "Bank")); }));
        doc->goToURL(bankRow);
        QVERIFY(!m_controller->login()->runner()->isRunning());
        QTest::qWait(7000);
        QVERIFY(m_site.posted(0).isEmpty());
    }

    void cleanupTestCase() { m_site.stop(); }
};

QTEST_MAIN(TestE2EGuiLogin)
#include "tst_e2e_gui_login.moc"
