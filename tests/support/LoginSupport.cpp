#include "LoginSupport.h"

#include "TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QThread>

#include <csignal>

#ifndef TESSALINE_SOURCE_DIR
#define TESSALINE_SOURCE_DIR "."
#endif

namespace tess::testsupport {

namespace {

// The processes whose command line holds the mark.
QList<int> processesWith(const QByteArray &mark)
{
    QList<int> pids;
    for (const QString &name : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        const int pid = name.toInt();
        if (pid > 0 && readFile(QStringLiteral("/proc/%1/cmdline").arg(pid)).contains(mark))
            pids.append(pid);
    }
    return pids;
}

void pause(int ms)
{
    QCoreApplication::processEvents(QEventLoop::AllEvents, ms);
    QThread::msleep(ms);
}

} // namespace

LoginPages::~LoginPages()
{
    m_server.kill();
    m_server.waitForFinished();
}

bool LoginPages::start(const QString &record)
{
    m_record = record;
    m_server.start(QStringLiteral("python3"), {QStringLiteral(TESSALINE_SOURCE_DIR "/tests/login_server.py"), record});
    if (!m_server.waitForReadyRead(10000))
        return false;
    m_port = m_server.readLine().trimmed().toInt();
    return m_port > 0;
}

QString LoginPages::url(const char *page) const
{
    return QStringLiteral("http://127.0.0.1:%1/%2").arg(m_port).arg(QLatin1String(page));
}

QList<QJsonObject> LoginPages::posted(int count, int timeoutMs)
{
    QList<QJsonObject> forms;
    QElapsedTimer t;
    t.start();
    for (;;) {
        const QList<QByteArray> lines = readFile(m_record).split('\n');
        forms.clear();
        for (qsizetype k = m_seen; k < lines.size(); ++k)
            if (!lines[k].isEmpty())
                forms.append(QJsonDocument::fromJson(lines[k]).object());
        if (forms.size() >= count || t.elapsed() >= timeoutMs)
            break;
        pause(5);
    }
    m_seen += forms.size();
    return forms;
}

bool installBrowserDesktopFile(const QString &desktopID, const QString &name, const QString &exec)
{
    const QString apps = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/applications");
    if (!QDir().mkpath(apps))
        return false;
    QFile f(apps + u'/' + desktopID);
    const QString text = QStringLiteral("[Desktop Entry]\nType=Application\nName=%1\nExec=%2 %U\n"
                                        "MimeType=x-scheme-handler/http;x-scheme-handler/https;\n")
                             .arg(name, exec);
    if (!f.open(QIODevice::WriteOnly) || f.write(text.toUtf8()) < 0)
        return false;
    f.close();
    return QProcess::execute(QStringLiteral("update-desktop-database"), {apps}) == 0;
}

QStringList chromiumArguments(const QString &profileDir)
{
    return {QStringLiteral("chromium"), QStringLiteral("--no-sandbox"), QStringLiteral("--disable-gpu"),
            QStringLiteral("--no-first-run"), QStringLiteral("--no-default-browser-check"),
            QStringLiteral("--disable-background-networking"), QStringLiteral("--disable-component-update"),
            QStringLiteral("--disable-sync"), QStringLiteral("--disable-quic"), QStringLiteral("--password-store=basic"),
            QStringLiteral("--disable-features=Translate,PasswordManagerOnboarding"),
            QStringLiteral("--user-data-dir=") + profileDir};
}

QString chromiumCommand(const QString &profileDir)
{
    return chromiumArguments(profileDir).join(u' ');
}

bool startChromium(const QString &profileDir, LoginPages &pages)
{
    const QStringList command = chromiumArguments(profileDir);
    if (!QProcess::startDetached(command.first(), command.mid(1) << pages.url("ready")))
        return false;
    const QList<QJsonObject> ready = pages.posted(1, 60000);
    return ready.value(0).value(QStringLiteral("page")).toString() == u"ready";
}

void stopChromium(const QString &profileDir)
{
    const QByteArray mark = ("--user-data-dir=" + profileDir).toUtf8();
    for (int pid : processesWith(mark))
        ::kill(pid, SIGTERM);
    for (int i = 0; i < 50 && !processesWith(mark).isEmpty(); ++i)
        pause(100);
}

} // namespace tess::testsupport
