#pragma once
// A password file package on disk and its storage life: finding its format and password,
// decrypting and loading, merging conflict copies, saving, noticing outside changes, the
// pre-2.0 upgrade, password change and the keychain option. Plaintext lives in memory only:
// files are decrypted into memory and encrypted from it; the private scratch directory is
// still made and held while the file is open, but nothing is written into it.
// The document window and tessaline-cli each drive one through a PasswordFileDelegate.

#include "core/entries/Entry.h"
#include "core/login/RecentWebsites.h"
#include "core/storage/DirectoryLock.h"
#include "core/storage/QWCrypt.h"

#include <QString>

#include <memory>

namespace tess {

class Keychain;

class PasswordFileDelegate {
public:
    virtual ~PasswordFileDelegate() = default;
    // The password panel: the prompt text above a secure field. False when cancelled.
    virtual bool askPassword(const QString &prompt, QString *password) = 0;
    // The password-change panel (two new-password fields that must match). False when cancelled.
    virtual bool askNewPassword(QString *password) = 0;
    // A modal message with the single button "OK".
    virtual void showMessage(const QString &message) = 0;
    // The entry list was replaced or added to (the table must reload).
    virtual void entriesReplaced() {}
    // The recent-website titles were replaced (the menu must be rebuilt).
    virtual void titlesReplaced() {}
};

class PasswordFile {
public:
    static const QString kProgramName;          // "Tessaline": the keychain item's account
    static const QString kNotAPasswordFile;     // "This is not a Tessaline file."
    static const QString kPasswordIncorrect;    // "PASSWORD INCORRECT! "
    static const QString kEnterPassword;        // "Enter Password:"
    static const QString kReenterPassword;      // "Re-enter Password:"
    static const QString kSaveFailed;           // "UNKNOWN ERROR: ..."
    static const QString kChangePasswordPrompt;
    static const QString kKeychainPrompt;
    static const QString kPasswordChanged;
    static const QString kPasswordNotChanged;
    static const QString kNoScratchDirectory; // "%1 was not opened: ..." (%1 the file, %2 why)
    static const QString kChangedUnreadable;  // the file changed outside and cannot be read

    // Damaged: the password fits but what it decrypts is not an entry list (damageReason()
    // says why); the delegate was shown kNotAPasswordFile and nothing was written.
    enum class OpenResult { Opened, NotAPasswordFile, Cancelled, NoScratchDirectory, Damaged };
    struct ReadResult {
        bool entriesReloaded = false;
        bool titlesReloaded = false;
        bool merged = false;
        // The entry file changed since it was last read and cannot be read now (another
        // password, damage): nothing may be written over it.
        bool unreadable = false;
    };

    PasswordFile(const QString &packagePath, Keychain *keychain, PasswordFileDelegate *delegate);
    ~PasswordFile();
    PasswordFile(const PasswordFile &) = delete;
    PasswordFile &operator=(const PasswordFile &) = delete;

    // Makes a new package directory holding an empty, encrypted entry list, and keeps the
    // password in memory for the file's first opening in this process (which treats it as a
    // new file, as a "Data" file left by another program is). False if the directory exists
    // or cannot be made and written.
    static bool createPackage(const QString &packagePath, const QString &password);

    // How opening uses the keychain: for the password (as the application does), only to
    // learn whether the file has an item (a password given another way), or not at all.
    enum class KeychainUse { Password, StatusOnly, Never };

    // When opening writes: at once, as the application does (a new file's first list, the
    // titles written back, conflict copies merged, saved and removed, the pre-2.0 upgrade),
    // or only with the first save(), all of it then, so that an opening that is not followed
    // by a save leaves every byte of the package as it was.
    enum class Writes { AtOpening, AtFirstSave };

    // openDatabase: the whole opening sequence.
    OpenResult open(KeychainUse use = KeychainUse::Password, Writes writes = Writes::AtOpening);
    QString damageReason() const { return m_damage; }
    // Whether the first save has writes to do besides the entry list (Writes::AtFirstSave).
    bool hasPendingWrites() const;
    // The storage half of closing: removes the scratch directory and lets go of it.
    void close();
    bool isOpen() const { return !m_tempDir.isEmpty(); }

    bool getFilePasswordFromUserWithPrompt(const QString &prompt, bool saveInKeychain);
    bool decryptDataAtPath(const QString &path);
    ReadResult readPasswordFileDataAgain(bool onlyIfChanged);
    ReadResult checkForUpdates() { return readPasswordFileDataAgain(true); }
    bool fileChanged() const;
    ReadResult readPasswordFileDataIfChanged();

    // Sorts, archives, encrypts and writes the entry list; on failure shows the message and
    // keeps the list in memory. Answers whether the file was written. Under the package lock,
    // what another program wrote since the list was last read is merged in first.
    bool save();

