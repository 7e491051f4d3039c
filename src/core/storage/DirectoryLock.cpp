#include "DirectoryLock.h"

#include <QDeadlineTimer>
#include <QFile>

#include <cerrno>
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

} // namespace tess
