#include "PasswordFile.h"

#include "core/app/QWPrefs.h"
#include "core/archive/KeyedArchive.h"
#include "core/archive/TypedStream.h"
#include "core/entries/EntryList.h"
#include "core/storage/Crypto.h"
#include "platform/Keychain.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gcrypt.h>

#include <algorithm>

#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace tess {

const QString PasswordFile::kProgramName = QStringLiteral("Tessaline");
const QString PasswordFile::kNotAPasswordFile = QStringLiteral("This is not a Tessaline file.");
const QString PasswordFile::kPasswordIncorrect = QStringLiteral("PASSWORD INCORRECT! ");
const QString PasswordFile::kEnterPassword = QStringLiteral("Enter Password:");
const QString PasswordFile::kReenterPassword = QStringLiteral("Re-enter Password:");
const QString PasswordFile::kSaveFailed =
    QStringLiteral("UNKNOWN ERROR: Your changes will show in the window, but be gone when you open the file.");
const QString PasswordFile::kChangedUnreadable =
    QStringLiteral("Your changes were not saved: another program changed this file, and it cannot be read "
                   "with the password it was opened with. Close the file and open it again.");
const QString PasswordFile::kChangePasswordPrompt =
    QStringLiteral("To change the password for this file you need to enter the current one first:");
const QString PasswordFile::kKeychainPrompt = QStringLiteral(
    "Choosing this option means that you will not have to enter your file password each time you open the file, "
    "but you must enter it now to enable the option:");
const QString PasswordFile::kPasswordChanged = QStringLiteral("Password changed.");
const QString PasswordFile::kPasswordNotChanged = QStringLiteral("Password not changed.");
const QString PasswordFile::kNoScratchDirectory =
    QStringLiteral("%1 was not opened: its private folder could not be made in your home folder (%2).");

namespace {
const QString kData = QStringLiteral("Data");
const QString kDataCurrent = QStringLiteral("Data.qvmi");
const QString kDataPre20 = QStringLiteral("Data.qvme");
const QString kRecentCurrent = QStringLiteral("Recent Websites.qvmi");
const QString kRecentPre20 = QStringLiteral("Recent Websites.qvme");

// libgcrypt's SHA-256 (accelerated where the processor can); Qt's takes longer than the rest
// of an opening.
QByteArray digestOf(const QByteArray &bytes)
{
    QByteArray digest(32, '\0');
    gcry_md_hash_buffer(GCRY_MD_SHA256, digest.data(), bytes.constData(), size_t(bytes.size()));
    return digest;
}

// New files' passwords, from their creation to their first opening in this process: the
// macOS program hands them over in a plaintext "Data" file, we in memory.
QHash<QString, QString> &newFilePasswords()
{
    static QHash<QString, QString> passwords;
    return passwords;
}

// The recent-website titles' archive: an array of strings.
bool isTitleList(const QVariant &root)
{
    if (root.typeId() != QMetaType::QVariantList)
        return false;
    const QVariantList list = root.toList();
    return std::all_of(list.cbegin(), list.cend(), [](const QVariant &t) { return t.typeId() == QMetaType::QString; });
}

QString canonicalPackagePath(const QString &path)
{
    return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
}
} // namespace

int PasswordFile::packageLockWaitMs = 10000;

PasswordFile::PasswordFile(const QString &packagePath, Keychain *keychain, PasswordFileDelegate *delegate)
    : m_packagePath(canonicalPackagePath(packagePath)), m_keychain(keychain),
      m_delegate(delegate)
{
}

PasswordFile::~PasswordFile()
{
    close();
}

qint64 PasswordFile::modificationTime(const QString &path)
{
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return -1;
    return qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
}

bool PasswordFile::createPackage(const QString &packagePath, const QString &password)
{
    if (QFileInfo::exists(packagePath) || !QDir().mkpath(packagePath))
        return false;
    // A package that opens like any other even if its first opening never comes.
    QWCrypt crypt(kProgramName, QFileInfo(packagePath).completeBaseName(), nullptr);
    crypt.setCurrentParameters();
    crypt.setKeyFrom(password, true);
    if (!crypt.encrypt(archive::encodeKeyedArchive(QVariantList{}), packagePath + u'/' + kDataCurrent)) {
        QDir().rmdir(packagePath);
        return false;
    }
    newFilePasswords().insert(canonicalPackagePath(packagePath), password);
    return true;
}

