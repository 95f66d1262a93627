/* An XML file as a configuration store:
 *
 *   <?xml version="1.0"?>
 *   <Config>
 *     <Key Name="Ovalbrook">
 *       <Key Name="MetaData">
 *         <Key Name="Default">
 *           <Value Name="Title" Type="string" Data="text"/>
 *           <Value Name="TimeCode" Type="dword" Data="0"/>
 *
 * Each component of a key path is one nested Key element; a value is a Value
 * element of its key, "dword" data in decimal. The data sits in an attribute
 * so that it keeps every byte, spaces and line breaks included, through a
 * save and a load. The file is read whole on open, edited in memory and
 * written back on close only when something changed, through a temporary
 * file in the same directory that is synced and renamed over the old one, so
 * that a reader sees either the old file or the new one. A file this store
 * cannot read is never written: open fails and says why. */
/* Without it a 32-bit stat() fails on files with 64-bit inode numbers. */
#define _FILE_OFFSET_BITS 64

#include "host/config_store.h"
#include "host/host_internal.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <tinyxml.h>

#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace qrv::host {
namespace {

constexpr char kRootName[] = "Config";
constexpr char kKeyElement[] = "Key";
constexpr char kValueElement[] = "Value";
constexpr char kNameAttribute[] = "Name";
constexpr char kTypeAttribute[] = "Type";
constexpr char kDataAttribute[] = "Data";

struct TypeName {
    ValueKind kind;
    const char *name;
};

constexpr TypeName kTypeNames[] = {
    {ValueKind::Dword, "dword"},
    {ValueKind::String, "string"},
};

const char *typeName(ValueKind kind)
{
    for (const TypeName &t : kTypeNames)
        if (t.kind == kind)
            return t.name;
    return "";
}

bool kindOf(const char *name, ValueKind *kind)
{
    for (const TypeName &t : kTypeNames)
        if (name && std::strcmp(t.name, name) == 0) {
            *kind = t.kind;
            return true;
        }
    return false;
}

/* Strict decimal: a hand-edited "12abc" is not a number. */
bool parseDword(const char *text, uint32_t *number)
{
    if (!text || *text < '0' || *text > '9')
        return false;
    uint64_t value = 0;
    for (; *text; ++text) {
        if (*text < '0' || *text > '9')
            return false;
        value = value * 10 + static_cast<unsigned>(*text - '0');
        if (value > UINT32_MAX)
            return false;
    }
    *number = static_cast<uint32_t>(value);
    return true;
}

TiXmlElement *findNamedChild(TiXmlElement *parent, const char *element, const std::string &name)
{
    for (TiXmlElement *child = parent->FirstChildElement(element); child;
         child = child->NextSiblingElement(element)) {
        const char *childName = child->Attribute(kNameAttribute);
        if (childName && name == childName)
            return child;
    }
    return nullptr;
}

/* ---- Writing the document ------------------------------------------------ */

/* Every byte that could be read differently comes out as a reference;
 * control bytes as &#xNN;, which the reader turns back into the same byte. */
void appendEscaped(std::string &out, const char *text)
{
    for (const char *p = text; *p; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\'': out += "&apos;"; break;
        default:
            if (c < 0x20) {
                char reference[8];
                std::snprintf(reference, sizeof reference, "&#x%02X;", c);
                out += reference;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
}

void appendNode(std::string &out, const TiXmlNode *node, int depth);

void appendElement(std::string &out, const TiXmlElement *element, int depth)
{
    out.append(static_cast<size_t>(depth) * 2, ' ');
    out += '<';
    out += element->Value();
    for (const TiXmlAttribute *a = element->FirstAttribute(); a; a = a->Next()) {
        out += ' ';
        out += a->Name();
        out += "=\"";
        appendEscaped(out, a->Value());
        out += '"';
    }
    const TiXmlNode *first = element->FirstChild();
    if (!first) {
        out += "/>\n";
        return;
    }
    if (first->ToText() && !first->NextSibling()) {
        out += '>';
        appendEscaped(out, first->Value());
    } else {
        out += ">\n";
        for (const TiXmlNode *child = first; child; child = child->NextSibling())
            appendNode(out, child, depth + 1);
        out.append(static_cast<size_t>(depth) * 2, ' ');
    }
    out += "</";
    out += element->Value();
    out += ">\n";
}

/* Comments and unknown markup of a hand-edited file are kept; the
 * declaration is always written afresh. */
void appendNode(std::string &out, const TiXmlNode *node, int depth)
{
    if (const TiXmlElement *element = node->ToElement()) {
        appendElement(out, element, depth);
        return;
    }
    if (node->ToDeclaration())
        return;
    out.append(static_cast<size_t>(depth) * 2, ' ');
    if (node->ToComment()) {
        out += "<!--";
        out += node->Value();
        out += "-->\n";
    } else if (node->ToText()) {
        appendEscaped(out, node->Value());
        out += '\n';
    } else {
        out += '<';
        out += node->Value();
        out += ">\n";
    }
}

std::string documentText(const TiXmlDocument &document)
{
    std::string out = "<?xml version=\"1.0\"?>\n";
    for (const TiXmlNode *node = document.FirstChild(); node; node = node->NextSibling())
        appendNode(out, node, 0);
    return out;
}

/* ---- Files -------------------------------------------------------------------- */

bool readWholeFile(const std::string &path, std::string *content)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    char chunk[65536];
    ssize_t n;
    content->clear();
    while ((n = retryInterrupted([&] { return read(fd, chunk, sizeof chunk); })) != 0) {
        if (n < 0) {
            const int error = errno;
            close(fd);
            errno = error;
            return false;
        }
        content->append(chunk, static_cast<size_t>(n));
    }
    close(fd);
    return true;
}

bool writeAll(int fd, const std::string &content)
{
    size_t written = 0;
    while (written < content.size()) {
        const ssize_t n = retryInterrupted(
            [&] { return write(fd, content.data() + written, content.size() - written); });
        if (n <= 0)
            return false;
        written += static_cast<size_t>(n);
    }
    return true;
}

/* The rename is made durable by syncing the directory that holds it. */
void syncDirectoryOf(const std::string &path)
{
    const size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        fsync(fd);
        close(fd);
    }
}

/* ---- Temporaries ----------------------------------------------------------------
 *
 * A save writes "<file>.XXXXXX" beside the file and renames it over the
 * file. A process killed before the rename leaves its temporary behind, so
 * every open and save removes the file's stale ones. A writer holds an
 * exclusive flock() on its temporary from just after creating it until it
 * is renamed, and the kernel drops that lock when the writer dies: a
 * temporary whose lock can be taken is stale. A lock holds no matter which
 * process or host made the file, unlike a process id in the name, which a
 * later process may be given again. Who takes the lock first checks that the
 * name still names the file it locked, which settles a writer and a cleaner
 * that meet on a temporary just created. */

constexpr char kTemporarySuffix[] = ".XXXXXX";
constexpr size_t kTemporaryRandomLength = sizeof kTemporarySuffix - 2;

bool namesFile(const std::string &path, int fd)
{
    struct stat byName, byDescriptor;
    return stat(path.c_str(), &byName) == 0 && fstat(fd, &byDescriptor) == 0 &&
           byName.st_dev == byDescriptor.st_dev && byName.st_ino == byDescriptor.st_ino;
}

/* A new temporary for `path`, locked; -1 when none can be made. A cleaner
 * may remove the file between its creation and the lock: then another. */
int createLockedTemporary(const std::string &path, std::string *temporary)
{
    constexpr int kAttempts = 8;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        *temporary = path + kTemporarySuffix;
        const int fd = mkostemp(&(*temporary)[0], O_CLOEXEC);
        if (fd < 0)
            return -1;
        if (retryInterrupted([&] { return flock(fd, LOCK_EX); }) == 0 && namesFile(*temporary, fd))
            return fd;
        close(fd);
    }
    errno = EAGAIN;
    return -1;
}

