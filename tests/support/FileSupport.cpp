#include "FileSupport.h"

#include "core/archive/KeyedArchive.h"
#include "core/storage/QWCrypt.h"

#include <QDir>
#include <QFile>

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

} // namespace tess::testsupport
