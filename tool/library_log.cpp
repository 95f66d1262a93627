#include "library_log.h"

#include <qrvutil/host.h>

namespace qrvtool {

namespace {

std::string lastError;
std::string debugLines;

std::string trimmed(const char *line)
{
    std::string text = line ? line : "";
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' '))
        text.pop_back();
    return text;
}

void keepLine(int level, const char *line)
{
    if (level == QRV_LOG_ERROR) {
        lastError = trimmed(line);
    } else {
        debugLines += trimmed(line);
        debugLines += '\n';
    }
}

} // namespace

void catchLibraryLog()
{
    qrvHostServices services{};
    services.size = sizeof services;
    services.logLine = keepLine;
    qrvSetHostServices(&services);
}

std::string takeLibraryError()
{
    std::string text;
    text.swap(lastError);
    return text;
}

std::string takeLibraryDebug()
{
    std::string text;
    text.swap(debugLines);
    return text;
}

} // namespace qrvtool
