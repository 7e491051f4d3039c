#pragma once
// The one settings store of the program: a dictionary kept in memory and written, as a keyed
// archive, by synchronize(). Setters never touch the disk. Other programs (tessaline-cli, a
// second copy) write the same file, so synchronize() writes only the keys changed here over
// what the file holds at that moment, and a watched store picks up what others wrote.

#include <QSet>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <memory>

class QFileSystemWatcher;

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
    ~QWPrefs();
    QWPrefs(const QWPrefs &) = delete;
    QWPrefs &operator=(const QWPrefs &) = delete;

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
    void setBool(bool value, const QString &key) { store(key, value); }
    void setInteger(qint64 value, const QString &key) { store(key, QVariant::fromValue(value)); }
    void setUInt32(quint32 value, const QString &key) { store(key, QVariant::fromValue(qint64(value))); }
    void setFloat(float value, const QString &key) { store(key, value); }
    void setDouble(double value, const QString &key) { store(key, value); }
    void removeObjectForKey(const QString &key);

    QString description() const;
    QVariantMap prefsMutableDictionary() const { return m_prefs; }
    QString prefsPath() const { return m_prefsPath; }

    // Replaces the file atomically: what it holds now with the keys set or removed here since
    // the last synchronize, or the whole dictionary when it was not read from that file (first
    // start, a carried-over or unreadable file). Answers whether the write worked.
    bool synchronize();

    // From now on, reads the file again whenever another program replaces it; keys changed
    // here and not yet written keep their values here.
    void watchForOutsideChanges();
    // Reads the file again now (what the watcher does); false when it holds no dictionary.
    bool readOutsideChanges();

private:
    void store(const QString &key, const QVariant &value);
    QVariant readFile() const;
    // `base` with the keys set or removed here since the last synchronize.
    QVariantMap withChangesOver(QVariantMap base) const;

    QString m_prefsPath;
    QVariantMap m_prefs;
    QSet<QString> m_changed;
    bool m_writeWhole = true;
    std::unique_ptr<QFileSystemWatcher> m_watcher;
};

// The process-wide store, created at start-up.
extern QWPrefs *gPrefs;

// NSNumber/NSString-style conversions of a stored value, shared with other readers of
// property-list values (entries use the same rules).
bool plistBool(const QVariant &v);
qint64 plistInteger(const QVariant &v);
double plistDouble(const QVariant &v);

} // namespace tess
