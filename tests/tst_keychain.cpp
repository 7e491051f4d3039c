// The keychain against the real Secret Service (gnome-keyring) of the test session, and a
// password file opened through it by tessaline-cli.

#include "platform/linux/SecretServiceKeychain.h"
#include "support/FileSupport.h"
#include "support/TestSupport.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

#include <unistd.h>

using namespace tess;

class TestKeychain : public QObject {
    Q_OBJECT

    static QProcess *cli(const QStringList &args, const QByteArray &input = {}, const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment())
    {
        auto *p = new QProcess;
        p->setProcessEnvironment(env);
        p->setChildProcessModifier([] { ::setsid(); }); // no terminal to prompt on
        p->start(qEnvironmentVariable("TESSALINE_BUILD_DIR") + "/tessaline-cli", args);
        p->write(input);
        p->closeWriteChannel();
        p->waitForFinished(60000);
        return p;
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (!SecretServiceKeychain::serviceRunning())
            QSKIP("no Secret Service on the session bus (run through `make test`)");
    }

    void storesFindsAndRemoves()
    {
        SecretServiceKeychain k;
        const QString service = QStringLiteral("Tessaline test %1").arg(QCoreApplication::applicationPid());
        QByteArray secret;
        QCOMPARE(k.find(service, "Tessaline", &secret), -25300);
        QCOMPARE(k.add(service, "Tessaline", QByteArray("pässwörd")), 0);
        QCOMPARE(k.find(service, "Tessaline", &secret), 0);
        QCOMPARE(secret, QByteArray("pässwörd"));
        QCOMPARE(k.find(service, "Someone else", &secret), -25300);
        QCOMPARE(k.remove(service, "Tessaline"), 0);
        QCOMPARE(k.find(service, "Tessaline", &secret), -25300);
        QCOMPARE(k.remove(service, "Tessaline"), 0); // deleting what is not there is fine
    }

    void cliOpensAFileThroughTheKeychain()
    {
        testsupport::ScopedHome home;
        const QString path = home.path() + "/Keyed.qvm";
        QVERIFY(testsupport::makePackage(path, "pw", testsupport::sampleEntries(3)));
        // Without the keychain item and without a terminal, the file cannot be opened.
        std::unique_ptr<QProcess> p(cli({"ls", path}));
        QCOMPARE(p->exitCode(), 2);
        p.reset(cli({"keychain", path, "on", "--password-stdin"}, "pw\n"));
        QCOMPARE(p->exitCode(), 0);
        p.reset(cli({"ls", path}));
        QVERIFY2(p->exitCode() == 0, p->readAllStandardError().constData());
        QCOMPARE(p->readAllStandardOutput(), QByteArray("Site 00000\nSite 00001\nSite 00002\n"));
        // passwd keeps the keychain item in step.
        p.reset(cli({"passwd", path, "--password-stdin"}, "pw\nn3w\n"));
        QCOMPARE(p->exitCode(), 0);
        SecretServiceKeychain k;
        QByteArray secret;
        QCOMPARE(k.find("Keyed", "Tessaline", &secret), 0);
        QCOMPARE(secret, QByteArray("n3w"));
        p.reset(cli({"ls", path}));
        QCOMPARE(p->exitCode(), 0);
        p.reset(cli({"keychain", path, "off", "--password-stdin"}, "n3w\n"));
        QCOMPARE(p->exitCode(), 0);
        QCOMPARE(k.find("Keyed", "Tessaline", &secret), -25300);
        p.reset(cli({"ls", path}));
        QCOMPARE(p->exitCode(), 2);
    }

    void withoutASecretServiceTheAnswerIsQuick()
    {
        testsupport::ScopedHome home;
        const QString path = home.path() + "/NoKeyring.qvm";
        QVERIFY(testsupport::makePackage(path, "pw", testsupport::sampleEntries(1)));
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
        QElapsedTimer t;
        t.start();
        std::unique_ptr<QProcess> p(cli({"ls", path}, {}, env));
        QCOMPARE(p->exitCode(), 2); // no keyring, no terminal: no password
        QVERIFY(t.elapsed() < 5000);
        p.reset(cli({"ls", path, "--password-stdin"}, "pw\n", env));
        QCOMPARE(p->exitCode(), 0);
    }
};

QTEST_GUILESS_MAIN(TestKeychain)
#include "tst_keychain.moc"