/* "<base>." followed by exactly the random part mkostemp() writes. */
bool isTemporaryName(const char *name, const std::string &base)
{
    if (std::strncmp(name, base.c_str(), base.size()) != 0 || name[base.size()] != '.')
        return false;
    const char *random = name + base.size() + 1;
    size_t length = 0;
    for (; random[length] != '\0'; ++length)
        if (!std::isalnum(static_cast<unsigned char>(random[length])))
            return false;
    return length == kTemporaryRandomLength;
}

void removeIfStale(const std::string &temporary)
{
    const int fd = open(temporary.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0)
        return;
    struct stat info;
    if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && flock(fd, LOCK_EX | LOCK_NB) == 0 &&
        namesFile(temporary, fd))
        unlink(temporary.c_str());
    close(fd);
}

void removeStaleTemporaries(const std::string &path)
{
    const size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    DIR *entries = opendir(dir.c_str());
    if (!entries)
        return;
    while (const dirent *entry = readdir(entries))
        if (isTemporaryName(entry->d_name, base))
            removeIfStale(slash == std::string::npos ? entry->d_name : dir + entry->d_name);
    closedir(entries);
}

/* Temporary file beside the target, locked while it is written, synced,
 * given the target's mode, then renamed over it. On any failure the target
 * is untouched. */
