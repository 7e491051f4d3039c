#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <csignal>
#include <sys/resource.h>

#ifndef TESSALINE_SOURCE_DIR
#define TESSALINE_SOURCE_DIR "."
#endif

namespace tess::testsupport {

namespace {
const char *const kVars[4] = {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"};
}

QString fixturesDir()
{
    QString dir = qEnvironmentVariable("TESSALINE_FIXTURES");
    if (dir.isEmpty())
        dir = QStringLiteral(TESSALINE_SOURCE_DIR "/../shared/fixtures");
    return QFileInfo(dir).isDir() ? QDir(dir).absolutePath() : QString();
}

QByteArray readFile(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return f.readAll();
}

QVariantList sampleEntries(int n)
{
    QVariantList list;
    list.reserve(n);
    for (int i = 0; i < n; ++i) {
        QVariantMap e;
        const QString name = QStringLiteral("Site %1").arg(i, 5, 10, QLatin1Char('0'));
        e.insert(QStringLiteral("Path"), name);
        e.insert(QStringLiteral("Button"), QString());
        e.insert(QStringLiteral("websiteURL"), QStringLiteral("https://www.example%1.com/login").arg(i));
        e.insert(QStringLiteral("websiteUserID"), QStringLiteral("user%1@example.com").arg(i));
        e.insert(QStringLiteral("websitePassword"), QStringLiteral("p4ss-%1-Wörd!").arg(i * 7919));
        e.insert(QStringLiteral("Notes"), QStringLiteral("Account number %1\nSecurity question: first pet\nAnswer: Rex").arg(i));
        e.insert(QStringLiteral("websiteNewUserIDOptions"), QVariant::fromValue<qint64>(i % 4));
        e.insert(QStringLiteral("websiteUserIDTabSwitch"), (i % 2) == 0);
        e.insert(QStringLiteral("websiteUserIDTabCount"), QVariant::fromValue<qint64>(i % 3));
        e.insert(QStringLiteral("websitePasswordTabSwitch"), true);
        e.insert(QStringLiteral("websitePasswordTabCount"), QVariant::fromValue<qint64>(0));
        e.insert(QStringLiteral("websitePasswordEnter"), (i % 3) == 0);
        list.append(e);
    }
    return list;
}

FileSizeLimit::FileSizeLimit(qint64 bytes)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    m_saved = limit.rlim_cur;
    limit.rlim_cur = rlim_t(bytes);
    setrlimit(RLIMIT_FSIZE, &limit);
}

FileSizeLimit::~FileSizeLimit()
{
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = rlim_t(m_saved);
    setrlimit(RLIMIT_FSIZE, &limit);
}

ScopedHome::ScopedHome()
{
    for (int i = 0; i < 4; ++i)
        m_saved[i] = qgetenv(kVars[i]);
    qputenv("HOME", m_dir.path().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (m_dir.path() + QStringLiteral("/.config")).toLocal8Bit());
    qputenv("XDG_DATA_HOME", (m_dir.path() + QStringLiteral("/.local/share")).toLocal8Bit());
    qputenv("XDG_CACHE_HOME", (m_dir.path() + QStringLiteral("/.cache")).toLocal8Bit());
}

ScopedHome::~ScopedHome()
{
    for (int i = 0; i < 4; ++i) {
        if (m_saved[i].isNull())
            qunsetenv(kVars[i]);
        else
            qputenv(kVars[i], m_saved[i]);
    }
}

} // namespace tess::testsupport
