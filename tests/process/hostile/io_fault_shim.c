/* Loaded with LD_PRELOAD into the discover process: makes one kind of file operation fail with
 * EIO, for the files of one directory only, the way a failing disk would.
 *   DISCOVER_FAULT_OP   write, fsync, close or rename
 *   DISCOVER_FAULT_DIR  the directory (canonical path) whose files fail
 * write, fsync/fdatasync and close fail for descriptors of files in that directory (also
 * anonymous ones made there); rename and renameat fail when the new name lies in it. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int faulting(const char* op)
{
    const char* wanted = getenv("DISCOVER_FAULT_OP");
    return wanted && strcmp(wanted, op) == 0;
}

static int inFaultDir(const char* path)
{
    const char* dir = getenv("DISCOVER_FAULT_DIR");
    if (!dir || !*dir || !path)
        return 0;
    const size_t length = strlen(dir);
    return strncmp(path, dir, length) == 0 && path[length] == '/';
}

static int fdInFaultDir(int fd)
{
    char link[64];
    char target[PATH_MAX];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t n = readlink(link, target, sizeof target - 1);
    if (n <= 0)
        return 0;
    target[n] = '\0';
    return inFaultDir(target);
}

static int absoluteInFaultDir(int dirfd, const char* path)
{
    if (path && path[0] == '/')
        return inFaultDir(path);
    char base[PATH_MAX];
    if (dirfd == AT_FDCWD) {
        if (!getcwd(base, sizeof base))
            return 0;
    } else {
        char link[64];
        snprintf(link, sizeof link, "/proc/self/fd/%d", dirfd);
        const ssize_t n = readlink(link, base, sizeof base - 1);
        if (n <= 0)
            return 0;
        base[n] = '\0';
    }
    char full[2 * PATH_MAX + 2];
    snprintf(full, sizeof full, "%s/%s", base, path ? path : "");
    return inFaultDir(full);
}

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

ssize_t write(int fd, const void* buffer, size_t count)
{
    if (faulting("write") && fdInFaultDir(fd)) {
        errno = EIO;
        return -1;
    }
    return REAL(write)(fd, buffer, count);
}

int fsync(int fd)
{
    if (faulting("fsync") && fdInFaultDir(fd)) {
        errno = EIO;
        return -1;
    }
    return REAL(fsync)(fd);
}

int fdatasync(int fd)
{
    if (faulting("fsync") && fdInFaultDir(fd)) {
        errno = EIO;
        return -1;
    }
    return REAL(fdatasync)(fd);
}

int close(int fd)
{
    /* The descriptor is gone either way, as after a real failing close. */
    const int failing = faulting("close") && fdInFaultDir(fd);
    const int result = REAL(close)(fd);
    if (failing) {
        errno = EIO;
        return -1;
    }
    return result;
}

int rename(const char* from, const char* to)
{
    if (faulting("rename") && absoluteInFaultDir(AT_FDCWD, to)) {
        errno = EIO;
        return -1;
    }
    return REAL(rename)(from, to);
}

int renameat(int fromDir, const char* from, int toDir, const char* to)
{
    if (faulting("rename") && absoluteInFaultDir(toDir, to)) {
        errno = EIO;
        return -1;
    }
    return REAL(renameat)(fromDir, from, toDir, to);
}
