/*
 * qrvutil host services: memory, logging, configuration store, files, clock,
 * integer and timecode text.
 *
 * The library never touches memory, logs, settings or files except through
 * these calls. Each has a real Linux implementation built in; a host can put
 * its own implementation behind any of them with qrvSetHostServices().
 */
#ifndef QRVUTIL_HOST_H
#define QRVUTIL_HOST_H

#include <stddef.h>
#include <stdint.h>

#include "export.h"

QRV_EXTERN_C_BEGIN

/* ---- Handles ------------------------------------------------------------ */

/* A configuration-store handle. QRV_CFG_DEFAULT names the default store
 * (the per-user SQLite database); any other value comes from cfgOpen(). */
typedef void *cfgHandle;
#define QRV_CFG_DEFAULT ((cfgHandle)(intptr_t)-1)

/* A file handle: 64 bits wide on every build. QRV_INVALID_FILE on failure. */
typedef long long osHandle;
#define QRV_INVALID_FILE ((osHandle)-1)

/* Access, share and disposition values understood by osCreateFile(). */
#define QRV_ACCESS_READ 0x80000000u
#define QRV_ACCESS_WRITE 0x40000000u
#define QRV_SHARE_READ_WRITE 3u
#define QRV_CREATE_NEW 1u        /* create; fails when the file exists */
#define QRV_CREATE_ALWAYS 2u     /* create, or truncate an existing file */
#define QRV_OPEN_EXISTING 3u     /* open; fails when the file is missing */
#define QRV_OPEN_ALWAYS 4u       /* open, or create a missing file */
#define QRV_TRUNCATE_EXISTING 5u /* open and truncate; needs write access */

/* Directions of cfgValueDword() / cfgValueString(). */
#define QRV_CFG_READ 0
#define QRV_CFG_WRITE 1

/* Levels a log sink receives. */
#define QRV_LOG_ERROR 0
#define QRV_LOG_DEBUG 1

/* Longest line handed to a log sink, terminator included; longer lines are cut. */
#define QRV_LOG_LINE_MAX 4096

/* ---- Memory --------------------------------------------------------------- */

/* A block of at least `size` bytes, or null. Release it with hostFree(). */
QRV_API void *hostAlloc(size_t size);
/* Releases a block from hostAlloc(); null is allowed. */
QRV_API void hostFree(void *block);
/* Plain copy of `count` bytes between areas that do not overlap. */
QRV_API void hostCopyMemory(void *dst, const void *src, unsigned count);
/* Sets `count` bytes to zero. */
QRV_API void hostZeroMemory(void *dst, unsigned count);

/* ---- Logging ---------------------------------------------------------------- */

/* A printf-style error line. */
QRV_API void logError(const char *format, ...) __attribute__((format(printf, 1, 2)));
/* A formatted error report; `category` is a leading 32-bit word (the library
 * passes 0x80000000), `a` and `b` are reserved (the library passes zeros). */
