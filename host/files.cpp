/* Files over POSIX descriptors, with 64-bit positions on 32-bit builds too. */
#define _FILE_OFFSET_BITS 64

#include "host/host_internal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>

static_assert(sizeof(off_t) == 8, "file positions must be 64-bit on every build");

namespace qrv::host {
namespace {

thread_local unsigned t_lastError = 0;

struct Disposition {
    unsigned code;
    int openFlags;
    bool creates;
};

/* What each disposition asks of open(2). */
constexpr Disposition kDispositions[] = {
    {QRV_CREATE_NEW, O_CREAT | O_EXCL, true},
    {QRV_CREATE_ALWAYS, O_CREAT | O_TRUNC, true},
    {QRV_OPEN_EXISTING, 0, false},
    {QRV_OPEN_ALWAYS, O_CREAT, true},
    {QRV_TRUNCATE_EXISTING, O_TRUNC, false},
};

const Disposition *findDisposition(unsigned code)
{
    for (const Disposition &d : kDispositions)
        if (d.code == code)
            return &d;
    return nullptr;
}

int accessFlags(unsigned access)
{
    const bool read = (access & QRV_ACCESS_READ) != 0;
    const bool write = (access & QRV_ACCESS_WRITE) != 0;
    if (read && write)
        return O_RDWR;
    return write ? O_WRONLY : O_RDONLY;
}

/* Handles are descriptors; anything else is refused before it reaches a
 * system call. */
bool toDescriptor(osHandle handle, int *fd)
{
    if (handle < 0 || handle > INT_MAX) {
        setLastError(EBADF);
        return false;
    }
    *fd = static_cast<int>(handle);
    return true;
}

int fail(int code)
{
    setLastError(code);
    return 0;
}

/* Large requests go down in pieces that every kernel accepts whole. */
constexpr unsigned kMaxTransfer = 1u << 30;

unsigned chunkOf(unsigned remaining) { return remaining < kMaxTransfer ? remaining : kMaxTransfer; }

/* Moves `count` bytes with `step` (read(2) or write(2)) in pieces, going on
 * after interruptions. A step that moves nothing ends the transfer: with
 * success when `zeroStepError` is 0, else with that error. */
template <typename Byte, typename Step>
int transferAll(osHandle handle, Byte *buffer, unsigned count, unsigned *done, int zeroStepError,
                Step step)
{
    if (done)
        *done = 0;
    int fd;
    if (!toDescriptor(handle, &fd))
        return 0;
    if (!buffer && count)
        return fail(EFAULT);
    unsigned total = 0;
    while (total < count) {
        const ssize_t n = retryInterrupted(
            [&] { return step(fd, buffer + total, chunkOf(count - total)); });
        if (n < 0)
            return fail(errno);
        if (n == 0)
            return zeroStepError ? fail(zeroStepError) : 1;
        total += static_cast<unsigned>(n);
        if (done)
            *done = total;
    }
    return 1;
}

osHandle openResolved(const std::string &path, int flags)
{
    const int fd = retryInterrupted([&] { return open(path.c_str(), flags | O_CLOEXEC, 0666); });
    if (fd < 0) {
        setLastError(errno);
        return QRV_INVALID_FILE;
    }
    struct stat info;
    if (fstat(fd, &info) == 0 && S_ISDIR(info.st_mode)) {
        close(fd);
        setLastError(EISDIR);
        return QRV_INVALID_FILE;
    }
    return fd;
}

} // namespace

void setLastError(int code) { t_lastError = static_cast<unsigned>(code); }

unsigned builtinOsGetLastError(void) { return t_lastError; }

/* Sharing is not enforced on this platform: every file may be opened by
 * others at once, which is what share 3 asks for. */
osHandle builtinOsCreateFile(const char *path, unsigned access, unsigned share, void *security,
                             unsigned disposition, unsigned flags, void *templ)
{
    (void)share;
    (void)security;
    (void)flags;
    (void)templ;
    const Disposition *d = findDisposition(disposition);
    if (!path || !d) {
        setLastError(EINVAL);
        return QRV_INVALID_FILE;
    }
    const int accessMode = accessFlags(access);
    if ((d->openFlags & O_TRUNC) && accessMode == O_RDONLY) {
        setLastError(EINVAL);
        return QRV_INVALID_FILE;
    }
    try {
        if (d->creates && isBareName(path) && !makeDirectories(userDirectory())) {
            setLastError(errno);
            return QRV_INVALID_FILE;
        }
        return openResolved(resolveUserPath(path), accessMode | d->openFlags);
    } catch (...) {
        setLastError(ENOMEM);
        return QRV_INVALID_FILE;
    }
}

/* The descriptor is gone after close(2) even when it reports EINTR, so no
 * retry. */
int builtinOsCloseFile(osHandle handle)
{
    int fd;
    if (!toDescriptor(handle, &fd))
        return 0;
    if (close(fd) != 0 && errno != EINTR)
        return fail(errno);
    return 1;
}

/* Reads until `count` bytes or the end of the file: a short count with a
 * non-zero result means the end was reached. */
int builtinOsReadFile(osHandle handle, void *buffer, unsigned count, unsigned *done,
                      void *overlapped)
{
    (void)overlapped;
    return transferAll(handle, static_cast<char *>(buffer), count, done, 0, ::read);
}

/* A write that moves nothing is a fault, never an end. */
int builtinOsWriteFile(osHandle handle, const void *buffer, unsigned count, unsigned *done,
                       void *overlapped)
{
    (void)overlapped;
    return transferAll(handle, static_cast<const char *>(buffer), count, done, EIO, ::write);
}

unsigned long long builtinOsSeek(osHandle handle, unsigned long long position)
{
    constexpr unsigned long long kFailed = ~0ull;
    int fd;
    if (!toDescriptor(handle, &fd))
        return kFailed;
    if (position > static_cast<unsigned long long>(INT64_MAX)) {
        setLastError(EINVAL);
        return kFailed;
    }
    off_t reached = lseek(fd, static_cast<off_t>(position), SEEK_SET);
    if (reached < 0) {
        setLastError(errno);
        return kFailed;
    }
    return static_cast<unsigned long long>(reached);
}

int builtinOsGetFileSizeEx(osHandle handle, unsigned long long *size)
{
    int fd;
    if (!toDescriptor(handle, &fd))
        return 0;
    if (!size)
        return fail(EFAULT);
    struct stat info;
    if (fstat(fd, &info) != 0)
        return fail(errno);
    *size = static_cast<unsigned long long>(info.st_size);
    return 1;
}

int builtinOsFileExists(const char *path)
{
    if (!path || path[0] == '\0')
        return 0;
    try {
        struct stat info;
        return stat(resolveUserPath(path).c_str(), &info) == 0 && S_ISREG(info.st_mode);
    } catch (...) {
        return 0;
    }
}

} // namespace qrv::host
