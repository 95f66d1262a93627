/* The replaceable service table, the public entry points that go through
 * it, and memory. */
#include "host/host_internal.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace qrv::host {
namespace {

/* Every replaceable service, once; the merge is built from it. The batch
 * entries are taken as a pair, by takeBatchEntries(). */
// clang-format off
#define QRV_HOST_SERVICE_LIST(X) \
    X(alloc) \
    X(free) \
    X(logLine) \
    X(cfgOpen) \
    X(cfgClose) \
    X(cfgValueDword) \
    X(cfgValueString) \
    X(cfgDeleteValue) \
    X(osCreateFile) \
    X(osCloseFile) \
    X(osReadFile) \
    X(osWriteFile) \
    X(osSeek) \
    X(osGetFileSizeEx) \
    X(osGetLastError) \
    X(osFileExists) \
    X(osGetMs) \
    X(osSleepMicroseconds)
// clang-format on

/* Every table layout a host may have been built against, oldest first; a
 * table is read only up to its own size. */
constexpr uint32_t kKnownTableSizes[] = {
    offsetof(qrvHostServices, cfgBeginBatch), /* before the batch entries */
    sizeof(qrvHostServices),
};

constexpr qrvHostServices kBuiltins = {
    sizeof(qrvHostServices),
    builtinAlloc,
    builtinFree,
    builtinLogLine,
    builtinCfgOpen,
    builtinCfgClose,
    builtinCfgValueDword,
    builtinCfgValueString,
    builtinCfgDeleteValue,
    builtinOsCreateFile,
    builtinOsCloseFile,
    builtinOsReadFile,
    builtinOsWriteFile,
    builtinOsSeek,
    builtinOsGetFileSizeEx,
    builtinOsGetLastError,
    builtinOsFileExists,
    builtinOsGetMs,
    builtinOsSleepMicroseconds,
    builtinCfgBeginBatch,
    builtinCfgEndBatch,
};

bool knownTableSize(uint32_t size)
{
    for (uint32_t known : kKnownTableSizes)
        if (size == known)
            return true;
    return false;
}

/* Grouping for a host whose store has no batch entries: its calls stand alone. */
int ungroupedBatch(cfgHandle) { return QRV_OK; }

/* The built-in grouping works on the built-in store only: once a host
 * replaces any store entry, batch entries come from the host as a pair or
 * group nothing. */
void takeBatchEntries(const qrvHostServices &given, qrvHostServices *active)
{
    const bool hostStore = given.cfgOpen || given.cfgClose || given.cfgValueDword ||
                           given.cfgValueString || given.cfgDeleteValue;
    if (given.cfgBeginBatch && given.cfgEndBatch) {
        active->cfgBeginBatch = given.cfgBeginBatch;
        active->cfgEndBatch = given.cfgEndBatch;
    } else if (hostStore) {
        active->cfgBeginBatch = ungroupedBatch;
        active->cfgEndBatch = ungroupedBatch;
    } else {
        active->cfgBeginBatch = kBuiltins.cfgBeginBatch;
        active->cfgEndBatch = kBuiltins.cfgEndBatch;
    }
}

/* Constant-initialised: no start-up code runs before the first call. */
qrvHostServices g_active = kBuiltins;

} // namespace

const qrvHostServices &activeServices() { return g_active; }

bool builtinSinkActive() { return g_active.logLine == kBuiltins.logLine; }

/* malloc(0) may return null; a zero-byte request still gets its own block so
 * that null always means failure. */
void *builtinAlloc(size_t size) { return std::malloc(size ? size : 1); }

void builtinFree(void *block) { std::free(block); }

} // namespace qrv::host

using qrv::host::activeServices;

int qrvSetHostServices(const qrvHostServices *services)
{
    using namespace qrv::host;
    if (!services) {
        g_active = kBuiltins;
        return QRV_OK;
    }
    if (!knownTableSize(services->size)) {
        logError("host services table of %u bytes is not a layout this library knows "
                 "(set its size to sizeof(qrvHostServices)); services left unchanged",
                 static_cast<unsigned>(services->size));
        return QRV_E_ARGUMENT;
    }
    qrvHostServices given{};
    std::memcpy(&given, services, services->size);
#define QRV_TAKE_SERVICE(name) g_active.name = given.name ? given.name : kBuiltins.name;
    QRV_HOST_SERVICE_LIST(QRV_TAKE_SERVICE)
#undef QRV_TAKE_SERVICE
    takeBatchEntries(given, &g_active);
    return QRV_OK;
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

int cfgBeginBatch(cfgHandle handle) { return activeServices().cfgBeginBatch(handle); }

int cfgEndBatch(cfgHandle handle) { return activeServices().cfgEndBatch(handle); }

osHandle osCreateFile(const char *path, unsigned access, unsigned share, void *security,
                      unsigned disposition, unsigned flags, void *templ)
{
    return activeServices().osCreateFile(path, access, share, security, disposition, flags, templ);
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
