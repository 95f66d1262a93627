/*
 * qrvutil host services: memory, logging, configuration store, files, clock,
 * integer and timecode text.
 *
 * The library never touches memory, logs, settings or files except through
 * these calls. Each has a real Linux implementation built in; a host can put
 * its own implementation behind any of them with qrvSetHostServices().
 *
 * The per-user directory holds the default configuration store and every
 * bare file name (one without '/') given to the file and configuration
 * services: $QRVUTIL_CONFIG_DIR when set and not empty, else
 * $XDG_CONFIG_HOME/qrvutil when that is an absolute path, else
 * ~/.config/qrvutil. It is looked up afresh on every call.
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

/* Every line is formatted into a buffer of QRV_LOG_LINE_MAX bytes (a longer
 * line is cut) and handed to the sink in force: a host's logLine, or the
 * built-in one, which writes each line to standard error (adding a line
 * break when the line has none) and drops debug lines unless the environment
 * variable QRVUTIL_DEBUG is set to a non-empty value other than "0". */

/* A printf-style error line. */
QRV_API void logError(const char *format, ...) __attribute__((format(printf, 1, 2)));
/* A formatted error report; `category` is a leading 32-bit word (the library
 * passes 0x80000000), `a` and `b` are reserved (the library passes zeros).
 * None of the three shows in the line: it is delivered as an error line
 * formatted exactly like logError's. */
