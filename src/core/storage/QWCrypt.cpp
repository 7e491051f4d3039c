#include "QWCrypt.h"

#include "core/storage/Crypto.h"
#include "platform/Keychain.h"

#include <QFile>

#include <gcrypt.h>

#include <cstring>

namespace tess {

const std::array<unsigned char, 16> QWCrypt::kCurrentIV = {0x5a, 0x1c, 0x83, 0xf0, 0xe7, 0x24, 0x6b, 0x9d,
                                                           0xd0, 0x42, 0x17, 0xc6, 0xa9, 0x38, 0x5e, 0x11};
const char *const QWCrypt::kCurrentSalt = "mxtaBQR5";
const std::array<unsigned char, 16> QWCrypt::kPre20IV = {};
const char *const QWCrypt::kPre20Salt = "plumTart";

namespace {
constexpr unsigned int kRounds = 1000;
constexpr int kBlock = 16;
} // namespace

QWCrypt::QWCrypt(const QString &program, const QString &name, Keychain *keychain)
    : m_program(program), m_name(name), m_keychain(keychain)
{
    initCrypto();
}

QWCrypt::~QWCrypt()
{
    std::memset(m_keyE.data(), 0, m_keyE.size());
    std::memset(m_keyD.data(), 0, m_keyD.size());
}

void QWCrypt::setIV(const std::array<unsigned char, 16> &iv, const char *salt)
{
    m_iv = iv;
    m_salt = QByteArray(salt);
}

void QWCrypt::derive(const QByteArray &bytes, std::size_t length, unsigned char *key) const
{
    pkcs5_pbkdf2(bytes.constData(), length, reinterpret_cast<const unsigned char *>(m_salt.constData()),
                 std::size_t(m_salt.size()), key, 32, kRounds);
}

void QWCrypt::setKeyFrom(const QString &password, bool encrypt)
{
    QByteArray utf8 = password.toUtf8();
    derive(utf8, std::size_t(utf8.size()), encrypt ? m_keyE.data() : m_keyD.data());
    utf8.fill('\0');
}

void QWCrypt::setKeyAndSaveInKeychainFrom(const QString &password, bool encrypt)
{
    setKeyFrom(password, encrypt);
    savePasswordInKeychain(password);
}

void QWCrypt::deriveFromKeychainPassword(const QString &password)
{
    QByteArray utf8 = password.toUtf8();
    const std::size_t length = std::min<std::size_t>(std::size_t(password.size()), std::size_t(utf8.size()));
    derive(utf8, length, m_keyE.data());
    m_keyD = m_keyE;
    utf8.fill('\0');
}

int QWCrypt::actuallyGetPasswordFromKeychain()
{
    if (!m_keychain)
        return Keychain::ItemNotFound;
    QByteArray secret;
    const int status = m_keychain->find(m_name, m_program, &secret);
    if (status == Keychain::Found)
        m_framis = QString::fromUtf8(secret);
    secret.fill('\0');
    return status;
}

int QWCrypt::getPasswordFromKeychain()
{
    const int status = actuallyGetPasswordFromKeychain();
    if (status == Keychain::Found)
        deriveFromKeychainPassword(m_framis);
    return status;
}

bool QWCrypt::passwordIsInKeychain(const QString &password)
{
    return actuallyGetPasswordFromKeychain() == Keychain::Found && m_framis == password;
}

void QWCrypt::deletePasswordFromKeychain()
{
    if (m_keychain)
        m_keychain->remove(m_name, m_program);
}

bool QWCrypt::savePasswordInKeychain(const QString &password)
{
    if (password.isNull() || !m_keychain)
        return false;
    m_keychain->remove(m_name, m_program);
    if (m_keychain->add(m_name, m_program, password.toUtf8()) != Keychain::Found)
        return false;
    deriveFromKeychainPassword(password);
    return true;
}

QByteArray QWCrypt::doCrypt(const QByteArray &data, bool encrypt) const
{
    gcry_cipher_hd_t h;
    if (gcry_cipher_open(&h, GCRY_CIPHER_AES256, GCRY_CIPHER_MODE_CBC, 0))
        return {};
    const auto &key = encrypt ? m_keyE : m_keyD;
    QByteArray out;
    bool ok = !gcry_cipher_setkey(h, key.data(), key.size()) && !gcry_cipher_setiv(h, m_iv.data(), m_iv.size());
    if (ok && encrypt) {
        // PKCS#7: always pad, a whole block when the data is already a multiple of 16.
        const int pad = kBlock - int(data.size() % kBlock);
        out = data;
        out.append(pad, char(pad));
        ok = !gcry_cipher_encrypt(h, out.data(), size_t(out.size()), nullptr, 0);
    } else if (ok) {
        ok = isCipherLength(data.size());
        if (ok) {
            out = data;
            ok = !gcry_cipher_decrypt(h, out.data(), size_t(out.size()), nullptr, 0);
        }
        if (ok) {
            const int pad = static_cast<unsigned char>(out.back());
            ok = pad >= 1 && pad <= kBlock;
            for (int i = 1; ok && i <= pad; ++i)
                ok = static_cast<unsigned char>(out[out.size() - i]) == pad;
            if (ok)
                out.chop(pad);
        }
        if (!ok)
            out.fill('\0');
    }
    gcry_cipher_close(h);
    if (!ok)
        return {};
    if (out.isNull())
        out = QByteArray(""); // an empty plaintext is a result, not a failure
    return out;
}

bool QWCrypt::isCipherLength(qint64 size)
{
    return size >= kBlock && size % kBlock == 0;
}

bool QWCrypt::encrypt(const QByteArray &plaintext, const QString &path)
{
    const QByteArray cipher = doCrypt(plaintext, true);
    if (cipher.isNull())
        return false;
    return writeFileAtomically(path, cipher);
}

bool QWCrypt::decrypt(const QString &source, const QString &destination, bool andDelete)
{
    QFile in(source);
    if (!in.open(QIODevice::ReadOnly))
        return false;
    const QByteArray cipher = in.readAll();
    in.close();
    QByteArray plain = doCrypt(cipher, false);
    if (plain.isNull())
        return false;
    const bool written = writeFileAtomically(destination, plain);
    plain.fill('\0');
    if (!written)
        return false;
    if (andDelete)
        secureDelete(source);
    return true;
}

} // namespace tess