    // The advisory lock every writer (window, tessaline-cli) holds around its check-and-write
    // or read-change-write, so that two writers never interleave. Nested holds share it.
    // False when another writer kept it for longer than packageLockWaitMs.
    bool lockPackage();
    void unlockPackage();
    class Locked {
    public:
        explicit Locked(PasswordFile &file) : m_file(file), m_ok(file.lockPackage()) {}
        ~Locked()
        {
            if (m_ok)
                m_file.unlockPackage();
        }
        Locked(const Locked &) = delete;
        Locked &operator=(const Locked &) = delete;
        bool ok() const { return m_ok; }

    private:
        PasswordFile &m_file;
        bool m_ok;
    };
    static int packageLockWaitMs; // 10 s; tests shorten it

    // When the entry file holds something else than what was last read or written here, reads
    // it and merges it three ways into the list (mergeThreeWays, against the list as last
    // read). Call it holding the package lock. An entry file changed outside that cannot be
    // read is reported, never merged or written over.
    ReadResult mergeOutsideChanges();
    bool saveRecentWebsites();

    // The recent-website operations that save the titles afterwards.
    void addRecentWebsite(const QString &title);
    void deleteRecentWebsite(const QString &title);
    void renameRecentWebsite(const QString &from, const QString &to);
    void clearRecentWebsites();

    // changePassword: asks for the current password, then the new one; tells the outcome.
    bool changePassword();
    // toggleSavePWInKeychain: `checked` is the menu item's check mark as shown.
    void toggleSavePWInKeychain(bool checked);
    // recheckPassword: false when the user cancelled.
    bool recheckPassword() { return getFilePasswordFromUserWithPrompt(kReenterPassword, false); }

    EntryList &passwordArray() { return m_passwordArray; }
    const EntryList &passwordArray() const { return m_passwordArray; }
    const QStringList &recentWebsiteTitles() const { return m_recent.titles(); }

    QString packagePath() const { return m_packagePath; }
    QString passwordFileName() const { return m_passwordFileName; }
    QString dataPath() const { return m_dataPath; }
    QString recentWebsitesPath() const { return m_recentWebsitesPath; }
    QString tempDir() const { return m_tempDir; }
    bool pre20File() const { return m_pre20File; }
    bool passwordInKeychain() const { return m_passwordInKeychain; }
    bool PWFileWriteable() const { return m_writeable; }
    QWCrypt &qwCrypt() { return *m_crypt; }

    // Scratch directories: "~/.QVM.XXXXXXXX", owner-only, locked by their holder for as long
    // as the file is open. Start-up removes those that no live process holds (left by a crash).
    static int removeLeftoverScratchDirectories() { return removeUnheldScratchDirectories(); }

    // A file's modification time in nanoseconds, or -1 when it does not exist.
    static qint64 modificationTime(const QString &path);

private:
    QString inPackage(const QString &name) const { return m_packagePath + u'/' + name; }
    // An encrypted archive read and decrypted in memory, and decoded. `keyFits` when the
    // plaintext is an archive of the expected format at all (a wrong key gives noise): an
    // invalid value then means damage, which `why` describes.
    struct Decrypted {
        QVariant value;
        bool keyFits = false;
        QString why;
        QByteArray digest; // of the encrypted bytes
    };
    Decrypted decryptArchive(const QString &path, bool keyed) const;
    void finishDeferredWrites();
    void mergeConflictCopies(ReadResult &result);
    bool upgradePre20File();
    bool writeEntries();
    bool writeTitles();

    QString m_packagePath;
    Keychain *m_keychain;
    PasswordFileDelegate *m_delegate;
    std::unique_ptr<QWCrypt> m_crypt;
    QString m_passwordFileName;
    QString m_dataPath, m_recentWebsitesPath;
    QString m_tempDir;
    DirectoryLock m_scratchLock;
    bool m_pre20File = false;
    bool m_writeable = false;
    bool m_passwordInKeychain = false;
    QString m_fileFramis;      // set only when the file is created or re-keyed
    QString m_openingPassword; // the password that opened the file, for the pre-2.0 upgrade
    EntryList m_passwordArray;
    RecentWebsiteTitles m_recent;
    qint64 m_lastDataModificationTime = -2;
    qint64 m_lastRecentWebsitesModificationTime = -2;
    // What decryptDataAtPath last decrypted and unarchived, for the loading step, and a digest
    // of the encrypted bytes it came from.
    QVariant m_decrypted;
    QByteArray m_decryptedDigest;
    QString m_damage; // why the last decryption with a fitting key was not an entry list
    // Writes::AtFirstSave: what the first save does besides the entry list.
    bool m_deferWrites = false;
    bool m_titlesToWrite = false;
    bool m_conflictsMerged = false;
    QStringList m_copiesToRemove;
    QByteArray m_newFileCipher; // a new file's first list, while "Data" waits for the save
    // The entry list as last read from or written to the package, and a digest of those
    // encrypted bytes: the base of a merge and the test for outside changes before a write.
    EntryList m_lastRead;
    QByteArray m_lastDataDigest;
    DirectoryLock m_packageLock;
    int m_packageLockDepth = 0;
};

} // namespace tess
