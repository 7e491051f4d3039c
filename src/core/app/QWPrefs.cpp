#include "QWPrefs.h"

#include "core/archive/KeyedArchive.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>
#include <QStandardPaths>

namespace tess {

QWPrefs *gPrefs = nullptr;

namespace {

// NSString's numeric reading: leading blanks, an optional sign, then as many digits as there are.
double leadingNumber(const QString &s)
{
    const QString t = s.trimmed();
    qsizetype end = 0;
    if (end < t.size() && (t[end] == u'+' || t[end] == u'-'))
        ++end;
    while (end < t.size() && (t[end].isDigit() || t[end] == u'.' || t[end] == u'e' || t[end] == u'E'))
        ++end;
    for (; end > 0; --end) {
        bool ok = false;
        const double d = t.left(end).toDouble(&ok);
        if (ok)
            return d;
    }
    return 0;
}

} // namespace

bool plistBool(const QVariant &v)
{
    if (v.typeId() == QMetaType::QString) {
        // NSString boolValue: YES on a leading Y, y, T, t or non-zero digit.
        const QString t = v.toString().trimmed();
        if (t.isEmpty())
            return false;
        const QChar c = t[0];
        if (c == u'Y' || c == u'y' || c == u'T' || c == u't')
            return true;
        qsizetype i = (c == u'+' || c == u'-') ? 1 : 0;
        while (i < t.size() && t[i] == u'0')
            ++i;
        return i < t.size() && t[i] >= u'1' && t[i] <= u'9';
    }
    if (v.typeId() == QMetaType::Double || v.typeId() == QMetaType::Float)
        return v.toDouble() != 0;
    return v.toLongLong() != 0;
}

qint64 plistInteger(const QVariant &v)
{
    switch (v.typeId()) {
    case QMetaType::QString:
        return qint64(leadingNumber(v.toString()));
    case QMetaType::Double:
    case QMetaType::Float:
        return qint64(v.toDouble());
    default:
        return v.toLongLong();
    }
}

double plistDouble(const QVariant &v)
{
    if (v.typeId() == QMetaType::QString)
        return leadingNumber(v.toString());
    return v.toDouble();
}

QWPrefs::QWPrefs(const QString &applicationID, const QString &newApplicationID)
{
    m_prefsPath = prefsPathForApplicationID(applicationID);
    QFile file(m_prefsPath);
    if (file.exists()) {
        QVariant root;
        if (file.open(QIODevice::ReadOnly))
            root = archive::decodeKeyedArchive(file.readAll());
        if (root.typeId() == QMetaType::QVariantMap) {
            m_prefs = root.toMap();
        } else {
            m_prefs.clear();
            m_prefs.insert(Pref::ReconstructedAfterCorruption, true);
        }
    }
    // There is no older defaults domain to merge on this platform; the mark still records that
    // the one-time merge has been done.
    if (!m_prefs.contains(Pref::ConvertedFromPlist))
        m_prefs.insert(Pref::ConvertedFromPlist, true);
    if (!newApplicationID.isEmpty())
        m_prefsPath = prefsPathForApplicationID(newApplicationID);
}

QString QWPrefs::prefsDirectory()
{
    QString base = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (base.isEmpty() || !QDir::isAbsolutePath(base))
        base = QDir::homePath() + QStringLiteral("/.config");
    return base + QStringLiteral("/tessaline");
}

QString QWPrefs::prefsPathForApplicationID(const QString &applicationID)
{
    return prefsDirectory() + u'/' + applicationID + QStringLiteral(".prefs");
}

QString QWPrefs::applicationIDToLoad()
{
    if (QFileInfo::exists(prefsPathForApplicationID(kApplicationID)))
        return kApplicationID;
    for (const QString &earlier : {kEarlierApplicationID1, kEarlierApplicationID2}) {
        if (QFileInfo::exists(prefsDirectory() + u'/' + earlier + QStringLiteral(".plist")))
            return earlier;
    }
    return kApplicationID;
}

bool QWPrefs::boolForKey(const QString &key) const
{
    return plistBool(m_prefs.value(key));
}

qint64 QWPrefs::integerForKey(const QString &key) const
{
    return plistInteger(m_prefs.value(key));
}

quint32 QWPrefs::uInt32ForKey(const QString &key) const
{
    return quint32(plistInteger(m_prefs.value(key)));
}

float QWPrefs::floatForKey(const QString &key) const
{
    return float(plistDouble(m_prefs.value(key)));
}

double QWPrefs::doubleForKey(const QString &key) const
{
    return plistDouble(m_prefs.value(key));
}

void QWPrefs::setObject(const QVariant &value, const QString &key)
{
    if (!value.isValid() || value.isNull())
        m_prefs.remove(key);
    else
        m_prefs.insert(key, value);
}

QString QWPrefs::description() const
{
    return QString::fromUtf8(QJsonDocument::fromVariant(m_prefs).toJson(QJsonDocument::Indented));
}

bool QWPrefs::synchronize()
{
    const QByteArray bytes = archive::encodeKeyedArchive(m_prefs);
    if (bytes.isEmpty())
        return false;
    QDir().mkpath(QFileInfo(m_prefsPath).absolutePath());
    QSaveFile file(m_prefsPath);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

} // namespace tess