PasswordFile::Decrypted PasswordFile::decryptArchive(const QString &path, bool keyed) const
{
    Decrypted d;
    QByteArray cipher;
    if (!m_newFileCipher.isNull() && path == m_dataPath) {
        cipher = m_newFileCipher;
    } else {
        QFile in(path);
        if (!in.open(QIODevice::ReadOnly))
            return d;
        cipher = in.readAll();
    }
    d.digest = digestOf(cipher);
    QByteArray plain = m_crypt->doCrypt(cipher, false);
    cipher = QByteArray(); // gone before the decoding's many allocations
    if (plain.isNull())
        return d;
    // Noise from a wrong key passes the padding check now and then, but never starts like an
    // archive.
    d.keyFits = plain.startsWith(keyed ? QByteArrayView("bplist00") : QByteArrayView("\x04\x0bstreamtyped"));
    d.value = keyed ? archive::decodeKeyedArchive(plain, &d.why) : archive::decodeTypedStream(plain, &d.why);
    plain.fill('\0');
    return d;
}

PasswordFile::OpenResult PasswordFile::open(KeychainUse use, Writes writes)
{
    m_deferWrites = writes == Writes::AtFirstSave;
    m_damage.clear();
    m_passwordFileName = QFileInfo(m_packagePath).completeBaseName();
    m_crypt = std::make_unique<QWCrypt>(kProgramName, m_passwordFileName, m_keychain);

    // A new file: made here, its password in memory, or by another program, its password in
    // a plaintext "Data" file on its way to the first opening.
    const bool createdHere = newFilePasswords().contains(m_packagePath);
    const bool dataFile = !createdHere && QFileInfo(inPackage(kData)).isFile();
    const bool newFile = createdHere || dataFile;
    if (newFile || QFileInfo::exists(inPackage(kDataCurrent))) {
        m_dataPath = inPackage(kDataCurrent);
        m_recentWebsitesPath = inPackage(kRecentCurrent);
        m_pre20File = false;
        m_crypt->setCurrentParameters();
    } else if (QFileInfo::exists(inPackage(kDataPre20))) {
        m_dataPath = inPackage(kDataPre20);
        m_recentWebsitesPath = inPackage(kRecentPre20);
        m_pre20File = true;
        m_crypt->setPre20Parameters();
    } else {
        m_delegate->showMessage(kNotAPasswordFile);
        return OpenResult::NotAPasswordFile;
    }

    // Made before anything is written, so that a file it cannot be made for stays as it is.
    QString why;
    m_tempDir = makeLockedScratchDirectory(&m_scratchLock, &why);
    if (m_tempDir.isEmpty()) {
        m_delegate->showMessage(kNoScratchDirectory.arg(m_passwordFileName, why));
        return OpenResult::NoScratchDirectory;
    }
    if (newFile) {
        if (createdHere) {
            m_fileFramis = newFilePasswords().take(m_packagePath);
        } else {
            QFile data(inPackage(kData));
            if (data.open(QIODevice::ReadOnly))
                m_fileFramis = QString::fromLocal8Bit(data.readAll());
        }
        m_crypt->setKeyFrom(m_fileFramis, true);
        m_crypt->setKeyFrom(m_fileFramis, false);
        // The empty list goes from memory into "Data.qvmi"; only then does "Data" go, its
        // bytes overwritten first. Deferred, the list waits in memory for the first save.
        if (dataFile && m_deferWrites)
            m_newFileCipher = m_crypt->doCrypt(archive::encodeKeyedArchive(QVariantList{}), true);
        else if (dataFile && m_crypt->encrypt(archive::encodeKeyedArchive(QVariantList{}), m_dataPath))
            secureDelete(inPackage(kData));
        m_passwordInKeychain = false;
    }
    m_writeable = ::access(QFile::encodeName(m_packagePath).constData(), W_OK) == 0;

    // No password decrypts a file cut short: say it is damaged rather than ask for one again
    // and again.
    const QFileInfo dataInfo(m_dataPath);
    if (!newFile && dataInfo.isFile() && !QWCrypt::isCipherLength(dataInfo.size())) {
        m_damage = QStringLiteral("its data is cut short");
        close();
        m_delegate->showMessage(kNotAPasswordFile);
        return OpenResult::Damaged;
    }

    bool opened = false;
    if (!newFile && use == KeychainUse::Password) {
        const int status = m_crypt->getPasswordFromKeychain();
        if (status == Keychain::Found) {
            m_passwordInKeychain = true;
            if (decryptDataAtPath(m_dataPath)) {
                opened = true;
                m_openingPassword = m_crypt->theFramis();
            }
        } else {
            // Refused access still means the item exists.
            m_passwordInKeychain = status == Keychain::AuthorizationFailed;
        }
    }
    if (!opened && (!m_damage.isEmpty() || !getFilePasswordFromUserWithPrompt(kEnterPassword, false))) {
        close();
        if (m_damage.isEmpty())
            return OpenResult::Cancelled;
        m_delegate->showMessage(kNotAPasswordFile);
        return OpenResult::Damaged;
    }
    if (!newFile && use == KeychainUse::StatusOnly) {
        const int status = m_crypt->actuallyGetPasswordFromKeychain();
        m_passwordInKeychain = status == Keychain::Found || status == Keychain::AuthorizationFailed;
    }

    m_passwordArray = EntryList();
    readPasswordFileDataAgain(false);
    if (m_pre20File && !m_deferWrites)
        save(); // the upgrade
    if (gPrefs)
        gPrefs->synchronize();
    return OpenResult::Opened;
}

