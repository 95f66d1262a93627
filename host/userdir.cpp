/* The per-user directory and the resolution of bare file names into it. */
/* Without it a 32-bit stat() fails on files with 64-bit inode numbers. */
#define _FILE_OFFSET_BITS 64

#include "host/host_internal.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace qrv::host {
namespace {

std::string homeDirectory()
{
    const char *home = std::getenv("HOME");
    if (home && home[0] != '\0')
        return home;
    struct passwd entry;
    struct passwd *found = nullptr;
    char buffer[4096];
    if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found && found->pw_dir)
        return found->pw_dir;
    return "/tmp";
}

} // namespace

/* Read from the environment on every call, never cached: a process (a test,
 * a deployment script) may move the directory between two calls. A relative
 * $XDG_CONFIG_HOME is ignored, as the base-directory convention asks. */
std::string userDirectory()
{
    const char *own = std::getenv("QRVUTIL_CONFIG_DIR");
    if (own && own[0] != '\0')
        return own;
    const char *xdg = std::getenv("XDG_CONFIG_HOME");
    if (xdg && xdg[0] == '/')
        return std::string(xdg) + "/qrvutil";
    return homeDirectory() + "/.config/qrvutil";
}

bool isBareName(const char *path) { return std::strchr(path, '/') == nullptr; }

std::string resolveUserPath(const char *path)
{
    if (!isBareName(path))
        return path;
    std::string dir = userDirectory();
    if (dir.empty() || dir.back() != '/')
        dir += '/';
    return dir + path;
}

bool makeDirectories(const std::string &dir)
{
    for (size_t end = 1; end <= dir.size(); ++end) {
        if (end != dir.size() && dir[end] != '/')
            continue;
        std::string prefix = dir.substr(0, end);
        if (mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST)
            return false;
    }
    struct stat info;
    return stat(dir.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

} // namespace qrv::host
