/* The replaceable service table, the public entry points that go through
 * it, and memory. */
#include "host/host_internal.h"

#include <cstdlib>
#include <cstring>

namespace qrv::host {
namespace {

/* Every replaceable service, once; the table and its merge are built from it. */
#define QRV_HOST_SERVICE_LIST(X)                                                            \
    X(alloc) X(free) X(logLine) X(cfgOpen) X(cfgClose) X(cfgValueDword) X(cfgValueString)   \
    X(cfgDeleteValue) X(osCreateFile) X(osCloseFile) X(osReadFile) X(osWriteFile) X(osSeek) \
    X(osGetFileSizeEx) X(osGetLastError) X(osFileExists) X(osGetMs) X(osSleepMicroseconds)

constexpr qrvHostServices kBuiltins = {
    builtinAlloc,          builtinFree,           builtinLogLine,
    builtinCfgOpen,        builtinCfgClose,       builtinCfgValueDword,
    builtinCfgValueString, builtinCfgDeleteValue, builtinOsCreateFile,
    builtinOsCloseFile,    builtinOsReadFile,     builtinOsWriteFile,
    builtinOsSeek,         builtinOsGetFileSizeEx, builtinOsGetLastError,
    builtinOsFileExists,   builtinOsGetMs,        builtinOsSleepMicroseconds,
};

/* Constant-initialised: no start-up code runs before the first call. */
qrvHostServices g_active = kBuiltins;

}  // namespace

const qrvHostServices &activeServices() { return g_active; }

bool builtinSinkActive() { return g_active.logLine == kBuiltins.logLine; }

/* malloc(0) may return null; a zero-byte request still gets its own block so
 * that null always means failure. */
void *builtinAlloc(size_t size) { return std::malloc(size ? size : 1); }

void builtinFree(void *block) { std::free(block); }

}  // namespace qrv::host

using qrv::host::activeServices;

void qrvSetHostServices(const qrvHostServices *services)
{
    using qrv::host::g_active;
    using qrv::host::kBuiltins;
    if (!services) {
        g_active = kBuiltins;
        return;
    }
#define QRV_TAKE_SERVICE(name) g_active.name = services->name ? services->name : kBuiltins.name;
    QRV_HOST_SERVICE_LIST(QRV_TAKE_SERVICE)
#undef QRV_TAKE_SERVICE
}

void qrvResetHostServices(void) { qrvSetHostServices(nullptr); }

void *hostAlloc(size_t size) { return activeServices().alloc(size); }

void hostFree(void *block)
{
    if (block)
        activeServices().free(block);
}

void hostCopyMemory(void *dst, const void *src, unsigned count)
{
    if (count)
        std::memcpy(dst, src, count);
}

void hostZeroMemory(void *dst, unsigned count)
{
    if (count)
        std::memset(dst, 0, count);
}

cfgHandle cfgOpen(const char *path, int flags) { return activeServices().cfgOpen(path, flags); }

int cfgClose(cfgHandle handle, int save) { return activeServices().cfgClose(handle, save); }

int cfgValueDword(cfgHandle handle, const char *keyPath, const char *valueName, unsigned *value,
                  int direction)
{
    return activeServices().cfgValueDword(handle, keyPath, valueName, value, direction);
}

int cfgValueString(cfgHandle handle, const char *keyPath, const char *valueName, char *buffer,
                   unsigned *size, int direction)
{
    return activeServices().cfgValueString(handle, keyPath, valueName, buffer, size, direction);
}

int cfgDeleteValue(cfgHandle handle, const char *keyPath, const char *valueName)
{
    return activeServices().cfgDeleteValue(handle, keyPath, valueName);
}

osHandle osCreateFile(const char *path, unsigned access, unsigned share, void *security,
                      unsigned disposition, unsigned flags, void *templ)
{
    return activeServices().osCreateFile(path, access, share, security, disposition, flags,
                                         templ);
}

int osCloseFile(osHandle handle) { return activeServices().osCloseFile(handle); }

int osReadFile(osHandle handle, void *buffer, unsigned count, unsigned *done, void *overlapped)
{
    return activeServices().osReadFile(handle, buffer, count, done, overlapped);
}

int osWriteFile(osHandle handle, const void *buffer, unsigned count, unsigned *done,
                void *overlapped)
{
    return activeServices().osWriteFile(handle, buffer, count, done, overlapped);
}

unsigned long long osSeek(osHandle handle, unsigned long long position)
{
    return activeServices().osSeek(handle, position);
}

int osGetFileSizeEx(osHandle handle, unsigned long long *size)
{
    return activeServices().osGetFileSizeEx(handle, size);
}

/* Built on osGetFileSizeEx so that a host replacing that one service
 * serves both. 0xFFFFFFFF on failure, *high left as it was. */
unsigned osGetFileSize(osHandle handle, unsigned *high)
{
    unsigned long long size = 0;
    if (!osGetFileSizeEx(handle, &size))
        return 0xFFFFFFFFu;
    if (high)
        *high = static_cast<unsigned>(size >> 32);
    return static_cast<unsigned>(size);
}

unsigned osGetLastError(void) { return activeServices().osGetLastError(); }

int osFileExists(const char *path) { return activeServices().osFileExists(path); }

unsigned osGetMs(void) { return activeServices().osGetMs(); }

void osSleepMicroseconds(unsigned microseconds)
{
    activeServices().osSleepMicroseconds(microseconds);
}