bool PasswordFile::upgradePre20File()
{
    const QString password = m_fileFramis.isEmpty() ? m_openingPassword : m_fileFramis;
    m_crypt->setCurrentParameters();
    m_crypt->setKeyFrom(password, false);
    m_crypt->setKeyFrom(password, true);
    const QString oldData = m_dataPath, oldRecent = m_recentWebsitesPath;
    m_pre20File = false;
    m_dataPath = inPackage(kDataCurrent);
    m_recentWebsitesPath = inPackage(kRecentCurrent);
    // Both current files are written before the old ones go. If either cannot be, the package
    // is left exactly as it was, and the document stays a pre-2.0 one that the next save
    // upgrades again.
    const bool hadData = QFileInfo::exists(m_dataPath);
    if (hadData)
        mergeOutsideChanges();
    const bool dataWritten = writeEntries();
    if (dataWritten && writeTitles()) {
        secureDelete(oldData);
        if (QFileInfo::exists(oldRecent))
            secureDelete(oldRecent);
        return true;
    }
    if (dataWritten && !hadData)
        QFile::remove(m_dataPath);
    m_pre20File = true;
    m_dataPath = oldData;
    m_recentWebsitesPath = oldRecent;
    m_crypt->setPre20Parameters();
    m_crypt->setKeyFrom(m_openingPassword, false);
    m_crypt->setKeyFrom(m_openingPassword, true);
    return false;
}

void PasswordFile::close()
{
    if (!m_tempDir.isEmpty())
        QDir(m_tempDir).removeRecursively();
    m_scratchLock.release();
    m_tempDir.clear();
    m_decrypted.clear();
}

bool PasswordFile::getFilePasswordFromUserWithPrompt(const QString &prompt, bool saveInKeychain)
{
    QString current = prompt;
    QString typed;
    for (;;) {
        typed.clear();
        if (!m_delegate->askPassword(current, &typed))
            return false;
        m_crypt->setKeyFrom(typed, false);
        if (decryptDataAtPath(m_dataPath))
            break;
        if (!m_damage.isEmpty())
            return false; // the password fits: asking again would not help
        current = kPasswordIncorrect + prompt;
    }
    if (saveInKeychain)
        m_crypt->setKeyAndSaveInKeychainFrom(typed, true);
    else
        m_crypt->setKeyFrom(typed, true);
    m_openingPassword = typed;
    return true;
}