QRV_API void logErrorFormat(unsigned category, int a, int b, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
/* One finished debug line. Returns 0 when the line was delivered to a sink,
 * 1 when debug output is switched off. */
QRV_API int logDebug(const char *text);

/* ---- Configuration store ------------------------------------------------------ */

/* Opens an XML file as a store (`flags` is 0). Bare names resolve in the
 * per-user directory. Returns null, after logging why, on failure. */
QRV_API cfgHandle cfgOpen(const char *path, int flags);
/* Closes a handle from cfgOpen(); with `save` non-zero, changes are written
 * back atomically. Returns 0 on success. */
QRV_API int cfgClose(cfgHandle handle, int save);
/* Reads (QRV_CFG_READ) or writes (QRV_CFG_WRITE) a 32-bit value. Reading with
 * a null `value` only tests that the value exists. Returns 0 on success. */
QRV_API int cfgValueDword(cfgHandle handle, const char *keyPath, const char *valueName,
                          unsigned *value, int direction);
/* Reads or writes a string value. Reading with a null `buffer` stores the
 * size needed in *size; reading with a buffer copies at most *size bytes.
 * Writing stores `buffer` up to its terminator. Returns 0 on success. */
QRV_API int cfgValueString(cfgHandle handle, const char *keyPath, const char *valueName,
                           char *buffer, unsigned *size, int direction);
/* Removes a value. Returns 0 when a value was removed. */
QRV_API int cfgDeleteValue(cfgHandle handle, const char *keyPath, const char *valueName);

/* ---- Files -------------------------------------------------------------------- */

/* Opens or creates a file. `access` is an OR of QRV_ACCESS_*; `share` 3 lets
 * others read and write; `disposition` is QRV_OPEN_EXISTING or QRV_CREATE_NEW.
 * `security`, `flags` and `templ` are ignored. Returns QRV_INVALID_FILE on
 * failure. Bare names resolve in the per-user directory. */
QRV_API osHandle osCreateFile(const char *path, unsigned access, unsigned share, void *security,
                              unsigned disposition, unsigned flags, void *templ);
/* Closes a handle. Returns non-zero on success. */
QRV_API int osCloseFile(osHandle handle);
/* Read/write `count` bytes, completing short transfers; *done receives the
 * bytes moved. Non-zero on success, 0 on failure (see osGetLastError()). */
QRV_API int osReadFile(osHandle handle, void *buffer, unsigned count, unsigned *done,
                       void *overlapped);
QRV_API int osWriteFile(osHandle handle, const void *buffer, unsigned count, unsigned *done,
                        void *overlapped);
/* Moves to an absolute position; returns the position reached, or
 * (unsigned long long)-1 on failure. */
QRV_API unsigned long long osSeek(osHandle handle, unsigned long long position);
/* File size: the low 32 bits (the high 32 bits into *high when not null). */
QRV_API unsigned osGetFileSize(osHandle handle, unsigned *high);
/* File size in 64 bits. Non-zero on success. */
QRV_API int osGetFileSizeEx(osHandle handle, unsigned long long *size);
/* The reason code (errno value) of the calling thread's last failure. */
QRV_API unsigned osGetLastError(void);
/* Non-zero when `path` names an existing regular file. */
QRV_API int osFileExists(const char *path);
/* Splits a path into drive (always empty here), directory (up to and
 * including the last '/'), name and extension (from the last '.' of the part
 * after the directory, the dot included). Null part pointers are skipped.
 * Each part must hold the whole path. */
QRV_API void osSplitPath(const char *path, char *drive, char *dir, char *name, char *ext);
/* Joins the parts again: drive, directory (a '/' added when it lacks one),
 * name, and extension (a '.' added when it lacks one). Null parts are empty. */
QRV_API void osMakePath(char *out, const char *drive, const char *dir, const char *name,
                        const char *ext);
/* A free-running monotonic millisecond clock; compare readings by difference. */
QRV_API unsigned osGetMs(void);
/* Sleeps the calling thread for `microseconds`. */
QRV_API void osSleepMicroseconds(unsigned microseconds);

/* ---- Text ------------------------------------------------------------------------ */

/* Writes `value` in `radix` (2 to 36) with lower-case digits and a leading
 * minus sign for a negative value; returns `buffer` (34 bytes suffice). */
QRV_API char *intToString(int value, char *buffer, int radix);
/* Timecode text of a frame count into a 16-byte buffer. The low byte of
 * `flags` is the timecode type; see the README for the text-form bits.
 * Returns the text length. */
QRV_API int tcToString(unsigned frames, unsigned flags, char *text);
/* Parses a timecode text; the low byte of `flags` is the timecode type.
 * Returns 0 and stores the frame count, or -1 for text it cannot read. */
QRV_API int tcToFrame(const char *text, unsigned flags, unsigned *frames);

/* ---- Replacing services ------------------------------------------------------------ */

/* A host's implementations. Null entries keep the built-in service. */
typedef struct qrvHostServices {
    void *(*alloc)(size_t size);
    void (*free)(void *block);
    /* Receives every finished log line with its level (QRV_LOG_*). */
    void (*logLine)(int level, const char *line);
    cfgHandle (*cfgOpen)(const char *path, int flags);
    int (*cfgClose)(cfgHandle handle, int save);
    int (*cfgValueDword)(cfgHandle handle, const char *keyPath, const char *valueName,
                         unsigned *value, int direction);
    int (*cfgValueString)(cfgHandle handle, const char *keyPath, const char *valueName,
                          char *buffer, unsigned *size, int direction);
    int (*cfgDeleteValue)(cfgHandle handle, const char *keyPath, const char *valueName);
    osHandle (*osCreateFile)(const char *path, unsigned access, unsigned share, void *security,
                             unsigned disposition, unsigned flags, void *templ);
    int (*osCloseFile)(osHandle handle);
    int (*osReadFile)(osHandle handle, void *buffer, unsigned count, unsigned *done,
                      void *overlapped);
    int (*osWriteFile)(osHandle handle, const void *buffer, unsigned count, unsigned *done,
                       void *overlapped);
    unsigned long long (*osSeek)(osHandle handle, unsigned long long position);
    int (*osGetFileSizeEx)(osHandle handle, unsigned long long *size);
    unsigned (*osGetLastError)(void);
    int (*osFileExists)(const char *path);
    unsigned (*osGetMs)(void);
    void (*osSleepMicroseconds)(unsigned microseconds);
} qrvHostServices;

/* Installs a host's services: every non-null entry replaces the built-in one,
 * every null entry restores it. The table is copied. Not thread-safe: call it
 * before the library is used from several threads. */
QRV_API void qrvSetHostServices(const qrvHostServices *services);
/* Restores every built-in service. */
QRV_API void qrvResetHostServices(void);

QRV_EXTERN_C_END

#endif