bool replaceFileAtomically(const std::string &path, const std::string &content)
{
    std::string temporary;
    const int fd = createLockedTemporary(path, &temporary);
    if (fd < 0)
        return false;
    struct stat info;
    const bool written = writeAll(fd, content) &&
                         (stat(path.c_str(), &info) != 0 ||
                          fchmod(fd, info.st_mode & 07777) == 0) &&
                         fsync(fd) == 0;
    const int error = errno;
    if (close(fd) != 0 || !written || rename(temporary.c_str(), path.c_str()) != 0) {
        const int failure = written ? errno : error;
        unlink(temporary.c_str());
        errno = failure;
        return false;
    }
    syncDirectoryOf(path);
    return true;
}

/* Line and column (from 1) of `at` inside `text`. */
struct TextPosition {
    int line = 1;
    int column = 1;
};

TextPosition positionIn(const char *text, const char *at)
{
    TextPosition position;
    for (const char *p = text; p < at; ++p) {
        if (*p == '\n') {
            ++position.line;
            position.column = 1;
        } else {
            ++position.column;
        }
    }
    return position;
}

/* ---- The store ---------------------------------------------------------------------- */

class XmlStore final : public ValueStore {
  public:
    static constexpr uint32_t kTag = 0x51435846u;

    explicit XmlStore(std::string path) : path_(std::move(path)) {}
    ~XmlStore() override { tag = 0; }

    /* Declaration, comments and one Config element: anything else at the
     * top is not a file of this store and is refused. */
    bool load()
    {
        std::string content;
        if (!readWholeFile(path_, &content)) {
            logError("cannot open configuration file %s: %s", path_.c_str(), std::strerror(errno));
            return false;
        }
        const char *text = content.c_str();
        if (content.compare(0, 3, "\xEF\xBB\xBF") == 0)
            text += 3;
        /* Legacy encoding passes every byte through unchanged, as the
         * values were written. */
        const char *end = document_.Parse(text, nullptr, TIXML_ENCODING_LEGACY);
        if (document_.Error()) {
            logError("configuration file %s is not well-formed (line %d, column %d: %s); left "
                     "untouched",
                     path_.c_str(), document_.ErrorRow(), document_.ErrorCol(),
                     document_.ErrorDesc());
            return false;
        }
        /* The parser stops quietly at character data after the root (and a
         * zero byte ends its text): such a file would lose that rest on the
         * next save. */
        const char *fileEnd = content.c_str() + content.size();
        if (end != fileEnd) {
            const TextPosition at = positionIn(text, end ? end : text);
            logError("configuration file %s has data after its root element (line %d, column "
                     "%d); left untouched",
                     path_.c_str(), at.line, at.column);
            return false;
        }
        if (!hasOneConfigRoot()) {
            logError("configuration file %s has no single <%s> root element; left untouched",
                     path_.c_str(), kRootName);
            return false;
        }
        return true;
    }

    Found get(const std::string &key, const std::string &name, StoredValue *out) override
    {
        TiXmlElement *keyElement = findKey(key, false);
        TiXmlElement *value = keyElement ? findNamedChild(keyElement, kValueElement, name)
                                         : nullptr;
        if (!value)
            return Found::No;
        const char *data = value->Attribute(kDataAttribute);
        if (!kindOf(value->Attribute(kTypeAttribute), &out->kind))
            return Found::Error;
        if (out->kind == ValueKind::Dword)
            return parseDword(data, &out->number) ? Found::Yes : Found::Error;
        out->text = data ? data : "";
        return Found::Yes;
    }