bool PasswordFile::decryptDataAtPath(const QString &path)
{
    // Into memory: the plaintext never touches the disk.
    Decrypted d = decryptArchive(path, !m_pre20File);
    m_damage.clear();
    // Anything that decodes was decrypted with the right key, whatever its first bytes say.
    if (d.value.isValid() ? !isEntryList(d.value) : d.keyFits) {
        m_damage = d.value.isValid() ? QStringLiteral("not a list of entries") : d.why;
        d.value.clear();
    }
    m_decrypted = std::move(d.value);
    m_decryptedDigest = d.digest;
    return m_decrypted.isValid();
}

PasswordFile::ReadResult PasswordFile::readPasswordFileDataAgain(bool onlyIfChanged)
{
    ReadResult result;
    const qint64 dataDate = modificationTime(m_dataPath);
    if (!onlyIfChanged || dataDate != m_lastDataModificationTime) {
        if (onlyIfChanged)
            decryptDataAtPath(m_dataPath);
        const QVariant list = m_decrypted;
        m_decrypted.clear();
        // A file that cannot be decrypted (changed elsewhere under another password) or read
        // leaves the list as it is rather than emptying it.
        if (isEntryList(list)) {
            const EntryList theirs = list.toList();
            // A reload keeps what was changed here and not yet written (after a failed save);
            // with nothing of the kind it is the file's list as it stands.
            m_passwordArray = onlyIfChanged ? mergeThreeWays(m_lastRead, m_passwordArray, theirs) : theirs;
            m_lastRead = theirs;
            m_lastDataDigest = m_decryptedDigest;
            result.entriesReloaded = true;
        }
        m_lastDataModificationTime = dataDate;
        if (result.entriesReloaded)
            m_delegate->entriesReplaced();
    }

    const qint64 titlesDate = modificationTime(m_recentWebsitesPath);
    if (!onlyIfChanged || titlesDate != m_lastRecentWebsitesModificationTime) {
        QStringList titles;
        const QVariant v = decryptArchive(m_recentWebsitesPath, !m_pre20File).value;
        const bool readable = isTitleList(v);
        if (readable) {
            for (const QVariant &t : v.toList())
                titles.append(t.toString());
            m_lastRecentWebsitesModificationTime = titlesDate;
        }
        m_recent.setTitles(titles);
        result.titlesReloaded = true;
        m_delegate->titlesReplaced();
        if (!onlyIfChanged && m_deferWrites)
            m_titlesToWrite = !readable; // missing or unreadable: the first save writes them
        else if (!onlyIfChanged && !m_pre20File) // a pre-2.0 file's upgrade writes them next
            saveRecentWebsites();
    }

    mergeConflictCopies(result);
    return result;
}

void PasswordFile::mergeConflictCopies(ReadResult &result)
{
    // Copies left by synchronisation services ("Data 2.qvmi"...) are read and removed inside
    // the package itself.
    const QStringList names = QDir(m_packagePath).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden);
    for (const QString &name : names) {
        const QString path = inPackage(name);
        // Deferred, a copy is merged in memory now and removed after the first save.
        const auto done = [&] {
            if (!m_deferWrites)
                QFile::remove(path);
            else if (!m_copiesToRemove.contains(path))
                m_copiesToRemove.append(path);
        };
        if (m_copiesToRemove.contains(path))
            continue;
        if (name.startsWith(QStringLiteral("Data "))) {
            if (name.endsWith(QStringLiteral(".qvmi"))) {
                // A copy we cannot decrypt (another password) or read is kept rather than lost.
                const QVariant copy = decryptArchive(path, true).value;
                if (!isEntryList(copy))
                    continue;
                if (mergeConflictingEntries(m_passwordArray, copy.toList())) {
                    result.merged = true;
                    m_delegate->entriesReplaced();
                    if (m_deferWrites)
                        m_conflictsMerged = true;
                    else
                        save();
                }
            }
            done();
        } else if (name.startsWith(QStringLiteral("Recent Websites "))) {
            if (name.endsWith(QStringLiteral(".qvmi"))) {
                const QVariant copy = decryptArchive(path, true).value;
                if (!isTitleList(copy))
                    continue;
                for (const QVariant &t : copy.toList()) {
                    if (!m_recent.titles().contains(t.toString())) {
                        addRecentWebsite(t.toString());
                        result.merged = true;
                    }
                }
            }
            done();
        }
    }
}

