/* XML text and files parsed with zero bytes after them. */
#include "host/xml_parse.h"

#include "host/host_internal.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

namespace qrv::host {
namespace {

/* Texts up to this size are copied on the stack: a command document is a
 * few hundred bytes. */
constexpr size_t kStackText = 4096;

/* Converts CR LF and lone CR to LF in place, up to the first zero, and
 * terminates the text there; the bytes after it are left as they were. */
void normaliseLineEnds(char *text)
{
    const char *p = text;
    char *q = text;
    while (*p) {
        if (*p == '\r') {
            *q++ = '\n';
            if (*++p == '\n')
                ++p;
        } else {
            *q++ = *p++;
        }
    }
    *q = 0;
}

/* Reads the whole open file into a host block followed by kXmlPadding zero
 * bytes. Null when the file is empty, too large, or cannot be read whole. */
char *readPadded(osHandle file, TiXmlDocument *doc)
{
    unsigned long long size = 0;
    const bool sized = osGetFileSizeEx(file, &size) != 0;
    if (sized && size == 0) {
        doc->SetError(TiXmlBase::TIXML_ERROR_DOCUMENT_EMPTY, nullptr, nullptr,
                      TIXML_ENCODING_UNKNOWN);
        return nullptr;
    }
    char *text = sized && size <= 0xFFFFFFFFull - kXmlPadding
                     ? static_cast<char *>(hostAlloc(static_cast<size_t>(size) + kXmlPadding))
                     : nullptr;
    unsigned got = 0;
    if (text && osReadFile(file, text, static_cast<unsigned>(size), &got, nullptr) && got == size) {
        std::memset(text + size, 0, kXmlPadding);
        return text;
    }
    hostFree(text);
    doc->SetError(TiXmlBase::TIXML_ERROR_OPENING_FILE, nullptr, nullptr, TIXML_ENCODING_UNKNOWN);
    return nullptr;
}

} // namespace

bool parseXmlCopy(TiXmlDocument *doc, const char *text, size_t length, TiXmlEncoding encoding,
                  size_t *stop)
{
    char local[kStackText];
    if (length > length + kXmlPadding)
        return false;
    const bool small = length <= sizeof local - kXmlPadding;
    char *copy = small ? local : static_cast<char *>(hostAlloc(length + kXmlPadding));
    if (!copy)
        return false;
    std::memcpy(copy, text, length);
    std::memset(copy + length, 0, kXmlPadding);
    const char *end = doc->Parse(copy, nullptr, encoding);
    /* The parser returns null both after an error and when the text ends
     * right after the last node. */
    if (stop)
        *stop = end ? std::min(static_cast<size_t>(end - copy), length) : doc->Error() ? 0 : length;
    if (!small)
        hostFree(copy);
    return true;
}

bool loadXmlFile(TiXmlDocument *doc, const char *path, TiXmlEncoding encoding)
{
    doc->SetValue(path);
    const std::string name = isBareName(path) ? std::string("./") + path : std::string(path);
    const osHandle file = osCreateFile(name.c_str(), QRV_ACCESS_READ, QRV_SHARE_READ_WRITE, nullptr,
                                       QRV_OPEN_EXISTING, 0, nullptr);
    if (file == QRV_INVALID_FILE) {
        /* A directory opens for TinyXML and then fails to read. */
        if (osGetLastError() == EISDIR)
            doc->Clear();
        doc->SetError(TiXmlBase::TIXML_ERROR_OPENING_FILE, nullptr, nullptr,
                      TIXML_ENCODING_UNKNOWN);
        return false;
    }
    doc->Clear();
    char *text = readPadded(file, doc);
    osCloseFile(file);
    if (!text)
        return false;
    normaliseLineEnds(text);
    doc->Parse(text, nullptr, encoding);
    hostFree(text);
    return !doc->Error();
}

} // namespace qrv::host