    bool put(const std::string &key, const std::string &name, const StoredValue &value) override
    {
        TiXmlElement *keyElement = findKey(key, true);
        TiXmlElement *element = findNamedChild(keyElement, kValueElement, name);
        if (!element) {
            element = new TiXmlElement(kValueElement);
            element->SetAttribute(kNameAttribute, name.c_str());
            keyElement->LinkEndChild(element);
            changed_ = true;
        }
        char number[16];
        std::snprintf(number, sizeof number, "%" PRIu32, value.number);
        const char *type = typeName(value.kind);
        const char *data = value.kind == ValueKind::Dword ? number : value.text.c_str();
        setAttribute(element, kTypeAttribute, type);
        setAttribute(element, kDataAttribute, data);
        return true;
    }

    Found remove(const std::string &key, const std::string &name) override
    {
        TiXmlElement *keyElement = findKey(key, false);
        TiXmlElement *value = keyElement ? findNamedChild(keyElement, kValueElement, name)
                                         : nullptr;
        if (!value)
            return Found::No;
        keyElement->RemoveChild(value);
        changed_ = true;
        return Found::Yes;
    }

    bool save()
    {
        removeStaleTemporaries();
        if (!changed_)
            return true;
        if (!replaceFileAtomically(path_, documentText(document_))) {
            logError("failed to write configuration file %s: %s", path_.c_str(),
                     std::strerror(errno));
            return false;
        }
        changed_ = false;
        return true;
    }

    void removeStaleTemporaries() const { qrv::host::removeStaleTemporaries(path_); }

    uint32_t tag = kTag;

  private:
    bool hasOneConfigRoot() const
    {
        int roots = 0;
        for (const TiXmlNode *node = document_.FirstChild(); node; node = node->NextSibling()) {
            if (node->ToDeclaration() || node->ToComment())
                continue;
            const TiXmlElement *element = node->ToElement();
            if (!element || std::strcmp(element->Value(), kRootName) != 0 || ++roots > 1)
                return false;
        }
        return roots == 1;
    }

    /* Walks the key path from the root, creating missing keys when asked. */
    TiXmlElement *findKey(const std::string &key, bool create)
    {
        TiXmlElement *current = document_.FirstChildElement(kRootName);
        size_t start = 0;
        while (current && start < key.size()) {
            size_t end = key.find('\\', start);
            if (end == std::string::npos)
                end = key.size();
            const std::string component = key.substr(start, end - start);
            TiXmlElement *next = findNamedChild(current, kKeyElement, component);
            if (!next && create) {
                next = new TiXmlElement(kKeyElement);
                next->SetAttribute(kNameAttribute, component.c_str());
                current->LinkEndChild(next);
                changed_ = true;
            }
            current = next;
            start = end + 1;
        }
        return current;
    }

    void setAttribute(TiXmlElement *element, const char *name, const char *value)
    {
        const char *old = element->Attribute(name);
        if (old && std::strcmp(old, value) == 0)
            return;
        element->SetAttribute(name, value);
        changed_ = true;
    }

    std::string path_;
    TiXmlDocument document_;
    bool changed_ = false;
};

} // namespace

ValueStore *openXmlStore(const char *path)
{
    if (!path || path[0] == '\0') {
        logError("cannot open configuration file: no file name");
        return nullptr;
    }
    XmlStore *store = new (std::nothrow) XmlStore(resolveUserPath(path));
    if (store && !store->load()) {
        delete store;
        return nullptr;
    }
    if (store)
        store->removeStaleTemporaries();
    return store;
}

ValueStore *xmlStoreFromHandle(cfgHandle handle)
{
    if (!handle || handle == QRV_CFG_DEFAULT)
        return nullptr;
    XmlStore *store = static_cast<XmlStore *>(static_cast<ValueStore *>(handle));
    return store->tag == XmlStore::kTag ? store : nullptr;
}

int closeXmlStore(ValueStore *store, bool save)
{
    XmlStore *xml = static_cast<XmlStore *>(store);
    const bool saved = !save || xml->save();
    delete xml;
    return saved ? 0 : 1;
}

} // namespace qrv::host