bool PasswordFile::fileChanged() const
{
    return modificationTime(inPackage(kDataCurrent)) != m_lastDataModificationTime;
}

PasswordFile::ReadResult PasswordFile::readPasswordFileDataIfChanged()
{
    return fileChanged() ? readPasswordFileDataAgain(true) : ReadResult();
}

bool PasswordFile::lockPackage()
{
    if (m_packageLockDepth == 0) {
        // A file system that takes no locks (some network ones) still gets its writes.
        if (m_packageLock.lock(m_packagePath, packageLockWaitMs) == DirectoryLock::Result::Busy)
            return false;
    }
    ++m_packageLockDepth;
    return true;
}

void PasswordFile::unlockPackage()
{
    if (m_packageLockDepth > 0 && --m_packageLockDepth == 0)
        m_packageLock.release();
}

PasswordFile::ReadResult PasswordFile::mergeOutsideChanges()
{
    ReadResult result;
    const QString path = inPackage(kDataCurrent);
    QFile f(path);
    if (m_pre20File || !f.open(QIODevice::ReadOnly))
        return result;
    // By content, not by date: two writes within one tick of the file system's clock would
    // share a modification date.
    const QByteArray cipher = f.readAll();
    const QByteArray digest = digestOf(cipher);
    if (digest == m_lastDataDigest)
        return result;
    QByteArray plain = m_crypt->doCrypt(cipher, false);
    // Written under another password, or damaged: what it holds is unknown, so it is kept.
    const QVariant theirs = plain.isNull() ? QVariant() : archive::decodeKeyedArchive(plain);
    plain.fill('\0');
    if (!isEntryList(theirs)) {
        result.unreadable = true;
        return result;
    }
    const EntryList merged = mergeThreeWays(m_lastRead, m_passwordArray, theirs.toList());
    m_lastRead = theirs.toList();
    m_lastDataDigest = digest;
    m_lastDataModificationTime = modificationTime(path);
    if (merged != m_passwordArray) {
        m_passwordArray = merged;
        result.entriesReloaded = true;
        m_delegate->entriesReplaced();
    }
    return result;
}

bool PasswordFile::save()
{
    Locked lock(*this);
    if (lock.ok() && !m_pre20File && mergeOutsideChanges().unreadable) {
        m_delegate->showMessage(kChangedUnreadable);
        return false;
    }
    if (!lock.ok() || !(m_pre20File ? upgradePre20File() : writeEntries())) {
        m_delegate->showMessage(kSaveFailed);
        return false;
    }
    if (m_deferWrites)
        finishDeferredWrites();
    return true;
}

bool PasswordFile::hasPendingWrites() const
{
    return m_pre20File || m_titlesToWrite || m_conflictsMerged || !m_copiesToRemove.isEmpty()
        || !m_newFileCipher.isNull();
}

void PasswordFile::finishDeferredWrites()
{
    // From here on this is a writer like the window: titles are saved as they change.
    m_deferWrites = false;
    m_conflictsMerged = false;
    if (!m_newFileCipher.isNull()) {
        m_newFileCipher = QByteArray();
        secureDelete(inPackage(kData));
    }
    if (m_titlesToWrite && writeTitles())
        m_titlesToWrite = false;
    for (const QString &path : std::as_const(m_copiesToRemove))
        QFile::remove(path);
    m_copiesToRemove.clear();
}

