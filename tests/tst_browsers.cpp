// The browser list from GIO, over desktop files of this test's own in a private XDG_DATA_HOME
// (and no other data folder): the applications for https, titled by their name, identified by
// their desktop-file id, sorted, without hidden ones.

#include "support/TestSupport.h"

#include "platform/linux/Browsers.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace tess;
using namespace tess::testsupport;

namespace {

bool writeDesktopFile(const QString &path, const QString &name, const QString &extra = {},
                      const QString &mime = QStringLiteral("x-scheme-handler/http;x-scheme-handler/https;"))
{
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    const QString text = QStringLiteral("[Desktop Entry]\nType=Application\nName=%1\nExec=true %U\nMimeType=%2\n%3")
                             .arg(name, mime, extra);
    return f.open(QIODevice::WriteOnly) && f.write(text.toUtf8()) > 0;
}

} // namespace

class TestBrowsers : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<ScopedEnvironment> m_dataHome, m_dataDirs;

private Q_SLOTS:
    void initTestCase()
    {
        // Before GLib first reads them: it keeps the data folders for the life of the process.
        QVERIFY(m_dir.isValid());
        m_dataHome = std::make_unique<ScopedEnvironment>("XDG_DATA_HOME", m_dir.filePath("home").toUtf8());
        m_dataDirs = std::make_unique<ScopedEnvironment>("XDG_DATA_DIRS", m_dir.filePath("system").toUtf8());
        const QString apps = m_dir.filePath("home/applications/");
        QVERIFY(writeDesktopFile(apps + "zulu-web.desktop", "Zulu Web"));
        QVERIFY(writeDesktopFile(apps + "alpha.desktop", "alpha browser"));
        QVERIFY(writeDesktopFile(apps + "chromium-test.desktop", "Chromium Test", "Name[de]=Chromium Prüfung\n"));
        // In a subfolder: the id joins the folder with a dash.
        QVERIFY(writeDesktopFile(apps + "vendor/surf.desktop", "Surf"));
        // Left out: shown nowhere, deleted by the user, not for https, not even an application.
        QVERIFY(writeDesktopFile(apps + "helper.desktop", "Helper", "NoDisplay=true\n"));
        QVERIFY(writeDesktopFile(apps + "gone.desktop", "Gone", "Hidden=true\n"));
        QVERIFY(writeDesktopFile(apps + "viewer.desktop", "Viewer", {}, "image/png;"));
        QVERIFY(writeDesktopFile(apps + "links.desktop", "Links", {}, "x-scheme-handler/https;"));
        QVERIFY(writeDesktopFile(m_dir.filePath("system/applications/system-web.desktop"), "Bravo System"));
        // GIO finds handlers of a type through the folders' MIME caches, as installing writes them.
        QCOMPARE(QProcess::execute("update-desktop-database", {apps}), 0);
        QCOMPARE(QProcess::execute("update-desktop-database", {m_dir.filePath("system/applications")}), 0);
    }

    void browsersFromDesktopFiles()
    {
        const ScopedEnvironment language("LANGUAGE", "de");
        GioWorkspace workspace;
        const QList<BrowserInfo> browsers = workspace.browsers();
        // Sorted by title with a plain comparison: capitals before small letters.
        const QList<BrowserInfo> expected{
            {"Bravo System", "system-web.desktop"},
            {QString::fromUtf8("Chromium Prüfung"), "chromium-test.desktop"}, // the name in the user's language
            {"Links", "links.desktop"},
            {"Surf", "vendor-surf.desktop"},
            {"Zulu Web", "zulu-web.desktop"},
            {"alpha browser", "alpha.desktop"},
        };
        QCOMPARE(browsers, expected);
    }
};

QTEST_MAIN(TestBrowsers)
#include "tst_browsers.moc"
