#include "LoginSite.h"

#include "TestSupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QTest>

#include <QHash>
#include <QRegularExpression>

#include <csignal>
#include <unistd.h>

#ifndef TESSALINE_SOURCE_DIR
#define TESSALINE_SOURCE_DIR "."
#endif

namespace tess::testsupport {

const QString LoginSite::kBrowserID = QStringLiteral("tessaline-e2e-chromium.desktop");
const QString LoginSite::kBrokenID = QStringLiteral("tessaline-e2e-broken.desktop");

namespace {

bool writeText(const QString &path, const QString &text)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(text.toUtf8()) >= 0;
}

} // namespace

LoginSite::LoginSite(QStringList extraChromiumFlags) : m_extraFlags(std::move(extraChromiumFlags)) {}

LoginSite::~LoginSite()
{
    stop();
}

QString LoginSite::start(const QString &appsDir)
{
    if (QStandardPaths::findExecutable(QStringLiteral("chromium")).isEmpty())
        return QStringLiteral("chromium is not installed (scripts/deps.sh)");
    if (!m_dir.isValid())
        return QStringLiteral("no temporary directory");
    m_server.start(QStringLiteral("python3"), {QStringLiteral(TESSALINE_SOURCE_DIR "/tests/login_server.py"), recordPath()});
    if (!m_server.waitForReadyRead(10000))
        return QStringLiteral("the login server did not start");
    m_port = m_server.readLine().trimmed().toInt();
    if (m_port <= 0)
        return QStringLiteral("the login server gave no port");

    if (!QDir().mkpath(appsDir)
        || !writeText(appsDir + "/" + kBrowserID,
                      "[Desktop Entry]\nType=Application\nName=E2E Chromium\n"
                      "Exec=" + chromium().join(u' ') + " %U\n"
                      "MimeType=x-scheme-handler/http;x-scheme-handler/https;\n")
        || !writeText(appsDir + "/" + kBrokenID,
                      "[Desktop Entry]\nType=Application\nName=Broken Browser\nExec=false %U\n"
                      "MimeType=x-scheme-handler/http;x-scheme-handler/https;\n"))
        return QStringLiteral("cannot write the desktop files");
    if (QProcess::execute(QStringLiteral("update-desktop-database"), {appsDir}) != 0)
        return QStringLiteral("update-desktop-database failed");
    return {};
}

QStringList LoginSite::chromium() const
{
    // A fresh profile, kept off the network.
    return QStringList{"chromium", "--no-sandbox", "--disable-gpu", "--no-first-run", "--no-default-browser-check",
                       "--disable-background-networking", "--disable-component-update", "--disable-sync",
                       "--disable-quic", "--password-store=basic", "--disable-features=Translate,PasswordManagerOnboarding",
                       "--user-data-dir=" + m_dir.filePath(QStringLiteral("profile"))}
           + m_extraFlags;
}

bool LoginSite::startBrowser()
{
    const QStringList command = chromium();
    if (!QProcess::startDetached(command.first(), command.mid(1) << url("ready")))
        return false;
    const QList<QJsonObject> ready = posted(1, 120000);
    return ready.value(0).value(QStringLiteral("page")).toString() == u"ready";
}

QString LoginSite::url(const char *page) const
{
    return QStringLiteral("http://127.0.0.1:%1/%2").arg(m_port).arg(QLatin1String(page));
}

QList<QJsonObject> LoginSite::posted(int count, int timeoutMs)
{
    QList<QJsonObject> forms;
    QElapsedTimer t;
    t.start();
    for (;;) {
        QList<QByteArray> lines = readFile(recordPath()).split('\n');
        lines.removeLast(); // empty, or a line the server is still writing
        forms.clear();
        for (qsizetype k = m_seen; k < lines.size(); ++k)
            if (!lines[k].isEmpty())
                forms.append(QJsonDocument::fromJson(lines[k]).object());
        if (forms.size() >= count || t.elapsed() >= timeoutMs)
            break;
        QTest::qWait(5);
    }
    m_seen += forms.size();
    return forms;
}

QMap<QString, double> LoginSite::browserCpuSeconds() const
{
    // The browser processes carry the profile on their command line; the others descend from them.
    const QByteArray mark = ("--user-data-dir=" + m_dir.filePath(QStringLiteral("profile"))).toUtf8();
    struct Process {
        int parent = 0;
        double cpu = 0;
        QString kind;
    };
    QHash<int, Process> all;
    const double tick = double(::sysconf(_SC_CLK_TCK));
    for (const QString &name : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        const int pid = name.toInt();
        if (pid <= 0)
            continue;
        const QByteArray stat = readFile("/proc/" + name + "/stat");
        const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
        if (fields.size() < 13)
            continue;
        const QByteArray cmdline = readFile("/proc/" + name + "/cmdline");
        const qsizetype type = cmdline.indexOf("--type=");
        Process p{fields[1].toInt(), (fields[11].toDouble() + fields[12].toDouble()) / tick,
                  type < 0 ? (cmdline.contains(mark) ? QStringLiteral("browser") : QString())
                           : QString::fromLatin1(cmdline.mid(type + 7)).section(QRegularExpression(QStringLiteral("[\\s\\x00]")), 0, 0)};
        all.insert(pid, p);
    }
    QMap<QString, double> cpu;
    for (auto it = all.cbegin(); it != all.cend(); ++it) {
        bool ours = false;
        for (int pid = it.key(), depth = 0; pid > 1 && depth < 8 && !ours; pid = all.value(pid).parent, ++depth)
            ours = all.value(pid).kind == u"browser";
        if (ours)
            cpu[it->kind] += it->cpu;
    }
    return cpu;
}

void LoginSite::stop()
{
    if (m_server.state() != QProcess::NotRunning) {
        m_server.kill();
        m_server.waitForFinished();
    }
    // The Chromium this site started: the processes of its own profile, by id.
    const QByteArray mark = ("--user-data-dir=" + m_dir.filePath(QStringLiteral("profile"))).toUtf8();
    auto ours = [&] {
        QList<int> pids;
        for (const QString &pid : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs))
            if (pid.toInt() > 0 && readFile("/proc/" + pid + "/cmdline").contains(mark))
                pids.append(pid.toInt());
        return pids;
    };
    for (int pid : ours())
        ::kill(pid, SIGTERM);
    for (int i = 0; i < 50 && !ours().isEmpty(); ++i)
        QTest::qWait(100);
}

} // namespace tess::testsupport
