/* Splitting and joining paths: directory, name and extension; the drive
 * part exists for callers' sake and is always empty on this platform. */
#include <qrvutil/host.h>

#include <cstring>

namespace {

void copyPart(char *out, const char *begin, size_t length)
{
    if (!out)
        return;
    std::memcpy(out, begin, length);
    out[length] = '\0';
}

char *append(char *out, const char *text)
{
    size_t length = std::strlen(text);
    std::memmove(out, text, length);
    return out + length;
}

} // namespace

void osSplitPath(const char *path, char *drive, char *dir, char *name, char *ext)
{
    if (!path)
        path = "";
    const char *slash = std::strrchr(path, '/');
    const char *file = slash ? slash + 1 : path;
    const char *dot = std::strrchr(file, '.');
    const char *end = path + std::strlen(path);
    if (!dot)
        dot = end;
    copyPart(drive, path, 0);
    copyPart(dir, path, static_cast<size_t>(file - path));
    copyPart(name, file, static_cast<size_t>(dot - file));
    copyPart(ext, dot, static_cast<size_t>(end - dot));
}

void osMakePath(char *out, const char *drive, const char *dir, const char *name, const char *ext)
{
    if (!out)
        return;
    char *p = out;
    if (drive)
        p = append(p, drive);
    if (dir && dir[0] != '\0') {
        p = append(p, dir);
        if (p[-1] != '/')
            *p++ = '/';
    }
    if (name)
        p = append(p, name);
    if (ext && ext[0] != '\0') {
        if (ext[0] != '.')
            *p++ = '.';
        p = append(p, ext);
    }
    *p = '\0';
}
