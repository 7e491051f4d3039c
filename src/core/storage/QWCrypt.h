#pragma once
// One password file's cipher: fixed IV and salt of its format, the two AES-256 keys derived
// from the file password, and the file password's keychain item.

#include <QByteArray>
#include <QString>

#include <array>

namespace tess {

class Keychain;

class QWCrypt {
public:
    // The two parameter sets: current files (".qvmi") and pre-2.0 files (".qvme").
    static const std::array<unsigned char, 16> kCurrentIV;
    static const char *const kCurrentSalt;
    static const std::array<unsigned char, 16> kPre20IV;
    static const char *const kPre20Salt;

    // initForProgram:name: — the keychain item's account and service.
    QWCrypt(const QString &program, const QString &name, Keychain *keychain);
    ~QWCrypt();
    QWCrypt(const QWCrypt &) = delete;
    QWCrypt &operator=(const QWCrypt &) = delete;

    void setIV(const std::array<unsigned char, 16> &iv, const char *salt);
    void setCurrentParameters() { setIV(kCurrentIV, kCurrentSalt); }
    void setPre20Parameters() { setIV(kPre20IV, kPre20Salt); }

    // Derives theKeyE (encrypt) or theKeyD from the password's UTF-8 bytes.
    void setKeyFrom(const QString &password, bool encrypt);
    void setKeyAndSaveInKeychainFrom(const QString &password, bool encrypt);

    int actuallyGetPasswordFromKeychain();
    int getPasswordFromKeychain();
    bool passwordIsInKeychain(const QString &password);
    void deletePasswordFromKeychain();
    bool savePasswordInKeychain(const QString &password);

    bool encrypt(const QByteArray &plaintext, const QString &path);
    bool decrypt(const QString &source, const QString &destination, bool andDelete);
    // One AES-256-CBC operation with PKCS#7 padding; a null array on failure (bad padding:
    // the wrong key).
    QByteArray doCrypt(const QByteArray &data, bool encrypt) const;
    // Whether this many bytes can be encrypted data at all: whole blocks, at least one.
    static bool isCipherLength(qint64 size);

    QString theFramis() const { return m_framis; }
    QString program() const { return m_program; }
    QString name() const { return m_name; }

private:
    // The keychain path measures the password in UTF-16 units, not bytes: a password with
    // non-ASCII characters derives a key from a truncated byte string there. Kept so that
    // files keyed either way behave as they always have.
    void deriveFromKeychainPassword(const QString &password);
    void derive(const QByteArray &bytes, std::size_t length, unsigned char *key) const;

    QString m_program;
    QString m_name;
    Keychain *m_keychain;
    QByteArray m_salt;
    std::array<unsigned char, 16> m_iv{};
    std::array<unsigned char, 32> m_keyE{};
    std::array<unsigned char, 32> m_keyD{};
    QString m_framis;
};

} // namespace tess