QRV_API void logErrorFormat(unsigned category, int a, int b, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
/* One finished debug line. Returns 0 when the line was delivered to a sink
 * (a host's sink always receives it), 1 when debug output is switched off or
 * `text` is null. */
QRV_API int logDebug(const char *text);

/* ---- Configuration store ------------------------------------------------------ */

/* The default store is the SQLite database "config.sqlite" in the per-user
 * directory, created on the first write (a read never creates it); several
 * processes may use it at once and every write is one transaction. Key paths
 * are backslash-separated ("Ovalbrook\MetaData\Default"; empty components
 * are ignored); key and value names match exactly, case included. Values are
 * typed, a 32-bit number or a string, and a read with the other type fails.
 * Failures return non-zero; a missing value is not logged, trouble with the
 * store itself is, through logError(). */

/* Opens an existing XML file as a store (`flags` is ignored). Bare names
 * resolve in the per-user directory. The file is read whole now and written
 * back by cfgClose(). Returns null, after logging why, when the file is
 * missing, unreadable, not well-formed or not a store file (its root element
 * must be <Config>); such a file is never written. */
QRV_API cfgHandle cfgOpen(const char *path, int flags);
/* Closes a handle from cfgOpen() and frees it; with `save` non-zero and
 * something changed, the file is replaced atomically (a temporary file in
 * the same directory, synced, then renamed over it). Returns 0 on success;
 * closing QRV_CFG_DEFAULT does nothing and returns 0. */
QRV_API int cfgClose(cfgHandle handle, int save);
/* Reads (QRV_CFG_READ) or writes (QRV_CFG_WRITE) a 32-bit value. Reading with
 * a null `value` only tests that the value exists. Returns 0 on success. */
QRV_API int cfgValueDword(cfgHandle handle, const char *keyPath, const char *valueName,
                          unsigned *value, int direction);
/* Reads or writes a string value. A read stores the size needed (text
 * length + 1) in *size, or 0 when the value is missing or a number. With a
 * null `buffer` that is all; with a buffer, min(length + 1, *size) bytes are
 * copied, always ending in a terminator inside the first *size bytes, and
 * the call fails (non-zero) when the text had to be cut. Writing stores
 * `buffer` up to its terminator but at most *size bytes (when `size` is not
 * null), never reading past either; "" is stored as an empty string.
 * Returns 0 on success. */
QRV_API int cfgValueString(cfgHandle handle, const char *keyPath, const char *valueName,
                           char *buffer, unsigned *size, int direction);
/* Removes a value. Returns 0 when a value was removed, non-zero when there
 * was none or the store failed. */
QRV_API int cfgDeleteValue(cfgHandle handle, const char *keyPath, const char *valueName);

/* ---- Files -------------------------------------------------------------------- */

/* Opens or creates a file. `access` is an OR of QRV_ACCESS_* (none means
 * read); `share` is not enforced (others may always read and write);
 * `disposition` is one of QRV_CREATE_NEW..QRV_TRUNCATE_EXISTING. `security`,
 * `flags` and `templ` are ignored. Returns QRV_INVALID_FILE on failure (a
 * directory is refused). Bare names (no '/') resolve in the per-user
 * directory, which is created when the disposition may create the file.
 * Positions and sizes are 64-bit on every build. */
QRV_API osHandle osCreateFile(const char *path, unsigned access, unsigned share, void *security,
                              unsigned disposition, unsigned flags, void *templ);
/* Closes a handle. Returns non-zero on success. */
QRV_API int osCloseFile(osHandle handle);
/* Read/write `count` bytes, completing short transfers and retrying
 * interrupted ones; *done (when not null) receives the bytes moved. A read
 * that reaches the end of the file succeeds with *done < count. Non-zero on
 * success, 0 on failure (see osGetLastError()). */
QRV_API int osReadFile(osHandle handle, void *buffer, unsigned count, unsigned *done,
                       void *overlapped);
QRV_API int osWriteFile(osHandle handle, const void *buffer, unsigned count, unsigned *done,
                        void *overlapped);
/* Moves to an absolute position; returns the position reached, or
 * (unsigned long long)-1 on failure. */
QRV_API unsigned long long osSeek(osHandle handle, unsigned long long position);
/* File size: the low 32 bits (the high 32 bits into *high when not null).
 * 0xFFFFFFFF with *high untouched on failure. Goes through osGetFileSizeEx. */
QRV_API unsigned osGetFileSize(osHandle handle, unsigned *high);
/* File size in 64 bits. Non-zero on success. */
QRV_API int osGetFileSizeEx(osHandle handle, unsigned long long *size);
/* The reason code (errno value) of the calling thread's last failed file
 * service; success does not reset it. */
QRV_API unsigned osGetLastError(void);
/* Non-zero when `path` names an existing regular file; bare names resolve
 * in the per-user directory. */
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

/* Room for any text intToString writes: a minus sign, 32 binary digits and
 * the terminator. */
#define QRV_INTEGER_TEXT_SIZE 34
/* Room for any timecode text tcToString writes: 15 characters and the
 * terminator. A host that replaces tcToString keeps to it. */
#define QRV_TIMECODE_TEXT_SIZE 16

/* Writes `value` in `radix` (2 to 36) with lower-case digits and a leading
 * minus sign for a negative value, in every radix; returns `buffer`
 * (QRV_INTEGER_TEXT_SIZE bytes suffice). Another radix writes the empty string. */
QRV_API char *intToString(int value, char *buffer, int radix);
/* Timecode text of a frame count into a QRV_TIMECODE_TEXT_SIZE buffer. The low byte of
 * `flags` is the timecode type: 1 and 128/132 (24 labels a second), 2 (30),
 * 8 (25), 16 (50), 64 (60) write "HH:MM:SS:FF"; 4 (29.97, labels 0 and 1
 * skipped) and 32 (59.94, labels 0 to 3 skipped) at the start of every minute
 * not divisible by ten write "HH:MM:SS;FF"; 0 and any other type write the
 * decimal frame count. Hours are not wrapped at 24, so every count fits in
 * 15 characters and reads back to itself. The bits above the low byte select
 * nothing (there is one form per type). Returns the text length. */
QRV_API int tcToString(unsigned frames, unsigned flags, char *text);
/* Parses a timecode text; the low byte of `flags` is the timecode type and
 * the bits above it select nothing. Fields are right-aligned ("FF", "SS:FF",
 * "MM:SS:FF", "HH:MM:SS:FF") with ':', ';' or '.' between them; all but the
 * leading field must be in range, a single field is a plain frame count, and
 * a label that a drop-frame rate skips is refused. Surrounding blanks are
 * allowed. Returns 0 and stores the frame count, or -1 (leaving *frames
 * alone) for text it cannot read or a count beyond 32 bits. */
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
