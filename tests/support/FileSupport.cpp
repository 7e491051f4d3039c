#include "FileSupport.h"

#include "core/archive/KeyedArchive.h"
#include "core/storage/QWCrypt.h"

#include <QDir>
#include <QFile>
#include <QProcess>

#include <unistd.h>

namespace tess::testsupport {

QByteArray encryptForFile(const QByteArray &plain, const QString &password, bool pre20)
{
    QWCrypt crypt(QStringLiteral("Tessaline"), QStringLiteral("test"), nullptr);
    if (pre20)
        crypt.setPre20Parameters();
    else
        crypt.setCurrentParameters();
    crypt.setKeyFrom(password, true);
    return crypt.doCrypt(plain, true);
}

bool writeBytes(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

bool makePackage(const QString &path, const QString &password, const QVariantList &entries, const QStringList &titles)
{
    QVariantList t;
    for (const QString &s : titles)
        t.append(s);
    return QDir().mkpath(path)
        && writeBytes(path + "/Data.qvmi", encryptForFile(archive::encodeKeyedArchive(entries), password, false))
        && writeBytes(path + "/Recent Websites.qvmi", encryptForFile(archive::encodeKeyedArchive(t), password, false));
}

QStringList entryNames(const QVariantList &list)
{
    QStringList out;
    for (const QVariant &e : list)
        out.append(e.toMap().value(QStringLiteral("Path")).toString());
    return out;
}

CliRun runCli(const QStringList &args, const QByteArray &input)
{
    QProcess p;
    p.setChildProcessModifier([] { ::setsid(); }); // no terminal to prompt on
    p.start(qEnvironmentVariable("TESSALINE_BUILD_DIR") + QStringLiteral("/tessaline-cli"), args);
    p.write(input);
    p.closeWriteChannel();
    p.waitForFinished(120000);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(), p.readAllStandardError()};
}

} // namespace tess::testsupport
