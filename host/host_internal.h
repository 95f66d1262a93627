/* Internal interface of the host services: the built-in implementations
 * that the replaceable service table falls back to, and helpers shared by
 * the service families. */
#ifndef QRVUTIL_HOST_INTERNAL_H
#define QRVUTIL_HOST_INTERNAL_H

#include <qrvutil/host.h>

#include <cerrno>
#include <string>

namespace qrv::host {

/* The table currently in force: the built-ins with a host's entries on top. */
const qrvHostServices &activeServices();
/* True while log lines go to the built-in standard-error sink. */
bool builtinSinkActive();

void *builtinAlloc(size_t size);
void builtinFree(void *block);
void builtinLogLine(int level, const char *line);
/* QRVUTIL_DEBUG set to a non-empty value other than "0". */
bool debugOutputEnabled();

cfgHandle builtinCfgOpen(const char *path, int flags);
int builtinCfgClose(cfgHandle handle, int save);
int builtinCfgValueDword(cfgHandle handle, const char *keyPath, const char *valueName,
                         unsigned *value, int direction);
int builtinCfgValueString(cfgHandle handle, const char *keyPath, const char *valueName,
                          char *buffer, unsigned *size, int direction);
int builtinCfgDeleteValue(cfgHandle handle, const char *keyPath, const char *valueName);
int builtinCfgBeginBatch(cfgHandle handle);
int builtinCfgEndBatch(cfgHandle handle);

osHandle builtinOsCreateFile(const char *path, unsigned access, unsigned share, void *security,
                             unsigned disposition, unsigned flags, void *templ);
int builtinOsCloseFile(osHandle handle);
int builtinOsReadFile(osHandle handle, void *buffer, unsigned count, unsigned *done,
                      void *overlapped);
int builtinOsWriteFile(osHandle handle, const void *buffer, unsigned count, unsigned *done,
                       void *overlapped);
unsigned long long builtinOsSeek(osHandle handle, unsigned long long position);
int builtinOsGetFileSizeEx(osHandle handle, unsigned long long *size);
unsigned builtinOsGetLastError(void);
int builtinOsFileExists(const char *path);
unsigned builtinOsGetMs(void);
void builtinOsSleepMicroseconds(unsigned microseconds);

/* Repeats a system call for as long as a signal interrupts it (a negative
 * result with errno EINTR), and returns its first other result. */
template <typename Call>
auto retryInterrupted(Call call) -> decltype(call())
{
    decltype(call()) result;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

/* Records the calling thread's last failure for osGetLastError(). */
void setLastError(int code);

/* The per-user directory, looked up afresh on every call:
 * $QRVUTIL_CONFIG_DIR, else $XDG_CONFIG_HOME/qrvutil, else ~/.config/qrvutil. */
std::string userDirectory();
/* A name without '/' lives in the per-user directory; a path is used as given. */
bool isBareName(const char *path);
std::string resolveUserPath(const char *path);
/* Creates `dir` and its missing parents (mode 0700). */
bool makeDirectories(const std::string &dir);

} // namespace qrv::host

#endif
