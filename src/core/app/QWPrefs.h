#pragma once
// The one settings store of the program: a dictionary kept in memory and written whole, as a
// keyed archive, by synchronize(). Setters never touch the disk.

#include <QString>
#include <QVariant>
#include <QVariantMap>

namespace tess {

// Application identifiers: the current one names the settings file; the earlier ones are those
// under which older versions kept their settings.
inline const QString kApplicationID = QStringLiteral("org.tessaline.Tessaline");
inline const QString kEarlierApplicationID1 = QStringLiteral("org.tessaline.TessalinePro");
inline const QString kEarlierApplicationID2 = QStringLiteral("org.tessaline.TessalineClassic");

// Every key the program stores in the settings.
namespace Pref {
inline const QString HotkeyCodeUserID = QStringLiteral("hotkeyCodeUserID");
inline const QString HotkeyUserIDModifierFlags = QStringLiteral("hotkeyUserIDModifierFlags");
inline const QString HotkeyCodePassword = QStringLiteral("hotkeyCodePassword");
inline const QString HotkeyPasswordModifierFlags = QStringLiteral("hotkeyPasswordModifierFlags");
inline const QString HotkeyUserID = QStringLiteral("hotkeyUserID");
inline const QString HotkeyPassword = QStringLiteral("hotkeyPassword");
inline const QString HoverUserID = QStringLiteral("hoverUserID");
inline const QString HoverPassword = QStringLiteral("hoverPassword");
inline const QString HoverURL = QStringLiteral("hoverURL");
inline const QString HoverNotes = QStringLiteral("hoverNotes");
inline const QString ConfirmDelete = QStringLiteral("confirmDelete");
inline const QString GeneratedPasswordLength = QStringLiteral("generatedPasswordLength");
inline const QString SUEnableAutomaticChecks = QStringLiteral("SUEnableAutomaticChecks");
inline const QString DefaultUserID = QStringLiteral("defaultUserID");
inline const QString BrowserPageLoadDelay = QStringLiteral("browserPageLoadDelay");
inline const QString TypeSpeed = QStringLiteral("typeSpeed");
inline const QString PasswordPrompt = QStringLiteral("passwordPrompt");
inline const QString LastPWFiles = QStringLiteral("Last PW Files");
inline const QString LastPWFile = QStringLiteral("Last PW File");
inline const QString Version12 = QStringLiteral("1.2");
inline const QString ApplePersistenceIgnoreState = QStringLiteral("ApplePersistenceIgnoreState");
inline const QString ReconstructedAfterCorruption = QStringLiteral("reconstructedAfterCorruption");
inline const QString ConvertedFromPlist = QStringLiteral("convertedFromPlist");
} // namespace Pref

class QWPrefs {
public:
    // initForApplicationID: / initForApplicationID:newApplicationID: — loads the old
    // identifier's file and, with a new identifier, writes the new one's from then on.
    explicit QWPrefs(const QString &applicationID, const QString &newApplicationID = QString());

    // "$XDG_CONFIG_HOME/tessaline" (default "~/.config/tessaline").
    static QString prefsDirectory();
    static QString prefsPathForApplicationID(const QString &applicationID);
    // Which identifier's settings start-up reads: the current one if its file exists, else the
    // first earlier one that left a settings file behind, else the current one.
    static QString applicationIDToLoad();

    bool empty() const { return m_prefs.isEmpty(); }
    QVariant objectForKey(const QString &key) const { return m_prefs.value(key); }
    bool boolForKey(const QString &key) const;
    qint64 integerForKey(const QString &key) const;
    quint32 uInt32ForKey(const QString &key) const;
    float floatForKey(const QString &key) const;
    double doubleForKey(const QString &key) const;

    // An invalid QVariant (nil) removes the key.
    void setObject(const QVariant &value, const QString &key);
    void setBool(bool value, const QString &key) { m_prefs.insert(key, value); }
    void setInteger(qint64 value, const QString &key) { m_prefs.insert(key, QVariant::fromValue(value)); }
    void setUInt32(quint32 value, const QString &key) { m_prefs.insert(key, QVariant::fromValue(qint64(value))); }
    void setFloat(float value, const QString &key) { m_prefs.insert(key, value); }
    void setDouble(double value, const QString &key) { m_prefs.insert(key, value); }
    void removeObjectForKey(const QString &key) { m_prefs.remove(key); }

    QString description() const;
    QVariantMap prefsMutableDictionary() const { return m_prefs; }
    QString prefsPath() const { return m_prefsPath; }

    // Replaces the file atomically with the whole dictionary; answers whether that worked.
    bool synchronize();

private:
    QString m_prefsPath;
    QVariantMap m_prefs;
};

// The process-wide store, created at start-up.
extern QWPrefs *gPrefs;

// NSNumber/NSString-style conversions of a stored value, shared with other readers of
// property-list values (entries use the same rules).
bool plistBool(const QVariant &v);
qint64 plistInteger(const QVariant &v);
double plistDouble(const QVariant &v);

} // namespace tess
