#include "Crypto.h"

#include <QDir>
#include <QFileInfo>

#include <gcrypt.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace tess {

namespace {

constexpr std::size_t kBlock = 64;
constexpr std::size_t kDigest = 20;

void wipe(void *p, std::size_t n)
{
    volatile unsigned char *v = static_cast<volatile unsigned char *>(p);
    while (n--)
        *v++ = 0;
}

// HMAC with the pads' hash states prepared once, for the thousands of HMACs of one derivation.
// Gives exactly what hmac_sha1 gives for the same key.
class PreparedHmac {
public:
    PreparedHmac(const unsigned char *key, std::size_t keyLength)
    {
        unsigned char k[kBlock] = {};
        if (keyLength > kBlock) {
            gcry_md_hash_buffer(GCRY_MD_SHA1, k, key, keyLength);
        } else {
            std::memcpy(k, key, keyLength);
        }
        unsigned char pad[kBlock];
        gcry_md_open(&m_inner, GCRY_MD_SHA1, 0);
        gcry_md_open(&m_outer, GCRY_MD_SHA1, 0);
        for (std::size_t i = 0; i < kBlock; ++i)
            pad[i] = k[i] ^ 0x36;
        gcry_md_write(m_inner, pad, kBlock);
        for (std::size_t i = 0; i < kBlock; ++i)
            pad[i] = k[i] ^ 0x5c;
        gcry_md_write(m_outer, pad, kBlock);
        wipe(k, sizeof k);
        wipe(pad, sizeof pad);
    }
    ~PreparedHmac()
    {
        gcry_md_close(m_inner);
        gcry_md_close(m_outer);
    }
    PreparedHmac(const PreparedHmac &) = delete;
    PreparedHmac &operator=(const PreparedHmac &) = delete;

    void compute(const unsigned char *text, std::size_t length, unsigned char out[kDigest])
    {
        gcry_md_hd_t h;
        gcry_md_copy(&h, m_inner);
        gcry_md_write(h, text, length);
        unsigned char inner[kDigest];
        std::memcpy(inner, gcry_md_read(h, GCRY_MD_SHA1), kDigest);
        gcry_md_close(h);
        gcry_md_copy(&h, m_outer);
        gcry_md_write(h, inner, kDigest);
        std::memcpy(out, gcry_md_read(h, GCRY_MD_SHA1), kDigest);
        gcry_md_close(h);
    }

private:
    gcry_md_hd_t m_inner = nullptr;
    gcry_md_hd_t m_outer = nullptr;
};

} // namespace

void initCrypto()
{
    static const bool done = [] {
        gcry_check_version(nullptr);
        gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
        gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
        return true;
    }();
    (void)done;
}

void hmac_sha1(const unsigned char *text, std::size_t textLength, const unsigned char *key, std::size_t keyLength,
               unsigned char digest[20])
{
    initCrypto();
    unsigned char k[kBlock] = {};
    if (keyLength > kBlock) // 65 bytes or more: hash it down to 20
        gcry_md_hash_buffer(GCRY_MD_SHA1, k, key, keyLength);
    else
        std::memcpy(k, key, keyLength);
    unsigned char pad[kBlock];
    gcry_md_hd_t h;
    gcry_md_open(&h, GCRY_MD_SHA1, 0);
    for (std::size_t i = 0; i < kBlock; ++i)
        pad[i] = k[i] ^ 0x36;
    gcry_md_write(h, pad, kBlock);
    gcry_md_write(h, text, textLength);
    unsigned char inner[kDigest];
    std::memcpy(inner, gcry_md_read(h, GCRY_MD_SHA1), kDigest);
    gcry_md_reset(h);
    for (std::size_t i = 0; i < kBlock; ++i)
        pad[i] = k[i] ^ 0x5c;
    gcry_md_write(h, pad, kBlock);
    gcry_md_write(h, inner, kDigest);
    std::memcpy(digest, gcry_md_read(h, GCRY_MD_SHA1), kDigest);
    gcry_md_close(h);
    wipe(k, sizeof k);
    wipe(pad, sizeof pad);
    wipe(inner, sizeof inner);
}

int pkcs5_pbkdf2(const char *password, std::size_t passwordLength, const unsigned char *salt, std::size_t saltLength,
                 unsigned char *output, std::size_t outputLength, unsigned int rounds)
{
    if (outputLength == 0 || rounds == 0)
        return -1;
    initCrypto();
    PreparedHmac hmac(reinterpret_cast<const unsigned char *>(password), passwordLength);
    // The salt followed by a 4-byte big-endian block counter.
    std::vector<unsigned char> block(salt, salt + saltLength);
    block.resize(saltLength + 4);
    unsigned char u[kDigest], t[kDigest];
    for (std::uint32_t count = 1; outputLength > 0; ++count) {
        block[saltLength + 0] = (count >> 24) & 0xff;
        block[saltLength + 1] = (count >> 16) & 0xff;
        block[saltLength + 2] = (count >> 8) & 0xff;
        block[saltLength + 3] = count & 0xff;
        hmac.compute(block.data(), block.size(), u);
        std::memcpy(t, u, kDigest);
        for (unsigned int r = 1; r < rounds; ++r) {
            hmac.compute(u, kDigest, u);
            for (std::size_t i = 0; i < kDigest; ++i)
                t[i] ^= u[i];
        }
        const std::size_t n = std::min(outputLength, kDigest);
        std::memcpy(output, t, n);
        output += n;
        outputLength -= n;
    }
    wipe(block.data(), block.size());
    wipe(u, sizeof u);
    wipe(t, sizeof t);
    return 0;
}

void secureDelete(const QString &path)
{
    const QByteArray native = QFile::encodeName(path);
    const int fd = ::open(native.constData(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0) {
        struct stat st;
        if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
            static const char zeros[4096] = {};
            off_t left = st.st_size;
            while (left > 0) {
                const ssize_t n = ::write(fd, zeros, std::size_t(std::min<off_t>(left, sizeof zeros)));
                if (n <= 0)
                    break;
                left -= n;
            }
            ::fsync(fd);
        }
        ::close(fd);
    }
    ::unlink(native.constData());
}

bool writeFileAtomically(const QString &path, const QByteArray &bytes)
{
    const QFileInfo info(path);
    const QByteArray dir = QFile::encodeName(info.absolutePath());
    QByteArray tmpl = QFile::encodeName(info.absolutePath() + QStringLiteral("/.") + info.fileName()
                                        + QStringLiteral(".XXXXXX"));
    const int fd = ::mkostemp(tmpl.data(), O_CLOEXEC);
    if (fd < 0)
        return false;
    bool ok = true;
    const char *p = bytes.constData();
    qsizetype left = bytes.size();
    while (ok && left > 0) {
        const ssize_t n = ::write(fd, p, std::size_t(left));
        if (n < 0 && errno == EINTR)
            continue;
        ok = n > 0;
        p += n;
        left -= n;
    }
    // On disk before it takes the old file's name: a crash leaves the old file or the new.
    ok = ok && ::fchmod(fd, 0600) == 0 && ::fsync(fd) == 0;
    ok = (::close(fd) == 0) && ok;
    if (ok)
        ok = ::rename(tmpl.constData(), QFile::encodeName(path).constData()) == 0;
    if (!ok) {
        ::unlink(tmpl.constData());
        return false;
    }
    // And the rename itself.
    const int dfd = ::open(dir.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        ::fsync(dfd);
        ::close(dfd);
    }
    return true;
}

} // namespace tess
