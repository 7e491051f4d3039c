#include "FileSupport.h"

#include "core/archive/KeyedArchive.h"
#include "core/storage/QWCrypt.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QDeadlineTimer>
#include <QProcess>
#include <QThread>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

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

QByteArray readBytes(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
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

QByteArray packageDigest(const QString &path)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    QDirIterator it(path, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    QStringList names;
    while (it.hasNext())
        names.append(it.next());
    names.sort();
    for (const QString &name : std::as_const(names)) {
        hash.addData(QFile::encodeName(name));
        hash.addData(QByteArrayView("\0", 1));
        hash.addData(readBytes(name));
    }
    return hash.result();
}

QStringList scratchDirectories()
{
    return QDir::home().entryList({QStringLiteral(".QVM.*")}, QDir::Dirs | QDir::Hidden);
}

QStringList filesHolding(const QByteArray &marker, const QStringList &roots)
{
    QStringList found;
    for (const QString &root : roots) {
        QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString f = it.next();
            QFile file(f);
            if (file.open(QIODevice::ReadOnly) && file.readAll().contains(marker))
                found.append(f);
        }
    }
    return found;
}

QStringList entryNames(const QVariantList &list)
{
    QStringList out;
    for (const QVariant &e : list)
        out.append(e.toMap().value(QStringLiteral("Path")).toString());
    return out;
}

CliRun runCli(const QStringList &args, const QByteArray &input)
{
    QProcess p;
    p.setChildProcessModifier([] { ::setsid(); }); // no terminal to prompt on
    p.start(qEnvironmentVariable("TESSALINE_BUILD_DIR") + QStringLiteral("/tessaline-cli"), args);
    p.write(input);
    p.closeWriteChannel();
    p.waitForFinished(120000);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(), p.readAllStandardError()};
}

CliOnTerminal::CliOnTerminal(const QStringList &args, const QByteArray &input)
{
    m_master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (m_master < 0 || ::grantpt(m_master) != 0 || ::unlockpt(m_master) != 0)
        return;
    const QByteArray slave = ::ptsname(m_master);
    m_process.setChildProcessModifier([slave] {
        ::setsid();
        const int fd = ::open(slave.constData(), O_RDWR);
        if (fd >= 0)
            ::ioctl(fd, TIOCSCTTY, 0);
    });
    m_process.start(qEnvironmentVariable("TESSALINE_BUILD_DIR") + QStringLiteral("/tessaline-cli"), args);
    m_process.write(input);
    m_process.closeWriteChannel();
}

CliOnTerminal::~CliOnTerminal()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished();
    }
    if (m_master >= 0)
        ::close(m_master);
}

void CliOnTerminal::drain()
{
    char buf[4096];
    pollfd p{m_master, POLLIN, 0};
    while (::poll(&p, 1, 0) > 0 && (p.revents & POLLIN)) {
        const ssize_t n = ::read(m_master, buf, sizeof buf);
        if (n <= 0)
            break;
        m_screen.append(buf, n);
    }
}

bool CliOnTerminal::waitForScreen(const QByteArray &text, int ms)
{
    const QDeadlineTimer deadline(ms);
    for (;;) {
        drain();
        const qsizetype at = m_screen.indexOf(text, m_seen);
        if (at >= 0) {
            m_seen = at + text.size();
            return true;
        }
        if (deadline.hasExpired() || m_master < 0)
            return false;
        pollfd p{m_master, POLLIN, 0};
        ::poll(&p, 1, 50);
    }
}

void CliOnTerminal::type(const QByteArray &keys)
{
    if (m_master >= 0 && ::write(m_master, keys.constData(), size_t(keys.size())) < 0)
        return;
}

bool CliOnTerminal::answer(const QList<QPair<QByteArray, QByteArray>> &promptsAndLines)
{
    for (const auto &[prompt, line] : promptsAndLines) {
        if (!waitForScreen(prompt))
            return false;
        type(line + '\n');
    }
    return true;
}

int CliOnTerminal::finish(int ms)
{
    const bool ended = m_process.waitForFinished(ms);
    drain();
    return ended && m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

QVariantList listOnDisk(const QString &path, const QString &password)
{
    ScriptedDelegate d;
    d.passwords = {password};
    PasswordFile file(path, nullptr, &d);
    if (file.open(PasswordFile::KeychainUse::Never) != PasswordFile::OpenResult::Opened)
        return {};
    return file.passwordArray();
}

bool changeOutside(const QString &path, const std::function<void(EntryList &)> &change)
{
    ScriptedDelegate d;
    d.passwords = {"pw"};
    PasswordFile other(path, nullptr, &d);
    if (other.open(PasswordFile::KeychainUse::Never) != PasswordFile::OpenResult::Opened)
        return false;
    change(other.passwordArray());
    const bool saved = other.save();
    other.close();
    return saved;
}

} // namespace tess::testsupport
