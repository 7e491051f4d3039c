#pragma once
// Advisory locks on directories (flock on a descriptor of the directory itself), and the
// private scratch directories "~/.QVM.XXXXXXXX" that every holder keeps locked for its life.
//
// A lock on the directory leaves no file behind (nothing another program, or the macOS
// program reading the same package from a synchronised folder, could trip over), works on a
// read-only package, and dies with its process, so a crashed holder never blocks anyone.

#include <QString>

namespace tess {

class DirectoryLock {
public:
    enum class Result {
        Locked,      // held until release() or destruction
        Busy,        // another holder kept it for the whole wait
        Unsupported, // the directory cannot be opened or its file system takes no locks
    };

    DirectoryLock() = default;
    ~DirectoryLock() { release(); }
    DirectoryLock(const DirectoryLock &) = delete;
    DirectoryLock &operator=(const DirectoryLock &) = delete;

    // Takes the exclusive lock, waiting up to waitMs (0: one try).
    Result lock(const QString &directory, int waitMs);
    void release();
    bool isLocked() const { return m_fd >= 0; }
    // Whether the locked directory is still the one at `directory` (not removed meanwhile).
    bool stillAt(const QString &directory) const;

private:
    int m_fd = -1;
};

// Makes a new scratch directory in the home folder (mode 0700) and locks it for as long as
// `lock` holds it. An empty path when it cannot be made; *error then says why.
QString makeLockedScratchDirectory(DirectoryLock *lock, QString *error);

// The start-up clean-up: removes the scratch directories of the home folder that no live
// process holds. Answers how many were removed.
int removeUnheldScratchDirectories();

} // namespace tess
