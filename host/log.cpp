/* Logging: every line is formatted into a bounded buffer and handed to the
 * sink in force, the built-in standard-error one or a host's. */
#include "host/host_internal.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace qrv::host {
namespace {

/* vsnprintf cuts an over-long line at the buffer's end; a format it cannot
 * render leaves an empty line rather than garbage. */
void formatLine(char (&line)[QRV_LOG_LINE_MAX], const char *format, va_list args)
{
    if (std::vsnprintf(line, sizeof line, format, args) < 0)
        line[0] = '\0';
}

void deliver(int level, const char *line) { activeServices().logLine(level, line); }

void logErrorLine(const char *format, va_list args)
{
    if (!format)
        return;
    char line[QRV_LOG_LINE_MAX];
    formatLine(line, format, args);
    deliver(QRV_LOG_ERROR, line);
}

} // namespace

bool debugOutputEnabled()
{
    const char *value = std::getenv("QRVUTIL_DEBUG");
    return value && value[0] != '\0' && std::strcmp(value, "0") != 0;
}

/* One write per line so that lines of several processes sharing standard
 * error do not interleave. Lines that already end in a line break (the
 * library's own messages end in "\n\r") get none added. */
void builtinLogLine(int level, const char *line)
{
    if (level == QRV_LOG_DEBUG && !debugOutputEnabled())
        return;
    char out[QRV_LOG_LINE_MAX + 1];
    size_t length = strnlen(line, QRV_LOG_LINE_MAX - 1);
    std::memcpy(out, line, length);
    if (length == 0 || (out[length - 1] != '\n' && out[length - 1] != '\r'))
        out[length++] = '\n';
    std::fwrite(out, 1, length, stderr);
    std::fflush(stderr);
}

} // namespace qrv::host

void logError(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    qrv::host::logErrorLine(format, args);
    va_end(args);
}

/* The category word and the two reserved arguments select nothing here:
 * every report is an error line formatted like logError's. */
void logErrorFormat(unsigned category, int a, int b, const char *format, ...)
{
    (void)category;
    (void)a;
    (void)b;
    va_list args;
    va_start(args, format);
    qrv::host::logErrorLine(format, args);
    va_end(args);
}

int logDebug(const char *text)
{
    if (!text || (qrv::host::builtinSinkActive() && !qrv::host::debugOutputEnabled()))
        return 1;
    char line[QRV_LOG_LINE_MAX];
    size_t length = strnlen(text, sizeof line - 1);
    std::memcpy(line, text, length);
    line[length] = '\0';
    qrv::host::deliver(QRV_LOG_DEBUG, line);
    return 0;
}