bool PasswordFile::writeEntries()
{
    sortEntries(m_passwordArray);
    QByteArray bytes = archive::encodeKeyedArchive(m_passwordArray);
    // Encrypted from memory: the plaintext never touches the disk.
    const QByteArray cipher = bytes.isEmpty() ? QByteArray() : m_crypt->doCrypt(bytes, true);
    bytes.fill('\0');
    const QString target = inPackage(kDataCurrent);
    if (cipher.isNull() || !writeFileAtomically(target, cipher))
        return false;
    m_lastDataModificationTime = modificationTime(target);
    m_lastDataDigest = digestOf(cipher);
    m_lastRead = m_passwordArray;
    return true;
}

bool PasswordFile::saveRecentWebsites()
{
    // A pre-2.0 file whose upgrade failed keeps its titles in memory until the next save
    // upgrades it: a current titles file beside the old entry file would be half an upgrade.
    if (m_pre20File)
        return false;
    if (m_deferWrites) { // written by the first save
        m_titlesToWrite = true;
        return true;
    }
    Locked lock(*this);
    return lock.ok() && writeTitles();
}

bool PasswordFile::writeTitles()
{
    QVariantList titles;
    for (const QString &t : m_recent.titles())
        titles.append(t);
    QByteArray bytes = archive::encodeKeyedArchive(titles);
    const QString target = inPackage(kRecentCurrent);
    const bool ok = m_crypt->encrypt(bytes, target);
    bytes.fill('\0');
    if (ok) {
        m_lastRecentWebsitesModificationTime = modificationTime(target);
        m_titlesToWrite = false;
    }
    return ok;
}

void PasswordFile::addRecentWebsite(const QString &title)
{
    m_recent.add(title);
    saveRecentWebsites();
}

void PasswordFile::deleteRecentWebsite(const QString &title)
{
    m_recent.remove(title);
    saveRecentWebsites();
}

void PasswordFile::renameRecentWebsite(const QString &from, const QString &to)
{
    m_recent.rename(from, to);
    saveRecentWebsites();
}

void PasswordFile::clearRecentWebsites()
{
    m_recent.clear();
    saveRecentWebsites();
}

bool PasswordFile::changePassword()
{
    QString newPassword;
    if (!getFilePasswordFromUserWithPrompt(kChangePasswordPrompt, false) || !m_delegate->askNewPassword(&newPassword)) {
        m_delegate->showMessage(kPasswordNotChanged);
        return false;
    }
    const QString previousFramis = m_fileFramis;
    m_fileFramis = newPassword;
    // The decryption key stays the old one until the file has the new password: the save
    // reads what others wrote meanwhile with it.
    m_crypt->setKeyFrom(m_fileFramis, true);
    if (!save()) {
        // The file still has the old password: so must the keys.
        m_fileFramis = previousFramis;
        m_crypt->setKeyFrom(m_openingPassword, true);
        m_crypt->setKeyFrom(m_openingPassword, false);
        m_delegate->showMessage(kPasswordNotChanged);
        return false;
    }
    m_crypt->setKeyFrom(m_fileFramis, false);
    saveRecentWebsites();
    if (m_passwordInKeychain) {
        m_crypt->deletePasswordFromKeychain();
        m_crypt->savePasswordInKeychain(m_fileFramis);
    }
    m_openingPassword = m_fileFramis;
    m_delegate->showMessage(kPasswordChanged);
    return true;
}

void PasswordFile::toggleSavePWInKeychain(bool checked)
{
    if (checked) {
        m_crypt->deletePasswordFromKeychain();
        m_passwordInKeychain = false;
        return;
    }
    if (!getFilePasswordFromUserWithPrompt(kKeychainPrompt, true))
        return;
    // Set only on this path, as it always has been: a file created or re-keyed since it was
    // opened has fileFramis, so the save succeeds and the flag stays as it was.
    if (m_crypt->savePasswordInKeychain(m_fileFramis))
        return;
    m_passwordInKeychain = true;
}

QString PasswordFile::packageContaining(const QString &path)
{
    for (QFileInfo info(QDir::cleanPath(QFileInfo(path).absoluteFilePath())); !info.isRoot();
         info = QFileInfo(info.absolutePath())) {
        if (info.suffix() == u"qvm" && info.isDir())
            return info.absoluteFilePath();
    }
    return {};
}

} // namespace tess
