#include "QWPrefs.h"

#include "core/archive/KeyedArchive.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
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
    if (QFileInfo::exists(m_prefsPath)) {
        const QVariant root = readFile();
        if (root.typeId() == QMetaType::QVariantMap) {
            m_prefs = root.toMap();
            m_writeWhole = false;
        } else {
            m_prefs.insert(Pref::ReconstructedAfterCorruption, true);
        }
    }
    // There is no older defaults domain to merge on this platform; the mark still records that
    // the one-time merge has been done.
    if (!m_prefs.contains(Pref::ConvertedFromPlist))
        store(Pref::ConvertedFromPlist, true);
    if (!newApplicationID.isEmpty() && newApplicationID != applicationID) {
        m_prefsPath = prefsPathForApplicationID(newApplicationID);
        m_writeWhole = true; // the settings move into the new file
    }
}

QWPrefs::~QWPrefs() = default;

QVariant QWPrefs::readFile() const
{
    QFile file(m_prefsPath);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return archive::decodeKeyedArchive(file.readAll());
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
        removeObjectForKey(key);
    else
        store(key, value);
}

void QWPrefs::store(const QString &key, const QVariant &value)
{
    const auto it = m_prefs.constFind(key);
    // Only a real change is written: setting a key to what it holds must not write over a
    // value another program stored meanwhile.
    if (it != m_prefs.constEnd() && it->typeId() == value.typeId() && *it == value)
        return;
    m_prefs.insert(key, value);
    m_changed.insert(key);
}

void QWPrefs::removeObjectForKey(const QString &key)
{
    if (m_prefs.remove(key))
        m_changed.insert(key);
}

QString QWPrefs::description() const
{
    return QString::fromUtf8(QJsonDocument::fromVariant(m_prefs).toJson(QJsonDocument::Indented));
}

QVariantMap QWPrefs::withChangesOver(QVariantMap base) const
{
    for (const QString &key : m_changed) {
        const auto it = m_prefs.constFind(key);
        if (it == m_prefs.constEnd())
            base.remove(key);
        else
            base.insert(key, *it);
    }
    return base;
}

bool QWPrefs::synchronize()
{
    QVariantMap out = m_prefs;
    if (!m_writeWhole) {
        const QVariant now = readFile();
        // A file gone or damaged since it was read is replaced with everything known here.
        if (now.typeId() == QMetaType::QVariantMap)
            out = withChangesOver(now.toMap());
    }
    const QByteArray bytes = archive::encodeKeyedArchive(out);
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
    if (!file.commit())
        return false;
    m_prefs = out;
    m_changed.clear();
    m_writeWhole = false;
    return true;
}

bool QWPrefs::readOutsideChanges()
{
    const QVariant now = readFile();
    if (now.typeId() != QMetaType::QVariantMap)
        return false;
    m_prefs = withChangesOver(now.toMap());
    m_writeWhole = false;
    return true;
}

void QWPrefs::watchForOutsideChanges()
{
    if (m_watcher)
        return;
    const QString dir = QFileInfo(m_prefsPath).absolutePath();
    QDir().mkpath(dir);
    m_watcher = std::make_unique<QFileSystemWatcher>();
    // The file is replaced by a rename, which ends a watch on the file itself: the folder's
    // watch sees the new one arrive, and the file is watched again.
    m_watcher->addPath(dir);
    auto changed = [this] {
        if (QFileInfo::exists(m_prefsPath) && !m_watcher->files().contains(m_prefsPath))
            m_watcher->addPath(m_prefsPath);
        readOutsideChanges();
    };
    QObject::connect(m_watcher.get(), &QFileSystemWatcher::directoryChanged, m_watcher.get(), changed);
    QObject::connect(m_watcher.get(), &QFileSystemWatcher::fileChanged, m_watcher.get(), changed);
    if (QFileInfo::exists(m_prefsPath))
        m_watcher->addPath(m_prefsPath);
}

} // namespace tess
