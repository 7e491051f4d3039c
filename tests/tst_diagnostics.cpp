// The support report: its sections in order, the journal's lines about the program, the crash
// records cut after the crashed thread, and the mail link that carries the report whole.
// journalctl and coredumpctl are scripts put first on PATH, so the test knows what they say.

#include "core/app/Diagnostics.h"
#include "core/app/QWPrefs.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTest>

using namespace tess;

namespace {

const QString kIntro = QStringLiteral(
    "Tessaline 6.0 Debugging info is included below.  You can delete it if irrelevant to your email, or review it to assure "
    "that it contains no information that you do not want sent.  It contains your preferences, information from recent "
    "crashes (if any), and your OS version (Linux 9).\n\n--------------------------   Preferences   --------------------------\n");

} // namespace

class TestDiagnostics : public QObject {
    Q_OBJECT

    QTemporaryDir m_bin;
    std::unique_ptr<testsupport::ScopedEnvironment> m_path;

    void tool(const QString &name, const QByteArray &script)
    {
        QFile f(m_bin.filePath(name));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("#!/bin/sh\n" + script);
        f.close();
        f.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

private Q_SLOTS:
    void init()
    {
        // Only the fakes of this test, and the shell they need.
        QDir(m_bin.path()).removeRecursively();
        QDir().mkpath(m_bin.path());
        m_path = std::make_unique<testsupport::ScopedEnvironment>("PATH", (m_bin.path() + ":/bin:/usr/bin").toUtf8());
    }
    void cleanup() { m_path.reset(); }

    void noJournalNoCrashes()
    {
        // No journalctl or coredumpctl that works: both sections are there and empty.
        tool("journalctl", "echo 'No journal files were found.' >&2; exit 1\n");
        testsupport::ScopedHome home;
        QWPrefs prefs(kApplicationID);
        prefs.setBool(true, Pref::ConfirmDelete);
        const QString r = Diagnostics::report(prefs, QStringLiteral("note 1\n"), QStringLiteral("Linux 9"));
        QCOMPARE(r, kIntro + prefs.description() +
                        "\n\n--------------------------   Debug Info   --------------------------\n\nnote 1\n"
                        "\n\n--------------------------   Log Entries   --------------------------\n\n");
        QVERIFY(r.contains("\"confirmDelete\": true"));
    }

    void journalLinesNamingTheProgram()
    {
        tool("journalctl", "[ \"$1\" = --user ] || exit 2\n"
                           "echo 'Nov 23 10:00:01 host tessaline[42]: qt.qpa.xcb: could not connect'\n"
                           "echo 'Nov 23 10:00:02 host other[7]: unrelated'\n"
                           "echo 'Nov 23 10:00:03 host systemd[1]: Started Tessaline password manager.'\n");
        QCOMPARE(Diagnostics::journalLines(), QStringLiteral("Nov 23 10:00:01 host tessaline[42]: qt.qpa.xcb: could not connect\r"
                                                             "Nov 23 10:00:03 host systemd[1]: Started Tessaline password manager.\r"));
    }

    void crashRecordsCutAfterTheCrashedThread()
    {
        tool("coredumpctl",
             "case \"$*\" in\n"
             "  '--no-pager --no-legend list tessaline')\n"
             "    echo 'Mon 2026-11-23 10:00:00 UTC  4242 1000 1000 SIGSEGV present  /usr/bin/tessaline 1.2M'\n"
             "    echo 'Mon 2026-11-23 11:00:00 UTC  4343 1000 1000 SIGABRT missing  /usr/bin/tessaline -'\n"
             "    echo 'Mon 2026-11-23 12:00:00 UTC  4444 1000 1000 SIGABRT missing  /usr/bin/tessaline -';;\n"
             "  '--no-pager info 4242')\n"
             "    printf 'PID: 4242 (tessaline)\\nStack trace of thread 4242:\\n#0 crash\\n\\nStack trace of thread 4243:\\n#0 poll\\n';;\n"
             "  '--no-pager info 4343')\n"
             "    printf 'PID: 4343 (tessaline)\\nStack trace of thread 4343:\\n#0 abort\\n';;\n"
             "  *) exit 1;;\n"
             "esac\n");
        QCOMPARE(Diagnostics::crashReports(),
                 (QStringList{"PID: 4242 (tessaline)\nStack trace of thread 4242:\n#0 crash\n\n",
                              "PID: 4343 (tessaline)\nStack trace of thread 4343:\n#0 abort\n",
                              // No details to be had: the listing line itself.
                              "Mon 2026-11-23 12:00:00 UTC  4444 1000 1000 SIGABRT missing  /usr/bin/tessaline -"}));
        testsupport::ScopedHome home;
        QWPrefs prefs(kApplicationID);
        const QString r = Diagnostics::report(prefs, QString(), QStringLiteral("Linux 9"));
        QVERIFY(r.endsWith("\n\n--------------------------   Log Entries   --------------------------\n\n"
                           "\n\n--------------------------   Crash Report   --------------------------\n"
                           "PID: 4242 (tessaline)\nStack trace of thread 4242:\n#0 crash\n\n"
                           "\n\n--------------------------   Crash Report   --------------------------\n"
                           "PID: 4343 (tessaline)\nStack trace of thread 4343:\n#0 abort\n"
                           "\n\n--------------------------   Crash Report   --------------------------\n"
                           "Mon 2026-11-23 12:00:00 UTC  4444 1000 1000 SIGABRT missing  /usr/bin/tessaline -"));
    }

    void mailLinkCarriesTheReportWhole()
    {
        const QString report = QStringLiteral("a & b = c + d? 100% #1\r\"x\" <y> ünï\n{\"k\": [1, 2]}");
        const QUrl url = Diagnostics::mailtoURL(report);
        QVERIFY(url.isValid());
        QCOMPARE(url.scheme(), QStringLiteral("mailto"));
        const QByteArray encoded = url.toEncoded();
        QVERIFY(encoded.startsWith("mailto:support@tessaline.org?Subject=Tessaline%20Debugging%20Info&body=%0A%0A"));
        QCOMPARE(QUrl::fromPercentEncoding(encoded),
                 "mailto:support@tessaline.org?Subject=Tessaline Debugging Info&body=\n\n" + report);
        // The body holds no bare "&" or "=" that a mail program would take for the next field.
        const QByteArray body = encoded.mid(encoded.indexOf("&body=") + 6);
        QVERIFY(!body.contains('&') && !body.contains('=') && !body.contains('+') && !body.contains('#'));
    }
};

QTEST_GUILESS_MAIN(TestDiagnostics)
#include "tst_diagnostics.moc"
