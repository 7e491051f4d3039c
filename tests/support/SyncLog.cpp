// An LD_PRELOAD shim for the durability tests: notes every fsync, fdatasync and rename of the
// process, in order, in the file named by $TESSALINE_SYNC_LOG ("fsync PATH", "rename FROM TO"),
// then does the real call.

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace {

void note(const char *what, const char *a, const char *b = nullptr)
{
    const char *log = getenv("TESSALINE_SYNC_LOG");
    if (!log)
        return;
    const int fd = open(log, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        return;
    char line[8192];
    const int n = b ? snprintf(line, sizeof line, "%s %s\t%s\n", what, a, b) : snprintf(line, sizeof line, "%s %s\n", what, a);
    if (n > 0 && write(fd, line, size_t(n) < sizeof line ? size_t(n) : sizeof line - 1) < 0) {
    }
    close(fd);
}

void noteDescriptor(const char *what, int fd)
{
    char link[64], path[4096];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t n = readlink(link, path, sizeof path - 1);
    path[n > 0 ? n : 0] = '\0';
    note(what, path);
}

template <typename F>
F real(const char *name)
{
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

int fsync(int fd)
{
    noteDescriptor("fsync", fd);
    return real<int (*)(int)>("fsync")(fd);
}

int fdatasync(int fd)
{
    noteDescriptor("fsync", fd);
    return real<int (*)(int)>("fdatasync")(fd);
}

int rename(const char *from, const char *to)
{
    note("rename", from, to);
    return real<int (*)(const char *, const char *)>("rename")(from, to);
}

int renameat(int fromDir, const char *from, int toDir, const char *to)
{
    note("rename", from, to);
    return real<int (*)(int, const char *, int, const char *)>("renameat")(fromDir, from, toDir, to);
}

} // extern "C"
