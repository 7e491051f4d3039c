#include "DirectoryLock.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace tess {

namespace {

void pause(int ms)
{
    const timespec t{0, long(ms) * 1000000L};
    ::nanosleep(&t, nullptr);
}

} // namespace

DirectoryLock::Result DirectoryLock::lock(const QString &directory, int waitMs)
{
    release();
    const int fd = ::open(QFile::encodeName(directory).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return Result::Unsupported;
    const QDeadlineTimer deadline(waitMs);
    int nap = 2;
    for (;;) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
            m_fd = fd;
            return Result::Locked;
        }
        if (errno == EINTR)
            continue;
        if (errno != EWOULDBLOCK) {
            ::close(fd);
            return Result::Unsupported;
        }
        if (deadline.hasExpired()) {
            ::close(fd);
            return Result::Busy;
        }
        pause(int(std::min<qint64>(nap, std::max<qint64>(1, deadline.remainingTime()))));
        nap = std::min(nap * 2, 50);
    }
}

void DirectoryLock::release()
{
    if (m_fd >= 0)
        ::close(m_fd); // closing the last descriptor drops the lock
    m_fd = -1;
}

bool DirectoryLock::stillAt(const QString &directory) const
{
    struct stat held, now;
    return m_fd >= 0 && ::fstat(m_fd, &held) == 0 && held.st_nlink > 0
           && ::stat(QFile::encodeName(directory).constData(), &now) == 0 && now.st_dev == held.st_dev
           && now.st_ino == held.st_ino;
}

QString makeLockedScratchDirectory(DirectoryLock *lock, QString *error)
{
    for (int attempt = 0; attempt < 10; ++attempt) {
        QByteArray tmpl = QFile::encodeName(QDir::homePath() + QStringLiteral("/.QVM.XXXXXXXX"));
        if (!::mkdtemp(tmpl.data())) { // mode 0700
            *error = QString::fromLocal8Bit(std::strerror(errno));
            return {};
        }
        const QString path = QFile::decodeName(tmpl);
        switch (lock->lock(path, 5000)) {
        case DirectoryLock::Result::Locked:
            // A clean-up in another process may have taken the new directory before we
            // locked it; then it is gone and we start again.
            if (lock->stillAt(path))
                return path;
            lock->release();
            break;
        case DirectoryLock::Result::Unsupported:
            // No locks here (some network file systems): the clean-up cannot lock it either,
            // and leaves it alone.
            return path;
        case DirectoryLock::Result::Busy:
            break;
        }
    }
    *error = QStringLiteral("it was removed as soon as it was made");
    return {};
}

int removeUnheldScratchDirectories()
{
    int removed = 0;
    const QFileInfoList found = QDir::home().entryInfoList({QStringLiteral(".QVM.*")},
                                                           QDir::Dirs | QDir::Files | QDir::Hidden | QDir::System);
    for (const QFileInfo &fi : found) {
        const QString path = fi.absoluteFilePath();
        if (!fi.isDir() || fi.isSymLink()) {
            if (QFile::remove(path))
                ++removed;
            continue;
        }
        // A live holder (a window, a command in progress) keeps its directory locked.
        DirectoryLock lock;
        if (lock.lock(path, 0) != DirectoryLock::Result::Locked)
            continue;
        if (QDir(path).removeRecursively())
            ++removed;
    }
    return removed;
}

} // namespace tess
